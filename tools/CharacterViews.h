// Front and side views of skeleton poses: scenes of 3D segments and marks, drawn in rows of two
// panels at one common scale so that rows can be compared.
//
// Front view: world x to the right, y up (the character, facing +z, looks at the reader, its left
// side on the right). Side view from the character's right: world z to the right, y up.
//
//   Scene bind{"bind pose"};
//   bind.addBones(skeleton, poser.getAllWorldMatrix(pose), [](unsigned short) { return "#444"; });
//   drawViews({bind}, {{"#444", "bones"}}).write("character.svg");
#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathVec.h>

#include <functional>
#include <string>
#include <vector>

#include "core/skeleton/Skeleton.h"
#include "tools/Svg.h"

namespace ZeltoTool {

struct Scene {
    struct Segment {
        Imath::V3d a, b;
        std::string colour;
        double width = 2;
        bool dashed = false;
        bool arrow = false;  // an arrow head at b
    };
    struct Mark {
        Imath::V3d at;
        std::string colour;
        bool cross = false;  // a cross (targets) instead of a dot (joints)
    };

    std::string title;
    std::vector<Segment> segments;
    std::vector<Mark> marks;

    // The bone from each joint to its parent and a dot on the joint, for every joint that
    // `colourOf` gives a colour (an empty colour leaves the joint out).
    void addBones(const ZeltoCore::Skeleton& skeleton, const std::vector<Imath::M44d>& world,
                  const std::function<std::string(unsigned short)>& colourOf, double width = 2,
                  bool dashed = false);
};

struct LegendEntry {
    std::string colour;
    std::string text;
};

Svg drawViews(const std::vector<Scene>& rows, const std::vector<LegendEntry>& legend);

}  // namespace ZeltoTool
