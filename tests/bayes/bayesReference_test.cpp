#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/bayes/tk_ProbabilityDensityFunction.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "tkTest.h"

#include <cmath>
#include <fstream>
#include <numeric>
#include <vector>

namespace
{
using Types = tkClassifierDistributionTypes;
using Params = tkClassifierTrainParamsBayesian;

/// One line of a table: a word, then numbers.
struct Line
{
    std::string word;
    std::vector<double> numbers;
};

std::vector<Line> linesOf(const std::string& file)
{
    std::ifstream table(CLASTOOL_REFERENCE_DIR "/" + file);
    std::vector<Line> lines;
    for (std::string text; std::getline(table, text);)
    {
        if (text.rfind('#', 0) == 0)
            continue;
        std::istringstream stream(text);
        Line line;
        std::getline(stream, line.word, ',');
        for (std::string number; std::getline(stream, number, ',');)
            line.numbers.push_back(std::stod(number));
        lines.push_back(line);
    }
    return lines;
}

const tkClassifierCategoryResult& ofLabel(const tkClassifierResult& result, long label)
{
    for (const tkClassifierCategoryResult& category : result.categoryResults())
        if (category.categoryLabel() == label)
            return category;
    throw std::out_of_range("no such category");
}

/// Compares one table: a joint normal density with the posteriors, independent ones with the expected costs.
void compareTable(const std::string& file, std::size_t numLabels)
{
    tkClassifierDataProviderMemory data;
    std::vector<double> shares(numLabels, 0.0);
    std::size_t numMeasurements = 0;
    tkClassifierFrequencies frequencies;
    tkClassifierCosts costs;
    std::vector<Line> queries;
    for (const Line& line : linesOf(file))
    {
        const long first = static_cast<long>(line.numbers[0]);
        if (line.word == "train")
        {
            const std::vector<double> values(line.numbers.begin() + 1, line.numbers.end());
            data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(values)), first);
            shares.at(static_cast<std::size_t>(first)) += 1.0;
            numMeasurements = values.size();
        }
        else if (line.word == "frequency")
            frequencies.categoryFrequencyOverride(first, line.numbers[1]);
        else if (line.word == "misclassification")
            costs.misclassificationCostOverride(first, static_cast<long>(line.numbers[1]), line.numbers[2]);
        else
            queries.push_back(line);
    }
    ASSERT_EQ(queries.size(), 75u); // 25 queries with two answers each

    std::vector<long> all(numMeasurements);
    std::iota(all.begin(), all.end(), 0L);
    Types joint(Types::eNormal);
    tkClassifierFrequencies shareOf;
    for (std::size_t label = 0; label < numLabels; ++label)
    {
        joint.setDependent(static_cast<long>(label), all);
        shareOf.categoryFrequencyOverride(static_cast<long>(label), shares[label]);
    }
    tkClassifierTool jointly;
    jointly.train(data, Params(joint, shareOf));
    tkClassifierTool independently;
    independently.train(data, Params(Types(Types::eNormal), frequencies, costs));

    tkClassifierResult posteriors;
    tkClassifierResult expected;
    for (const Line& line : queries)
    {
        if (line.word == "query")
        {
            jointly.run(tkFeaturePattern(line.numbers), posteriors);
            independently.run(tkFeaturePattern(line.numbers), expected);
            continue;
        }
        ASSERT_EQ(line.numbers.size(), numLabels);
        for (std::size_t label = 0; label < numLabels; ++label)
        {
            const double number = line.numbers[label];
            if (line.word == "posterior")
                EXPECT_NEAR(ofLabel(posteriors, static_cast<long>(label)).classScore(), number, 1e-8);
            else
                EXPECT_NEAR(ofLabel(expected, static_cast<long>(label)).expectedCost(), number, 1e-9 * (1.0 + number));
        }
    }
}
} // namespace

TEST(bayesReference, posteriorsAndExpectedCostsOfIris)
{
    compareTable("bayes.iris.csv", 3);
}

TEST(bayesReference, posteriorsAndExpectedCostsOfWine)
{
    compareTable("bayes.wine.csv", 3);
}

TEST(bayesReference, posteriorsAndExpectedCostsOfBreastCancer)
{
    compareTable("bayes.cancer.csv", 2);
}

TEST(bayesReference, binomialTrialsAndProbabilities)
{
    tk_PDFBinomial density(tkFeaturePattern({1.0}));
    int queries = 0;
    for (const Line& line : linesOf("bayes.binomial.csv"))
    {
        if (line.word == "query")
        {
            EXPECT_NEAR(density.logValue(tkFeaturePattern({line.numbers[0]})), line.numbers[1],
                        1e-8 * (1.0 + std::fabs(line.numbers[1])));
            ++queries;
            continue;
        }
        density = tk_PDFBinomial(tkFeaturePattern({line.numbers[0]}));
        for (std::size_t i = 2; i < line.numbers.size(); ++i)
            density.updateWithData({tkFeaturePattern({line.numbers[i]})});
        EXPECT_EQ(density.numTrials(), static_cast<long>(line.numbers[1]));
    }
    EXPECT_GE(queries, 30);
}
