#include "tests/bayes/bayesTestData.h"
#include "tkAllocatedBytes.h"
#include "tkTest.h"

// A triangular matrix of one element had room for 64 of them, so that a density of one measurement, which a record
// holds in about 80 bytes, took 1,600. Its memory came from the aligned operator new, in time that grew with the number
// of densities that there were already: 4 MB of them loaded in 1.2 s, which is 0.1 s now.

using namespace bayesTest;

namespace
{
/// A classifier of so many categories, each with as many independent measurements.
tk_ClassifierBayesian independent(long categories, long measurements)
{
    Rows rows;
    std::vector<long> labels;
    for (long i = 0; i < 3 * categories; ++i)
    {
        rows.emplace_back();
        for (long j = 0; j < measurements; ++j)
            rows.back().push_back(static_cast<double>(i * (j + 1) % 7));
        labels.push_back(i % categories);
    }
    tk_ClassifierBayesian classifier;
    classifier.train(provider(rows, labels), Params(Types(Types::eNormal)));
    return classifier;
}
} // namespace

TEST(smallDensitiesTookTwentyTimesTheirRecord, memoryIsBoundedByTheRecord)
{
    const long shapes[][2] = {{2000, 1}, {1, 4000}, {300, 6}};
    for (const auto& shape : shapes)
    {
        const std::string bytes = storeToBytes(independent(shape[0], shape[1]));
        tk_ClassifierBayesian loaded;
        const std::size_t before = tkAllocatedBytes();
        loadFromBytes(bytes, loaded);
        EXPECT_LE(tkAllocatedBytes(), before + 16 * bytes.size() + 65536) << shape[0] << ' ' << shape[1];
    }
}
