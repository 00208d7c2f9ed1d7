"""scikit-learn as a peer of the benchmarks, which start this program and talk to it through its standard streams.

A request is a line of words, tables follow it as rows of doubles and, where they are labelled, labels as doubles. The
answer is a line. `run TOOL FIRST COUNT` carries out operations of the tool that a request before it made."""

import sys

import numpy
from sklearn.discriminant_analysis import QuadraticDiscriminantAnalysis
from sklearn.naive_bayes import GaussianNB
from sklearn.neighbors import KNeighborsClassifier
from sklearn.tree import DecisionTreeRegressor

tools = []


def read(rows, columns):
    values = numpy.frombuffer(sys.stdin.buffer.read(8 * rows * columns))
    return values.reshape(rows, columns).copy()


def table():
    """The table that comes next, with its labels."""
    rows, columns = (int(word) for word in sys.stdin.buffer.readline().split())
    return read(rows, columns), read(rows, 1)[:, 0].astype(int)


def in_batches(operation, queries, batch):
    """Operations on `batch` queries each, the given ones again and again."""
    repeated = numpy.tile(queries, (-(-batch // len(queries)) + 1, 1))

    def run(first, count):
        for i in range(first, first + count, batch):
            i %= len(queries)
            operation(repeated[i : i + batch])

    return run


def normal(dependent):
    return QuadraticDiscriminantAnalysis(store_covariance=False) if dependent else GaussianNB()


def nearest(batch, k, order, algorithm):
    (rows, labels), (queries, _) = table(), table()
    model = KNeighborsClassifier(int(k), p=float(order), algorithm=algorithm).fit(rows, labels)
    return in_batches(model.predict_proba, queries, int(batch))


def normal_run(batch, dependent):
    (rows, labels), (queries, _) = table(), table()
    return in_batches(normal(dependent == "1").fit(rows, labels).predict_proba, queries, int(batch))


def normal_training(_, dependent):
    rows, labels = table()

    def run(_, count):
        for _ in range(count):
            normal(dependent == "1").fit(rows, labels)

    return run


def tree(batch):
    """A regression on the leaf's number finds the tree level by level: the highest bit explains the most."""
    (leaves, numbers), (queries, _) = table(), table()
    model = DecisionTreeRegressor().fit(leaves, numbers)
    is_complete = model.tree_.node_count == 2 * len(leaves) - 1
    return in_batches(model.predict, queries, int(batch)) if is_complete else None


def main():
    makers = {"nearest": nearest, "normal_run": normal_run, "normal_training": normal_training, "tree": tree}
    for line in sys.stdin.buffer:
        word, *arguments = line.decode().split()
        if word == "run":
            tool, first, count = (int(argument) for argument in arguments)
            tools[tool](first, count)
            answer = 0
        elif word == "forget":
            tools[int(arguments[0])] = None
            answer = 0
        else:
            tool = makers[word](*arguments)
            answer = -1
            if tool:
                answer = len(tools)
                tools.append(tool)
        print(answer, flush=True)


main()
