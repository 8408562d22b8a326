// The IK step of `zelto demo`.
#pragma once

#include <ostream>
#include <string>

namespace ZeltoTool {

// Plants the demo character's feet with the two-joint solver (left: pole vector, reachable
// target; right: no pole, target beyond reach, stretched), reaches with its tail through the three
// FABRIK solvers, prints what each reached, draws bind and solved poses into the SVG at
// `svgPath` and writes the skeleton as an archive file beside it (same name, ".zelto").
bool demoIk(std::ostream& out, const std::string& svgPath);

}  // namespace ZeltoTool
