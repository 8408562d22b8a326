#include <mutex>
#include <set>
#include <sstream>

#include "python/src/Convert.h"
#include "utils/Logger.h"

namespace zelto_py {

namespace {

// Leaked on purpose: the library may log while the interpreter shuts down.
struct CaptureRegistry {
    std::mutex mutex;
    std::set<LogCapture*> active;
    ZeltoUtils::Logger::Handler previous;
};

CaptureRegistry& registry() {
    static CaptureRegistry* r = new CaptureRegistry;
    return *r;
}

}  // namespace

LogCapture::LogCapture() {
    CaptureRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.active.insert(this);
}

LogCapture::~LogCapture() {
    CaptureRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.active.erase(this);
}

// Called with the registry locked.
void LogCapture::add(const std::string& message) {
    // The library's messages are streamed piece by piece with trailing spaces.
    const size_t end = message.find_last_not_of(" \n");
    m_messages.push_back(end == std::string::npos ? std::string() : message.substr(0, end + 1));
}

std::vector<std::string> LogCapture::messages() const {
    std::lock_guard<std::mutex> lock(registry().mutex);
    return m_messages;
}

std::string LogCapture::describe(const std::string& what) const {
    std::ostringstream s;
    s << what;
    const char* separator = ": ";
    for (const std::string& m : messages()) {
        s << separator << m;
        separator = "; ";
    }
    return s.str();
}

void LogCapture::warn() const {
    if (messages().empty()) return;
    py::object category = py::module_::import("zelto").attr("ZeltoWarning");
    for (const std::string& m : messages()) {
        if (PyErr_WarnEx(category.ptr(), m.c_str(), 2) < 0) throw py::error_already_set();
    }
}

void installLogHandler() {
    CaptureRegistry& r = registry();
    ZeltoUtils::Logger::Handler previous =
        ZeltoUtils::Logger::setHandler([](ZeltoUtils::Logger::Level level, const std::string& m) {
            CaptureRegistry& reg = registry();
            std::unique_lock<std::mutex> lock(reg.mutex);
            if (reg.active.empty()) {
                ZeltoUtils::Logger::Handler forward = reg.previous;
                lock.unlock();
                if (forward) forward(level, m);
                return;
            }
            for (LogCapture* c : reg.active)
                c->add(m);
        });
    std::lock_guard<std::mutex> lock(r.mutex);
    r.previous = std::move(previous);
}

void raiseError(const std::string& message) {
    py::object error = py::module_::import("zelto").attr("ZeltoError");
    PyErr_SetString(error.ptr(), message.c_str());
    throw py::error_already_set();
}

void raiseOverflow(const std::string& message) {
    PyErr_SetString(PyExc_OverflowError, message.c_str());
    throw py::error_already_set();
}

py::sequence expectSequence(py::handle h, size_t n, const char* what) {
    if (!PySequence_Check(h.ptr()) || py::isinstance<py::str>(h) || py::isinstance<py::bytes>(h))
        throw py::type_error(std::string("expected ") + what);
    py::sequence s = py::reinterpret_borrow<py::sequence>(h);
    if (s.size() != n) throw py::value_error(std::string("expected ") + what);
    return s;
}

py::str toPyStr(const std::string& s) {
    PyObject* o = PyUnicode_DecodeUTF8(s.data(), py::ssize_t(s.size()), "surrogateescape");
    if (!o) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(o);
}

std::string fromPyStr(py::handle h) {
    if (py::isinstance<py::bytes>(h)) return h.cast<std::string>();
    if (!py::isinstance<py::str>(h)) throw py::type_error("expected str or bytes");
    py::object b = py::reinterpret_steal<py::object>(
        PyUnicode_AsEncodedString(h.ptr(), "utf-8", "surrogateescape"));
    if (!b) throw py::error_already_set();
    return b.cast<std::string>();
}

}  // namespace zelto_py
