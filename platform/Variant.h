// The VARIANT functions of OLE Automation: initialise, clear, copy (deep for strings and
// arrays, a new reference for objects), dereference VT_BYREF, and convert between types
// with OLE's rules (banker's rounding to integers, DISP_E_OVERFLOW out of range,
// DISP_E_TYPEMISMATCH for text that is not a number, VARIANT_TRUE = -1). Beside them,
// `tessaly::Variant`, the owning wrapper for C++ code.
#pragma once

#include <string_view>
#include <utility>

#include "platform/AutomationTypes.h"

void VariantInit(VARIANTARG* value) noexcept;
// Releases what the variant owns and leaves it VT_EMPTY. DISP_E_BADVARTYPE for a type
// the runtime does not know, DISP_E_ARRAYISLOCKED for a locked array (the variant is
// left alone in both cases).
HRESULT VariantClear(VARIANTARG* value) noexcept;
// Copies `source` into `destination`, whose old value is cleared only once the copy has
// succeeded: on failure `destination` is left as it was.
HRESULT VariantCopy(VARIANTARG* destination, const VARIANTARG* source) noexcept;
// As VariantCopy, but a VT_BYREF source is copied as the value it refers to.
HRESULT VariantCopyInd(VARIANT* destination, const VARIANTARG* source) noexcept;
// Converts `source` to `type` into `destination` (which may be `source` itself).
// On failure `destination` is left as it was.
HRESULT VariantChangeType(VARIANTARG* destination, const VARIANTARG* source, USHORT flags, VARTYPE type) noexcept;
// The same; text is always read and written in the invariant form ('.' decimal point,
// ISO dates), whatever the locale.
HRESULT VariantChangeTypeEx(VARIANTARG* destination, const VARIANTARG* source, LCID lcid, USHORT flags,
                            VARTYPE type) noexcept;

namespace tessaly {

// Bytes of a number a VARIANT holds by value (integers, reals, VT_BOOL, VT_ERROR, VT_CY,
// VT_DATE); 0 for every other type.
size_t NumberValueSize(VARTYPE vt) noexcept;

// Bytes of the value a VT_BYREF|vt reference points at (a pointer for strings, objects and
// arrays); 0 for VT_VARIANT and for types no reference carries.
size_t ReferencedValueSize(VARTYPE vt) noexcept;

// Owns one VARIANT: clears it on destruction, copies it with VariantCopy. The value
// constructors make the natural automation type (int32_t → VT_I4, double → VT_R8,
// bool → VT_BOOL, text → VT_BSTR, an object → VT_DISPATCH or VT_UNKNOWN with a reference).
class Variant {
public:
    // Empty values, numbers and dates own nothing: making, moving and ending them stays
    // inline, since most values a load or an event passes are of that kind.
    Variant() noexcept : value_{} {}
    Variant(const VARIANT& value);  // a copy; throws std::bad_alloc when it cannot be made
    Variant(const Variant& other) : Variant(other.value_) {}
    Variant(Variant&& other) noexcept : value_(other.value_) { other.value_ = VARIANT{}; }
    Variant& operator=(Variant other) noexcept {
        std::swap(value_, other.value_);
        return *this;
    }
    ~Variant() {
        if (value_.vt > VT_DATE) VariantClear(&value_);
    }

    explicit Variant(int32_t value) noexcept;
    explicit Variant(int64_t value) noexcept;
    explicit Variant(double value) noexcept;
    explicit Variant(bool value) noexcept;
    explicit Variant(std::string_view text);  // throws std::bad_alloc
    explicit Variant(const char* text) : Variant(std::string_view(text ? text : "")) {}
    explicit Variant(IDispatch* object) noexcept;
    explicit Variant(IUnknown* object) noexcept;

    // Takes over a VARIANT the caller owns (and leaves it VT_EMPTY).
    static Variant Attach(VARIANT& value) noexcept;
    // Gives up the value; the wrapper is left VT_EMPTY.
    VARIANT Detach() noexcept;
    // Clears the value and returns the slot for an out parameter.
    VARIANT* Out() noexcept;

    const VARIANT& get() const noexcept { return value_; }
    VARIANT* ptr() noexcept { return &value_; }
    VARTYPE vt() const noexcept { return value_.vt; }

    // Converts in place; on failure the value is unchanged.
    HRESULT ChangeType(VARTYPE type, USHORT flags = 0) noexcept;
    // A copy into a caller's VARIANT, which is cleared first.
    HRESULT CopyTo(VARIANT* destination) const noexcept;

private:
    VARIANT value_;
};

}  // namespace tessaly
