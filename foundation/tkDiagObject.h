#ifndef FOUNDATION_TKDIAGOBJECT_H
#define FOUNDATION_TKDIAGOBJECT_H

#include "foundation/tkExport.h"

/// Receiver of diagnostic recordings, implemented by the host.
///
/// Operations that can record take a pointer to one (null: record nothing) and a word of flags that says what to
/// record. The bits of the flags belong to the host and to the techniques that record; this library's own methods
/// record nothing. A receiver belongs to the caller and must outlive the call.
class TK_EXPORT tkDiagObject
{
public:
    virtual ~tkDiagObject();

    /// The object to record into: null for a null `diag`, else what its recordingDestination_() gives, which may be
    /// null (record nothing) and may adjust the flags.
    static tkDiagObject* getRecordingDestination(tkDiagObject* diag, unsigned long& flags);

protected:
    /// The destination that this object chooses, itself unless overridden.
    virtual tkDiagObject* recordingDestination_(unsigned long& flags);
};

#endif
