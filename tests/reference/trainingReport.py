#!/usr/bin/env python3
"""Writes trainingReport.csv: what a report on a training should say of the data of assessment.csv.

Needs Debian's python3-sklearn (written with 1.2.1, NumPy 1.24.2). A fifth measurement is added, the sum of the first
and the third one and a thousandth of the pattern's number modulo 3. Lines:

separation    eta squared of each measurement, from the F of sklearn.feature_selection.f_classif
deviation     numpy.std of each measurement, with divisor count - 1
direction     label, deviation, weights: of each category the eigenvector of numpy.corrcoef with the least eigenvalue,
              and the square root of the latter
doubtful      pattern, label, decided, score: of those that a QuadraticDiscriminantAnalysis of the first four
              measurements with equal priors, trained without them, gives to another category at 0.99 or more

Data: see assessment.py.
"""

import os
import sys

FOLDER = os.path.dirname(os.path.abspath(__file__))
sys.path[:] = [path for path in sys.path if path != FOLDER]  # its random.py is not the one that numpy wants

import numpy
import sklearn
from sklearn.discriminant_analysis import QuadraticDiscriminantAnalysis
from sklearn.feature_selection import f_classif

rows = [line.split(",") for line in open(os.path.join(FOLDER, "assessment.csv")) if line.startswith("pattern")]
labels = numpy.array([int(row[2]) for row in rows])
measured = numpy.array([[float(x) for x in row[3:]] for row in rows])
last = measured[:, 0] + measured[:, 2] + 0.001 * (numpy.arange(len(rows)) % 3)
data = numpy.column_stack((measured, last))


def line(word, numbers):
    return word + "," + ",".join(repr(float(x)) for x in numbers) + "\n"


with open(os.path.join(FOLDER, "trainingReport.csv"), "w") as table:
    f = f_classif(data, labels)[0]
    between = len(set(labels)) - 1
    within = len(labels) - between - 1
    table.write(line("separation", f * between / (f * between + within)))
    table.write(line("deviation", data.std(axis=0, ddof=1)))
    for label in sorted(set(labels)):
        values, vectors = numpy.linalg.eigh(numpy.corrcoef(data[labels == label].T))
        direction = vectors[:, 0]
        direction *= numpy.sign(direction[numpy.argmax(numpy.abs(direction))])
        table.write(line("direction", [label, numpy.sqrt(values[0]), *direction]))
    for i in range(len(labels)):
        others = numpy.arange(len(labels)) != i
        qda = QuadraticDiscriminantAnalysis(priors=[1 / 3] * 3).fit(measured[others], labels[others])
        scores = qda.predict_proba(measured[i : i + 1])[0]
        decided = int(numpy.argmax(scores))
        if decided != labels[i] and scores[decided] >= 0.99:
            table.write(line("doubtful", [i, labels[i], decided, scores[decided]]))
