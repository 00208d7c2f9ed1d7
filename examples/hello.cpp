#include "clss/clastool/clastool.h"

#include <exception>
#include <iostream>

int main()
{
    try
    {
        // Two measurements of each coin, diameter in mm and weight in g, and what it is, in cents.
        tkClassifierDataProviderMemory coins;
        coins.addData({24.2, 7.8}, 50);
        coins.addData({24.3, 7.7}, 50);
        coins.addData({24.0, 7.6}, 50);
        coins.addData({23.2, 7.5}, 100);
        coins.addData({23.3, 7.4}, 100);
        coins.addData({23.4, 7.6}, 100);

        // The class of the parameters chooses the method: the 5 nearest neighbours, by Euclidean distance,
        // shall vote. To take 50 cents for a euro costs 2, the other mistake 1.
        tkClassifierCosts costs(1.0);
        costs.misclassificationCostOverride(50, 100, 2.0);
        const tkClassifierTrainParamsKNN params(5, costs);
        tkClassifierTool tool;
        tool.train(coins, params);

        // Categories come in the order of the costs to be expected, the cheapest decision first: more neighbours
        // are euros, but the decision for 50 cents costs less.
        const tkFeaturePattern unknown({23.6, 7.5});
        const tkClassifierResult result = tool.run(unknown);
        for (const tkClassifierCategoryResult& category : result.categoryResults())
            std::cout << "label " << category.categoryLabel() << ": score " << category.classScore()
                      << ", expected cost " << category.expectedCost() << '\n';

        // A loaded nearest-neighbour classifier has its data, but runs with default parameters (k = 1, equal costs)
        // until it is retrained; the stored parameters come with the tool.
        tkArchiveFile::save("coins.tk", tool);
        tkClassifierTool loaded;
        tkArchiveFile::load("coins.tk", loaded);
        loaded.retrain(*loaded.trainParams());
        std::cout << (loaded.run(unknown) == result ? "the loaded tool gives the same result\n"
                                                    : "the results differ\n");
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
