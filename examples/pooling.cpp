#include "table.h"

#include <exception>
#include <iostream>
#include <map>
#include <numeric>
#include <string>
#include <vector>

/// Learns the joint distribution of thirteen measurements from few wines of each cultivator.
int main(int argc, char** argv)
{
    try
    {
        std::cout.setf(std::ios::fixed);
        std::cout.precision(3);
        const tkClassifierDataProviderMemory wines = readTable(std::string(argc > 1 ? argv[1] : ".") + "/wine.csv");
        std::vector<long> all(static_cast<std::size_t>(wines.numMeasurements()));
        std::iota(all.begin(), all.end(), 0L);
        tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
        for (const long label : {0L, 1L, 2L})
            types.setDependent(label, all);
        const tkClassifierTrainParamsBayesian params(types);

        for (const long limit : {10L, 15L, 20L, 40L})
        {
            // The first wines of each cultivator are learned, the others judged.
            tkClassifierDataProviderMemory training;
            tkClassifierDataProviderMemory others;
            std::map<long, long> counts;
            for (std::size_t i = 0; i < wines.patterns().size(); ++i)
                (counts[wines.labels()[i]]++ < limit ? training : others)
                    .addData(wines.patterns()[i], wines.labels()[i]);

            // The covariance of 13 measurements has 91 numbers, and each category learns its own. Pooling mixes it with
            // the covariance within all categories. Without a given amount each training chooses it by leave-one-out.
            const double amount = tkCovariancePooling::choose(training, params);
            tkClassifierTool plain;
            plain.train(training, params);
            tkClassifierTool pooled;
            pooled.train(training, tkCovariancePooling(params, amount));
            const tkAssessment before = tkAssessment::heldOut(others, plain);
            const tkAssessment after = tkAssessment::heldOut(others, pooled);
            std::cout << limit << " of each: " << before.confusion(params).accuracy().value << " right, log loss "
                      << before.logLoss(params) << "; pooled by " << amount << ": "
                      << after.confusion(params).accuracy().value << " right, log loss " << after.logLoss(params)
                      << '\n';
        }
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
