#include "foundation/tkDiagObject.h"

tkDiagObject::~tkDiagObject() = default;

tkDiagObject* tkDiagObject::getRecordingDestination(tkDiagObject* diag, unsigned long& flags)
{
    return diag ? diag->recordingDestination_(flags) : nullptr;
}

tkDiagObject* tkDiagObject::recordingDestination_(unsigned long&)
{
    return this;
}
