// Every type library linked into the process registers itself here when it loads, so that
// class lookup, dispatch and browsing find its interfaces, enumerations and coclasses.
#pragma once

#include <string_view>
#include <vector>

#include "platform/TypeInfo.h"

namespace tessaly {

class TypeLibraryRegistry {
public:
    static void Register(const TypeLibraryInfo& library);
    static std::vector<const TypeLibraryInfo*> Libraries();

    static const TypeLibraryInfo* FindLibrary(std::string_view name);
    static const CoClassInfo* FindCoClass(const CLSID& clsid);
    // Accepts the coclass name, the ProgID or the version-independent ProgID (any case).
    static const CoClassInfo* FindCoClass(std::string_view name);
    static const InterfaceInfo* FindInterface(const IID& iid);
};

// Placed as a static object by generated code: registers the library at load time.
struct TypeLibraryRegistrar {
    explicit TypeLibraryRegistrar(const TypeLibraryInfo& library) { TypeLibraryRegistry::Register(library); }
};

}  // namespace tessaly
