// LuxImage8Root: the holder of 8-bit pixels that images share (see ImageRootImpl).
#pragma once

#include "TessalyCore.h"
#include "com/image/CLuxImage8PixelMemory.h"
#include "com/image/impl/ImageRootImpl.h"

namespace tessaly::image {

class CLuxImage8Root : public ImageRootImpl<CLuxImage8Root, uint8_t, ILuxImage8Root, ILuxImage8RootBuffer,
                                             CLuxImage8PixelMemory> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxImage8Root; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxImage8Root;

protected:
    ~CLuxImage8Root() override = default;
};

}  // namespace tessaly::image
