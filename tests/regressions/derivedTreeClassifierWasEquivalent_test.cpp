#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tk_ClassifierDecisionTree.h"
#include "tkTest.h"

namespace
{
class Derived : public tk_ClassifierDecisionTree
{
public:
    tkPtrHandle<tk_Classifier> clone() const override { return tkPtrHandle<tk_Classifier>(new Derived(*this)); }
};
} // namespace

// A decision-tree classifier took an object of a derived class for its equal. The derived object may classify in
// another way, and asked the other way round it could say no. Now equality wants the same class first.
TEST(regressions, derivedTreeClassifierWasEquivalent)
{
    tk_ClassifierDecisionTree base;
    base.trainManual(tkDecisionTreeLeaf());
    Derived derived;
    derived.trainManual(tkDecisionTreeLeaf());
    EXPECT_FALSE(base.isEquivalent(derived));
    EXPECT_FALSE(derived.isEquivalent(base));
    EXPECT_FALSE(base == derived);
    EXPECT_FALSE(derived == base);
    EXPECT_TRUE(derived.isEquivalent(*derived.clone()));
}
