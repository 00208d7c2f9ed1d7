#!/usr/bin/env python3
"""Writes incompleteTraining.csv: patterns with gaps (nan) of one category, and their mean and covariance of maximum
likelihood.

Needs PyPI's numpy, scipy and scikit-learn (written with 2.4.6, 1.17.1 and 1.9.1). 20,000 steps of the EM algorithm by the
textbook's formulas with explicit inverses; scipy.stats.multivariate_normal confirms that the likelihood of the measurements
that are there falls when any mean or covariance moves by a thousandth of the deviations, up or down. After the patterns
stand "mean" and the rows of "covariance" (divisor count).

Data: category 1 of wine as shipped with scikit-learn, measurements 0, 5, 6, 9 and 12, which took it from the UCI Machine
Learning Repository (M. Forina et al., Wine, 1991), where it is published under the Creative Commons Attribution 4.0
International licence (CC BY 4.0). Three values in ten are taken out; otherwise unchanged.
"""

import os
import sys

FOLDER = os.path.dirname(os.path.abspath(__file__))
sys.path[:] = [path for path in sys.path if path != FOLDER]  # its random.py is not the one that numpy wants

import numpy
from scipy.stats import multivariate_normal
from sklearn.datasets import load_wine


def log_likelihood(data, mean, covariance):
    total = 0.0
    for row in data:
        has = ~numpy.isnan(row)
        total += multivariate_normal.logpdf(row[has], mean[has], covariance[numpy.ix_(has, has)])
    return total


def confirm(data, mean, covariance):
    best = log_likelihood(data, mean, covariance)
    deviation = numpy.sqrt(numpy.diag(covariance))
    for i in range(len(mean)):
        for sign in (-1e-3, 1e-3):
            moved = mean.copy()
            moved[i] += sign * deviation[i]
            assert log_likelihood(data, moved, covariance) < best
            for j in range(i + 1):
                other = covariance.copy()
                other[i, j] += sign * deviation[i] * deviation[j]
                other[j, i] = other[i, j]
                assert log_likelihood(data, mean, other) < best


def main():
    wine = load_wine()
    data = wine.data[wine.target == 1][:, [0, 5, 6, 9, 12]].copy()
    data[numpy.random.default_rng(3).random(data.shape) < 0.3] = numpy.nan
    data = data[~numpy.isnan(data).all(axis=1)]
    mean, covariance = numpy.nanmean(data, axis=0), numpy.diag(numpy.nanvar(data, axis=0))
    for _ in range(20000):
        filled, rest = data.copy(), numpy.zeros_like(covariance)
        for row in filled:
            gaps = numpy.isnan(row)
            if not gaps.any():
                continue
            factor = covariance[numpy.ix_(gaps, ~gaps)] @ numpy.linalg.inv(covariance[numpy.ix_(~gaps, ~gaps)])
            row[gaps] = mean[gaps] + factor @ (row[~gaps] - mean[~gaps])
            rest[numpy.ix_(gaps, gaps)] += covariance[numpy.ix_(gaps, gaps)] - factor @ covariance[numpy.ix_(~gaps, gaps)]
        mean = filled.mean(axis=0)
        covariance = ((filled - mean).T @ (filled - mean) + rest) / len(data)
    confirm(data, mean, covariance)
    rows = [("pattern", row) for row in data] + [("mean", mean)] + [("covariance", row) for row in covariance]
    with open(os.path.join(FOLDER, "incompleteTraining.csv"), "w") as out:
        for name, values in rows:
            out.write(",".join([name] + [repr(float(value)) for value in values]) + "\n")


main()
