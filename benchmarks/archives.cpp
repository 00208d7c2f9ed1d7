#include "workloads.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>

namespace
{
/// Copies the bytes through a stream as a program would that reads or writes a buffer at a time.
constexpr long bufferSize = 65536;

void writeThrough(std::ostream& stream, const std::string& bytes)
{
    for (std::size_t i = 0; i < bytes.size(); i += bufferSize)
        stream.write(bytes.data() + i,
                     static_cast<std::streamsize>(std::min<std::size_t>(bufferSize, bytes.size() - i)));
}

void readThrough(std::istream& stream, std::size_t size)
{
    std::string buffer(bufferSize, '\0');
    for (std::size_t i = 0; i < size; i += bufferSize)
        stream.read(buffer.data(), static_cast<std::streamsize>(std::min<std::size_t>(bufferSize, size - i)));
    keep(buffer);
}

/// Opens a stream where an archive is stored (`mode` is out) or stands already (in), lets it be exchanged, and closes
/// the stream.
using Place = std::function<void(std::ios::openmode mode, const std::function<void(std::iostream&)>& exchange)>;

void measureSaving(Harness& harness, const std::string& operation, const Place& place, tkClassifierTool& classifier,
                   const std::string& stored)
{
    harness.measure("SAVE", operation,
                    {{"clastool", Role::Library,
                      [&](long, long count)
                      {
                          for (long i = 0; i < count; ++i)
                              place(std::ios::out,
                                    [&](std::ostream& stream)
                                    {
                                        tkArchive archive(stream);
                                        archive || classifier;
                                    });
                      }},
                     {"copying the same bytes through the stream", Role::Limit,
                      [&](long, long count)
                      {
                          for (long i = 0; i < count; ++i)
                              place(std::ios::out, [&](std::ostream& stream) { writeThrough(stream, stored); });
                      }}},
                    5);
}

void measureLoading(Harness& harness, const std::string& operation, const Place& place, const Table& table,
                    std::size_t size)
{
    harness.measure("LOAD", operation,
                    {{"clastool", Role::Library,
                      [&](long, long count)
                      {
                          for (long i = 0; i < count; ++i)
                              place(std::ios::in,
                                    [&](std::istream& stream)
                                    {
                                        tkArchive archive(stream);
                                        tkClassifierTool loaded;
                                        archive || loaded;
                                    });
                      }},
                     {"copying the same bytes and building the objects", Role::Limit,
                      [&](long, long count)
                      {
                          for (long i = 0; i < count; ++i)
                          {
                              place(std::ios::in, [&](std::istream& stream) { readThrough(stream, size); });
                              tkClassifierTool loaded;
                              loaded.train(providerOf(table), tkClassifierTrainParamsKNN(5));
                          }
                      }}},
                    5);
}

/// A file of the temporary directory that goes with this object.
struct TemporaryFile
{
    TemporaryFile() = default;
    ~TemporaryFile()
    {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::filesystem::path path = std::filesystem::temp_directory_path() /
                                       ("clastool-benchmark-" + std::to_string(std::random_device()()) + ".archive");
};
} // namespace

void archives(Harness& harness)
{
    const Table table = gaussianTable(harness.size(1000000, 2000), 16, 10, 1);
    tkClassifierTool classifier;
    classifier.train(providerOf(table), tkClassifierTrainParamsKNN(5));
    std::string stored;
    {
        std::ostringstream stream;
        tkArchive archive(stream);
        archive || classifier;
        stored = stream.str();
    }
    {
        std::istringstream stream(stored);
        tkArchive archive(stream);
        tkClassifierTool loaded;
        archive || loaded;
        loaded.retrain(*loaded.trainParams());
        harness.check(loaded == classifier, "LOAD gives back what was saved");
    }
    harness.figure("SAVE", "bytes per pattern", static_cast<double>(stored.size()) / static_cast<double>(table.rows));

    // Both sides write into memory that they have written before: a stream's growth is no part of the comparison.
    std::stringstream memory;
    memory.write(stored.data(), static_cast<std::streamsize>(stored.size()));
    const Place inMemory = [&](std::ios::openmode mode, const std::function<void(std::iostream&)>& exchange)
    {
        mode == std::ios::out ? static_cast<void>(memory.seekp(0)) : static_cast<void>(memory.seekg(0));
        exchange(memory);
    };
    measureSaving(harness, "1,000,000 patterns", inMemory, classifier, stored);

    // A new file each time, as hosts write it; it is read from the system's cache.
    const TemporaryFile file;
    const Place inFile = [&](std::ios::openmode mode, const std::function<void(std::iostream&)>& exchange)
    {
        std::fstream stream(file.path, mode | std::ios::binary | (mode == std::ios::out ? std::ios::trunc : mode));
        exchange(stream);
        stream.close();
        harness.check(stream.good(), "a file in the temporary directory holds the archive");
    };
    measureSaving(harness, "1,000,000 patterns into a file", inFile, classifier, stored);
    harness.check(std::filesystem::file_size(file.path) == stored.size(), "the file has all bytes");
    measureLoading(harness, "1,000,000 patterns", inMemory, table, stored.size());
    measureLoading(harness, "1,000,000 patterns from a file", inFile, table, stored.size());
}
