// LuxImage8PixelMemory: direct access to 8-bit pixels of a root (see PixelMemoryImpl).
// Handed out by the roots' GetRawPixelMemory and the images' data interfaces; not
// creatable.
#pragma once

#include "TessalyCore.h"
#include "com/image/impl/PixelMemoryImpl.h"

namespace tessaly::image {

class CLuxImage8PixelMemory : public PixelMemoryImpl<CLuxImage8PixelMemory, uint8_t, ILuxImage8PixelMemory> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxImage8PixelMemory; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxImage8PixelMemory;

protected:
    ~CLuxImage8PixelMemory() override = default;
};

}  // namespace tessaly::image
