#include "peers.h"
#include "workloads.h"

#include <exception>
#include <iostream>
#include <string>

/// Usage: benchmarks [--quick] DIRECTORY [WORKLOADS...]
int main(int argc, char** argv)
{
    struct Workload
    {
        const char* name;
        void (*run)(Harness&);
    };
    const Workload workloads[] = {
        {"KNN", &nearestNeighbours},
        {"GRID-30", [](Harness& harness) { neighbourGrid(harness, 30); }},
        {"GRID-100", [](Harness& harness) { neighbourGrid(harness, 100); }},
        {"GRID-400", [](Harness& harness) { neighbourGrid(harness, 400); }},
        {"GRID-1000", [](Harness& harness) { neighbourGrid(harness, 1000); }},
        {"GRID-4000", [](Harness& harness) { neighbourGrid(harness, 4000); }},
        {"GRID-10000", [](Harness& harness) { neighbourGrid(harness, 10000); }},
        {"GRID-100000", [](Harness& harness) { neighbourGrid(harness, 100000); }},
        {"LATENCY", &latencies},
        {"BASELINE", &neighboursBeforeAvx2},
        {"HOSTILE", &hostileNeighbours},
        {"BAYES", &normalDistributions},
        {"INVALID", &invalidMeasurements},
        {"RULES", &ruleTables},
        {"TREE", &decisionTrees},
        {"RESULT", &results},
        {"ASSESSMENT", &assessments},
        {"ARCHIVE", &archives},
        {"KERNELS", &kernels},
    };
    std::vector<std::string> arguments(argv + 1, argv + argc);
    const bool quick = !arguments.empty() && arguments.front() == "--quick";
    if (quick)
        arguments.erase(arguments.begin());
    if (arguments.empty())
    {
        std::cerr << "Usage: " << argv[0] << " [--quick] DIRECTORY [WORKLOADS...]\n";
        return 2;
    }
    try
    {
        std::cout << "Peers:";
        for (const Peer* peer : peers())
            std::cout << ' ' << peer->name();
        std::cout << std::endl;
        Harness harness(quick, arguments.front());
        const std::vector<std::string> chosen(arguments.begin() + 1, arguments.end());
        for (const Workload& workload : workloads)
        {
            bool wanted = chosen.empty();
            for (const std::string& name : chosen)
                wanted = wanted || name == workload.name;
            if (wanted)
                workload.run(harness);
        }
        return harness.failed() ? 1 : 0;
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
