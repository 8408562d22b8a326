"""MapMetadata as a dict and ArrayMetadata as a list."""
import pytest

import zelto


def test_map_behaves_like_a_dict(bag):
    assert len(bag) == 5 and "curve" in bag and "nope" not in bag and 3 not in bag
    assert list(bag) == bag.keys() == ["character", "curve", "joints", "lods", "visible"]
    assert bag["character"]["name"].value == "hero"
    assert [k for k, _ in bag.items()] == bag.keys() and len(bag.values()) == 5
    with pytest.raises(KeyError):
        bag["nope"]
    assert bag.get("nope") is None and bag.get("nope", 1) == 1
    del bag["visible"]
    with pytest.raises(KeyError):
        del bag["visible"]
    bag["empty"] = None  # an entry without value
    assert "empty" in bag and bag["empty"] is None and bag.value["empty"] is None


def test_map_shares_what_it_is_given():
    m = zelto.MapMetadata()
    v = zelto.create("DoubleMetadata", 1.0)
    m["v"] = v
    v.value = 2.0
    assert m["v"].value == 2.0 and m["v"] is v


def test_array_behaves_like_a_list():
    a = zelto.ArrayMetadata([1, "two", (3.0, 4.0)])
    assert len(a) == 3 and [e.value for e in a] == [1, "two", (3.0, 4.0)]
    assert a[-1].typeStr() == "Vector2Metadata"
    a.append(5.0)
    a.insert(0, "first")
    a[1] = 10
    del a[2]
    assert a.value == ["first", 10, (3.0, 4.0), 5.0]
    with pytest.raises(IndexError):
        a[4]
    v = zelto.create("IntMetadata", 1)
    a.append(v)
    v.value = 2
    assert a[-1].value == 1  # the library stores a copy


def test_nested_values_and_assignment(bag):
    natural = bag.value
    assert natural["joints"][1] == {"name": "knee", "weight": 0.5}
    assert natural["curve"] == [0.0, 0.25, 1.0]
    again = zelto.MapMetadata(natural)
    assert again.value == natural
    bag.value = {"only": 1}
    assert bag.keys() == ["only"]
