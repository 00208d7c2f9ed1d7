#!/usr/bin/env python3
"""Prints numerics/tkNMElementaryTables.h: `scripts/elementary_tables.py | clang-format`. Needs mpmath."""
import mpmath

mpmath.mp.prec = 240
LN2 = mpmath.log(2)


def hex_of(x):
    """The double nearest to x."""
    return float(mpmath.mpf(x)).hex().replace(".0000000000000p", "p")


def rounded(x, bits):
    """The multiple of 2^-bits nearest to x."""
    return mpmath.mpf(int(mpmath.nint(mpmath.ldexp(x, bits)))) / 2**bits


def pair_of(x, bits=None):
    """A double near x, a multiple of 2^-bits if so many are given, and the double nearest to the rest."""
    high = mpmath.mpf(float(x)) if bits is None else rounded(x, bits)
    return f"{hex_of(high)}, {hex_of(x - high)}"


def polynomial(f, degree, radius):
    """Coefficients, lowest first, of the polynomial that equals f at the Chebyshev nodes of [-radius, radius]."""
    count = degree + 1
    nodes = [radius * mpmath.cos(mpmath.pi * (2 * i + 1) / (2 * count)) for i in range(count)]
    powers = mpmath.matrix(count, count)
    for i, node in enumerate(nodes):
        for j in range(count):
            powers[i, j] = node**j
    return list(mpmath.lu_solve(powers, mpmath.matrix([f(node) for node in nodes])))


def array(comment, declaration, elements):
    print(f"/// {comment}\ninline constexpr double {declaration} = {{")
    print(",\n".join(elements) + "};\n")


print("""// Written by scripts/elementary_tables.py, to be changed there.
#ifndef NUMERICS_TKNMELEMENTARYTABLES_H
#define NUMERICS_TKNMELEMENTARYTABLES_H

/// Constants of tkNMElementary. A pair is a double and the rest that it leaves, rounded to a double.
namespace tkNMElementaryTables
{""")

print("""/// Added to a double of magnitude below 2^51, it rounds this to an integer, which then stands in the lowest bits.
inline constexpr double integerShift = 0x1.8p52;

/// e^x is a normal number below this magnitude of x.
inline constexpr double normalPowers = 708.0;

/// Exponents y for which x^y is 0, 1 or infinite for every x > 0 but 1, and for which it is 1 for every x > 0.
inline constexpr double hugeExponent = 0x1p65;
inline constexpr double tinyExponent = 0x1p-65;

/// Added to the bits of a double, it carries into the exponent from a fraction of 53.5 / 128 on, near that of 2^(1/2).
inline constexpr unsigned long long octaveCarry = 149ULL << 44;
""")

steps = 128  # per octave, in both tables
step = LN2 / steps
print(f"inline constexpr double stepsPerUnit = {hex_of(1 / step)}; // {steps} / ln 2")
# A multiple of the first by up to 18 bits is exact.
print(f"inline constexpr double step[2] = {{{pair_of(step, 42)}}}; // ln 2 / {steps}")
print(f"inline constexpr double ln2[2] = {{{pair_of(LN2, 42)}}};\n")

array(f"2^(j / {steps}) as a pair, for j = 0, ..., {steps - 1}.", f"powers[{steps}][2]",
      [f"{{{pair_of(mpmath.mpf(2) ** (mpmath.mpf(j) / steps))}}}" for j in range(steps)])

rows = []
for j in range(steps + 1):
    centre = 1 + mpmath.mpf(j) / steps
    c = rounded(1 / centre, 10)
    octave = 1 if centre * centre > 2 else 0
    rows.append(f"{{{hex_of(c)}, {pair_of(-mpmath.log(c) - octave * LN2, 42)}}}")
array(f"c, a multiple of 2^-10 near 1 / (1 + j / {steps}), and as a pair -ln c, or -ln(2 c) from j = 54 on.",
      f"reciprocals[{steps + 1}][3]", rows)


def series(x, first, shift):
    """sum over k >= first of shift(k) x^(k - first)"""
    return mpmath.nsum(lambda k: shift(int(k)) * x ** (int(k) - first), [first, first + 30])


near_exp = mpmath.ldexp(step, -1) + mpmath.mpf(2) ** -15  # what is added for a power
near_log = mpmath.mpf(2) ** -8 + mpmath.mpf(2) ** -11
ln_term = lambda k: mpmath.mpf((-1) ** (k + 1)) / k
array("(exp(r) - 1 - r) / r^2 for |r| <= ln 2 / 256 + 2^-15, lowest power first.", "expTerms[]",
      [hex_of(a) for a in polynomial(lambda r: series(r, 2, lambda k: 1 / mpmath.factorial(k)), 3, near_exp)])
array("(ln(1 + r) - r) / r^2 for |r| <= 2^-8 + 2^-11.", "lnTerms[]",
      [hex_of(a) for a in polynomial(lambda r: series(r, 2, ln_term), 5, near_log)])
array("(ln(1 + r) - r + r^2 / 2) / r^3 for |r| <= 2^-8 + 2^-11.", "lnPairTerms[]",
      [hex_of(a) for a in polynomial(lambda r: series(r, 3, ln_term), 6, near_log)])

print("} // namespace tkNMElementaryTables\n\n#endif")
