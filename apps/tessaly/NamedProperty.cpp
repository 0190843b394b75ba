#include "NamedProperty.h"

#include <charconv>
#include <strings.h>

#include "platform/Bstr.h"
#include "platform/ComPtr.h"
#include "platform/SafeArray.h"
#include "platform/TypeLibraryRegistry.h"

namespace tessaly::cli {

namespace {

HRESULT IdOf(IDispatch* object, std::string_view name, DISPID& id) noexcept {
    if (!object) return E_POINTER;
    std::string text(name);
    LPOLESTR names[] = {text.data()};
    return object->GetIDsOfNames(GUID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
}

std::string RealText(double value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return std::string(text, end);
}

// One element of a safe array of simple values.
std::string ElementText(VARTYPE vt, const void* element) {
    switch (vt) {
        case VT_I1: return std::to_string(*static_cast<const int8_t*>(element));
        case VT_UI1: return std::to_string(*static_cast<const uint8_t*>(element));
        case VT_I2: return std::to_string(*static_cast<const int16_t*>(element));
        case VT_UI2: return std::to_string(*static_cast<const uint16_t*>(element));
        case VT_I4: case VT_INT: return std::to_string(*static_cast<const int32_t*>(element));
        case VT_UI4: case VT_UINT: return std::to_string(*static_cast<const uint32_t*>(element));
        case VT_I8: return std::to_string(*static_cast<const int64_t*>(element));
        case VT_UI8: return std::to_string(*static_cast<const uint64_t*>(element));
        case VT_R4: return RealText(*static_cast<const float*>(element));
        case VT_R8: return RealText(*static_cast<const double*>(element));
        case VT_BOOL: return *static_cast<const VARIANT_BOOL*>(element) ? "true" : "false";
        case VT_BSTR: return std::string(BstrView(*static_cast<const BSTR*>(element)));
        case VT_VARIANT: return NamedProperty::Text(*static_cast<const VARIANT*>(element));
        default: return "?";
    }
}

std::string ArrayText(const VARIANT& value) {
    SAFEARRAY* array = (value.vt & VT_BYREF) ? *value.pparray : value.parray;
    if (!array) return {};
    const VARTYPE vt = value.vt & VT_TYPEMASK;
    const size_t count = SafeArrayElementCount(array);
    void* data = nullptr;
    if (FAILED(SafeArrayAccessData(array, &data))) return {};
    std::string text;
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < count; ++i) {
        if (i) text += ' ';
        text += ElementText(vt, bytes + i * array->cbElements);
    }
    SafeArrayUnaccessData(array);
    return text;
}

const CoClassInfo* ClassOf(IDispatch* object) noexcept {
    ComPtr<IProvideClassInfo> provider;
    if (!object || FAILED(object->QueryInterface(IProvideClassInfo::iid, provider.OutVoid())) || !provider)
        return nullptr;
    ComPtr<ITypeInfo> typeInfo;
    const CoClassInfo* coclass = nullptr;
    if (FAILED(provider->GetClassInfo(typeInfo.Out())) || !typeInfo || FAILED(typeInfo->GetCoClassInfo(&coclass)))
        return nullptr;
    return coclass;
}

std::string ObjectText(IUnknown* object) {
    if (!object) return {};
    ComPtr<IDispatch> dispatch;
    const CoClassInfo* coclass = SUCCEEDED(object->QueryInterface(IDispatch::iid, dispatch.OutVoid()))
                                     ? ClassOf(dispatch.get())
                                     : nullptr;
    return coclass ? coclass->versionIndependentProgId : "object";
}

}  // namespace

HRESULT NamedProperty::Get(IDispatch* object, std::string_view name, Variant& value) noexcept {
    DISPID id = 0;
    if (const HRESULT found = IdOf(object, name, id); FAILED(found)) return found;
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    Variant result;
    const HRESULT hr = object->Invoke(id, GUID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none, result.Out(),
                                      nullptr, nullptr);
    if (SUCCEEDED(hr)) value = std::move(result);
    return hr;
}

HRESULT NamedProperty::PutRef(IDispatch* object, std::string_view name, const VARIANT& value) noexcept {
    DISPID id = 0;
    if (const HRESULT found = IdOf(object, name, id); FAILED(found)) return found;
    VARIANT argument = value;  // read only by Invoke, which copies what it keeps
    DISPID named = DISPID_PROPERTYPUT;
    DISPPARAMS params{&argument, &named, 1, 1};
    return object->Invoke(id, GUID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYPUTREF, &params, nullptr, nullptr,
                          nullptr);
}

const ParamInfo* NamedProperty::ValueType(IDispatch* object, std::string_view name) noexcept {
    const CoClassInfo* coclass = ClassOf(object);
    if (!coclass) return nullptr;
    for (uint16_t i = 0; i < coclass->interfaceCount; ++i) {
        if (coclass->interfaces[i].flags & IMPLTYPEFLAG_FSOURCE) continue;
        for (const InterfaceInfo* iface = coclass->interfaces[i].iface; iface; iface = iface->base) {
            for (uint16_t m = 0; m < iface->memberCount; ++m) {
                const MemberInfo& member = iface->members[m];
                if (member.invokeKind != INVOKE_PROPERTYGET || member.paramCount == 0 ||
                    name.size() != std::char_traits<char>::length(member.name) ||
                    strncasecmp(member.name, name.data(), name.size()) != 0)
                    continue;
                const ParamInfo& last = member.params[member.paramCount - 1];
                if (last.flags & PARAMFLAG_FRETVAL) return &last;
            }
        }
    }
    return nullptr;
}

std::string NamedProperty::Text(const VARIANT& value) {
    if (value.vt & VT_ARRAY) return ArrayText(value);
    if (value.vt == (VT_BYREF | VT_VARIANT)) return value.pvarVal ? Text(*value.pvarVal) : std::string();
    switch (value.vt) {
        case VT_EMPTY: case VT_NULL: return {};
        case VT_DISPATCH: return ObjectText(value.pdispVal);
        case VT_UNKNOWN: return ObjectText(value.punkVal);
        case VT_BSTR: return std::string(BstrView(value.bstrVal));
        case VT_R4: return RealText(value.fltVal);
        case VT_R8: return RealText(value.dblVal);
        case VT_BOOL: return value.boolVal ? "true" : "false";
        case VT_ERROR: return std::to_string(value.scode);
        default: break;
    }
    if (!(value.vt & VT_BYREF)) {
        switch (value.vt) {
            case VT_I1: case VT_UI1: case VT_I2: case VT_UI2: case VT_I4: case VT_UI4: case VT_I8: case VT_UI8:
            case VT_INT: case VT_UINT:
                return ElementText(value.vt, &value.llVal);
            default: break;
        }
    }
    Variant text;
    if (FAILED(VariantChangeType(text.Out(), const_cast<VARIANT*>(&value), 0, VT_BSTR))) return "?";
    return std::string(BstrView(text.get().bstrVal));
}

}  // namespace tessaly::cli
