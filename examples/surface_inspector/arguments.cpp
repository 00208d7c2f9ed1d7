#include "arguments.h"

#include "input_error.h"

#include <algorithm>

namespace inspector
{

namespace
{

bool isOption(const std::string& argument)
{
    return argument.compare(0, 1, "-") == 0;
}

Arguments::Surface parseSurface(const std::string& argument)
{
    const std::size_t equals = argument.find('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == argument.size())
    {
        throw InputError("--train: '" + argument + "' is not of the form NAME=FILE");
    }
    return {argument.substr(0, equals), argument.substr(equals + 1)};
}

void checkSurfaces(const std::vector<Arguments::Surface>& surfaces)
{
    if (surfaces.size() < 2)
    {
        throw InputError("--train: at least two surfaces are needed");
    }
    if (surfaces.size() > maximumSurfaces)
    {
        throw InputError("--train: at most " + std::to_string(maximumSurfaces) + " surfaces are possible");
    }
    for (auto one = surfaces.begin(); one != surfaces.end(); ++one)
    {
        if (std::any_of(surfaces.begin(), one,
                        [&](const Arguments::Surface& other) { return other.name == one->name; }))
        {
            throw InputError("--train: two surfaces are named '" + one->name + "'");
        }
    }
}

} // namespace

Arguments parseArguments(const std::vector<std::string>& arguments, const std::string& dataDirectory)
{
    Arguments result;
    for (std::size_t i = 0; i < arguments.size();)
    {
        const std::string& option = arguments[i++];
        if (option == "--help")
        {
            result.help = true;
            return result;
        }
        if (option != "--train" && option != "--mosaic" && option != "--report")
        {
            throw InputError("unknown argument '" + option + "' (--help lists all)");
        }
        if (i == arguments.size() || isOption(arguments[i]))
        {
            throw InputError(option + ": a value is missing");
        }
        if (option == "--report")
        {
            result.report = arguments[i++];
            continue;
        }
        for (; i < arguments.size() && !isOption(arguments[i]); ++i)
        {
            if (option == "--train")
            {
                result.train.push_back(parseSurface(arguments[i]));
            }
            else
            {
                result.mosaic.push_back(arguments[i]);
            }
        }
    }

    const bool ownSurfaces = !result.train.empty();
    if (!ownSurfaces)
    {
        for (const char* name : {"brick", "grass", "gravel"})
        {
            result.train.push_back({name, dataDirectory + "/" + name + ".pgm"});
        }
    }
    checkSurfaces(result.train);
    if (result.mosaic.empty())
    {
        for (const Arguments::Surface& surface : result.train)
        {
            result.mosaic.push_back(surface.file);
        }
        if (!ownSurfaces)
        {
            result.mosaic.push_back(dataDirectory + "/coins.pgm");
        }
    }
    return result;
}

const char* helpText()
{
    return "Usage: surface_inspector [--train NAME=FILE...] [--mosaic FILE...] [--report FILE]\n"
           "\n"
           "Learns surfaces from the left halves of PGM pictures, tries what it has learned on their right halves and\n"
           "on every spot of a mosaic, and writes a report. Without arguments it uses the pictures shipped with it.\n"
           "\n"
           "  --train NAME=FILE...  a picture of each surface, 2 to 7 of them\n"
           "  --mosaic FILE...      pictures that make up the mosaic; of one that is trained, its right half is\n"
           "                        taken. Default: the pictures that are trained\n"
           "  --report FILE         the report, an HTML page (default: surface_inspector.html);\n"
           "                        the trained classifiers are stored beside it\n"
           "  --help                this text\n"
           "\n"
           "Exit status: 0 done; 2 an argument or a picture is not usable; 1 anything else went wrong.\n";
}

} // namespace inspector
