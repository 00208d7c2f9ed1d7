#!/usr/bin/env python3
"""Counts the lines of the kernels and their tests anew and writes them into the table of docs/architecture.md."""

import pathlib
import re

root = pathlib.Path(__file__).resolve().parent.parent
document = root / "docs/architecture.md"
kernels = root / "numerics/kernels"


def files_of(kernel):
    sources = sorted(kernels.glob(kernel + ".*"))
    if not sources:
        raise SystemExit(f"{document} names {kernel}, which is no kernel")
    return sources + [root / f"tests/numerics/kernels/{kernel}_test.cpp"]


def counted(row):
    names = re.findall(r"`(\w+)`", row[1])
    files = {file for name in names for file in files_of(name)}
    lines = sum(len(file.read_text(encoding="utf-8").splitlines()) for file in files)
    return f"{row[1]}| {lines:,} |"


text = document.read_text(encoding="utf-8")
document.write_text(re.sub(r"^(\| `tkNM[^|]*)\| [\d,]+ \|", counted, text, flags=re.MULTILINE), encoding="utf-8")
