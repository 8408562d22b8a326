"""Archive files, keyed loads, bytes and base64, and damaged input."""
import os
import subprocess
import sys

import numpy as np
import pytest

import zelto


@pytest.mark.parametrize("compress", [False, True])
@pytest.mark.parametrize("parallel", [False, True])
def test_file_round_trip(tmp_path, bag, compress, parallel):
    path = str(tmp_path / "bag.zelto")
    zelto.save(path, bag, compress=compress, parallel=parallel)
    assert zelto.load(path) == bag
    some = zelto.load_keys(path, ["curve", "character", "absent"])
    assert some.keys() == ["character", "curve"]
    assert some["curve"] == bag["curve"] and some["character"] == bag["character"]


def test_keyed_load_of_an_array_and_plain_values(tmp_path):
    path = str(tmp_path / "list.zelto")
    zelto.save(path, zelto.ArrayMetadata(["a", "b", "c"]))
    assert zelto.load_keys(path, [2, 0]).value == ["c", "a"]
    big = zelto.create("DoubleArrayMetadata", np.linspace(0, 1, 10_000))
    zelto.save(path, big, compress=True)
    assert np.array_equal(np.asarray(zelto.load(path)), np.asarray(big))
    assert os.path.getsize(path) < big.memSize()


def test_missing_and_unwritable_files_raise(tmp_path):
    with pytest.raises(zelto.ZeltoError, match="cannot read archive file"):
        zelto.load(str(tmp_path / "missing.zelto"))
    with pytest.raises(zelto.ZeltoError):
        zelto.save(str(tmp_path / "no" / "dir" / "x.zelto"), zelto.create("IntMetadata", 1))
    with pytest.raises(ValueError):  # ZeltoError is a ValueError
        zelto.load_keys(str(tmp_path / "missing.zelto"), ["a"])


@pytest.mark.parametrize("compress", [False, True])
def test_damaged_files_raise_the_library_error(tmp_path, bag, compress):
    # The C++ tests and the fuzzers sweep damage; here only that a refusal arrives as ZeltoError.
    path = str(tmp_path / "bag.zelto")
    zelto.save(path, bag, compress=compress)
    good = open(path, "rb").read()
    for n in range(0, len(good), 7):
        with open(path, "wb") as f:
            f.write(good[:n])
        with pytest.raises(zelto.ZeltoError):
            zelto.load(path)
        try:  # the wanted values may lie before the cut
            zelto.load_keys(path, ["curve", "joints"])
        except zelto.ZeltoError:
            pass


def test_damaged_bytes_and_text_raise(bag):
    data = zelto.dumps(bag)
    for n in (0, 3, 4, 20, len(data) - 1):
        with pytest.raises(zelto.ZeltoError):
            zelto.loads(data[:n])
    with pytest.raises(zelto.ZeltoError):
        zelto.decode_base64("")
    with pytest.raises(zelto.ZeltoError):
        zelto.loads(b"\xff\xff\xff\xff" + data[4:])  # unknown type id


def test_compressed_bytes_need_the_same_flag(bag):
    data = zelto.dumps(bag, compress=True)
    assert zelto.loads(data, compress=True) == bag
    assert zelto.loads(zelto.dumps(bag, parallel=True), parallel=True) == bag


@pytest.mark.skipif(not os.environ.get("ZELTO_TOOL"), reason="the zelto tool is not built")
def test_files_written_by_the_tool_read_back(tmp_path):
    source = tmp_path / "in.zelto"
    zelto.save(str(source), zelto.MapMetadata({"a": 1.5, "b": "text"}), compress=False)
    text = tmp_path / "in.b64"
    subprocess.run([os.environ["ZELTO_TOOL"], "base64", "encode", "--compress", str(source), str(text)],
                   check=True, capture_output=True)
    assert zelto.decode_base64(text.read_text().strip()).value == {"a": 1.5, "b": "text"}


@pytest.mark.skipif(not os.environ.get("ZELTO_TOOL"), reason="the zelto tool is not built")
def test_readme_example_runs(tmp_path, monkeypatch, capsys):
    readme = open(os.path.join(os.path.dirname(__file__), "..", "..", "README.md")).read()
    code = readme.split("```python\n", 1)[1].split("```", 1)[0]
    assert len(code.strip().splitlines()) <= 12
    # The file the example reads is the one `zelto demo` leaves beside its drawing.
    subprocess.run([os.environ["ZELTO_TOOL"], "demo", "--svg", str(tmp_path / "character.svg")],
                   check=True, capture_output=True)
    monkeypatch.chdir(tmp_path)
    exec(compile(code, "README.md", "exec"), {})
    out = capsys.readouterr().out.splitlines()
    assert out[0] == "[0.0, 0.25, 1.0]"
    assert np.allclose([float(x) for x in out[1].strip("[]").split()], (14, 30, 16), atol=1e-6)