#!/usr/bin/env python3
"""Prints accuracy and log loss of Bayesian classification with full covariance on public data sets.

    accuracy.py PROGRAM [OTHER] [weka=FOLDER] [mlbench=FOLDER]

PROGRAM is the program accuracy (-DCLASTOOL_BUILD_BENCHMARKS=ON), OTHER the same built with another state of the library
to compare with. The data come from packages and are no part of this repository:

    Debian weka (GPL), /usr/share/doc/weka/examples: glass, segment, ionosphere, diabetes, all from the UCI repository;
    Debian r-cran-mlbench (GPL-2), /usr/lib/R/site-library/mlbench/data: Vehicle, Sonar, Vowel, Zoo, Satellite,
        BreastCancer, LetterRecognition, from the UCI repository; read with PyPI's rdata (MIT);
    PyPI scikit-learn (BSD-3-Clause): iris, wine, breast cancer, digits, from the UCI repository.

Each data set is cross-validated in 5 folds, in the ways that follow, and the figures are averaged over them: every 5th
pattern of a category is tested, in the order of the data and in three shuffled orders; with the categories' frequencies
equal, and as their shares of the training patterns. Many of these data have categories whose covariance is singular: a
measurement that is constant, measurements that determine one another, or fewer patterns than measurements.
"""

import os
import random
import subprocess
import sys
import tempfile
import warnings


def weka(folder, files):
    patterns, labels = [], []
    for name in files:
        with open(os.path.join(folder, name)) as stream:
            lines = [line.strip() for line in stream]
        first = [line.lower() for line in lines].index("@data") + 1
        for row in (line.split(",") for line in lines[first:] if line and not line.startswith("%")):
            patterns.append([float(value) for value in row[:-1]])
            labels.append(row[-1])
    return patterns, labels


def mlbench(folder, name, category, skipped=()):
    """A data frame; factors and truth values count as their numbers. Rows with missing values are left out."""
    import rdata

    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        frame = rdata.read_rda(os.path.join(folder, name + ".rda"))[name].dropna()
    labels = [str(label) for label in frame[category]]
    columns = []
    for column in frame.columns:
        if column == category or column in skipped:
            continue
        values = frame[column]
        columns.append([float(v) for v in (values.cat.codes if hasattr(values, "cat") else values)])
    return [list(row) for row in zip(*columns)], labels


def scikit_learn(loader):
    from sklearn import datasets

    data = getattr(datasets, loader)()
    return [[float(v) for v in row] for row in data.data], [str(label) for label in data.target]


def data_sets(weka_folder, mlbench_folder):
    yield "glass", lambda: weka(weka_folder, ["glass.arff"])
    yield "segment", lambda: weka(weka_folder, ["segment-challenge.arff", "segment-test.arff"])
    yield "ionosphere", lambda: weka(weka_folder, ["ionosphere.arff"])
    yield "diabetes", lambda: weka(weka_folder, ["diabetes.arff"])
    yield "vehicle", lambda: mlbench(mlbench_folder, "Vehicle", "Class")
    yield "sonar", lambda: mlbench(mlbench_folder, "Sonar", "Class")
    yield "vowel", lambda: mlbench(mlbench_folder, "Vowel", "Class")
    yield "zoo", lambda: mlbench(mlbench_folder, "Zoo", "type")
    yield "satellite", lambda: mlbench(mlbench_folder, "Satellite", "classes")
    yield "breast cancer 1991", lambda: mlbench(mlbench_folder, "BreastCancer", "Class", ["Id"])
    yield "letters", lambda: mlbench(mlbench_folder, "LetterRecognition", "lettr")
    yield "iris", lambda: scikit_learn("load_iris")
    yield "wine", lambda: scikit_learn("load_wine")
    yield "breast cancer 1995", lambda: scikit_learn("load_breast_cancer")
    yield "digits", lambda: scikit_learn("load_digits")


def folds_in(order, labels):
    """Of each category, in `order`, every fifth pattern is in the same fold."""
    folds = [0] * len(labels)
    for label in sorted(set(labels)):
        for place, i in enumerate(i for i in order if labels[i] == label):
            folds[i] = place % 5
    return folds


def ways(labels):
    order = list(range(len(labels)))
    yield folds_in(order, labels)
    for seed in range(3):
        random.Random(seed).shuffle(order)
        yield folds_in(order, labels)


def figures(program, data, labels, folder):
    """Means of accuracy and log loss over all ways to make folds, for equal frequencies and for shares."""
    result = []
    for frequencies in ("equal", "shares"):
        rows = []
        for folds in ways(labels):
            with open(os.path.join(folder, "folds"), "w") as stream:
                stream.write("\n".join(map(str, folds)))
            command = [program, frequencies, stream.name, data]
            output = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
            rows.append([float(value) for value in output.split()])
        result += [sum(column) / len(rows) for column in zip(*rows)]
    return result


def main():
    programs = [argument for argument in sys.argv[1:] if "=" not in argument]
    folders = dict(argument.split("=", 1) for argument in sys.argv[1:] if "=" in argument)
    if len(programs) not in (1, 2) or not set(folders) <= {"weka", "mlbench"}:
        sys.exit(__doc__)
    print("%-20s %8s %5s %6s" % ("", "patterns", "meas.", "categ.")
          + "   equal: right   loss   shares: right   loss" * len(programs))
    totals, count = [0.0] * 4 * len(programs), 0
    with tempfile.TemporaryDirectory() as folder:
        for name, read in data_sets(folders.get("weka", "/usr/share/doc/weka/examples"),
                                    folders.get("mlbench", "/usr/lib/R/site-library/mlbench/data")):
            patterns, labels = read()
            data = os.path.join(folder, "data")
            with open(data, "w") as stream:
                for pattern, label in zip(patterns, labels):
                    stream.write(",".join(map(repr, pattern)) + "," + label + "\n")
            row = [figure for program in programs for figure in figures(program, data, labels, folder)]
            totals, count = [a + b for a, b in zip(totals, row)], count + 1
            print("%-20s %8d %5d %6d" % (name, len(labels), len(patterns[0]), len(set(labels)))
                  + "".join("   %12.4f %6.3f   %13.4f %6.3f" % tuple(row[i:i + 4]) for i in range(0, len(row), 4)),
                  flush=True)
    mean = [total / count for total in totals]
    print("%-42s" % "mean" + "".join("   %12.4f %6.3f   %13.4f %6.3f" % tuple(mean[i:i + 4])
                                     for i in range(0, len(mean), 4)))


main()
