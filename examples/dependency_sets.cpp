#include "table.h"

#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace
{
/// Normal distributions in which the measurements of each of these sets depend on one another, in all three categories.
tkClassifierDistributionTypes dependent(const std::vector<std::vector<long>>& sets)
{
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    for (const long label : {0L, 1L, 2L})
        for (const std::vector<long>& set : sets)
            types.setDependent(label, set);
    return types;
}

void print(const char* what, const tkClassifierResult& result)
{
    std::cout << what << ":";
    for (const tkClassifierCategoryResult& category : result.categoryResults())
        std::cout << "  label " << category.categoryLabel() << " score " << category.classScore() << " cost "
                  << category.expectedCost();
    std::cout << '\n';
}
} // namespace

/// Tells three species of iris apart by length and width of sepals and petals. A normal distribution of each
/// measurement by itself, or of those that depend on one another together; then frequencies and costs.
int main(int argc, char** argv)
{
    try
    {
        std::cout.setf(std::ios::fixed);
        std::cout.precision(3);
        const tkClassifierDataProviderMemory irises = readTable(std::string(argc > 1 ? argv[1] : ".") + "/iris.csv");

        // Length and width of a leaf grow together. A set of measurements that depend on one another has a joint
        // density with all their covariances, which takes more patterns to learn; measurements in no set are
        // independent. Each pattern is judged by a training with all others.
        const tkClassifierTrainParamsBayesian independent(dependent({}));
        const tkClassifierTrainParamsBayesian leaves(dependent({{0, 1}, {2, 3}}));
        const tkClassifierTrainParamsBayesian joint(dependent({{0, 1, 2, 3}}));
        const auto tell = [&](const char* what, const tkClassifierTrainParamsBayesian& params)
        {
            const tkAssessment assessment = tkAssessment::leaveOneOut(irises, params);
            std::cout << what << assessment.confusion(params).accuracy().hits << " of " << assessment.numPatterns()
                      << " right, log loss " << assessment.logLoss(params) << '\n';
        };
        tell("independent:       ", independent);
        tell("sepals and petals: ", leaves);
        tell("all together:      ", joint);

        // Frequencies say how often each category comes, whatever the training data hold: here one virginica (2) comes
        // on ten versicolors (1). To take a virginica for a versicolor shall cost 20 times as much as other mistakes.
        // Both are of the decision, not of the densities, so that the tool takes them over without a training.
        tkClassifierTool tool;
        tool.train(irises, joint);
        const tkFeaturePattern iris({6.0, 2.8, 5.0, 1.6});
        print("equal frequencies  ", tool.run(iris));
        tkClassifierTrainParamsBayesian params(joint);
        tkClassifierFrequencies frequencies(1.0);
        frequencies.categoryFrequencyOverride(1, 10.0);
        params.categoryFrequencies(frequencies);
        tool.retrain(params);
        print("virginica is rare  ", tool.run(iris));
        tkClassifierCosts costs(1.0);
        costs.misclassificationCostOverride(2, 1, 20.0);
        params.misclassificationCosts(costs);
        tool.retrain(params);
        print("and costly to miss ", tool.run(iris));
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
