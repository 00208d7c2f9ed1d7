#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Gives a fuzz target every file of a folder, and each of its beginnings.
int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1]))
    {
        std::ifstream stream(entry.path(), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
        for (std::size_t size = 0; size <= bytes.size(); ++size)
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), size);
        ++files;
    }
    std::cout << files << " files\n";
    return files > 0 ? 0 : 1;
}
