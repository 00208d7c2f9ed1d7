#ifndef FOUNDATION_TKPAIR_H
#define FOUNDATION_TKPAIR_H

/// Two values of one type, in their order; what they mean is said where a pair is taken. Both are value-initialised
/// (0 for numbers) at first.
template <class T>
struct tkPair
{
    tkPair() = default;
    tkPair(const T& firstValue, const T& secondValue) : first(firstValue), second(secondValue) {}

    /// Equality of both by the operator == of T: a NaN equals nothing.
    bool operator==(const tkPair& other) const { return first == other.first && second == other.second; }
    bool operator!=(const tkPair& other) const { return !(*this == other); }

    T first{};
    T second{};
};

#endif
