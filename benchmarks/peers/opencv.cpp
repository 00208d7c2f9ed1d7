#include "peers.h"

#include <opencv2/core.hpp>
#include <opencv2/ml.hpp>

#include <memory>

namespace
{
cv::Mat floatsOf(const Table& table)
{
    cv::Mat floats(static_cast<int>(table.rows), static_cast<int>(table.columns), CV_32F);
    for (int i = 0; i < floats.rows; ++i)
        for (int j = 0; j < floats.cols; ++j)
            floats.at<float>(i, j) = static_cast<float>(table.row(i)[j]);
    return floats;
}

cv::Mat labelsOf(const Table& table)
{
    cv::Mat labels(static_cast<int>(table.rows), 1, CV_32S);
    for (int i = 0; i < labels.rows; ++i)
        labels.at<int>(i) = static_cast<int>(table.labels[static_cast<std::size_t>(i)]);
    return labels;
}

class OpenCv : public Peer
{
public:
    OpenCv() : Peer("OpenCV") { cv::setNumThreads(1); }

    void addNearest(std::vector<Tool>& tools, const Table& rows, const Table& queries, long k, double order) override
    {
        if (order != 2.0)
            return;
        const cv::Ptr<cv::ml::KNearest> nearest = cv::ml::KNearest::create();
        nearest->setAlgorithmType(cv::ml::KNearest::BRUTE_FORCE);
        nearest->setIsClassifier(true);
        nearest->train(floatsOf(rows), cv::ml::ROW_SAMPLE, labelsOf(rows));
        tools.push_back(
            {name(), Role::Peer,
             [nearest, k, q = floatsOf(queries)](long first, long count)
             {
                 cv::Mat results;
                 for (long i = first; i < first + count; ++i)
                     keep(nearest->findNearest(q.row(static_cast<int>(i) % q.rows), static_cast<int>(k), results));
             }});
    }

    void addNormalRun(std::vector<Tool>& tools, const Table& training, const Table& queries, bool dependent) override
    {
        if (!dependent)
            return;
        const cv::Ptr<cv::ml::NormalBayesClassifier> bayes = cv::ml::NormalBayesClassifier::create();
        bayes->train(floatsOf(training), cv::ml::ROW_SAMPLE, labelsOf(training));
        tools.push_back({name(), Role::Peer,
                         [bayes, q = floatsOf(queries)](long first, long count)
                         {
                             cv::Mat outputs;
                             cv::Mat probabilities;
                             for (long i = first; i < first + count; ++i)
                                 keep(bayes->predictProb(q.row(static_cast<int>(i) % q.rows), outputs, probabilities));
                         }});
    }

    void addNormalTraining(std::vector<Tool>& tools, const Table& training, bool dependent) override
    {
        if (!dependent)
            return;
        tools.push_back({name(), Role::Peer,
                         [data = cv::ml::TrainData::create(floatsOf(training), cv::ml::ROW_SAMPLE, labelsOf(training))](
                             long, long count)
                         {
                             for (long i = 0; i < count; ++i)
                                 keep(cv::ml::NormalBayesClassifier::create()->train(data));
                         }});
    }

    void addTree(std::vector<Tool>& tools, long depth, const Table& queries) override
    {
        // A regression on the leaf's number finds the tree level by level: the highest bit explains the most.
        const int bits = static_cast<int>(depth);
        cv::Mat samples(1 << bits, bits, CV_32F);
        cv::Mat leaves(1 << bits, 1, CV_32F);
        for (int leaf = 0; leaf < samples.rows; ++leaf)
        {
            leaves.at<float>(leaf) = static_cast<float>(leaf);
            for (int level = 0; level < bits; ++level)
                samples.at<float>(leaf, level) = (leaf >> (bits - 1 - level) & 1) != 0 ? 0.75f : 0.25f;
        }
        const cv::Ptr<cv::ml::DTrees> tree = cv::ml::DTrees::create();
        tree->setMaxDepth(bits);
        tree->setMinSampleCount(1);
        tree->setRegressionAccuracy(0.0f);
        tree->setUseSurrogates(false);
        tree->setUse1SERule(false);
        tree->setTruncatePrunedTree(false);
        tree->setCVFolds(0);
        tree->train(samples, cv::ml::ROW_SAMPLE, leaves);
        if (tree->getNodes().size() != (std::size_t{2} << bits) - 1)
            return; // another tree: not comparable
        tools.push_back({name() + " (label only)", Role::Peer,
                         [tree, q = floatsOf(queries)](long first, long count)
                         {
                             for (long i = first; i < first + count; ++i)
                                 keep(tree->predict(q.row(static_cast<int>(i) % q.rows)));
                         }});
    }
} openCv;
} // namespace
