#include "clss/clastool/clastool/tk_CategoryModel.h"

#include "clss/clastool/clastool/tk_PersistentClasses.h"
#include "foundation/tkArchive.h"

bool tk_CategoryModel::operator==(const tk_CategoryModel& other) const
{
    return categoryLabel_ == other.categoryLabel_ && numMeasurements_ == other.numMeasurements_;
}

void tk_CategoryModel::dispatchSerialize(tkArchive& archive)
{
    exchangeLevel_(archive, this, &tk_CategoryModel::serialize_);
}

void tk_CategoryModel::serialize_(tkArchive& archive, unsigned char version)
{
    static_cast<void>(tk_persistentClasses());
    tkArchive::requireVersion0(version);
    tkPersistent::dispatchSerialize(archive);
    archive || categoryLabel_ || numMeasurements_;
}
