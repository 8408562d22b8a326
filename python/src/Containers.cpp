// zelto.MapMetadata behaves like a dict of values, zelto.ArrayMetadata like a list.
//
// A map stores what it is given (m[key] = value shares the value, as a dict would); the library's
// array always stores clones, so an appended value is a copy of the one passed in.
#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/MapMetadata.h"
#include "python/src/ValueTable.h"

namespace zelto_py {

using ZeltoCore::ArrayMetadata;
using ZeltoCore::MapMetadata;

namespace {

py::list keysOf(const MapMetadata& map) {
    py::list l;
    for (const auto& entry : map)
        l.append(toPyStr(entry.first));
    return l;
}

size_t checkedIndex(const ArrayMetadata& a, py::ssize_t i, bool end = false) {
    const auto n = py::ssize_t(a.size());
    if (i < 0) i += n;
    if (i < 0 || i > n || (i == n && !end)) throw py::index_error("array index out of range");
    return size_t(i);
}

std::shared_ptr<Metadata> entry(MapMetadata& map, const std::string& key) {
    if (!map.hasKey(key)) throw py::key_error(key);
    return map.getEntry(key);
}

}  // namespace

void bindContainers(py::module_& m) {
    py::class_<MapMetadata, Metadata, std::shared_ptr<MapMetadata>>(
        m, "MapMetadata",
        "The property bag: keys (str) to values, sorted by key, used like a dict. An entry may "
        "hold no value (None).")
        .def(py::init<>())
        .def(py::init([](py::dict d) {
                 auto map = std::make_shared<MapMetadata>();
                 setValue(*map, d);
                 return map;
             }),
             py::arg("entries"), "A map of the given entries (values converted by to_metadata).")
        .def(
            "__getitem__",
            [](MapMetadata& self, py::handle key) { return wrap(entry(self, fromPyStr(key))); },
            "The stored value itself (None for an entry without value); KeyError when absent.")
        .def(
            "__setitem__",
            [](MapMetadata& self, py::handle key, py::handle value) {
                if (value.is_none())
                    self.addEmptyEntry(fromPyStr(key));
                else
                    self.insertEntry(fromPyStr(key), toMetadata(value));
            },
            "Stores a zelto value itself, or a new value made by to_metadata; None makes an entry "
            "without value.")
        .def(
            "__delitem__",
            [](MapMetadata& self, py::handle key) {
                const std::string k = fromPyStr(key);
                if (!self.hasKey(k)) throw py::key_error(k);
                self.eraseEntry(k);
            },
            "Removes an entry; KeyError when absent.")
        .def(
            "__contains__",
            [](const MapMetadata& self, py::handle key) {
                return (py::isinstance<py::str>(key) || py::isinstance<py::bytes>(key)) &&
                       self.hasKey(fromPyStr(key));
            },
            "Whether the key is present.")
        .def("__len__", &MapMetadata::size, "Number of entries.")
        .def(
            "__iter__", [](const MapMetadata& self) { return py::iter(keysOf(self)); },
            "Iterates over the keys in ascending order.")
        .def("keys", &keysOf, "All keys in ascending order.")
        .def(
            "values",
            [](MapMetadata& self) {
                py::list l;
                for (auto& [key, value] : self)
                    l.append(wrap(value));
                return l;
            },
            "The stored values in key order.")
        .def(
            "items",
            [](MapMetadata& self) {
                py::list l;
                for (auto& [key, value] : self)
                    l.append(py::make_tuple(toPyStr(key), wrap(value)));
                return l;
            },
            "(key, value) pairs in key order.")
        .def(
            "get",
            [](MapMetadata& self, py::handle key, py::object fallback) {
                const std::string k = fromPyStr(key);
                return self.hasKey(k) ? wrap(self.getEntry(k)) : fallback;
            },
            py::arg("key"), py::arg("default") = py::none(),
            "The stored value, or `default` when the key is absent.")
        .def("clear", &MapMetadata::clear, "Removes every entry.")
        .def("__repr__", [](const MapMetadata& self) {
            return "zelto.MapMetadata(" + py::repr(toPython(self)).cast<std::string>() + ")";
        });

    py::class_<ArrayMetadata, Metadata, std::shared_ptr<ArrayMetadata>>(
        m, "ArrayMetadata",
        "An ordered list of values of any types, used like a list. The library stores a copy of "
        "every value put in.")
        .def(py::init<>())
        .def(py::init([](py::iterable values) {
                 auto array = std::make_shared<ArrayMetadata>();
                 setValue(*array, values);
                 return array;
             }),
             py::arg("values"), "An array of copies of the values (converted by to_metadata).")
        .def(
            "__getitem__",
            [](ArrayMetadata& self, py::ssize_t i) { return wrap(self[checkedIndex(self, i)]); },
            "The stored element itself (None for an element that could not be read).")
        .def(
            "__setitem__",
            [](ArrayMetadata& self, py::ssize_t i, py::handle value) {
                const size_t index = checkedIndex(self, i);
                const auto v = toMetadata(value);
                self.erase(index);
                self.insert(index, v);
            },
            "Replaces an element with a copy of the value.")
        .def(
            "__delitem__",
            [](ArrayMetadata& self, py::ssize_t i) { self.erase(checkedIndex(self, i)); },
            "Removes an element.")
        .def("__len__", &ArrayMetadata::size, "Number of elements.")
        .def(
            "__iter__",
            [](ArrayMetadata& self) {
                py::list l;
                for (size_t i = 0; i < self.size(); ++i)
                    l.append(wrap(self[i]));
                return py::iter(l);
            },
            "Iterates over the stored elements.")
        .def(
            "append",
            [](ArrayMetadata& self, py::handle value) { self.push_back(toMetadata(value)); },
            py::arg("value"), "Appends a copy of the value.")
        .def(
            "insert",
            [](ArrayMetadata& self, py::ssize_t i, py::handle value) {
                self.insert(
                    checkedIndex(self,
                                 std::max<py::ssize_t>(std::min<py::ssize_t>(i, self.size()),
                                                       -py::ssize_t(self.size())),
                                 true),
                    toMetadata(value));
            },
            py::arg("index"), py::arg("value"), "Inserts a copy of the value before `index`.")
        .def("clear", &ArrayMetadata::clear, "Removes every element.")
        .def("__repr__", [](const ArrayMetadata& self) {
            return "zelto.ArrayMetadata(" + py::repr(toPython(self)).cast<std::string>() + ")";
        });
}

}  // namespace zelto_py
