// The run-time type information generated from the IDL: static tables describing every
// interface, member, parameter, enumeration and coclass of a type library. Dispatch, the
// class table, the command-line browser and the Python client all read these tables.
#pragma once

#include <cstdint>

#include "platform/AutomationTypes.h"

namespace tessaly {

// Parameter flags (same bits as OLE's PARAMFLAG_*).
constexpr uint16_t PARAMFLAG_NONE = 0x00;
constexpr uint16_t PARAMFLAG_FIN = 0x01;
constexpr uint16_t PARAMFLAG_FOUT = 0x02;
constexpr uint16_t PARAMFLAG_FLCID = 0x04;
constexpr uint16_t PARAMFLAG_FRETVAL = 0x08;
constexpr uint16_t PARAMFLAG_FOPT = 0x10;
constexpr uint16_t PARAMFLAG_FHASDEFAULT = 0x20;

// Member kinds (same bits as the wFlags of IDispatch::Invoke).
constexpr uint16_t INVOKE_FUNC = 1;
constexpr uint16_t INVOKE_PROPERTYGET = 2;
constexpr uint16_t INVOKE_PROPERTYPUT = 4;
constexpr uint16_t INVOKE_PROPERTYPUTREF = 8;

// Calls one member through its vtable. `self` is the object's pointer for the member's
// interface (what QueryInterface for that IID returns). `args` holds one VARIANT per
// non-retval parameter in declared order, prepared by the dispatcher:
//  - [in] parameters are already coerced to the parameter's `vt` (any type for VT_VARIANT);
//    for an interface parameter with an `iid`, punkVal already holds that interface (or null);
//  - [out] and [in,out] parameters hold a VARIANT of the parameter's `vt` (initialised, or
//    holding the coerced in-value); the thunk passes the address of the matching union
//    field (or of the VARIANT itself for VT_VARIANT) and the callee writes there.
// `result` arrives as VT_EMPTY; for a member with a retval parameter the thunk sets its
// vt and passes the address of the matching field. On failure the thunk leaves `result`
// VT_EMPTY.
using DispatchThunk = HRESULT (*)(void* self, VARIANT* args, VARIANT* result);

struct ParamInfo {
    const char* name;
    VARTYPE vt;              // automation type: VT_I4, VT_BSTR, VT_VARIANT, VT_DISPATCH, VT_ARRAY|VT_UI1, ...
    const IID* iid;          // the specific interface of a VT_UNKNOWN/VT_DISPATCH parameter, or nullptr
    const char* typeName;    // as written in the IDL, without the out pointer: "BSTR", "ILuxArchive*", "LuxStateIDs"
    uint16_t flags;          // PARAMFLAG_*
    const char* defaultValue;  // literal text of defaultvalue(...) (strings unquoted), nullptr when none
};

struct MemberInfo {
    const char* name;
    DISPID dispid;
    uint16_t invokeKind;     // INVOKE_*
    const ParamInfo* params; // every parameter, the retval one (if any) last
    uint16_t paramCount;
    const char* helpString;
    DispatchThunk thunk;     // nullptr for members of dispinterfaces (events) and [local] interfaces
};

enum class InterfaceKind : uint8_t {
    Dual,           // vtable interface derived from IDispatch, callable through dispatch
    DispInterface,  // dispatch only (outgoing event interfaces)
    Custom,         // vtable only ([oleautomation] on IUnknown), its members callable through dispatch
    Local,          // vtable only ([local]): C types and structs, called from C++ alone; no thunks
};

struct InterfaceInfo {
    const char* name;
    IID iid;
    const InterfaceInfo* base;  // nullptr when the base is IUnknown or IDispatch
    InterfaceKind kind;
    const char* helpString;
    const MemberInfo* members;  // members declared by this interface only
    uint16_t memberCount;
};

struct EnumMemberInfo {
    const char* name;
    int32_t value;
    const char* helpString;
};

struct EnumInfo {
    const char* name;
    const char* helpString;
    const EnumMemberInfo* members;
    uint32_t memberCount;
};

// Implementation flags of a coclass's interfaces (same bits as OLE's IMPLTYPEFLAG_*).
constexpr uint8_t IMPLTYPEFLAG_FDEFAULT = 0x1;
constexpr uint8_t IMPLTYPEFLAG_FSOURCE = 0x2;
constexpr uint8_t IMPLTYPEFLAG_FRESTRICTED = 0x4;

struct CoClassInterface {
    const InterfaceInfo* iface;
    uint8_t flags;  // IMPLTYPEFLAG_*
};

struct CoClassInfo {
    const char* name;                       // "LuxCollection"
    CLSID clsid;
    const char* helpString;
    bool creatable;                         // false for [noncreatable] coclasses
    const char* progId;                     // "Tessaly.LuxCollection.1"
    const char* versionIndependentProgId;   // "Tessaly.LuxCollection"
    const CoClassInterface* interfaces;
    uint16_t interfaceCount;
};

// The vtable interfaces a coclass names (source interfaces left out), as C++ types: the
// generated header declares one list per coclass (generated::CoClassInterfaceList_Name), and
// ComObject checks at compile time that the implementing class answers exactly these.
template <class... Interfaces>
struct InterfaceList {};

struct TypeLibraryInfo {
    const char* name;  // "TessalyCore"
    GUID libid;
    uint16_t majorVersion;
    uint16_t minorVersion;
    const char* helpString;
    const InterfaceInfo* const* interfaces;  // interfaces and dispinterfaces in IDL order
    uint32_t interfaceCount;
    const EnumInfo* const* enums;
    uint32_t enumCount;
    const CoClassInfo* const* coclasses;
    uint32_t coclassCount;
};

}  // namespace tessaly
