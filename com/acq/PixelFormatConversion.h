// The FIFO's OutputPixelFormat: turning the pixels a grabber delivers (its
// acquired pixel format) into the pixels of the images the FIFO hands out.
//
//   acquired                    output             what is done
//   any                         the same           nothing: the image shares
//   the buffer Grey10, Grey12, Grey14      Grey16             nothing: the
//   values stay as delivered Grey16 (Grey10/12/14)       Grey8              the
//   8 most significant bits of the depth Grey8                       PlanarRGB8
//   three equal planes (copied) Bayer8 (RGGB)               PlanarRGB8 bilinear
//   demosaic Bayer8 (RGGB)               Grey8              luminance of the
//   demosaic PlanarRGB8                  Grey8              luminance
//
// Bayer8 travels as a Grey8 buffer whose row 0 reads R G R G ... and row 1 G B
// G B ... The demosaic averages the nearest samples of each missing colour (two
// or four, rounded to nearest); at the borders the frame is mirrored about its
// edge pixels, which keeps the pattern's phase, so a uniform colour comes out
// exactly. Luminance is (77 R + 150 G + 29 B + 128) / 256, whose weights add up
// to 256: equal planes give their own value.
#pragma once

#include "TessalyCore.h"
#include "com/image/files/ImageFilePixels.h"

namespace tessaly::acq {

bool CanConvertAcquiredPixels(LuxImagePixelFormatConstants acquired, LuxImagePixelFormatConstants output) noexcept;

// The pixels in `output`; those of a conversion CanConvertAcquiredPixels
// refuses, or of a kind that does not fit `acquired`, throw
// ccStdError::BadArgument.
image::ImageFilePixels ConvertAcquiredPixels(const image::ImageFilePixels& pixels,
                                             LuxImagePixelFormatConstants acquired,
                                             LuxImagePixelFormatConstants output);

// The kind of buffer that carries pixels of `format` (Bayer8 is a Grey8
// buffer); formats the grabbers never deliver have none and throw
// ccStdError::BadArgument.
image::ImageFileKind BufferKindOf(LuxImagePixelFormatConstants format);

}  // namespace tessaly::acq
