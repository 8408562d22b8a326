// `zelto ik`: two-joint IK of one foot of a skeleton stored in an archive file, from its bind
// pose. The file holds either a skeleton in its own archive form, or (with `key`) a map whose
// entry `key` is a SkeletonMetadata value.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace ZeltoTool {

struct IkOptions {
    std::string file;
    unsigned foot = 0;
    std::vector<double> target;  // x, y, z
    std::vector<double> pole;    // empty: no pole vector, the bind pose's bend
    double stretch = 0.0;
    std::string key;  // empty: the file holds a skeleton, not a map
};

// Prints the joint rotations written and the distance to the target to `out`, problems to
// `err`; the exit code.
int ikCommand(const IkOptions& options, std::ostream& out, std::ostream& err);

}  // namespace ZeltoTool
