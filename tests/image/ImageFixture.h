// What the image tests share: the two pixel widths as one set of types (so that the 8- and
// 16-bit classes run the same cases), a log of the Change events an object raises, an owner
// of caller memory that counts its references, the state of a pixel-memory object, and the
// check of a refusal (exact HRESULT, error info from the failing method).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "TessalyCore.h"
#include "platform/Bstr.h"
#include "platform/EventSink.h"
#include "platform/Variant.h"
#include "support/LiveObjectFixture.h"
#include "support/RecordedError.h"

namespace tessaly::test {

struct Grey8 {
    using Pel = uint8_t;
    using Image = ILuxImage8Grey;
    using Data = ILuxImage8GreyData;
    using Root = ILuxImage8Root;
    using RootBuffer = ILuxImage8RootBuffer;
    using Memory = ILuxImage8PixelMemory;
    static constexpr const char *kImage = "Tessaly.LuxImage8Grey", *kRoot = "Tessaly.LuxImage8Root";
    static constexpr LONG kMax = 255;
    static constexpr VARTYPE kArrayType = VT_UI1, kOtherArrayType = VT_UI2;
    static HRESULT Open(Data* data, LONG x, LONG y, LONG width, LONG height, Memory** memory) {
        return data->Get8GreyPixelMemory(luxImageDataModeReadWrite, x, y, width, height, memory);
    }
};
struct Grey16 {
    using Pel = uint16_t;
    using Image = ILuxImage16Grey;
    using Data = ILuxImage16GreyData;
    using Root = ILuxImage16Root;
    using RootBuffer = ILuxImage16RootBuffer;
    using Memory = ILuxImage16PixelMemory;
    static constexpr const char *kImage = "Tessaly.LuxImage16Grey", *kRoot = "Tessaly.LuxImage16Root";
    static constexpr LONG kMax = 65535;
    static constexpr VARTYPE kArrayType = VT_UI2, kOtherArrayType = VT_UI1;
    static HRESULT Open(Data* data, LONG x, LONG y, LONG width, LONG height, Memory** memory) {
        return data->Get16GreyPixelMemory(luxImageDataModeReadWrite, x, y, width, height, memory);
    }
};
using BothWidths = ::testing::Types<Grey8, Grey16>;

// Owns memory lent to a root: lives on the test's stack, so Release only counts.
class CountedOwner final : public IUnknown {
public:
    HRESULT QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = iid == IUnknown::iid ? this : nullptr;
        if (!*out) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override { return ++refs; }
    ULONG Release() override { return --refs; }
    ULONG refs = 0;
};

// What a pixel-memory object reports.
struct MemoryState {
    LONG width = -1, height = -1, stride = 0;
    LONGLONG scan0 = 0;
    bool operator==(const MemoryState&) const = default;
};

class ImageFixture : public LiveObjectFixture {
public:
    template <class I>
    static ComPtr<I> As(IUnknown* object) {
        ComPtr<I> other;
        EXPECT_EQ(object->QueryInterface(I::iid, other.OutVoid()), S_OK);
        return other;
    }

    // The state IDs of the Change events `object` raises from now on (the object keeps the sink).
    static std::shared_ptr<std::vector<int32_t>> Listen(IUnknown* object) {
        auto log = std::make_shared<std::vector<int32_t>>();
        auto sink = ComPtr<IDispatch>::Attach(MakeEventSink(
            luxChange_Change, [log](std::span<const VARIANT> args) { log->push_back(args[0].lVal); },
            DIID_ILuxChangeEvent));
        DWORD cookie = 0;
        EXPECT_EQ(Advise(object, DIID_ILuxChangeEvent, sink.get(), &cookie), S_OK);
        return log;
    }

    template <class Memory>
    static MemoryState StateOf(Memory* memory) {
        MemoryState state;
        EXPECT_EQ(memory->get_Width(&state.width), S_OK);
        EXPECT_EQ(memory->get_Height(&state.height), S_OK);
        EXPECT_EQ(memory->get_Stride(&state.stride), S_OK);
        EXPECT_EQ(memory->get_Scan0(&state.scan0), S_OK);
        return state;
    }
    template <class Pel>
    static LONGLONG Address(const Pel* pel) { return static_cast<LONGLONG>(reinterpret_cast<intptr_t>(pel)); }

    static ComPtr<ILuxCoordinateSpaceTree> TreeOf(IUnknown* image) {
        ComPtr<ILuxCoordinateSpaceTree> tree;
        EXPECT_EQ(As<ILuxImage>(image)->get_CoordinateSpaceTree(tree.Out()), S_OK);
        return tree;
    }
    // x -> (scale x + tx, scale y + ty).
    static ComPtr<ILuxTransform2D> Linear(double scale, double tx, double ty) {
        auto linear = Make<ILuxTransform2DLinear>("Tessaly.LuxTransform2DLinear");
        EXPECT_EQ(linear->SetMatrixElementsTranslation(scale, 0, 0, scale, tx, ty), S_OK);
        return As<ILuxTransform2D>(linear.get());
    }
    // A space under the root of `tree` (identity when no transform is given).
    static HRESULT AddSpace(ILuxCoordinateSpaceTree* tree, const char* name, ILuxTransform2D* parentFromNew = nullptr) {
        return tree->AddSpace(Bstr("@").get(), Bstr(name).get(), parentFromNew, VARIANT_TRUE,
                              luxAddSpaceDuplicateIsError);
    }

    // A refusal: the exact HRESULT and error info that names the failing method.
    static void ExpectRefused(HRESULT got, HRESULT expected, const char* source) {
        EXPECT_EQ(got, expected) << source;
        const RecordedError error = TakeErrorInfo();
        EXPECT_TRUE(error.present) << source;
        EXPECT_EQ(error.source, source);
    }
};

constexpr HRESULT kBadCoord = static_cast<HRESULT>(e_LuxImage_BadCoord);
constexpr HRESULT kNoPixels = static_cast<HRESULT>(e_LuxImage_NoPixels);
constexpr HRESULT kClipped = static_cast<HRESULT>(e_LuxImage_Clipped);
constexpr HRESULT kAllocateSize = static_cast<HRESULT>(e_LuxImage_AllocateSize);
constexpr HRESULT kBadSelectedSpaceName = static_cast<HRESULT>(e_LuxImage_BadSelectedSpaceName);

}  // namespace tessaly::test
