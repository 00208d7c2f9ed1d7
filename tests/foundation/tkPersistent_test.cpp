#include "foundation/tkPersistent.h"

#include "archiveTestObjects.h"
#include "foundation/tkAssert.h"
#include "tkTest.h"

#include <memory>
#include <type_traits>

namespace
{
/// A diamond: both sides share one top, whose record must be written once.
class Top : public tkPersistent
{
public:
    long top = 1;

protected:
    void dispatchSerialize(tkArchive& archive) override { exchangeLevel_(archive, this, &Top::serialize_); }

private:
    void serialize_(tkArchive& archive, unsigned char version)
    {
        tkArchive::requireVersion0(version);
        tkPersistent::dispatchSerialize(archive);
        archive || top;
    }
};

class LeftSide : public virtual Top
{
public:
    long left = 2;

protected:
    void dispatchSerialize(tkArchive& archive) override { exchangeLevel_(archive, this, &LeftSide::serialize_); }

private:
    void serialize_(tkArchive& archive, unsigned char version)
    {
        tkArchive::requireVersion0(version);
        Top::dispatchSerialize(archive);
        archive || left;
    }
};

class RightSide : public virtual Top
{
public:
    long right = 3;

protected:
    void dispatchSerialize(tkArchive& archive) override { exchangeLevel_(archive, this, &RightSide::serialize_); }

private:
    void serialize_(tkArchive& archive, unsigned char version)
    {
        tkArchive::requireVersion0(version);
        Top::dispatchSerialize(archive);
        archive || right;
    }
};

class Bottom : public LeftSide, public RightSide
{
protected:
    void dispatchSerialize(tkArchive& archive) override { exchangeLevel_(archive, this, &Bottom::serialize_); }

private:
    void serialize_(tkArchive& archive, unsigned char version)
    {
        tkArchive::requireVersion0(version);
        LeftSide::dispatchSerialize(archive);
        RightSide::dispatchSerialize(archive);
    }
};

/// Levels without fields: all have the address and the size of the root.
template <int level>
class Bare : public Bare<level - 1>
{
protected:
    void dispatchSerialize(tkArchive& archive) override { this->exchangeLevel_(archive, this, &Bare::serialize_); }

private:
    void serialize_(tkArchive& archive, unsigned char version)
    {
        tkArchive::requireVersion0(version);
        Bare<level - 1>::dispatchSerialize(archive);
    }
};

template <>
class Bare<0> : public tkPersistent
{
};

/// Nothing but virtual bases: the shared one has the address and the size of one of the sides.
class BareTop : public tkPersistent
{
protected:
    void dispatchSerialize(tkArchive& archive) override { exchangeLevel_(archive, this, &BareTop::serialize_); }

private:
    void serialize_(tkArchive& archive, unsigned char) { tkPersistent::dispatchSerialize(archive); }
};

template <int side>
class BareSide : public virtual BareTop
{
protected:
    void dispatchSerialize(tkArchive& archive) override { exchangeLevel_(archive, this, &BareSide::serialize_); }

private:
    void serialize_(tkArchive& archive, unsigned char) { BareTop::dispatchSerialize(archive); }
};

class BareBottom : public BareSide<1>, public BareSide<2>
{
protected:
    void dispatchSerialize(tkArchive& archive) override { exchangeLevel_(archive, this, &BareBottom::serialize_); }

private:
    void serialize_(tkArchive& archive, unsigned char)
    {
        BareSide<2>::dispatchSerialize(archive);
        BareSide<1>::dispatchSerialize(archive);
    }
};

/// A class that keeps the marks by hand.
class ByHand : public tkPersistent
{
public:
    int written = 0;
    bool fails = false;
    bool markedAtStart = true;

protected:
    void dispatchSerialize(tkArchive& archive) override
    {
        markedAtStart = haveVisited(this, sizeof(ByHand));
        for (int path = 0; path < 2; ++path)
        {
            if (haveVisited(this, sizeof(ByHand)))
                continue;
            unsigned char version = 0;
            archive || version;
            ++written;
            setVisited(this, sizeof(ByHand));
            EXPECT_TRUE(haveVisited(this, sizeof(ByHand)));
            EXPECT_FALSE(haveVisited(this, sizeof(ByHand) + 1));
            EXPECT_FALSE(haveVisited(this + 1, sizeof(ByHand)));
        }
        if (fails)
            throw 1;
    }
};

/// A class whose record got a field in version 1, declared by the macros.
class Grown : public tkPersistent
{
public:
    long first = 3;
    long second = 4; // since version 1

private:
    TK_FACTORY_RECORD;
};

TK_DEFINE_FACTORY_RECORD(Grown, 1, "Grown")

void Grown::serialize_(tkArchive& archive, unsigned char version)
{
    tkPersistent::dispatchSerialize(archive);
    archive || first;
    if (version >= 1)
        archive || second;
}

class Rebuilt : public tkPersistent
{
public:
    int rebuilds = 0;

protected:
    void reInit() override { ++rebuilds; }
};

struct Outer
{
    class Inner : public tkPersistent
    {
    };
};

tkPersistent* makeNothing()
{
    return nullptr;
}

tkPersistent* makeInner()
{
    return new Outer::Inner;
}

tkPersistent* makePlain()
{
    return new ArchivePlain(77);
}
} // namespace

static_assert(!std::is_copy_constructible_v<tkPersistent::Registration>);

TEST(tkPersistent, rootRecordIsOneVersionByte)
{
    EXPECT_EQ("00", hex(storeToBytes(Rebuilt())));
    Rebuilt object;
    EXPECT_TK_THROW(loadFromBytes(fromHex("01"), object), tkArchive::UnknownVersion,
                    L"A record has an unknown version");
}

TEST(tkPersistent, levelWritesItsNewestVersionAndReadsTheOlderOnes)
{
    Grown object;
    EXPECT_EQ("01 00 03 00 00 00 04 00 00 00", hex(storeToBytes(object)));
    loadFromBytes(fromHex("01 00 05 00 00 00 06 00 00 00"), object);
    EXPECT_EQ(5, object.first);
    EXPECT_EQ(6, object.second);
    loadFromBytes(fromHex("00 00 07 00 00 00"), object);
    EXPECT_EQ(7, object.first);
    EXPECT_EQ(6, object.second);
    EXPECT_TK_THROW(loadFromBytes(fromHex("02 00 07 00 00 00"), object), tkArchive::UnknownVersion,
                    L"A record has an unknown version (Grown, 0)");
}

TEST(tkPersistent, macrosRegisterTheFactory)
{
    Grown object;
    const std::unique_ptr<tkPersistent> loaded = loadPointerFromBytes(storePointerToBytes(object));
    EXPECT_EQ(3, dynamic_cast<const Grown&>(*loaded).first);
}

TEST(tkPersistent, reInitRunsOnceAfterLoadingAndNeverForStoring)
{
    Rebuilt object;
    storeToBytes(object);
    EXPECT_EQ(0, object.rebuilds);
    loadFromBytes(fromHex("00"), object);
    EXPECT_EQ(1, object.rebuilds);
    EXPECT_THROW(loadFromBytes("", object), tkArchive::Errors);
    EXPECT_EQ(1, object.rebuilds);
}

TEST(tkPersistent, diamondWritesTheSharedBaseOnce)
{
    Bottom object;
    object.top = 16;
    object.left = 17;
    object.right = 18;
    // Versions of Bottom, LeftSide, Top, tkPersistent; top; left; version of RightSide; right.
    const std::string bytes = "00 00 00 00 10 00 00 00 11 00 00 00 00 12 00 00 00";
    EXPECT_EQ(bytes, hex(storeToBytes(object)));
    Bottom loaded;
    loadFromBytes(fromHex(bytes), loaded);
    EXPECT_EQ(16, loaded.top);
    EXPECT_EQ(17, loaded.left);
    EXPECT_EQ(18, loaded.right);
}

TEST(tkPersistent, levelsOfEqualSizeAtOneAddressAreAllWritten)
{
    static_assert(sizeof(Bare<3>) == sizeof(tkPersistent));
    EXPECT_EQ("00 00 00 00", hex(storeToBytes(Bare<3>())));
}

TEST(tkPersistent, virtualBaseAtTheAddressOfALevelDoesNotHideIt)
{
    // Bottom, second side, top, root, first side: five levels.
    EXPECT_EQ("00 00 00 00 00", hex(storeToBytes(BareBottom())));
    BareBottom loaded;
    loadFromBytes(fromHex("00 00 00 00 00"), loaded);
}

TEST(tkPersistent, marksLastForOneExchange)
{
    ByHand object;
    EXPECT_FALSE(tkPersistent::haveVisited(&object, sizeof object));
    tkPersistent::setVisited(&object, sizeof object); // no exchange, no mark
    EXPECT_FALSE(tkPersistent::haveVisited(&object, sizeof object));
    std::ostringstream out;
    tkArchive archive(out);
    archive || object;
    EXPECT_EQ(1, object.written);
    EXPECT_FALSE(object.markedAtStart);
    EXPECT_FALSE(tkPersistent::haveVisited(&object, sizeof object));
    archive || object;
    EXPECT_EQ(2, object.written);
    EXPECT_FALSE(object.markedAtStart);
}

TEST(tkPersistent, marksAreGoneAfterAnException)
{
    ByHand object;
    object.fails = true;
    {
        std::ostringstream out;
        tkArchive archive(out);
        EXPECT_THROW(archive || object, int);
        EXPECT_FALSE(tkPersistent::haveVisited(&object, sizeof object));
    }
    object.fails = false;
    storeToBytes(object);
    EXPECT_EQ(2, object.written);
    EXPECT_FALSE(object.markedAtStart);
}

TEST(tkPersistent, typeNamesAreQualifiedNames)
{
    EXPECT_EQ("tkPersistent", tkPersistent::typeName(typeid(tkPersistent)));
    EXPECT_EQ("tkArchive::UnknownVersion", tkPersistent::typeName(typeid(tkArchive::UnknownVersion)));
    EXPECT_EQ("ArchiveNode", tkPersistent::typeName(typeid(ArchiveNode)));
}

TEST(tkPersistent, registrationsLastAsLongAsTheirObjectsInAnyOrder)
{
    const std::string name = tkPersistent::typeName(typeid(Outer::Inner));
    EXPECT_EQ(nullptr, tkPersistent::Registration::find(name));
    auto first = std::make_unique<tkPersistent::Registration>(typeid(Outer::Inner), &makeInner);
    auto second = std::make_unique<tkPersistent::Registration>(typeid(Rebuilt), &makeInner);
    auto third = std::make_unique<tkPersistent::Registration>(typeid(Outer::Inner), &makeInner);
    EXPECT_EQ(third.get(), tkPersistent::Registration::find(name));
    EXPECT_TRUE(third->isFor(typeid(Outer::Inner)));
    EXPECT_FALSE(second->isFor(typeid(Outer::Inner)));
    const std::unique_ptr<tkPersistent> made(third->create());
    EXPECT_NE(nullptr, dynamic_cast<Outer::Inner*>(made.get()));
    second.reset();
    EXPECT_EQ(third.get(), tkPersistent::Registration::find(name));
    third.reset();
    EXPECT_EQ(first.get(), tkPersistent::Registration::find(name));
    first.reset();
    EXPECT_EQ(nullptr, tkPersistent::Registration::find(name));
    EXPECT_NE(nullptr, tkPersistent::Registration::find("tkFailure"));
}

TEST(tkPersistent, latestRegistrationCreates)
{
    const tkPersistent::Registration replacement(typeid(ArchivePlain), &makePlain);
    const std::unique_ptr<tkPersistent> made(tkPersistent::Registration::find("ArchivePlain")->create());
    EXPECT_EQ(77, dynamic_cast<ArchivePlain&>(*made).number);
}

TEST(tkPersistent, factoryThatMakesNothingIsAnAssertion)
{
    const tkPersistent::Registration registration(typeid(Outer::Inner), &makeNothing);
    EXPECT_THROW(registration.create(), tkAssertionFailure);
}
