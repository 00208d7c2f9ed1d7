#ifndef SURFACE_INSPECTOR_PAGE_H
#define SURFACE_INSPECTOR_PAGE_H

#include "inspection.h"
#include "png_address.h"

#include <iosfwd>
#include <string>

namespace inspector
{

/// The look of the page, for light and dark screens, wide and narrow.
extern const char* const styleSheet;

/// The text with its special characters made harmless for HTML.
std::string html(const std::string& text);

/// The name of a surface, harmless for HTML.
std::string name(const Dataset& dataset, long label);

/// A small square of a surface's colour.
std::string swatch(long label);

/// A surface's colour in the words of a style sheet.
std::string colourText(long label);

std::string tileImage(const Picture& tile, const std::string& alt, long side);

/// A picture laid over the mosaic, with the names of the mosaic's parts.
void writeOverMosaic(std::ostream& out, const Mosaic& mosaic, const ColourPicture& over, const std::string& alt,
                     const std::string& caption);

/// A bar of the colours of valueColour(), with words for both ends and the middle.
std::string scaleBar(const std::string& low, const std::string& middle, const std::string& high);

void writeLegend(std::ostream& out, const Dataset& dataset);

/// `none` heads the column of the tiles for which no surface was named.
void writeConfusion(std::ostream& out, const Dataset& dataset, const Confusion& confusion, const std::string& caption,
                    const std::string& none);

void writeMeasured(std::ostream& out, const Measurements& measured);

/// Whether the tile of a decision of the Bayesian method resembles what was learned, and its fit. *Requires* a decision
/// that is not a refusal.
std::string fitText(const Decision& decision);

/// A tile with its whole result; *requires* that the Bayesian method made it. A fit below its limit is pointed out.
void writeExhibit(std::ostream& out, const Dataset& dataset, const Exhibit& exhibit);

} // namespace inspector

#endif
