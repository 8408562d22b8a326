// Steps of `zelto demo`; each prints what it did and returns false when a check fails.
#pragma once

#include <ostream>
#include <string>

namespace ZeltoTool {

bool demoArchive(std::ostream& out);
// One value of every registered type, made by name and round-tripped through an archive.
bool demoAllTypes(std::ostream& out);
// A nested property bag round-tripped sequentially and in parallel, printed as a key tree, then
// written compressed to `bagPath` (kept) and read back key by key.
bool demoPropertyBag(std::ostream& out, const std::string& bagPath);
// A small character: its joint hierarchy and properties, its bind pose taken to local space and
// back, and the world positions of its feet.
bool demoCharacter(std::ostream& out);

}  // namespace ZeltoTool
