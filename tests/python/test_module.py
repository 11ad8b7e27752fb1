"""The module itself: what it exports, its stubs, what an import costs, and runs of the program."""
import ast
import inspect
import json
import pathlib
import re
import subprocess
import sys

import numpy as np
import pytest

import butngain


def test_importing_does_not_bring_numpy():
    # numpy costs more than the rest of the module; a notebook has it already.
    subprocess.run([sys.executable, "-c", "import sys, butngain; sys.exit('numpy' in sys.modules)"],
                   check=True)


def test_stubs_name_what_there_is():
    source = pathlib.Path(butngain.__file__).with_suffix(".pyi").read_text()
    stubs = {node.name: node for node in ast.parse(source).body
             if isinstance(node, (ast.ClassDef, ast.FunctionDef))}
    assert set(stubs) | {"__version__"} == set(butngain.__all__)
    for name, stub in stubs.items():
        real = getattr(butngain, name)
        if isinstance(stub, ast.FunctionDef):
            text = real.__doc__.splitlines()[0]
            for argument in stub.args.args + stub.args.kwonlyargs:
                assert argument.arg in text or argument.arg in inspect.signature(real).parameters
            continue
        if name in ("Error", "Run"):
            continue
        members = {item.name if isinstance(item, ast.FunctionDef) else item.target.id
                   for item in stub.body if not isinstance(item, ast.Expr)}
        assert members - {"__init__"} == {m for m in vars(real) if not m.startswith("_")
                                          or m in ("__len__", "__getitem__")}, name


def test_everything_is_explained():
    for name in butngain.__all__:
        thing = getattr(butngain, name)
        assert name == "__version__" or thing.__doc__, name
        if not inspect.isclass(thing):
            continue
        for member, value in vars(thing).items():
            # A unit alone says nothing.
            text = re.sub(r"\[.*?\]", "", getattr(value, "__doc__", None) or "")
            assert member.startswith("_") or re.search(r"[a-z]{3}", text), f"{name}.{member}"


csv = ("bpm,name,orbits,verdict,reason,gain_1,gain_2,gain_3,gain_4,error\n"
       '12,"12W",998,determined,,1.01E+00,9.9E-01,1.0E+00,1.0E+00,2E-04\n'
       '13,"13W",0,not fitted,"no signal, at all",,,,,\n')


def test_a_run_is_read_back(tmp_path):
    (tmp_path / "gains.csv").write_text(csv)
    run = butngain.read_run(tmp_path)
    assert len(run) == 2 and run.info is None
    assert list(run["bpm"]) == [12, 13] and run["name"] == ["12W", "13W"]
    assert run["gain"].shape == (2, 4) and run["gain"][0, 0] == 1.01
    assert np.isnan(run["gain"][1]).all() and run["reason"][1] == "no signal, at all"
    (tmp_path / "run.json").write_text(json.dumps({"version": "0.1.0"}))
    assert butngain.read_run(str(tmp_path)).info["version"] == "0.1.0"


@pytest.mark.parametrize("text, line", [
    ("", "gains.csv:1: no column bpm"),
    (csv + "14,x\n", "gains.csv:4: found 2 fields, expected 10"),
    (csv.replace("998", "many"), 'gains.csv:2: found "many" in column orbits'),
    (csv.replace("2E-04", "2O-04"), 'gains.csv:2: found "2O-04" in column error'),
])
def test_faults_in_a_run_are_named(tmp_path, text, line):
    (tmp_path / "gains.csv").write_text(text)
    with pytest.raises(butngain.Error, match=line):
        butngain.read_run(tmp_path)
