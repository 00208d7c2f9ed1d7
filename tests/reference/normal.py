#!/usr/bin/env python3
"""Prints normal.txt: statistics and log densities of normal distributions, in NumPy's long double.

Each case is: "case D N Q"; N training patterns of D measurements, one a line; the means; the variances; Q lines
of a pattern, its log density, and the log density of the marginal over its measurements of even index.
SciPy, whose doubles lose digits to the condition of the covariance, must agree to 1e-7.

Run as python3 -P normal.py > normal.txt: another script beside this one has the name of a standard module.
"""
import numpy as np
from scipy.stats import multivariate_normal

rng = np.random.default_rng(20240607)


def line(values):
    print(*(repr(float(v)) for v in values))


def log_density(q, mean, covariance):
    """By Cholesky's factor and forward substitution, in the precision of the arguments."""
    d = len(mean)
    factor = np.zeros((d, d), np.longdouble)
    y = np.zeros(d, np.longdouble)
    for i in range(d):
        for j in range(i + 1):
            rest = covariance[i, j] - factor[i, :j] @ factor[j, :j]
            factor[i, j] = np.sqrt(rest) if i == j else rest / factor[j, j]
        y[i] = (q[i] - mean[i] - factor[i, :i] @ y[:i]) / factor[i, i]
    ln_two_pi = np.log(2 * np.longdouble("3.14159265358979323846264338327950288"))
    result = -(d * ln_two_pi + y @ y) / 2 - np.log(np.diag(factor)).sum()
    peer = multivariate_normal(mean.astype(float), covariance.astype(float)).logpdf(q.astype(float))
    assert abs(peer - result) < 1e-7 * abs(result), (peer, result)
    return result


for d in (1, 2, 3, 4, 5, 7, 8, 9, 12, 16, 17, 24, 33, 40):
    n = d + 12
    scale = 10.0 ** rng.integers(-1, 2, d)
    x = np.round(rng.normal(size=(n, d)) @ (np.eye(d) + 0.3 * rng.normal(size=(d, d))) + 3 * rng.normal(size=d), 2)
    x = (x * scale).astype(np.longdouble)
    mean = x.sum(axis=0) / n
    covariance = (x - mean).T @ (x - mean) / (n - 1)
    even = np.arange(0, d, 2)
    print("case", d, n, 4)
    for row in x:
        line(row)
    line(mean)
    line(np.diag(covariance))
    for q in mean + rng.normal(size=(4, d)) * np.sqrt(np.diag(covariance)):
        q = q.astype(float).astype(np.longdouble)
        marginal = log_density(q[even], mean[even], covariance[np.ix_(even, even)])
        line([*q, log_density(q, mean, covariance), marginal])
