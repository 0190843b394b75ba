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
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "TessalyCore.h"
#include "com/core/MethodGuard.h"
#include "com/image/impl/ImageErrors.h"
#include "platform/ComObject.h"
#include "platform/ComPtr.h"
#include "xnl/std/pelbuf/ccPelBuffer.h"
#include "xnl/std/pelbuf/ccPelError.h"

namespace tessaly::image {

template <class Derived, class T, class IMemory>
class PixelMemoryImpl : public ComObject<Derived, IMemory> {
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
