#include "clss/clastool/clastool.h"

#include <exception>
#include <iostream>
#include <vector>

namespace
{
enum Measurement : long
{
    brightness,
    roughness,
};
enum Material : long
{
    paper,
    cloth,
};

/// One generator for each material, at the place of its label: mean and standard deviation of each measurement, and
/// the number of patterns.
std::vector<tk_ClassDataGenerator> generators(long numPatterns)
{
    return {tk_ClassDataGenerator({{106.0, 8.0}, {12.0, 4.0}}, numPatterns),
            tk_ClassDataGenerator({{90.0, 8.0}, {18.0, 4.0}}, numPatterns)};
}

/// Patterns `first` to `last - 1` of every generator, each with the place of its generator as label.
tkClassifierDataProviderMemory merged(std::vector<tk_ClassDataGenerator> generators, long first, long last)
{
    tkClassifierDataProviderMemory all;
    for (std::size_t label = 0; label < generators.size(); ++label)
    {
        tkClassifierDataProviderMemory data = generators[label].generateData(); // all of them labelled 0
        for (long i = first; i < last; ++i)
            all.addData(data.featurePattern(i), static_cast<long>(label));
    }
    return all;
}

void test(const char* method, const tkClassifierTool& tool, tkClassifierDataProviderMemory& data)
{
    long right = 0;
    for (long i = 0; i < data.numPatterns(); ++i)
    {
        tkClassifierResult result;
        tool.run(*data.featurePattern(i), result);
        right += result.categoryResults().front().categoryLabel() == data.categoryLabel(i);
    }
    std::cout << method << ": " << right << " of " << data.numPatterns() << " right\n";
}

tkDecisionTreeLeaf leaf(Material material)
{
    return tkDecisionTreeLeaf(tkClassifierResult({{material, 1.0, 1.0, 0.0}}, 0.0));
}
} // namespace

/// Compares the three methods on data of which it is known how well the best of all methods does.
int main()
{
    try
    {
        // tk_TotalDataGenerator shuffles the data of several generators, but all its loops end at the number of
        // measurements: it takes 2 patterns of each material here, as they have 2 measurements, and keeps the first 2
        // of these 4. Whatever the generators, what it gives are patterns of the first of them alone. To train with
        // all the data, merge them as merged() does.
        tkClassifierDataProviderMemory total = tk_TotalDataGenerator(generators(500)).generateData();
        std::cout << "patterns of the total generator: " << total.numPatterns() << '\n';

        // A generator always begins with the same patterns, so that test data of their own come from further on. Two
        // generators draw the same deviates too: pattern i of the one material is that of the other, moved.
        const long numTraining = 500;
        const long numTest = 1000;
        const std::vector<tk_ClassDataGenerator> materials = generators(numTraining + numTest);
        tkClassifierDataProviderMemory trainingData = merged(materials, 0, numTraining);
        tkClassifierDataProviderMemory testData = merged(materials, numTraining, numTraining + numTest);

        // The materials are 2 standard deviations apart in brightness and 1.5 in roughness, 2.5 in all. No method is
        // right more often, in the long run, than a normal deviate is below half of that: 89.4 %.
        tkClassifierTool tool;
        tool.train(trainingData, tkClassifierTrainParamsBayesian()); // normal distributions, as in the generators
        test("Bayes", tool, testData);

        tool.train(trainingData, tkClassifierTrainParamsKNN(15));
        test("15 nearest neighbours", tool, testData);

        // A tree is built by hand. This one looks at the brightness alone: at best 84.1 %.
        const tkRangePredicate isBright(tkRange(98.0, 255.0), {brightness});
        tool.train(tkDecisionTreeNode(isBright, leaf(paper), leaf(cloth)));
        test("tree", tool, testData);
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
