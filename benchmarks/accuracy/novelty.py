#!/usr/bin/env python3
"""Prints how well novel patterns are told from known ones, on public data sets with each category left out in turn.

    novelty.py PROGRAM [SET ...] [mlbench=FOLDER]

PROGRAM is the program novelty (-DCLASTOOL_BUILD_BENCHMARKS=ON). The patterns of one category are novel, those of the
others known; of these, four fifths are learned and one fifth is tested, in five folds. Of data sets with more than 12
categories every fourth one is left out. From larger ones 3,000 patterns are taken. Printed are means over the categories
left out:

    AUC     area under the ROC curve, the probability that a known pattern is more like known ones than a novel one is,
            of tkNovelty, with a third of all tested measurements removed at random, and of scikit-learn's
            EllipticEnvelope, IsolationForest, LocalOutlierFactor and OneClassSVM, with their defaults, on measurements
            divided by their deviations;
    rates   percentage of the known patterns with a p-value of 0.01 and 0.05 at most, and how much of it chance alone
            explains, two standard errors; the same with a third of the measurements removed, which is tested with 60
            known and 60 novel patterns of each fold.

Data and packages are those of accuracy.py.
"""

import os
import subprocess
import sys
import tempfile
import warnings

import accuracy

PEERS = ("EllipticEnvelope", "IsolationForest", "LocalOutlierFactor", "OneClassSVM")
ALPHAS = (0.01, 0.05)


def data_sets(folder):
    yield "glass", lambda: accuracy.mlbench(folder, "Glass", "Type")
    yield "ionosphere", lambda: accuracy.mlbench(folder, "Ionosphere", "Class")
    yield "vehicle", lambda: accuracy.mlbench(folder, "Vehicle", "Class")
    yield "sonar", lambda: accuracy.mlbench(folder, "Sonar", "Class")
    yield "vowel", lambda: accuracy.mlbench(folder, "Vowel", "Class")
    yield "zoo", lambda: accuracy.mlbench(folder, "Zoo", "type")
    yield "satellite", lambda: accuracy.mlbench(folder, "Satellite", "classes")
    yield "shuttle", lambda: accuracy.mlbench(folder, "Shuttle", "Class")
    yield "breast-cancer-1991", lambda: accuracy.mlbench(folder, "BreastCancer", "Class", ["Id"])
    yield "letters", lambda: accuracy.mlbench(folder, "LetterRecognition", "lettr")
    yield "iris", lambda: accuracy.scikit_learn("load_iris")
    yield "wine", lambda: accuracy.scikit_learn("load_wine")
    yield "breast-cancer-1995", lambda: accuracy.scikit_learn("load_breast_cancer")
    yield "digits", lambda: accuracy.scikit_learn("load_digits")


def area(known, novel):
    import numpy
    from scipy.stats import rankdata

    ranks = rankdata(numpy.concatenate([known, novel]))
    n = len(known)
    return (ranks[:n].sum() - n * (n + 1) / 2) / (n * len(novel))


def peer_scores(name, training, tested):
    from sklearn.covariance import EllipticEnvelope
    from sklearn.ensemble import IsolationForest
    from sklearn.neighbors import LocalOutlierFactor
    from sklearn.svm import OneClassSVM

    peer = {"EllipticEnvelope": lambda: EllipticEnvelope(random_state=0),
            "IsolationForest": lambda: IsolationForest(random_state=0),
            "LocalOutlierFactor": lambda: LocalOutlierFactor(novelty=True),
            "OneClassSVM": OneClassSVM}[name]()
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        return peer.fit(training).score_samples(tested)


def judged(program, folder, training, labels, tested):
    """p-values and evidences."""
    import numpy

    names = []
    for name, patterns, categories in (("training", training, labels), ("tested", tested, [0] * len(tested))):
        names.append(os.path.join(folder, name))
        with open(names[-1], "w") as stream:
            for pattern, category in zip(patterns, categories):
                stream.write(",".join(repr(float(value)) for value in pattern) + ",%d\n" % category)
    output = subprocess.run([program] + names, check=True, stdout=subprocess.PIPE, text=True).stdout
    return numpy.array([[float(value) for value in line.split()] for line in output.splitlines()]).T


def figures(program, folder, patterns, labels):
    """Areas of tkNovelty, of it with gaps, and of the peers; for each alpha and without and with gaps the share of
    false alarms and its standard error."""
    import numpy

    generator = numpy.random.RandomState(0)
    folds = numpy.zeros(len(labels), int)
    for category in numpy.unique(labels):
        own = numpy.where(labels == category)[0]
        generator.shuffle(own)
        folds[own] = numpy.arange(len(own)) % 5
    areas, p_values = [], {False: [], True: []}
    categories = numpy.unique(labels)
    for left_out in categories if len(categories) <= 12 else categories[::4]:
        scores = {name: ([], []) for name in ("novelty", "gaps") + PEERS}
        p_of = {False: [], True: []}
        for fold in range(5):
            learned = (labels != left_out) & (folds != fold)
            counts = numpy.bincount(labels[learned], minlength=labels.max() + 1)
            learned &= counts[labels] >= 2
            known = patterns[(labels != left_out) & (folds == fold)]
            novel = patterns[labels == left_out]
            tested = numpy.concatenate([known, novel])
            p, evidence = judged(program, folder, patterns[learned], labels[learned], tested)
            p_of[False] += list(p[:len(known)])
            results = [("novelty", evidence, len(known))]
            few = [generator.permutation(rows)[:60] for rows in (known, novel)]
            gaps = numpy.concatenate(few)
            gaps[generator.rand(*gaps.shape) < 1 / 3] = numpy.nan
            p, evidence = judged(program, folder, patterns[learned], labels[learned], gaps)
            p_of[True] += list(p[:len(few[0])])
            results.append(("gaps", p, len(few[0])))
            deviations = patterns[learned].std(0)
            deviations[deviations == 0] = 1
            scaled = [(rows - patterns[learned].mean(0)) / deviations for rows in (patterns[learned], tested)]
            results += [(name, peer_scores(name, *scaled), len(known)) for name in PEERS]
            for name, values, count in results:
                scores[name][0].extend(values[:count])
                scores[name][1].extend(values[count:])
        areas.append([area(*scores[name]) for name in ("novelty", "gaps") + PEERS])
        for gaps in (False, True):
            p_values[gaps].append(numpy.array(p_of[gaps]))
    rates = []
    for gaps in (False, True):
        for alpha in ALPHAS:
            rate = numpy.mean([(each <= alpha).mean() for each in p_values[gaps]])
            # The same known patterns are tested again for each category left out: they count once.
            count = min(len(labels), sum(map(len, p_values[gaps])))
            rates.append((rate, (alpha * (1 - alpha) / count) ** 0.5))
    return numpy.mean(areas, axis=0), rates


def main():
    import numpy

    arguments = sys.argv[1:]
    options = dict(argument.split("=", 1) for argument in arguments if "=" in argument)
    words = [argument for argument in arguments if "=" not in argument]
    if not words or not set(options) <= {"mlbench"}:
        sys.exit(__doc__)
    print("%-19s %8s %5s %6s  %-6s %-6s  %s   %s   %s" % ("", "patterns", "meas.", "categ.", "AUC", "gaps", " ".join(
        "%-7s" % name[:7] for name in PEERS), "rates: 1 %       5 %", "with gaps: 1 %   5 %"))
    rows, inside = [], [0, 0]
    with tempfile.TemporaryDirectory() as folder:
        for name, read in data_sets(options.get("mlbench", "/usr/lib/R/site-library/mlbench/data")):
            if len(words) > 1 and name not in words[1:]:
                continue
            patterns, names = read()
            patterns, labels = numpy.array(patterns), numpy.unique(names, return_inverse=True)[1]
            if len(labels) > 3000:
                chosen = numpy.random.RandomState(0).permutation(len(labels))[:3000]
                patterns, labels = patterns[chosen], labels[chosen]
            areas, rates = figures(words[0], folder, patterns, labels)
            rows.append(areas)
            is_inside = [all(abs(rate - alpha) <= 0.01 + 2 * error
                            for (rate, error), alpha in zip(rates[2 * gaps:2 * gaps + 2], ALPHAS)) for gaps in (0, 1)]
            inside = [count + one for count, one in zip(inside, is_inside)]
            print("%-19s %8d %5d %6d  %.3f  %.3f   %s   %s" % (
                name, len(labels), patterns.shape[1], len(set(labels)), areas[0], areas[1],
                " ".join("%-7.3f" % each for each in areas[2:]),
                "  ".join("%4.1f +- %3.1f" % (100 * rate, 200 * error) for rate, error in rates)), flush=True)
    best = numpy.array(rows)[:, 2:].max(axis=1)
    gain = numpy.array(rows)[:, 0] - best
    print("AUC: mean %.3f; of the best peer of each set %.3f; difference %.3f, at least as good on %d of %d sets, least "
          "difference %.3f" % (numpy.mean(rows, axis=0)[0], best.mean(), gain.mean(), (gain >= 0).sum(), len(rows),
                               gain.min()))
    print("rates within 1 point and two standard errors: %d of %d sets, with gaps %d" % (inside[0], len(rows), inside[1]))


if __name__ == "__main__":
    main()
