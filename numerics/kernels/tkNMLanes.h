#ifndef NUMERICS_KERNELS_TKNMLANES_H
#define NUMERICS_KERNELS_TKNMLANES_H

#include <cstddef>
#include <cstring>

#if defined(__GNUC__)
#define TK_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define TK_ALWAYS_INLINE inline
#endif

/// A vector register; wider types than the target has are spilled to the stack.
///
/// For source files only: the types exist where the compiler has vectors, elsewhere only those of one element.
#if defined(__GNUC__)
template <class Element, std::size_t count>
struct RegisterOf
{
    typedef Element Type __attribute__((vector_size(count * sizeof(Element))));
};
#else
template <class Element, std::size_t count>
struct RegisterOf;
#endif
template <class Element>
struct RegisterOf<Element, 1>
{
    using Type = Element;
};

/// The widest register of doubles that the target has without being told to: two where the compiler has vectors, which
/// are SSE2's on x86-64 and NEON's on 64-bit ARM.
#if defined(__GNUC__)
constexpr std::size_t plainWidth = 2;
#else
constexpr std::size_t plainWidth = 1;
#endif

// None are passed or returned by value: how that is done depends on the instructions a function may use.
template <class Register, class Element>
TK_ALWAYS_INLINE void loadRegister(Register& lanes, const Element* elements)
{
    std::memcpy(&lanes, elements, sizeof lanes);
}
template <class Register, class Element>
TK_ALWAYS_INLINE void storeRegister(const Register& lanes, Element* elements)
{
    std::memcpy(elements, &lanes, sizeof lanes);
}

/// Copies fewer than eight doubles, quicker than a call of memcpy does.
TK_ALWAYS_INLINE void copyFew(const double* from, std::size_t count, double* to)
{
    if (count & 4)
    {
        std::memcpy(to, from, 4 * sizeof(double));
        from += 4;
        to += 4;
    }
    if (count & 2)
    {
        std::memcpy(to, from, 2 * sizeof(double));
        from += 2;
        to += 2;
    }
    if (count & 1)
        *to = *from;
}

/// Eight doubles in registers of `width` each.
template <std::size_t width>
struct LanesOf
{
    using Register = typename RegisterOf<double, width>::Type;
    static constexpr std::size_t count = 8 / width;

    Register parts[count];

    TK_ALWAYS_INLINE void clear()
    {
        for (Register& part : parts)
            part = Register{};
    }
    TK_ALWAYS_INLINE void load(const double* elements)
    {
        for (std::size_t i = 0; i < count; ++i)
            loadRegister(parts[i], elements + i * width);
    }
    TK_ALWAYS_INLINE void store(double* elements) const
    {
        for (std::size_t i = 0; i < count; ++i)
            storeRegister(parts[i], elements + i * width);
    }
    TK_ALWAYS_INLINE void add(double b)
    {
        for (std::size_t i = 0; i < count; ++i)
            parts[i] = parts[i] + b;
    }
    TK_ALWAYS_INLINE void multiply(const LanesOf& b)
    {
        for (std::size_t i = 0; i < count; ++i)
            parts[i] = parts[i] * b.parts[i];
    }
    TK_ALWAYS_INLINE void multiply(double b)
    {
        for (std::size_t i = 0; i < count; ++i)
            parts[i] = parts[i] * b;
    }
    TK_ALWAYS_INLINE void divide(double b)
    {
        for (std::size_t i = 0; i < count; ++i)
            parts[i] = parts[i] / b;
    }
    TK_ALWAYS_INLINE void addProduct(const LanesOf& a, double b)
    {
        for (std::size_t i = 0; i < count; ++i)
            parts[i] = parts[i] + a.parts[i] * b;
    }
    TK_ALWAYS_INLINE void addProducts(const LanesOf& a, const LanesOf& b)
    {
        for (std::size_t i = 0; i < count; ++i)
            parts[i] = parts[i] + a.parts[i] * b.parts[i];
    }
    TK_ALWAYS_INLINE void subtractProduct(const LanesOf& a, double b)
    {
        for (std::size_t i = 0; i < count; ++i)
            parts[i] = parts[i] - a.parts[i] * b;
    }
    TK_ALWAYS_INLINE void addSquare(const LanesOf& a)
    {
        for (std::size_t i = 0; i < count; ++i)
            parts[i] = parts[i] + a.parts[i] * a.parts[i];
    }
    /// The lanes before `first` become 0.0, whatever they held.
    TK_ALWAYS_INLINE void keepFrom(std::size_t first)
    {
        if constexpr (width == 1)
            for (std::size_t l = 0; l < first; ++l)
                parts[l] = 0.0;
        else
        {
            using Bits = typename RegisterOf<long long, width>::Type;
            alignas(64) static constexpr long long kept[8][8] = {
                {-1, -1, -1, -1, -1, -1, -1, -1}, {0, -1, -1, -1, -1, -1, -1, -1}, {0, 0, -1, -1, -1, -1, -1, -1},
                {0, 0, 0, -1, -1, -1, -1, -1},    {0, 0, 0, 0, -1, -1, -1, -1},    {0, 0, 0, 0, 0, -1, -1, -1},
                {0, 0, 0, 0, 0, 0, -1, -1},       {0, 0, 0, 0, 0, 0, 0, -1}};
            for (std::size_t i = 0; i < count; ++i)
            {
                Bits mask;
                loadRegister(mask, kept[first] + i * width);
                parts[i] = reinterpret_cast<Register>(reinterpret_cast<Bits>(parts[i]) & mask);
            }
        }
    }
    /// Adds b to the lanes but one, and 0.0 to that.
    TK_ALWAYS_INLINE void addExcept(double b, std::size_t lane)
    {
        if constexpr (width == 1)
            for (std::size_t l = 0; l < 8; ++l)
                parts[l] += l == lane ? 0.0 : b;
        else
        {
            using Bits = typename RegisterOf<long long, width>::Type;
            static constexpr long long added[] = {-1, -1, -1, -1, -1, -1, -1, 0, -1, -1, -1, -1, -1, -1, -1};
            for (std::size_t i = 0; i < count; ++i)
            {
                Bits mask;
                loadRegister(mask, added + 7 - lane + i * width);
                parts[i] = parts[i] + reinterpret_cast<Register>(reinterpret_cast<Bits>(b - Register{}) & mask);
            }
        }
    }
    /// ((q_0 + q_4) + (q_2 + q_6)) + ((q_1 + q_5) + (q_3 + q_7)) of the lanes q.
    TK_ALWAYS_INLINE double sum() const
    {
        double q[8];
        store(q);
        return ((q[0] + q[4]) + (q[2] + q[6])) + ((q[1] + q[5]) + (q[3] + q[7]));
    }
    TK_ALWAYS_INLINE double operator[](std::size_t l) const
    {
        if constexpr (width == 1)
            return parts[l];
        else
            return parts[l / width][l % width];
    }
};

#endif
