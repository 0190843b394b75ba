// LuxImage16Root: the holder of 16-bit pixels that images share (see ImageRootImpl).
#pragma once

#include "TessalyCore.h"
#include "com/image/CLuxImage16PixelMemory.h"
#include "com/image/impl/ImageRootImpl.h"

namespace tessaly::image {

class CLuxImage16Root : public ImageRootImpl<CLuxImage16Root, uint16_t, ILuxImage16Root, ILuxImage16RootBuffer,
                                             CLuxImage16PixelMemory> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxImage16Root; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxImage16Root;

protected:
    ~CLuxImage16Root() override = default;
};

}  // namespace tessaly::image
