#ifndef SURFACE_INSPECTOR_MAPS_H
#define SURFACE_INSPECTOR_MAPS_H

#include "inspection.h"
#include "png_address.h"

namespace inspector
{

/// The colour of a surface; colour-blind people tell them apart (M. Okabe and K. Ito, Color Universal Design, 2008).
Colour surfaceColour(long label);

/// A picture to lay over the mosaic: every decision as a spot of its surface's colour in the middle of its window,
/// a refusal hatched in black and white, the seams between the parts as white lines.
ColourPicture classMap(const Mosaic& mosaic, const WindowMap& windows);

/// Nothing but the seams.
ColourPicture seams(const Mosaic& mosaic);

} // namespace inspector

#endif
