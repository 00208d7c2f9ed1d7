#include "harness.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <malloc.h>
#include <new>
#include <utility>

namespace
{
// One thread only: the benchmarks and all their peers are single-threaded.
Allocations counted{0, 0};

void* allocate(std::size_t size, std::size_t alignment)
{
    void* memory = nullptr;
    if (alignment <= alignof(std::max_align_t))
        memory = std::malloc(size);
    else if (posix_memalign(&memory, alignment, size) != 0)
        memory = nullptr;
    if (!memory)
        throw std::bad_alloc();
    ++counted.count;
    counted.bytes += static_cast<long long>(malloc_usable_size(memory));
    return memory;
}

void release(void* memory)
{
    if (memory)
        counted.bytes -= static_cast<long long>(malloc_usable_size(memory));
    std::free(memory);
}

double secondsOf(const Tool& tool, long first, long count)
{
    const auto start = std::chrono::steady_clock::now();
    tool.run(first, count);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Operations that take about `seconds` together; also brings the tool's data into the caches.
long operationsFor(const Tool& tool, double seconds)
{
    for (long batches = 1;; batches *= 2)
    {
        const double taken = secondsOf(tool, 0, batches * tool.batch);
        if (taken >= seconds / 4.0)
            return std::max(1L, static_cast<long>(static_cast<double>(batches) * seconds / taken)) * tool.batch;
    }
}

const char* nameOf(Role role)
{
    switch (role)
    {
    case Role::Library:
        return "library";
    case Role::Naive:
        return "naive";
    case Role::Peer:
        return "peer";
    case Role::Limit:
        break;
    }
    return "limit";
}
} // namespace

void* operator new(std::size_t size)
{
    return allocate(size, 1);
}

void* operator new(std::size_t size, std::align_val_t alignment)
{
    return allocate(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* memory) noexcept
{
    release(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    release(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    release(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    release(memory);
}

Allocations allocations()
{
    return counted;
}

Harness::Harness(bool quick, const std::string& directory)
    : quick_(quick),
      measurements_(directory + "/measurements.csv"),
      figures_(directory + "/figures.csv")
{
    measurements_ << "workload,operation,tool,role,seconds,fastest,slowest,rounds\n";
    figures_ << "workload,figure,value\n";
    check(measurements_.good() && figures_.good(), "can write into " + directory);
}

void Harness::measure(const std::string& workload, const std::string& operation, const std::vector<Tool>& tools,
                      int rounds)
{
    if (quick_)
        rounds = 1;
    std::vector<long> counts;
    for (const Tool& tool : tools)
        counts.push_back(operationsFor(tool, quick_ ? 1e-4 : 0.04));
    std::vector<std::vector<double>> seconds(tools.size());
    for (int round = 0; round < rounds; ++round)
        for (std::size_t t = 0; t < tools.size(); ++t)
            seconds[t].push_back(secondsOf(tools[t], round * counts[t], counts[t]) / static_cast<double>(counts[t]));

    double library = 0.0;
    std::cout << workload << ": " << operation << '\n';
    for (std::size_t t = 0; t < tools.size(); ++t)
    {
        std::vector<double>& s = seconds[t];
        std::sort(s.begin(), s.end());
        const double median = s[s.size() / 2];
        if (tools[t].role == Role::Library && library == 0.0)
            library = median;
        note_(workload, operation, tools[t], median, s.front(), s.back(), rounds);
        std::cout << "    " << tools[t].name << ": " << median * 1e6 << " us";
        if (library > 0.0)
            std::cout << ", ratio " << median / library;
        std::cout << std::endl;
    }
}

void Harness::latency(const std::string& workload, const std::string& operation, const std::vector<Tool>& tools)
{
    constexpr long turn = 500;
    const int turns = quick_ ? 1 : 100;
    std::vector<std::vector<double>> seconds(tools.size());
    for (int i = 0; i < turns; ++i)
        for (std::size_t t = 0; t < tools.size(); ++t)
        {
            tools[t].run(0, 20); // into the caches
            for (long first = i * turn; first < (i + 1) * turn; ++first)
                seconds[t].push_back(secondsOf(tools[t], first, 1));
        }
    for (std::vector<double>& s : seconds)
        std::sort(s.begin(), s.end());
    std::cout << workload << ": " << operation << '\n';
    for (const auto& [name, share] : {std::pair{"median", 0.5}, std::pair{"99 %", 0.99}, std::pair{"99.9 %", 0.999}})
        for (std::size_t t = 0; t < tools.size(); ++t)
        {
            const std::vector<double>& s = seconds[t];
            const double limit = s[static_cast<std::size_t>(share * static_cast<double>(s.size()))];
            note_(workload, operation + ", " + name, tools[t], limit, s.front(), s.back(), turns);
            std::cout << "    " << tools[t].name << ", " << name << ": " << limit * 1e6 << " us" << std::endl;
        }
}

void Harness::figure(const std::string& workload, const std::string& what, double value)
{
    figures_ << '"' << workload << "\",\"" << what << "\"," << value << std::endl;
    std::cout << workload << ": " << what << ": " << value << std::endl;
}

void Harness::note_(const std::string& workload, const std::string& operation, const Tool& tool, double seconds,
                    double fastest, double slowest, int rounds)
{
    measurements_ << '"' << workload << "\",\"" << operation << "\",\"" << tool.name << "\"," << nameOf(tool.role)
                  << ',' << seconds << ',' << fastest << ',' << slowest << ',' << rounds << std::endl;
}

void Harness::check(bool holds, const std::string& what)
{
    if (holds)
        return;
    failed_ = true;
    std::cerr << "Does not hold: " << what << std::endl;
}
