#include "ArchiveDumper.h"

#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "TessalyCore.h"
#include "com/core/MethodGuard.h"
#include "com/core/ccCOMError.h"
#include "platform/Bstr.h"
#include "platform/SafeArray.h"
#include "platform/Variant.h"

namespace tessaly::cli {

namespace {

const char* BaseTypeName(VARTYPE vt) noexcept {
    switch (vt) {
        case VT_EMPTY: return "EMPTY";
        case VT_NULL: return "NULL";
        case VT_I2: return "I2";
        case VT_I4: return "I4";
        case VT_R4: return "R4";
        case VT_R8: return "R8";
        case VT_CY: return "CY";
        case VT_DATE: return "DATE";
        case VT_BSTR: return "BSTR";
        case VT_DISPATCH: return "DISPATCH";
        case VT_ERROR: return "ERROR";
        case VT_BOOL: return "BOOL";
        case VT_VARIANT: return "VARIANT";
        case VT_UNKNOWN: return "UNKNOWN";
        case VT_DECIMAL: return "DECIMAL";
        case VT_I1: return "I1";
        case VT_UI1: return "UI1";
        case VT_UI2: return "UI2";
        case VT_UI4: return "UI4";
        case VT_I8: return "I8";
        case VT_UI8: return "UI8";
        case VT_INT: return "INT";
        case VT_UINT: return "UINT";
        default: return nullptr;
    }
}

template <class Real>
std::string RealText(Real value) {
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

// A value converted to text by the runtime's rules (currency, dates).
std::string ConvertedText(const VARIANT& value) {
    Variant text;
    if (FAILED(VariantChangeType(text.ptr(), &value, 0, VT_BSTR))) return "?";
    return std::string(BstrView(text.get().bstrVal));
}

// Text of a value that is neither an object nor an array; `textLimit` cuts strings.
std::string ScalarText(const VARIANT& value, size_t textLimit) {
    switch (value.vt) {
        case VT_I1: return std::to_string(value.cVal);
        case VT_UI1: return std::to_string(value.bVal);
        case VT_I2: return std::to_string(value.iVal);
        case VT_UI2: return std::to_string(value.uiVal);
        case VT_I4: case VT_INT: return std::to_string(value.lVal);
        case VT_UI4: case VT_UINT: return std::to_string(value.ulVal);
        case VT_I8: return std::to_string(value.llVal);
        case VT_UI8: return std::to_string(value.ullVal);
        case VT_R4: return RealText(value.fltVal);
        case VT_R8: return RealText(value.dblVal);
        case VT_BOOL: return value.boolVal == VARIANT_FALSE ? "False" : "True";
        case VT_ERROR: {
            char text[16];
            std::snprintf(text, sizeof text, "0x%08" PRIX32, static_cast<uint32_t>(value.scode));
            return text;
        }
        case VT_CY: case VT_DATE: return ConvertedText(value);
        case VT_BSTR: return ArchiveDumper::Quote(BstrView(value.bstrVal), textLimit);
        default: return "?";
    }
}

// The value of element `i` of an array of numbers or strings, as a VARIANT that borrows it.
VARIANT ElementAt(const void* data, VARTYPE element, size_t size, size_t i) noexcept {
    VARIANT value;
    VariantInit(&value);
    value.vt = element;
    std::memcpy(&value.llVal, static_cast<const uint8_t*>(data) + i * size, size);
    return value;
}

// "[3]" or "[1,2]": the indices of the i-th element in memory (the left-most varies fastest).
std::string IndexText(const std::vector<SAFEARRAYBOUND>& bounds, size_t i) {
    std::string text = "[";
    for (size_t dim = 0; dim < bounds.size(); ++dim) {
        const size_t count = bounds[dim].cElements;
        if (dim) text += ',';
        text += std::to_string(int64_t(bounds[dim].lLbound) + int64_t(count ? i % count : 0));
        if (count) i /= count;
    }
    return text + "]";
}

// Locks an array's memory while it is read.
class ArrayData {
public:
    explicit ArrayData(SAFEARRAY* array) : array_(array) { core::ThrowIfFailed(SafeArrayAccessData(array, &data_)); }
    ~ArrayData() { SafeArrayUnaccessData(array_); }
    ArrayData(const ArrayData&) = delete;
    ArrayData& operator=(const ArrayData&) = delete;
    const void* get() const noexcept { return data_; }

private:
    SAFEARRAY* array_;
    void* data_ = nullptr;
};

}  // namespace

class ArchiveDumper::Level {
public:
    explicit Level(size_t& nesting) : nesting_(nesting) {
        if (nesting_ >= kMaxDepth)
            throw std::runtime_error("objects and arrays are nested deeper than " + std::to_string(kMaxDepth) +
                                     " levels");
        ++nesting_;
    }
    ~Level() { --nesting_; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;

private:
    size_t& nesting_;
};

ArchiveDumper::ArchiveDumper(std::ostream& out) : saver_(luxPersistOptionAll), out_(out), nowhere_(nullptr) {}

std::string ArchiveDumper::TypeName(VARTYPE vt) {
    if (vt & VT_BYREF) return "BYREF(" + TypeName(vt & ~VT_BYREF) + ")";
    if (vt & VT_ARRAY) return "ARRAY(" + TypeName(vt & ~VT_ARRAY) + ")";
    if (const char* name = BaseTypeName(vt)) return name;
    char text[16];
    std::snprintf(text, sizeof text, "VT_0x%04X", unsigned(vt));
    return text;
}

std::string ArchiveDumper::Quote(std::string_view text, size_t limit) {
    size_t shown = text.size();
    if (shown > limit) {
        shown = limit;
        // Back to the start of a UTF-8 sequence, so that no character is split.
        while (shown > 0 && (static_cast<uint8_t>(text[shown]) & 0xC0) == 0x80) --shown;
    }
    std::string quoted = "\"";
    for (const char c : text.substr(0, shown)) {
        switch (c) {
            case '"': quoted += "\\\""; break;
            case '\\': quoted += "\\\\"; break;
            case '\n': quoted += "\\n"; break;
            case '\r': quoted += "\\r"; break;
            case '\t': quoted += "\\t"; break;
            default:
                if (static_cast<uint8_t>(c) < 0x20 || c == 0x7F) {
                    char escape[8];
                    std::snprintf(escape, sizeof escape, "\\x%02X", unsigned(static_cast<uint8_t>(c)));
                    quoted += escape;
                } else {
                    quoted += c;
                }
        }
    }
    if (shown < text.size()) return quoted + "...\" (" + std::to_string(text.size()) + " bytes)";
    return quoted + '"';
}

HRESULT ArchiveDumper::Dump(IUnknown* root) noexcept {
    return core::Guarded("Dump", GUID_NULL, [&] {
        if (!root) return E_POINTER;
        const core::ObjectGraphSaver::Visit visit = saver_.Enter(root);
        const Level level(nesting_);
        out_ << core::ObjectGraphSaver::DescribeObject(visit.progId) << " (id " << visit.id << ")\n";
        ++depth_;
        if (visit.streamPersisted) {
            const std::vector<uint8_t> bytes = saver_.SaveStream(root);
            Line() << "stream: " << bytes.size() << " bytes\n";
        } else {
            saver_.SaveEntries(root, *this);
        }
        --depth_;
        out_.flush();
        return S_OK;
    });
}

std::ostream& ArchiveDumper::Put() { return Shown() ? out_ : nowhere_; }

std::ostream& ArchiveDumper::Line() {
    std::ostream& out = Put();
    for (size_t i = 0; i < depth_; ++i) out << "  ";
    return out;
}

void ArchiveDumper::WriteEntry(std::string_view name, const VARIANT& value) {
    Line() << name << ": ";
    WriteValue(value);
}

void ArchiveDumper::WriteValue(const VARIANT& given) {
    Variant resolved;
    const VARIANT* value = &given;
    if (given.vt & VT_BYREF) {
        core::ThrowIfFailed(VariantCopyInd(resolved.ptr(), &given));
        value = &resolved.get();
    }
    Put() << TypeName(value->vt);
    if (value->vt & VT_ARRAY) return WriteArray(value->vt, value->parray);
    switch (value->vt) {
        case VT_EMPTY: case VT_NULL: Put() << '\n'; return;
        case VT_DISPATCH: case VT_UNKNOWN: return WriteObject(value->punkVal);
        default: Put() << " = " << (Shown() ? ScalarText(*value, kShownTextBytes) : "") << '\n';
    }
}

void ArchiveDumper::WriteObject(IUnknown* object) {
    if (!object) {
        Put() << " = null\n";
        return;
    }
    const core::ObjectGraphSaver::Visit visit = saver_.Enter(object);
    if (!visit.first) {
        Put() << " -> id " << visit.id << '\n';
        return;
    }
    const Level level(nesting_);
    Put() << " = " << core::ObjectGraphSaver::DescribeObject(visit.progId) << " (id " << visit.id << ")\n";
    ++depth_;
    if (visit.streamPersisted) {
        const std::vector<uint8_t> bytes = saver_.SaveStream(object);
        Line() << "stream: " << bytes.size() << " bytes\n";
    } else {
        saver_.SaveEntries(object, *this);
    }
    --depth_;
}

void ArchiveDumper::WriteArray(VARTYPE vt, SAFEARRAY* array) {
    if (!array) {
        Put() << " = null\n";
        return;
    }
    const VARTYPE element = vt & ~VT_ARRAY;
    const UINT dims = SafeArrayGetDim(array);
    std::vector<SAFEARRAYBOUND> bounds(dims);
    for (UINT dim = 1; dim <= dims; ++dim) {
        LONG lower = 0, upper = 0;
        core::ThrowIfFailed(SafeArrayGetLBound(array, dim, &lower));
        core::ThrowIfFailed(SafeArrayGetUBound(array, dim, &upper));
        bounds[dim - 1] = {static_cast<ULONG>(int64_t(upper) - lower + 1), lower};
        Put() << '[' << lower << ".." << upper << ']';
    }
    const size_t count = SafeArrayElementCount(array);
    const ArrayData data(array);
    const bool lines = element == VT_VARIANT || element == VT_DISPATCH || element == VT_UNKNOWN;
    if (!lines) {
        if (!Shown()) return;  // numbers and strings hold no objects to walk
        const size_t size = SafeArrayGetElemsize(array);
        if (size == 0 || size > sizeof(VARIANT::llVal)) {
            Put() << " (" << count << " elements)\n";
            return;
        }
        Put() << " = {";
        for (size_t i = 0; i < count && i < kShownElements; ++i)
            Put() << (i ? ", " : "") << ScalarText(ElementAt(data.get(), element, size, i), kShownElementTextBytes);
        if (count > kShownElements) Put() << ", ... (" << count << " elements)";
        Put() << "}\n";
        return;
    }
    const Level level(nesting_);
    Put() << '\n';
    ++depth_;
    for (size_t i = 0; i < count; ++i) {
        if (i == kShownElements) {
            Line() << "... (" << count << " elements)\n";
            ++hidden_;  // walked on, so that the numbers of later objects stay those of the file
        }
        VARIANT value;
        VariantInit(&value);
        if (element == VT_VARIANT) {
            value = static_cast<const VARIANT*>(data.get())[i];
        } else {
            value.vt = element;
            value.punkVal = static_cast<IUnknown* const*>(data.get())[i];
        }
        WriteElementLine(Shown() ? IndexText(bounds, i) : std::string(), value);
    }
    if (count > kShownElements) --hidden_;
    --depth_;
}

void ArchiveDumper::WriteElementLine(const std::string& index, const VARIANT& value) {
    Line() << index << ": ";
    WriteValue(value);
}

}  // namespace tessaly::cli
