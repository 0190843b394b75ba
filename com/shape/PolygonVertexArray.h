// The vertex coordinates of a polygon as automation arrays: what GetVertices hands out,
// what SetVertices and a load accept.
//
// Out: a VARIANT holding a one-dimensional SAFEARRAY of doubles X0, Y0, X1, Y1, ... (lower
// bound 0; an empty array for no vertices).
//
// In: a SAFEARRAY (directly, or by reference) of any number type - VT_I1 through VT_UI8,
// VT_INT, VT_UINT, VT_R4, VT_R8, or VT_VARIANT whose elements are such numbers - either
//  - one-dimensional, of even length: X0, Y0, X1, Y1, ...; or
//  - two-dimensional N x 2 (N rows of X, Y; what a NumPy array of shape (N, 2) becomes); or
//  - one-dimensional VT_VARIANT whose every element is such an array of one X and one Y
//    (what a Python list of (X, Y) tuples becomes).
// Every value must be finite. Anything else (an odd length, another shape, strings, dates,
// booleans, objects, more than kMaxVertices vertices) is not a vertex array.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/AutomationTypes.h"
#include "xnl/std/base/cc2Vect.h"

namespace tessaly::shape {

class PolygonVertexArray {
public:
    // The most vertices a polygon holds: NumVertices, AddVertex, VertexReserve,
    // SetVertices and a load refuse more.
    static constexpr size_t kMaxVertices = size_t{1} << 24;

    // The vertices of `value`, or nullopt with `why` set when it is not a vertex array.
    // Throws std::bad_alloc only.
    static std::optional<std::vector<cc2Vect>> Parse(const VARIANT& value, std::string& why);

    // A new VT_ARRAY | VT_R8 VARIANT of the coordinates; throws std::bad_alloc.
    static VARIANT ToVariant(const std::vector<cc2Vect>& vertices);
};

}  // namespace tessaly::shape
