#include "table.h"

#include "foundation/tkRandom.h"

#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace
{
/// The patterns with about this share of the measurements marked as missing, always the same ones.
tkClassifierDataProviderMemory withGaps(const tkClassifierDataProviderMemory& data, double share)
{
    tkRandomUniform uniform(1);
    tkClassifierDataProviderMemory gappy;
    for (long i = 0; i < data.numPatterns(); ++i)
    {
        std::vector<long> invalid;
        for (long j = 0; j < data.numMeasurements(); ++j)
            if (uniform.next(0.0, 1.0) < share)
                invalid.push_back(j);
        const std::vector<double>& measurements =
            data.patterns()[static_cast<std::size_t>(i)]->featureMeasurements(false);
        gappy.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(measurements, invalid)),
                      data.categoryLabel(i));
    }
    return gappy;
}
} // namespace

/// Learns from wines of which a part was not measured.
int main(int argc, char** argv)
{
    try
    {
        std::cout.setf(std::ios::fixed);
        std::cout.precision(3);
        const tkClassifierDataProviderMemory wines = readTable(std::string(argc > 1 ? argv[1] : ".") + "/wine.csv");

        // All measurements depend on one another.
        tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
        for (const long label : {0L, 1L, 2L})
            types.setDependent(label, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
        const tkClassifierTrainParamsBayesian params(types);
        for (const double share : {0.0, 0.05, 0.1})
        {
            const tkClassifierDataProviderMemory gappy = withGaps(wines, share);

            // A density learns from patterns that have all of its measurements: of a large set, few have.
            const tkTrainingReport report(gappy, params);
            std::cout << share << " missing; complete patterns:";
            for (const tkTrainingReport::Category& category : report.categories())
                std::cout << ' ' << category.numComplete << " of " << category.numPatterns;

            // tkIncompleteTraining learns means and covariances from all that is there (the EM algorithm). What is
            // judged may have gaps as well: the likelihood is that of the measurements that are valid.
            const std::vector<long> folds = tkAssessment::stratifiedFolds(gappy, 5);
            const tkAssessment skipping = tkAssessment::crossValidate(gappy, params, folds);
            const tkAssessment learning = tkAssessment::crossValidate(gappy, tkIncompleteTraining(params), folds);
            std::cout << "; skipping the others " << skipping.confusion(params).accuracy().value
                      << " right, learning from all " << learning.confusion(params).accuracy().value << '\n';
        }
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
