#!/usr/bin/env python3
"""Prints accuracy and log loss of Bayesian classification with full covariance on 37 public data sets.

    accuracy.py PROGRAM [OTHER] [methods=METHOD,METHOD] [few] [gaps=SHARE] [sets=SET,SET]
                [weka=FOLDER] [mlbench=FOLDER] [mass=FOLDER]

PROGRAM is the program accuracy (-DCLASTOOL_BUILD_BENCHMARKS=ON), OTHER the same built with another state of the
library to compare with. Methods are joint (if none are named), independent, halves, pooled, gaps, neighbours and
scaled; see accuracy.cpp. With the word few, the patterns are shuffled once, and one pattern of each category more
than there are measurements is learned. With gaps=0.1 a tenth of all measurements is removed at random, in training
and testing, and two more columns have the shares of right decisions of scikit-learn's QuadraticDiscriminantAnalysis
and GaussianNB with the means imputed, on the same folds and with the categories' shares as priors; the method gaps
learns from patterns with gaps. Sets are named as in the table, with hyphens for spaces; all are read if none are
named. The data come from packages and are no part of this repository:

    Debian weka (GPL), /usr/share/doc/weka/examples: glass, segment, ionosphere, diabetes, unbalanced, credit, nearly all
        from the UCI repository;
    Debian r-cran-mlbench (GPL-2), /usr/lib/R/site-library/mlbench/data: Vehicle, Sonar, Vowel, Zoo, Satellite,
        BreastCancer, LetterRecognition, HouseVotes84, Shuttle, Soybean, from the UCI repository;
    Debian r-cran-mass (GPL-2 or GPL-3), /usr/lib/R/library/MASS/data: crabs, Cushings, painters, cats, cabbages, whiteside,
        UScereal, Cars93, birthwt, survey, leuk, VA, anorexia; Venables and Ripley, Modern Applied Statistics with S;
    PyPI scikit-learn (BSD-3-Clause): iris, wine, breast cancer, digits, from the UCI repository;
    PyPI statsmodels (BSD-3-Clause): spector, fair, anes96, modechoice, in the public domain or with permission of their
        authors, as its COPYRIGHT of each says.

R's files are read with PyPI's rdata (MIT). The list was drawn up before any method was run on it; data that another set
repeats, simulated ones, and those of more than 64 measurements were left out.

Each data set is cross-validated in 5 folds, in the ways that follow, and the figures are averaged over them: every 5th
pattern of a category is tested, in the order of the data and in three shuffled orders; with the categories' frequencies
equal, and as their shares of the training patterns. Many of these data have categories whose covariance is singular: a
measurement that is constant, measurements that determine one another, or fewer patterns than measurements. After the table
stand the sets on which a method has less accuracy than that of the first column, with the standard error of the difference.
"""

import csv
import os
import random
import statistics
import subprocess
import sys
import tempfile
import warnings
import zlib


def arff(folder, files):
    """The last column is the category. Names count as their numbers in the list of the attribute."""
    patterns, labels, names = [], [], []
    for name in files:
        with open(os.path.join(folder, name)) as stream:
            lines = [line.strip() for line in stream]
        first = [line.lower() for line in lines].index("@data") + 1
        attributes = [line for line in lines[:first] if line.lower().startswith("@attribute")]
        names = [next(csv.reader([line[line.index("{") + 1:line.rindex("}")]], quotechar="'", skipinitialspace=True))
                 if "{" in line else [] for line in attributes]
        rows = csv.reader((line for line in lines[first:] if line and not line.startswith("%")), quotechar="'")
        for row in rows:
            patterns.append([float(of.index(value)) if of else float(value) for value, of in zip(row[:-1], names)])
            labels.append(row[-1])
    return patterns, labels


def from_frame(frame, category, skipped=()):
    """Rows of a data frame; factors and truth values count as their numbers. Rows with missing values are left out."""
    frame = frame.drop(columns=list(skipped)).dropna()
    labels = [str(label) for label in frame[category]]
    columns = []
    for column in frame.columns:
        if column == category:
            continue
        values = frame[column]
        columns.append([float(v) for v in (values.cat.codes if hasattr(values, "cat") else values)])
    return [list(row) for row in zip(*columns)], labels


def mlbench(folder, name, category, skipped=()):
    import rdata

    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        return from_frame(rdata.read_rda(os.path.join(folder, name + ".rda"))[name], category, skipped)


def mass(folder, name):
    """A data frame of a package whose data R loads lazily: an index of places in one file of compressed objects."""
    from rdata import conversion, parser

    def read(data):
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            return conversion.convert(parser.parse_data(zlib.decompress(data, 47)))  # either header

    with open(os.path.join(folder, "Rdata.rdx"), "rb") as stream:
        begin, length = (int(number) for number in read(stream.read())["variables"][name])
    with open(os.path.join(folder, "Rdata.rdb"), "rb") as stream:
        stream.seek(begin)
        return read(stream.read(length)[4:])  # after its length before the compression


def crabs(folder):
    frame = mass(folder, "crabs")
    frame["kind"] = frame["sp"].astype(str) + frame["sex"].astype(str)
    return from_frame(frame, "kind", ["sp", "sex", "index"])


def cushings(folder):
    frame = mass(folder, "Cushings")
    return from_frame(frame[frame["Type"] != "u"], "Type")  # those whose type is known


def scikit_learn(loader):
    from sklearn import datasets

    data = getattr(datasets, loader)()
    return [[float(v) for v in row] for row in data.data], [str(label) for label in data.target]


def statsmodels(name):
    from statsmodels import datasets

    return getattr(datasets, name).load_pandas().data


def fair():
    frame = statsmodels("fair")
    frame["any"] = frame["affairs"] > 0.0
    return from_frame(frame, "any", ["affairs"])


def mode_choice():
    """For each person what each of four ways to travel takes, income and company; the category is the way chosen."""
    patterns, labels = [], []
    for _, ways in statsmodels("modechoice").groupby("individual"):
        patterns.append([float(value) for value in ways[["ttme", "invc", "invt", "gc"]].to_numpy().ravel()]
                        + [float(ways["hinc"].iloc[0]), float(ways["psize"].iloc[0])])
        labels.append(str(int(ways["mode"][ways["choice"] == 1.0].iloc[0])))
    return patterns, labels


def data_sets(weka, mlb, ms):
    """Names, and what reads each; for the folders of the three packages."""
    yield "glass", lambda: arff(weka, ["glass.arff"])
    yield "segment", lambda: arff(weka, ["segment-challenge.arff", "segment-test.arff"])
    yield "ionosphere", lambda: arff(weka, ["ionosphere.arff"])
    yield "diabetes", lambda: arff(weka, ["diabetes.arff"])
    yield "unbalanced", lambda: arff(weka, ["unbalanced.arff"])
    yield "credit", lambda: arff(weka, ["credit-g.arff"])
    yield "vehicle", lambda: mlbench(mlb, "Vehicle", "Class")
    yield "sonar", lambda: mlbench(mlb, "Sonar", "Class")
    yield "vowel", lambda: mlbench(mlb, "Vowel", "Class")
    yield "zoo", lambda: mlbench(mlb, "Zoo", "type")
    yield "satellite", lambda: mlbench(mlb, "Satellite", "classes")
    yield "breast cancer 1991", lambda: mlbench(mlb, "BreastCancer", "Class", ["Id"])
    yield "letters", lambda: mlbench(mlb, "LetterRecognition", "lettr")
    yield "house votes", lambda: mlbench(mlb, "HouseVotes84", "Class")
    yield "shuttle", lambda: mlbench(mlb, "Shuttle", "Class")
    yield "soybean", lambda: mlbench(mlb, "Soybean", "Class")
    yield "iris", lambda: scikit_learn("load_iris")
    yield "wine", lambda: scikit_learn("load_wine")
    yield "breast cancer 1995", lambda: scikit_learn("load_breast_cancer")
    yield "digits", lambda: scikit_learn("load_digits")
    yield "crabs", lambda: crabs(ms)
    yield "cushings", lambda: cushings(ms)
    yield "painters", lambda: from_frame(mass(ms, "painters"), "School")
    yield "cats", lambda: from_frame(mass(ms, "cats"), "Sex")
    yield "cabbages", lambda: from_frame(mass(ms, "cabbages"), "Cult")
    yield "whiteside", lambda: from_frame(mass(ms, "whiteside"), "Insul")
    yield "cereals", lambda: from_frame(mass(ms, "UScereal"), "mfr")
    yield "cars", lambda: from_frame(mass(ms, "Cars93"), "Type", ["Manufacturer", "Model", "Make"])
    yield "birth weights", lambda: from_frame(mass(ms, "birthwt"), "low", ["bwt"])
    yield "survey", lambda: from_frame(mass(ms, "survey"), "Sex")
    yield "leukaemia", lambda: from_frame(mass(ms, "leuk"), "ag")
    yield "lung cancer", lambda: from_frame(mass(ms, "VA"), "cell")
    yield "anorexia", lambda: from_frame(mass(ms, "anorexia"), "Treat")
    yield "spector", lambda: from_frame(statsmodels("spector"), "GRADE")
    yield "affairs", fair
    yield "votes 1996", lambda: from_frame(statsmodels("anes96"), "vote")
    yield "mode choice", mode_choice


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
    """Accuracy and log loss of every fold of every way to make folds, first for equal frequencies, then for shares."""
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
            rows.append([[float(value) for value in line.split()] for line in output.splitlines()])
        result.append(rows)
    return result


def mean(values):
    values = list(values)
    return sum(values) / len(values)


def means(of_method):
    """Mean accuracy and log loss for equal frequencies, then for shares."""
    return [mean(fold[i] for folds in rows for fold in folds) for rows in of_method for i in (0, 1)]


def standard_error(before, after):
    """Of the difference of two accuracies: from the differences of the folds, for each way to make folds by itself."""
    return mean(statistics.stdev(b[0] - a[0] for a, b in zip(*folds)) / len(folds[0]) ** 0.5
                for folds in zip(before, after))


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
    if len(programs) not in (1, 2) or not set(options) <= {"methods", "sets", "gaps", "weka", "mlbench", "mass"}:
        sys.exit(__doc__)
    columns = [(program, method) for program in programs for method in options.get("methods", "joint").split(",")]
    print("columns: " + ", ".join(method for _, method in columns))
    row = "   %12.4f %6.3f   %13.4f %6.3f"
    print("%-20s %8s %5s %6s" % ("", "patterns", "meas.", "categ.")
          + "   equal: right   loss   shares: right   loss" * len(columns))
    sets = []  # name, and the figures of every column
    with tempfile.TemporaryDirectory() as folder:
        for name, read in data_sets(options.get("weka", "/usr/share/doc/weka/examples"),
                                    options.get("mlbench", "/usr/lib/R/site-library/mlbench/data"),
                                    options.get("mass", "/usr/lib/R/library/MASS/data")):
            if "sets" in options and name.replace(" ", "-") not in options["sets"].split(","):
                continue
            patterns, labels = read()
            if few:
                order = random.Random(7).sample(range(len(labels)), len(labels))
                patterns, labels = [patterns[i] for i in order], [labels[i] for i in order]
            if "gaps" in options:
                patterns = with_gaps(patterns, float(options["gaps"]))
            data = os.path.join(folder, "data")
            with open(data, "w") as stream:
                for pattern, label in zip(patterns, labels):
                    stream.write(",".join(map(repr, pattern)) + "," + label + "\n")
            limit = len(patterns[0]) + 1 if few else None
            sets.append((name, [figures(program, method, limit, data, labels, folder) for program, method in columns]))
            print("%-20s %8d %5d %6d" % (name, len(labels), len(patterns[0]), len(set(labels)))
                  + "".join(row % tuple(means(column)) for column in sets[-1][1])
                  + ("   imputed: %.4f %.4f" % tuple(imputed(patterns, labels)) if "gaps" in options else ""),
                  flush=True)
    print("%-42s" % ("mean of %d sets" % len(sets))
          + "".join(row % tuple(map(mean, zip(*(means(of_set[c]) for _, of_set in sets)))) for c in range(len(columns))))
    for c in range(1, len(columns)):
        for f, frequencies in enumerate(("equal", "shares")):
            print("%s against %s, frequencies %s: accuracy lost in" % (columns[c][1], columns[0][1], frequencies))
            for name, of_set in sets:
                lost = mean(a[0] - b[0] for folds in zip(of_set[0][f], of_set[c][f]) for a, b in zip(*folds))
                if lost > 0.0:
                    print("    %-20s %.4f, standard error %.4f" % (name, lost, standard_error(of_set[0][f], of_set[c][f])))


if __name__ == "__main__":
    main()
