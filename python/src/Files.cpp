// Archives from Python: files, keyed loads from files, raw bytes and base64 text. Failures
// raise zelto.ZeltoError with the library's messages; the GIL is released while the library
// (de)serialises, compresses and does file I/O.
#include "core/archive/Archive.h"
#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/MapMetadata.h"
#include "core/metadata/MetadataFactory.h"
#include "python/src/Common.h"

namespace zelto_py {

using ZeltoCore::Archive;
using ZeltoCore::ArrayMetadata;
using ZeltoCore::MapMetadata;

namespace {

bool isContainer(const Metadata& v) {
    return v.typeId() == MapMetadata::staticTypeId() || v.typeId() == ArrayMetadata::staticTypeId();
}

// Containers compress value by value (so keyed loads read only the wanted blocks); other values
// compress as one block in their file.
uint64_t archiveFlags(const Metadata& v, bool compress, bool parallel) {
    uint64_t flags = parallel ? Archive::kParallel : 0;
    if (compress) flags |= isContainer(v) ? Archive::kCompressedContainers : Archive::kCompressFile;
    return flags;
}

// Serialises into `a` (flags already set): sized first unless the compressed container layout
// sizes it itself.
void serialise(const Metadata& v, Archive& a, const char* what) {
    LogCapture log;
    bool ok;
    {
        py::gil_scoped_release release;
        if (!(a.flags & Archive::kCompressedContainers) || !isContainer(v)) a.resize(v.memSize());
        ok = v.serialise(a) && !a.failed();
    }
    if (!ok) raiseError(log.describe(std::string("cannot serialise a ") + v.typeStr() + what));
}

// Reads one value at the archive's cursor; raises for unknown or damaged data.
py::object readValue(Archive& a, LogCapture& log, const std::string& where) {
    std::shared_ptr<Metadata> v;
    {
        py::gil_scoped_release release;
        v = ZeltoCore::readMetadata(a);
    }
    if (!v || a.failed()) raiseError(log.describe("unknown or damaged data in " + where));
    log.warn();
    return wrap(v);
}

py::object load(const std::string& path) {
    LogCapture log;
    Archive a;
    bool ok;
    {
        py::gil_scoped_release release;
        ok = a.readFromFile(path);
    }
    if (!ok) raiseError(log.describe("cannot read archive file '" + path + "'"));
    return readValue(a, log, "'" + path + "'");
}

void save(const std::string& path, const Metadata& value, bool compress, bool parallel) {
    Archive a;
    a.flags = archiveFlags(value, compress, parallel);
    serialise(value, a, "");
    LogCapture log;
    bool ok;
    {
        py::gil_scoped_release release;
        ok = a.writeToFile(path);
    }
    if (!ok) raiseError(log.describe("cannot write archive file '" + path + "'"));
}

py::object loadKeys(const std::string& path, const py::sequence& keys, bool parallel) {
    LogCapture log;
    bool ok;
    std::shared_ptr<Metadata> result;
    if (std::all_of(keys.begin(), keys.end(),
                    [](py::handle k) { return py::isinstance<py::int_>(k); }) &&
        keys.size()) {
        std::vector<size_t> indices;
        for (py::handle k : keys)
            indices.push_back(k.cast<size_t>());
        auto array = std::make_shared<ArrayMetadata>();
        py::gil_scoped_release release;
        ok = array->deserialiseKeys(path, indices, false);
        result = array;
    } else {
        std::vector<std::string> names;
        for (py::handle k : keys)
            names.push_back(fromPyStr(k));
        auto map = std::make_shared<MapMetadata>();
        py::gil_scoped_release release;
        ok = map->deserialiseKeys(path, names, false, parallel);
        result = map;
    }
    if (!ok) raiseError(log.describe("cannot load keys from '" + path + "'"));
    log.warn();
    return wrap(result);
}

py::bytes dumps(const Metadata& value, bool compress, bool parallel) {
    Archive a;
    a.flags = archiveFlags(value, compress, parallel) & ~Archive::kCompressFile;
    serialise(value, a, "");
    return py::bytes(reinterpret_cast<const char*>(a.data), a.size);
}

// Reads straight from the caller's buffer: the archive only borrows it.
py::object loads(const py::buffer& data, bool compress, bool parallel) {
    const py::buffer_info b = data.request();
    Archive a;
    a.data = static_cast<unsigned char*>(b.ptr);
    a.size = uint64_t(b.size * b.itemsize);
    a.ownsData = false;
    a.flags = (compress ? Archive::kCompressedContainers : 0) | (parallel ? Archive::kParallel : 0);
    LogCapture log;
    return readValue(a, log, "the bytes");
}

std::string encodeBase64(const Metadata& value, bool compress) {
    Archive a;
    serialise(value, a, "");
    py::gil_scoped_release release;
    return a.encodeBase64(compress);
}

py::object decodeBase64(const std::string& text) {
    LogCapture log;
    Archive a;
    bool ok;
    {
        py::gil_scoped_release release;
        ok = a.decodeBase64(text);
    }
    if (!ok) raiseError(log.describe("not base64 archive text"));
    return readValue(a, log, "the base64 text");
}

}  // namespace

void bindFiles(py::module_& m) {
    m.def("save", &save, py::arg("path"), py::arg("value"), py::arg("compress") = true,
          py::arg("parallel") = true,
          "Writes a value to an archive file. `compress`: maps and arrays compress value by "
          "value (load_keys then reads only the wanted blocks), other values as a whole. "
          "`parallel` spreads container work over threads. Raises ZeltoError on failure.");
    m.def("load", &load, py::arg("path"),
          "Reads the value stored in an archive file. Raises ZeltoError for a missing, "
          "damaged or unknown file.");
    m.def("load_keys", &loadKeys, py::arg("path"), py::arg("keys"), py::arg("parallel") = true,
          "Reads only some entries from an archive file holding a map (keys are str) or an "
          "array (keys are indices): a new MapMetadata / ArrayMetadata with those entries; "
          "absent keys are skipped. Raises ZeltoError for a damaged file.");
    m.def("dumps", &dumps, py::arg("value"), py::arg("compress") = false,
          py::arg("parallel") = false,
          "The value's archive bytes. With `compress`, containers use their compressed layout; "
          "pass the same to loads.");
    m.def("loads", &loads, py::arg("data"), py::arg("compress") = false,
          py::arg("parallel") = false,
          "The value in archive bytes (any buffer, read in place). Raises ZeltoError for "
          "unknown or damaged data.");
    m.def("encode_base64", &encodeBase64, py::arg("value"), py::arg("compress") = false,
          "The value's archive as base64 text; `compress` packs it first (text ends in ZIP).");
    m.def("decode_base64", &decodeBase64, py::arg("text"),
          "The value in base64 archive text (packed or not). Raises ZeltoError for bad text.");
}

}  // namespace zelto_py
