// The refusals of LuxRLEBuffer (family 0x029). Each maps to its e_LuxRLEBuffer_* code, or
// to E_INVALIDARG for a Map argument that is not what PixelMap and Combine take; the
// description is the code's message text followed by what was refused:
//
//     throw RLEBufferErrors::CombineSubImageOffset("the sub-image at (-1, 0) begins left of this buffer's X 0");
//
// The core buffer's own failure, ccRLEBuffer::Degenerate, has a row of its own (E_INVALIDARG).
#pragma once

#include "xnl/std/except/ccException.h"

namespace tessaly::image {

class RLEBufferErrors {
public:
    using Errors = ccErrorFamily<"RLEBufferErrors">;

    // The buffer holds no image yet.
    using NotInitialized = ccError<Errors, "RLEBufferErrors::NotInitialized", 0x10290001>;
    // Combine: SubImage is not initialised or not a buffer of this library, or this
    // buffer is not initialised.
    using CombineFailed = ccError<Errors, "RLEBufferErrors::CombineFailed", 0x10290002>;
    // Combine: SubImage is wider or higher than this buffer.
    using CombineSubImageSize = ccError<Errors, "RLEBufferErrors::CombineSubImageSize", 0x10290003>;
    // Combine: SubImage's X or Y lies before this buffer's.
    using CombineSubImageOffset = ccError<Errors, "RLEBufferErrors::CombineSubImageOffset", 0x10290004>;
    // Combine: SubImage's right or bottom edge lies beyond this buffer's.
    using CombineSubImageExtent = ccError<Errors, "RLEBufferErrors::CombineSubImageExtent", 0x10290005>;
    // A Map that is not a one-dimensional array of bytes.
    using BadMap = ccError<Errors, "RLEBufferErrors::BadMap", 0x10290006>;
    // A Map whose bounds do not lie within 0..255.
    using MapRange = ccError<Errors, "RLEBufferErrors::MapRange", 0x10290007>;
};

}  // namespace tessaly::image
