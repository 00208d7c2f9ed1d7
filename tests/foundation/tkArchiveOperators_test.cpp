#include "foundation/tkArchiveOperators.h"

#include "archiveTestObjects.h"
#include "foundation/tkRange.h"
#include "tkTest.h"

#include <limits>
#include <numeric>
#include <type_traits>

namespace
{
enum class Colour : int
{
    red,
    green
};

enum Plain : int
{
    plainNone = -1,
    plainFirst = 0
};

class Derived : public ArchiveNode
{
private:
    static tkPersistent* make() { return new Derived; }
    static const Registration registration_;
};
const tkPersistent::Registration Derived::registration_(typeid(Derived), &Derived::make);

/// tkPersistent is no part of fixed place in it: there is no static conversion from there.
class Virtual : public virtual tkPersistent, public tkRepBase
{
public:
    long number = 0;

protected:
    void dispatchSerialize(tkArchive& archive) override { archive || number; }

private:
    static tkPersistent* make() { return new Virtual; }
    static const Registration registration_;
};
const tkPersistent::Registration Virtual::registration_(typeid(Virtual), &Virtual::make);

template <class T>
T loadedFrom(const std::string& text)
{
    T value{};
    loadFromBytes(fromHex(text), value);
    return value;
}

/// Loads into `value` and gives the message of the error.
template <class T>
std::wstring refusal(const std::string& text, T value = T())
{
    try
    {
        std::istringstream in(fromHex(text));
        tkArchive archive(in);
        archive || value;
    }
    catch (const tkArchive::Errors& thrown)
    {
        return thrown.message();
    }
    return L"";
}
} // namespace

TEST(tkArchiveOperators, vectorsAreVersionCountAndElements)
{
    EXPECT_EQ("00 00 00 00 00", hex(storeToBytes(std::vector<long>())));
    EXPECT_EQ("00 02 00 00 00 05 00 00 00 ff ff ff ff", hex(storeToBytes(std::vector<long>{5, -1})));
    EXPECT_EQ("00 01 00 00 00 00 00 00 00 00 00 f0 3f", hex(storeToBytes(std::vector<double>{1.0})));
    EXPECT_EQ("00 00 00 00 00", hex(storeToBytes(std::vector<double>())));
    EXPECT_EQ("00 03 00 00 00 01 00 01", hex(storeToBytes(std::vector<bool>{true, false, true})));
    EXPECT_EQ("00 02 00 00 00 00 00 00 00 00 00 01 00 00 00 07 00 00 00",
              hex(storeToBytes(std::vector<std::vector<long>>{{}, {7}})));
    EXPECT_EQ("00 01 00 00 00 01 00 00 00 78", hex(storeToBytes(std::vector<std::wstring>{L"x"})));
}

TEST(tkArchiveOperators, vectorsOfEverySizeComeBack)
{
    for (const std::size_t size : {0, 1, 3, 4, 5, 6, 7, 100, 511, 512, 513, 768, 769, 1023, 1024, 1025, 5000})
    {
        std::vector<long> numbers(size);
        std::iota(numbers.begin(), numbers.end(), -10L);
        std::vector<double> values(numbers.begin(), numbers.end());
        std::vector<bool> flags(size);
        for (std::size_t i = 0; i < size; ++i)
            flags[i] = i % 3 == 0;
        std::vector<long> loadedNumbers;
        std::vector<double> loadedValues;
        std::vector<bool> loadedFlags;
        loadFromBytes(storeToBytes(numbers), loadedNumbers);
        loadFromBytes(storeToBytes(values), loadedValues);
        loadFromBytes(storeToBytes(flags), loadedFlags);
        EXPECT_EQ(numbers, loadedNumbers);
        EXPECT_EQ(values, loadedValues);
        EXPECT_EQ(flags, loadedFlags);
    }
}

TEST(tkArchiveOperators, loadingReplacesWhatTheVectorHeld)
{
    for (const std::size_t before : {0, 1, 2, 3, 1000})
    {
        std::vector<long> numbers(before, 9);
        std::vector<double> values(before, 9.0);
        std::vector<bool> flags(before, true);
        loadFromBytes(fromHex("00 02 00 00 00 05 00 00 00 06 00 00 00"), numbers);
        loadFromBytes(storeToBytes(std::vector<double>{5.0, 6.0}), values);
        loadFromBytes(fromHex("00 02 00 00 00 00 01"), flags);
        EXPECT_EQ((std::vector<long>{5, 6}), numbers);
        EXPECT_EQ((std::vector<double>{5.0, 6.0}), values);
        EXPECT_EQ((std::vector<bool>{false, true}), flags);
    }
}

TEST(tkArchiveOperators, elementsThatAreThereAreLoadedInPlace)
{
    std::vector<long> numbers(10);
    const long* const before = numbers.data();
    loadFromBytes(storeToBytes(std::vector<long>{1, 2, 3}), numbers);
    EXPECT_EQ(before, numbers.data());
}

TEST(tkArchiveOperators, vectorsRefuseAnotherVersionBeforeTheCount)
{
    const std::wstring text = L"A record has an unknown version";
    EXPECT_EQ(text, refusal<std::vector<long>>("01"));
    EXPECT_EQ(text, refusal<std::vector<double>>("01"));
    EXPECT_EQ(text, refusal<std::vector<bool>>("ff"));
    std::vector<long> numbers{1, 2};
    EXPECT_THROW(loadFromBytes(fromHex("01 00 00 00 00"), numbers), tkArchive::UnknownVersion);
    EXPECT_EQ((std::vector<long>{1, 2}), numbers);
}

TEST(tkArchiveOperators, countsThatTheDataDoNotKeepAreErrors)
{
    const std::string claim = "00 ff ff ff ff 01 01 01";
    EXPECT_EQ(L"The data end early (reading, at byte 5)", refusal<std::vector<long>>(claim));
    EXPECT_EQ(L"The data end early (reading, at byte 5)", refusal<std::vector<double>>(claim));
    EXPECT_EQ(L"The data end early (reading, at byte 8)", refusal<std::vector<bool>>(claim));
    EXPECT_EQ(L"The data end early (reading, at byte 5)", refusal<std::vector<std::wstring>>(claim));
}

TEST(tkArchiveOperators, boolsInVectorsAreCheckedToo)
{
    EXPECT_EQ(L"A truth value is neither 0 nor 1 (reading, at byte 7)",
              refusal<std::vector<bool>>("00 02 00 00 00 01 02"));
}

TEST(tkArchiveOperators, enumerationsAreTheirThirtyTwoBits)
{
    EXPECT_EQ("01 00 00 00", hex(storeToBytes(Colour::green)));
    EXPECT_EQ("ff ff ff ff", hex(storeToBytes(plainNone)));
    EXPECT_EQ(Colour::green, loadedFrom<Colour>("01 00 00 00"));
    EXPECT_EQ(plainNone, loadedFrom<Plain>("ff ff ff ff"));
}

TEST(tkArchiveOperators, unknownValuesOfEnumerationsPass)
{
    EXPECT_EQ(1000, static_cast<int>(loadedFrom<Colour>("e8 03 00 00")));
    EXPECT_EQ(std::numeric_limits<int>::min(), static_cast<int>(loadedFrom<Colour>("00 00 00 80")));
    EXPECT_EQ("00 00 00 80", hex(storeToBytes(loadedFrom<Colour>("00 00 00 80"))));
    EXPECT_EQ("00 02 00 00 00 01 00 00 00 ff ff ff ff",
              hex(storeToBytes(std::vector<Colour>{Colour::green, static_cast<Colour>(-1)})));
}

TEST(tkArchiveOperators, handlesReleaseTheirObjectWhenLoading)
{
    tkPtrHandle<ArchiveNode> node(new ArchiveNode(1));
    loadFromBytes(fromHex("00 00 00 00"), node);
    EXPECT_TRUE(node.isNull());
    EXPECT_EQ(0, ArchiveNode::alive());
    node = tkPtrHandle<ArchiveNode>(new ArchiveNode(1));
    EXPECT_THROW(loadFromBytes("", node), tkArchive::Errors);
    EXPECT_TRUE(node.isNull());
    EXPECT_EQ(0, ArchiveNode::alive());
}

TEST(tkArchiveOperators, handlesOfEveryKindOfClassLoadTheirObjects)
{
    // Handles of the very class, of a base, and of classes that reach tkPersistent through a virtual base.
    const tkPtrHandle<Derived> derived(new Derived);
    derived->number = 3;
    const std::string bytes = storeToBytes(derived);
    EXPECT_EQ(bytes, storeToBytes(tkPtrHandle<ArchiveNode>(derived)));
    tkPtrHandle<ArchiveNode> base;
    loadFromBytes(bytes, base);
    ASSERT_FALSE(base.isNull());
    const ArchiveNode& node = *base;
    EXPECT_EQ(typeid(Derived), typeid(node));
    EXPECT_EQ(3, base->number);
    tkPtrHandle<Derived> exact;
    loadFromBytes(bytes, exact);
    ASSERT_FALSE(exact.isNull());
    EXPECT_EQ(3, exact->number);
    loadFromBytes(storeToBytes(tkPtrHandle<ArchiveNode>(new ArchiveNode(4))), exact);
    EXPECT_TRUE(exact.isNull());

    const tkPtrHandle<Virtual> stored(new Virtual);
    stored->number = 5;
    tkPtrHandle_const<Virtual> loaded;
    loadFromBytes(storeToBytes(stored), loaded);
    ASSERT_FALSE(loaded.isNull());
    EXPECT_EQ(5, loaded->number);
    EXPECT_EQ(1, loaded->referenceCount());
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded.isNull());
}

TEST(tkArchiveOperators, longVectorsOfHandlesAreStoredAsTheirHandlesOneByOne)
{
    std::vector<tkPtrHandle<ArchiveNode>> nodes;
    for (long i = 0; i < 3000; ++i)
        nodes.push_back(i % 7 == 3   ? tkPtrHandle<ArchiveNode>()
                        : i % 5 == 4 ? nodes[static_cast<std::size_t>(i / 2)]
                                     : tkPtrHandle<ArchiveNode>(new ArchiveNode(i)));
    std::ostringstream out;
    tkArchive archive(out);
    archive.exchangeVersion();
    archive << nodes.size();
    for (tkPtrHandle<ArchiveNode>& node : nodes)
        archive || node;
    EXPECT_EQ(out.str(), storeToBytes(nodes));
    std::vector<tkPtrHandle<ArchiveNode>> loaded;
    loadFromBytes(out.str(), loaded);
    ASSERT_EQ(nodes.size(), loaded.size());
    for (std::size_t i = 0; i < nodes.size(); ++i)
    {
        ASSERT_EQ(nodes[i].isNull(), loaded[i].isNull());
        if (nodes[i])
        {
            ASSERT_EQ(nodes[i]->number, loaded[i]->number);
        }
        if (i % 5 == 4 && i % 7 != 3)
        {
            ASSERT_TRUE(loaded[i] == loaded[i / 2]);
        }
    }
}

TEST(tkArchiveOperators, constantHandlesShareWithTheOthers)
{
    const tkPtrHandle<ArchiveNode> node(new ArchiveNode(6));
    const tkPtrHandle_const<ArchiveNode> constant(node);
    std::stringstream stream;
    {
        tkArchive archive(static_cast<std::ostream&>(stream));
        tkPtrHandle<ArchiveNode> a(node);
        tkPtrHandle_const<ArchiveNode> b(constant);
        archive || b || a;
    }
    tkArchive archive(static_cast<std::istream&>(stream));
    tkPtrHandle<ArchiveNode> a;
    tkPtrHandle_const<ArchiveNode> b;
    archive || b || a;
    EXPECT_TRUE(a == b);
    EXPECT_EQ(6, b->number);
}

TEST(tkArchiveOperators, vectorsOfRangesAndOfHandlesUseTheElementsOperator)
{
    const std::vector<tkRange> ranges{tkRange(1.0, 2.0), tkRange::FullRange()};
    std::vector<tkRange> loadedRanges;
    loadFromBytes(storeToBytes(ranges), loadedRanges);
    EXPECT_EQ(ranges, loadedRanges);

    const tkPtrHandle<ArchiveNode> node(new ArchiveNode(6));
    std::vector<tkPtrHandle<ArchiveNode>> loadedNodes;
    loadFromBytes(storeToBytes(std::vector<tkPtrHandle<ArchiveNode>>{node, node}), loadedNodes);
    ASSERT_EQ(2u, loadedNodes.size());
    EXPECT_TRUE(loadedNodes[0] == loadedNodes[1]);
}
