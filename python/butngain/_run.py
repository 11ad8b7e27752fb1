"""What a run of the program left in its directory."""

import os

from ._butngain import Error

# Columns of gains.csv that are no real numbers; a column that is not listed here is one.
_WHOLE = {"bpm", "orbits", "orbits_used", "outliers"}
_TEXT = {"name", "verdict", "reason"}
_BUTTONS = ("_1", "_2", "_3", "_4")


class Run:
    """A run's results: columns of gains.csv as arrays, one entry a BPM, and what run.json says.

    run["gain"] is a float64 array (n, 4); a column of its own such as run["error"] is (n,); names,
    verdicts and reasons are lists of texts. What is not known is nan. run.info is the content of
    run.json, None where there is none.
    """

    def __init__(self, directory, columns, info):
        self.directory = directory
        self.info = info
        self._columns = columns

    @property
    def columns(self):
        """The names that run[...] takes."""
        return list(self._columns)

    def __getitem__(self, name):
        return self._columns[name]

    def __len__(self):
        return len(self._columns["bpm"])

    def __repr__(self):
        return f"<Run {self.directory}: {len(self)} BPMs>"


def _read_rows(path):
    import csv  # here as numpy below: importing the module stays quick

    # A spreadsheet may have put a byte-order mark in front.
    with open(path, newline="", encoding="utf-8-sig") as file:
        reader = csv.reader(file)
        header = next(reader, [])
        if "bpm" not in header:
            raise Error(f"{path}:1: no column bpm, expected the header of gains.csv")
        rows = []
        for row in reader:
            if len(row) != len(header):
                raise Error(f"{path}:{reader.line_num}: found {len(row)} fields, "
                            f"expected {len(header)}")
            rows.append((reader.line_num, row))
    return header, rows


def _column(path, name, values):
    """One column as texts or numbers; values are pairs of line and text."""
    import numpy

    if name in _TEXT:
        return [text for _, text in values]
    whole = name in _WHOLE
    numbers = []
    for line, text in values:
        try:
            numbers.append(int(text) if whole else float(text or "nan"))
        except ValueError:
            expected = "a whole number" if whole else "a number or nothing"
            raise Error(f'{path}:{line}: found "{text}" in column {name}, '
                        f"expected {expected}") from None
    return numpy.array(numbers, dtype=numpy.int64 if whole else numpy.float64)


def read_run(directory):
    """Reads the results that a run left in this directory: gains.csv, and run.json if it is there.

    Returns a Run. Raises Error for a file that is none of these, OSError for one that cannot be
    opened.
    """
    import json

    import numpy

    directory = os.fspath(directory)
    path = os.path.join(directory, "gains.csv")
    header, rows = _read_rows(path)
    columns = {}
    for i, name in enumerate(header):
        columns[name] = _column(path, name, [(line, row[i]) for line, row in rows])
    # Four columns of buttons are one array; gains.csv counts buttons from 1.
    for name in [n[:-2] for n in header if n.endswith("_1")]:
        if all(name + end in columns for end in _BUTTONS):
            columns[name] = numpy.stack([columns.pop(name + end) for end in _BUTTONS], axis=1)
    info = None
    json_path = os.path.join(directory, "run.json")
    if os.path.exists(json_path):
        with open(json_path, encoding="utf-8") as file:
            try:
                info = json.load(file)
            except ValueError as wrong:
                raise Error(f"{json_path}: {wrong}") from None
    return Run(directory, columns, info)
