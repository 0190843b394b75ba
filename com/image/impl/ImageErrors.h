// The refusals of the image classes beyond the pel layer's own (family 0x012). Each maps to
// its e_LuxImage_* code (or E_UNEXPECTED); the description is the code's message text
// followed by what was refused:
//
//     throw ImageErrors::AllocateSize("the image is 640 x 480; 641 x 480 was asked for");
//
// A pixel outside the image is ccPel::BadCoord and an image without pixels
// ccPel::UnboundWindow: the pel layer's failures, mapped by their own rows.
#pragma once

#include "xnl/std/except/ccException.h"

namespace tessaly::image {

class ImageErrors {
public:
    using Errors = ccErrorFamily<"ImageErrors">;

    // A size outside 1..999999, or another size than the allocated one.
    using AllocateSize = ccError<Errors, "ImageErrors::AllocateSize", 0x10120001>;
    // Pixel memory that arrays still view cannot be disposed of.
    using InUse = ccError<Errors, "ImageErrors::InUse", 0x10120003>;
    // A root's size or stride that does not describe memory (Initialize).
    using BadSize = ccError<Errors, "ImageErrors::BadSize", 0x10120004>;
    // A selected space name that finds no single space of the image's tree.
    using BadSelectedSpaceName = ccError<Errors, "ImageErrors::BadSelectedSpaceName", 0x10120005>;
};

}  // namespace tessaly::image
