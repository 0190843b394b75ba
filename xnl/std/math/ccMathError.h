// The failures of the core mathematics (family 0x010): transforms and vectors.
//
//     throw ccMathError::Singular("decomposing a matrix whose determinant is 0");
//     catch (const ccMathError::Errors&) { ... }
#pragma once

#include "xnl/std/except/ccException.h"

class ccMathError {
public:
    using Errors = ccErrorFamily<"ccMathError">;

    // A matrix whose determinant is exactly 0 was asked for what only a regular one has: its
    // inverse, or its decomposition into scalings and rotations.
    using Singular = ccError<Errors, "ccMathError::Singular", 0x10100001>;
    // A vector of length 0 was asked for its direction or its unit vector.
    using NullVector = ccError<Errors, "ccMathError::NullVector", 0x10100002>;
};
