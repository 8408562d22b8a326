"""Typed arrays: list-like access and NumPy views of their own storage."""
import numpy as np
import pytest

import zelto

# Array types whose storage NumPy sees: dtype and the shape of one element.
VIEWS = {
    "CharArrayMetadata": (np.int8, ()), "UCharArrayMetadata": (np.uint8, ()),
    "ShortArrayMetadata": (np.int16, ()), "UShortArrayMetadata": (np.uint16, ()),
    "IntArrayMetadata": (np.int32, ()), "UIntArrayMetadata": (np.uint32, ()),
    "Int64ArrayMetadata": (np.int64, ()), "UInt64ArrayMetadata": (np.uint64, ()),
    "FloatArrayMetadata": (np.float32, ()), "DoubleArrayMetadata": (np.float64, ()),
    "Vector2ArrayMetadata": (np.float64, (2,)), "Vector2iArrayMetadata": (np.int32, (2,)),
    "Vector2fArrayMetadata": (np.float32, (2,)), "Vector3ArrayMetadata": (np.float64, (3,)),
    "Vector3iArrayMetadata": (np.int32, (3,)), "Vector3fArrayMetadata": (np.float32, (3,)),
    "Vector4ArrayMetadata": (np.float64, (4,)), "Vector4iArrayMetadata": (np.int32, (4,)),
    "Vector4fArrayMetadata": (np.float32, (4,)), "MatrixArrayMetadata": (np.float64, (4, 4)),
    "MatrixfArrayMetadata": (np.float32, (4, 4)), "QuaternionArrayMetadata": (np.float64, (4,)),
    "QuaternionfArrayMetadata": (np.float32, (4,)), "Box2ArrayMetadata": (np.float64, (2, 2)),
    "Box2iArrayMetadata": (np.int32, (2, 2)), "Box2fArrayMetadata": (np.float32, (2, 2)),
    "Box3ArrayMetadata": (np.float64, (2, 3)), "Box3iArrayMetadata": (np.int32, (2, 3)),
    "Box3fArrayMetadata": (np.float32, (2, 3)),
}


def address(a):
    return a.__array_interface__["data"][0]


@pytest.mark.parametrize("name", sorted(VIEWS))
def test_numpy_view_shares_the_storage(name):
    dtype, element = VIEWS[name]
    source = np.arange(3 * int(np.prod(element, dtype=int)), dtype=dtype).reshape((3,) + element)
    arr = zelto.create(name, source)  # one block copy in
    view = np.asarray(arr)
    assert view.dtype == dtype and view.shape == (3,) + element
    assert np.array_equal(view, source)
    assert address(np.asarray(arr)) == address(view)  # the same memory every time
    view[1] = 1  # writes through NumPy are the array's
    assert np.array_equal(np.asarray(zelto.loads(zelto.dumps(arr))), view)
    assert np.all(np.asarray(arr[1]) == 1)
    # A NumPy array of that layout becomes this type again.
    assert zelto.to_metadata(source).typeStr() == name or name in (
        "QuaternionArrayMetadata", "QuaternionfArrayMetadata")


def test_layout_of_quaternions_is_r_then_vector():
    q = zelto.create("QuaternionArrayMetadata", [(1.0, 2.0, 3.0, 4.0)])
    assert np.asarray(q).tolist() == [[1.0, 2.0, 3.0, 4.0]] and q[0] == (1.0, 2.0, 3.0, 4.0)
    box = zelto.create("Box3ArrayMetadata", [((0, 1, 2), (3, 4, 5))])
    assert np.asarray(box).tolist() == [[[0, 1, 2], [3, 4, 5]]]


def test_size_is_fixed_while_views_live():
    arr = zelto.create("DoubleArrayMetadata", [1.0, 2.0])
    view = np.asarray(arr)
    for change in (lambda: arr.resize(5), lambda: setattr(arr, "value", [1.0])):
        with pytest.raises(BufferError):
            change()
    arr.value = [5.0, 6.0]  # the same size writes in place
    arr.value = np.array([7.0, 8.0])
    assert view.tolist() == [7.0, 8.0]
    del view
    arr.resize(4)
    assert arr.value == [7.0, 8.0, 0.0, 0.0]


def test_list_behaviour_of_elements():
    arr = zelto.create("Vector3ArrayMetadata", [(1, 2, 3), (4, 5, 6)])
    assert len(arr) == 2 and arr[-1] == (4.0, 5.0, 6.0) and list(arr) == arr.value
    arr[0] = (0, 0, 1)
    assert arr.value[0] == (0.0, 0.0, 1.0)
    with pytest.raises(IndexError):
        arr[2]
    assert arr.basicTypeStr() == "Vector3Metadata"
    assert arr.getBasicTypeMetadata(0).value == (0.0, 0.0, 1.0)


def test_arrays_without_plain_storage_refuse_views():
    for name, value in (("StringArrayMetadata", ["a"]), ("BoolArrayMetadata", [True]),
                        ("EulerArrayMetadata", [(0, 0, 1)])):
        with pytest.raises(BufferError):
            memoryview(zelto.create(name, value))


def test_strided_and_foreign_buffers_are_copied_correctly():
    source = np.arange(12.0).reshape(6, 2)[:, 0]  # not contiguous
    assert zelto.create("DoubleArrayMetadata", source).value == source.tolist()
    assert zelto.create("FloatArrayMetadata", np.arange(3.0)).value == [0.0, 1.0, 2.0]
