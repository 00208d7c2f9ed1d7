#include "tkTest.h"

#include "clss/clastool/clastool/tk_ClassifierKNN.h"

// A nearest-neighbour classifier was asked by dynamic_cast whether another one is of its class, so that it was
// equivalent to one of a derived class with the same data, while the derived one, which may ask for its exact class,
// was not equivalent to it. Equality tests the exact class first, from both sides.

namespace
{
class Derived : public tk_ClassifierKNN
{
};

template <class Classifier>
void trainWithOnePattern(Classifier& classifier)
{
    tkClassifierDataProviderMemory data;
    data.addData({1.0, 2.0}, 0);
    classifier.train(data, tkClassifierTrainParamsKNN());
}
} // namespace

TEST(derivedNeighborClassifierWasEquivalent, theExactClassDecidesFromBothSides)
{
    tk_ClassifierKNN base, other;
    Derived derived;
    EXPECT_FALSE(base.isEquivalent(derived));
    EXPECT_FALSE(derived.isEquivalent(base));
    EXPECT_FALSE(base == derived);
    EXPECT_TRUE(derived.isEquivalent(Derived()));

    trainWithOnePattern(base);
    trainWithOnePattern(other);
    trainWithOnePattern(derived);
    EXPECT_TRUE(base.isEquivalent(other));
    EXPECT_FALSE(base.isEquivalent(derived));
    EXPECT_FALSE(derived.isEquivalent(base));
    EXPECT_FALSE(base == derived);
    EXPECT_TRUE(base != derived);
}
