// Table entries of the pose and skeleton values: their natural Python value is the bound Pose or
// Skeleton object (a copy, so the value and the object never share state).
#include "core/pose/PoseMetadata.h"
#include "core/skeleton/SkeletonMetadata.h"
#include "python/src/ValueTable.h"

namespace zelto_py {

// Copies in both directions: a Python object given to a value is copied into it, and reading a
// value gives a new object.
template <class T>
struct ObjectConvert {
    static py::object to(const T& v) { return py::cast(std::make_shared<T>(v)); }
    static T from(py::handle h) {
        if (!py::isinstance<T>(h))
            throw py::type_error(std::string("expected a ") +
                                 py::str(py::type::of<T>().attr("__name__")).cast<std::string>());
        return h.cast<const T&>();
    }
};
template <>
struct Convert<ZeltoCore::Pose> : ObjectConvert<ZeltoCore::Pose> {};
template <>
struct Convert<ZeltoCore::Skeleton> : ObjectConvert<ZeltoCore::Skeleton> {};

void addObjectTypes(std::vector<ValueType>& out) {
    addScalarsAndArrays<ZeltoCore::Pose, ZeltoCore::Skeleton>(out);
}

}  // namespace zelto_py
