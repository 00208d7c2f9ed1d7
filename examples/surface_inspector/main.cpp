/// Learns surfaces from pictures and inspects others with what it has learned; helpText() says how it is called.

#include "arguments.h"
#include "dataset.h"
#include "input_error.h"
#include "inspection.h"
#include "report.h"
#include "summary.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace
{

/// Beside the report, under its name.
std::string archivePath(const std::string& report)
{
    const std::filesystem::path path(report);
    return path.extension() == ".html" ? std::filesystem::path(path).replace_extension(".classifier").string()
                                       : report + ".classifier";
}

void checkReportFolder(const std::string& report)
{
    const std::filesystem::path path(report);
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    if (!std::filesystem::is_directory(folder))
        throw inspector::InputError(report + ": there is no folder '" + folder.string() + "'");
    if (std::filesystem::is_directory(path))
        throw inspector::InputError(report + ": is a folder");
}

void save(const std::string& path, const inspector::Findings& findings)
{
    errno = 0;
    std::ofstream file(path, std::ios::binary);
    if (file)
    {
        writeReport(file, findings);
        file.close();
    }
    if (!file)
        throw std::runtime_error(path + ": cannot be written: " + std::strerror(errno));
}

} // namespace

int main(int argc, char* argv[])
{
    try
    {
        const inspector::Arguments arguments =
            inspector::parseArguments(std::vector<std::string>(argv + 1, argv + argc), SURFACE_INSPECTOR_DATA_DIR);
        if (arguments.help)
        {
            std::cout << inspector::helpText();
            return 0;
        }
        checkReportFolder(arguments.report);

        inspector::Dataset dataset = inspector::readDataset(arguments.train);
        inspector::Mosaic mosaic = inspector::readMosaic(arguments.mosaic, dataset.surfaces);
        const inspector::Findings findings =
            inspector::inspect(std::move(dataset), std::move(mosaic), archivePath(arguments.report));
        save(arguments.report, findings);
        writeSummary(std::cout, findings);
        std::cout << "\nReport with pictures: " << arguments.report << std::endl;
        if (!std::cout)
            throw std::runtime_error("the standard output cannot be written");
        return 0;
    }
    catch (const inspector::InputError& error)
    {
        std::cerr << "surface_inspector: " << error.what() << std::endl;
        return 2;
    }
    catch (const std::exception& error)
    {
        std::cerr << "surface_inspector: " << error.what() << std::endl;
        return 1;
    }
}
