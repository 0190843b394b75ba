// The frames of the simulated grabber: a test pattern that moves from frame to frame and
// says which frame it is, and the images of a folder made into the grabber's pixels.
//
// The pattern of trigger number t (a 32-bit number) in a frame of width w and height h:
//  - Grey8: pixel (x, y) = (x + y + 4 t) mod 256, a diagonal ramp that moves 4 pixels a
//    frame; then the first four pixels of row 0 are replaced by the bytes of t, least
//    significant first.
//  - Grey16: pixel (x, y) = 64 (x + y + 4 t) mod 65536; the first two pixels of row 0 hold
//    the low and the high 16 bits of t.
//  - PlanarRGB8: red = (x + 4 t) mod 256, green = (y + 4 t) mod 256, blue = the Grey8
//    ramp; the first four pixels of row 0 of the red plane hold the bytes of t.
//  - Bayer8 (RGGB): each site takes its colour of the PlanarRGB8 pattern, and the first
//    four pixels of row 0 hold the bytes of t (before any demosaic).
#pragma once

#include <cstdint>

#include "TessalyCore.h"
#include "com/image/files/ImageFilePixels.h"

namespace tessaly::acq {

// A new frame of the pattern (its own buffers, rows aligned as any new buffer's).
image::ImageFilePixels PatternFrame(LuxImagePixelFormatConstants format, int32_t width, int32_t height,
                                    uint32_t triggerNumber);

// The trigger number a pattern frame holds (of the format's kind of buffer).
uint32_t TriggerNumberOfPattern(const image::ImageFilePixels& frame);

// An image file's pixels as a frame of `format`, at the file's own size: grey files for
// grey and Bayer formats (8-bit from 16 by the high byte), colour files made grey by
// luminance, grey files made colour as three equal planes, colour files made a Bayer
// mosaic by taking each site's colour. A 16-bit format takes only 16-bit grey files: any
// other throws e_LuxAcq_Abnormal naming the file's kind.
image::ImageFilePixels FolderFrame(const image::ImageFilePixels& file, LuxImagePixelFormatConstants format);

}  // namespace tessaly::acq
