// Mesh: polygon mesh arrays with optional named UV sets.
//
// Contract: a plain, copyable aggregate of eight arrays in a fixed declaration order (readers and
// writers walk them in this order); all are empty by default and are not checked against each
// other.
//
//   ZeltoUtils::Mesh mesh;
//   mesh.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
//   mesh.faceCounts = {3};  mesh.faceIndices = {0, 1, 2};
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <Imath/ImathVec.h>

#include "utils/Export.h"

namespace ZeltoUtils {

// A named UV set: coordinates and the per-face-vertex indices into them.
struct ZELTO_API MeshUvSet {
    std::string name;
    std::vector<Imath::V2f> uvs;
    std::vector<int32_t> indices;
};

class ZELTO_API Mesh {
public:
    std::vector<Imath::V3f> points;
    std::vector<Imath::V3f> normals;
    std::vector<int32_t> faceCounts;   // vertices per face
    std::vector<int32_t> faceIndices;  // point index per face vertex
    std::vector<Imath::V2f> uvs;
    std::vector<Imath::V3f> colors;
    std::vector<Imath::V3i> triangles;
    std::vector<MeshUvSet> uvSets;
};

}  // namespace ZeltoUtils
