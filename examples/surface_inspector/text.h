#ifndef SURFACE_INSPECTOR_TEXT_H
#define SURFACE_INSPECTOR_TEXT_H

#include "dataset.h"

#include <string>

namespace inspector
{

/// `value` with `digits` digits after the point.
std::string fixed(double value, int digits);

/// A share of 1 as a percentage with one digit after the point.
std::string percent(double share);

/// A measurement of a tile, or "invalid".
std::string measurementText(const Measurements& measured, std::size_t index);

const std::string& surfaceName(const Dataset& dataset, long label);

} // namespace inspector

#endif
