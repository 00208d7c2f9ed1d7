#ifndef TESTS_SUPPORT_TKFOLDER_H
#define TESTS_SUPPORT_TKFOLDER_H

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <string>

/// An empty folder that goes with the object.
class tkFolder
{
public:
    tkFolder()
    {
        std::random_device random; // several builds may run their tests at once
        do
            path = std::filesystem::path(::testing::TempDir()) / ("tkFolder-" + std::to_string(random()));
        while (!std::filesystem::create_directory(path));
    }
    ~tkFolder() { std::filesystem::remove_all(path); }
    tkFolder(const tkFolder&) = delete;
    tkFolder& operator=(const tkFolder&) = delete;

    static std::string read(const std::filesystem::path& file)
    {
        std::ifstream stream(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }

    static void write(const std::filesystem::path& file, const std::string& bytes)
    {
        std::ofstream(file, std::ios::binary) << bytes;
    }

    /// Names of what is in the folder.
    std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator(path))
            found.insert(entry.path().filename().string());
        return found;
    }

    std::filesystem::path path;
};

#endif
