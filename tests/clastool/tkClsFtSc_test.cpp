#include "clss/clastool/clastool/tkClsFtSc.h"

#include "clss/clastool/clastool/tkClassifierFeatureScore.h"

#include <gtest/gtest.h>

#include <cmath>
#include <type_traits>

static_assert(std::is_abstract_v<tkClsFtSc> && std::is_base_of_v<tkRepBase, tkClsFtSc>);

namespace
{
/// A function of a host: the degree of its own that every value has.
class Constant : public tkClsFtSc
{
public:
    explicit Constant(double degree) : degree_(degree) {}
    double score(double) const override { return degree_; }
    tkPtrHandle<tkClsFtSc> clone() const override { return tkPtrHandle<tkClsFtSc>(new Constant(*this)); }
    bool operator==(const tkClsFtSc& other) const override
    {
        const auto* const constant = dynamic_cast<const Constant*>(&other);
        return constant && constant->degree_ == degree_;
    }

private:
    double degree_;
};

class OtherFunction : public tkClassifierFeatureScoreIgnore
{
public:
    tkPtrHandle<tkClsFtSc> clone() const override { return tkPtrHandle<tkClsFtSc>(new OtherFunction(*this)); }
};
} // namespace

TEST(tkClassifierFeatureScoreIgnore, scoresEveryValueMinusOne)
{
    const tkClassifierFeatureScoreIgnore f;
    for (const double v : {0.0, -1.0, 1e308, HUGE_VAL, -HUGE_VAL, std::nan("")})
        EXPECT_EQ(-1.0, f.score(v));
}

TEST(tkClassifierFeatureScoreIgnore, equalsOnlyItsOwnClass)
{
    const tkClassifierFeatureScoreIgnore a, b;
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    EXPECT_FALSE(a == tkClassifierFeatureScoreOneSided());
    EXPECT_FALSE(tkClassifierFeatureScoreOneSided() == a);
    EXPECT_FALSE(a == OtherFunction());
    EXPECT_FALSE(OtherFunction() == a);
}

TEST(tkClsFtSc, inequalityIsTheNegationOfWhatAHostDefines)
{
    const Constant half(0.5);
    const tkClsFtSc& base = half;
    EXPECT_TRUE(base == Constant(0.5));
    EXPECT_FALSE(base != Constant(0.5));
    EXPECT_TRUE(base != Constant(0.25));
    EXPECT_TRUE(base != tkClassifierFeatureScoreIgnore());
}

TEST(tkClsFtSc, clonesBelongToTheirHandles)
{
    const Constant original(0.75);
    const tkPtrHandle<tkClsFtSc> clone = original.clone();
    EXPECT_EQ(1, clone->referenceCount());
    EXPECT_EQ(0, original.referenceCount());
    EXPECT_EQ(0.75, clone->score(3.0));
    const tkPtrHandle<tkClsFtSc> ignore = tkClassifierFeatureScoreIgnore().clone();
    EXPECT_EQ(-1.0, ignore->score(3.0));
    EXPECT_TRUE(*ignore == tkClassifierFeatureScoreIgnore());
}
