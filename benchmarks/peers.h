#ifndef BENCHMARKS_PEERS_H
#define BENCHMARKS_PEERS_H

#include "harness.h"
#include "workloads.h"

#include <string>
#include <vector>

/// Another library. What it has none of, it adds no tools for. One that was not found when the benchmarks were
/// configured does not register.
class Peer
{
public:
    explicit Peer(const std::string& name);
    virtual ~Peer() = default;

    const std::string& name() const { return name_; }

    /// The k nearest rows in the norm of `order`, one query at a time.
    virtual void addNearest(std::vector<Tool>&, const Table& /*rows*/, const Table& /*queries*/, long /*k*/,
                            double /*order*/)
    {
    }

    /// Classification by a normal distribution for each class, and its training. The measurements are taken as
    /// dependent on one another, or as independent.
    virtual void addNormalRun(std::vector<Tool>&, const Table& /*training*/, const Table& /*queries*/,
                              bool /*dependent*/)
    {
    }
    virtual void addNormalTraining(std::vector<Tool>&, const Table& /*training*/, bool /*dependent*/) {}

    /// A table of trapezoids: rule r asks feature f to be in the one with the corners trapezoids[r * features + f].
    struct Trapezoid
    {
        double corners[4];
    };
    virtual void addRules(std::vector<Tool>&, const std::vector<Trapezoid>& /*trapezoids*/, long /*features*/,
                          double /*threshold*/, const std::vector<std::vector<double>>& /*inputs*/)
    {
    }

    /// A complete tree of `depth` levels: level l asks whether measurement l is greater than 0.5.
    virtual void addTree(std::vector<Tool>&, long /*depth*/, const Table& /*queries*/) {}

private:
    std::string name_;
};

/// Those that were found.
const std::vector<Peer*>& peers();

#endif
