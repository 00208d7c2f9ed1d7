#include "clss/clastool/clastool/tk_CategoryModel.h"

#include "clss/clastool/clastool/tk_PersistentClasses.h"
#include "foundation/tkArchive.h"

bool tk_CategoryModel::operator==(const tk_CategoryModel& other) const
{
    return categoryLabel_ == other.categoryLabel_ && numMeasurements_ == other.numMeasurements_;
}

TK_DEFINE_RECORD(tk_CategoryModel, 0)

void tk_CategoryModel::serialize_(tkArchive& archive, unsigned char)
{
    tk_linkPersistentClasses();
    tkPersistent::dispatchSerialize(archive);
    archive || categoryLabel_ || numMeasurements_;
}
