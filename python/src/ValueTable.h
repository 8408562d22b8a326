// The table that drives every value type from Python: per registered type id, how to read and
// write its natural Python value and, for typed arrays, its elements and (when the elements are
// plain numbers) the shape of its storage for the buffer protocol.
//
// Entries are made by two templates, one for MetadataImpl<T> and one for TypedArrayMetadata<T>,
// instantiated per group in ValuesNumbers.cpp, ValuesImath.cpp, ValuesGeometry.cpp and
// ValuesObjects.cpp.
#pragma once

#include <pybind11/pybind11.h>

#include <string>
#include <type_traits>
#include <vector>

#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "python/src/Common.h"
#include "python/src/Convert.h"

namespace zelto_py {

// How typed array storage looks to NumPy: element scalar format and the dimensions of one
// element (none for numbers, {3} for 3-vectors, {4, 4} for matrices).
struct StorageLayout {
    std::string format;
    size_t scalarSize = 0;
    std::vector<py::ssize_t> elementShape;
    void* (*data)(Metadata&) = nullptr;
};

struct ValueType {
    unsigned id = 0;
    std::string name;
    bool isArray = false;
    py::object (*get)(const Metadata&) = nullptr;
    void (*set)(Metadata&, py::handle) = nullptr;
    // Typed arrays only.
    size_t (*size)(const Metadata&) = nullptr;
    void (*resize)(Metadata&, size_t) = nullptr;
    py::object (*item)(const Metadata&, size_t) = nullptr;
    void (*setItem)(Metadata&, size_t, py::handle) = nullptr;
    bool hasStorage = false;  // elements are plain numbers, exported through the buffer protocol
    StorageLayout storage;
};

// The entry of a type id; null for containers and types without Python conversions.
const ValueType* findValueType(unsigned id);
// Every entry, in the order buffers are matched against (the first fitting array type wins).
const std::vector<ValueType>& valueTypes();
// Replaces a typed array's elements; a buffer of the same storage layout is copied in one go.
// Raises BufferError when the size would change while NumPy views of the array exist.
void setArrayValue(Metadata& m, const ValueType& t, py::handle v);
// The first typed array type whose storage layout fits the buffer, or null.
const ValueType* arrayTypeForBuffer(py::handle buffer);
// Replaces the value of any value, containers included.
void setValue(Metadata& m, py::handle v);
void addNumberTypes(std::vector<ValueType>& out);
void addImathTypes(std::vector<ValueType>& out);
void addGeometryTypes(std::vector<ValueType>& out);
void addObjectTypes(std::vector<ValueType>& out);

// The plain-number shape of an element type, if it has one.
template <class T, class = void>
struct ElementLayout {
    static constexpr bool kPlain = false;
};
template <class T>
struct ElementLayout<T, std::enable_if_t<std::is_arithmetic_v<T> && !std::is_same_v<T, bool>>> {
    static constexpr bool kPlain = true;
    using Scalar = T;
    static std::vector<py::ssize_t> shape() { return {}; }
};
template <template <class> class V, class T>
struct VecLayout {
    static constexpr bool kPlain = true;
    using Scalar = T;
    static std::vector<py::ssize_t> shape() { return {V<T>::dimensions()}; }
};
template <class T>
struct ElementLayout<Imath::Vec2<T>> : VecLayout<Imath::Vec2, T> {};
template <class T>
struct ElementLayout<Imath::Vec3<T>> : VecLayout<Imath::Vec3, T> {};
template <class T>
struct ElementLayout<Imath::Vec4<T>> : VecLayout<Imath::Vec4, T> {};
template <class T>
struct ElementLayout<Imath::Quat<T>> {  // r, then x, y, z in memory
    static constexpr bool kPlain = true;
    using Scalar = T;
    static std::vector<py::ssize_t> shape() { return {4}; }
};
template <class T>
struct ElementLayout<Imath::Matrix44<T>> {
    static constexpr bool kPlain = true;
    using Scalar = T;
    static std::vector<py::ssize_t> shape() { return {4, 4}; }
};
template <class V>
struct ElementLayout<Imath::Box<V>> {
    static constexpr bool kPlain = true;
    using Scalar = typename V::BaseType;
    static std::vector<py::ssize_t> shape() { return {2, V::dimensions()}; }
};

template <class T>
ValueType scalarType() {
    using M = ZeltoCore::MetadataImpl<T>;
    ValueType t;
    t.id = M::staticTypeId();
    t.name = M::staticTypeStr();
    t.get = [](const Metadata& m) { return Convert<T>::to(static_cast<const M&>(m).get()); };
    t.set = [](Metadata& m, py::handle v) { static_cast<M&>(m).set(Convert<T>::from(v)); };
    return t;
}

template <class T>
ValueType arrayType() {
    using A = ZeltoCore::TypedArrayMetadata<T>;
    ValueType t;
    t.id = A::staticTypeId();
    t.name = A::staticTypeStr();
    t.isArray = true;
    t.get = [](const Metadata& m) {
        return Convert<std::vector<T>>::to(static_cast<const A&>(m).get());
    };
    t.set = [](Metadata& m, py::handle v) {
        static_cast<A&>(m).set(Convert<std::vector<T>>::from(v));
    };
    t.size = [](const Metadata& m) { return static_cast<const A&>(m).get().size(); };
    t.resize = [](Metadata& m, size_t n) { static_cast<A&>(m).get().resize(n); };
    t.item = [](const Metadata& m, size_t i) {
        return Convert<T>::to(static_cast<const A&>(m).get()[i]);
    };
    t.setItem = [](Metadata& m, size_t i, py::handle v) {
        static_cast<A&>(m).get()[i] = Convert<T>::from(v);
    };
    if constexpr (ElementLayout<T>::kPlain) {
        using S = typename ElementLayout<T>::Scalar;
        static_assert(sizeof(T) % sizeof(S) == 0, "element storage must be whole scalars");
        t.hasStorage = true;
        t.storage.format = py::format_descriptor<S>::format();
        t.storage.scalarSize = sizeof(S);
        t.storage.elementShape = ElementLayout<T>::shape();
        t.storage.data = [](Metadata& m) -> void* { return static_cast<A&>(m).get().data(); };
    }
    return t;
}

// Entries of the scalar and array types of every T.
template <class... T>
void addScalarsAndArrays(std::vector<ValueType>& out) {
    (out.push_back(scalarType<T>()), ...);
    (out.push_back(arrayType<T>()), ...);
}

}  // namespace zelto_py
