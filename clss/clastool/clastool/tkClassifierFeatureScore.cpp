#include "clss/clastool/clastool/tkClassifierFeatureScore.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchive.h"
#include "foundation/tkAssert.h"

#include <algorithm>
#include <limits>
#include <typeinfo>

namespace
{
enum Tag : unsigned long
{
    ignoreTag = 0x1632,
    oneSidedTag = 0x8269,
    twoSidedTag = 0xE9AC
};

constexpr wchar_t y0Range[] = L"y0 must be between 0 and 1";
constexpr wchar_t y1Range[] = L"y1 must be between 0 and 1";
constexpr wchar_t x1Between[] = L"x1 must lie between x0 and xc";

void checkDegree(double y, const wchar_t* text)
{
    if (!(y >= 0.0) || y > 1.0)
        throw tkClassifierDefs::BadParams(text);
}

/// Whether x1 lies below or above both of its neighbours. False if a NaN leaves it undecided.
bool isOutside(const tkClassifierFeatureScoreOneSided& f)
{
    return (f.x0() < f.x1() && f.xc() < f.x1()) || (f.x0() > f.x1() && f.xc() > f.x1());
}

bool isAnyAbove(double x0, double x1, double xc, double limit)
{
    return x0 > limit || x1 > limit || xc > limit;
}

bool isSame(double a, double b)
{
    return !(a < b) && !(a > b);
}

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr tkFeatureScoreSupport unknownSupport = {std::numeric_limits<double>::quiet_NaN(),
                                                  std::numeric_limits<double>::quiet_NaN()};

bool isRising(const tkClassifierFeatureScoreOneSided& f)
{
    return f.x0() <= f.x1() && f.x1() <= f.xc();
}

bool isFalling(const tkClassifierFeatureScoreOneSided& f)
{
    return f.xc() <= f.x1() && f.x1() <= f.x0();
}

/// Stores the object of the handle, or loads one of class `Function` and sets the handle to a copy of it.
template <class Function>
void exchange(tkArchive& archive, tkPtrHandle<tkClsFtSc>& handle)
{
    if (archive.isStoring())
        archive || static_cast<Function&>(*handle);
    else
    {
        Function loaded;
        archive || loaded;
        handle = loaded.clone();
    }
}
} // namespace

double tkClassifierFeatureScoreIgnore::score(double) const
{
    return -1.0;
}

tkPtrHandle<tkClsFtSc> tkClassifierFeatureScoreIgnore::clone() const
{
    return tkPtrHandle<tkClsFtSc>(new tkClassifierFeatureScoreIgnore(*this));
}

bool tkClassifierFeatureScoreIgnore::operator==(const tkClsFtSc& other) const
{
    return typeid(*this) == typeid(other);
}

tkClassifierFeatureScoreOneSided::tkClassifierFeatureScoreOneSided() : support_(unknownSupport)
{
    updateSupport_();
}

void tkClassifierFeatureScoreOneSided::init(double x0, double x1, double xc, double y0, double y1)
{
    checkDegree(y0, y0Range);
    checkDegree(y1, y1Range);
    if (!((x1 <= x0 || x1 <= xc) && (x1 >= x0 || x1 >= xc)))
        throw tkClassifierDefs::BadParams(L"x1 must be lie between x0 and xc"); // the doubled verb is deliberate
    x0_ = x0;
    x1_ = x1;
    xc_ = xc;
    y0_ = y0;
    y1_ = y1;
    updateSupport_();
}

void tkClassifierFeatureScoreOneSided::y0(double y0)
{
    checkDegree(y0, y0Range);
    set_(y0_, y0);
}

void tkClassifierFeatureScoreOneSided::y1(double y1)
{
    checkDegree(y1, y1Range);
    set_(y1_, y1);
}

void tkClassifierFeatureScoreOneSided::updateSupport_()
{
    const double inner = y1_ == 0.0 ? x1_ : xc_;
    const double outer = y0_ == 0.0 ? x0_ : isRising(*this) ? -infinity : infinity;
    if (isRising(*this))
        support_ = {outer, inner};
    else if (isFalling(*this))
        support_ = {inner, outer};
    else
        support_ = unknownSupport;
}

double tkClassifierFeatureScoreOneSided::score(double v) const
{
    if (isOutside(*this))
        throw tkClassifierDefs::BadParams(x1Between);
    return scoreInOrder_(v);
}

inline double tkClassifierFeatureScoreOneSided::scoreInOrder_(double v) const
{
    if (isRising(*this))
    {
        if (v > xc_)
            return 0.0;
        if (v >= x1_)
            return y1_;
        if (v <= x0_)
            return y0_;
    }
    else
    {
        if (!TK_VERIFY(isFalling(*this)))
            return 0.0;
        if (v < xc_)
            return 0.0;
        if (v <= x1_)
            return y1_;
        if (v >= x0_)
            return y0_;
    }
    // The line through (x0, y0) and (x1, y1), in this form and order.
    return (x1_ * y0_ - x0_ * y1_ - v * (y0_ - y1_)) / (x1_ - x0_);
}

tkPtrHandle<tkClsFtSc> tkClassifierFeatureScoreOneSided::clone() const
{
    return tkPtrHandle<tkClsFtSc>(new tkClassifierFeatureScoreOneSided(*this));
}

bool tkClassifierFeatureScoreOneSided::operator==(const tkClsFtSc& other) const
{
    if (typeid(*this) != typeid(other))
        return false;
    const auto& f = static_cast<const tkClassifierFeatureScoreOneSided&>(other);
    return isSame(x0_, f.x0_) && isSame(x1_, f.x1_) && isSame(xc_, f.xc_) && isSame(y0_, f.y0_) && isSame(y1_, f.y1_);
}

tkClassifierFeatureScoreTwoSided::tkClassifierFeatureScoreTwoSided() : support_(unknownSupport)
{
    init(0.0, -1.0, -1.0, 0.0, 1.0, 1.0, 1.0, 0.0, 1.0, 0.0);
}

void tkClassifierFeatureScoreTwoSided::init(double x0, double x1, double xc, double x0h, double x1h, double xch,
                                            double y0, double y1, double y0h, double y1h)
{
    if (isAnyAbove(x0, x1, xc, std::min(std::min(x0h, x1h), xch)))
        throw tkClassifierDefs::BadParams(L"x0 > lowest || x1 > lowest || xc > lowest");
    tkClassifierFeatureScoreOneSided low;
    low.init(x0, x1, xc, y0, y1);
    high_.init(x0h, x1h, xch, y0h, y1h);
    low_ = low;
    updateSupport_();
}

void tkClassifierFeatureScoreTwoSided::y0(double y0)
{
    low_.y0(y0);
    updateSupport_();
}

void tkClassifierFeatureScoreTwoSided::y1(double y1)
{
    low_.y1(y1);
    updateSupport_();
}

void tkClassifierFeatureScoreTwoSided::y0h(double y0h)
{
    checkDegree(y0h, L"y0h must be between 0 and 1");
    high_.y0(y0h);
    updateSupport_();
}

void tkClassifierFeatureScoreTwoSided::y1h(double y1h)
{
    checkDegree(y1h, L"y1h must be between 0 and 1");
    high_.y1(y1h);
    updateSupport_();
}

/// The halves meet at the lowest x of High. Low's support begins at or below it and High's ends at or above it, so that
/// a value below the one is scored 0 by Low, and one above the other 0 by High.
void tkClassifierFeatureScoreTwoSided::updateSupport_()
{
    const double lowest = std::min(high_.x0(), high_.xc());
    const bool isInOrder = (isRising(low_) || isFalling(low_)) && (isRising(high_) || isFalling(high_)) &&
                           !isAnyAbove(low_.x0(), low_.x1(), low_.xc(), lowest);
    support_ = isInOrder ? tkFeatureScoreSupport{low_.support().low, high_.support().high} : unknownSupport;
}

double tkClassifierFeatureScoreTwoSided::score(double v) const
{
    // A trapezoid with slanted flanks and corners in order: no check can fail.
    if (low_.xc_ <= low_.x1_ && low_.x1_ < low_.x0_ && low_.x0_ <= high_.x0_ && high_.x0_ < high_.x1_ &&
        high_.x1_ <= high_.xc_)
        return (v >= high_.x0_ ? high_ : low_).scoreInOrder_(v);
    return scoreAnyShape_(v);
}

// Out of line: inlined into score(), its calls would make that save registers on the path of trapezoids as well.
[[gnu::noinline]] double tkClassifierFeatureScoreTwoSided::scoreAnyShape_(double v) const
{
    if (isOutside(low_) || isOutside(high_))
        throw tkClassifierDefs::BadParams(x1Between);
    const double lowest = high_.x0() > high_.xc() ? high_.xc() : high_.x0();
    if (!TK_VERIFY(!(high_.x1() < lowest)))
        return 0.0;
    if (isAnyAbove(low_.x0(), low_.x1(), low_.xc(), lowest))
        throw tkClassifierDefs::BadParams(L"Bad x values");
    return (v >= lowest ? high_ : low_).scoreInOrder_(v);
}

tkPtrHandle<tkClsFtSc> tkClassifierFeatureScoreTwoSided::clone() const
{
    return tkPtrHandle<tkClsFtSc>(new tkClassifierFeatureScoreTwoSided(*this));
}

bool tkClassifierFeatureScoreTwoSided::operator==(const tkClsFtSc& other) const
{
    if (typeid(*this) != typeid(other))
        return false;
    const auto& f = static_cast<const tkClassifierFeatureScoreTwoSided&>(other);
    return low_ == f.low_ && high_ == f.high_;
}

tkArchive& operator||(tkArchive& archive, tkClassifierFeatureScoreIgnore&)
{
    return archive;
}

tkArchive& operator||(tkArchive& archive, tkClassifierFeatureScoreOneSided& f)
{
    if (archive.isLoading())
        f.support_ = unknownSupport; // for as long as loading may fail
    archive || f.x0_ || f.x1_ || f.xc_ || f.y0_ || f.y1_;
    if (archive.isLoading())
        f.updateSupport_();
    return archive;
}

tkArchive& operator||(tkArchive& archive, tkClassifierFeatureScoreTwoSided& f)
{
    if (archive.isLoading())
        f.support_ = unknownSupport;
    archive || f.low_ || f.high_;
    if (archive.isLoading())
        f.updateSupport_();
    return archive;
}

tkArchive& operator||(tkArchive& archive, tkPtrHandle<tkClsFtSc>& handle)
try
{
    unsigned long tag = 0;
    if (archive.isStoring())
    {
        const tkClsFtSc& function = *handle;
        const std::type_info& type = typeid(function);
        const bool isIgnore = type == typeid(tkClassifierFeatureScoreIgnore);
        const bool isOneSided = type == typeid(tkClassifierFeatureScoreOneSided);
        TK_ASSERT(isIgnore || isOneSided || type == typeid(tkClassifierFeatureScoreTwoSided));
        tag = isIgnore ? ignoreTag : isOneSided ? oneSidedTag : twoSidedTag;
    }
    archive || tag;
    switch (tag)
    {
    case ignoreTag:
        exchange<tkClassifierFeatureScoreIgnore>(archive, handle);
        break;
    case oneSidedTag:
        exchange<tkClassifierFeatureScoreOneSided>(archive, handle);
        break;
    case twoSidedTag:
        exchange<tkClassifierFeatureScoreTwoSided>(archive, handle);
        break;
    default:
        break;
    }
    return archive;
}
catch (...)
{
    archive.setFailed();
    throw;
}
