#include "clss/clastool/clastool/tkClassifierTrainParams.h"

#include "clss/clastool/clastool/tk_PersistentClasses.h"
#include "foundation/tkArchive.h"

void tkClassifierTrainParams::dispatchSerialize(tkArchive& archive)
{
    exchangeLevel_(archive, this, &tkClassifierTrainParams::serialize_);
}

bool tkClassifierTrainParams::isEqual_(const tkClassifierTrainParams&) const
{
    return true;
}

void tkClassifierTrainParams::serialize_(tkArchive& archive, unsigned char version)
{
    static_cast<void>(tk_persistentClasses());
    tkArchive::requireVersion0(version);
    tkPersistent::dispatchSerialize(archive);
}
