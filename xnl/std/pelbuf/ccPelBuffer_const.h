// A read-only rectangular window onto a pel root of type T: a handle to the root (none for
// an unbound buffer), the window (offset in the root, size) and the client transform of
// cc_PelBuffer. A buffer never owns pixels: copying one copies the handle and the window,
// and both copies see the same pixels.
//
// Pixel (x, y) of the buffer is pixel (OffsetX + x, OffsetY + y) of the root. Every access
// checks: ccPel::UnboundWindow without a root, then ccPel::BadCoord for a coordinate
// outside 0 <= x < Width, 0 <= y < Height. Windows that do not fit are ccPel::BadWindow.
//
//     ccPelBuffer_const<uint8_t> image(root);               // the whole root
//     ccPelBuffer_const<uint8_t> part = image.Window(10, 20, 64, 48);
//     uint8_t value = part.Get(0, 0);                        // root pixel (10, 20)
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "xnl/std/pelbuf/ccPelError.h"
#include "xnl/std/pelbuf/ccPelRoot.h"
#include "xnl/std/pelbuf/cc_PelBuffer.h"

template <class T>
    requires ccPelBufferType<T>
class ccPelBuffer_const : public cc_PelBuffer {
public:
    using PelType = T;

    // Unbound: no root, an empty window.
    ccPelBuffer_const() noexcept = default;
    // The whole root (an unbound buffer for a null handle). The root's integrity is
    // checked (ccPel::Unknown).
    explicit ccPelBuffer_const(ccPelRootPtrh_const<T> root) { Bind(std::move(root)); }
    // A window of the root, in root coordinates (ccPel::BadWindow when it does not fit,
    // ccPel::UnboundWindow for a null handle).
    ccPelBuffer_const(ccPelRootPtrh_const<T> root, int32_t x, int32_t y, int32_t width, int32_t height) {
        if (!root) throw ccPel::UnboundWindow("a window of a null root");
        CheckWindow(x, y, width, height, root->Width(), root->Height());
        Bind(std::move(root));
        SetWindowUnchecked(x, y, width, height);
    }

    bool IsBound() const noexcept { return static_cast<bool>(root_); }
    const ccPelRootPtrh_const<T>& Root() const noexcept { return root_; }
    // Binds to another root and shows the whole of it, with the identity as client
    // transform (an unbound buffer for a null handle).
    void SetRoot(ccPelRootPtrh_const<T> root) {
        Bind(std::move(root));
        ResetClientFromPelXform();
    }
    // Moves the window, in root coordinates (ccPel::UnboundWindow, ccPel::BadWindow); the
    // client transform shifts along (ccPel::NonlinearXform when it is not linear). A
    // refused call changes nothing.
    void SetWindow(int32_t x, int32_t y, int32_t width, int32_t height) {
        RequireRoot();
        CheckWindow(x, y, width, height, root_->Width(), root_->Height());
        SetClientFromPelXform(ShiftedXform(x - OffsetX(), y - OffsetY()));
        SetWindowUnchecked(x, y, width, height);
    }

    // Pixels from one row to the next (negative when rows run upwards in memory).
    int32_t Pitch() const {
        RequireRoot();
        return root_->Pitch();
    }
    // Whether the window's rows follow one another in memory without a gap.
    bool IsContiguous() const noexcept {
        return root_ && (Height() <= 1 || root_->RowPitchBytes() ==
                                              static_cast<ptrdiff_t>(Width()) * static_cast<ptrdiff_t>(sizeof(T)));
    }

    T Get(int32_t x, int32_t y) const { return *PelPointer(x, y); }
    const T* PelPointer(int32_t x, int32_t y) const {
        RequireRoot();
        CheckCoord(x, y);
        return RowAddress(y) + x;
    }
    // The first pixel of row y of the window (ccPel::BadCoord unless 0 <= y < Height).
    const T* RowPointer(int32_t y) const {
        RequireRoot();
        if (y < 0 || y >= Height()) ThrowBadCoord(0, y);
        return RowAddress(y);
    }

    // The sub-window (x, y, width, height) in this buffer's pixel coordinates: it must lie
    // inside this window (ccPel::BadWindow). It shares the root; its client transform is
    // this one's shifted to its origin.
    ccPelBuffer_const Window(int32_t x, int32_t y, int32_t width, int32_t height) const {
        ccPelBuffer_const window(*this);
        window.CutWindow(x, y, width, height);
        return window;
    }
    // The pixels this window has in common with `other`'s, seen through this buffer (its
    // client transform shifted along): ccPel::UnboundWindow when either is unbound,
    // ccPel::DisjointWindows when they lie on different roots or do not meet.
    ccPelBuffer_const Intersect(const ccPelBuffer_const& other) const {
        ccPelBuffer_const common(*this);
        common.CutIntersection(other, other.root_.Get());
        return common;
    }

protected:
    void RequireRoot() const {
        if (!root_) throw ccPel::UnboundWindow();
    }
    const T* RowAddress(int32_t y) const noexcept { return root_->RowPointer(OffsetY() + y) + OffsetX(); }

    void CutWindow(int32_t x, int32_t y, int32_t width, int32_t height) {
        RequireRoot();
        CheckWindow(x, y, width, height, Width(), Height());
        SetClientFromPelXform(ShiftedXform(x, y));
        SetWindowUnchecked(OffsetX() + x, OffsetY() + y, width, height);
    }
    void CutIntersection(const cc_PelBuffer& other, const cc_PelRoot* otherRoot) {
        RequireRoot();
        if (!otherRoot) throw ccPel::UnboundWindow("intersecting with an unbound buffer");
        if (static_cast<const cc_PelRoot*>(root_.Get()) != otherRoot)
            throw ccPel::DisjointWindows("the windows lie on different roots");
        const int32_t left = std::max(OffsetX(), other.OffsetX());
        const int32_t top = std::max(OffsetY(), other.OffsetY());
        const int64_t right = std::min(int64_t{OffsetX()} + Width(), int64_t{other.OffsetX()} + other.Width());
        const int64_t bottom = std::min(int64_t{OffsetY()} + Height(), int64_t{other.OffsetY()} + other.Height());
        if (right <= left || bottom <= top) throw ccPel::DisjointWindows("the windows do not meet");
        CutWindow(left - OffsetX(), top - OffsetY(), static_cast<int32_t>(right - left),
                  static_cast<int32_t>(bottom - top));
    }

private:
    void Bind(ccPelRootPtrh_const<T> root) {
        if (root) root->CheckIntegrity();
        const int32_t width = root ? root->Width() : 0;
        const int32_t height = root ? root->Height() : 0;
        root_ = std::move(root);
        SetWindowUnchecked(0, 0, width, height);
    }

    ccPelRootPtrh_const<T> root_;
};
