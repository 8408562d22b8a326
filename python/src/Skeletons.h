// Helpers shared by the skeleton, pose and IK bindings.
#pragma once

#include <memory>
#include <string>

#include "core/archive/Archive.h"
#include "core/skeleton/Skeleton.h"
#include "python/src/Common.h"

namespace zelto_py {

// `id` when it names a joint of `s`; IndexError otherwise.
unsigned short checkedJoint(const ZeltoCore::Skeleton& s, long id);

// The archive form of a skeleton or pose as bytes, the GIL released while writing.
template <class T>
py::bytes archiveBytes(const T& value) {
    ZeltoCore::Archive a(value.memSize(), 0);
    {
        py::gil_scoped_release release;
        a << value;
    }
    if (a.failed()) raiseError("cannot serialise");
    return py::bytes(reinterpret_cast<const char*>(a.data), a.position);
}

// A new T read from archive bytes (read in place); ZeltoError for damaged data.
template <class T>
std::shared_ptr<T> fromArchiveBytes(const py::buffer& data, const std::string& what) {
    const py::buffer_info b = data.request();
    ZeltoCore::Archive a;
    a.data = static_cast<unsigned char*>(b.ptr);
    a.size = uint64_t(b.size * b.itemsize);
    a.ownsData = false;
    auto value = std::make_shared<T>();
    LogCapture log;
    {
        py::gil_scoped_release release;
        a >> *value;
    }
    if (a.failed()) raiseError(log.describe("damaged " + what + " data"));
    return value;
}

}  // namespace zelto_py
