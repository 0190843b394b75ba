// The pixel-memory objects (LuxImage8PixelMemory, LuxImage16PixelMemory): direct access
// to a rectangle of a root's pixels. The object holds a pel buffer over the rectangle, and
// with it a handle on the root's memory: the address it hands out stays valid until
// Dispose or the last release, whatever happens to the root object meanwhile (a new
// Initialize, a load, its own release).
//
// After Dispose every getter fails with e_LuxImage_NoPixels; Dispose again does nothing.
// Arrays that view the memory (the Python module's NumPy views) pin it with AddView and
// ReleaseView; Dispose while any is pinned fails with E_UNEXPECTED and changes nothing,
// so no view is ever left dangling.
//
// The state is set once by Open before the object is handed out and changed only by
// Dispose, under a mutex; the getters read it under the same mutex.
//
// Marshalling (IMarshal, the stream format in PixelMarshalStream.h): within the process
// the object passes its own pointer; elsewhere it passes its pixels by value, which only
// memory opened for reading may do (E_FAIL otherwise: a writer across processes would
// write into a copy). The unmarshal class is the object's own: a new object unmarshals
// into memory of its own, opened for reading. ReleaseMarshalData releases the passed
// pointer, or skips the pixels.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "TessalyCore.h"
#include "com/core/MethodGuard.h"
#include "com/core/ccCOMError.h"
#include "com/image/impl/ImageErrors.h"
#include "com/image/impl/PixelMarshalStream.h"
#include "xnl/std/pelbuf/ccPelRootOwn.h"
#include "platform/ComObject.h"
#include "platform/ComPtr.h"
#include "xnl/std/pelbuf/ccPelBuffer.h"
#include "xnl/std/pelbuf/ccPelError.h"

namespace tessaly::image {

template <class Derived, class T, class IMemory>
class PixelMemoryImpl : public ComObject<Derived, IMemory, IMarshal> {
public:
    using Interface = IMemory;

    // A new object over `window` (bound), opened in `mode`.
    static ComPtr<Derived> Open(ccPelBuffer<T> window, LuxImageDataModeConstants mode) {
        auto object = ComPtr<Derived>::Attach(Derived::Create());
        if (!object) throw std::bad_alloc();
        object->window_ = std::move(window);
        object->mode_ = mode;
        return object;
    }

    LuxImageDataModeConstants Mode() const noexcept { return mode_; }
    // The window, or an unbound buffer once disposed.
    ccPelBuffer<T> Window() const {
        std::lock_guard guard(mutex_);
        return window_;
    }
    // Pins the memory for an array that views it; false once disposed.
    bool AddView() noexcept {
        std::lock_guard guard(mutex_);
        if (!window_.IsBound()) return false;
        ++views_;
        return true;
    }
    void ReleaseView() noexcept {
        std::lock_guard guard(mutex_);
        if (views_ > 0) --views_;
    }

    HRESULT get_Width(LONG* Width) override {
        return Read("get_Width", [&](const ccPelBuffer<T>& window) { *Width = window.Width(); }, Width);
    }
    HRESULT get_Height(LONG* Height) override {
        return Read("get_Height", [&](const ccPelBuffer<T>& window) { *Height = window.Height(); }, Height);
    }
    HRESULT get_Scan0(LONGLONG* Scan0) override {
        return Read("get_Scan0", [&](const ccPelBuffer<T>& window) {
            // An empty window has no first pixel; its address is the root's corner of it.
            const T* first = window.Width() > 0 && window.Height() > 0 ? window.PelPointer(0, 0) : nullptr;
            *Scan0 = static_cast<LONGLONG>(reinterpret_cast<intptr_t>(first));
        }, Scan0);
    }
    HRESULT get_Stride(LONG* Stride) override {
        return Read("get_Stride", [&](const ccPelBuffer<T>& window) { *Stride = window.Pitch(); }, Stride);
    }
    HRESULT Dispose() override {
        return core::Guarded("Dispose", IMemory::iid, [&] {
            ccPelBuffer<T> leaving;
            {
                std::lock_guard guard(mutex_);
                if (views_ > 0)
                    throw ImageErrors::InUse("the pixel memory is viewed by " + std::to_string(views_) +
                                             (views_ == 1 ? " array" : " arrays") +
                                             "; release the arrays before disposing of it");
                leaving = std::move(window_);
                window_ = ccPelBuffer<T>();
            }
            // The root's memory may be released here: outside the mutex.
        });
    }

    // IMarshal
    HRESULT GetUnmarshalClass(REFIID, void*, DWORD, void*, DWORD, CLSID* pCid) override {
        if (!pCid) return E_POINTER;
        *pCid = Derived::CoClass().clsid;
        return S_OK;
    }
    HRESULT GetMarshalSizeMax(REFIID, void*, DWORD dwDestContext, void*, DWORD, DWORD* pSize) override {
        if (!pSize) return E_POINTER;
        std::lock_guard guard(mutex_);
        uint64_t size = 4 + 8;
        if (dwDestContext != MSHCTX_INPROC)
            size = 4 + 8 + uint64_t(window_.Width()) * uint64_t(window_.Height()) * sizeof(T);
        *pSize = size > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<DWORD>(size);
        return S_OK;
    }
    HRESULT MarshalInterface(IStream* pStm, REFIID, void*, DWORD dwDestContext, void*, DWORD) override {
        return core::Guarded("MarshalInterface", IMarshal::iid, [&] {
            core::RequireArgument(pStm, "pStm");
            PixelMarshalStream stream(pStm);
            if (dwDestContext == MSHCTX_INPROC) {
                stream.WriteUInt32(MSHCTX_INPROC);
                IUnknown* self = this->GetUnknown();
                stream.WritePointer(self);
                self->AddRef();  // the reference the stream holds until unmarshalled or released
                return S_OK;
            }
            const ccPelBuffer<T> window = Window();
            if (mode_ != luxImageDataModeRead || !window.IsBound())
                throw core::ccCOMError(E_FAIL, "only pixel memory opened for reading passes by value", "MarshalInterface",
                                       IMarshal::iid);
            stream.WriteUInt32(dwDestContext);
            stream.WriteUInt32(static_cast<uint32_t>(window.Width()));
            stream.WriteUInt32(static_cast<uint32_t>(window.Height()));
            if (window.Width() > 0 && window.Height() > 0)
                stream.WriteRows(reinterpret_cast<const std::byte*>(window.PelPointer(0, 0)),
                                 ptrdiff_t{window.Pitch()} * ptrdiff_t(sizeof(T)), window.Width(), window.Height(),
                                 sizeof(T));
            return S_OK;
        });
    }
    HRESULT UnmarshalInterface(IStream* pStm, REFIID riid, void** ppv) override {
        return core::Guarded("UnmarshalInterface", IMarshal::iid, [&] {
            core::RequireOut(ppv);
            *ppv = nullptr;
            core::RequireArgument(pStm, "pStm");
            PixelMarshalStream stream(pStm);
            if (stream.ReadUInt32() == MSHCTX_INPROC) {
                // The stream's reference becomes the caller's, through the interface asked for.
                IUnknown* passed = stream.ReadPointer();
                if (!passed) return E_INVALIDARG;
                const HRESULT result = passed->QueryInterface(riid, ppv);
                passed->Release();
                return result;
            }
            int32_t width = 0;
            int32_t height = 0;
            stream.ReadSize(width, height);
            ccPelBuffer<T> pixels(width, height);
            if (width > 0 && height > 0)
                stream.ReadRows(reinterpret_cast<std::byte*>(pixels.PelPointer(0, 0)),
                                ptrdiff_t{pixels.Pitch()} * ptrdiff_t(sizeof(T)), width, height, sizeof(T));
            {
                std::lock_guard guard(mutex_);
                window_ = std::move(pixels);
                mode_ = luxImageDataModeRead;
            }
            return this->QueryInterface(riid, ppv);
        });
    }
    HRESULT ReleaseMarshalData(IStream* pStm) override {
        return core::Guarded("ReleaseMarshalData", IMarshal::iid, [&] {
            core::RequireArgument(pStm, "pStm");
            PixelMarshalStream stream(pStm);
            if (stream.ReadUInt32() == MSHCTX_INPROC) {
                if (IUnknown* passed = stream.ReadPointer()) passed->Release();
                return;
            }
            int32_t width = 0;
            int32_t height = 0;
            stream.ReadSize(width, height);
            stream.Skip(uint64_t(width) * uint64_t(height) * sizeof(T));
        });
    }
    HRESULT DisconnectObject(DWORD) override { return S_OK; }

protected:
    ~PixelMemoryImpl() override = default;

private:
    template <class Body, class Out>
    HRESULT Read(const char* method, Body&& body, Out* out) {
        return core::Guarded(method, IMemory::iid, [&] {
            core::RequireOut(out);
            std::lock_guard guard(mutex_);
            if (!window_.IsBound()) throw ccPel::UnboundWindow("the pixel memory has been disposed of");
            body(window_);
        });
    }

    mutable std::mutex mutex_;
    ccPelBuffer<T> window_;
    LuxImageDataModeConstants mode_ = luxImageDataModeRead;
    uint32_t views_ = 0;
};

}  // namespace tessaly::image
