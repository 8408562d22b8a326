// Convert<T>: a value type to its natural Python value and back.
//
// Numbers become int / float / bool, strings str, Imath vectors tuples, quaternions (r, x, y, z)
// (Imath's own order, also their memory order), Euler rotations their (x, y, z) angles (the
// order is not kept by archives either), boxes (min, max), matrices nested lists of rows, hashes
// (h1, h2), and curves, meshes and images dicts keyed by their member names. `from` accepts any
// sequence of the right length and raises TypeError / ValueError / OverflowError otherwise.
#pragma once

#include <Imath/ImathBox.h>
#include <Imath/ImathEuler.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "core/hash/MurmurHash3.h"
#include "python/src/Common.h"
#include "utils/Curve.h"
#include "utils/Image.h"
#include "utils/Mesh.h"
#include "utils/SampledCurve.h"

namespace zelto_py {

[[noreturn]] void raiseOverflow(const std::string& message);
// The items of a sequence that must have exactly n of them (TypeError / ValueError otherwise).
py::sequence expectSequence(py::handle h, size_t n, const char* what);

template <class T, class = void>
struct Convert;

template <class T>
struct Convert<T, std::enable_if_t<std::is_arithmetic_v<T>>> {
    static py::object to(const T& v) {
        if constexpr (std::is_same_v<T, bool>) {
            return py::bool_(v);
        } else if constexpr (std::is_floating_point_v<T>) {
            return py::float_(double(v));
        } else if constexpr (std::is_signed_v<T>) {
            return py::int_(static_cast<long long>(v));
        } else {
            return py::int_(static_cast<unsigned long long>(v));
        }
    }
    static T from(py::handle h) {
        if constexpr (std::is_same_v<T, bool>) {
            return h.cast<bool>();
        } else if constexpr (std::is_floating_point_v<T>) {
            const double d = PyFloat_AsDouble(h.ptr());
            if (d == -1.0 && PyErr_Occurred()) throw py::error_already_set();
            return static_cast<T>(d);
        } else {
            // Through Python's index protocol: floats are refused, numpy integers accepted.
            py::int_ i = py::reinterpret_steal<py::int_>(PyNumber_Index(h.ptr()));
            if (!i) throw py::error_already_set();
            int overflow = 0;
            const long long s = PyLong_AsLongLongAndOverflow(i.ptr(), &overflow);
            if constexpr (std::is_signed_v<T>) {
                if (!overflow && s >= std::numeric_limits<T>::min() &&
                    s <= std::numeric_limits<T>::max())
                    return static_cast<T>(s);
            } else {
                if (overflow > 0 || (!overflow && s >= 0)) {
                    const unsigned long long u = PyLong_AsUnsignedLongLong(i.ptr());
                    if (!PyErr_Occurred() && u <= std::numeric_limits<T>::max())
                        return static_cast<T>(u);
                    PyErr_Clear();
                }
            }
            raiseOverflow("integer out of range for this value type");
        }
    }
};

template <>
struct Convert<std::string> {
    static py::object to(const std::string& v) { return toPyStr(v); }
    static std::string from(py::handle h) { return fromPyStr(h); }
};

template <class T, int N>
struct ComponentsConvert {
    static py::object to(const T* c) {
        py::tuple t(N);
        for (int i = 0; i < N; ++i)
            t[i] = Convert<T>::to(c[i]);
        return std::move(t);
    }
    static void from(py::handle h, T* c, const char* what) {
        py::sequence s = expectSequence(h, N, what);
        for (int i = 0; i < N; ++i)
            c[i] = Convert<T>::from(s[i]);
    }
};

template <class T>
struct Convert<Imath::Vec2<T>> {
    static py::object to(const Imath::Vec2<T>& v) { return ComponentsConvert<T, 2>::to(&v.x); }
    static Imath::Vec2<T> from(py::handle h) {
        Imath::Vec2<T> v;
        ComponentsConvert<T, 2>::from(h, &v.x, "a 2-vector");
        return v;
    }
};

template <class T>
struct Convert<Imath::Vec3<T>> {
    static py::object to(const Imath::Vec3<T>& v) { return ComponentsConvert<T, 3>::to(&v.x); }
    static Imath::Vec3<T> from(py::handle h) {
        Imath::Vec3<T> v;
        ComponentsConvert<T, 3>::from(h, &v.x, "a 3-vector");
        return v;
    }
};

template <class T>
struct Convert<Imath::Vec4<T>> {
    static py::object to(const Imath::Vec4<T>& v) { return ComponentsConvert<T, 4>::to(&v.x); }
    static Imath::Vec4<T> from(py::handle h) {
        Imath::Vec4<T> v;
        ComponentsConvert<T, 4>::from(h, &v.x, "a 4-vector");
        return v;
    }
};

template <class T>
struct Convert<Imath::Quat<T>> {
    static py::object to(const Imath::Quat<T>& q) {
        const T c[4] = {q.r, q.v.x, q.v.y, q.v.z};
        return ComponentsConvert<T, 4>::to(c);
    }
    static Imath::Quat<T> from(py::handle h) {
        T c[4];
        ComponentsConvert<T, 4>::from(h, c, "a quaternion (r, x, y, z)");
        return Imath::Quat<T>(c[0], c[1], c[2], c[3]);
    }
};

template <class T>
struct Convert<Imath::Euler<T>> {
    static py::object to(const Imath::Euler<T>& e) { return ComponentsConvert<T, 3>::to(&e.x); }
    static Imath::Euler<T> from(py::handle h) {
        T c[3];
        ComponentsConvert<T, 3>::from(h, c, "Euler angles (x, y, z)");
        return Imath::Euler<T>(c[0], c[1], c[2]);
    }
};

template <class V>
struct Convert<Imath::Box<V>> {
    static py::object to(const Imath::Box<V>& b) {
        return py::make_tuple(Convert<V>::to(b.min), Convert<V>::to(b.max));
    }
    static Imath::Box<V> from(py::handle h) {
        py::sequence s = expectSequence(h, 2, "a box (min, max)");
        return Imath::Box<V>(Convert<V>::from(s[0]), Convert<V>::from(s[1]));
    }
};

template <class T>
struct Convert<Imath::Matrix44<T>> {
    static py::object to(const Imath::Matrix44<T>& m) {
        py::list rows(4);
        for (int i = 0; i < 4; ++i) {
            py::list row(4);
            for (int j = 0; j < 4; ++j)
                row[j] = py::float_(double(m[i][j]));
            rows[i] = std::move(row);
        }
        return std::move(rows);
    }
    static Imath::Matrix44<T> from(py::handle h) {
        Imath::Matrix44<T> m;
        py::sequence rows = expectSequence(h, 4, "a 4x4 matrix");
        for (int i = 0; i < 4; ++i)
            ComponentsConvert<T, 4>::from(rows[i], m[i], "a matrix row of 4 numbers");
        return m;
    }
};

template <>
struct Convert<ZeltoCore::MurmurHash3> {
    static py::object to(const ZeltoCore::MurmurHash3& h) {
        return py::make_tuple(Convert<uint64_t>::to(h.h1), Convert<uint64_t>::to(h.h2));
    }
    static ZeltoCore::MurmurHash3 from(py::handle h) {
        py::sequence s = expectSequence(h, 2, "a hash (h1, h2)");
        ZeltoCore::MurmurHash3 v;
        v.h1 = Convert<uint64_t>::from(s[0]);
        v.h2 = Convert<uint64_t>::from(s[1]);
        return v;
    }
};

template <class T>
struct Convert<std::vector<T>> {
    static py::object to(const std::vector<T>& v) {
        py::list l(v.size());
        for (size_t i = 0; i < v.size(); ++i)
            l[i] = Convert<T>::to(v[i]);
        return std::move(l);
    }
    static std::vector<T> from(py::handle h) {
        if (py::isinstance<py::str>(h) || py::isinstance<py::bytes>(h) ||
            !py::isinstance<py::sequence>(h))
            throw py::type_error("expected a sequence");
        py::sequence s = py::reinterpret_borrow<py::sequence>(h);
        std::vector<T> v;
        v.reserve(s.size());
        for (py::handle item : s)
            v.push_back(Convert<T>::from(item));
        return v;
    }
};

// Geometry values as dicts; defined in ValuesGeometry.cpp.
template <>
struct Convert<ZeltoUtils::Curve> {
    static py::object to(const ZeltoUtils::Curve& c);
    static ZeltoUtils::Curve from(py::handle h);
};
template <>
struct Convert<ZeltoUtils::SampledCurve> {
    static py::object to(const ZeltoUtils::SampledCurve& c);
    static ZeltoUtils::SampledCurve from(py::handle h);
};
template <>
struct Convert<ZeltoUtils::Mesh> {
    static py::object to(const ZeltoUtils::Mesh& m);
    static ZeltoUtils::Mesh from(py::handle h);
};
template <>
struct Convert<ZeltoUtils::Image> {
    static py::object to(const ZeltoUtils::Image& i);
    static ZeltoUtils::Image from(py::handle h);
};

}  // namespace zelto_py
