#!/usr/bin/env python3
"""Writes tails.csv: natural logarithms of tail probabilities, by mpmath with 60 digits.

Needs PyPI's mpmath (written with 1.4.1). On each line stand a word, the arguments as doubles, and the logarithm:

f            x, degrees of freedom of numerator and denominator: P(F >= x)
chisquared   h, m: the probability that a chi-squared variable of 2 m degrees of freedom is at least 2 h
binomial     k, n, p: P(K >= k) of n trials

Run as python3 -P tails.py: another script beside this one has the name of a standard module. Each tail is an integral
of the density, or a sum with positive terms, and no incomplete function of mpmath's, whose convergence is not sure.
Logarithms below -20,000 and above -1e-300 are left out.
"""

import os

from mpmath import beta, exp, factorial, inf, log, log1p, mp, mpf, quad, workdps

mp.dps = 60
FOLDER = os.path.dirname(os.path.abspath(__file__))


def ln_incomplete_beta(w, v, b, a):
    """ln I_w(b, a), by the hypergeometric series with positive terms of the smaller tail."""
    if w > b / (a + b):
        return log1p(-exp(ln_incomplete_beta(v, w, a, b)))
    term = total = mpf(1)
    j = 0
    while term > total * mpf(10) ** -50:
        term *= (a + b + j) / (b + 1 + j) * w
        total += term
        j += 1
    return b * log(w) + a * log(v) - log(b) - log(beta(b, a)) + log(total)


def ln_f(x, d1, d2):
    x, a, b = mpf(x), mpf(d1) / 2, mpf(d2) / 2
    w, v = b / (b + a * x), a * x / (b + a * x)
    result = ln_incomplete_beta(w, v, b, a)
    if 1 <= a <= 50 and 1 <= b <= 50:  # with w e^-s for the variable the integrand is smooth
        integral = quad(lambda s: exp(-b * s) * (1 - w * exp(-s)) ** (a - 1), list(range(0, 40, 2)) + [inf])
        assert abs(b * log(w) + log(integral / beta(a, b)) - result) < mpf(10) ** -20 * (1 - result), (x, d1, d2)
    return result


@workdps(360)  # for tails that differ from 1 by as little as 1e-300
def ln_chi_squared(h, m):
    h = mpf(h)
    term = total = mpf(1)
    for j in range(1, m):
        term *= h / j
        total += term
    return log(total) - h


@workdps(360)
def ln_binomial(k, n, p):
    p = mpf(p)
    return log(sum(factorial(n) / factorial(j) / factorial(n - j) * p ** j * (1 - p) ** (n - j)
                   for j in range(k, n + 1)))


def main():
    rows = []
    degrees = [1, 2, 3, 5.5, 10, 64, 100, 1000, 10000]
    for d1 in degrees:
        for d2 in degrees:
            for x in (1e-6, 0.1, 0.5, 0.9, 1.0, 1.1, 1.5, 2.0, 3.0, 10.0, 100.0, 1e4, 1e20):
                rows.append(("f", [x, d1, d2], ln_f(x, d1, d2)))
    for x in (1e100, 1e300):
        rows.append(("f", [x, 3, 2], ln_f(x, 3, 2)))
        rows.append(("f", [x, 8, 40], ln_f(x, 8, 40)))
    for m in (1, 2, 3, 10, 37, 200, 5000):
        for share in (1e-6, 0.1, 0.7, 0.99, 1.0, 1.01, 1.5, 3.0, 20.0, 1000.0):
            rows.append(("chisquared", [share * m, m], ln_chi_squared(share * m, m)))
    for n in (1, 2, 10, 77, 1000):
        for p in (1e-6, 0.02, 0.3, 0.5, 0.9, 0.999):
            for k in sorted({1, 2, n // 3, n // 2, n // 2 + 1, n - 1, n} - {0}):
                if k <= n:
                    rows.append(("binomial", [k, n, p], ln_binomial(k, n, p)))
    with open(os.path.join(FOLDER, "tails.csv"), "w") as out:
        for word, arguments, result in rows:
            if -20000 < result < -mpf(10) ** -300:
                out.write(",".join([word] + [repr(float(each)) for each in arguments] + [mp.nstr(result, 20)]) + "\n")


main()
