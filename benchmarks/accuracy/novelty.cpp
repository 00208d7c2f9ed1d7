// Judges how novel patterns are.
//
// novelty TRAINING TESTED: files with a pattern on each line: its measurements, "nan" for those that are missing, and
// its category, separated by commas. Learns tkNovelty from TRAINING, with one full dependency set for each category,
// and prints p-value and evidence of each pattern of TESTED, a pattern on each line. novelty.py makes the files.

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/model/tkNovelty.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{
tkClassifierDataProviderMemory read(const char* file)
{
    std::ifstream stream(file);
    tkClassifierDataProviderMemory data;
    for (std::string line; std::getline(stream, line);)
    {
        std::istringstream fields(line);
        std::vector<double> values;
        std::string field;
        while (std::getline(fields, field, ',') && !fields.eof())
            values.push_back(std::stod(field));
        std::vector<long> invalid;
        for (std::size_t j = 0; j < values.size(); ++j)
            if (std::isnan(values[j]))
                invalid.push_back(static_cast<long>(j));
        data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(values, invalid)), std::stol(field));
    }
    if (data.numPatterns() == 0)
        throw std::runtime_error(std::string("no data in ") + file);
    return data;
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::cerr << "novelty TRAINING TESTED\n";
        return 2;
    }
    try
    {
        const tkClassifierDataProviderMemory training = read(argv[1]);
        const tkClassifierDataProviderMemory tested = read(argv[2]);
        std::vector<long> all(static_cast<std::size_t>(training.numMeasurements()));
        std::iota(all.begin(), all.end(), 0L);
        tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
        for (const long label : training.labels())
            if (!types.isDependent(label, all))
                types.setDependent(label, all);
        const tkNovelty novelty(training, tkClassifierTrainParamsBayesian(types));
        for (const tkPtrHandle_const<tkFeaturePattern>& pattern : tested.patterns())
        {
            const tkNovelty::Judgement judgement = novelty.judge(*pattern);
            std::printf("%.17g %.17g\n", judgement.pValue, judgement.evidence);
        }
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
