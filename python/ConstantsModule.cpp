#include "ConstantsModule.h"

#include <unordered_set>

#include "platform/TypeLibraryRegistry.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

py::module_* constants = nullptr;

// Enters the members of the libraries not seen yet; the first library to name a member keeps it.
void AddLibraries() {
    static auto* seen = new std::unordered_set<const TypeLibraryInfo*>;
    py::dict names = constants->attr("__dict__");
    for (const TypeLibraryInfo* library : TypeLibraryRegistry::Libraries()) {
        if (!seen->insert(library).second) continue;
        for (uint32_t e = 0; e < library->enumCount; ++e) {
            const EnumInfo& info = *library->enums[e];
            for (uint32_t m = 0; m < info.memberCount; ++m) {
                py::str name(info.members[m].name);
                if (!names.contains(name)) names[name] = py::int_(info.members[m].value);
            }
        }
    }
}

}  // namespace

void ConstantsModule::Define(py::module_& parent) {
    PyObject* created = PyModule_New("tessaly.constants");
    if (!created) throw py::error_already_set();
    py::module_ module = py::reinterpret_steal<py::module_>(created);
    module.doc() = "Every enumeration member of the type libraries: tessaly.constants.luxNoIndex, "
                   "tessaly.constants.e_LuxCollection_InvalidIndex, ...";
    constants = new py::module_(module);
    AddLibraries();
    module.attr("__getattr__") = py::cpp_function(
        [](const py::str& name) -> py::object {
            AddLibraries();
            py::dict names = constants->attr("__dict__");
            if (names.contains(name)) return names[name];
            throw py::attribute_error("module 'tessaly.constants' has no attribute '" + name.cast<std::string>() + "'");
        },
        py::name("__getattr__"));
    module.attr("__dir__") = py::cpp_function(
        [] {
            AddLibraries();
            py::list keys(py::dict(constants->attr("__dict__")).attr("keys")());
            keys.attr("sort")();
            return keys;
        },
        py::name("__dir__"));
    parent.add_object("constants", module);
    py::module_::import("sys").attr("modules")["tessaly.constants"] = module;
}

}  // namespace tessaly::python
