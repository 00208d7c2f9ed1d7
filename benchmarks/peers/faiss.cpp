#include "peers.h"

#include <faiss/IndexFlat.h>

#include <omp.h>

#include <memory>

namespace
{
std::vector<float> floatsOf(const Table& table)
{
    std::vector<float> floats;
    for (const double value : table.values)
        floats.push_back(static_cast<float>(value));
    return floats;
}

class Faiss : public Peer
{
public:
    Faiss() : Peer("faiss") { omp_set_num_threads(1); }

    void addNearest(std::vector<Tool>& tools, const Table& rows, const Table& queries, long k, double order) override
    {
        const faiss::MetricType metric = order == 2.0   ? faiss::METRIC_L2
                                         : order == 1.0 ? faiss::METRIC_L1
                                                        : faiss::METRIC_Lp;
        const auto index = std::make_shared<faiss::IndexFlat>(rows.columns, metric);
        index->metric_arg = static_cast<float>(order);
        index->add(rows.rows, floatsOf(rows).data());
        const auto tool = [&](const std::string& toolName, long batch)
        {
            // As many queries as a batch takes, the given ones again and again.
            std::vector<float> q;
            const std::vector<float> given = floatsOf(queries);
            while (q.size() < static_cast<std::size_t>(std::max(batch, queries.rows) * rows.columns))
                q.insert(q.end(), given.begin(), given.end());
            const long numQueries = static_cast<long>(q.size()) / rows.columns;
            tools.push_back({toolName, Role::Peer,
                             [index, q, k, batch, numQueries](long first, long count)
                             {
                                 std::vector<float> distances(static_cast<std::size_t>(batch * k));
                                 std::vector<faiss::Index::idx_t> indices(distances.size());
                                 for (long i = first; i < first + count; i += batch)
                                 {
                                     index->search(batch, q.data() + (batch > 1 ? 0 : i % numQueries) * index->d, k,
                                                   distances.data(), indices.data());
                                     keep(indices);
                                 }
                             },
                             batch});
        };
        tool(name(), 1);
        if (rows.columns == 64) // where its matrix product pays
            tool(name() + ", 1,024 at a time", 1024);
    }
} faissPeer;
} // namespace
