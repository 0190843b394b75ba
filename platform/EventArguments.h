// The argument block of an event fired from C++: the values converted to VARIANTs and
// laid out last-first, as IDispatch::Invoke expects them. Strings are copied into BSTRs
// owned by the block; everything else is lent to the sinks, which only read [in] arguments.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "platform/Bstr.h"
#include "platform/StandardInterfaces.h"
#include "platform/Variant.h"

namespace tessaly {

template <size_t N>
class EventArguments {
public:
    // bool -> VT_BOOL; integers by size and sign (VT_I1 ... VT_UI8); enumerations -> VT_I4;
    // float -> VT_R4; double -> VT_R8; strings -> VT_BSTR; IDispatch-derived pointers ->
    // VT_DISPATCH; other interface pointers -> VT_UNKNOWN; a VARIANT is passed as it is.
    template <class... Args>
    explicit EventArguments(Args&&... args) noexcept {
        static_assert(sizeof...(Args) == N);
        if constexpr (N > 0) {
            size_t index = N;
            auto store = [&](auto&& value) {
                --index;
                ok_ = Store(values_[index], owned_[index], std::forward<decltype(value)>(value)) && ok_;
            };
            (store(std::forward<Args>(args)), ...);
        }
    }
    ~EventArguments() {
        for (size_t i = 0; i < N; ++i)
            if (owned_[i]) VariantClear(&values_[i]);
    }
    EventArguments(const EventArguments&) = delete;
    EventArguments& operator=(const EventArguments&) = delete;

    // False when a string could not be allocated.
    bool Valid() const noexcept { return ok_; }
    DISPPARAMS& Params() noexcept {
        params_ = DISPPARAMS{N > 0 ? values_ : nullptr, nullptr, static_cast<UINT>(N), 0};
        return params_;
    }

private:
    template <class T>
    static bool Store(VARIANT& out, bool& owned, T&& value) noexcept {
        using V = std::remove_cvref_t<T>;
        out = VARIANT{};
        owned = false;
        if constexpr (std::is_same_v<V, VARIANT>) {
            out = value;
        } else if constexpr (std::is_same_v<V, bool>) {
            out.vt = VT_BOOL;
            out.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
        } else if constexpr (std::is_enum_v<V>) {
            out.vt = VT_I4;
            out.lVal = static_cast<int32_t>(value);
        } else if constexpr (std::is_integral_v<V>) {
            constexpr bool sign = std::is_signed_v<V>;
            if constexpr (sizeof(V) == 1) {
                out.vt = sign ? VT_I1 : VT_UI1;
                out.bVal = static_cast<uint8_t>(value);
            } else if constexpr (sizeof(V) == 2) {
                out.vt = sign ? VT_I2 : VT_UI2;
                out.uiVal = static_cast<uint16_t>(value);
            } else if constexpr (sizeof(V) == 4) {
                out.vt = sign ? VT_I4 : VT_UI4;
                out.ulVal = static_cast<uint32_t>(value);
            } else {
                out.vt = sign ? VT_I8 : VT_UI8;
                out.ullVal = static_cast<uint64_t>(value);
            }
        } else if constexpr (std::is_same_v<V, float>) {
            out.vt = VT_R4;
            out.fltVal = value;
        } else if constexpr (std::is_same_v<V, double>) {
            out.vt = VT_R8;
            out.dblVal = value;
        } else if constexpr (std::is_convertible_v<T, std::string_view>) {
            const std::string_view text(value);
            out.vt = VT_BSTR;
            out.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
            owned = true;
            return out.bstrVal != nullptr;
        } else if constexpr (std::is_pointer_v<V> && std::is_base_of_v<IDispatch, std::remove_pointer_t<V>>) {
            out.vt = VT_DISPATCH;
            out.pdispVal = value;
        } else if constexpr (std::is_pointer_v<V> && std::is_base_of_v<IUnknown, std::remove_pointer_t<V>>) {
            out.vt = VT_UNKNOWN;
            out.punkVal = value;
        } else {
            static_assert(sizeof(V) == 0, "no automation type for this event argument");
        }
        return true;
    }

    VARIANT values_[N > 0 ? N : 1];
    bool owned_[N > 0 ? N : 1] = {};
    bool ok_ = true;
    DISPPARAMS params_{};
};

}  // namespace tessaly
