#ifndef TESTS_MODEL_MODELTESTDATA_H
#define TESTS_MODEL_MODELTESTDATA_H

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"
#include "clss/clastool/bayes/tk_ClassifierBayesian.h"
#include "clss/clastool/bayes/tk_ProbabilityDensityFunction.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "foundation/tkRandom.h"
#include "numerics/tkNMNormal.h"
#include "tkTest.h"

#include <cmath>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

/// One line of a table of tests/reference: a word, then numbers.
struct Line
{
    std::string word;
    std::vector<double> numbers;
};

inline std::vector<Line> linesOf(const std::string& file)
{
    std::ifstream table(CLASTOOL_REFERENCE_DIR "/" + file);
    EXPECT_TRUE(table.is_open()) << file;
    std::vector<Line> lines;
    for (std::string text; std::getline(table, text);)
    {
        std::istringstream stream(text);
        Line line;
        std::getline(stream, line.word, ',');
        for (std::string number; std::getline(stream, number, ',');)
            line.numbers.push_back(std::stod(number));
        lines.push_back(line);
    }
    return lines;
}

/// A pattern whose NaN measurements are invalid.
inline tkFeaturePattern patternWithGaps(const std::vector<double>& measurements)
{
    std::vector<long> invalid;
    for (std::size_t j = 0; j < measurements.size(); ++j)
        if (std::isnan(measurements[j]))
            invalid.push_back(static_cast<long>(j));
    return tkFeaturePattern(measurements, invalid);
}

inline tkPtrHandle_const<tkFeaturePattern> handleTo(const tkFeaturePattern& pattern)
{
    return tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(pattern));
}

/// Hands out whatever it was given, as a provider of a host's own may do.
class UncheckedProvider : public tkClassifierDataProvider
{
public:
    std::wstring name() override { return L"unchecked"; }
    std::wstring description() override { return L"whatever it was given"; }
    long numMeasurements() const override { return measurements; }
    long numPatterns() const override { return static_cast<long>(patterns.size()); }
    tkPtrHandle_const<tkFeaturePattern> featurePattern(long index) override
    {
        return patterns[static_cast<std::size_t>(index)];
    }
    long categoryLabel(long index) const override { return labels[static_cast<std::size_t>(index)]; }

    long measurements = 0;
    std::vector<tkPtrHandle_const<tkFeaturePattern>> patterns;
    std::vector<long> labels;
};

/// Parameters for two measurements, of which the second is binomial with 10 trials in the categories 0 and 1.
inline tkClassifierTrainParamsBayesian paramsWithABinomial()
{
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    for (const long label : {0L, 1L})
        types.distributionTypeOverride(label, 1, tkClassifierDistributionTypes::eBinomial);
    return tkClassifierTrainParamsBayesian(types, tkClassifierFrequencies(), tkClassifierCosts(),
                                           tkFeaturePattern({0.0, 10.0}, {0}));
}

/// 30 patterns for these parameters.
inline tkClassifierDataProviderMemory dataWithABinomial()
{
    tkRandomUniform uniform(6);
    tkClassifierDataProviderMemory data;
    for (int i = 0; i < 30; ++i)
        data.addData({uniform.next(-1.0, 1.0), std::floor(uniform.next(i % 2 ? 1.0 : 3.0, 8.0))}, i % 2);
    return data;
}

/// The classifier of a training.
template <class Classifier>
std::unique_ptr<Classifier> trained(const tkClassifierDataProviderMemory& data, const tkClassifierTrainParams& params)
{
    auto classifier = std::make_unique<Classifier>();
    classifier->train(data, params);
    return classifier;
}

/// The distribution of one dependency set of one category.
inline const tkNMNormal& normalOf(const tk_ClassifierBayesian& classifier, std::size_t model, std::size_t set)
{
    const auto& bayesian = dynamic_cast<const tk_CategoryModelBayesian&>(*classifier.categoryModels()[model]);
    return dynamic_cast<const tk_PDFMultivariateNormal&>(*bayesian.densities()[set]).normal();
}

/// Golden archives of parameters and of a tool trained with them come back equal and store to the same bytes.
template <class Params>
void expectGoldens(const std::string& paramsFile, const Params& expectedParams, const std::string& toolFile,
                   const tkClassifierTool& expectedTool)
{
    const std::string bytes = goldenBytes(paramsFile);
    tkPtrHandle<Params> params;
    loadFromBytes(bytes, params);
    ASSERT_TRUE(params);
    EXPECT_TRUE(*params == expectedParams);
    EXPECT_EQ(bytes, storeToBytes(params));

    const std::string toolBytes = goldenBytes(toolFile);
    tkClassifierTool tool;
    loadFromBytes(toolBytes, tool);
    EXPECT_TRUE(tool == expectedTool);
    EXPECT_EQ(toolBytes, storeToBytes(tool));
}

#endif
