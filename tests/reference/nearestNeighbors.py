#!/usr/bin/env python3
"""Writes nearestNeighbors.{iris,wine,digits}.csv: votes of the nearest neighbours by scikit-learn.

Needs Debian's python3-sklearn (written with 1.2.1). Each table holds the training patterns, the queries and, for
each norm order and k, the votes of every label among the k nearest training patterns of each query, as counted by
KNeighborsClassifier with uniform weights. A query whose k-th and (k+1)-th neighbours are equally far (to a relative
1e-9) is left out for that order and k: there the outcome is a matter of definition, not of arithmetic.

Data: iris, wine and digits as shipped with scikit-learn, which took them from the UCI Machine Learning Repository
(R. A. Fisher, Iris, 1936; M. Forina et al., Wine, 1991; E. Alpaydin and C. Kaynak, Optical Recognition of
Handwritten Digits, 1998). UCI publishes them under the Creative Commons Attribution 4.0 International licence
(CC BY 4.0). The tables take subsets of them, otherwise unchanged.
"""

import os
import sys

FOLDER = os.path.dirname(os.path.abspath(__file__))
sys.path[:] = [path for path in sys.path if path != FOLDER]  # its random.py is not the one that numpy wants

import numpy
import sklearn
from sklearn import datasets
from sklearn.neighbors import KNeighborsClassifier

ORDERS = (1, 2, 3)
KS = (1, 3, 5, 15)


def split(data, training, queries):
    """Alternating patterns, as many as asked for."""
    return data.data[0::2][:training], data.target[0::2][:training], data.data[1::2][:queries]


def number(value):
    return repr(int(value)) if value == int(value) else repr(float(value))


def write(name, data, training, queries):
    train, labels, query = split(data, training, queries)
    count = len(set(labels))
    assert sorted(set(labels)) == list(range(count))
    path = os.path.join(FOLDER, "nearestNeighbors.%s.csv" % name)
    with open(path, "w", newline="\n") as out:
        out.write("# Made by nearestNeighbors.py with scikit-learn %s; data: UCI, CC BY 4.0, see there.\n"
                  % sklearn.__version__)
        out.write("# train,label,measurements / query,measurements / votes,order,k,query,votes of each label\n")
        for pattern, label in zip(train, labels):
            out.write("train,%d,%s\n" % (label, ",".join(map(number, pattern))))
        for pattern in query:
            out.write("query,%s\n" % ",".join(map(number, pattern)))
        for order in ORDERS:
            differences = numpy.abs(query[:, None, :] - train[None, :, :])
            distances = numpy.sort((differences ** order).sum(axis=2) ** (1.0 / order), axis=1)
            for k in KS:
                classifier = KNeighborsClassifier(n_neighbors=k, p=order, algorithm="brute").fit(train, labels)
                votes = numpy.rint(classifier.predict_proba(query) * k).astype(int)
                assert (votes.sum(axis=1) == k).all()
                for i in range(len(query)):
                    if distances[i, k] - distances[i, k - 1] > 1e-9 * distances[i, k]:
                        out.write("votes,%d,%d,%d,%s\n" % (order, k, i, ",".join(map(str, votes[i]))))


write("iris", datasets.load_iris(), 75, 75)
write("wine", datasets.load_wine(), 89, 89)
write("digits", datasets.load_digits(), 300, 100)
