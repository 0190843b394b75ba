// ITypeInfo over the generated tables. There is one object per interface, coclass or
// enumeration, made on first request and kept for the life of the process: the tables it
// describes are static, so the object is too, and AddRef/Release do not count.
#pragma once

#include "platform/StandardInterfaces.h"
#include "platform/TypeInfo.h"

namespace tessaly {

class TypeInfoObject final : public ITypeInfo {
public:
    // The type information object of a table; nullptr only when out of memory. No
    // reference needs to be released, though Release is harmless.
    static ITypeInfo* For(const InterfaceInfo& info) noexcept;
    static ITypeInfo* For(const CoClassInfo& info) noexcept;
    static ITypeInfo* For(const EnumInfo& info) noexcept;

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override;
    ULONG Release() override;

    HRESULT GetTypeKind(TYPEKIND* kind) override;
    HRESULT GetName(BSTR* name) override;
    HRESULT GetGuid(GUID* guid) override;
    HRESULT GetInterfaceInfo(const InterfaceInfo** info) override;
    HRESULT GetCoClassInfo(const CoClassInfo** info) override;
    HRESULT GetEnumInfo(const EnumInfo** info) override;

private:
    TypeInfoObject(const InterfaceInfo* iface, const CoClassInfo* coclass, const EnumInfo* enumeration)
        : interface_(iface), coclass_(coclass), enum_(enumeration) {}
    ~TypeInfoObject() = default;
    static ITypeInfo* Lookup(const void* table, const InterfaceInfo* iface, const CoClassInfo* coclass,
                             const EnumInfo* enumeration) noexcept;

    const InterfaceInfo* interface_;
    const CoClassInfo* coclass_;
    const EnumInfo* enum_;
};

}  // namespace tessaly
