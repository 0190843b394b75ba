// The module's class table: every class of the library (and of any type library linked
// into the process) that can be made by name. It replaces the registry's CLSID and ProgID
// keys: a coclass is found by CLSID, by ProgID ("Tessaly.LuxCollection.1"), by its
// version-independent ProgID ("Tessaly.LuxCollection") or by "{CLSID}".
#pragma once

#include <string_view>
#include <vector>

#include "platform/StandardInterfaces.h"
#include "platform/TypeInfo.h"

namespace tessaly {

// Makes a new object of one class and answers it for riid.
using ClassFactoryFunction = HRESULT (*)(REFIID riid, void** ppv) noexcept;

struct ClassEntry {
    const CoClassInfo* coclass;
    ClassFactoryFunction create;  // null for a class that cannot be made by clients
};

class ClassTable {
public:
    static void Register(const CoClassInfo& coclass, ClassFactoryFunction create);
    static const ClassEntry* Find(const CLSID& clsid) noexcept;
    // A ProgID, a version-independent ProgID (any case) or a "{CLSID}" string.
    static const ClassEntry* Find(std::string_view name) noexcept;
    static std::vector<ClassEntry> Entries();

    // The class object (an IClassFactory) of a registered, creatable class.
    // CLASS_E_CLASSNOTAVAILABLE for an unknown or non-creatable class.
    static HRESULT GetClassObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept;
};

// Creates an object from a ProgID (either form) or a "{CLSID}" string. Fails with
// CO_E_CLASSSTRING for a name that is neither, REGDB_E_CLASSNOTREG for a well-formed
// name no class answers to, CLASS_E_CLASSNOTAVAILABLE for a class clients cannot create;
// each failure leaves error info describing it.
HRESULT CreateObject(std::string_view progIdOrClsid, REFIID riid, void** ppv) noexcept;
HRESULT CreateObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept;

// Placed as a static object beside a class: enters it into the class table at load time.
//     static const tessaly::ClassRegistrar<LuxCollection> registrar;
template <class Class>
struct ClassRegistrar {
    ClassRegistrar() { ClassTable::Register(Class::CoClass(), &Class::CreateInstance); }
};

}  // namespace tessaly
