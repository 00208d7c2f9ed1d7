#include "text.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace inspector
{

std::string fixed(double value, int digits)
{
    std::ostringstream out;
    out << std::fixed << std::setprecision(digits) << value;
    return out.str();
}

std::string percent(double share)
{
    return fixed(100.0 * share, 1) + " %";
}

std::string measurementText(const Measurements& measured, std::size_t index)
{
    const bool invalid =
        std::find(measured.invalid.begin(), measured.invalid.end(), static_cast<long>(index)) != measured.invalid.end();
    return invalid ? "invalid" : fixed(measured.values[index], 2);
}

const std::string& surfaceName(const Dataset& dataset, long label)
{
    return dataset.surfaces[static_cast<std::size_t>(label)].name;
}

} // namespace inspector
