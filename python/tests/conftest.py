"""Sample values of every value family, shared by the tests."""
import math

import pytest

import zelto

CURVE = {"cvs": [(0.0, 0.0, 0.0), (1.0, 2.0, 0.0), (3.0, 2.0, 0.5), (4.0, 0.0, 0.0)],
         "knots": [0.0, 0.0, 0.0, 0.0, 1.0, 1.0, 1.0, 1.0], "degree": 3}
MESH = {"points": [(0.0, 0.0, 0.0), (1.0, 0.0, 0.0), (0.0, 1.0, 0.0)],
        "normals": [(0.0, 0.0, 1.0)] * 3, "faceCounts": [3], "faceIndices": [0, 1, 2],
        "uvs": [(0.0, 0.0), (1.0, 0.0), (0.0, 1.0)], "colors": [(1.0, 0.5, 0.25)] * 3,
        "triangles": [(0, 1, 2)],
        "uvSets": [{"name": "map1", "uvs": [(0.5, 0.5)], "indices": [0, 0, 0]}]}
IMAGE_BYTES = {"width": 2, "height": 1, "channels": 3, "samples": bytes([0, 1, 2, 250, 251, 255])}
IMAGE_FLOATS = {"width": 1, "height": 2, "channels": 1, "samples": [0.5, -1.25]}

# One natural value per scalar family, keyed by the name without "Metadata"; numbers are exact
# in single precision so that float types give them back unchanged.
SCALARS = {
    "Bool": True, "Char": -5, "UChar": 250, "Short": -30000, "UShort": 65000,
    "Int": -2_000_000_000, "UInt": 4_000_000_000, "Int64": -(2**62), "UInt64": 2**64 - 1,
    "Float": 1.25, "Double": math.pi, "String": "héllo\n",
    "Vector2": (1.5, -2.0), "Vector2i": (1, -2), "Vector2f": (0.5, 0.25),
    "Vector3": (1.0, 2.5, -3.0), "Vector3i": (7, 8, -9), "Vector3f": (0.5, 1.5, 2.5),
    "Vector4": (1.0, 2.0, 3.0, 4.5), "Vector4i": (1, 2, 3, -4), "Vector4f": (0.5, 1.0, 1.5, 2.0),
    "Matrix": [[float(4 * r + c) for c in range(4)] for r in range(4)],
    "Matrixf": [[0.5 * (4 * r + c) for c in range(4)] for r in range(4)],
    "Quaternion": (0.5, 0.5, -0.5, 0.5), "Quaternionf": (1.0, 0.0, 0.0, 0.0),
    "Euler": (0.25, -0.5, 1.0), "Eulerf": (0.5, 0.0, -0.25),
    "Box2": ((0.0, -1.0), (2.0, 3.5)), "Box2i": ((0, 1), (2, 3)), "Box2f": ((0.5, 0.5), (1.0, 2.0)),
    "Box3": ((0.0, 0.0, 0.0), (1.0, 2.0, 3.0)), "Box3i": ((-1, -2, -3), (4, 5, 6)),
    "Box3f": ((0.0, 0.25, 0.5), (1.0, 1.25, 1.5)),
    "Hash": (2**64 - 2, 12345), "Curve": CURVE, "Mesh": MESH, "Image": IMAGE_BYTES,
}


def sampled_curve():
    return dict(CURVE, sampleCount=5)


def scalar_sample(family):
    return sampled_curve() if family == "SampledCurve" else SCALARS[family]


def sample(name):
    """A natural value for the registered type `name`, or None for the containers."""
    # Containers, and poses and skeletons (equal only to themselves: tests of their own).
    if name in ("MapMetadata", "ArrayMetadata") or name.startswith(("Pose", "Skeleton")):
        return None
    family = name[:-len("Metadata")]
    if family.endswith("Array"):
        element = scalar_sample(family[:-len("Array")])
        return [element, element]
    return scalar_sample(family)


@pytest.fixture
def bag():
    """A nested property bag like the one the zelto demo writes."""
    return zelto.MapMetadata({
        "character": {"name": "hero", "height": 1.82, "tags": zelto.create("StringArrayMetadata", ["biped", "hero"])},
        "joints": [{"name": "hip", "weight": 1.0}, {"name": "knee", "weight": 0.5}],
        "curve": zelto.create("DoubleArrayMetadata", [0.0, 0.25, 1.0]),
        "lods": zelto.create("IntArrayMetadata", [3, 2, 1]),
        "visible": True,
    })
