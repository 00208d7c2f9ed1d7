#ifndef SURFACE_INSPECTOR_ARGUMENTS_H
#define SURFACE_INSPECTOR_ARGUMENTS_H

#include <string>
#include <vector>

namespace inspector
{

/// Colours that colour-blind people tell apart; a surface each.
constexpr std::size_t maximumSurfaces = 7;

/// The command line.
struct Arguments
{
    struct Surface
    {
        std::string name;
        std::string file;
    };

    std::vector<Surface> train;      ///< from two to maximumSurfaces, no name empty or twice
    std::vector<std::string> mosaic; ///< at least one picture
    std::string report = "surface_inspector.html";
    bool help = false; ///< nothing but the help is wanted
};

/// Reads the arguments that follow the program's name. Those not given mean the pictures in `dataDirectory`.
/// Throws InputError if they are not as helpText() says.
Arguments parseArguments(const std::vector<std::string>& arguments, const std::string& dataDirectory);

const char* helpText();

} // namespace inspector

#endif
