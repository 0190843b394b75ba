#include "com/image/CLuxImage24PlanarColor.h"

#include <string>

#include "com/image/CLuxImage8Grey.h"
#include "com/image/impl/ccLuxGreyImageImpl.h"
#include "platform/ClassTable.h"

namespace tessaly::image {

namespace {

const ClassRegistrar<CLuxImage24PlanarColor> registrar;

constexpr const char* kPixelsNames[3] = {"Pixels0", "Pixels1", "Pixels2"};

std::pair<LONG, LONG> SizeOf(ILuxImage8Root* root) {
    LONG width = 0;
    LONG height = 0;
    core::ThrowIfFailed(root->get_Width(&width));
    core::ThrowIfFailed(root->get_Height(&height));
    return {width, height};
}

void CheckValue(LONG value, const char* argument) {
    if (value < 0 || value > 255) [[unlikely]]
        throw ccStdError::BadArgument(argument);
}

[[noreturn]] void ThrowNoPixels() { throw ccPel::UnboundWindow("the image has no pixels"); }

}  // namespace

CLuxImage24PlanarColor::Roots CLuxImage24PlanarColor::GetRootsNow() const {
    core::ObjectLock::Guard guard(Lock());
    return roots_;
}

cc3PlanePelBuffer CLuxImage24PlanarColor::Planes() const {
    const Roots roots = GetRootsNow();
    if (!roots[0]) return cc3PlanePelBuffer();
    return cc3PlanePelBuffer(ccPelBuffer<uint8_t>(CLuxImage8Root::PelsOf(roots[0].get())),
                             ccPelBuffer<uint8_t>(CLuxImage8Root::PelsOf(roots[1].get())),
                             ccPelBuffer<uint8_t>(CLuxImage8Root::PelsOf(roots[2].get())));
}

void CLuxImage24PlanarColor::CopyFrom(const CLuxImage24PlanarColor& source) {
    CopyInto(source, luxImageCopyModeCopyPixels);
}

void CLuxImage24PlanarColor::ResetState() {
    ResetSpaces();
    SetRootsLocked(Roots{});
    colorSpace_ = luxImageColorSpaceRGB;
}

void CLuxImage24PlanarColor::PersistState(core::ArchiveAccess& archive) {
    PersistSpaces(archive);
    const bool images = PersistsPixels(archive);
    if (archive.Saving()) {
        archive.Persist("ColorSpace", colorSpace_);
        if (!images) return;
        for (int i = 0; i < 3; ++i) WriteObject(archive, kPixelsNames[i], roots_[i].get());
        return;
    }
    Variant space;
    if (archive.Read("ColorSpace", space)) {
        if (FAILED(space.ChangeType(VT_I4)) || space.get().lVal < luxImageColorSpaceRGB ||
            space.get().lVal > luxImageColorSpaceHSI)
            throw ccArchive::BadType("ColorSpace is not a colour space", ids_Lux_ReadInvalidProperty_1, {"ColorSpace"});
        archive.OnCommit([this, value = space.get().lVal]() noexcept { colorSpace_ = value; });
    }
    if (!images) return;
    Roots loaded;
    int present = 0;
    for (int i = 0; i < 3; ++i)
        if (ReadObject(archive, kPixelsNames[i], loaded[i], true) && loaded[i]) ++present;
    if (present != 0 && present != 3)
        throw ccArchive::BadType("the planes are not all three present", ids_Lux_ReadInvalidObject_1, {"Pixels0"});
    if (present == 3) {
        const auto size = SizeOf(loaded[0].get());
        if (SizeOf(loaded[1].get()) != size || SizeOf(loaded[2].get()) != size)
            throw ccArchive::BadType("the planes differ in size", ids_Lux_ReadInvalidObject_1, {"Pixels1"});
    }
    archive.OnCommit([this, loaded = std::move(loaded)]() mutable noexcept { SetRootsLocked(std::move(loaded)); });
}

// ILuxImage

HRESULT CLuxImage24PlanarColor::Allocate(LONG Width, LONG Height) {
    return core::Guarded("Allocate", IID_ILuxImage, [&] {
        Roots leaving;
        {
            core::ObjectLock::Guard guard(Lock());
            if (roots_[0]) {
                const auto [width, height] = SizeLocked();
                if (width == Width && height == Height) return S_OK;
                ThrowOtherSize(width, height, Width, Height);
            }
            CheckAllocateSize(Width, Height);
            Roots made;
            for (auto& root : made) root = ComPtr<ILuxImage8Root>(CLuxImage8Root::Allocate(Width, Height).get());
            leaving = SetRootsLocked(std::move(made));
        }
        return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    });
}

HRESULT CLuxImage24PlanarColor::get_Allocated(VARIANT_BOOL* Allocated) {
    return core::Guarded("get_Allocated", IID_ILuxImage, [&] {
        core::RequireOut(Allocated);
        core::ObjectLock::Guard guard(Lock());
        *Allocated = roots_[0] ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxImage24PlanarColor::get_Width(LONG* Width) {
    return core::Guarded("get_Width", IID_ILuxImage, [&] {
        core::RequireOut(Width);
        core::ObjectLock::Guard guard(Lock());
        *Width = roots_[0] ? SizeLocked().first : 0;
    });
}

HRESULT CLuxImage24PlanarColor::get_Height(LONG* Height) {
    return core::Guarded("get_Height", IID_ILuxImage, [&] {
        core::RequireOut(Height);
        core::ObjectLock::Guard guard(Lock());
        *Height = roots_[0] ? SizeLocked().second : 0;
    });
}

HRESULT CLuxImage24PlanarColor::CopyBase(LuxImageCopyModeConstants CopyMode, ILuxImage** Copy) {
    return core::Guarded("CopyBase", IID_ILuxImage, [&] {
        core::RequireOut(Copy);
        *Copy = nullptr;
        *Copy = static_cast<ILuxImage*>(MakeCopy(CopyMode).Detach());
    });
}

// ILuxImage24PlanarColor

HRESULT CLuxImage24PlanarColor::get_ColorSpace(LuxImageColorSpaceConstants* ColorSpace) {
    return core::Guarded("get_ColorSpace", IID_ILuxImage24PlanarColor, [&] {
        core::RequireOut(ColorSpace);
        core::ObjectLock::Guard guard(Lock());
        *ColorSpace = static_cast<LuxImageColorSpaceConstants>(colorSpace_);
    });
}

HRESULT CLuxImage24PlanarColor::put_ColorSpace(LuxImageColorSpaceConstants ColorSpace) {
    return core::Guarded("put_ColorSpace", IID_ILuxImage24PlanarColor, [&] {
        if (ColorSpace < luxImageColorSpaceRGB || ColorSpace > luxImageColorSpaceHSI)
            throw ccStdError::BadArgument("ColorSpace");
        {
            core::ObjectLock::Guard guard(Lock());
            if (colorSpace_ == ColorSpace) return S_OK;
            colorSpace_ = ColorSpace;
        }
        return RaiseChange(luxImage24PlanarColor_ColorSpace, luxFA_Misc);
    });
}

HRESULT CLuxImage24PlanarColor::GetPixel(LONG X, LONG Y, LONG* ValPlane0, LONG* ValPlane1, LONG* ValPlane2) {
    return core::Guarded("GetPixel", IID_ILuxImage24PlanarColor, [&] {
        core::RequireOut(ValPlane0, ValPlane1, ValPlane2);
        LONG* const out[3] = {ValPlane0, ValPlane1, ValPlane2};
        {
            core::ObjectLock::Guard guard(Lock());
            if (!roots_[0]) ThrowNoPixels();
            if (ownRoots_[0] && ownRoots_[1] && ownRoots_[2]) {
                uint8_t values[3];
                for (int i = 0; i < 3; ++i) values[i] = ownRoots_[i]->GetPixel(X, Y);
                for (int i = 0; i < 3; ++i) *out[i] = values[i];
                return;
            }
        }
        const cc3PlanePel pel = Planes().Get(X, Y);
        *out[0] = pel.plane0;
        *out[1] = pel.plane1;
        *out[2] = pel.plane2;
    });
}

HRESULT CLuxImage24PlanarColor::SetPixel(LONG X, LONG Y, LONG ValuePlane0, LONG ValuePlane1, LONG ValuePlane2) {
    return core::Guarded("SetPixel", IID_ILuxImage24PlanarColor, [&] {
        CheckValue(ValuePlane0, "ValuePlane0");
        CheckValue(ValuePlane1, "ValuePlane1");
        CheckValue(ValuePlane2, "ValuePlane2");
        const uint8_t values[3] = {static_cast<uint8_t>(ValuePlane0), static_cast<uint8_t>(ValuePlane1),
                                   static_cast<uint8_t>(ValuePlane2)};
        {
            core::ObjectLock::Guard guard(Lock());
            if (!roots_[0]) ThrowNoPixels();
            if (ownRoots_[0] && ownRoots_[1] && ownRoots_[2]) {
                // Plane 0 checks the coordinates before any plane is written.
                ownRoots_[0]->GetPixel(X, Y);
                for (int i = 0; i < 3; ++i) ownRoots_[i]->SetPixel(X, Y, values[i]);
                return;
            }
        }
        Planes().Set(X, Y, cc3PlanePel{values[0], values[1], values[2]});
    });
}

HRESULT CLuxImage24PlanarColor::Copy(LuxImageCopyModeConstants CopyMode, ILuxImage24PlanarColor** Copy) {
    return core::Guarded("Copy", IID_ILuxImage24PlanarColor, [&] {
        core::RequireOut(Copy);
        *Copy = nullptr;
        *Copy = static_cast<ILuxImage24PlanarColor*>(MakeCopy(CopyMode).Detach());
    });
}

HRESULT CLuxImage24PlanarColor::SetRoots(ILuxImage8Root* Root0, ILuxImage8Root* Root1, ILuxImage8Root* Root2) {
    return core::Guarded("SetRoots", IID_ILuxImage24PlanarColor, [&] {
        if (Root0) {
            if (!Root1 || !Root2) throw core::ccCOMError(E_POINTER, "Root1 and Root2 must be given with Root0",
                                                         "SetRoots", IID_ILuxImage24PlanarColor);
            const auto size = SizeOf(Root0);
            if (SizeOf(Root1) != size || SizeOf(Root2) != size)
                throw core::ccCOMError(E_INVALIDARG, "the three roots must have one width and one height",
                                       "SetRoots", IID_ILuxImage24PlanarColor);
        } else if (Root1 || Root2) {
            throw core::ccCOMError(E_POINTER, "Root1 and Root2 must be null when Root0 is", "SetRoots",
                                   IID_ILuxImage24PlanarColor);
        }
        Roots leaving{ComPtr<ILuxImage8Root>(Root0), ComPtr<ILuxImage8Root>(Root1), ComPtr<ILuxImage8Root>(Root2)};
        {
            core::ObjectLock::Guard guard(Lock());
            leaving = SetRootsLocked(std::move(leaving));
        }
        leaving = Roots{};  // roots released outside the lock
        return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    });
}

HRESULT CLuxImage24PlanarColor::GetRoots(ILuxImage8Root** Root0, ILuxImage8Root** Root1, ILuxImage8Root** Root2) {
    return core::Guarded("GetRoots", IID_ILuxImage24PlanarColor, [&] {
        core::RequireOut(Root0, Root1, Root2);
        Roots roots = GetRootsNow();
        *Root0 = roots[0].Detach();
        *Root1 = roots[1].Detach();
        *Root2 = roots[2].Detach();
    });
}

HRESULT CLuxImage24PlanarColor::GetPlane(LuxImagePlaneConstants WhichPlane, ILuxImage8Grey** Plane) {
    return core::Guarded("GetPlane", IID_ILuxImage24PlanarColor, [&] {
        core::RequireOut(Plane);
        *Plane = nullptr;
        const int index = static_cast<int>(WhichPlane) & 3;
        if (index == 3) throw ccStdError::BadArgument("WhichPlane");
        auto grey = ComPtr<CLuxImage8Grey>::Attach(CLuxImage8Grey::Create());
        if (!grey) throw std::bad_alloc();
        grey->TakeSpacesOf(*this);
        core::ThrowIfFailed(grey->SetRoot(GetRootsNow()[index].get()));
        *Plane = static_cast<ILuxImage8Grey*>(grey.Detach());
    });
}

// ILuxImage24PlanarColorData

HRESULT CLuxImage24PlanarColor::Get24PlanarColorPixelMemory(LuxImageDataModeConstants DataMode, LONG X, LONG Y,
                                                            LONG Width, LONG Height,
                                                            ILuxImage8PixelMemory** PixelMemory0,
                                                            ILuxImage8PixelMemory** PixelMemory1,
                                                            ILuxImage8PixelMemory** PixelMemory2) {
    return core::Guarded("Get24PlanarColorPixelMemory", IID_ILuxImage24PlanarColorData, [&] {
        core::RequireOut(PixelMemory0, PixelMemory1, PixelMemory2);
        ILuxImage8PixelMemory** const out[3] = {PixelMemory0, PixelMemory1, PixelMemory2};
        for (auto* each : out) *each = nullptr;
        const Roots roots = GetRootsNow();
        if (!roots[0]) ThrowNoPixels();
        std::array<ComPtr<ILuxImage8PixelMemory>, 3> opened;
        for (int i = 0; i < 3; ++i)
            core::ThrowIfFailed(roots[i]->GetRawPixelMemory(DataMode, X, Y, Width, Height, opened[i].Out()));
        for (int i = 0; i < 3; ++i) *out[i] = opened[i].Detach();
    });
}

// Copies

ComPtr<CLuxImage24PlanarColor> CLuxImage24PlanarColor::MakeCopy(LuxImageCopyModeConstants mode) const {
    if (mode < luxImageCopyModeCopyPixels || mode > luxImageCopyModeNoPixels) throw ccStdError::BadArgument("CopyMode");
    auto copy = ComPtr<CLuxImage24PlanarColor>::Attach(Create());
    if (!copy) throw std::bad_alloc();
    copy->CopyInto(*this, mode);
    return copy;
}

void CLuxImage24PlanarColor::CopyInto(const CLuxImage24PlanarColor& source, LuxImageCopyModeConstants mode) {
    CopySpacesFrom(source);
    int32_t colorSpace;
    {
        core::ObjectLock::Guard guard(source.Lock());
        colorSpace = source.colorSpace_;
    }
    Roots roots;
    if (mode == luxImageCopyModeSharePixels) {
        roots = source.GetRootsNow();
    } else if (mode == luxImageCopyModeCopyPixels) {
        const cc3PlanePelBuffer planes = source.Planes();
        if (planes.IsBound()) {
            for (int i = 0; i < 3; ++i) {
                auto own = CLuxImage8Root::Allocate(planes.Width(), planes.Height(), ccPelFill::None);
                ccPelBuffer<uint8_t>(own->Pels()).CopyFrom(planes.Plane(i));
                roots[i] = ComPtr<ILuxImage8Root>(own.get());
            }
        }
    }
    core::ObjectLock::Guard guard(Lock());
    colorSpace_ = colorSpace;
    roots = SetRootsLocked(std::move(roots));
}

CLuxImage24PlanarColor::Roots CLuxImage24PlanarColor::SetRootsLocked(Roots roots) noexcept {
    std::swap(roots, roots_);
    for (int i = 0; i < 3; ++i) ownRoots_[i] = CLuxImage8Root::ImplementationOf(roots_[i].get());
    return roots;
}

std::pair<int32_t, int32_t> CLuxImage24PlanarColor::SizeLocked() const { return SizeOf(roots_[0].get()); }

}  // namespace tessaly::image
