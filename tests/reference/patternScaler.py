#!/usr/bin/env python3
"""Writes patternScaler.csv: measurements, some of them missing (nan), and the offsets and scales of each column.

Needs PyPI's numpy and scikit-learn (written with 2.4.6 and 1.9.1). After the patterns stand

deviation  NumPy's mean and standard deviation with divisor count - 1, without the missing values
quartiles  center_ and scale_ of RobustScaler
range      data_min_ and data_range_ of MinMaxScaler

each first as offsets, then as scales.

Data: every third pattern of wine as shipped with scikit-learn, which took it from the UCI Machine Learning Repository
(M. Forina et al., Wine, 1991), where it is published under the Creative Commons Attribution 4.0 International licence
(CC BY 4.0). One value in eleven is taken out; otherwise unchanged.
"""

import os
import sys

FOLDER = os.path.dirname(os.path.abspath(__file__))
sys.path[:] = [path for path in sys.path if path != FOLDER]  # its random.py is not the one that numpy wants

import numpy
from sklearn.datasets import load_wine
from sklearn.preprocessing import MinMaxScaler, RobustScaler


def main():
    data = load_wine().data[::3].copy()
    data.ravel()[5::11] = numpy.nan
    robust = RobustScaler().fit(data)
    span = MinMaxScaler().fit(data)
    rows = [("pattern", row) for row in data]
    for name, offsets, scales in (
        ("deviation", numpy.nanmean(data, axis=0), numpy.nanstd(data, axis=0, ddof=1)),
        ("quartiles", robust.center_, robust.scale_),
        ("range", span.data_min_, span.data_range_),
    ):
        rows += [(name + " offsets", offsets), (name + " scales", scales)]
    with open(os.path.join(FOLDER, "patternScaler.csv"), "w") as out:
        for name, values in rows:
            out.write(",".join([name] + [repr(float(value)) for value in values]) + "\n")


main()
