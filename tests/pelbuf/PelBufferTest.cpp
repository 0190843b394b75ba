// Pel buffers: windows and sub-windows, every refusal of the ccPel family with the buffer
// left as it was, the client transform that follows a window, copies between roots of
// different pitches and the refusals of overlapping copies, and the rows of the exception
// table that turn these failures into HRESULTs.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "TessalyCore.h"
#include "com/core/ExceptionTable.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/pelbuf/ccPelBuffer.h"
#include "xnl/std/pelbuf/ccPelRootBorrowed.h"

namespace {

// A 10 x 8 root whose pixel (x, y) holds 10 y + x.
ccPelBuffer<uint8_t> Numbered() {
    ccPelBuffer<uint8_t> buffer(10, 8);
    for (int32_t y = 0; y < 8; ++y)
        for (int32_t x = 0; x < 10; ++x) buffer.Set(x, y, static_cast<uint8_t>(10 * y + x));
    return buffer;
}

void ExpectWindow(const cc_PelBuffer& buffer, int32_t x, int32_t y, int32_t width, int32_t height) {
    EXPECT_EQ(buffer.OffsetX(), x);
    EXPECT_EQ(buffer.OffsetY(), y);
    EXPECT_EQ(buffer.Width(), width);
    EXPECT_EQ(buffer.Height(), height);
}

// A transform that is not linear: x is squared.
class SquareXform final : public cc2XformBase {
public:
    cc2Vect MapPoint(const cc2Vect& point) const override { return {point.X() * point.X(), point.Y()}; }
    bool IsLinear() const noexcept override { return false; }
    std::unique_ptr<cc2XformBase> Clone() const override { return std::make_unique<SquareXform>(); }
    std::unique_ptr<cc2XformBase> InverseBase() const override { throw ccStdError::NotImplemented(); }
    std::unique_ptr<cc2XformBase> ComposeBase(const cc2XformBase&) const override {
        throw ccStdError::NotImplemented();
    }
    void Write(ccArchive&) const override {}
    void Read(ccArchive&) override {}
    const char* PersistentClassName() const noexcept override { return "SquareXform"; }
};

TEST(PelBuffer, WindowsAndSubWindowsAddressTheRootThroughTheirOffsets) {
    const ccPelBuffer<uint8_t> whole = Numbered();
    ccPelBuffer<uint8_t> window(whole.Root(), 2, 3, 5, 4);
    EXPECT_EQ(window.Get(4, 3), 66);
    EXPECT_EQ(window.RowPointer(1)[4], 46);
    EXPECT_EQ(window.Pitch(), 32);
    EXPECT_FALSE(window.IsContiguous());

    const ccPelBuffer<uint8_t> sub = window.Window(1, 1, 3, 2);
    ExpectWindow(sub, 3, 4, 3, 2);
    EXPECT_EQ(sub.Get(0, 0), 43);
    sub.Set(2, 1, 200);  // root pixel (5, 5)
    EXPECT_EQ(whole.Get(5, 5), 200);

    // A sub-window must lie inside its parent, not merely inside the root.
    EXPECT_THROW(window.Window(1, 1, 5, 1), ccPel::BadWindow);
    EXPECT_THROW(window.Window(-1, 0, 1, 1), ccPel::BadWindow);
    EXPECT_THROW(window.Window(0, 0, -1, 1), ccPel::BadWindow);
    // x + width past 2^31 must not wrap into range.
    EXPECT_THROW(window.Window(2, 0, std::numeric_limits<int32_t>::max(), 1), ccPel::BadWindow);
    // Empty windows are windows: at the edge, with no pixels.
    const ccPelBuffer<uint8_t> empty = window.Window(5, 4, 0, 0);
    ExpectWindow(empty, 7, 7, 0, 0);
    EXPECT_THROW(empty.Get(0, 0), ccPel::BadCoord);

    // Moving a window: inside the root only; a refusal leaves it where it was.
    window.SetWindow(5, 4, 5, 4);
    EXPECT_EQ(window.Get(4, 3), 79);
    EXPECT_THROW(window.SetWindow(0, 0, 10, 9), ccPel::BadWindow);
    ExpectWindow(window, 5, 4, 5, 4);
    EXPECT_THROW((ccPelBuffer<uint8_t>(whole.Root(), 0, 0, 11, 8)), ccPel::BadWindow);
    EXPECT_THROW((ccPelBuffer<uint8_t>(ccPelRootPtrh<uint8_t>(), 0, 0, 0, 0)), ccPel::UnboundWindow);

    // Rebinding shows the whole new root.
    window.SetRoot(ccPelBuffer<uint8_t>(3, 2).Root());
    ExpectWindow(window, 0, 0, 3, 2);
    EXPECT_EQ(window.Get(2, 1), 0);
}

TEST(PelBuffer, CoordinatesAreCheckedAtEveryEdgeAndAnUnboundBufferRefusesEverything) {
    const ccPelBuffer<uint16_t> buffer(4, 3);
    buffer.Set(3, 2, 77);
    for (auto [x, y] : {std::pair{-1, 0}, {0, -1}, {4, 0}, {0, 3}, {4, 3}, {std::numeric_limits<int32_t>::min(), 0}}) {
        EXPECT_THROW(buffer.Get(x, y), ccPel::BadCoord) << x << ", " << y;
        EXPECT_THROW(buffer.Set(x, y, 1), ccPel::BadCoord) << x << ", " << y;
    }
    EXPECT_THROW(buffer.RowPointer(3), ccPel::BadCoord);
    EXPECT_THROW(buffer.RowPointer(-1), ccPel::BadCoord);
    EXPECT_EQ(buffer.Get(3, 2), 77);

    ccPelBuffer<uint16_t> unbound;
    ExpectWindow(unbound, 0, 0, 0, 0);
    // Unbound is reported before any coordinate is looked at.
    EXPECT_THROW(unbound.Get(0, 0), ccPel::UnboundWindow);
    EXPECT_THROW(unbound.Set(5, 5, 1), ccPel::UnboundWindow);
    EXPECT_THROW(unbound.RowPointer(0), ccPel::UnboundWindow);
    EXPECT_THROW(unbound.Pitch(), ccPel::UnboundWindow);
    EXPECT_THROW(unbound.Window(0, 0, 0, 0), ccPel::UnboundWindow);
    EXPECT_THROW(unbound.SetWindow(0, 0, 0, 0), ccPel::UnboundWindow);
    EXPECT_THROW(unbound.Fill(1), ccPel::UnboundWindow);
    EXPECT_THROW(unbound.Intersect(buffer), ccPel::UnboundWindow);
    EXPECT_THROW(buffer.Intersect(unbound), ccPel::UnboundWindow);
    EXPECT_THROW(unbound.CopyFrom(buffer), ccPel::UnboundWindow);
    EXPECT_THROW(buffer.CopyFrom(unbound), ccPel::UnboundWindow);
}

TEST(PelBuffer, IntersectionKeepsTheCommonPixelsOfOneRootOnly) {
    const ccPelBuffer<uint8_t> whole = Numbered();
    const ccPelBuffer<uint8_t> a = whole.Window(1, 1, 5, 4);
    const ccPelBuffer<uint8_t> b = whole.Window(4, 2, 6, 6);
    const ccPelBuffer<uint8_t> common = a.Intersect(b);
    ExpectWindow(common, 4, 2, 2, 3);
    EXPECT_EQ(common.Get(0, 0), 24);

    // Windows that only touch share no pixel.
    EXPECT_THROW(a.Intersect(whole.Window(6, 1, 2, 2)), ccPel::DisjointWindows);
    EXPECT_THROW(a.Intersect(whole.Window(1, 5, 2, 2)), ccPel::DisjointWindows);
    // The same rectangle of another root is no common pixel either.
    EXPECT_THROW(a.Intersect(Numbered().Window(1, 1, 5, 4)), ccPel::DisjointWindows);
    ExpectWindow(a, 1, 1, 5, 4);
}

TEST(PelBuffer, TheClientTransformFollowsTheWindowAndMustBeLinearToMove) {
    ccPelBuffer<uint8_t> buffer = Numbered();
    EXPECT_EQ(buffer.LinearClientFromPelXform(), cc2XformLinear());
    // Client = 2 * root pixel + (10, 20).
    buffer.SetClientFromPelXform(cc2XformLinear(2, 0, 0, 2, 10, 20));
    const ccPelBuffer<uint8_t> sub = buffer.Window(3, 4, 5, 2);
    const cc2Vect expected = buffer.ClientFromPel({3.5, 4.25});
    EXPECT_EQ(sub.ClientFromPel({0.5, 0.25}), expected);
    EXPECT_EQ(sub.Window(1, 1, 2, 1).ClientFromPel({0, 0}), buffer.ClientFromPel({4, 5}));
    EXPECT_EQ(buffer.Intersect(sub).ClientFromPel({0.5, 0.25}), expected);

    ccPelBuffer<uint8_t> moved = sub;
    moved.SetWindow(0, 0, 2, 2);
    EXPECT_EQ(moved.ClientFromPel({1, 1}), buffer.ClientFromPel({1, 1}));
    // The parent's transform is its own: the windows' shifts never reach it.
    EXPECT_EQ(buffer.LinearClientFromPelXform(), cc2XformLinear(2, 0, 0, 2, 10, 20));
    moved.SetRoot(buffer.Root());
    EXPECT_EQ(moved.LinearClientFromPelXform(), cc2XformLinear());

    // A transform that is not linear maps, but cannot be shifted to a sub-window.
    buffer.SetClientFromPelXform(SquareXform());
    EXPECT_EQ(buffer.ClientFromPel({3, 1}), cc2Vect(9, 1));
    EXPECT_THROW(buffer.LinearClientFromPelXform(), ccPel::NonlinearXform);
    EXPECT_THROW(buffer.Window(1, 1, 2, 2), ccPel::NonlinearXform);
    EXPECT_THROW(buffer.SetWindow(1, 1, 2, 2), ccPel::NonlinearXform);
    ExpectWindow(buffer, 0, 0, 10, 8);
    ExpectWindow(buffer.Window(0, 0, 2, 2), 0, 0, 2, 2);  // the same origin needs no shift
}

// A borrowed root of `width` x `height` in rows of `pitch` pixels, every byte 0xEE, with row 0
// at the top of memory when the pitch is negative.
struct Borrowed {
    std::vector<uint16_t> memory;
    ccPelBuffer<uint16_t> buffer;
    Borrowed(int32_t width, int32_t height, int32_t pitch)
        : memory(static_cast<size_t>(height) * static_cast<size_t>(pitch < 0 ? -pitch : pitch), 0xEEEE) {
        uint16_t* row0 = pitch < 0 ? memory.data() + memory.size() + pitch : memory.data();
        buffer = ccPelBuffer<uint16_t>(ccPelRootPtrh<uint16_t>(new ccPelRootBorrowed<uint16_t>(width, height, row0, pitch)));
    }
};

TEST(PelBufferCopy, CopiesBetweenRootsOfAnyPitchTouchingOnlyTheTargetWindow) {
    ccPelBuffer<uint16_t> source(5, 3);  // pitch 16
    for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 5; ++x) source.Set(x, y, static_cast<uint16_t>(100 * y + x));

    for (int32_t pitch : {7, -7, 5}) {
        SCOPED_TRACE(pitch);
        Borrowed target(pitch == 5 ? 5 : 7, 3, pitch);
        const ccPelBuffer<uint16_t> window = pitch == 5 ? target.buffer : target.buffer.Window(1, 0, 5, 3);
        window.CopyFrom(source);
        for (int32_t y = 0; y < 3; ++y)
            for (int32_t x = 0; x < 5; ++x) EXPECT_EQ(window.Get(x, y), 100 * y + x) << x << ", " << y;
        size_t untouched = 0;
        for (uint16_t value : target.memory) untouched += value == 0xEEEE;
        EXPECT_EQ(untouched, target.memory.size() - 15);
    }

    // Contiguous rows on both sides: the pixels arrive all the same.
    Borrowed from(4, 3, 4), to(4, 3, 4);
    for (size_t i = 0; i < from.memory.size(); ++i) from.memory[i] = static_cast<uint16_t>(i);
    ASSERT_TRUE(from.buffer.IsContiguous() && to.buffer.IsContiguous());
    to.buffer.CopyFrom(from.buffer);
    EXPECT_EQ(to.memory, from.memory);

    // Sizes must agree; a refused copy writes nothing.
    EXPECT_THROW(to.buffer.CopyFrom(source), ccPelFunc::BadParams);
    EXPECT_EQ(to.memory, from.memory);
}

TEST(PelBufferCopy, RefusesWindowsThatShareMemoryButNotTheSamePixels) {
    const ccPelBuffer<uint8_t> whole = Numbered();
    // Side by side on one root: copied.
    whole.Window(5, 0, 5, 2).CopyFrom(whole.Window(0, 0, 5, 2));
    EXPECT_EQ(whole.Get(5, 1), 10);
    EXPECT_EQ(whole.Get(9, 0), 4);
    // The same pixels: nothing to do.
    EXPECT_NO_THROW(whole.Window(1, 1, 3, 3).CopyFrom(whole.Window(1, 1, 3, 3)));
    // Overlapping: refused, nothing written.
    EXPECT_THROW(whole.Window(1, 1, 3, 3).CopyFrom(whole.Window(2, 2, 3, 3)), ccPelFunc::Overlap);
    EXPECT_EQ(whole.Get(1, 1), 11);

    // Two roots lent the same memory.
    std::vector<uint8_t> memory(64);
    ccPelBuffer<uint8_t> first(ccPelRootPtrh<uint8_t>(new ccPelRootBorrowed<uint8_t>(8, 8, memory.data(), 8)));
    ccPelBuffer<uint8_t> second(ccPelRootPtrh<uint8_t>(new ccPelRootBorrowed<uint8_t>(8, 4, memory.data() + 24, 8)));
    first.Fill(1);
    EXPECT_THROW(first.Window(0, 0, 8, 4).CopyFrom(second), ccPelFunc::Overlap);
    EXPECT_NO_THROW(first.Window(0, 0, 8, 3).CopyFrom(second.Window(0, 0, 8, 3)));  // rows 0-2 from rows 3-5: apart
}

TEST(PelBuffer, ColourPixelsPackTheirComponents) {
    constexpr auto rgb16 = ccPackedRGB16Pel::FromComponents(31, 0, 1);
    static_assert(rgb16.value == 0xF801 && rgb16.R() == 31 && rgb16.G() == 0 && rgb16.B() == 1);
    static_assert(ccPackedRGB16Pel::FromComponents(0, 63, 0).value == 0x07E0);
    constexpr auto rgb32 = ccPackedRGB32Pel::FromComponents(0x12, 0x34, 0x56);
    static_assert(rgb32.value == 0x00123456 && rgb32.R() == 0x12 && rgb32.G() == 0x34 && rgb32.B() == 0x56);

    ccPelBuffer<ccPackedRGB32Pel> image(3, 2);
    image.Set(1, 1, rgb32);
    EXPECT_EQ(reinterpret_cast<const uint8_t*>(image.PelPointer(1, 1))[0], 0x56);  // blue first in memory
}

TEST(PelErrors, EachFailureNamesItselfAndMapsToItsHresult) {
    const struct {
        const ccException& error;
        const char* name;
        HRESULT result;
    } rows[] = {
        {ccPel::UnboundWindow(), "ccPel::UnboundWindow", e_LuxImage_NoPixels},
        {ccPel::BadWindow(), "ccPel::BadWindow", e_LuxImage_Clipped},
        {ccPel::DisjointWindows(), "ccPel::DisjointWindows", e_LuxImage_Clipped},
        {ccPel::BadCoord(), "ccPel::BadCoord", e_LuxImage_BadCoord},
        {ccPel::NonlinearXform(), "ccPel::NonlinearXform", e_LuxTransform_NotLinear},
        {ccPel::Unknown(), "ccPel::Unknown", E_FAIL},
        {ccPelFunc::BadParams(), "ccPelFunc::BadParams", E_INVALIDARG},
        {ccPelFunc::Overlap(), "ccPelFunc::Overlap", E_INVALIDARG},
        {ccPelFunc::Range(), "ccPelFunc::Range", E_INVALIDARG},
    };
    for (const auto& row : rows) {
        EXPECT_STREQ(row.error.Message(), row.name);
        EXPECT_EQ(tessaly::core::ExceptionTable::Find(row.error.Code()).result, row.result) << row.name;
    }
    EXPECT_NE(dynamic_cast<const ccPel::Errors*>(&rows[3].error), nullptr);
    EXPECT_EQ(dynamic_cast<const ccPel::Errors*>(&rows[7].error), nullptr);
}

}  // namespace
