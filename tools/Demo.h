// Steps of `zelto demo`; each prints what it did and returns false when a check fails.
#pragma once

#include <ostream>

namespace ZeltoTool {

bool demoArchive(std::ostream& out);

}  // namespace ZeltoTool
