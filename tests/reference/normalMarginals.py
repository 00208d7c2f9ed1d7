#!/usr/bin/env python3
"""Prints normalMarginals.txt: log densities of 1,000 marginals of repaired covariances, in 50 digits.

Each case is: "case D N Q"; N training patterns of D measurements, one a line; their reference deviations; Q lines of D
flags (1: valid), a pattern, and the log density of the marginal over its valid measurements. The covariance of each case
is singular, or nearly: no more patterns than measurements, measurements that determine others, or do up to some noise.

The computation is another one than the library's: eigenvalues by mpmath, and the covariance of the valid measurements
factored by itself.

Run as python3 -P normalMarginals.py > normalMarginals.txt: another script beside this one has the name of a standard
module. Needs mpmath.
"""
import random

from mpmath import cholesky_solve, det, diag, eigsy, log, matrix, mp, mpf, pi, sqrt

mp.dps = 50
rng = random.Random(20261122)


def repaired(patterns, references):
    """Mean, repaired covariance, the measurements with a term, and whether anything was altered."""
    n, d = len(patterns), len(patterns[0])
    terms = [j for j in range(d) if references[j] != 0.0]
    mean = [sum(mpf(x[j]) for x in patterns) / n for j in range(d)]
    covariance = matrix(d, d)
    for i in range(d):
        for j in range(d):
            covariance[i, j] = sum((x[i] - mean[i]) * (x[j] - mean[j]) for x in patterns) / max(n - 1, 1)
    deviation = [sqrt(covariance[j, j]) for j in range(d)]
    varying = [j for j in terms if deviation[j] > mpf(2) ** -52 * abs(mean[j])]
    result = matrix(d, d)
    for j in terms:
        if j not in varying:
            part = mpf(1) if n == 1 else mpf(2) ** -7
            result[j, j] = max(deviation[j], part * references[j]) ** 2
    floor = mpf(2) ** -28
    if n <= len(terms):
        floor = mpf(2) ** -(2 + (8 * (n - 1) // (len(terms) - 1) if len(terms) > 1 else 0))
    v = len(varying)
    altered = False
    if v:
        r = matrix(v, v)
        for a in range(v):
            for b in range(v):
                r[a, b] = covariance[varying[a], varying[b]] / (deviation[varying[a]] * deviation[varying[b]])
        values, vectors = eigsy(r)
        altered = min(values) < floor
        r = vectors * diag([max(value, floor) for value in values]) * vectors.T
        for a in range(v):
            for b in range(v):
                result[varying[a], varying[b]] = r[a, b] * deviation[varying[a]] * deviation[varying[b]]
    return mean, result, terms, altered


def log_marginal(mean, covariance, valid, x):
    if not valid:
        return mpf(0)
    part = matrix(len(valid), len(valid))
    rest = matrix(len(valid), 1)
    for a, i in enumerate(valid):
        rest[a] = x[i] - mean[i]
        for b, j in enumerate(valid):
            part[a, b] = covariance[i, j]
    square = (rest.T * cholesky_solve(part, rest))[0]
    return -(len(valid) * log(2 * pi) + log(det(part)) + square) / 2


def draw():
    """Patterns, a part of whose measurements depends on the others."""
    d = rng.randint(2, 8)
    n = rng.choice([rng.randint(1, d), rng.randint(d + 1, d + 8)])
    free = d if n <= d else rng.randint(1, d - 1)
    noise = rng.choice([0, 0, 1e-9, 1e-7, 1e-5])
    factors = [[rng.choice([-2, -1, 0, 1, 3]) for _ in range(free)] for _ in range(d - free)]
    patterns = []
    for _ in range(n):
        x = [round(rng.gauss(0, 1), 2) for _ in range(free)]
        x += [sum(f * v for f, v in zip(row, x)) + noise * rng.randint(-9, 9) for row in factors]
        patterns.append([float("%.12g" % v) for v in x])
    references = [round(rng.uniform(1, 3), 1) for _ in range(d)]
    if rng.random() < 0.3:  # constant in this category
        j = rng.randrange(d)
        for x in patterns:
            x[j] = 4.5
    if rng.random() < 0.2:  # the same everywhere
        j = rng.randrange(d)
        for x in patterns:
            x[j] = 7.25
        references[j] = 0.0
    order = rng.sample(range(d), d)
    scale = [10.0 ** rng.randint(-3, 3) if rng.random() < 0.3 else 1.0 for _ in range(d)]
    return ([[float("%.12g" % (x[j] * scale[j])) for j in order] for x in patterns],
            [float("%.12g" % (references[j] * scale[j])) for j in order])


def line(values):
    print(*(repr(float(v)).removesuffix(".0") for v in values))


cases = 0
while cases < 200:
    patterns, references = draw()
    mean, covariance, terms, altered = repaired(patterns, references)
    if not altered:
        continue
    cases += 1
    d = len(references)
    print("case", d, len(patterns), 5)
    for x in patterns:
        line(x)
    line(references)
    for _ in range(5):
        flags = [0] * d
        while sum(flags) in (0, d):
            flags = [rng.choice([0, 1, 1]) for _ in range(d)]
        x = [float("%.6g" % (v + rng.gauss(0, 1) * sqrt(covariance[j, j]))) for j, v in enumerate(mean)]
        valid = [j for j in terms if flags[j]]
        line(flags + x + [log_marginal(mean, covariance, valid, x)])
