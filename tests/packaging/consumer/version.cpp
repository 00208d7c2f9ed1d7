// The version of the package, of the headers and of the library are one. The package's stands on the command line.
#include "clastool/version.h"

#include <iostream>
#include <string>

int main(int, char** argv)
{
    const std::string package = argv[1];
    const std::string parts = std::to_string(CLASTOOL_VERSION_MAJOR) + "." + std::to_string(CLASTOOL_VERSION_MINOR) +
                              "." + std::to_string(CLASTOOL_VERSION_PATCH);
    std::cout << "package " << package << ", headers " << CLASTOOL_VERSION << ", which is " << parts << ", library "
              << tkVersion() << '\n';
    return package == CLASTOOL_VERSION && package == parts && package == tkVersion() ? 0 : 1;
}
