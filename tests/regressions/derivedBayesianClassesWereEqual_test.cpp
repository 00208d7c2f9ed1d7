#include "tests/bayes/bayesTestData.h"

#include <gtest/gtest.h>

// Equalities of the Bayesian classes looked for the base class with a dynamic conversion, so that an object of a
// derived class, which may evaluate in another way, was equal to one of the base. They compare the exact classes now.

using namespace bayesTest;

namespace
{
template <class Base>
struct Derived : Base
{
    using Base::Base;
    Derived(const Base& base) : Base(base) {}
};

template <class Base>
void expectClassesToDiffer(const Base& object)
{
    const Derived<Base> derived(object);
    EXPECT_TRUE(object == Base(object));
    EXPECT_TRUE(derived == Derived<Base>(object));
    EXPECT_FALSE(object == static_cast<const Base&>(derived));
    EXPECT_FALSE(static_cast<const Base&>(derived) == object);
}
} // namespace

TEST(derivedBayesianClassesWereEqual, equalitiesCompareTheExactClasses)
{
    expectClassesToDiffer(Params());
    expectClassesToDiffer(tk_PDFMultivariateNormal());
    expectClassesToDiffer(tk_PDFBinomial(tkFeaturePattern({2.0})));
    expectClassesToDiffer(tk_CategoryModelBayesian());
    expectClassesToDiffer(manyCategories(3, false));
}

TEST(derivedBayesianClassesWereEqual, equivalencesCompareTheExactClasses)
{
    const tk_PDFMultivariateNormal normal;
    EXPECT_TRUE(normal.isEquivalent(tk_PDFMultivariateNormal()));
    EXPECT_FALSE(normal.isEquivalent(Derived<tk_PDFMultivariateNormal>(normal)));
    EXPECT_FALSE(Derived<tk_PDFMultivariateNormal>(normal).isEquivalent(normal));
    const tk_PDFBinomial binomial(tkFeaturePattern({2.0}));
    EXPECT_FALSE(binomial.isEquivalent(Derived<tk_PDFBinomial>(binomial)));
    EXPECT_FALSE(binomial.isEquivalent(normal));
    const tk_ClassifierBayesian classifier = manyCategories(4, false);
    EXPECT_TRUE(classifier.isEquivalent(tk_ClassifierBayesian(classifier)));
    EXPECT_FALSE(classifier.isEquivalent(Derived<tk_ClassifierBayesian>(classifier)));
    EXPECT_FALSE(Derived<tk_ClassifierBayesian>(classifier).isEquivalent(classifier));
}
