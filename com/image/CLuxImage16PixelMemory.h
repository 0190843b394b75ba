// LuxImage16PixelMemory: direct access to 16-bit pixels of a root (see PixelMemoryImpl).
// Handed out by the roots' GetRawPixelMemory and the images' data interfaces; not
// creatable.
#pragma once

#include "TessalyCore.h"
#include "com/image/impl/PixelMemoryImpl.h"

namespace tessaly::image {

class CLuxImage16PixelMemory : public PixelMemoryImpl<CLuxImage16PixelMemory, uint16_t, ILuxImage16PixelMemory> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxImage16PixelMemory; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxImage16PixelMemory;

protected:
    ~CLuxImage16PixelMemory() override = default;
};

}  // namespace tessaly::image
