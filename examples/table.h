#ifndef EXAMPLES_TABLE_H
#define EXAMPLES_TABLE_H

#include "clss/clastool/clastool.h"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

/// The patterns of a file of examples/data: a line of names, then the measurements and the label of a pattern on each
/// line, separated by commas.
inline tkClassifierDataProviderMemory readTable(const std::string& path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    tkClassifierDataProviderMemory data;
    while (std::getline(file, line))
    {
        std::istringstream fields(line);
        std::vector<double> numbers;
        for (std::string field; std::getline(fields, field, ',');)
            numbers.push_back(std::stod(field));
        const long label = static_cast<long>(numbers.back());
        numbers.pop_back();
        data.addData(numbers, label);
    }
    if (data.numPatterns() == 0)
        throw std::runtime_error("no patterns in " + path);
    return data;
}

#endif
