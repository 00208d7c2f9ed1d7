#ifndef CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERFEATURESCORE_H
#define CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERFEATURESCORE_H

#include "clss/clastool/clastool/tkClsFtSc.h"

class tkArchive;

/// A ramp between two plateaus, cut off at one end.
///
///     y0 ______                 Running towards larger values (x0 <= x1 <= xc): y0 up to x0, a straight line
///              \                from (x0, y0) to (x1, y1), y1 from x1 to xc inclusive, 0 beyond xc.
///         y1    \_______        Running towards smaller values (xc <= x1 <= x0): the mirror image.
///           x0   x1     | xc
///
/// The corners have the unit of the measurement and may be infinite.
class TK_EXPORT tkClassifierFeatureScoreOneSided : public tkClsFtSc
{
public:
    /// x0 = 0, x1 = 1, xc = 1, y0 = 1, y1 = 0.
    tkClassifierFeatureScoreOneSided();

    /// Sets all five. Throws tkClassifierDefs::BadParams if y0, then if y1 is not in [0, 1] (a NaN is not), then if
    /// x1 does not lie between x0 and xc.
    void init(double x0, double x1, double xc, double y0, double y1);

    /// End of the outer plateau. The setters of x0, x1 and xc check nothing: score() does.
    double x0() const { return x0_; }
    void x0(double x0) { set_(x0_, x0); }
    /// Start of the inner plateau.
    double x1() const { return x1_; }
    void x1(double x1) { set_(x1_, x1); }
    /// Cut-off, itself still on the inner plateau.
    double xc() const { return xc_; }
    void xc(double xc) { set_(xc_, xc); }
    /// Degree on the outer plateau. Throws tkClassifierDefs::BadParams unless it is in [0, 1].
    double y0() const { return y0_; }
    void y0(double y0);
    /// Degree on the inner plateau. Throws tkClassifierDefs::BadParams unless it is in [0, 1].
    double y1() const { return y1_; }
    void y1(double y1);

    /// Where the function scores more than 0, as far as the corners tell. Every change of a field updates it.
    const tkFeatureScoreSupport& support() const { return support_; }

    /// The degree of `value`; NaN for NaN between the corners. Throws tkClassifierDefs::BadParams if x1 lies below or
    /// above both x0 and xc. Where a NaN corner leaves the order open, tells the assertion handler and returns 0.
    double score(double value) const override;
    tkPtrHandle<tkClsFtSc> clone() const override;
    /// Fields count as equal when neither is less: a NaN equals anything.
    bool operator==(const tkClsFtSc& other) const override;

private:
    friend class tkClassifierFeatureScoreTwoSided;
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierFeatureScoreOneSided& function);

    void set_(double& field, double value)
    {
        field = value;
        updateSupport_();
    }
    void updateSupport_();

    /// The score where x1 is known not to lie outside of x0 and xc.
    double scoreInOrder_(double value) const;

    double x0_ = 0.0; // the x have the unit of the measurement
    double x1_ = 1.0; // between x0_ and xc_, unless a single setter or a record says otherwise
    double xc_ = 1.0;
    double y0_ = 1.0;               // in [0, 1], unless loaded
    double y1_ = 0.0;               // in [0, 1], unless loaded
    tkFeatureScoreSupport support_; // of the five above
};

/// Two one-sided functions back to back, usually a trapezoid: Low runs towards smaller values, High towards
/// larger ones, and no x of Low lies above the lowest x of High.
class TK_EXPORT tkClassifierFeatureScoreTwoSided : public tkClsFtSc
{
public:
    /// A triangle of height 1 over [-1, 1], centred on 0.
    tkClassifierFeatureScoreTwoSided();

    /// Sets all ten: Low's x, High's x, Low's degrees, High's degrees. Throws tkClassifierDefs::BadParams if an x of
    /// Low lies above the lowest x of High, then as init() of Low, then as init() of High.
    void init(double x0, double x1, double xc, double x0h, double x1h, double xch, double y0, double y1, double y0h,
              double y1h);

    /// The fields of Low. The setters of x check nothing: score() does.
    double x0() const { return low_.x0(); }
    void x0(double x0) { low_.x0(x0), updateSupport_(); }
    double x1() const { return low_.x1(); }
    void x1(double x1) { low_.x1(x1), updateSupport_(); }
    double xc() const { return low_.xc(); }
    void xc(double xc) { low_.xc(xc), updateSupport_(); }
    /// Throw tkClassifierDefs::BadParams unless the degree is in [0, 1].
    double y0() const { return low_.y0(); }
    void y0(double y0);
    double y1() const { return low_.y1(); }
    void y1(double y1);

    /// The fields of High, in the same way.
    double x0h() const { return high_.x0(); }
    void x0h(double x0h) { high_.x0(x0h), updateSupport_(); }
    double x1h() const { return high_.x1(); }
    void x1h(double x1h) { high_.x1(x1h), updateSupport_(); }
    double xch() const { return high_.xc(); }
    void xch(double xch) { high_.xc(xch), updateSupport_(); }
    double y0h() const { return high_.y0(); }
    void y0h(double y0h);
    double y1h() const { return high_.y1(); }
    void y1h(double y1h);

    /// The two functions, which change with the fields of this object.
    const tkClassifierFeatureScoreOneSided& Low() const { return low_; }
    const tkClassifierFeatureScoreOneSided& High() const { return high_; }

    /// From the lower end of Low's support to the upper end of High's. Every change of a field updates it.
    const tkFeatureScoreSupport& support() const { return support_; }

    /// High's score from the lower end of High on, Low's below. Throws tkClassifierDefs::BadParams if Low's, then if
    /// High's x1 does not lie between its neighbours, then if an x of Low lies above the lower end of High. Where a NaN
    /// leaves the first two open, tells the assertion handler and returns 0.
    double score(double value) const override;
    tkPtrHandle<tkClsFtSc> clone() const override;
    /// Low and High are equal, field by field as above.
    bool operator==(const tkClsFtSc& other) const override;

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierFeatureScoreTwoSided& function);

    void updateSupport_();

    /// score() as it is defined.
    double scoreAnyShape_(double value) const;

    tkFeatureScoreSupport support_; // of the two below
    tkClassifierFeatureScoreOneSided low_;
    tkClassifierFeatureScoreOneSided high_;
};

/// The records carry no version byte and nothing is checked on loading. A handle's record is a tag for the class
/// of its object, then the object's. A tag that is not known is passed over, and the handle keeps what it held.
/// *Requires*, when storing, an object of exactly one of the three classes; a null handle throws tkBadPointer.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierFeatureScoreIgnore& function);
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierFeatureScoreOneSided& function);
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierFeatureScoreTwoSided& function);
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkPtrHandle<tkClsFtSc>& function);

#endif
