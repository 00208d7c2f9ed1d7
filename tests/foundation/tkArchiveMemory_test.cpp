#include "archiveTestObjects.h"
#include "foundation/tkArchiveFile.h"
#include "foundation/tkRange.h"
#include "tkTest.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <random>
#include <streambuf>

#if defined(__has_feature)
#define HAS_FEATURE(feature) __has_feature(feature)
#else
#define HAS_FEATURE(feature) 0
#endif

// Counts the memory of the whole test program: a hostile archive must not get more than its bytes justify. The
// sanitizers have an operator new of their own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !HAS_FEATURE(address_sanitizer) &&              \
    !HAS_FEATURE(thread_sanitizer)

namespace
{
std::atomic<std::size_t> inUse{0};
std::atomic<std::size_t> peak{0};

constexpr std::size_t headSize = alignof(std::max_align_t);

void* take(std::size_t size)
{
    void* const block = std::malloc(size + headSize);
    if (!block)
        throw std::bad_alloc();
    *static_cast<std::size_t*>(block) = size;
    const std::size_t now = inUse += size;
    std::size_t highest = peak;
    while (now > highest && !peak.compare_exchange_weak(highest, now))
    {
    }
    return static_cast<char*>(block) + headSize;
}

void give(void* memory) noexcept
{
    if (!memory)
        return;
    void* const block = static_cast<char*>(memory) - headSize;
    inUse -= *static_cast<std::size_t*>(block);
    std::free(block);
}
} // namespace

void* operator new(std::size_t size)
{
    return take(size);
}
void* operator new[](std::size_t size)
{
    return take(size);
}
void operator delete(void* memory) noexcept
{
    give(memory);
}
void operator delete[](void* memory) noexcept
{
    give(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    give(memory);
}
void operator delete[](void* memory, std::size_t) noexcept
{
    give(memory);
}

namespace
{
/// Reads a string that somebody else holds.
class StringSource : public std::streambuf
{
public:
    explicit StringSource(std::string& bytes) { setg(bytes.data(), bytes.data(), bytes.data() + bytes.size()); }
};

/// Highest use of memory while `Object` is loaded from the bytes, whether that succeeds or not.
template <class Object>
std::size_t peakOfLoading(std::string bytes)
{
    StringSource source(bytes);
    std::istream stream(&source);
    const std::size_t before = inUse;
    peak = before;
    try
    {
        Object object;
        tkArchive archive(stream);
        archive || object;
    }
    catch (const tkArchive::Errors&)
    {
    }
    return peak - before;
}

/// Expects a peak of at most `factor` times the bytes read and 64 KiB.
template <class Object>
void expectPeakInProportion(const std::string& bytes, const char* what, std::size_t factor = 16)
{
    EXPECT_LE(peakOfLoading<Object>(bytes), factor * bytes.size() + 65536) << what << ": " << bytes.size() << " bytes";
}

std::string word(unsigned long value)
{
    return storeToBytes(value);
}

std::string repeated(const std::string& piece, std::size_t times)
{
    std::string bytes;
    for (std::size_t i = 0; i < times; ++i)
        bytes += piece;
    return bytes;
}

const std::string vectorVersion(1, '\0');
const std::string hugeCount = vectorVersion + word(0xFFFFFFFF);
using NodeHandle = tkPtrHandle<ArchiveNode>;
} // namespace

TEST(tkArchiveMemory, claimsOfHugeCountsCostLittle)
{
    expectPeakInProportion<std::vector<double>>(hugeCount, "doubles");
    expectPeakInProportion<std::vector<long>>(hugeCount, "longs");
    expectPeakInProportion<std::vector<bool>>(hugeCount, "bools");
    expectPeakInProportion<std::vector<std::wstring>>(hugeCount, "texts");
    expectPeakInProportion<std::vector<std::vector<std::vector<double>>>>(hugeCount + hugeCount + hugeCount, "nested");
    expectPeakInProportion<std::vector<NodeHandle>>(hugeCount, "handles");
    expectPeakInProportion<std::wstring>(word(0xFFFFFFFF), "text");
    expectPeakInProportion<NodeHandle>(word(1) + word(1) + word(0xFFFFFFFF), "type name");
}

TEST(tkArchiveMemory, countsThatAreKeptForAWhileCostInProportion)
{
    for (const std::size_t size : {100, 5000, 40000, 300000})
    {
        const std::string data(size * 8, '\0');
        const std::string ones(size, '\1');
        expectPeakInProportion<std::vector<double>>(hugeCount + data, "doubles");
        expectPeakInProportion<std::vector<long>>(hugeCount + data, "longs");
        expectPeakInProportion<std::vector<bool>>(hugeCount + ones, "bools");
        expectPeakInProportion<std::vector<tkRange>>(hugeCount + repeated(storeToBytes(tkRange()), size), "ranges");
        expectPeakInProportion<std::vector<std::vector<double>>>(hugeCount + repeated(vectorVersion + word(0), size),
                                                                 "empty vectors");
        expectPeakInProportion<std::vector<std::vector<double>>>(
            hugeCount + repeated(vectorVersion + word(1) + std::string(8, '\0'), size), "vectors of one");
        expectPeakInProportion<std::vector<NodeHandle>>(hugeCount + repeated(word(0), size), "null handles");
        expectPeakInProportion<std::vector<std::wstring>>(hugeCount + repeated(word(9) + "some text", size), "texts");
        // Elements that take more memory than six times their shortest record: two and a half times their size.
        expectPeakInProportion<std::vector<std::wstring>>(hugeCount + repeated(word(0), size), "empty texts",
                                                          sizeof(std::wstring) * 5 / 2 / 4);
        expectPeakInProportion<std::wstring>(word(0xFFFFFFFF) + std::string(size, 'a'), "text cut off");
        expectPeakInProportion<std::wstring>(word(size) + std::string(size, 'a'), "text");
        expectPeakInProportion<std::wstring>(word(size) + std::string(size - 1, 'a') + '\xff', "text that ends badly");
        expectPeakInProportion<tkFailure>(std::string(4, '\0') + word(size) + std::string(size, 'a'), "exception");
        expectPeakInProportion<NodeHandle>(word(1) + word(1) + word(size) + std::string(size, 'a'), "type name");
        expectPeakInProportion<NodeHandle>(word(1) + word(1) + word(size) + std::string(size, '\xff'), "bad type name");
    }
}

TEST(tkArchiveMemory, manySmallObjectsCostInProportion)
{
    for (const unsigned long count : {10UL, 1000UL, 30000UL})
    {
        std::string counted = hugeCount;
        std::string uncounted = hugeCount;
        for (unsigned long i = 1; i <= count; ++i)
        {
            counted += word(i) + word(1) + (i == 1 ? word(11) + "ArchiveNode" : "") + storeToBytes(ArchiveNode());
            uncounted += word(i) + word(1) + (i == 1 ? word(12) + "ArchivePlain" : "") + storeToBytes(ArchivePlain());
        }
        expectPeakInProportion<std::vector<NodeHandle>>(counted, "objects");
        expectPeakInProportion<std::vector<NodeHandle>>(uncounted, "objects of the wrong type");
        expectPeakInProportion<std::vector<ArchivePlain>>(hugeCount + repeated(storeToBytes(ArchivePlain()), count),
                                                          "objects in place");
    }
    EXPECT_EQ(0, ArchiveNode::alive());
    EXPECT_EQ(0, ArchivePlain::alive());
}

TEST(tkArchiveMemory, loadingAFileCostsNoMoreThanLoadingItsArchive)
{
    const std::filesystem::path path = std::filesystem::path(::testing::TempDir()) /
                                       ("tkArchiveMemory_test-" + std::to_string(std::random_device()()) + ".tka");
    const std::vector<long> numbers(200000, 5);
    tkArchiveFile::save(path, numbers);
    const std::size_t before = inUse;
    peak = before;
    {
        std::vector<long> loaded;
        tkArchiveFile::load(path, loaded);
        EXPECT_EQ(numbers, loaded);
    }
    EXPECT_LE(peak - before, 16 * 4 * numbers.size() + 65536);
    std::filesystem::remove(path);
}

TEST(tkArchiveMemory, nestedObjectsThatClaimHugeCountsCostInProportion)
{
    std::string bytes = word(1) + word(1) + word(11) + "ArchiveNode";
    const std::string open = std::string(2, '\0') + word(0) + word(0) + hugeCount;
    for (unsigned long i = 2; i <= 1024; ++i)
        bytes += open + word(i) + word(1);
    expectPeakInProportion<NodeHandle>(bytes + open, "nested objects");
    EXPECT_EQ(0, ArchiveNode::alive());
}

#endif
