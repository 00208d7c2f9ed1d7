#ifndef BENCHMARKS_HARNESS_H
#define BENCHMARKS_HARNESS_H

#include <fstream>
#include <functional>
#include <string>
#include <vector>

/// What a tool is to the library in a comparison: itself, the definition written down plainly, another library, or
/// a bound that the machine sets.
enum class Role
{
    Library,
    Naive,
    Peer,
    Limit
};

/// One competitor in one workload. `run(first, count)` carries out the operations first, first + 1, ...; an operation
/// takes the input with its number, modulo the number of inputs. A tool that is faster with many inputs at once is run
/// with a multiple of `batch` operations.
struct Tool
{
    std::string name;
    Role role;
    std::function<void(long first, long count)> run;
    long batch = 1;
};

/// Measures tools against one another and writes what it measured.
///
/// All tools of a workload run in the same process and thread, in rounds: each round lets each tool run once, so that
/// whatever slows the machine down for a while meets all of them. A tool's figure is the median of its rounds.
class Harness
{
public:
    /// Writes measurements.csv and figures.csv into `directory`. `quick` asks for small data and a single round:
    /// such figures say nothing, but every line of the benchmarks has run.
    Harness(bool quick, const std::string& directory);

    bool quick() const { return quick_; }

    /// The size of a workload.
    long size(long full, long quick) const { return quick_ ? quick : full; }

    /// Times the tools. The number of operations in a round is chosen for each tool so that it takes some time.
    void measure(const std::string& workload, const std::string& operation, const std::vector<Tool>& tools,
                 int rounds = 9);

    /// Times single operations, one by one, and notes their median and the times that 99 % and 99.9 % of them keep. The
    /// tools take turns, so that what interrupts the program meets all of them; reading the clock is included.
    void latency(const std::string& workload, const std::string& operation, const std::vector<Tool>& tools);

    /// Notes a figure that is counted and not timed.
    void figure(const std::string& workload, const std::string& what, double value);

    /// A condition without which the timings mean nothing, such as equal results. One that does not hold makes the
    /// whole run fail.
    void check(bool holds, const std::string& what);
    bool failed() const { return failed_; }

private:
    void note_(const std::string& workload, const std::string& operation, const Tool& tool, double seconds,
               double fastest, double slowest, int rounds);

    bool quick_;
    bool failed_ = false;
    std::ofstream measurements_;
    std::ofstream figures_;
};

/// Number of allocations and bytes in use of this program: the operators new and delete count.
struct Allocations
{
    long count;
    long long bytes;
};
Allocations allocations();

/// Tells the compiler that the value is needed.
template <class Value>
void keep(const Value& value)
{
    asm volatile("" : : "g"(&value) : "memory");
}

#endif
