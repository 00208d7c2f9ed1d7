#ifndef SURFACE_INSPECTOR_MAPS_H
#define SURFACE_INSPECTOR_MAPS_H

#include "inspection.h"
#include "png_address.h"

#include <functional>

namespace inspector
{

/// The colour of a surface; colour-blind people tell them apart (M. Okabe and K. Ito, Color Universal Design, 2008).
Colour surfaceColour(long label);

/// A picture to lay over the mosaic: every decision as a spot of its surface's colour in the middle of its window,
/// none of them black, a refusal hatched in black and white, the seams between the parts as white lines.
ColourPicture classMap(const Mosaic& mosaic, const WindowMap& windows);

/// The colour of a value between 0 and 1, from dark to bright; those outside count as the nearer end.
Colour valueColour(double value);

/// A picture to lay over the mosaic in the same way: every window in the colour of its value.
ColourPicture valueMap(const Mosaic& mosaic, const WindowMap& windows,
                       const std::function<double(const Decision&)>& value);

/// Nothing but the seams.
ColourPicture seams(const Mosaic& mosaic);

} // namespace inspector

#endif
