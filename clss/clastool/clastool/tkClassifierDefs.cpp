#include "clss/clastool/clastool/tkClassifierDefs.h"

#include "foundation/tkArchive.h"

tkClassifierDefs::Errors::Errors(const std::wstring& message) : tkExceptionWithString(message) {}

TK_DEFINE_RECORD(tkClassifierDefs::Errors, 0, "tkClassifierDefs::Errors")

void tkClassifierDefs::Errors::serialize_(tkArchive& archive, unsigned char)
{
    tkExceptionWithString::dispatchSerialize(archive);
}

#define TK_CLASSIFIER_ERROR(Name, number)                                                                              \
    TK_DEFINE_FACTORY_RECORD(tkClassifierDefs::Name, 0, "tkClassifierDefs::" #Name)                                    \
                                                                                                                       \
    tkClassifierDefs::Name::Name(const std::wstring& message) : Errors(message) {}                                     \
                                                                                                                       \
    long tkClassifierDefs::Name::errorNumber() const                                                                   \
    {                                                                                                                  \
        return number;                                                                                                 \
    }                                                                                                                  \
                                                                                                                       \
    void tkClassifierDefs::Name::suicideAndRethrow()                                                                   \
    {                                                                                                                  \
        const Name copy(*this);                                                                                        \
        delete this;                                                                                                   \
        throw copy;                                                                                                    \
    }                                                                                                                  \
                                                                                                                       \
    void tkClassifierDefs::Name::serialize_(tkArchive& archive, unsigned char)                                         \
    {                                                                                                                  \
        Errors::dispatchSerialize(archive);                                                                            \
    }

TK_CLASSIFIER_ERROR(BadParams, 0x10004200)
TK_CLASSIFIER_ERROR(NotTrained, 0x10004201)
TK_CLASSIFIER_ERROR(BadIndex, 0x10004202)
TK_CLASSIFIER_ERROR(BadLabel, 0x10004203)
TK_CLASSIFIER_ERROR(BadMethod, 0x10004204)
TK_CLASSIFIER_ERROR(NotImplemented, 0x10004205)
TK_CLASSIFIER_ERROR(BadFeatures, 0x10004206)
TK_CLASSIFIER_ERROR(InsufficientTrainData, 0x10004207)
