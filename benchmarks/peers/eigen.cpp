#include "peers.h"

#include <Eigen/Dense>

#include <cmath>
#include <map>
#include <memory>

namespace
{
/// Normal densities with the factors kept.
struct Model
{
    Eigen::VectorXd mean;
    Eigen::MatrixXd factor;
    double logDeterminant; // of the factor
};

std::map<long, Model> modelsOf(const Table& table)
{
    struct Sums
    {
        double count = 0.0;
        Eigen::VectorXd mean;
        Eigen::MatrixXd products;
    };
    std::map<long, Sums> sums;
    for (long i = 0; i < table.rows; ++i)
    {
        Sums& s = sums[table.labels[static_cast<std::size_t>(i)]];
        const Eigen::Map<const Eigen::VectorXd> row(table.row(i), table.columns);
        if (s.count == 0.0)
        {
            s.mean = Eigen::VectorXd::Zero(table.columns);
            s.products = Eigen::MatrixXd::Zero(table.columns, table.columns);
        }
        s.count += 1.0;
        const Eigen::VectorXd before = row - s.mean;
        s.mean += before / s.count;
        s.products.selfadjointView<Eigen::Lower>().rankUpdate(before, (s.count - 1.0) / s.count);
    }
    std::map<long, Model> models;
    for (const auto& [label, s] : sums)
    {
        const Eigen::MatrixXd covariance =
            Eigen::MatrixXd(s.products.selfadjointView<Eigen::Lower>()) / (s.count - 1.0);
        const Eigen::MatrixXd factor = covariance.llt().matrixL();
        models[label] = {s.mean, factor, factor.diagonal().array().log().sum()};
    }
    return models;
}

class EigenPeer : public Peer
{
public:
    EigenPeer() : Peer("Eigen, factors kept") { Eigen::setNbThreads(1); }

    void addNormalRun(std::vector<Tool>& tools, const Table& training, const Table& queries, bool dependent) override
    {
        if (!dependent)
            return;
        const auto models = std::make_shared<std::map<long, Model>>(modelsOf(training));
        tools.push_back({name(), Role::Peer,
                         [models, &queries](long first, long count)
                         {
                             Eigen::VectorXd scores(static_cast<Eigen::Index>(models->size()));
                             Eigen::VectorXd z(queries.columns);
                             for (long i = first; i < first + count; ++i)
                             {
                                 const Eigen::Map<const Eigen::VectorXd> query(queries.row(i % queries.rows),
                                                                               queries.columns);
                                 Eigen::Index c = 0;
                                 for (const auto& [label, model] : *models)
                                 {
                                     z = query - model.mean;
                                     model.factor.triangularView<Eigen::Lower>().solveInPlace(z);
                                     scores[c++] = -0.5 * z.squaredNorm() - model.logDeterminant;
                                 }
                                 scores = (scores.array() - scores.maxCoeff()).exp();
                                 scores /= scores.sum();
                                 keep(scores);
                             }
                         }});
    }
} eigenPeer;
} // namespace
