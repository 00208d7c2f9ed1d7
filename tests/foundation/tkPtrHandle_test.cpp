#include "foundation/tkPtrHandle.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>

namespace
{
class Animal : public tkRepBase
{
public:
    explicit Animal(long legs = 4) : legs(legs) { ++alive; }
    Animal(const Animal&) = delete;
    ~Animal() override { --alive; }

    long legs;
    static long alive;
};
long Animal::alive = 0;

struct Tail
{
    virtual ~Tail() = default;
    long length = 7;
};

/// The counted base is not at the object's address.
class Dog : public Tail, public Animal
{
};

class Cat : public Animal
{
};

using AnimalHandle = tkPtrHandle<Animal>;
using AnimalHandleConst = tkPtrHandle_const<Animal>;
using DogHandle = tkPtrHandle<Dog>;
using DogHandleConst = tkPtrHandle_const<Dog>;
} // namespace

// What would be a mistake must not compile.
static_assert(!std::is_convertible_v<Animal*, AnimalHandle>, "a plain pointer becomes no handle by accident");
static_assert(!std::is_convertible_v<Animal*, AnimalHandleConst>);
static_assert(!std::is_convertible_v<const Animal*, AnimalHandleConst>);
static_assert(!std::is_assignable_v<AnimalHandle&, Animal*>);
static_assert(!std::is_constructible_v<AnimalHandle, const Animal*>, "constness is not lost");
static_assert(!std::is_constructible_v<AnimalHandle, AnimalHandleConst>);
static_assert(!std::is_assignable_v<AnimalHandle&, AnimalHandleConst>);
static_assert(!std::is_constructible_v<DogHandle, AnimalHandle>, "no conversion to a derived class");
static_assert(!std::is_constructible_v<DogHandleConst, AnimalHandle>);
static_assert(!std::is_constructible_v<tkPtrHandle<Cat>, DogHandle>);
static_assert(!std::is_convertible_v<AnimalHandle, bool>, "a handle is no number");
static_assert(!std::is_convertible_v<AnimalHandle, Animal*>);
static_assert(!std::is_convertible_v<AnimalHandle, long>);
static_assert(std::is_same_v<const Animal&, decltype(*std::declval<AnimalHandleConst&>())>);
static_assert(std::is_same_v<Animal&, decltype(*std::declval<const AnimalHandle&>())>);
// What is meant to work.
static_assert(std::is_convertible_v<DogHandle, AnimalHandle>);
static_assert(std::is_convertible_v<DogHandle, AnimalHandleConst>);
static_assert(std::is_convertible_v<DogHandleConst, AnimalHandleConst>);
static_assert(std::is_convertible_v<AnimalHandle, AnimalHandleConst>);
static_assert(std::is_nothrow_move_constructible_v<AnimalHandle> && std::is_nothrow_move_assignable_v<AnimalHandle>);
static_assert(sizeof(AnimalHandle) == sizeof(void*));

TEST(tkPtrHandle, constructingFromAPointerTakesAReference)
{
    {
        const AnimalHandle handle(new Animal);
        EXPECT_EQ(1, handle->referenceCount());
        EXPECT_EQ(1, Animal::alive);
        const AnimalHandle another(handle.get());
        EXPECT_EQ(2, handle->referenceCount());
    }
    EXPECT_EQ(0, Animal::alive);
}

TEST(tkPtrHandle, dereferencingNullThrows)
{
    const AnimalHandle null;
    const AnimalHandleConst nullConst(nullptr);
    EXPECT_THROW(static_cast<void>(*null), tkBadPointer);
    EXPECT_THROW(static_cast<void>(null->legs), tkBadPointer);
    EXPECT_THROW(static_cast<void>(nullConst->legs), tkBadPointer);
    EXPECT_TRUE(null.isNull());
    EXPECT_FALSE(null);
    EXPECT_EQ(nullptr, null.get());
    std::string what;
    try
    {
        static_cast<void>(*nullConst);
    }
    catch (const tkException& thrown)
    {
        what = thrown.what();
    }
    EXPECT_EQ("Null handle dereferenced", what);
}

TEST(tkPtrHandle, copiesShareAndMovesHandOver)
{
    AnimalHandle a(new Animal(3));
    AnimalHandle b(a);
    EXPECT_EQ(2, a->referenceCount());
    AnimalHandle c(std::move(a));
    EXPECT_TRUE(a.isNull());
    EXPECT_EQ(2, c->referenceCount());
    b = std::move(c);
    EXPECT_EQ(1, b->referenceCount());
    a = b;
    EXPECT_EQ(2, b->referenceCount());
    EXPECT_EQ(3, a->legs);
}

TEST(tkPtrHandle, assignmentToItselfKeepsTheObject)
{
    AnimalHandle a(new Animal);
    AnimalHandle& same = a;
    a = same;
    ASSERT_FALSE(a.isNull());
    EXPECT_EQ(1, a->referenceCount());
    a = std::move(same);
    ASSERT_FALSE(a.isNull());
    EXPECT_EQ(1, a->referenceCount());
}

TEST(tkPtrHandle, assignmentReleasesTheOldObject)
{
    AnimalHandle a(new Animal(1));
    a = AnimalHandle(new Animal(2));
    EXPECT_EQ(1, Animal::alive);
    EXPECT_EQ(2, a->legs);
    a = AnimalHandle();
    EXPECT_EQ(0, Animal::alive);
}

TEST(tkPtrHandle, convertsToBasesAndToConstSharingTheCount)
{
    const DogHandle dog(new Dog);
    AnimalHandle animal(dog);
    AnimalHandleConst constant(dog);
    AnimalHandleConst fromConst{DogHandleConst(dog)};
    EXPECT_EQ(static_cast<Animal*>(dog.get()), animal.get());
    EXPECT_EQ(4, dog->referenceCount());
    EXPECT_EQ(7, dog->length);
    animal = DogHandle(new Dog);
    EXPECT_EQ(3, dog->referenceCount());
}

TEST(tkPtrHandle, convertingMovesHandTheReferenceOver)
{
    DogHandle dog(new Dog);
    Dog* const object = dog.get();
    AnimalHandle animal(std::move(dog));
    EXPECT_TRUE(dog.isNull());
    EXPECT_EQ(1, object->referenceCount());
    AnimalHandleConst constant(std::move(animal));
    EXPECT_TRUE(animal.isNull());
    EXPECT_EQ(1, object->referenceCount());
    DogHandleConst dogConst(object);
    AnimalHandleConst moved(std::move(dogConst));
    EXPECT_TRUE(dogConst.isNull());
    EXPECT_EQ(2, object->referenceCount());
}

TEST(tkPtrHandle, comparesByIdentityAcrossKindsAndClasses)
{
    const DogHandle dog(new Dog);
    const AnimalHandleConst same(dog);
    const AnimalHandle other(new Animal);
    EXPECT_TRUE(dog == same);
    EXPECT_FALSE(dog != same);
    EXPECT_TRUE(same != other);
    EXPECT_TRUE(AnimalHandle() == DogHandleConst());
    EXPECT_FALSE(AnimalHandle() == other);
}

TEST(tkPtrHandle, detachGivesTheReferenceToTheCaller)
{
    AnimalHandle handle(new Animal);
    Animal* const object = handle.detach();
    EXPECT_TRUE(handle.isNull());
    EXPECT_EQ(1, object->referenceCount());
    object->removeReference();
    EXPECT_EQ(0, Animal::alive);
    AnimalHandleConst constant(new Animal);
    constant.detach()->removeReference();
    EXPECT_EQ(0, Animal::alive);
}

TEST(tkPtrHandle, swapExchangesTheObjects)
{
    AnimalHandle a(new Animal(1));
    AnimalHandle b;
    a.swap(b);
    EXPECT_TRUE(a.isNull());
    EXPECT_EQ(1, b->legs);
    AnimalHandleConst c(b);
    AnimalHandleConst d;
    c.swap(d);
    EXPECT_TRUE(c.isNull());
    EXPECT_EQ(1, d->legs);
    EXPECT_EQ(2, b->referenceCount());
}
