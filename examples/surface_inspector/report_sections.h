#ifndef SURFACE_INSPECTOR_REPORT_SECTIONS_H
#define SURFACE_INSPECTOR_REPORT_SECTIONS_H

#include "inspection.h"

#include <iosfwd>

namespace inspector
{

/// The sections of the report that stand in files of their own.
void writeNoveltySection(std::ostream& out, const Findings& findings);
void writeTreeSection(std::ostream& out, const Findings& findings, const TreeFindings& tree);
void writeRuleSection(std::ostream& out, const Findings& findings, const RuleFindings& rules);

} // namespace inspector

#endif
