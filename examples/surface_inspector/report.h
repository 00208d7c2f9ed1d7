#ifndef SURFACE_INSPECTOR_REPORT_H
#define SURFACE_INSPECTOR_REPORT_H

#include "inspection.h"

#include <iosfwd>

namespace inspector
{

/// Writes the findings as an HTML page in UTF-8 that needs nothing but itself.
void writeReport(std::ostream& out, const Findings& findings);

} // namespace inspector

#endif
