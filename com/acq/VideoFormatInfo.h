// One video format a frame grabber offers: its name (the string clients pass to
// CreateAcqFifo), the full frame size, the pixel format the hardware delivers and the
// number of camera ports that can acquire it.
#pragma once

#include <cstdint>
#include <string>

#include "TessalyCore.h"

namespace tessaly::acq {

struct VideoFormatInfo {
    std::string name;
    int32_t width = 0;
    int32_t height = 0;
    LuxImagePixelFormatConstants acquiredFormat = luxImagePixelFormatGrey8;
    int32_t cameraPorts = 1;
};

}  // namespace tessaly::acq
