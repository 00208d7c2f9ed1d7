#!/usr/bin/env python3
"""Prints accuracies of Bayesian classification with full covariance on glass and segment, by 5-fold cross-validation.

Needs Debian's weka, whose data files it reads, and the program accuracy (-DCLASTOOL_BUILD_BENCHMARKS=ON):

    accuracy.py build/benchmarks/accuracy/accuracy

Both data sets have categories whose covariance is singular: a measurement that is constant, or measurements that
determine one another. For each way to make the folds there is a line with the accuracy in each fold and the mean of
the five; with frequencies that are equal, and with those of the training patterns. Where scikit-learn is installed,
its ways to make folds take part, and QuadraticDiscriminantAnalysis with its defaults is measured on all folds: it does
not regularise, and what it gives for singular covariances is a matter of rounding and of the LAPACK it uses.
"""

import os
import random
import subprocess
import sys
import tempfile
import warnings

FOLDER = "/usr/share/doc/weka/examples/"
DATA = {"glass": ["glass.arff"], "segment": ["segment-challenge.arff", "segment-test.arff"]}

try:
    import numpy
    from sklearn.discriminant_analysis import QuadraticDiscriminantAnalysis
    from sklearn.model_selection import KFold, StratifiedKFold
except ImportError:
    numpy = None
warnings.simplefilter("ignore")  # of singular covariances and what their inverses divide by


def read(files):
    rows = []
    for name in files:
        with open(os.path.join(FOLDER, name)) as stream:
            lines = [line.strip() for line in stream]
        first = [line.lower() for line in lines].index("@data") + 1
        rows += [line.split(",") for line in lines[first:] if line and not line.startswith("%")]
    return [[float(value) for value in row[:-1]] for row in rows], [row[-1] for row in rows]


def stratified(labels, order):
    """Of each category, in `order`, every fifth pattern."""
    folds = [0] * len(labels)
    for label in sorted(set(labels)):
        for place, i in enumerate(i for i in order if labels[i] == label):
            folds[i] = place % 5
    return folds


def ways(labels):
    """Name and folds of each way to make them; seed 0 wherever there is one."""
    order = list(range(len(labels)))
    yield "every 5th of a category", stratified(labels, order)
    random.Random(0).shuffle(order)
    yield "the same, shuffled", stratified(labels, order)
    if numpy:
        for name, splitter in (("KFold shuffled", KFold(5, shuffle=True, random_state=0)),
                               ("StratifiedKFold", StratifiedKFold(5)),
                               ("StratifiedKFold shuffled", StratifiedKFold(5, shuffle=True, random_state=0))):
            folds = [0] * len(labels)
            for fold, (_, test) in enumerate(splitter.split(labels, labels)):
                for i in test:
                    folds[i] = fold
            yield name, folds


def peer(patterns, labels, folds):
    x, y, f = numpy.array(patterns), numpy.array(labels), numpy.array(folds)
    accuracies = [QuadraticDiscriminantAnalysis().fit(x[f != k], y[f != k]).score(x[f == k], y[f == k])
                  for k in range(5)]
    return " ".join("%.4f" % a for a in accuracies + [sum(accuracies) / 5])


if len(sys.argv) != 2:
    sys.exit(__doc__)
for name, files in DATA.items():
    patterns, labels = read(files)
    print("%s: %d patterns, %d categories" % (name, len(labels), len(set(labels))))
    for way, folds in ways(labels):
        with tempfile.NamedTemporaryFile("w") as stream:
            stream.write("\n".join(map(str, folds)))
            stream.flush()
            for frequencies in ("equal", "shares"):
                command = [sys.argv[1], frequencies, stream.name] + [FOLDER + file for file in files]
                figures = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout.strip()
                print("  %-26s %-22s %s" % (way, "clastool, " + frequencies, figures))
        if numpy:
            print("  %-26s %-22s %s" % (way, "scikit-learn, shares", peer(patterns, labels, folds)))
