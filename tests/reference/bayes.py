#!/usr/bin/env python3
"""Writes bayes.{iris,wine,cancer}.csv and bayes.binomial.csv: class scores, expected costs and probabilities.

Needs Debian's python3-sklearn and python3-scipy (written with 1.2.1 and 1.10.1). The first three tables hold training
patterns, the queries of which the discriminant is least certain and, for each query:

posterior  the posteriors by QuadraticDiscriminantAnalysis, which divides sums of squares by the count - 1 as well;
           its priors are the categories' shares of the training patterns
cost       the expected costs of deciding for each category where all measurements are independent normal ones, by
           plain formulas in NumPy's long double, with the frequencies and costs of the table

bayes.binomial.csv holds values between 0 and M, the number of trials n that the method of moments gives for them,
p = mean / M, and log probabilities of numbers of successes by scipy.stats.binom, which agrees to 1e-8 with the sum
of logarithms in long double that is written.

Data: iris, wine and breast cancer as shipped with scikit-learn, which took them from the UCI Machine Learning
Repository (R. A. Fisher, Iris, 1936; M. Forina et al., Wine, 1991; W. Wolberg, O. Mangasarian, N. Street and
W. Street, Breast Cancer Wisconsin (Diagnostic), 1993). UCI publishes them under the Creative Commons Attribution 4.0
International licence (CC BY 4.0). The tables take subsets of them, otherwise unchanged.
"""

import os
import sys

FOLDER = os.path.dirname(os.path.abspath(__file__))
sys.path[:] = [path for path in sys.path if path != FOLDER]  # its random.py is not the one that numpy wants

import numpy
import scipy
import sklearn
from scipy.stats import binom
from sklearn import datasets
from sklearn.discriminant_analysis import QuadraticDiscriminantAnalysis


def number(value):
    return repr(int(value)) if value == int(value) else repr(float(value))


def line(out, *values):
    out.write(",".join(v if isinstance(v, str) else number(v) for v in values) + "\n")


def independent_costs(train, labels, queries, frequencies, costs):
    """costs[t][d]: of deciding for d where t is true."""
    scores = numpy.empty((len(queries), len(frequencies)), numpy.longdouble)
    for label, frequency in enumerate(frequencies):
        own = train[labels == label].astype(numpy.longdouble)
        mean = own.sum(axis=0) / len(own)
        variance = ((own - mean) ** 2).sum(axis=0) / (len(own) - 1)
        terms = -(queries - mean) ** 2 / (2 * variance) - numpy.log(2 * numpy.longdouble(numpy.pi) * variance) / 2
        scores[:, label] = terms.sum(axis=1) + numpy.log(numpy.longdouble(frequency))
    shares = numpy.exp(scores - scores.max(axis=1, keepdims=True))
    shares /= shares.sum(axis=1, keepdims=True)
    return shares @ numpy.asarray(costs, numpy.longdouble)


def write(name, data, queries, frequencies, costs):
    train, labels = data.data[0::2], data.target[0::2]
    discriminant = QuadraticDiscriminantAnalysis().fit(train, labels)
    others = data.data[1::2]
    certainty = discriminant.predict_proba(others).max(axis=1)
    query = others[numpy.sort(numpy.argsort(certainty, kind="stable")[:queries])]
    with open(os.path.join(FOLDER, "bayes.%s.csv" % name), "w", newline="\n") as out:
        out.write("# Made by bayes.py with scikit-learn %s; data: UCI, CC BY 4.0, see there.\n" % sklearn.__version__)
        out.write("# train,label,measurements / frequency,label,frequency / misclassification,true,decided,cost\n")
        out.write("# query,measurements, each followed by posterior,of each label and cost,of each label\n")
        for pattern, label in zip(train, labels):
            line(out, "train", label, *pattern)
        for label, frequency in enumerate(frequencies):
            line(out, "frequency", label, frequency)
        for true, row in enumerate(costs):
            for decided, cost in enumerate(row):
                if true != decided:
                    line(out, "misclassification", true, decided, cost)
        posteriors = discriminant.predict_proba(query)
        expected = independent_costs(train, labels, query, frequencies, costs)
        for i in range(len(query)):
            line(out, "query", *query[i])
            line(out, "posterior", *posteriors[i])
            line(out, "cost", *expected[i])


def log_probability(k, n, p):
    """The plain sums, in long double."""
    ln_factorial = [numpy.log(numpy.arange(2, m + 1, dtype=numpy.longdouble)).sum() for m in (n, k, n - k)]
    p = numpy.longdouble(p)
    result = ln_factorial[0] - ln_factorial[1] - ln_factorial[2] + k * numpy.log(p) + (n - k) * numpy.log1p(-p)
    assert abs(binom.logpmf(k, n, float(p)) - result) < 1e-8 * max(1, abs(result)), (k, n, p)
    return result


def write_binomial():
    generator = numpy.random.default_rng(20240608)
    with open(os.path.join(FOLDER, "bayes.binomial.csv"), "w", newline="\n") as out:
        out.write("# Made by bayes.py with SciPy %s.\n" % scipy.__version__)
        out.write("# train,M,n,values / query,k M / n,log probability of k successes\n")
        for n, p, maximum, count in ((1, 0.5, 1, 30), (4, 0.3, 2, 30), (10, 0.7, 255, 60), (40, 0.5, 1, 60),
                                     (1000, 0.2, 10, 60), (70000, 0.4, 3, 60), (200000, 0.9, 1, 60)):
            values = generator.binomial(n, p, count) * (maximum / n)
            share = values / maximum
            trials = share.mean() * (1 - share.mean()) / share.var(ddof=1) + 0.5
            assert abs(trials - round(trials)) > 1e-6  # where rounding would decide
            trials = int(trials)
            line(out, "train", maximum, trials, *values)
            for k in sorted({0, trials // 3, trials // 2, trials - 1, trials}):
                line(out, "query", k * maximum / trials, log_probability(k, trials, share.mean()))


write("iris", datasets.load_iris(), 25, (0.5, 2, 1), ((0, 1, 3), (0.25, 0, 10), (7, 2, 0)))
write("wine", datasets.load_wine(), 25, (3, 1, 0.125), ((0, 5, 1), (2, 0, 2), (1, 20, 0)))
write("cancer", datasets.load_breast_cancer(), 25, (0.01, 0.99), ((0, 50), (1, 0)))
write_binomial()
