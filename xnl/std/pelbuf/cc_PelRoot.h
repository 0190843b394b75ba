// The untyped base of every pel root: a block of pixel memory described by its width and
// height (pixels), its row pitch (bytes from one row to the next, negative when rows run
// upwards in memory) and the address of the first pixel of row 0. Pixel (x, y) of the root
// lies at Row0 + y * pitch + x * pixel size.
//
// A root is the unit that is shared: it is held only through counted handles
// (ccPtrHandle, ccPtrHandle_const), and every holder reads and writes the one block. It is
// never copied; a copy with pixels of its own is a new root and a pixel copy.
//
// Typed roots derive from it virtually (ccPelRoot<T>), so that one root object may carry
// a second base beside its typed one. The variants say where the memory comes from:
// memory of the root's own (ccPelRootOwn, ccPelRootCvt) or memory borrowed from elsewhere
// (ccPelRootBorrowed, ccPelRootDisposable). CheckIntegrity verifies that a root describes
// its memory in exactly one of those ways.
#pragma once

#include <cstddef>
#include <cstdint>

#include "xnl/std/base/ccRefCounted.h"

class cc_PelRoot : public ccRefCounted {
public:
    cc_PelRoot(const cc_PelRoot&) = delete;
    cc_PelRoot& operator=(const cc_PelRoot&) = delete;

    int32_t Width() const noexcept { return width_; }
    int32_t Height() const noexcept { return height_; }
    // Bytes from the start of one row to the start of the next; negative when rows run
    // upwards in memory. Code uses this value and never assumes how a variant padded it.
    ptrdiff_t RowPitchBytes() const noexcept { return pitchBytes_; }
    size_t PelSize() const noexcept { return pelSize_; }
    // The first pixel of row 0; null for a root without pixels (width or height 0).
    const std::byte* Row0Bytes() const noexcept { return row0_; }
    std::byte* Row0Bytes() noexcept { return row0_; }
    // Whether rows follow one another without a gap (pitch = width x pixel size).
    bool IsContiguous() const noexcept {
        return pitchBytes_ == static_cast<ptrdiff_t>(width_) * static_cast<ptrdiff_t>(pelSize_);
    }

    // How a root describes its memory: each variant counts the way it holds it.
    struct MemoryDescription {
        int own = 0;       // memory the root allocated and frees
        int borrowed = 0;  // memory that lives elsewhere and outlives the root
    };

    // The integrity check every variant extends: the root describes its memory in exactly
    // one way (own or borrowed), its width and height are not negative, its pitch spans at
    // least a row, and it has a row-0 address whenever it has pixels. ccPel::Unknown, with
    // what is wrong in the details, otherwise. Buffers check a root when they bind to it.
    virtual void CheckIntegrity() const;
    MemoryDescription DescribeMemory() const noexcept {
        MemoryDescription description;
        AddMemoryDescription(description);
        return description;
    }

protected:
    cc_PelRoot() noexcept = default;
    ~cc_PelRoot() override = default;

    // Each variant adds its way of holding memory (and calls its bases' first).
    virtual void AddMemoryDescription(MemoryDescription& description) const noexcept;

    // Set by the variant's constructor (the base is virtual: the variant knows the memory).
    void SetGeometry(int32_t width, int32_t height, ptrdiff_t pitchBytes, std::byte* row0, size_t pelSize) noexcept {
        width_ = width;
        height_ = height;
        pitchBytes_ = pitchBytes;
        row0_ = row0;
        pelSize_ = pelSize;
    }

private:
    int32_t width_ = 0;
    int32_t height_ = 0;
    ptrdiff_t pitchBytes_ = 0;
    std::byte* row0_ = nullptr;
    size_t pelSize_ = 1;
};
