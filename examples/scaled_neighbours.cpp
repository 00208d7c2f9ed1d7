#include "table.h"

#include <exception>
#include <iostream>
#include <string>
#include <vector>

/// Names the cultivator of a wine by its nearest neighbours. Distances need measurements of comparable sizes.
int main(int argc, char** argv)
{
    try
    {
        std::cout.setf(std::ios::fixed);
        std::cout.precision(3);
        const tkClassifierDataProviderMemory wines = readTable(std::string(argc > 1 ? argv[1] : ".") + "/wine.csv");
        const tkClassifierTrainParamsKNN params(5);

        // Proline (measurement 12) is counted in hundreds, hue (10) in tenths: distances are differences of proline.
        const tkTrainingReport report(wines, params);
        std::cout << "deviation of hue " << report.measurements()[10].deviation << ", of proline "
                  << report.measurements()[12].deviation << "; neighbours hardly see " << report.outweighed().size()
                  << " of " << wines.numMeasurements() << " measurements\n";

        // A scaler learns mean and deviation of each measurement, and is applied to what is trained and to what is run.
        // It is a part of the training: what judges a fold must not have seen the fold.
        const std::vector<long> folds = tkAssessment::stratifiedFolds(wines, 5);
        const tkAssessment raw = tkAssessment::crossValidate(wines, params, folds);
        const tkAssessment scaled = tkAssessment::crossValidate(
            wines,
            [&](const tkClassifierDataProvider& training) -> tkJudge
            {
                const tkPatternScaler scaler(training);
                tkClassifierTool tool;
                tool.train(scaler.apply(training), params);
                return [scaler, tool](const tkFeaturePattern& wine) { return tool.run(scaler.apply(wine)); };
            },
            folds);
        const tkRate before = raw.confusion(params).accuracy();
        const tkRate after = scaled.confusion(params).accuracy();
        std::cout << "as they are: " << before.value << " right (" << before.low << " to " << before.high << ")\n"
                  << "scaled:      " << after.value << " right (" << after.low << " to " << after.high << ")\n";

        // The tool does not keep the scaler. One file for each, side by side.
        const tkPatternScaler scaler(wines);
        tkClassifierTool tool;
        tool.train(scaler.apply(wines), params);
        tkArchiveFile::save("wines.scaler.tk", scaler);
        tkArchiveFile::save("wines.tk", tool);
        tkPatternScaler loadedScaler;
        tkClassifierTool loaded;
        tkArchiveFile::load("wines.scaler.tk", loadedScaler);
        tkArchiveFile::load("wines.tk", loaded);
        loaded.retrain(*loaded.trainParams()); // puts k = 5 into force again
        const tkFeaturePattern wine({13.0, 2.3, 2.4, 19.5, 100, 2.3, 2.0, 0.4, 1.6, 5.1, 0.9, 2.6, 700});
        const tkClassifierResult result = loaded.run(loadedScaler.apply(wine));
        for (const tkClassifierCategoryResult& category : result.categoryResults())
            std::cout << "label " << category.categoryLabel() << ": score " << category.classScore() << '\n';
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
