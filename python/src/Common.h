// Shared pieces of the Python module: wrapping library values as Python objects, the project
// exception, and the capture of library log messages around a call.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <string>
#include <vector>

#include "core/metadata/Metadata.h"

namespace zelto_py {

namespace py = pybind11;
using ZeltoCore::Metadata;

// Registration of each family of bindings on the module.
void bindValues(py::module_& m);
void bindArrays(py::module_& m);
void bindContainers(py::module_& m);
void bindFiles(py::module_& m);
void bindSkeleton(py::module_& m);
void bindPose(py::module_& m);
void bindIk(py::module_& m);

// The Python object for a library value: a typed array as zelto.TypedArray, a map or array as
// its container class, anything else as zelto.Metadata; None for an empty pointer.
py::object wrap(std::shared_ptr<Metadata> value);
// The library value for a Python object: a zelto value itself (shared), otherwise a new value
// whose type is inferred from the Python value (see toMetadata in the stubs). Raises TypeError
// for values without a natural type.
std::shared_ptr<Metadata> toMetadata(py::handle object);
// A new value of the registered type `type` (name or id), set from `value` unless None.
std::shared_ptr<Metadata> createMetadata(py::handle type, py::handle value);
// The natural Python value of a library value (containers recursively).
py::object toPython(const Metadata& value);

// Raises zelto.ZeltoError (a ValueError) with `message`.
[[noreturn]] void raiseError(const std::string& message);

// Collects the library's log messages while alive, from any thread; nested and concurrent
// captures each see every message. Without a capture, messages go to the previous handler.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void add(const std::string& message);
    std::vector<std::string> messages() const;
    // "what: message; message" or just `what` without messages.
    std::string describe(const std::string& what) const;
    // Turns the collected messages into Python warnings (zelto.ZeltoWarning). Needs the GIL.
    void warn() const;

private:
    std::vector<std::string> m_messages;
};

// Installs the module's log handler; called once at import.
void installLogHandler();

// Strings of the library are byte strings: decoded as UTF-8 with surrogateescape, so any bytes
// come back unchanged; str and bytes are accepted on the way in.
py::str toPyStr(const std::string& s);
std::string fromPyStr(py::handle h);

}  // namespace zelto_py
