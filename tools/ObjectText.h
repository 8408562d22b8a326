// Text of the metadata values that hold a whole skeleton or pose, for `zelto inspect` and the demo.
//
//   skeleton: SkeletonMetadata
//     10 joints; feet: ankle_L (root hip_L, tip toe_L); pelvises: pelvis
//     0 pelvis [pelvis]
//       2 hip_L [foot 0 root]
//   pose: PoseMetadata
//     10 joints, parent space, active joints: all
#pragma once

#include <ostream>
#include <string>

namespace ZeltoCore {
class Metadata;
class Pose;
class Skeleton;
}  // namespace ZeltoCore

namespace ZeltoTool {

// A summary line (joint count, feet, pelvises), then the joint tree from the root, one "id name"
// line per joint with its roles in brackets, children indented by two spaces; joints outside the
// root's tree follow as trees of their own. Every joint is listed once, whatever its links.
void printSkeleton(std::ostream& out, const ZeltoCore::Skeleton& skeleton,
                   const std::string& indent);

// One line: joint count, space and the active joints ("all", or their ids).
void printPose(std::ostream& out, const ZeltoCore::Pose& pose, const std::string& indent);

// The lines above for a skeleton or pose value, or per element of an array of them (each under
// its "[i]"); false, printing nothing, for any other value.
bool printObjectValue(std::ostream& out, const ZeltoCore::Metadata& value,
                      const std::string& indent);

}  // namespace ZeltoTool
