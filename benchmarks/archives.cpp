#include "workloads.h"

#include <algorithm>
#include <sstream>

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
    harness.measure("SAVE", "1,000,000 patterns",
                    {{"clastool", Role::Library,
                      [&](long, long count)
                      {
                          for (long i = 0; i < count; ++i)
                          {
                              memory.seekp(0);
                              tkArchive archive(static_cast<std::ostream&>(memory));
                              archive || classifier;
                          }
                      }},
                     {"copying the same bytes through the stream", Role::Limit,
                      [&](long, long count)
                      {
                          for (long i = 0; i < count; ++i)
                          {
                              memory.seekp(0);
                              writeThrough(memory, stored);
                          }
                      }}},
                    5);
    harness.measure("LOAD", "1,000,000 patterns",
                    {{"clastool", Role::Library,
                      [&](long, long count)
                      {
                          for (long i = 0; i < count; ++i)
                          {
                              memory.seekg(0);
                              tkArchive archive(static_cast<std::istream&>(memory));
                              tkClassifierTool loaded;
                              archive || loaded;
                          }
                      }},
                     {"copying the same bytes and building the objects", Role::Limit,
                      [&](long, long count)
                      {
                          std::string buffer(bufferSize, '\0');
                          for (long i = 0; i < count; ++i)
                          {
                              memory.seekg(0);
                              for (std::size_t done = 0; done < stored.size(); done += bufferSize)
                                  memory.read(buffer.data(), static_cast<std::streamsize>(std::min<std::size_t>(
                                                                 bufferSize, stored.size() - done)));
                              tkClassifierTool loaded;
                              loaded.train(providerOf(table), tkClassifierTrainParamsKNN(5));
                          }
                      }}},
                    5);
}
