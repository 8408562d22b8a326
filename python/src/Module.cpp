// The extension module zelto._zelto; the package zelto re-exports it.
#include "core/Init.h"
#include "python/src/Common.h"

PYBIND11_MODULE(_zelto, m) {
    m.doc() = "Python bindings of ZeltoCore: values, containers, archives, skeletons and poses.";
    ZeltoCore::initZeltoCore();
    zelto_py::installLogHandler();
    // A Python value of the wrong kind is a TypeError, not pybind11's RuntimeError.
    pybind11::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const pybind11::cast_error& e) {
            PyErr_SetString(PyExc_TypeError, e.what());
        }
    });
    zelto_py::bindValues(m);
    zelto_py::bindArrays(m);
    zelto_py::bindContainers(m);
    zelto_py::bindFiles(m);
    zelto_py::bindSkeleton(m);
    zelto_py::bindPose(m);
    zelto_py::bindIk(m);
}
