#ifndef SURFACE_INSPECTOR_SUMMARY_H
#define SURFACE_INSPECTOR_SUMMARY_H

#include "inspection.h"

#include <iosfwd>

namespace inspector
{

/// Writes the findings as plain text.
void writeSummary(std::ostream& out, const Findings& findings);

} // namespace inspector

#endif
