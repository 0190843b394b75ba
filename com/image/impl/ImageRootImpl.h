// The root objects (LuxImage8Root, LuxImage16Root): the automation layer's holders of a
// pel root. Images hold a root object and reach their pixels through it; several images
// that hold one root object share its pixels.
//
// The root object holds a handle on a core root, or none (an empty root object: width and
// height 0, no pixels). Initialize and a load replace that handle; whoever still holds the
// old one (a pixel-memory object, a pel buffer) keeps the old memory alive and valid.
//
// Initialize(Width, Height, Scan0, Stride, Disposable):
//   - Width >= 1, Height >= 1, |Stride| >= Width, else e_LuxImage_BadCoord;
//   - Scan0 non-zero: the root uses that memory as it is (a negative stride runs the rows
//     upwards from Scan0) and keeps Disposable (may be null) alive as long as any holder
//     of that core root lives: the memory is used no longer than Disposable is held;
//   - Scan0 zero with a Disposable: E_INVALIDARG;
//   - both zero: Height x |Stride| zeroed pixels of the root's own (E_OUTOFMEMORY when
//     they cannot be had).
// A refused call changes nothing. A successful one raises Change(-1).
//
// GetRawPixelMemory(DataMode, X, Y, Width, Height): DataMode 1..3 (E_INVALIDARG naming
// "DataMode"); Width and Height both 0 mean the rest of the root from (X, Y), so all four
// 0 are the whole root; otherwise the rectangle must lie inside the root
// (e_LuxImage_Clipped). An empty root gives e_LuxImage_NoPixels.
//
// Persistence: one value, "PixelArray": a two-dimensional array of VT_UI1 (8-bit) or
// VT_UI2 (16-bit), first dimension the width, second the height, both from 0, the rows
// packed whatever the stride. An empty root stores an empty value, and an array without
// elements loads as an empty root. Loading adopts the array as the root's memory (no
// copy): E_FAIL for another type or a null array, E_INVALIDARG for another number of
// dimensions, element size or lower bounds.
//
// Clone copies the pixels into memory of the clone's own.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "TessalyCore.h"
#include "com/core/ccCOMError.h"
#include "com/core/impl/ArchiveAccess.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "com/image/impl/ImageErrors.h"
#include "platform/ComPtr.h"
#include "platform/SafeArray.h"
#include "xnl/std/pelbuf/ccPelBuffer.h"
#include "xnl/std/pelbuf/ccPelError.h"
#include "xnl/std/pelbuf/ccPelRootDisposable.h"
#include "xnl/std/pelbuf/ccPelRootOwn.h"

namespace tessaly::image {

// Pixels a root object allocates for itself: zeroed, released with the last holder of the
// core root. Above this many bytes a request is refused before the allocator is asked.
inline constexpr uint64_t kMaxRootBytes = uint64_t{1} << 38;

template <class Derived, class T, class IRoot, class IRootBuffer, class MemoryClass>
class ImageRootImpl : public core::ILuxObjectImplBase<Derived, IRoot, IRootBuffer> {
    using Base = core::ILuxObjectImplBase<Derived, IRoot, IRootBuffer>;

public:
    static constexpr VARTYPE kArrayType = sizeof(T) == 1 ? VT_UI1 : VT_UI2;

    // A new root object of width x height pixels of its own, rows aligned to 32 bytes.
    // With ccPelFill::None the pixels are left as the memory comes, for a maker that
    // writes every one of them at once.
    static ComPtr<Derived> Allocate(int32_t width, int32_t height, ccPelFill fill = ccPelFill::Zero) {
        return Over(ccPelRootPtrh<T>(new ccPelRootOwn<T>(width, height, 32, fill)));
    }
    // A new root object holding `pels` (may be null).
    static ComPtr<Derived> Over(ccPelRootPtrh<T> pels) {
        auto object = ComPtr<Derived>::Attach(Derived::Create());
        if (!object) throw std::bad_alloc();
        object->pels_ = std::move(pels);  // nobody else sees the object yet
        return object;
    }

    // The core root now held (null when empty), taken under the lock.
    ccPelRootPtrh<T> Pels() const {
        core::ObjectLock::Guard guard(this->Lock());
        return pels_;
    }
    // Reads or writes pixel (x, y) of the whole root under the lock, without a handle copy:
    // ccPel::UnboundWindow when empty, ccPel::BadCoord outside.
    T GetPixel(int32_t x, int32_t y) const {
        core::ObjectLock::Guard guard(this->Lock());
        return *PixelAddress(x, y);
    }
    void SetPixel(int32_t x, int32_t y, T value) {
        core::ObjectLock::Guard guard(this->Lock());
        *const_cast<T*>(PixelAddress(x, y)) = value;
    }

    // The root of any implementation as a core root: this class's directly; another's
    // through a pixel-memory object of the whole root, which the returned root keeps alive.
    static ccPelRootPtrh<T> PelsOf(IRoot* root) {
        if (!root) return {};
        if (const Derived* own = Derived::ImplementationOf(root)) return own->Pels();
        ComPtr<typename MemoryClass::Interface> memory;
        core::ThrowIfFailed(root->GetRawPixelMemory(luxImageDataModeReadWrite, 0, 0, 0, 0, memory.Out()));
        LONG width = 0, height = 0, stride = 0;
        LONGLONG scan0 = 0;
        core::ThrowIfFailed(memory->get_Width(&width));
        core::ThrowIfFailed(memory->get_Height(&height));
        core::ThrowIfFailed(memory->get_Stride(&stride));
        core::ThrowIfFailed(memory->get_Scan0(&scan0));
        IUnknown* keep = memory.get();
        keep->AddRef();
        auto release = ccMakePelDisposable([keep]() noexcept { keep->Release(); });
        return ccPelRootPtrh<T>(new ccPelRootDisposable<T>(width, height, reinterpret_cast<T*>(scan0), stride,
                                                           std::move(release)));
    }

    void CopyFrom(const Derived& source) {
        const ccPelRootPtrh<T> from = source.Pels();
        ccPelRootPtrh<T> copy;
        if (from) {
            copy = ccPelRootPtrh<T>(new ccPelRootOwn<T>(from->Width(), from->Height(), 32, ccPelFill::None));
            ccPelBuffer<T>(copy).CopyFrom(ccPelBuffer_const<T>(ccPelRootPtrh_const<T>(from)));
        }
        ccPelRootPtrh<T> leaving;
        {
            core::ObjectLock::Guard guard(this->Lock());
            leaving = std::move(pels_);
            pels_ = std::move(copy);
        }
    }
    void ResetState() noexcept { pels_ = ccPelRootPtrh<T>(); }

    void PersistState(core::ArchiveAccess& archive) {
        if (archive.Saving()) {
            Variant stored = PackedArray();
            archive.Write("PixelArray", stored.get());
            return;
        }
        Variant stored;
        if (!archive.Read("PixelArray", stored)) return;
        ccPelRootPtrh<T> adopted = Adopt(stored);
        archive.OnCommit([this, adopted = std::move(adopted)]() mutable noexcept { pels_ = std::move(adopted); });
    }

    // IRoot
    HRESULT get_Width(LONG* Width) override {
        return core::Guarded("get_Width", IRoot::iid, [&] {
            core::RequireOut(Width);
            core::ObjectLock::Guard guard(this->Lock());
            *Width = pels_ ? pels_->Width() : 0;
        });
    }
    HRESULT get_Height(LONG* Height) override {
        return core::Guarded("get_Height", IRoot::iid, [&] {
            core::RequireOut(Height);
            core::ObjectLock::Guard guard(this->Lock());
            *Height = pels_ ? pels_->Height() : 0;
        });
    }
    HRESULT GetRawPixelMemory(LuxImageDataModeConstants DataMode, LONG X, LONG Y, LONG Width, LONG Height,
                              typename MemoryClass::Interface** PixelMemory) override {
        return core::Guarded("GetRawPixelMemory", IRoot::iid, [&] {
            core::RequireOut(PixelMemory);
            *PixelMemory = nullptr;
            auto memory = OpenMemory(Pels(), DataMode, X, Y, Width, Height);
            *PixelMemory = memory.Detach();
        });
    }

    // The pixel-memory object of a rectangle of `pels` (the rules above).
    static ComPtr<MemoryClass> OpenMemory(const ccPelRootPtrh<T>& pels, LuxImageDataModeConstants mode, LONG x,
                                          LONG y, LONG width, LONG height) {
        if (mode < luxImageDataModeRead || mode > luxImageDataModeReadWrite)
            throw ccStdError::BadArgument("DataMode");
        if (!pels) throw ccPel::UnboundWindow("the root holds no pixels");
        if (width == 0 && height == 0) {
            width = static_cast<LONG>(int64_t{pels->Width()} - x);
            height = static_cast<LONG>(int64_t{pels->Height()} - y);
            if (x < 0 || y < 0 || width < 0 || height < 0)
                throw ccPel::BadWindow("the corner (" + std::to_string(x) + ", " + std::to_string(y) +
                                       ") lies outside the root");
        }
        return MemoryClass::Open(ccPelBuffer<T>(pels, x, y, width, height), mode);
    }

    // IRootBuffer
    HRESULT Initialize(LONG Width, LONG Height, LONGLONG Scan0, LONG Stride, IUnknown* Disposable) override {
        return core::Guarded("Initialize", IRootBuffer::iid, [&] {
            const int64_t pitch = Stride < 0 ? -int64_t{Stride} : int64_t{Stride};
            if (Width < 1 || Height < 1 || pitch < Width)
                throw ImageErrors::BadSize("width " + std::to_string(Width) + ", height " + std::to_string(Height) +
                                           ", stride " + std::to_string(Stride) +
                                           ": both sizes must be at least 1 and the stride at least the width");
            ccPelRootPtrh<T> made;
            if (Scan0 != 0) {
                std::unique_ptr<ccPelDisposable> keep;
                if (Disposable) {
                    Disposable->AddRef();
                    keep = ccMakePelDisposable([Disposable]() noexcept { Disposable->Release(); });
                }
                made = ccPelRootPtrh<T>(new ccPelRootDisposable<T>(
                    Width, Height, reinterpret_cast<T*>(static_cast<intptr_t>(Scan0)), Stride, std::move(keep)));
            } else {
                if (Disposable)
                    throw ccStdError::BadArgument("Disposable");  // memory it owns, but no address
                made = OwnMemory(Width, Height, Stride);
            }
            ccPelRootPtrh<T> leaving;
            {
                core::ObjectLock::Guard guard(this->Lock());
                leaving = std::move(pels_);
                pels_ = std::move(made);
            }
            return this->RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
        });
    }

protected:
    ImageRootImpl() = default;
    ~ImageRootImpl() override = default;

private:
    const T* PixelAddress(int32_t x, int32_t y) const {
        if (!pels_ || static_cast<uint32_t>(x) >= static_cast<uint32_t>(pels_->Width()) ||
            static_cast<uint32_t>(y) >= static_cast<uint32_t>(pels_->Height())) [[unlikely]]
            ThrowNoPixel(pels_.Get(), x, y);
        return pels_->RowPointer(y) + x;
    }
    // Out of line, so that the pixel's fast path needs no frame for building the message.
    [[noreturn, gnu::cold, gnu::noinline]] static void ThrowNoPixel(const ccPelRoot<T>* pels, int32_t x, int32_t y) {
        if (!pels) throw ccPel::UnboundWindow("the root holds no pixels");
        throw ccPel::BadCoord("pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") of a " +
                              std::to_string(pels->Width()) + " x " + std::to_string(pels->Height()) + " image");
    }

    static ccPelRootPtrh<T> OwnMemory(int32_t width, int32_t height, int32_t stride) {
        const uint64_t pitch = stride < 0 ? uint64_t(-int64_t{stride}) : uint64_t(stride);
        const uint64_t count = pitch * uint64_t(height);
        if (count * sizeof(T) > kMaxRootBytes) throw std::bad_alloc();
        T* block = static_cast<T*>(std::calloc(count, sizeof(T)));
        if (!block) throw std::bad_alloc();
        auto release = ccMakePelDisposable([block]() noexcept { std::free(block); });
        // A negative stride starts row 0 at the last row of the block.
        T* row0 = stride < 0 ? block + (count - pitch) : block;
        return ccPelRootPtrh<T>(new ccPelRootDisposable<T>(width, height, row0, stride, std::move(release)));
    }

    // The pixels as the stored array (empty when there are none); taken under the lock,
    // which the save holds.
    Variant PackedArray() const {
        Variant stored;
        if (!pels_ || pels_->Width() == 0 || pels_->Height() == 0) return stored;
        const int32_t width = pels_->Width();
        const int32_t height = pels_->Height();
        SAFEARRAYBOUND bounds[2] = {{static_cast<ULONG>(width), 0}, {static_cast<ULONG>(height), 0}};
        SAFEARRAY* array = SafeArrayCreate(kArrayType, 2, bounds);
        if (!array) throw std::bad_alloc();
        void* data = nullptr;
        SafeArrayAccessData(array, &data);
        const size_t rowBytes = size_t(width) * sizeof(T);
        if (pels_->IsContiguous() || height <= 1) {
            if (rowBytes * size_t(height) > 0) std::memcpy(data, pels_->RowPointer(0), rowBytes * size_t(height));
        } else {
            auto* out = static_cast<std::byte*>(data);
            for (int32_t y = 0; y < height; ++y) std::memcpy(out + size_t(y) * rowBytes, pels_->RowPointer(y), rowBytes);
        }
        SafeArrayUnaccessData(array);
        VARIANT& value = *stored.ptr();
        value.vt = VT_ARRAY | kArrayType;
        value.parray = array;
        return stored;
    }

    // A root over the loaded array's own memory: the array is destroyed with the root.
    static ccPelRootPtrh<T> Adopt(Variant& stored) {
        if (stored.vt() == VT_EMPTY) return {};
        if (stored.vt() != (VT_ARRAY | kArrayType) || !stored.get().parray)
            throw core::ccCOMError(E_FAIL,
                                   std::string("PixelArray is not an array of ") +
                                       (sizeof(T) == 1 ? "8-bit" : "16-bit") + " pixels",
                                   "Persist", ILuxPersistArchive::iid);
        SAFEARRAY* array = stored.get().parray;
        LONG lower0 = 0, lower1 = 0;
        if (SafeArrayGetDim(array) != 2 || SafeArrayGetElemsize(array) != sizeof(T) ||
            FAILED(SafeArrayGetLBound(array, 1, &lower0)) || FAILED(SafeArrayGetLBound(array, 2, &lower1)) ||
            lower0 != 0 || lower1 != 0)
            throw core::ccCOMError(E_INVALIDARG,
                                   "PixelArray must have two dimensions (width, height), both from 0, "
                                   "of one pixel an element",
                                   "Persist", ILuxPersistArchive::iid);
        LONG upper0 = -1, upper1 = -1;
        SafeArrayGetUBound(array, 1, &upper0);
        SafeArrayGetUBound(array, 2, &upper1);
        const int32_t width = upper0 + 1;
        const int32_t height = upper1 + 1;
        // An array without elements is what a root without pixels would save: without this
        // it loaded as a root of pixels 0 wide that reported a height, opened memory and
        // saved a 0 x N array, none of which Initialize can ever make.
        if (width == 0 || height == 0) return {};
        void* data = nullptr;
        core::ThrowIfFailed(SafeArrayAccessData(array, &data));
        VARIANT taken = stored.Detach();
        auto release = ccMakePelDisposable([array = taken.parray]() noexcept {
            SafeArrayUnaccessData(array);
            SafeArrayDestroy(array);
        });
        try {
            return ccPelRootPtrh<T>(
                new ccPelRootDisposable<T>(width, height, static_cast<T*>(data), width, std::move(release)));
        } catch (...) {
            // The root was refused: the array goes back to the variant, which frees it.
            SafeArrayUnaccessData(taken.parray);
            stored = Variant::Attach(taken);
            throw;
        }
    }

    ccPelRootPtrh<T> pels_;
};

}  // namespace tessaly::image
