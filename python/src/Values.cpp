// zelto.Metadata, creation by type name or id, and the natural Python values of every type.
#include <algorithm>
#include <cstring>
#include <unordered_map>

#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/MapMetadata.h"
#include "core/metadata/MetadataFactory.h"
#include "python/src/ValueTable.h"

namespace zelto_py {

using ZeltoCore::ArrayMetadata;
using ZeltoCore::MapMetadata;
using ZeltoCore::MetadataFactory;

namespace {

struct Table {
    std::vector<ValueType> ordered;  // numbers, Imath, geometry: the order of buffer matching
    std::unordered_map<unsigned, const ValueType*> byId;
};

const Table& table() {
    static const Table* t = [] {
        auto* table = new Table;
        addNumberTypes(table->ordered);
        addImathTypes(table->ordered);
        addGeometryTypes(table->ordered);
        addObjectTypes(table->ordered);
        for (const ValueType& v : table->ordered)
            table->byId.emplace(v.id, &v);
        return table;
    }();
    return *t;
}

// The serialised bytes of a value, for exact comparisons.
std::string bytesOf(const Metadata& m) {
    ZeltoCore::Archive a(m.memSize(), 0);
    m.serialise(a);
    return std::string(reinterpret_cast<const char*>(a.data), a.position);
}

std::shared_ptr<Metadata> createByName(const std::string& name) {
    return MetadataFactory::instance().createMetadata(name);
}

// Python int: IntMetadata when it fits 32 bits, Int64Metadata otherwise.
std::shared_ptr<Metadata> fromInt(py::handle h) {
    int overflow = 0;
    const long long v = PyLong_AsLongLongAndOverflow(h.ptr(), &overflow);
    if (overflow) raiseOverflow("integer out of the 64-bit range");
    if (v >= INT32_MIN && v <= INT32_MAX)
        return std::make_shared<ZeltoCore::MetadataImpl<int>>(static_cast<int>(v));
    return std::make_shared<ZeltoCore::MetadataImpl<int64_t>>(static_cast<int64_t>(v));
}

}  // namespace

const ValueType* findValueType(unsigned id) {
    auto it = table().byId.find(id);
    return it == table().byId.end() ? nullptr : it->second;
}

const std::vector<ValueType>& valueTypes() {
    return table().ordered;
}

py::object wrap(std::shared_ptr<Metadata> value) {
    if (!value) return py::none();
    if (value->isArray())
        return py::cast(std::static_pointer_cast<ZeltoCore::BaseTypedArrayMetadata>(value));
    return py::cast(std::move(value));
}

py::object toPython(const Metadata& m) {
    if (m.typeId() == MapMetadata::staticTypeId()) {
        py::dict d;
        for (const auto& [key, value] : static_cast<const MapMetadata&>(m))
            d[toPyStr(key)] = value ? toPython(*value) : py::none();
        return std::move(d);
    }
    if (m.typeId() == ArrayMetadata::staticTypeId()) {
        const auto& a = static_cast<const ArrayMetadata&>(m);
        py::list l(a.size());
        for (size_t i = 0; i < a.size(); ++i)
            l[i] = a[i] ? toPython(*a[i]) : py::none();
        return std::move(l);
    }
    if (const ValueType* t = findValueType(m.typeId())) return t->get(m);
    throw py::type_error("no Python value for " + m.typeStr());
}

void setValue(Metadata& m, py::handle v) {
    if (m.typeId() == MapMetadata::staticTypeId()) {
        if (!py::isinstance<py::dict>(v)) throw py::type_error("expected a dict");
        auto& map = static_cast<MapMetadata&>(m);
        MapMetadata fresh;
        for (auto item : py::reinterpret_borrow<py::dict>(v)) {
            if (item.second.is_none())
                fresh.addEmptyEntry(fromPyStr(item.first));
            else
                fresh.insertEntry(fromPyStr(item.first), toMetadata(item.second));
        }
        map.data().swap(fresh.data());
        return;
    }
    if (m.typeId() == ArrayMetadata::staticTypeId()) {
        auto& array = static_cast<ArrayMetadata&>(m);
        std::vector<std::shared_ptr<Metadata>> values;
        for (py::handle item : py::reinterpret_borrow<py::iterable>(v))
            values.push_back(toMetadata(item));
        array.clear();
        for (const auto& value : values)
            array.push_back(value);
        return;
    }
    const ValueType* t = findValueType(m.typeId());
    if (!t) throw py::type_error("no Python value for " + m.typeStr());
    if (t->isArray)
        setArrayValue(m, *t, v);
    else
        t->set(m, v);
}

std::shared_ptr<Metadata> createMetadata(py::handle type, py::handle value) {
    std::shared_ptr<Metadata> m;
    if (py::isinstance<py::int_>(type)) {
        m = MetadataFactory::instance().createMetadata(type.cast<unsigned>());
        if (!m) raiseError("unknown metadata type id " + py::str(type).cast<std::string>());
    } else {
        const std::string name = fromPyStr(type);
        m = createByName(name);
        if (!m) raiseError("unknown metadata type '" + name + "'");
    }
    if (!value.is_none()) setValue(*m, value);
    return m;
}

std::shared_ptr<Metadata> toMetadata(py::handle h) {
    if (py::isinstance<Metadata>(h)) {
        try {
            return h.cast<std::shared_ptr<Metadata>>();
        } catch (const py::cast_error&) {  // a view into a skeleton or pose: store a copy
            return h.cast<Metadata&>().clone();
        }
    }
    if (py::isinstance<py::bool_>(h)) return createMetadata(py::str("BoolMetadata"), h);
    if (py::isinstance<py::int_>(h)) return fromInt(h);
    if (py::isinstance<py::float_>(h)) return createMetadata(py::str("DoubleMetadata"), h);
    if (py::isinstance<py::str>(h) || py::isinstance<py::bytes>(h))
        return createMetadata(py::str("StringMetadata"), h);
    if (py::isinstance<py::dict>(h)) return createMetadata(py::str("MapMetadata"), h);
    if (py::isinstance<py::list>(h)) return createMetadata(py::str("ArrayMetadata"), h);
    if (py::isinstance<py::tuple>(h)) {
        const size_t n = py::len(h);
        if (n >= 2 && n <= 4)
            return createMetadata(py::str("Vector" + std::to_string(n) + "Metadata"), h);
    }
    if (PyObject_CheckBuffer(h.ptr())) {
        if (const ValueType* t = arrayTypeForBuffer(h)) return createMetadata(py::int_(t->id), h);
    }
    // numpy scalars and other number-likes.
    if (PyIndex_Check(h.ptr()))
        return fromInt(py::reinterpret_steal<py::object>(PyNumber_Index(h.ptr())));
    if (PyFloat_Check(h.ptr()) || PyNumber_Check(h.ptr()))
        return createMetadata(py::str("DoubleMetadata"), h);
    throw py::type_error("no metadata type for a Python " +
                         py::str(py::type::handle_of(h).attr("__name__")).cast<std::string>());
}

void bindValues(py::module_& m) {
    py::class_<Metadata, std::shared_ptr<Metadata>>(
        m, "Metadata",
        "A typed library value. Create one with zelto.create(type, value); read and write its "
        "natural Python value through `value`.")
        .def("typeStr", &Metadata::typeStr, "The registered type name.")
        .def("typeId", &Metadata::typeId, "The registered type id.")
        .def("memSize", &Metadata::memSize, "Bytes of the value's archive form.")
        .def("isArray", &Metadata::isArray, "True for typed arrays.")
        .def_property(
            "value", [](const Metadata& self) { return toPython(self); },
            [](Metadata& self, py::handle v) { setValue(self, v); },
            "The natural Python value (a copy); assigning replaces the content.")
        .def(
            "clone", [](const Metadata& self) { return wrap(self.clone()); },
            "A deep copy of the value.")
        .def(
            "hash",
            [](const Metadata& self) {
                ZeltoCore::MurmurHash3 h;
                self.hash(h);
                return Convert<ZeltoCore::MurmurHash3>::to(h);
            },
            "The value's 128-bit fingerprint as (h1, h2).")
        .def(
            "isEqual",
            [](const Metadata& self, Metadata& other, double tolerance) {
                return self.isEqual(&other, tolerance);
            },
            py::arg("other"), py::arg("tolerance") = 0.0,
            "The library's comparison: same type and equal within `tolerance`.")
        .def(
            "__eq__",
            [](const Metadata& self, py::handle other) -> py::object {
                if (!py::isinstance<Metadata>(other))
                    return py::reinterpret_borrow<py::object>(Py_NotImplemented);
                const Metadata& o = other.cast<const Metadata&>();
                return py::bool_(self.typeId() == o.typeId() && bytesOf(self) == bytesOf(o));
            },
            "Same type and the same archive bytes.")
        .def("__str__",
             [](const Metadata& self) {
                 std::stringstream s;
                 self.toString(s);
                 return toPyStr(s.str());
             })
        .def("__repr__", [](const Metadata& self) {
            std::stringstream s;
            self.toString(s);
            std::string text = s.str();
            if (text.size() > 60) text = text.substr(0, 57) + "...";
            return toPyStr("<zelto." + self.typeStr() + (text.empty() ? "" : " " + text) + ">");
        });
    py::setattr(m.attr("Metadata"), "__hash__", py::none());

    m.def(
        "create",
        [](py::handle type, py::handle value) { return wrap(createMetadata(type, value)); },
        py::arg("type"), py::arg("value") = py::none(),
        "A new value of a registered type, by name (\"DoubleMetadata\") or id (4), set from "
        "`value` when given. Raises ZeltoError for an unknown type.");
    m.def(
        "to_metadata", [](py::handle value) { return wrap(toMetadata(value)); }, py::arg("value"),
        "The value itself for a zelto value, otherwise a new value of the natural type: bool "
        "Bool, int Int (Int64 beyond 32 bits), float Double, str/bytes String, dict Map, list "
        "Array, a tuple of 2-4 numbers a double vector, a NumPy array the typed array of its "
        "dtype and shape.");
    m.def(
        "registered_types",
        [] {
            auto& f = MetadataFactory::instance();
            std::vector<std::pair<unsigned, std::string>> types;
            for (const std::string& name : f.getRegisteredMetadata()) {
                auto v = f.createMetadata(name);
                if (v) types.emplace_back(v->typeId(), name);
            }
            std::sort(types.begin(), types.end());
            py::list l;
            for (const auto& [id, name] : types)
                l.append(py::make_tuple(id, toPyStr(name)));
            return l;
        },
        "Every registered type as (id, name), by id.");
}

}  // namespace zelto_py
