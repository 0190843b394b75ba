// The failures of the pel layer: roots, buffers (family ccPel, 0x020) and the functions
// that move pixels between buffers (family ccPelFunc, 0x021). Each class's message is its
// own qualified name, "ccPel::BadCoord".
//
//     throw ccPel::BadCoord("pixel (640, 12) of a 640 x 480 buffer");
//     catch (const ccPel::Errors&) { ... }   // any failure of the family
#pragma once

#include "xnl/std/except/ccException.h"

class ccPel {
public:
    using Errors = ccErrorFamily<"ccPel">;

    // The buffer is bound to no root: it has no pixels to read, write or window.
    using UnboundWindow = ccError<Errors, "ccPel::UnboundWindow", 0x10200001>;
    // A window does not lie inside what it is cut from (its root, or the buffer a
    // sub-window is taken of), or has a negative size.
    using BadWindow = ccError<Errors, "ccPel::BadWindow", 0x10200002>;
    // Two windows that must share pixels share none (different roots, or rectangles that
    // do not meet).
    using DisjointWindows = ccError<Errors, "ccPel::DisjointWindows", 0x10200003>;
    // A pixel coordinate outside the buffer: x < 0, y < 0, x >= width or y >= height.
    using BadCoord = ccError<Errors, "ccPel::BadCoord", 0x10200004>;
    // A linear client transform is needed (to shift it with a window) and the buffer's is
    // not linear.
    using NonlinearXform = ccError<Errors, "ccPel::NonlinearXform", 0x10200005>;
    // Any other failure of the layer; a root that fails its integrity check throws it.
    using Unknown = ccError<Errors, "ccPel::Unknown", 0x10200006>;
};

class ccPelFunc {
public:
    using Errors = ccErrorFamily<"ccPelFunc">;

    // Arguments that do not fit each other (a copy between windows of different sizes).
    using BadParams = ccError<Errors, "ccPelFunc::BadParams", 0x10210001>;
    // Source and destination share pixels where they must not.
    using Overlap = ccError<Errors, "ccPelFunc::Overlap", 0x10210002>;
    // A value outside the range a pixel function accepts.
    using Range = ccError<Errors, "ccPelFunc::Range", 0x10210003>;
};
