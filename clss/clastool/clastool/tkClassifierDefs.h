#ifndef CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERDEFS_H
#define CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERDEFS_H

#include "foundation/tkException.h"

#include <string>

/// Scope of the classifiers' error classes.
///
/// Every failure of the classifiers is one of the eight classes below; a handler for Errors catches them all, one for
/// tkException the foundation's as well (tkArchive::Errors, tkBadPointer, tkFailure). The messages are fixed English
/// texts; that of InsufficientTrainData can end with a category's label. Which operation throws what, and in which
/// order, stands at the operation.
class TK_EXPORT tkClassifierDefs
{
public:
    /// Root of the errors. An error's only state is its message.
    class TK_EXPORT Errors : public tkExceptionWithString
    {
    public:
        /// The number of the concrete class, the same in every release.
        long errorNumber() const override = 0;
        /// Deletes this object and throws a copy of its concrete class. *Requires* an object from `new`.
        void suicideAndRethrow() override = 0;

    protected:
        /// With this message, as it is.
        Errors(const std::wstring& message = L"");
        /// The message. Of an unknown version throws tkArchive::UnknownVersion with the qualified name of the class.
        TK_RECORD;
    };

/// The body that all concrete errors share; what they mean is said where each is declared.
#define TK_CLASSIFIER_ERROR(Name)                                                                                      \
    class TK_EXPORT Name : public Errors                                                                               \
    {                                                                                                                  \
    public:                                                                                                            \
        Name(const std::wstring& message = L"");                                                                       \
        long errorNumber() const override;                                                                             \
        void suicideAndRethrow() override;                                                                             \
                                                                                                                       \
    private:                                                                                                           \
        TK_FACTORY_RECORD;                                                                                             \
    }

    /// A parameter's value is out of its domain: a score outside of [0, 1], a negative cost, k below 1, parameters that
    /// a retraining may not change; errorNumber() 0x10004200.
    TK_CLASSIFIER_ERROR(BadParams);
    /// The operation needs a trained classifier or tool; 0x10004201.
    TK_CLASSIFIER_ERROR(NotTrained);
    /// The index of a measurement, pattern or label is out of range; 0x10004202.
    TK_CLASSIFIER_ERROR(BadIndex);
    /// A category label is not allowed where it stands: a negative one, or two that are equal; 0x10004203.
    TK_CLASSIFIER_ERROR(BadLabel);
    /// The trained method does not have what was asked for: a tree, parameters, such a retraining; 0x10004204.
    TK_CLASSIFIER_ERROR(BadMethod);
    /// A method or distribution is declared but not provided; 0x10004205.
    TK_CLASSIFIER_ERROR(NotImplemented);
    /// Invalid measurements where valid ones are needed, or patterns of unequal length; 0x10004206.
    TK_CLASSIFIER_ERROR(BadFeatures);
    /// Training had too little usable data; 0x10004207.
    TK_CLASSIFIER_ERROR(InsufficientTrainData);

#undef TK_CLASSIFIER_ERROR
};

#endif
