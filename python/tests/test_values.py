"""Every registered value type through its natural Python value and back."""
import math

import pytest

import zelto
from conftest import IMAGE_FLOATS, sample


def value_types():
    types = [(i, n) for i, n in zelto.registered_types() if sample(n) is not None]
    assert len(types) > 70
    return types


def expected(name, value):
    # Samples are derived from the curve: compare the stored parts only.
    if "SampledCurve" in name:
        strip = lambda v: {k: v[k] for k in ("cvs", "knots", "degree", "sampleCount")}
        return [strip(v) for v in value] if isinstance(value, list) else strip(value)
    return value


@pytest.mark.parametrize("type_id,name", value_types())
def test_round_trip_by_name_and_id(type_id, name):
    default = zelto.create(name)
    assert (default.typeId(), default.typeStr()) == (type_id, name)
    default.value  # every type has a natural value, even its default
    natural = sample(name)
    by_name = zelto.create(name, natural)
    by_id = zelto.create(type_id, natural)
    assert by_name == by_id
    got = by_name.value
    if "SampledCurve" in name:
        got = expected(name, got)
    assert got == expected(name, natural)
    # Through archive bytes, base64 text and a clone: the same value comes back.
    assert zelto.loads(zelto.dumps(by_name)) == by_name
    assert zelto.decode_base64(zelto.encode_base64(by_name, compress=True)) == by_name
    assert by_name.clone() == by_name and by_name.clone() is not by_name
    assert by_name.memSize() == len(zelto.dumps(by_name))


def test_sampled_curve_samples_are_evaluated():
    v = zelto.create("SampledCurveMetadata", {"cvs": [(0, 0, 0), (1, 1, 0), (2, 0, 0), (3, 1, 0)], "sampleCount": 4})
    samples = v.value["samples"]
    assert len(samples) == 4 and samples[0] == (0.0, 0.0, 0.0) and samples[-1] == (3.0, 1.0, 0.0)


def test_float_image_and_byte_image():
    assert zelto.create("ImageMetadata", IMAGE_FLOATS).value == IMAGE_FLOATS
    with pytest.raises(ValueError):
        zelto.create("ImageMetadata", dict(IMAGE_FLOATS, samples=[1.0]))


def test_strings_keep_any_bytes():
    raw = b"\xff\x00name\xc3"
    v = zelto.create("StringMetadata", raw)
    assert v.value.encode("utf-8", "surrogateescape") == raw
    assert zelto.loads(zelto.dumps(v)).value == v.value
    assert zelto.create("StringMetadata", v.value) == v


@pytest.mark.parametrize("name,bad,error", [
    ("UCharMetadata", 256, OverflowError), ("CharMetadata", -129, OverflowError),
    ("UInt64Metadata", -1, OverflowError), ("Int64Metadata", 2**63, OverflowError),
    ("IntMetadata", 1.5, TypeError), ("Vector3Metadata", (1, 2), ValueError),
    ("MatrixMetadata", [[1, 2, 3, 4]], ValueError), ("DoubleMetadata", "x", TypeError),
    ("StringMetadata", 3, TypeError), ("CurveMetadata", [1], TypeError),
])
def test_bad_values_raise(name, bad, error):
    with pytest.raises(error):
        zelto.create(name, bad)


def test_unknown_types_raise_zelto_error():
    for bad in ("NoSuchMetadata", 9999):
        with pytest.raises(zelto.ZeltoError) as info:
            zelto.create(bad)
        assert isinstance(info.value, ValueError)


@pytest.mark.parametrize("python,name", [
    (True, "BoolMetadata"), (3, "IntMetadata"), (2**40, "Int64Metadata"), (0.5, "DoubleMetadata"),
    ("s", "StringMetadata"), (b"s", "StringMetadata"), ((1.0, 2.0), "Vector2Metadata"),
    ((1, 2, 3), "Vector3Metadata"), ((1, 2, 3, 4), "Vector4Metadata"), ({"a": 1}, "MapMetadata"),
    ([1, "a"], "ArrayMetadata"),
])
def test_to_metadata_picks_the_natural_type(python, name):
    assert zelto.to_metadata(python).typeStr() == name


def test_comparisons_and_hashes():
    a, b = zelto.create("DoubleMetadata", 1.0), zelto.create("DoubleMetadata", 1.0 + 1e-9)
    assert a != b and a.isEqual(b, 1e-6) and not a.isEqual(b)
    assert a.hash() == zelto.create("DoubleMetadata", 1.0).hash() != b.hash()
    assert zelto.create("FloatMetadata", 1.0) != a  # another type
    nan = zelto.create("DoubleMetadata", math.nan)
    assert nan == nan.clone()  # the same bytes
    assert repr(zelto.create("Vector3Metadata", (1, 2, 3))) == "<zelto.Vector3Metadata (1, 2, 3)>"


def test_stubs_cover_the_module():
    import ast, os
    stub = ast.parse(open(os.path.join(os.path.dirname(zelto.__file__), "__init__.pyi")).read())
    names = {n.name for n in stub.body if isinstance(n, (ast.FunctionDef, ast.ClassDef))}
    public = {n for n in dir(zelto) if not n.startswith("_") and callable(getattr(zelto, n))}
    assert public <= names
    for cls in stub.body:
        if isinstance(cls, ast.ClassDef) and hasattr(zelto, cls.name):
            declared = {f.name for f in cls.body if isinstance(f, ast.FunctionDef)}
            declared |= {f.target.id for f in cls.body if isinstance(f, ast.AnnAssign)}
            bound = {n for n in vars(getattr(zelto, cls.name)) if not n.startswith("_")}
            assert bound <= declared, cls.name


def test_pose_and_skeleton_values_hold_copies_and_round_trip():
    skeleton = zelto.Skeleton(3)
    pose = zelto.Pose()
    pose.setNumberJoints(3)
    for name, obj in (("SkeletonMetadata", skeleton), ("PoseMetadata", pose)):
        v = zelto.create(name, obj)
        held = v.value
        assert type(held) is type(obj) and held is not obj
        assert held.numJoints() == 3
        back = zelto.loads(zelto.dumps(v))
        assert back.typeStr() == name
        assert zelto.dumps(back) == zelto.dumps(v)
        assert v.isEqual(v) and not back.isEqual(v)  # isEqual: only to itself
    arrays = zelto.create("PoseArrayMetadata", [pose, pose])
    assert len(arrays) == 2 and arrays[1].numJoints() == 3
    with pytest.raises(TypeError):
        zelto.create("SkeletonMetadata", pose)
