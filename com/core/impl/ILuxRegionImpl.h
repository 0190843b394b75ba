// The region layer of every closed shape class: ILuxRegion's CreateRLE over the shape layer
// (ILuxShapeImpl, whose comment tells what a class supplies):
//
//     class CLuxThing : public ILuxRegionImpl<CLuxThing, ILuxThing, ILuxGraphicInteractive, LuxThingDOFConstants>
//
// CreateRLE(InsidePelValue, OutsidePelValue): the core shape in its own coordinates, taken
// as pixel coordinates (whatever its SelectedSpaceName), scan-converted by the inside rule
// (a pixel is inside when its centre is) over the shape's pixel bounds, as a new
// LuxRLEBuffer whose X and Y are the top-left pixel of those bounds. Values outside 0..255
// are refused with E_INVALIDARG naming the argument. A region in an image's pixel space,
// through the image's tree, is RegionInImage's business.
#pragma once

#include "TessalyCore.h"
#include "com/core/impl/ILuxShapeImpl.h"

namespace tessaly::core {

// The mask of a core shape as CreateRLE makes it (a new LuxRLEBuffer, with a reference).
ILuxRLEBuffer* RegionRunsOf(const ccShape& shape, int32_t inside, int32_t outside);

template <class Derived, class PrimaryInterface, class Interactive, class DOFEnum>
class ILuxRegionImpl : public ILuxShapeImpl<Derived, PrimaryInterface, Interactive, DOFEnum> {
public:
    HRESULT CreateRLE(LONG InsidePelValue, LONG OutsidePelValue, ILuxRLEBuffer** RLE) override {
        return Guarded("CreateRLE", IID_ILuxRegion, [&] {
            RequireOut(RLE);
            *RLE = nullptr;
            const ccShapePtrh_const shape = static_cast<const Derived&>(*this).CoreShape();
            *RLE = RegionRunsOf(*shape, InsidePelValue, OutsidePelValue);
        });
    }

protected:
    ILuxRegionImpl() = default;
    ~ILuxRegionImpl() override = default;
};

}  // namespace tessaly::core
