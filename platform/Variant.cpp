#include "platform/Variant.h"

#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "platform/Bstr.h"
#include "platform/CivilDate.h"
#include "platform/SafeArray.h"
#include "platform/StandardInterfaces.h"

namespace {

using Int128 = __int128;

// Types a VARIANT may hold by value.
bool IsScalarType(VARTYPE base) noexcept {
    switch (base) {
        case VT_EMPTY: case VT_NULL: case VT_I2: case VT_I4: case VT_R4: case VT_R8: case VT_CY:
        case VT_DATE: case VT_BSTR: case VT_DISPATCH: case VT_ERROR: case VT_BOOL: case VT_UNKNOWN:
        case VT_I1: case VT_UI1: case VT_UI2: case VT_UI4: case VT_I8: case VT_UI8: case VT_INT:
        case VT_UINT:
            return true;
        default:
            return false;
    }
}

// Element types of safe arrays.
bool IsArrayElementType(VARTYPE base) noexcept {
    return base == VT_VARIANT || (IsScalarType(base) && base != VT_EMPTY && base != VT_NULL);
}

bool IsValidType(VARTYPE vt) noexcept {
    const VARTYPE base = vt & VT_TYPEMASK;
    if (vt & ~(VT_TYPEMASK | VT_ARRAY | VT_BYREF)) return false;
    if (vt & VT_ARRAY) return IsArrayElementType(base);
    if (vt & VT_BYREF) return IsArrayElementType(base);
    return IsScalarType(base);
}

VARIANT Empty() noexcept {
    VARIANT value;
    VariantInit(&value);
    return value;
}

// A new owning copy of `source` in `out` (whose old contents are ignored).
HRESULT CopyInto(VARIANT& out, const VARIANT& source) noexcept {
    if (!IsValidType(source.vt)) return DISP_E_BADVARTYPE;
    out = source;
    if (source.vt & VT_BYREF) return S_OK;  // references are lent, never owned
    if (source.vt & VT_ARRAY) {
        if (!source.parray) return S_OK;
        const HRESULT hr = SafeArrayCopy(source.parray, &out.parray);
        if (FAILED(hr)) out = Empty();
        return hr;
    }
    switch (source.vt) {
        case VT_BSTR:
            if (source.bstrVal) {
                out.bstrVal = SysAllocStringLen(source.bstrVal, SysStringLen(source.bstrVal));
                if (!out.bstrVal) {
                    out = Empty();
                    return E_OUTOFMEMORY;
                }
            }
            return S_OK;
        case VT_DISPATCH:
        case VT_UNKNOWN:
            if (source.punkVal) source.punkVal->AddRef();
            return S_OK;
        default:
            return S_OK;
    }
}

// A non-owning view of what a VT_BYREF variant refers to; other variants are their own view.
HRESULT Dereference(const VARIANT& source, VARIANT& view) noexcept {
    if (!IsValidType(source.vt)) return DISP_E_BADVARTYPE;
    if (!(source.vt & VT_BYREF)) {
        view = source;
        return S_OK;
    }
    if (!source.byref) return E_INVALIDARG;
    const VARTYPE type = source.vt & ~VT_BYREF;
    view = Empty();
    if (type == VT_VARIANT) {
        // One level only: a variant lent by reference holds a value, not another reference.
        if (source.pvarVal->vt & VT_BYREF) return E_INVALIDARG;
        if (!IsValidType(source.pvarVal->vt)) return DISP_E_BADVARTYPE;
        view = *source.pvarVal;
        return S_OK;
    }
    view.vt = type;
    if (type & VT_ARRAY) {
        view.parray = *source.pparray;
        return S_OK;
    }
    std::memcpy(&view.llVal, source.byref, tessaly::ReferencedValueSize(type));
    return S_OK;
}

// Moves an owned value into `destination`, clearing what it held; on failure of the
// clear the value is released instead and the destination keeps its old contents.
HRESULT Store(VARIANT* destination, VARIANT& value) noexcept {
    const HRESULT hr = VariantClear(destination);
    if (FAILED(hr)) {
        VariantClear(&value);
        return hr;
    }
    *destination = value;
    return S_OK;
}

// ---------------------------------------------------------------------------------------
// Numbers: every source is read as an exact integer, a double or a currency amount, then
// written to the target type with one range check.

struct Number {
    enum class Kind { Integer, Real, Currency } kind = Kind::Integer;
    Int128 integer = 0;
    double real = 0;
    int64_t currency = 0;  // value times 10,000
    bool fromBool = false;
};

constexpr Int128 kInt64Min = static_cast<Int128>(INT64_MIN);
constexpr Int128 kInt64Max = static_cast<Int128>(INT64_MAX);
constexpr Int128 kUInt64Max = static_cast<Int128>(UINT64_MAX);

bool IntegerRange(VARTYPE type, Int128& low, Int128& high) noexcept {
    switch (type) {
        case VT_I1: low = INT8_MIN; high = INT8_MAX; return true;
        case VT_UI1: low = 0; high = UINT8_MAX; return true;
        case VT_I2: low = INT16_MIN; high = INT16_MAX; return true;
        case VT_UI2: low = 0; high = UINT16_MAX; return true;
        case VT_I4: case VT_INT: low = INT32_MIN; high = INT32_MAX; return true;
        case VT_UI4: case VT_UINT: low = 0; high = UINT32_MAX; return true;
        // An error code is 32 bits read either way: 0x80004005 and -2147467259 are the same code.
        case VT_ERROR: low = INT32_MIN; high = UINT32_MAX; return true;
        case VT_I8: low = kInt64Min; high = kInt64Max; return true;
        case VT_UI8: low = 0; high = kUInt64Max; return true;
        default: return false;
    }
}

bool IsUnsigned(VARTYPE type) noexcept {
    return type == VT_UI1 || type == VT_UI2 || type == VT_UI4 || type == VT_UINT || type == VT_UI8;
}

// Currency divided by 10,000 with ties to even, as every conversion to an integer rounds.
Int128 CurrencyToInteger(int64_t currency) noexcept {
    Int128 quotient = currency / 10000;
    const int64_t remainder = currency % 10000;
    const int64_t magnitude = remainder < 0 ? -remainder : remainder;
    if (magnitude > 5000 || (magnitude == 5000 && (quotient % 2) != 0)) quotient += remainder < 0 ? -1 : 1;
    return quotient;
}

// A double rounded to an integer, ties to even; false when not finite or far out of range.
bool RealToInteger(double real, Int128& integer) noexcept {
    if (!std::isfinite(real)) return false;
    const double rounded = std::nearbyint(real);  // the default rounding mode: ties to even
    if (std::fabs(rounded) >= 0x1p100) return false;
    integer = static_cast<Int128>(rounded);
    return true;
}

double NumberToReal(const Number& n) noexcept {
    switch (n.kind) {
        case Number::Kind::Integer: return static_cast<double>(n.integer);
        case Number::Kind::Real: return n.real;
        case Number::Kind::Currency: return static_cast<double>(n.currency) / 10000.0;
    }
    return 0;
}

// ---------------------------------------------------------------------------------------
// Dates: days since 1899-12-30; the fraction is the time of day whatever the sign.

constexpr int64_t kDaysFrom1970To1899 = tessaly::civil::kDateOrigin;
constexpr double kMinDate = static_cast<double>(tessaly::civil::kMinDateDay);  // 0100-01-01
constexpr double kMaxDate = 2958465.999988426;  // 9999-12-31 23:59:59
static_assert(static_cast<int64_t>(kMaxDate) == tessaly::civil::kMaxDateDay);

using tessaly::civil::CivilFromDays;
using tessaly::civil::DaysFromCivil;
using tessaly::civil::DaysInMonth;

std::string FormatDate(double date) {
    const double whole = std::trunc(date);
    int64_t seconds = std::llround(std::fabs(date - whole) * 86400.0);
    if (seconds >= 86400) seconds = 86399;  // a fraction that rounds up to midnight stays in its day
    int64_t year;
    unsigned month;
    unsigned day;
    CivilFromDays(static_cast<int64_t>(whole) + kDaysFrom1970To1899, year, month, day);
    char text[40];
    const int hours = static_cast<int>(seconds / 3600);
    const int minutes = static_cast<int>(seconds / 60 % 60);
    const int secs = static_cast<int>(seconds % 60);
    if (whole == 0 && seconds != 0)
        std::snprintf(text, sizeof text, "%02d:%02d:%02d", hours, minutes, secs);
    else if (seconds == 0)
        std::snprintf(text, sizeof text, "%04lld-%02u-%02u", static_cast<long long>(year), month, day);
    else
        std::snprintf(text, sizeof text, "%04lld-%02u-%02u %02d:%02d:%02d", static_cast<long long>(year), month, day,
                      hours, minutes, secs);
    return text;
}

using tessaly::civil::ReadDigits;

bool ParseTime(std::string_view text, size_t& pos, double& fraction) noexcept {
    unsigned hours;
    unsigned minutes;
    unsigned seconds = 0;
    if (!ReadDigits(text, pos, 2, hours) || pos >= text.size() || text[pos++] != ':' ||
        !ReadDigits(text, pos, 2, minutes))
        return false;
    if (pos < text.size() && text[pos] == ':') {
        ++pos;
        if (!ReadDigits(text, pos, 2, seconds)) return false;
    }
    if (hours > 23 || minutes > 59 || seconds > 59) return false;
    fraction = (hours * 3600.0 + minutes * 60.0 + seconds) / 86400.0;
    return true;
}

// "YYYY-MM-DD", "YYYY-MM-DD HH:MM[:SS]" (or with 'T'), or "HH:MM[:SS]".
bool ParseDate(std::string_view text, double& date) noexcept {
    size_t pos = 0;
    double fraction = 0;
    if (text.size() >= 3 && text[2] == ':') {
        if (!ParseTime(text, pos, fraction) || pos != text.size()) return false;
        date = fraction;
        return true;
    }
    unsigned year;
    unsigned month;
    unsigned day;
    if (!ReadDigits(text, pos, 4, year) || pos >= text.size() || text[pos++] != '-' ||
        !ReadDigits(text, pos, 2, month) || pos >= text.size() || text[pos++] != '-' ||
        !ReadDigits(text, pos, 2, day))
        return false;
    if (year < 100 || month < 1 || month > 12 || day < 1 || day > DaysInMonth(year, month)) return false;
    if (pos < text.size()) {
        if (text[pos] != ' ' && text[pos] != 'T') return false;
        ++pos;
        if (!ParseTime(text, pos, fraction) || pos != text.size()) return false;
    }
    const double days = static_cast<double>(DaysFromCivil(year, month, day) - kDaysFrom1970To1899);
    date = days < 0 ? days - fraction : days + fraction;
    return true;
}

// ---------------------------------------------------------------------------------------
// Text.

std::string_view Trim(std::string_view text) noexcept {
    const auto space = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; };
    while (!text.empty() && space(text.front())) text.remove_prefix(1);
    while (!text.empty() && space(text.back())) text.remove_suffix(1);
    return text;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

// A number written as [+-]digits[.digits][(e|E)[+-]digits], or the spellings of the
// infinities and NaN that the library writes. Integers stay exact.
HRESULT ParseNumber(std::string_view text, Number& n) noexcept {
    text = Trim(text);
    if (text == "1.#INF" || text == "+1.#INF" || text == "-1.#INF" || text == "1.#QNAN" || text == "-1.#QNAN" ||
        text == "-1.#IND") {
        n.kind = Number::Kind::Real;
        n.real = text.find("INF") != std::string_view::npos
                     ? (text.front() == '-' ? -HUGE_VAL : HUGE_VAL)
                     : std::nan("");
        return S_OK;
    }
    size_t pos = 0;
    bool negative = false;
    if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) negative = text[pos++] == '-';
    const size_t mantissa = pos;
    size_t digits = 0;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') ++pos, ++digits;
    bool integral = true;
    if (pos < text.size() && text[pos] == '.') {
        integral = false;
        ++pos;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') ++pos, ++digits;
    }
    if (digits == 0) return DISP_E_TYPEMISMATCH;
    bool negativeExponent = false;
    if (pos < text.size() && (text[pos] == 'e' || text[pos] == 'E')) {
        integral = false;
        ++pos;
        if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) negativeExponent = text[pos++] == '-';
        size_t exponentDigits = 0;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') ++pos, ++exponentDigits;
        if (exponentDigits == 0) return DISP_E_TYPEMISMATCH;
    }
    if (pos != text.size()) return DISP_E_TYPEMISMATCH;

    if (integral && digits <= 36) {
        Int128 value = 0;
        for (size_t i = mantissa; i < text.size(); ++i) value = value * 10 + (text[i] - '0');
        n.kind = Number::Kind::Integer;
        n.integer = negative ? -value : value;
        return S_OK;
    }
    double value = 0;
    const auto [end, error] = std::from_chars(text.data() + mantissa, text.data() + text.size(), value);
    if (error == std::errc::result_out_of_range) {
        if (!negativeExponent) return DISP_E_OVERFLOW;
        value = 0;  // too small to tell from zero
    } else if (error != std::errc() || end != text.data() + text.size()) {
        return DISP_E_TYPEMISMATCH;
    }
    n.kind = Number::Kind::Real;
    n.real = negative ? -value : value;
    return S_OK;
}

std::string FormatInteger(Int128 value) {
    if (value == 0) return "0";
    const bool negative = value < 0;
    unsigned __int128 magnitude = negative ? -static_cast<unsigned __int128>(value) : static_cast<unsigned __int128>(value);
    char digits[48];
    size_t count = 0;
    while (magnitude) {
        digits[count++] = static_cast<char>('0' + static_cast<int>(magnitude % 10));
        magnitude /= 10;
    }
    std::string text = negative ? "-" : "";
    while (count) text += digits[--count];
    return text;
}

// Significant digits as OLE shows them: 15 for doubles, 7 for floats.
std::string FormatReal(double value, int significantDigits) {
    if (std::isnan(value)) return "1.#QNAN";
    if (std::isinf(value)) return value < 0 ? "-1.#INF" : "1.#INF";
    if (value == 0) return "0";  // no "-0"
    char text[40];
    std::snprintf(text, sizeof text, "%.*G", significantDigits, value);
    return text;
}

std::string FormatCurrency(int64_t currency) {
    std::string text = FormatInteger(currency / 10000);
    int64_t fraction = currency % 10000;
    if (fraction == 0) return text;
    if (fraction < 0) {
        fraction = -fraction;
        if (currency > -10000) text = "-0";
    }
    char digits[8];
    std::snprintf(digits, sizeof digits, ".%04lld", static_cast<long long>(fraction));
    std::string decimals = digits;
    while (decimals.back() == '0') decimals.pop_back();
    return text + decimals;
}

HRESULT MakeText(std::string_view text, VARIANT& out) noexcept {
    out = Empty();
    out.vt = VT_BSTR;
    out.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (!out.bstrVal) {
        out = Empty();
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT ToText(const VARIANT& source, USHORT flags, VARIANT& out) noexcept {
    try {
        switch (source.vt) {
            case VT_EMPTY: return MakeText("", out);
            case VT_BOOL:
                if (flags & VARIANT_ALPHABOOL) return MakeText(source.boolVal ? "True" : "False", out);
                return MakeText(source.boolVal ? "-1" : "0", out);
            case VT_I1: return MakeText(FormatInteger(source.cVal), out);
            case VT_UI1: return MakeText(FormatInteger(source.bVal), out);
            case VT_I2: return MakeText(FormatInteger(source.iVal), out);
            case VT_UI2: return MakeText(FormatInteger(source.uiVal), out);
            case VT_I4: case VT_INT: return MakeText(FormatInteger(source.lVal), out);
            case VT_UI4: case VT_UINT: return MakeText(FormatInteger(source.ulVal), out);
            case VT_I8: return MakeText(FormatInteger(source.llVal), out);
            case VT_UI8: return MakeText(FormatInteger(source.ullVal), out);
            case VT_R4: return MakeText(FormatReal(source.fltVal, 7), out);
            case VT_R8: return MakeText(FormatReal(source.dblVal, 15), out);
            case VT_CY: return MakeText(FormatCurrency(source.cyVal.int64), out);
            case VT_DATE:
                if (!std::isfinite(source.date) || source.date < kMinDate || source.date > kMaxDate) return DISP_E_OVERFLOW;
                return MakeText(FormatDate(source.date), out);
            default: return DISP_E_TYPEMISMATCH;
        }
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

// Reads a scalar source as a number for `target`.
HRESULT ReadNumber(const VARIANT& source, VARTYPE target, Number& n) noexcept {
    switch (source.vt) {
        case VT_EMPTY: n.integer = 0; return S_OK;
        case VT_BOOL: n.integer = source.boolVal ? -1 : 0; n.fromBool = true; return S_OK;
        case VT_I1: n.integer = source.cVal; return S_OK;
        case VT_UI1: n.integer = source.bVal; return S_OK;
        case VT_I2: n.integer = source.iVal; return S_OK;
        case VT_UI2: n.integer = source.uiVal; return S_OK;
        case VT_I4: case VT_INT: n.integer = source.lVal; return S_OK;
        case VT_UI4: case VT_UINT: n.integer = source.ulVal; return S_OK;
        case VT_I8: n.integer = source.llVal; return S_OK;
        case VT_UI8: n.integer = source.ullVal; return S_OK;
        case VT_ERROR:
            // An error code converts only to the 32-bit integer types.
            if (target != VT_I4 && target != VT_UI4 && target != VT_INT && target != VT_UINT) return DISP_E_TYPEMISMATCH;
            n.integer = source.scode;
            return S_OK;
        case VT_R4: n.kind = Number::Kind::Real; n.real = source.fltVal; return S_OK;
        case VT_R8: case VT_DATE: n.kind = Number::Kind::Real; n.real = source.dblVal; return S_OK;
        case VT_CY: n.kind = Number::Kind::Currency; n.currency = source.cyVal.int64; return S_OK;
        case VT_BSTR: {
            const std::string_view text = Trim(tessaly::BstrView(source.bstrVal));
            if (target == VT_BOOL) {
                if (EqualsIgnoringCase(text, "true") || EqualsIgnoringCase(text, "#true#")) {
                    n.integer = -1;
                    return S_OK;
                }
                if (EqualsIgnoringCase(text, "false") || EqualsIgnoringCase(text, "#false#")) {
                    n.integer = 0;
                    return S_OK;
                }
            }
            if (target == VT_DATE && ParseDate(text, n.real)) {
                n.kind = Number::Kind::Real;
                return S_OK;
            }
            return ParseNumber(text, n);
        }
        default: return DISP_E_TYPEMISMATCH;
    }
}

HRESULT WriteNumber(const Number& n, VARTYPE target, VARIANT& out) noexcept {
    out = Empty();
    Int128 low;
    Int128 high;
    if (IntegerRange(target, low, high)) {
        Int128 value = 0;
        switch (n.kind) {
            case Number::Kind::Integer:
                // True is all bits set: 255 as a byte, as every unsigned type reads it.
                value = n.fromBool && n.integer == -1 && IsUnsigned(target) ? high : n.integer;
                break;
            case Number::Kind::Real:
                if (!RealToInteger(n.real, value)) return DISP_E_OVERFLOW;
                break;
            case Number::Kind::Currency: value = CurrencyToInteger(n.currency); break;
        }
        if (value < low || value > high) return DISP_E_OVERFLOW;
        out.vt = target;
        switch (target) {
            case VT_I1: out.cVal = static_cast<int8_t>(value); break;
            case VT_UI1: out.bVal = static_cast<uint8_t>(value); break;
            case VT_I2: out.iVal = static_cast<int16_t>(value); break;
            case VT_UI2: out.uiVal = static_cast<uint16_t>(value); break;
            case VT_I4: case VT_INT: out.lVal = static_cast<int32_t>(value); break;
            case VT_UI4: case VT_UINT: out.ulVal = static_cast<uint32_t>(value); break;
            case VT_ERROR: out.scode = static_cast<SCODE>(static_cast<uint32_t>(value & 0xFFFFFFFF)); break;
            case VT_I8: out.llVal = static_cast<int64_t>(value); break;
            default: out.ullVal = static_cast<uint64_t>(value); break;
        }
        return S_OK;
    }
    switch (target) {
        case VT_BOOL: {
            bool truth = false;
            switch (n.kind) {
                case Number::Kind::Integer: truth = n.integer != 0; break;
                case Number::Kind::Real: truth = n.real != 0; break;
                case Number::Kind::Currency: truth = n.currency != 0; break;
            }
            out.vt = VT_BOOL;
            out.boolVal = truth ? VARIANT_TRUE : VARIANT_FALSE;
            return S_OK;
        }
        case VT_R4: {
            const double real = NumberToReal(n);
            if (std::isfinite(real) && std::fabs(real) > FLT_MAX) return DISP_E_OVERFLOW;
            out.vt = VT_R4;
            out.fltVal = static_cast<float>(real);
            return S_OK;
        }
        case VT_R8:
            out.vt = VT_R8;
            out.dblVal = NumberToReal(n);
            return S_OK;
        case VT_DATE: {
            const double real = NumberToReal(n);
            if (!std::isfinite(real) || real < kMinDate || real > kMaxDate) return DISP_E_OVERFLOW;
            out.vt = VT_DATE;
            out.date = real;
            return S_OK;
        }
        case VT_CY: {
            Int128 scaled = 0;
            switch (n.kind) {
                case Number::Kind::Integer: scaled = n.integer * 10000; break;
                case Number::Kind::Real:
                    if (!RealToInteger(n.real * 10000.0, scaled)) return DISP_E_OVERFLOW;
                    break;
                case Number::Kind::Currency: scaled = n.currency; break;
            }
            if (scaled < kInt64Min || scaled > kInt64Max) return DISP_E_OVERFLOW;
            out.vt = VT_CY;
            out.cyVal.int64 = static_cast<int64_t>(scaled);
            return S_OK;
        }
        default: return DISP_E_BADVARTYPE;
    }
}

HRESULT Convert(const VARIANT& source, USHORT flags, VARTYPE target, VARIANT& out) noexcept;

// An object converts to the other object type by QueryInterface, and to a value through
// its default member (DISPID_VALUE), unless the caller asked for no value property.
HRESULT ConvertObject(const VARIANT& source, USHORT flags, VARTYPE target, VARIANT& out) noexcept {
    out = Empty();
    IUnknown* object = source.punkVal;
    if (target == VT_DISPATCH || target == VT_UNKNOWN) {
        out.vt = target;
        if (!object) return S_OK;
        void* answered = nullptr;
        const HRESULT hr = object->QueryInterface(target == VT_DISPATCH ? IDispatch::iid : IUnknown::iid, &answered);
        if (FAILED(hr)) {
            out = Empty();
            return DISP_E_TYPEMISMATCH;
        }
        out.punkVal = static_cast<IUnknown*>(answered);
        return S_OK;
    }
    if (!object || (flags & VARIANT_NOVALUEPROP)) return DISP_E_TYPEMISMATCH;
    IDispatch* dispatch = nullptr;
    if (FAILED(object->QueryInterface(IDispatch::iid, reinterpret_cast<void**>(&dispatch))) || !dispatch)
        return DISP_E_TYPEMISMATCH;
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    VARIANT value = Empty();
    const HRESULT got =
        dispatch->Invoke(DISPID_VALUE, GUID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none, &value, nullptr, nullptr);
    dispatch->Release();
    if (FAILED(got)) {
        VariantClear(&value);
        return DISP_E_TYPEMISMATCH;
    }
    // The default value of the default value is not looked for: one level, no cycles.
    const HRESULT hr = Convert(value, flags | VARIANT_NOVALUEPROP, target, out);
    VariantClear(&value);
    return hr;
}

// As in OLE, an array converts only to an array of its own type (a copy); besides that,
// text converts to a vector of its bytes and a byte array back to text.
HRESULT ConvertArray(const VARIANT& source, VARTYPE target, VARIANT& out) noexcept {
    out = Empty();
    if (source.vt != VT_BSTR || target != (VT_ARRAY | VT_UI1)) return DISP_E_TYPEMISMATCH;
    const std::string_view bytes = tessaly::BstrView(source.bstrVal);
    SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
    if (!array) return E_OUTOFMEMORY;
    if (!bytes.empty()) std::memcpy(array->pvData, bytes.data(), bytes.size());
    out.vt = target;
    out.parray = array;
    return S_OK;
}

// Converts a source that is not a reference into a new owned value.
HRESULT Convert(const VARIANT& source, USHORT flags, VARTYPE target, VARIANT& out) noexcept {
    out = Empty();
    if (!IsValidType(target) || (target & VT_BYREF)) return DISP_E_BADVARTYPE;
    if (source.vt == target) return CopyInto(out, source);
    if (target == VT_EMPTY) return S_OK;
    if (target & VT_ARRAY) return ConvertArray(source, target, out);
    if (source.vt & VT_ARRAY) {
        if (source.vt != (VT_ARRAY | VT_UI1) || target != VT_BSTR) return DISP_E_TYPEMISMATCH;
        if (!source.parray) return MakeText("", out);
        void* data = nullptr;
        HRESULT hr = SafeArrayAccessData(source.parray, &data);
        if (FAILED(hr)) return hr;
        const size_t size = tessaly::SafeArrayElementCount(source.parray);
        hr = size > 0x7FFFFFF0u ? E_OUTOFMEMORY : MakeText(std::string_view(static_cast<char*>(data), size), out);
        SafeArrayUnaccessData(source.parray);
        return hr;
    }
    if (source.vt == VT_DISPATCH || source.vt == VT_UNKNOWN) return ConvertObject(source, flags, target, out);
    if (source.vt == VT_NULL) return DISP_E_TYPEMISMATCH;
    if (target == VT_NULL) {
        if (source.vt != VT_EMPTY) return DISP_E_TYPEMISMATCH;
        out.vt = VT_NULL;
        return S_OK;
    }
    if (target == VT_DISPATCH || target == VT_UNKNOWN) {
        if (source.vt != VT_EMPTY) return DISP_E_TYPEMISMATCH;
        out.vt = target;  // nothing converts to a null object
        return S_OK;
    }
    if (target == VT_BSTR) return ToText(source, flags, out);
    Number n;
    const HRESULT hr = ReadNumber(source, target, n);
    if (FAILED(hr)) return hr;
    return WriteNumber(n, target, out);
}

}  // namespace

void VariantInit(VARIANTARG* value) noexcept {
    if (!value) return;
    value->vt = VT_EMPTY;
    value->wReserved1 = value->wReserved2 = value->wReserved3 = 0;
    value->llVal = 0;
}

HRESULT VariantClear(VARIANTARG* value) noexcept {
    if (!value) return E_INVALIDARG;
    // Empty values, numbers, currency and dates own nothing: the common case, kept short.
    if (value->vt <= VT_DATE) {
        VariantInit(value);
        return S_OK;
    }
    if (!IsValidType(value->vt)) return DISP_E_BADVARTYPE;
    if (!(value->vt & VT_BYREF)) {
        if (value->vt & VT_ARRAY) {
            if (value->parray) {
                const HRESULT hr = SafeArrayDestroy(value->parray);
                if (FAILED(hr)) return hr;
            }
        } else if (value->vt == VT_BSTR) {
            SysFreeString(value->bstrVal);
        } else if (value->vt == VT_DISPATCH || value->vt == VT_UNKNOWN) {
            // Emptied before the release: the object's destructor may look at this variant.
            IUnknown* object = value->punkVal;
            VariantInit(value);
            if (object) object->Release();
            return S_OK;
        }
    }
    VariantInit(value);
    return S_OK;
}

HRESULT VariantCopy(VARIANTARG* destination, const VARIANTARG* source) noexcept {
    if (!destination || !source) return E_INVALIDARG;
    if (destination == source) return IsValidType(source->vt) ? S_OK : DISP_E_BADVARTYPE;
    VARIANT copy;
    const HRESULT hr = CopyInto(copy, *source);
    if (FAILED(hr)) return hr;
    return Store(destination, copy);
}

HRESULT VariantCopyInd(VARIANT* destination, const VARIANTARG* source) noexcept {
    if (!destination || !source) return E_INVALIDARG;
    VARIANT view;
    HRESULT hr = Dereference(*source, view);
    if (FAILED(hr)) return hr;
    VARIANT copy;
    hr = CopyInto(copy, view);
    if (FAILED(hr)) return hr;
    return Store(destination, copy);
}

HRESULT VariantChangeType(VARIANTARG* destination, const VARIANTARG* source, USHORT flags, VARTYPE type) noexcept {
    if (!destination || !source) return E_INVALIDARG;
    VARIANT view;
    HRESULT hr = Dereference(*source, view);
    if (FAILED(hr)) return hr;
    VARIANT converted;
    hr = Convert(view, flags, type, converted);
    if (FAILED(hr)) return hr;
    return Store(destination, converted);
}

HRESULT VariantChangeTypeEx(VARIANTARG* destination, const VARIANTARG* source, LCID, USHORT flags,
                            VARTYPE type) noexcept {
    return VariantChangeType(destination, source, flags, type);
}

namespace tessaly {

size_t NumberValueSize(VARTYPE vt) noexcept {
    switch (vt) {
        case VT_I1: case VT_UI1: return 1;
        case VT_I2: case VT_UI2: case VT_BOOL: return 2;
        case VT_I4: case VT_UI4: case VT_INT: case VT_UINT: case VT_R4: case VT_ERROR: return 4;
        case VT_I8: case VT_UI8: case VT_R8: case VT_CY: case VT_DATE: return 8;
        default: return 0;
    }
}

size_t ReferencedValueSize(VARTYPE vt) noexcept {
    if (vt & VT_ARRAY) return sizeof(SAFEARRAY*);
    const VARTYPE type = vt & VT_TYPEMASK;
    if (type == VT_BSTR || type == VT_DISPATCH || type == VT_UNKNOWN) return sizeof(void*);
    return NumberValueSize(type);
}

Variant::Variant(const VARIANT& value) {
    VariantInit(&value_);
    const HRESULT hr = VariantCopy(&value_, &value);
    if (hr == E_OUTOFMEMORY) throw std::bad_alloc();
}

Variant::Variant(int32_t value) noexcept {
    VariantInit(&value_);
    value_.vt = VT_I4;
    value_.lVal = value;
}

Variant::Variant(int64_t value) noexcept {
    VariantInit(&value_);
    value_.vt = VT_I8;
    value_.llVal = value;
}

Variant::Variant(double value) noexcept {
    VariantInit(&value_);
    value_.vt = VT_R8;
    value_.dblVal = value;
}

Variant::Variant(bool value) noexcept {
    VariantInit(&value_);
    value_.vt = VT_BOOL;
    value_.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
}

Variant::Variant(std::string_view text) {
    VariantInit(&value_);
    if (FAILED(MakeText(text, value_))) throw std::bad_alloc();
}

Variant::Variant(IDispatch* object) noexcept {
    VariantInit(&value_);
    value_.vt = VT_DISPATCH;
    value_.pdispVal = object;
    if (object) object->AddRef();
}

Variant::Variant(IUnknown* object) noexcept {
    VariantInit(&value_);
    value_.vt = VT_UNKNOWN;
    value_.punkVal = object;
    if (object) object->AddRef();
}

Variant Variant::Attach(VARIANT& value) noexcept {
    Variant result;
    result.value_ = value;
    VariantInit(&value);
    return result;
}

VARIANT Variant::Detach() noexcept {
    const VARIANT value = value_;
    VariantInit(&value_);
    return value;
}

VARIANT* Variant::Out() noexcept {
    VariantClear(&value_);
    return &value_;
}

HRESULT Variant::ChangeType(VARTYPE type, USHORT flags) noexcept {
    if (value_.vt == type && flags == 0) return S_OK;  // nothing to convert: no copy
    return VariantChangeType(&value_, &value_, flags, type);
}

HRESULT Variant::CopyTo(VARIANT* destination) const noexcept { return VariantCopy(destination, &value_); }

}  // namespace tessaly
