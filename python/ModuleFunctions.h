// The functions of the tessaly module, in groups by subject. A subject that brings
// functions of its own adds a group: its functions, and one call in AddModuleFunctions.
#pragma once

#include <pybind11/pybind11.h>

namespace tessaly::python {

void AddModuleFunctions(pybind11::module_& module);

}  // namespace tessaly::python
