#ifndef FOUNDATION_TKDIAGOBJECT_H
#define FOUNDATION_TKDIAGOBJECT_H

#include "foundation/tkExport.h"

/// Receiver of diagnostic recordings, implemented by the host. Operations that can record take a pointer
/// to one (null: record nothing) and a word of flags that says what to record.
class TK_EXPORT tkDiagObject
{
public:
    virtual ~tkDiagObject();

    /// The object to record into, null if nothing is to be recorded; it may adjust the flags.
    static tkDiagObject* getRecordingDestination(tkDiagObject* diag, unsigned long& flags);

protected:
    /// The destination that this object chooses, itself unless overridden.
    virtual tkDiagObject* recordingDestination_(unsigned long& flags);
};

#endif
