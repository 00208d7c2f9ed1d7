#!/usr/bin/env python3
"""Writes brick.pgm, grass.pgm, gravel.pgm and coins.pgm beside this script, from the pictures of Debian's
package python3-skimage (which brings the Python modules needed here). The pixel values stay as they are."""

import pathlib

import skimage.data
import skimage.io

for name in ("brick", "grass", "gravel", "coins"):
    picture = skimage.io.imread(str(pathlib.Path(skimage.data.__file__).parent / (name + ".png")))
    assert picture.ndim == 2 and picture.dtype == "uint8", name
    height, width = picture.shape
    target = pathlib.Path(__file__).parent / (name + ".pgm")
    target.write_bytes(b"P5\n%d %d\n255\n" % (width, height) + picture.tobytes())
