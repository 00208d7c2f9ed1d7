#ifndef NUMERICS_TKNMLANES_H
#define NUMERICS_TKNMLANES_H

#include <cstddef>
#include <cstring>

// Wider instructions than the target's own are used where the compiler can be told to and the processor has them.
// Contraction is off for the whole library, so that a wider level rounds exactly where the plain one does.
#if defined(__GNUC__) && defined(__x86_64__)
#define TK_WIDER_LEVELS 1
#else
#define TK_WIDER_LEVELS 0
#endif

#if defined(__GNUC__)
#define TK_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define TK_ALWAYS_INLINE inline
#endif

/// Eight doubles that are computed side by side; for source files only, since what they are depends on the compiler.
#if defined(__GNUC__)
using Lanes = double __attribute__((vector_size(64)));
#else
struct Lanes
{
    double lanes[8];
    double operator[](int l) const { return lanes[l]; }
    double& operator[](int l) { return lanes[l]; }
};
inline Lanes operator+(const Lanes& a, const Lanes& b)
{
    Lanes sum;
    for (int l = 0; l < 8; ++l)
        sum.lanes[l] = a.lanes[l] + b.lanes[l];
    return sum;
}
inline Lanes operator-(const Lanes& a, const Lanes& b)
{
    Lanes difference;
    for (int l = 0; l < 8; ++l)
        difference.lanes[l] = a.lanes[l] - b.lanes[l];
    return difference;
}
inline Lanes operator/(const Lanes& a, const Lanes& b)
{
    Lanes quotient;
    for (int l = 0; l < 8; ++l)
        quotient.lanes[l] = a.lanes[l] / b.lanes[l];
    return quotient;
}
inline Lanes operator*(const Lanes& a, const Lanes& b)
{
    Lanes product;
    for (int l = 0; l < 8; ++l)
        product.lanes[l] = a.lanes[l] * b.lanes[l];
    return product;
}
inline Lanes operator*(const Lanes& a, double b)
{
    Lanes product;
    for (int l = 0; l < 8; ++l)
        product.lanes[l] = a.lanes[l] * b;
    return product;
}
#endif

// No Lanes are passed or returned by value: how that is done depends on the instructions a function may use.
TK_ALWAYS_INLINE void loadLanes(Lanes& lanes, const double* elements)
{
    std::memcpy(&lanes, elements, sizeof lanes);
}
TK_ALWAYS_INLINE void storeLanes(const Lanes& lanes, double* elements)
{
    std::memcpy(elements, &lanes, sizeof lanes);
}

/// The lanes before `first` become 0.0, whatever they held.
TK_ALWAYS_INLINE void keepLanesFrom(Lanes& lanes, int first)
{
#if defined(__GNUC__)
    using Words = long long __attribute__((vector_size(64)));
    alignas(64) static constexpr long long kept[8][8] = {
        {-1, -1, -1, -1, -1, -1, -1, -1}, {0, -1, -1, -1, -1, -1, -1, -1}, {0, 0, -1, -1, -1, -1, -1, -1},
        {0, 0, 0, -1, -1, -1, -1, -1},    {0, 0, 0, 0, -1, -1, -1, -1},    {0, 0, 0, 0, 0, -1, -1, -1},
        {0, 0, 0, 0, 0, 0, -1, -1},       {0, 0, 0, 0, 0, 0, 0, -1}};
    Words mask;
    std::memcpy(&mask, kept[first], sizeof mask);
    lanes = reinterpret_cast<Lanes>(reinterpret_cast<Words>(lanes) & mask);
#else
    for (int l = 0; l < first; ++l)
        lanes[l] = 0.0;
#endif
}

#endif
