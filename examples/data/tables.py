#!/usr/bin/env python3
"""Writes iris.csv and wine.csv beside this script, from the tables of Debian's package python3-sklearn: a line of names,
then measurements and category of a pattern on each line. The values and their order stay as they are."""

import csv
import pathlib

import sklearn.datasets

for name, table in (("iris", sklearn.datasets.load_iris()), ("wine", sklearn.datasets.load_wine())):
    with open(pathlib.Path(__file__).parent / (name + ".csv"), "w", newline="") as file:
        rows = csv.writer(file, lineterminator="\n")
        rows.writerow(list(table.feature_names) + ["label"])
        for measurements, label in zip(table.data, table.target):
            written = ["%.10g" % x for x in measurements]
            assert [float(x) for x in written] == list(measurements), name
            rows.writerow(written + [int(label)])
