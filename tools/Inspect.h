// `zelto inspect`: what an archive file holds, header first, then the tree of the metadata
// container in its data. Also the tree printer the demo uses.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace ZeltoCore {
class Metadata;
}

namespace ZeltoTool {

struct InspectOptions {
    bool hasFlags = false;  // `flags` overrides the container bits of the file's flags
    uint64_t flags = 0;
    std::vector<std::string> keys;  // load only these keys (or indices of an array)
};

// Prints the file's header and contents to `out`, problems to `err`; the exit code.
int inspectFile(const std::string& path, const InspectOptions& options, std::ostream& out,
                std::ostream& err);

// One line per value, "label: TypeName = text", children of maps and arrays indented below, and
// below skeleton and pose values their joint tree or summary (tools/ObjectText.h).
void printMetadataTree(std::ostream& out, const ZeltoCore::Metadata& value,
                       const std::string& label, int depth);

}  // namespace ZeltoTool
