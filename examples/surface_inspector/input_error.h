#ifndef SURFACE_INSPECTOR_INPUT_ERROR_H
#define SURFACE_INSPECTOR_INPUT_ERROR_H

#include <stdexcept>

namespace inspector
{

/// A mistake in what the user gave (an argument, a picture). Its text is one line that names the culprit.
class InputError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace inspector

#endif
