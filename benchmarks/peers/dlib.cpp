#include "peers.h"

#include <dlib/matrix.h>
#include <dlib/statistics.h>

#include <map>

namespace
{
using Column = dlib::matrix<double, 0, 1>;

class Dlib : public Peer
{
public:
    Dlib() : Peer("dlib") {}

    void addNormalTraining(std::vector<Tool>& tools, const Table& training, bool dependent) override
    {
        if (!dependent)
            return;
        tools.push_back({name(), Role::Peer,
                         [&training](long, long count)
                         {
                             for (long i = 0; i < count; ++i)
                             {
                                 std::map<long, dlib::running_covariance<Column>> models;
                                 for (long r = 0; r < training.rows; ++r)
                                     models[training.labels[static_cast<std::size_t>(r)]].add(
                                         dlib::mat(training.row(r), training.columns));
                                 for (const auto& [label, model] : models)
                                     keep(model.covariance());
                             }
                         }});
    }
} dlibPeer;
} // namespace
