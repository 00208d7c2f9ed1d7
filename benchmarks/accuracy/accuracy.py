#!/usr/bin/env python3
"""Prints accuracy and log loss of Bayesian classification with full covariance on public data sets.

    accuracy.py PROGRAM [OTHER] [methods=METHOD,METHOD] [few] [gaps=SHARE] [weka=FOLDER] [mlbench=FOLDER]

PROGRAM is the program accuracy (-DCLASTOOL_BUILD_BENCHMARKS=ON), OTHER the same built with another state of the library
to compare with. Methods are joint (if none are named), pooled, gaps, neighbours and scaled; see accuracy.cpp. With the word few,
one pattern of each category more than there are measurements is learned. With gaps=0.1 a tenth of all measurements is
removed at random, in training and testing, and two more columns have the shares of right decisions of scikit-learn's
QuadraticDiscriminantAnalysis and GaussianNB with the means imputed, on the same folds and with the categories' shares as
priors; the method gaps learns from patterns with gaps. The data come from packages and are no part of this repository:

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


def figures(program, method, limit, data, labels, folder):
    """Means of accuracy and log loss over all ways to make folds, for equal frequencies and for shares."""
    result = []
    for frequencies in ("equal", "shares"):
        rows = []
        for folds in ways(labels):
            with open(os.path.join(folder, "folds"), "w") as stream:
                stream.write("\n".join(map(str, folds)))
            command = [program, frequencies, stream.name, data]
            if method != "joint" or limit:
                command += [method] + ([str(limit)] if limit else [])
            output = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
            rows.append([float(value) for value in output.split()])
        result += [sum(column) / len(rows) for column in zip(*rows)]
    return result


def with_gaps(patterns, share):
    generator = random.Random(11)
    return [[float("nan") if generator.random() < share else value for value in pattern] for pattern in patterns]


def imputed(patterns, labels):
    """Shares of right decisions with imputed means, over all ways to make folds."""
    import numpy
    from sklearn.discriminant_analysis import QuadraticDiscriminantAnalysis
    from sklearn.impute import SimpleImputer
    from sklearn.naive_bayes import GaussianNB
    from sklearn.pipeline import make_pipeline

    data, names = numpy.array(patterns), numpy.array(labels)
    result = []
    for method in (QuadraticDiscriminantAnalysis, GaussianNB):
        rights = []
        for folds in map(numpy.array, ways(labels)):
            for fold in range(5):
                try:
                    with warnings.catch_warnings():
                        warnings.simplefilter("ignore")
                        pipeline = make_pipeline(SimpleImputer(keep_empty_features=True), method())
                        pipeline.fit(data[folds != fold], names[folds != fold])
                        rights.append(pipeline.score(data[folds == fold], names[folds == fold]))
                except Exception:  # QuadraticDiscriminantAnalysis refuses some singular data
                    rights.append(0.0)
        result.append(sum(rights) / len(rights))
    return result


def main():
    few = "few" in sys.argv[1:]
    programs = [argument for argument in sys.argv[1:] if "=" not in argument and argument != "few"]
    options = dict(argument.split("=", 1) for argument in sys.argv[1:] if "=" in argument)
    if len(programs) not in (1, 2) or not set(options) <= {"methods", "gaps", "weka", "mlbench"}:
        sys.exit(__doc__)
    columns = [(program, method) for program in programs for method in options.get("methods", "joint").split(",")]
    print("columns: " + ", ".join(method for _, method in columns))
    print("%-20s %8s %5s %6s" % ("", "patterns", "meas.", "categ.")
          + "   equal: right   loss   shares: right   loss" * len(columns))
    totals, count = [0.0] * 4 * len(columns), 0
    with tempfile.TemporaryDirectory() as folder:
        for name, read in data_sets(options.get("weka", "/usr/share/doc/weka/examples"),
                                    options.get("mlbench", "/usr/lib/R/site-library/mlbench/data")):
            patterns, labels = read()
            if "gaps" in options:
                patterns = with_gaps(patterns, float(options["gaps"]))
            data = os.path.join(folder, "data")
            with open(data, "w") as stream:
                for pattern, label in zip(patterns, labels):
                    stream.write(",".join(map(repr, pattern)) + "," + label + "\n")
            limit = len(patterns[0]) + 1 if few else None
            row = [figure for program, method in columns
                   for figure in figures(program, method, limit, data, labels, folder)]
            totals, count = [a + b for a, b in zip(totals, row)], count + 1
            print("%-20s %8d %5d %6d" % (name, len(labels), len(patterns[0]), len(set(labels)))
                  + "".join("   %12.4f %6.3f   %13.4f %6.3f" % tuple(row[i:i + 4]) for i in range(0, len(row), 4))
                  + ("   imputed: %.4f %.4f" % tuple(imputed(patterns, labels)) if "gaps" in options else ""),
                  flush=True)
    mean = [total / count for total in totals]
    print("%-42s" % "mean" + "".join("   %12.4f %6.3f   %13.4f %6.3f" % tuple(mean[i:i + 4])
                                     for i in range(0, len(mean), 4)))


if __name__ == "__main__":
    main()
