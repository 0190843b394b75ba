// tessaly.constants: every enumeration member of every type library in the process as an
// int attribute (tessaly.constants.luxNoIndex == -1). Libraries loaded after the import
// (a test library, a plug-in) are picked up the first time a name is missing.
#pragma once

#include <pybind11/pybind11.h>

namespace tessaly::python {

class ConstantsModule {
public:
    // Creates tessaly.constants, importable on its own too (import tessaly.constants).
    static void Define(pybind11::module_& parent);
};

}  // namespace tessaly::python
