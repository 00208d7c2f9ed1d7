#!/usr/bin/env python3
"""Writes assessment.csv: patterns with folds, and what scikit-learn's figures are for the posteriors of each fold.

Needs PyPI's numpy, scipy and scikit-learn (written with 2.4.6, 1.17.1 and 1.9.1). Lines:

pattern       fold, label, measurements
posterior     of each pattern, by QuadraticDiscriminantAnalysis with equal priors trained with the other folds, its
              covariances with divisor count - 1
confusion     sklearn.metrics.confusion_matrix of the most probable categories, row by row
recall, precision, accuracy, logloss
              the functions of sklearn.metrics
bin           upper edge, count, mean score and share of right ones (sklearn.calibration.calibration_curve) of the bins
              that are not empty, for the largest posteriors
ece           the expected calibration error of these bins
wilson        hits, total, low, high by scipy.stats.binomtest
decisions     for frequencies 1, 2 and 0.5, costs c[true][decided] = ((0, 1, 5), (2, 0, 1), (1, 3, 0)) and a refusal's
              cost of 0.05, by plain formulas; -2 is a refusal
expected      the expected cost of these decisions
curve         refusal's cost, share refused and cost of the others, by plain formulas without a refusal's cost

Data: the first four measurements of wine as shipped with scikit-learn, which took it from the UCI Machine Learning
Repository (M. Forina et al., Wine, 1991), where it is published under the Creative Commons Attribution 4.0 International
licence (CC BY 4.0).
"""

import os
import sys

FOLDER = os.path.dirname(os.path.abspath(__file__))
sys.path[:] = [path for path in sys.path if path != FOLDER]  # its random.py is not the one that numpy wants

import numpy
from scipy.stats import binomtest
from sklearn import metrics
from sklearn.calibration import calibration_curve
from sklearn.datasets import load_wine
from sklearn.discriminant_analysis import QuadraticDiscriminantAnalysis
from sklearn.model_selection import StratifiedKFold

FREQUENCIES = numpy.array([1.0, 2.0, 0.5])
COSTS = numpy.array([[0.0, 1.0, 5.0], [2.0, 0.0, 1.0], [1.0, 3.0, 0.0]])
REFUSAL = 0.05


class Covariance:
    """An estimator with divisor count - 1; QuadraticDiscriminantAnalysis' own has the count."""

    def fit(self, data):
        self.covariance_ = numpy.cov(data.T)


def main():
    data, labels = load_wine().data[:, :4], load_wine().target
    folds = numpy.zeros(len(labels), int)
    posteriors = numpy.zeros((len(labels), 3))
    for fold, (train, test) in enumerate(StratifiedKFold(5, shuffle=True, random_state=1).split(data, labels)):
        folds[test] = fold
        discriminant = QuadraticDiscriminantAnalysis(
            solver="eigen", priors=[1 / 3] * 3, covariance_estimator=Covariance()
        )
        posteriors[test] = discriminant.fit(data[train], labels[train]).predict_proba(data[test])
    predicted = posteriors.argmax(axis=1)

    rows = [("pattern", [f, label, *row]) for f, label, row in zip(folds, labels, data)]
    rows += [("posterior", row) for row in posteriors]
    rows.append(("confusion", metrics.confusion_matrix(labels, predicted).ravel()))
    rows.append(("recall", metrics.recall_score(labels, predicted, average=None)))
    rows.append(("precision", metrics.precision_score(labels, predicted, average=None)))
    rows.append(("accuracy", [metrics.accuracy_score(labels, predicted)]))
    rows.append(("logloss", [metrics.log_loss(labels, posteriors)]))

    largest = posteriors.max(axis=1)
    right = predicted == labels
    shares, means = calibration_curve(right, largest, n_bins=10)
    bins = numpy.searchsorted(numpy.linspace(0.0, 1.0, 11)[1:-1], largest)
    counts = numpy.bincount(bins, minlength=10)
    for edge, count, mean, share in zip((numpy.flatnonzero(counts) + 1) / 10, counts[counts > 0], means, shares):
        rows.append(("bin", [edge, count, mean, share]))
    rows.append(("ece", [(counts[counts > 0] * abs(means - shares)).sum() / len(labels)]))
    for hits, total in ((0, 7), (7, 7), (1, 1), (13, 20), (999, 1000)):
        interval = binomtest(hits, total).proportion_ci(method="wilson")
        rows.append(("wilson", [hits, total, interval.low, interval.high]))

    joint = posteriors * FREQUENCIES
    expected = joint @ COSTS / joint.sum(axis=1, keepdims=True)
    decided, least = expected.argmin(axis=1), expected.min(axis=1)
    rows.append(("decisions", numpy.where(least > REFUSAL, -2, decided)))
    cost = COSTS[labels, decided]
    weights = (FREQUENCIES / FREQUENCIES.sum() / numpy.bincount(labels))[labels]
    rows.append(("expected", [(weights * numpy.where(least > REFUSAL, REFUSAL, cost)).sum()]))
    for threshold in numpy.sort(least)[9::12]:
        kept = least <= threshold
        rows.append(("curve", [threshold, weights[~kept].sum(), (weights * cost)[kept].sum() / weights[kept].sum()]))
    with open(os.path.join(FOLDER, "assessment.csv"), "w") as out:
        for name, values in rows:
            texts = (repr(int(v)) if v == int(v) else repr(float(v)) for v in values)
            out.write(",".join([name, *texts]) + "\n")


main()
