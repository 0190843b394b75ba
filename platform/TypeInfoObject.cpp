#include "platform/TypeInfoObject.h"

#include <mutex>
#include <new>
#include <unordered_map>

#include "platform/Bstr.h"

namespace tessaly {

ITypeInfo* TypeInfoObject::Lookup(const void* table, const InterfaceInfo* iface, const CoClassInfo* coclass,
                                  const EnumInfo* enumeration) noexcept {
    // Never destroyed: type information may be asked for by static destructors of clients.
    static std::mutex* mutex = new std::mutex;
    static auto* objects = new std::unordered_map<const void*, TypeInfoObject*>;
    try {
        std::lock_guard lock(*mutex);
        auto& slot = (*objects)[table];
        if (!slot) slot = new TypeInfoObject(iface, coclass, enumeration);
        return slot;
    } catch (...) {
        return nullptr;
    }
}

ITypeInfo* TypeInfoObject::For(const InterfaceInfo& info) noexcept { return Lookup(&info, &info, nullptr, nullptr); }
ITypeInfo* TypeInfoObject::For(const CoClassInfo& info) noexcept { return Lookup(&info, nullptr, &info, nullptr); }
ITypeInfo* TypeInfoObject::For(const EnumInfo& info) noexcept { return Lookup(&info, nullptr, nullptr, &info); }

HRESULT TypeInfoObject::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    if (riid == IUnknown::iid || riid == ITypeInfo::iid) {
        *ppv = static_cast<ITypeInfo*>(this);
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

// Immortal: the count is reported as 1 so that callers never see zero.
ULONG TypeInfoObject::AddRef() { return 1; }
ULONG TypeInfoObject::Release() { return 1; }

HRESULT TypeInfoObject::GetTypeKind(TYPEKIND* kind) {
    if (!kind) return E_POINTER;
    if (coclass_) {
        *kind = TKIND_COCLASS;
    } else if (enum_) {
        *kind = TKIND_ENUM;
    } else {
        // A dual interface is described by its dispatch view, as IDispatch::GetTypeInfo
        // hands it out; InterfaceInfo::kind still tells it apart from a dispinterface.
        const bool vtableOnly = interface_->kind == InterfaceKind::Custom || interface_->kind == InterfaceKind::Local;
        *kind = vtableOnly ? TKIND_INTERFACE : TKIND_DISPATCH;
    }
    return S_OK;
}

HRESULT TypeInfoObject::GetName(BSTR* name) {
    if (!name) return E_POINTER;
    const char* text = coclass_ ? coclass_->name : enum_ ? enum_->name : interface_->name;
    *name = SysAllocString(text);
    return *name ? S_OK : E_OUTOFMEMORY;
}

HRESULT TypeInfoObject::GetGuid(GUID* guid) {
    if (!guid) return E_POINTER;
    // Enumerations carry no GUID in the tables.
    *guid = coclass_ ? coclass_->clsid : interface_ ? interface_->iid : GUID_NULL;
    return S_OK;
}

HRESULT TypeInfoObject::GetInterfaceInfo(const InterfaceInfo** info) {
    if (!info) return E_POINTER;
    *info = interface_;
    return interface_ ? S_OK : TYPE_E_ELEMENTNOTFOUND;
}

HRESULT TypeInfoObject::GetCoClassInfo(const CoClassInfo** info) {
    if (!info) return E_POINTER;
    *info = coclass_;
    return coclass_ ? S_OK : TYPE_E_ELEMENTNOTFOUND;
}

HRESULT TypeInfoObject::GetEnumInfo(const EnumInfo** info) {
    if (!info) return E_POINTER;
    *info = enum_;
    return enum_ ? S_OK : TYPE_E_ELEMENTNOTFOUND;
}

}  // namespace tessaly
