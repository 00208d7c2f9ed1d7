#ifndef FOUNDATION_TKPAIR_H
#define FOUNDATION_TKPAIR_H

/// Two values of one type.
template <class T>
struct tkPair
{
    tkPair() = default;
    tkPair(const T& firstValue, const T& secondValue) : first(firstValue), second(secondValue) {}

    bool operator==(const tkPair& other) const { return first == other.first && second == other.second; }
    bool operator!=(const tkPair& other) const { return !(*this == other); }

    T first{};
    T second{};
};

#endif
