#include "com/shape/PolygonVertexArray.h"

#include <cmath>
#include <cstring>
#include <new>

#include "platform/SafeArray.h"
#include "platform/Variant.h"

namespace tessaly::shape {

namespace {

bool IsNumberType(VARTYPE vt) noexcept {
    switch (vt) {
        case VT_I1: case VT_UI1: case VT_I2: case VT_UI2: case VT_I4: case VT_UI4:
        case VT_INT: case VT_UINT: case VT_I8: case VT_UI8: case VT_R4: case VT_R8:
            return true;
        default:
            return false;
    }
}

// One element as a double; false for anything that is not a number.
bool ElementValue(VARTYPE vt, const unsigned char* element, size_t size, double& out) {
    if (vt == VT_R8) {
        std::memcpy(&out, element, sizeof out);
        return true;
    }
    VARIANT number{};
    if (vt == VT_VARIANT) {
        std::memcpy(&number, element, sizeof number);
        if (number.vt & VT_BYREF) return false;
        if (!IsNumberType(number.vt)) return false;
    } else {
        number.vt = vt;
        std::memcpy(&number.llVal, element, size);
    }
    VARIANT converted{};
    if (FAILED(VariantChangeType(&converted, &number, 0, VT_R8))) return false;
    out = converted.dblVal;
    return true;
}

// Unlocks the array's data when the parse ends.
class DataAccess {
public:
    explicit DataAccess(SAFEARRAY* array) noexcept : array_(array) {
        if (FAILED(SafeArrayAccessData(array_, &data_))) data_ = nullptr;
    }
    ~DataAccess() {
        if (data_) SafeArrayUnaccessData(array_);
    }
    DataAccess(const DataAccess&) = delete;
    DataAccess& operator=(const DataAccess&) = delete;
    const unsigned char* Data() const noexcept { return static_cast<const unsigned char*>(data_); }

private:
    SAFEARRAY* array_;
    void* data_ = nullptr;
};

size_t Count(SAFEARRAY* array, UINT dim) {
    LONG lower = 0, upper = -1;
    if (FAILED(SafeArrayGetLBound(array, dim, &lower)) || FAILED(SafeArrayGetUBound(array, dim, &upper))) return 0;
    return upper < lower ? 0 : static_cast<size_t>(static_cast<int64_t>(upper) - lower + 1);
}

// A list of pairs (a Python list of (X, Y) tuples): a one-dimensional VT_VARIANT array whose
// every element is an array of one X and one Y.
std::optional<std::vector<cc2Vect>> ParsePairs(SAFEARRAY* array, size_t length, std::string& why) {
    if (length > PolygonVertexArray::kMaxVertices) {
        why = "holds more vertices than a polygon can";
        return std::nullopt;
    }
    const DataAccess access(array);
    if (!access.Data()) {
        why = "cannot be read";
        return std::nullopt;
    }
    const auto* pairs = reinterpret_cast<const VARIANT*>(access.Data());
    std::vector<cc2Vect> vertices;
    vertices.reserve(length);
    for (size_t i = 0; i < length; ++i) {
        if ((pairs[i].vt & (VT_ARRAY | VT_BYREF)) != VT_ARRAY || SafeArrayGetDim(pairs[i].parray) != 1 ||
            SafeArrayElementCount(pairs[i].parray) != 2) {
            why = "mixes pairs of X, Y with other elements";
            return std::nullopt;
        }
        std::optional<std::vector<cc2Vect>> pair = PolygonVertexArray::Parse(pairs[i], why);
        if (!pair) return std::nullopt;
        if (pair->size() != 1) {
            why = "holds a pair that is not one X and one Y";
            return std::nullopt;
        }
        vertices.push_back(pair->front());
    }
    return vertices;
}

}  // namespace

std::optional<std::vector<cc2Vect>> PolygonVertexArray::Parse(const VARIANT& value, std::string& why) {
    SAFEARRAY* array = nullptr;
    if (value.vt & VT_ARRAY) array = (value.vt & VT_BYREF) ? (value.pparray ? *value.pparray : nullptr) : value.parray;
    else if (value.vt == (VT_VARIANT | VT_BYREF) && value.pvarVal) return Parse(*value.pvarVal, why);
    if (!array) {
        why = "is not an array of coordinates";
        return std::nullopt;
    }
    VARTYPE vt = VT_EMPTY;
    if (FAILED(SafeArrayGetVartype(array, &vt)) || !(IsNumberType(vt) || vt == VT_VARIANT)) {
        why = "does not hold numbers";
        return std::nullopt;
    }
    const UINT dims = SafeArrayGetDim(array);
    size_t count = 0;  // vertices
    bool rows = false;  // N x 2, the left-most index the vertex
    if (dims == 1) {
        const size_t length = Count(array, 1);
        if (vt == VT_VARIANT && length > 0) {
            const DataAccess access(array);
            const auto* first = reinterpret_cast<const VARIANT*>(access.Data());
            if (first && (first->vt & VT_ARRAY)) return ParsePairs(array, length, why);
        }
        if (length % 2 != 0) {
            why = "has an odd number of coordinates";
            return std::nullopt;
        }
        count = length / 2;
    } else if (dims == 2 && Count(array, 2) == 2) {
        count = Count(array, 1);
        rows = true;
    } else {
        why = "is neither a list of X, Y pairs nor an N x 2 array";
        return std::nullopt;
    }
    if (count > kMaxVertices) {
        why = "holds more vertices than a polygon can";
        return std::nullopt;
    }
    std::vector<cc2Vect> vertices;
    if (count == 0) return vertices;
    const DataAccess access(array);
    if (!access.Data()) {
        why = "cannot be read";
        return std::nullopt;
    }
    const size_t size = SafeArrayGetElemsize(array);
    vertices.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        // The left-most index varies fastest: an N x 2 array holds every X, then every Y.
        const size_t xAt = rows ? i : 2 * i;
        const size_t yAt = rows ? count + i : 2 * i + 1;
        double x = 0, y = 0;
        if (!ElementValue(vt, access.Data() + xAt * size, size, x) ||
            !ElementValue(vt, access.Data() + yAt * size, size, y)) {
            why = "holds an element that is not a number";
            return std::nullopt;
        }
        if (!std::isfinite(x) || !std::isfinite(y)) {
            why = "holds a coordinate that is not finite";
            return std::nullopt;
        }
        vertices.emplace_back(x, y);
    }
    return vertices;
}

VARIANT PolygonVertexArray::ToVariant(const std::vector<cc2Vect>& vertices) {
    SAFEARRAY* array = SafeArrayCreateVector(VT_R8, 0, static_cast<ULONG>(2 * vertices.size()));
    if (!array) throw std::bad_alloc();
    if (!vertices.empty()) {
        void* data = nullptr;
        if (FAILED(SafeArrayAccessData(array, &data))) {
            SafeArrayDestroy(array);
            throw std::bad_alloc();
        }
        auto* out = static_cast<double*>(data);
        for (const cc2Vect& vertex : vertices) {
            *out++ = vertex.X();
            *out++ = vertex.Y();
        }
        SafeArrayUnaccessData(array);
    }
    VARIANT result{};
    result.vt = VT_ARRAY | VT_R8;
    result.parray = array;
    return result;
}

}  // namespace tessaly::shape
