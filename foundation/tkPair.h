#ifndef FOUNDATION_TKPAIR_H
#define FOUNDATION_TKPAIR_H

/// Two values of one type, in their order; what they mean is said where a pair is taken.
///
/// A plain value: copies are independent, and operations throw only what those of T throw.
template <class T>
struct tkPair
{
    /// Both value-initialised: 0 for numbers.
    tkPair() = default;
    /// Copies both.
    tkPair(const T& firstValue, const T& secondValue) : first(firstValue), second(secondValue) {}

    /// Equality of both by the operator == of T: a NaN equals nothing.
    bool operator==(const tkPair& other) const { return first == other.first && second == other.second; }
    bool operator!=(const tkPair& other) const { return !(*this == other); }

    /// In the order of the constructor's arguments.
    T first{};
    T second{};
};

#endif
