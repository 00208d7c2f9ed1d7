#include "table.h"

#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace
{
void print(const std::string& what, const tkAssessment& assessment, const tkDecisionRule& rule)
{
    const tkRate right = assessment.confusion(rule).accuracy();
    std::cout << what << ": " << right.value << " right (" << right.low << " to " << right.high << "), log loss "
              << assessment.logLoss(rule) << '\n';
}
} // namespace

/// Chooses k of nearest neighbours and the dependency sets of a Bayesian classifier by leave-one-out, and the cost of
/// a refusal.
int main(int argc, char** argv)
{
    try
    {
        std::cout.setf(std::ios::fixed);
        std::cout.precision(3);
        const tkClassifierDataProviderMemory irises = readTable(std::string(argc > 1 ? argv[1] : ".") + "/iris.csv");

        // Each pattern is judged by a training with all others. Few votes give scores of 0 to the right category, for
        // which the log loss pays.
        for (const long k : {1L, 3L, 7L, 15L, 31L})
        {
            const tkClassifierTrainParamsKNN params(k);
            print("k = " + std::to_string(k), tkAssessment::leaveOneOut(irises, params), params);
        }

        // The more measurements are dependent, the more there is to learn, and from the same patterns.
        const std::vector<std::vector<std::vector<long>>> choices = {{}, {{2, 3}}, {{0, 1}, {2, 3}}, {{0, 1, 2, 3}}};
        tkAssessment best;
        for (const std::vector<std::vector<long>>& sets : choices)
        {
            tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
            std::string name = "sets";
            for (const std::vector<long>& set : sets)
            {
                for (const long label : {0L, 1L, 2L})
                    types.setDependent(label, set);
                name += " {";
                for (const long j : set)
                    name += std::to_string(j);
                name += "}";
            }
            const tkClassifierTrainParamsBayesian params(types);
            const tkAssessment assessment = tkAssessment::leaveOneOut(irises, params);
            print(name, assessment, params);
            if (best.numPatterns() == 0 || assessment.logLoss(params) < best.logLoss(params))
                best = assessment;
        }

        // An assessment keeps what was said about each pattern. Other costs, frequencies and refusals need no training:
        // with a refusal that costs a tenth of a mistake, what is not certain is left to a person.
        tkDecisionRule rule;
        rule.refusalCost(0.1);
        const tkConfusionMatrix confusion = best.confusion(rule);
        for (const long truth : confusion.categories())
        {
            std::cout << "category " << truth << ":";
            for (const long decision : confusion.categories())
                std::cout << ' ' << confusion.count(truth, decision);
            std::cout << ", refused " << confusion.count(truth, tkDecisionRule::cannotTell) << ", recall "
                      << confusion.recall(truth).value << ", precision " << confusion.precision(truth).value << '\n';
        }
        std::cout << "cost of a pattern " << best.confusion(tkDecisionRule()).expectedCost(tkDecisionRule())
                  << ", with refusals " << confusion.expectedCost(rule) << "; calibration error "
                  << best.calibrationError(rule) << '\n';
        for (const tkAssessment::RefusalPoint& point : best.costAgainstRefusals(rule))
            if (point.refused > 0.0 && point.refused < 0.055)
                std::cout << "refusing " << point.refused << " costs " << point.cost << " for each of the others\n";
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
