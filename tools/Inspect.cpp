#include "tools/Inspect.h"

#include <memory>
#include <sstream>

#include "core/ZeltoCore.h"
#include "tools/ObjectText.h"

namespace ZeltoTool {

using namespace ZeltoCore;

namespace {

// Long values (typed arrays of thousands of elements) are cut to keep one line per value.
constexpr size_t kMaxTextLength = 100;

std::string flagWords(uint64_t flags) {
    static const char* const names[] = {"compressed file", "compressed containers", "parallel"};
    std::string words;
    for (unsigned bit = 0; bit < 64; ++bit) {
        if (!(flags & (uint64_t(1) << bit))) continue;
        if (!words.empty()) words += ", ";
        words += bit < 3 ? names[bit] : "bit " + std::to_string(bit);
    }
    return words.empty() ? "none" : words;
}

// Opens the file and reads its data section (expanded when the file is compressed as a whole).
bool readData(const std::string& path, ArchiveFileReader& file, Archive& archive,
              std::ostream& err) {
    if (!file.open(path)) {
        if (file.isOpen())
            err << "zelto: " << path << " is not an archive file\n";
        else
            err << "zelto: cannot open " << path << "\n";
        return false;
    }
    if (!file.readDataSection(archive)) {
        err << "zelto: cannot read the data of " << path << "\n";
        return false;
    }
    return true;
}

std::shared_ptr<Metadata> readContainer(const std::string& path, Archive& archive,
                                        const InspectOptions& options, std::ostream& err) {
    const unsigned id = archive.peekTypeId();
    const bool keyed = !options.keys.empty();
    // The file's own flags are used by the file reader, so a --flags override reads the keys
    // from the data in memory instead.
    const bool fromFile = keyed && !options.hasFlags;
    if (id == MapMetadata::staticTypeId()) {
        auto map = std::make_shared<MapMetadata>();
        const bool ok = !keyed     ? map->deserialise(archive)
                        : fromFile ? map->deserialiseKeys(path, options.keys, false, false)
                                   : map->deserialiseKeys(archive, options.keys, false);
        if (ok) return map;
    } else if (id == ArrayMetadata::staticTypeId()) {
        std::vector<size_t> indices;
        for (const std::string& key : options.keys) {
            char* end = nullptr;
            const unsigned long long index = std::strtoull(key.c_str(), &end, 10);
            if (key.empty() || *end != '\0') {
                err << "zelto: the keys of an array are indices, not '" << key << "'\n";
                return nullptr;
            }
            indices.push_back(static_cast<size_t>(index));
        }
        auto array = std::make_shared<ArrayMetadata>();
        const bool ok = !keyed     ? array->deserialise(archive)
                        : fromFile ? array->deserialiseKeys(path, indices, false)
                                   : array->deserialiseKeys(archive, indices, false);
        if (ok) return array;
    } else if (keyed) {
        err << "zelto: --keys needs a map or an array\n";
        return nullptr;
    } else if (auto value = readMetadata(archive)) {
        return value;
    }
    err << "zelto: the data does not read as "
        << (archive.flags & Archive::kCompressedContainers ? "a compressed" : "a plain") << " "
        << (MetadataFactory::instance().getMetadataName(id).empty()
                ? "value (type id " + std::to_string(id) + " is unknown)"
                : MetadataFactory::instance().getMetadataName(id))
        << "; the container form may differ (--flags)\n";
    return nullptr;
}

}  // namespace

void printMetadataTree(std::ostream& out, const Metadata& value, const std::string& label,
                       int depth) {
    std::stringstream text;
    value.toString(text);
    std::string shown = text.str();
    if (shown.size() > kMaxTextLength) shown = shown.substr(0, kMaxTextLength) + " ...";
    const std::string indent(2 * size_t(depth), ' ');
    out << indent << label << ": " << value.typeStr();
    if (!shown.empty()) out << " = " << shown;
    out << "\n";
    if (printObjectValue(out, value, indent + "  ")) return;
    if (const auto* map = dynamic_cast<const MapMetadata*>(&value)) {
        for (const auto& [key, entry] : *map) {
            if (entry) {
                printMetadataTree(out, *entry, key, depth + 1);
            } else {
                out << indent << "  " << key << ": (no value)\n";
            }
        }
    } else if (const auto* list = dynamic_cast<const ArrayMetadata*>(&value)) {
        for (size_t i = 0; i < list->size(); ++i) {
            const std::string index = "[" + std::to_string(i) + "]";
            if (auto element = (*list)[i]) {
                printMetadataTree(out, *element, index, depth + 1);
            } else {
                out << indent << "  " << index << ": (no value)\n";
            }
        }
    }
}

int inspectFile(const std::string& path, const InspectOptions& options, std::ostream& out,
                std::ostream& err) {
    ArchiveFileReader file;
    Archive archive;
    if (!readData(path, file, archive, err)) return 1;
    const ArchiveFileHeader& header = file.header();

    out << "file:    " << path << "\n";
    out << "version: " << header.version << "\n";
    out << "flags:   " << header.flags << " (" << flagWords(header.flags) << ")\n";
    out << "text:    \"" << header.text << "\"\n";
    out << "data:    " << header.dataSize << " bytes, ";
    if (file.wasExpanded()) {
        out << "compressed (" << archive.size << " bytes expanded)\n";
    } else if (header.flags & Archive::kCompressFile) {
        out << "stored raw (flagged compressed, but does not decompress)\n";
    } else {
        out << "not compressed\n";
    }
    if (archive.size == 0) return 0;

    const uint64_t flags = options.hasFlags ? options.flags : header.flags;
    archive.flags = flags & (Archive::kCompressedContainers | Archive::kParallel);
    const unsigned id = archive.peekTypeId();
    if (id == MapMetadata::staticTypeId() || id == ArrayMetadata::staticTypeId()) {
        out << "form:    "
            << (archive.flags & Archive::kCompressedContainers ? "compressed" : "plain")
            << (options.keys.empty() ? "" : ", keyed read") << "\n";
    }
    const std::shared_ptr<Metadata> value = readContainer(path, archive, options, err);
    if (!value) return 1;
    printMetadataTree(out, *value, "data", 0);
    // Compressed blocks read as plain values fail one by one, and the map still reads.
    if (const auto* map = dynamic_cast<const MapMetadata*>(value.get())) {
        bool anyValue = false;
        for (const auto& entry : *map)
            anyValue = anyValue || entry.second;
        if (map->size() && !anyValue && !(archive.flags & Archive::kCompressedContainers))
            err << "zelto: no entry holds a value; was the map written compressed? (--flags 2)\n";
    }
    return 0;
}

}  // namespace ZeltoTool
