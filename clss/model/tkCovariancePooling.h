#ifndef CLSS_MODEL_TKCOVARIANCEPOOLING_H
#define CLSS_MODEL_TKCOVARIANCEPOOLING_H

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"

/// Parameters of Bayesian classification whose categories borrow from one another what few patterns cannot tell: the
/// covariance of each normal density becomes (1 - a) C + a P (Friedman, J. Am. Stat. Assoc. 84, 1989, 165-175).
///
/// C is the covariance learned, and P that within the categories which have the same dependency set, over the patterns
/// of all of them: their sums of squares and products over their degrees of freedom. A set that one category alone has
/// is left as it is, and so are binomial densities and means. The amount a is given, or chosen in each training. All
/// else is as in tkClassifierTrainParamsBayesian.
class TK_EXPORT tkCovariancePooling : public tkClassifierTrainParamsBayesian
{
public:
    /// Each training chooses the amount as choose() does.
    tkCovariancePooling(const tkClassifierTrainParamsBayesian& params = tkClassifierTrainParamsBayesian());
    /// The amount is given. Throws as amount(double) does.
    tkCovariancePooling(const tkClassifierTrainParamsBayesian& params, double amount);

    /// Whether each training chooses the amount.
    bool isChosen() const { return isChosen_; }

    /// The amount a; 0.0 while it is chosen in each training. Setting it ends that. Throws tkClassifierDefs::BadParams
    /// unless 0 <= amount <= 1.
    double amount() const { return amount_; }
    void amount(double amount);

    /// The amount with which leave-one-out makes the fewest mistakes, of 0, 0.01, 0.03, 0.1, 0.2, ..., 1; of several
    /// the one of the least log loss, then the least one. A mistake is a category that is not the most probable one
    /// with the frequencies of `params`.
    ///
    /// Judged are the patterns of which no measurement is invalid or not finite, each without its part in mean and
    /// covariances. Measurements that vary within no category are not looked at. An amount is not considered where a
    /// covariance is singular then; if each is, the amount is 1. Throws what a training with `params` throws. Time in
    /// proportion to patterns * categories * measurements^2.
    static double choose(const tkClassifierDataProvider& data, const tkClassifierTrainParamsBayesian& params);

    tkPtrHandle<tkClassifierTrainParams> clone() const override;

protected:
    bool isEqual_(const tkClassifierTrainParams& other) const override;
    /// Only other parameters of this class are.
    bool isSameTechnique_(const tkClassifierTrainParams& other) const override;
    tk_Classifier* newClassifier_() const override;

private:
    TK_FACTORY_RECORD;

    bool isChosen_ = true;
    double amount_ = 0.0;
};

#endif
