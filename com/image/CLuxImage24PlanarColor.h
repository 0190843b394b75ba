// LuxImage24PlanarColor: a colour image of three coincident planes of 8-bit pixels, each
// plane an 8-bit root object (so that a plane can be handed out as a LuxImage8Grey that
// shares its pixels), with the spaces of ccLuxImageImpl.
//
//  - The three roots are all present, of one size, or all absent (not allocated).
//  - ColorSpace (RGB when new) labels how the planes are read; it never changes a pixel.
//    Outside 1..2: E_INVALIDARG naming "ColorSpace". Setting the value held raises
//    nothing; another raises Change(luxImage24PlanarColor_ColorSpace).
//  - SetRoots(Root0, Root1, Root2): Root0 present needs the other two (E_POINTER) of its
//    width and height (E_INVALIDARG); Root0 absent needs the other two absent (E_POINTER).
//    A refused call keeps the old roots. Completed, it raises
//    Change(luxState_MoreThanOneStateIDChanged): the pixels were replaced.
//  - GetPlane(WhichPlane): a new LuxImage8Grey with this image's selected space name,
//    tree and pixel-from-root transform (the same objects: the plane is a view of this
//    image), holding the plane's root: writes through it change this image. The plane is WhichPlane & 3
//    (index 3: E_INVALIDARG naming "WhichPlane"); HSI names select the same planes as RGB.
//  - Allocate, pixels (GetPixel/SetPixel: each value 0..255, E_INVALIDARG naming the
//    value), copies and persistence follow the grey images: "ColorSpace", then "Pixels0",
//    "Pixels1", "Pixels2" when the options select input or output images.
#pragma once

#include <array>

#include "TessalyCore.h"
#include "com/image/CLuxImage8Root.h"
#include "com/image/impl/ccLuxImageImpl.h"
#include "xnl/std/pelbuf/cc3PlanePelBuffer.h"

namespace tessaly::image {

class CLuxImage24PlanarColor
    : public ccLuxImageImpl<CLuxImage24PlanarColor, ILuxImage24PlanarColor, ILuxImage24PlanarColorData> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxImage24PlanarColor; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxImage24PlanarColor;

    using Roots = std::array<ComPtr<ILuxImage8Root>, 3>;

    // The roots held now (all null when not allocated), taken under the lock.
    Roots GetRootsNow() const;
    // The pixels as a three-plane buffer (unbound when not allocated).
    cc3PlanePelBuffer Planes() const;

    void CopyFrom(const CLuxImage24PlanarColor& source);
    void ResetState();
    void PersistState(core::ArchiveAccess& archive);

    // ILuxImage
    HRESULT Allocate(LONG Width, LONG Height) override;
    HRESULT get_Allocated(VARIANT_BOOL* Allocated) override;
    HRESULT get_Width(LONG* Width) override;
    HRESULT get_Height(LONG* Height) override;
    HRESULT CopyBase(LuxImageCopyModeConstants CopyMode, ILuxImage** Copy) override;

    // ILuxImage24PlanarColor
    HRESULT get_ColorSpace(LuxImageColorSpaceConstants* ColorSpace) override;
    HRESULT put_ColorSpace(LuxImageColorSpaceConstants ColorSpace) override;
    HRESULT GetPixel(LONG X, LONG Y, LONG* ValPlane0, LONG* ValPlane1, LONG* ValPlane2) override;
    HRESULT SetPixel(LONG X, LONG Y, LONG ValuePlane0, LONG ValuePlane1, LONG ValuePlane2) override;
    HRESULT Copy(LuxImageCopyModeConstants CopyMode, ILuxImage24PlanarColor** Copy) override;
    HRESULT SetRoots(ILuxImage8Root* Root0, ILuxImage8Root* Root1, ILuxImage8Root* Root2) override;
    HRESULT GetRoots(ILuxImage8Root** Root0, ILuxImage8Root** Root1, ILuxImage8Root** Root2) override;
    HRESULT GetPlane(LuxImagePlaneConstants WhichPlane, ILuxImage8Grey** Plane) override;

    // ILuxImage24PlanarColorData
    HRESULT Get24PlanarColorPixelMemory(LuxImageDataModeConstants DataMode, LONG X, LONG Y, LONG Width, LONG Height,
                                        ILuxImage8PixelMemory** PixelMemory0, ILuxImage8PixelMemory** PixelMemory1,
                                        ILuxImage8PixelMemory** PixelMemory2) override;

protected:
    ~CLuxImage24PlanarColor() override = default;

private:
    ComPtr<CLuxImage24PlanarColor> MakeCopy(LuxImageCopyModeConstants mode) const;
    void CopyInto(const CLuxImage24PlanarColor& source, LuxImageCopyModeConstants mode);
    // Holds `roots`; returns those held before, for release outside the lock.
    Roots SetRootsLocked(Roots roots) noexcept;
    std::pair<int32_t, int32_t> SizeLocked() const;

    Roots roots_;
    std::array<CLuxImage8Root*, 3> ownRoots_{};  // roots_ that are the library's own root objects
    int32_t colorSpace_ = luxImageColorSpaceRGB;
};

}  // namespace tessaly::image
