// zelto.TypedArray: list-like element access and the buffer protocol over the array's own
// storage, so numpy.asarray(array) shares its memory.
//
// The buffer slots are our own (not pybind11's) so that the number of live exports per array is
// known: like bytearray, an array with live views refuses to change its size, which would move
// the storage under them.
#include <cstring>
#include <unordered_map>

#include "core/metadata/BaseTypedArrayMetadata.h"
#include "python/src/ValueTable.h"

namespace zelto_py {

using ZeltoCore::BaseTypedArrayMetadata;

namespace {

std::unordered_map<const Metadata*, int>& exportCounts() {
    static auto* counts = new std::unordered_map<const Metadata*, int>;
    return *counts;
}

void checkResizable(const Metadata& m) {
    auto it = exportCounts().find(&m);
    if (it != exportCounts().end() && it->second > 0) {
        PyErr_SetString(PyExc_BufferError,
                        "cannot resize a typed array while buffer views of it exist");
        throw py::error_already_set();
    }
}

struct Export {
    const Metadata* owner;
    std::string format;
    std::vector<py::ssize_t> shape;
    std::vector<py::ssize_t> strides;
};

const ValueType& storageType(const Metadata& m) {
    const ValueType* t = findValueType(m.typeId());
    if (!t || !t->hasStorage)
        throw py::buffer_error(m.typeStr() + " elements are not plain numbers");
    return *t;
}

int getBuffer(PyObject* object, Py_buffer* view, int flags) {
    view->obj = nullptr;
    try {
        auto& array = py::handle(object).cast<BaseTypedArrayMetadata&>();
        const ValueType& t = storageType(array);
        auto* e = new Export{&array, t.storage.format, {py::ssize_t(t.size(array))}, {}};
        py::ssize_t elementSize = py::ssize_t(t.storage.scalarSize);
        for (py::ssize_t d : t.storage.elementShape) {
            e->shape.push_back(d);
            elementSize *= d;
        }
        e->strides.resize(e->shape.size());
        py::ssize_t stride = py::ssize_t(t.storage.scalarSize);
        for (size_t i = e->shape.size(); i-- > 0;) {
            e->strides[i] = stride;
            stride *= e->shape[i];
        }
        static char empty = 0;  // an empty vector may have no storage at all
        void* data = t.storage.data(array);
        view->buf = data ? data : &empty;
        view->obj = object;
        Py_INCREF(object);
        view->len = e->shape[0] * elementSize;
        view->readonly = 0;
        view->itemsize = py::ssize_t(t.storage.scalarSize);
        view->format = (flags & PyBUF_FORMAT) ? e->format.data() : nullptr;
        view->ndim = int(e->shape.size());
        view->shape = (flags & PyBUF_ND) == PyBUF_ND ? e->shape.data() : nullptr;
        view->strides = (flags & PyBUF_STRIDES) == PyBUF_STRIDES ? e->strides.data() : nullptr;
        view->suboffsets = nullptr;
        view->internal = e;
        ++exportCounts()[&array];
        return 0;
    } catch (py::error_already_set& error) {
        error.restore();
    } catch (const py::builtin_exception& error) {
        error.set_error();
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_BufferError, error.what());
    }
    return -1;
}

void releaseBuffer(PyObject*, Py_buffer* view) {
    auto* e = static_cast<Export*>(view->internal);
    if (!e) return;
    auto it = exportCounts().find(e->owner);
    if (it != exportCounts().end() && --it->second <= 0) exportCounts().erase(it);
    delete e;
    view->internal = nullptr;
}

// 'f'/'d' float, lower-case integer letters signed, upper-case unsigned; '?' bool.
char scalarKind(const std::string& format) {
    size_t i = 0;
    if (!format.empty() && (format[0] == '@' || format[0] == '=' || format[0] == '<')) i = 1;
    if (format.size() != i + 1) return 0;
    const char c = format[i];
    if (c == 'f' || c == 'd') return 'f';
    if (std::strchr("bhilqn", c)) return 'i';
    if (std::strchr("BHILQN", c)) return 'u';
    return 0;
}

bool fits(const py::buffer_info& b, const StorageLayout& s) {
    if (scalarKind(b.format) == 0 || scalarKind(b.format) != scalarKind(s.format) ||
        size_t(b.itemsize) != s.scalarSize || size_t(b.ndim) != 1 + s.elementShape.size())
        return false;
    for (size_t i = 0; i < s.elementShape.size(); ++i) {
        if (b.shape[i + 1] != s.elementShape[i]) return false;
    }
    return true;
}

bool cContiguous(const py::buffer_info& b) {
    py::ssize_t stride = b.itemsize;
    for (size_t i = b.shape.size(); i-- > 0;) {
        if (b.shape[i] > 1 && b.strides[i] != stride) return false;
        stride *= b.shape[i];
    }
    return true;
}

bool isBuffer(py::handle h) {
    return PyObject_CheckBuffer(h.ptr()) && !py::isinstance<py::bytes>(h) &&
           !py::isinstance<py::bytearray>(h);
}

size_t checkedIndex(const Metadata& m, const ValueType& t, py::ssize_t i) {
    const auto n = py::ssize_t(t.size(m));
    if (i < 0) i += n;
    if (i < 0 || i >= n) throw py::index_error("typed array index out of range");
    return size_t(i);
}

const ValueType& arrayType(const Metadata& m) {
    const ValueType* t = findValueType(m.typeId());
    if (!t || !t->isArray) throw py::type_error("no Python value for " + m.typeStr());
    return *t;
}

}  // namespace

const ValueType* arrayTypeForBuffer(py::handle h) {
    if (!isBuffer(h)) return nullptr;
    const py::buffer_info b = py::reinterpret_borrow<py::buffer>(h).request();
    for (const ValueType& t : valueTypes()) {
        if (t.hasStorage && fits(b, t.storage)) return &t;
    }
    return nullptr;
}

void setArrayValue(Metadata& m, const ValueType& t, py::handle v) {
    if (t.hasStorage && isBuffer(v)) {
        const py::buffer_info b = py::reinterpret_borrow<py::buffer>(v).request();
        if (fits(b, t.storage) && cContiguous(b)) {
            const auto n = size_t(b.shape[0]);
            if (n != t.size(m)) {
                checkResizable(m);
                t.resize(m, n);
            }
            size_t bytes = size_t(b.itemsize);
            for (py::ssize_t d : b.shape)
                bytes *= size_t(d);
            // memmove: the source may be a view of this very array.
            if (bytes) std::memmove(t.storage.data(m), b.ptr, bytes);
            return;
        }
    }
    if (exportCounts().count(&m) && py::len(v) != t.size(m)) checkResizable(m);
    t.set(m, v);
}

void bindArrays(py::module_& m) {
    py::class_<BaseTypedArrayMetadata, Metadata, std::shared_ptr<BaseTypedArrayMetadata>> cls(
        m, "TypedArray", py::buffer_protocol(),
        "An array of one value type (DoubleArrayMetadata, Vector3ArrayMetadata, ...). Arrays of "
        "numbers, vectors, quaternions, matrices and boxes expose their storage: "
        "numpy.asarray(array) shares its memory, shaped (n,), (n, k), (n, 4, 4) or (n, 2, k).");
    auto* type = reinterpret_cast<PyTypeObject*>(cls.ptr());
    type->tp_as_buffer->bf_getbuffer = getBuffer;
    type->tp_as_buffer->bf_releasebuffer = releaseBuffer;
    cls.def("__len__", [](const Metadata& self) { return arrayType(self).size(self); })
        .def(
            "__getitem__",
            [](const Metadata& self, py::ssize_t i) {
                const ValueType& t = arrayType(self);
                return t.item(self, checkedIndex(self, t, i));
            },
            "The natural value of one element.")
        .def(
            "__setitem__",
            [](Metadata& self, py::ssize_t i, py::handle v) {
                const ValueType& t = arrayType(self);
                t.setItem(self, checkedIndex(self, t, i), v);
            },
            "Sets one element from its natural value.")
        .def(
            "resize",
            [](Metadata& self, size_t n) {
                const ValueType& t = arrayType(self);
                if (n != t.size(self)) checkResizable(self);
                t.resize(self, n);
            },
            py::arg("size"), "Keeps the first elements; new ones take the type's default.")
        .def("basicTypeStr", &BaseTypedArrayMetadata::basicTypeStr,
             "Type name of the elements' scalar value type.")
        .def("isStatic", &BaseTypedArrayMetadata::isStatic, "All elements equal (within 1e-5).")
        .def("reverse", &BaseTypedArrayMetadata::reverse, "Reverses the elements in place.")
        .def(
            "getBasicTypeMetadata",
            [](const BaseTypedArrayMetadata& self, py::ssize_t i) {
                return wrap(self.getBasicTypeMetadata(checkedIndex(self, arrayType(self), i)));
            },
            py::arg("index"), "One element as a new value of the scalar type.");
}

}  // namespace zelto_py
