#ifndef NUMERICS_TKNMNEIGHBORLIST_H
#define NUMERICS_TKNMNEIGHBORLIST_H

#include <algorithm>
#include <limits>

/// The k nearest of the rows offered to it in order, nearest first: what "the nearest neighbours" are by
/// definition where distances are equal or no numbers.
///
/// A full list turns away a distance that is not below its last one, so that the earlier row wins there; a row
/// that enters stands ahead of those at the same distance. A NaN distance is never turned away and enters at the
/// front: the comparisons are written for that.
class tkNMNeighborList
{
public:
    /// The list stands in the caller's memory for k entries each; *requires* clear() before use.
    tkNMNeighborList(long k, long* indices, double* distances) : k_(k), indices_(indices), distances_(distances) {}

    void clear()
    {
        found_ = 0;
        std::fill(distances_, distances_ + k_, std::numeric_limits<double>::infinity());
    }

    /// Offers a row. Takes up to k steps if it enters.
    void add(long index, double distance)
    {
        if (found_ >= k_ && distance >= distances_[k_ - 1])
            return;
        long pos = 0;
        while (distance > distances_[pos])
            ++pos;
        if (found_ < k_)
            ++found_;
        for (long j = found_ - 1; j > pos; --j)
        {
            indices_[j] = indices_[j - 1];
            distances_[j] = distances_[j - 1];
        }
        indices_[pos] = index;
        distances_[pos] = distance;
    }

    long size() const { return found_; }

private:
    long k_;
    long found_ = 0;
    long* indices_;
    double* distances_;
};

#endif
