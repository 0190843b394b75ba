// The extension module `tessaly`: a late-bound automation client of the library. Objects
// are reached through IDispatch, their members resolved from the generated type tables.
#include <pybind11/pybind11.h>

#include "BoundMethod.h"
#include "ClientObject.h"
#include "ComError.h"
#include "ConstantsModule.h"
#include "EventConnection.h"
#include "MemberDescriptor.h"
#include "ModuleFunctions.h"
#include "ObjectIterator.h"
#include "OpaqueUnknown.h"
#include "PropertyIndexer.h"

namespace py = pybind11;

PYBIND11_MODULE(tessaly, module) {
    using namespace tessaly::python;
    module.doc() =
        "Tessaly Core from Python: a late-bound automation client.\n\n"
        "    import tessaly\n"
        "    items = tessaly.CreateObject(\"Tessaly.LuxCollection\")\n"
        "    items.Add(3.5, \"ratio\")          # methods; optional arguments may be left out\n"
        "    items.Item[\"ratio\"]              # properties with indices; also items[\"ratio\"]\n"
        "    items.Count                      # properties\n"
        "    tessaly.constants.luxNoIndex     # every enumeration member\n"
        "    conn = tessaly.GetEvents(items, sink)\n\n"
        "Failures raise tessaly.ComError (hresult, description, source).";
    ComError::Define(module);
    ClientObject::Define(module);
    MemberDescriptor::Define(module);
    BoundMethod::Define(module);
    PropertyIndexer::Define(module);
    ObjectIterator::Define(module);
    OpaqueUnknown::Define(module);
    EventConnection::Define(module);
    ConstantsModule::Define(module);
    AddModuleFunctions(module);
}
