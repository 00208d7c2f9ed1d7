#include "clss/clastool/clastool/tkClassifierTrainParams.h"

#include "clss/clastool/clastool/tk_PersistentClasses.h"
#include "foundation/tkArchive.h"

TK_DEFINE_RECORD(tkClassifierTrainParams, 0)

bool tkClassifierTrainParams::isEqual_(const tkClassifierTrainParams&) const
{
    return true;
}

void tkClassifierTrainParams::serialize_(tkArchive& archive, unsigned char)
{
    tk_linkPersistentClasses();
    tkPersistent::dispatchSerialize(archive);
}
