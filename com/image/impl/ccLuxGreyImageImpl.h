// The grey images, both widths (LuxImage8Grey, LuxImage16Grey): one template over the
// pixel type. The image holds one root object, or none (not allocated), and the spaces of
// ccLuxImageImpl.
//
//  - Allocate(Width, Height): an image that holds a root accepts only the root's own size
//    (nothing changes) and refuses any other with e_LuxImage_AllocateSize; otherwise both
//    sizes must lie in 1..999999 (e_LuxImage_AllocateSize) and the image gets a new root
//    of that size, zeroed, rows aligned to 32 bytes.
//  - SetRoot holds the given root (null: not allocated); GetRoot hands it out (or null).
//    Both raise Change(luxState_MoreThanOneStateIDChanged) when they complete: the pixels
//    were replaced, which marks the image changed.
//  - Pixel get and put read the root directly, without a pixel-memory object: x in
//    0..Width-1, y in 0..Height-1 (e_LuxImage_BadCoord), a value in 0..kMaxValue for a put
//    (E_INVALIDARG naming "Value"), no root e_LuxImage_NoPixels, a null out-pointer
//    E_INVALIDARG. A root of another implementation is read through its pixel memory.
//    Writing a pixel raises no event.
//  - Copy: share pixels (the same root), copy pixels (a new root with a copy) or no pixels;
//    the spaces are copied in every mode (ccLuxImageImpl), Derived::CopyExtrasFrom copies
//    the class's own properties.
//  - Persistence: the spaces, then the root object as "Pixels" when the options select
//    input or output images (luxPersistOptionAll does); without them an image loads back
//    with its spaces and no pixels.
#pragma once

#include <string>

#include "com/image/impl/ccLuxImageImpl.h"
#include "xnl/std/pelbuf/ccPelBuffer.h"
#include "xnl/std/pelbuf/ccPelError.h"

namespace tessaly::image {

inline constexpr int32_t kMaxImageSize = 999999;

// Refuses sizes outside 1..999999.
void CheckAllocateSize(int32_t width, int32_t height);
// Refuses to allocate an image of width x height again at another size.
[[noreturn]] void ThrowOtherSize(int32_t width, int32_t height, int32_t askedWidth, int32_t askedHeight);

template <class Derived, class Traits>
class ccLuxGreyImageImpl : public ccLuxImageImpl<Derived, typename Traits::ITyped, typename Traits::IData> {
    using Base = ccLuxImageImpl<Derived, typename Traits::ITyped, typename Traits::IData>;
    using Pel = typename Traits::Pel;
    using IRoot = typename Traits::IRoot;
    using RootClass = typename Traits::RootClass;
    using ITyped = typename Traits::ITyped;
    using IMemory = typename Traits::IMemory;

public:
    // The root held now (null when not allocated), taken under the lock.
    ComPtr<IRoot> Root() const {
        core::ObjectLock::Guard guard(this->Lock());
        return root_;
    }
    // The pixels as a pel buffer over the whole root (unbound when not allocated).
    ccPelBuffer<Pel> Pels() const { return ccPelBuffer<Pel>(RootClass::PelsOf(Root().get())); }

    void CopyFrom(const Derived& source) { CopyInto(source, luxImageCopyModeCopyPixels); }
    void CopyExtrasFrom(const Derived&) {}
    void ResetState() {
        this->ResetSpaces();
        SetRootLocked(nullptr);
    }
    void PersistState(core::ArchiveAccess& archive) {
        this->PersistSpaces(archive);
        if (!this->PersistsPixels(archive)) return;
        if (archive.Saving()) {
            this->WriteObject(archive, "Pixels", root_.get());
            return;
        }
        ComPtr<IRoot> loaded;
        if (!this->ReadObject(archive, "Pixels", loaded, true)) return;
        archive.OnCommit([this, loaded = std::move(loaded)]() mutable noexcept { SetRootLocked(std::move(loaded)); });
    }

    // ILuxImage
    HRESULT Allocate(LONG Width, LONG Height) override {
        return core::Guarded("Allocate", IID_ILuxImage, [&] {
            {
                core::ObjectLock::Guard guard(this->Lock());
                if (root_) {
                    const auto [width, height] = RootSizeLocked();
                    if (width == Width && height == Height) return S_OK;
                    ThrowOtherSize(width, height, Width, Height);
                }
                CheckAllocateSize(Width, Height);
                SetRootLocked(ComPtr<IRoot>(RootClass::Allocate(Width, Height).get()));
            }
            return this->RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
        });
    }
    HRESULT get_Allocated(VARIANT_BOOL* Allocated) override {
        return core::Guarded("get_Allocated", IID_ILuxImage, [&] {
            core::RequireOut(Allocated);
            core::ObjectLock::Guard guard(this->Lock());
            *Allocated = root_ ? VARIANT_TRUE : VARIANT_FALSE;
        });
    }
    HRESULT get_Width(LONG* Width) override {
        return core::Guarded("get_Width", IID_ILuxImage, [&] {
            core::RequireOut(Width);
            core::ObjectLock::Guard guard(this->Lock());
            *Width = root_ ? RootSizeLocked().first : 0;
        });
    }
    HRESULT get_Height(LONG* Height) override {
        return core::Guarded("get_Height", IID_ILuxImage, [&] {
            core::RequireOut(Height);
            core::ObjectLock::Guard guard(this->Lock());
            *Height = root_ ? RootSizeLocked().second : 0;
        });
    }
    HRESULT CopyBase(LuxImageCopyModeConstants CopyMode, ILuxImage** Copy) override {
        return core::Guarded("CopyBase", IID_ILuxImage, [&] {
            core::RequireOut(Copy);
            *Copy = nullptr;
            *Copy = static_cast<ILuxImage*>(MakeCopy(CopyMode).Detach());
        });
    }

    // ITyped
    HRESULT get_Pixel(LONG X, LONG Y, LONG* Value) override {
        return core::Guarded("get_Pixel", ITyped::iid, [&] {
            if (!Value) [[unlikely]]
                throw ccStdError::BadArgument("Value");
            {
                core::ObjectLock::Guard guard(this->Lock());
                if (ownRoot_) [[likely]] {
                    *Value = ownRoot_->GetPixel(X, Y);
                    return;
                }
                if (!root_) throw ccPel::UnboundWindow("the image has no pixels");
            }
            *Value = Pels().Get(X, Y);
        });
    }
    HRESULT put_Pixel(LONG X, LONG Y, LONG Value) override {
        return core::Guarded("put_Pixel", ITyped::iid, [&] {
            if (Value < 0 || Value > Traits::kMaxValue) [[unlikely]]
                throw ccStdError::BadArgument("Value");
            {
                core::ObjectLock::Guard guard(this->Lock());
                if (ownRoot_) [[likely]] {
                    ownRoot_->SetPixel(X, Y, static_cast<Pel>(Value));
                    return;
                }
                if (!root_) throw ccPel::UnboundWindow("the image has no pixels");
            }
            Pels().Set(X, Y, static_cast<Pel>(Value));
        });
    }
    HRESULT Copy(LuxImageCopyModeConstants CopyMode, ITyped** Copy) override {
        return core::Guarded("Copy", ITyped::iid, [&] {
            core::RequireOut(Copy);
            *Copy = nullptr;
            *Copy = static_cast<ITyped*>(MakeCopy(CopyMode).Detach());
        });
    }
    HRESULT SetRoot(IRoot* Root) override {
        return core::Guarded("SetRoot", ITyped::iid, [&] {
            ComPtr<IRoot> leaving(Root);
            {
                core::ObjectLock::Guard guard(this->Lock());
                leaving = SetRootLocked(std::move(leaving));
            }
            leaving = nullptr;  // a root released outside the lock
            return this->RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
        });
    }
    HRESULT GetRoot(IRoot** Root) override {
        return core::Guarded("GetRoot", ITyped::iid, [&] {
            core::RequireOut(Root);
            *Root = this->Root().Detach();
        });
    }

protected:
    ccLuxGreyImageImpl() = default;
    ~ccLuxGreyImageImpl() override = default;

    // The data interface's method: the root's GetRawPixelMemory with the same arguments.
    HRESULT OpenPixelMemory(const char* method, const IID& iid, LuxImageDataModeConstants DataMode, LONG X, LONG Y,
                            LONG Width, LONG Height, IMemory** PixelMemory) {
        return core::Guarded(method, iid, [&] {
            core::RequireOut(PixelMemory);
            *PixelMemory = nullptr;
            const ComPtr<IRoot> root = Root();
            if (!root) throw ccPel::UnboundWindow("the image has no pixels");
            core::ThrowIfFailed(root->GetRawPixelMemory(DataMode, X, Y, Width, Height, PixelMemory));
        });
    }

private:
    ComPtr<Derived> MakeCopy(LuxImageCopyModeConstants mode) const {
        if (mode < luxImageCopyModeCopyPixels || mode > luxImageCopyModeNoPixels)
            throw ccStdError::BadArgument("CopyMode");
        auto copy = ComPtr<Derived>::Attach(Derived::Create());
        if (!copy) throw std::bad_alloc();
        copy->CopyInto(static_cast<const Derived&>(*this), mode);
        return copy;
    }
    // Makes this image (new, or cloned into) a copy of `source`.
    void CopyInto(const Derived& source, LuxImageCopyModeConstants mode) {
        this->CopySpacesFrom(source);
        static_cast<Derived&>(*this).CopyExtrasFrom(source);
        ComPtr<IRoot> root;
        if (mode == luxImageCopyModeSharePixels) {
            root = source.Root();
        } else if (mode == luxImageCopyModeCopyPixels) {
            const ccPelBuffer<Pel> pels = source.Pels();
            if (pels.IsBound()) {
                auto own = RootClass::Allocate(pels.Width(), pels.Height(), ccPelFill::None);
                ccPelBuffer<Pel>(own->Pels()).CopyFrom(pels);
                root = ComPtr<IRoot>(own.get());
            }
        }
        core::ObjectLock::Guard guard(this->Lock());
        root = SetRootLocked(std::move(root));
    }

    // Holds `root`; returns the root held before, for release outside the lock.
    ComPtr<IRoot> SetRootLocked(ComPtr<IRoot> root) noexcept {
        std::swap(root, root_);
        ownRoot_ = RootClass::ImplementationOf(root_.get());
        return root;
    }
    std::pair<int32_t, int32_t> RootSizeLocked() const {
        LONG width = 0;
        LONG height = 0;
        core::ThrowIfFailed(root_->get_Width(&width));
        core::ThrowIfFailed(root_->get_Height(&height));
        return {width, height};
    }

    ComPtr<IRoot> root_;
    RootClass* ownRoot_ = nullptr;  // root_ when it is the library's own root object
};

}  // namespace tessaly::image
