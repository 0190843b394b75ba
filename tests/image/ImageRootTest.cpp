// The root objects of both widths through their interfaces: Initialize over memory of the
// root's own or the caller's (and how long the caller's owner is held), pixel memory of
// rectangles and after Dispose, every refusal leaving the root as it was without an event,
// and "PixelArray" saved packed and adopted on load (the formatters' round trip of a root
// runs in the image tests, which save their roots).
#include "com/core/ArchiveWriter.h"
#include "com/core/CLuxArchive.h"
#include "image/ImageFixture.h"
#include "platform/SafeArray.h"

namespace tessaly::test {
namespace {

template <class W>
class ImageRootTest : public ImageFixture {
public:
    using Pel = typename W::Pel;
    using Root = typename W::Root;
    using Memory = typename W::Memory;

    static ComPtr<Root> NewRoot() { return Make<Root>(W::kRoot); }
    static HRESULT Initialize(Root* root, LONG width, LONG height, const Pel* scan0, LONG stride,
                              IUnknown* disposable = nullptr) {
        return As<typename W::RootBuffer>(root)->Initialize(width, height, Address(scan0), stride, disposable);
    }
    static ComPtr<Memory> Open(Root* root, LONG x = 0, LONG y = 0, LONG width = 0, LONG height = 0) {
        ComPtr<Memory> memory;
        EXPECT_EQ(root->GetRawPixelMemory(luxImageDataModeReadWrite, x, y, width, height, memory.Out()), S_OK);
        return memory;
    }
    static Pel* Scan0(Memory* memory) { return reinterpret_cast<Pel*>(static_cast<intptr_t>(StateOf(memory).scan0)); }
    // A value that needs every bit of the wider pixel.
    static Pel Value(int n) { return static_cast<Pel>(n * 37 + (sizeof(Pel) == 2 ? 0xA100 : 0)); }
};
TYPED_TEST_SUITE(ImageRootTest, BothWidths);

TYPED_TEST(ImageRootTest, InitializeRefusesBadSizesAndChangesNothing) {
    using Pel = typename TypeParam::Pel;
    auto root = this->NewRoot();
    auto log = this->Listen(root.get());
    CountedOwner owner;
    Pel caller[4] = {};
    const auto refuseAll = [&] {
        const LONG bad[][3] = {{0, 1, 1}, {1, 0, 1}, {-1, 1, 1}, {4, 2, 3}, {4, 2, -3}};
        for (const auto& [width, height, stride] : bad)
            this->ExpectRefused(this->Initialize(root.get(), width, height, nullptr, stride), kBadCoord, "Initialize");
        // Memory an owner holds must have an address.
        this->ExpectRefused(this->Initialize(root.get(), 2, 2, nullptr, 2, &owner), E_INVALIDARG, "Initialize");
        EXPECT_EQ(owner.refs, 0u);
        // A caller's memory with a bad size is refused before its owner is taken.
        this->ExpectRefused(this->Initialize(root.get(), 4, 1, caller, 3, &owner), kBadCoord, "Initialize");
        EXPECT_EQ(owner.refs, 0u);
    };
    refuseAll();
    LONG width = -1;
    EXPECT_EQ(root->get_Width(&width), S_OK);
    EXPECT_EQ(width, 0);
    EXPECT_TRUE(log->empty());

    // Memory of its own: Height x |Stride| zeroed pixels, rows upwards for a negative stride.
    ASSERT_EQ(this->Initialize(root.get(), 3, 2, nullptr, -5), S_OK);
    EXPECT_EQ(*log, std::vector<int32_t>{luxState_MoreThanOneStateIDChanged});
    auto memory = this->Open(root.get());
    const MemoryState before = this->StateOf(memory.get());
    EXPECT_EQ(before, (MemoryState{3, 2, -5, before.scan0}));
    const Pel* pels = this->Scan0(memory.get());
    for (int i = -5; i < 5; ++i) EXPECT_EQ(pels[i], 0) << i;

    refuseAll();
    EXPECT_EQ(this->StateOf(this->Open(root.get()).get()), before);
    EXPECT_EQ(log->size(), 1u);
}

TYPED_TEST(ImageRootTest, CallerMemoryIsUsedAsItIsWhileItsOwnerIsHeld) {
    using Pel = typename TypeParam::Pel;
    CountedOwner owner;
    std::vector<Pel> caller(4 * 3, 0);  // three rows of four, the root's row 0 the last
    {
        auto root = this->NewRoot();
        ASSERT_EQ(this->Initialize(root.get(), 3, 3, &caller[8], -4, &owner), S_OK);
        EXPECT_EQ(owner.refs, 1u);
        auto whole = this->Open(root.get());
        EXPECT_EQ(this->StateOf(whole.get()), (MemoryState{3, 3, -4, this->Address(&caller[8])}));
        this->Scan0(whole.get())[-4 * 2 + 1] = this->Value(1);  // (1, 2): the first row in memory
        EXPECT_EQ(caller[1], this->Value(1));
        auto rectangle = this->Open(root.get(), 1, 1, 2, 2);
        EXPECT_EQ(this->StateOf(rectangle.get()), (MemoryState{2, 2, -4, this->Address(&caller[5])}));

        // A second Initialize lets go of the caller's memory only once the memory objects
        // opened over it have gone.
        ASSERT_EQ(this->Initialize(root.get(), 2, 2, nullptr, 2), S_OK);
        EXPECT_EQ(owner.refs, 1u);
        EXPECT_EQ(this->StateOf(rectangle.get()).scan0, this->Address(&caller[5]));
        whole = nullptr;
        EXPECT_EQ(owner.refs, 1u);
        rectangle = nullptr;
        EXPECT_EQ(owner.refs, 0u);

        // The last holder may be the root object itself; a null owner is allowed.
        ASSERT_EQ(this->Initialize(root.get(), 4, 3, caller.data(), 4, &owner), S_OK);
        EXPECT_EQ(owner.refs, 1u);
        ASSERT_EQ(this->Initialize(root.get(), 4, 3, caller.data(), 4, nullptr), S_OK);
        EXPECT_EQ(owner.refs, 0u);
        ASSERT_EQ(this->Initialize(root.get(), 4, 3, caller.data(), 4, &owner), S_OK);
    }
    EXPECT_EQ(owner.refs, 0u);
}

TYPED_TEST(ImageRootTest, PixelMemoryOfRectanglesAndAfterDispose) {
    using Memory = typename TypeParam::Memory;
    using Pel = typename TypeParam::Pel;
    auto root = this->NewRoot();
    ComPtr<Memory> memory;
    this->ExpectRefused(root->GetRawPixelMemory(luxImageDataModeRead, 0, 0, 0, 0, memory.Out()), kNoPixels,
                        "GetRawPixelMemory");
    EXPECT_FALSE(memory);

    ASSERT_EQ(this->Initialize(root.get(), 6, 4, nullptr, 8), S_OK);
    const MemoryState whole = this->StateOf(this->Open(root.get()).get());
    EXPECT_EQ(whole, (MemoryState{6, 4, 8, whole.scan0}));
    const LONGLONG corner = whole.scan0 + LONGLONG{(8 + 2) * sizeof(Pel)};
    EXPECT_EQ(this->StateOf(this->Open(root.get(), 2, 1, 3, 2).get()), (MemoryState{3, 2, 8, corner}));
    EXPECT_EQ(this->StateOf(this->Open(root.get(), 2, 1).get()), (MemoryState{4, 3, 8, corner}));

    const LONG clipped[][4] = {{4, 0, 3, 1}, {-1, 0, 1, 1}, {0, 3, 1, 2}, {7, 0, 0, 0}, {0, -1, 0, 0}};
    for (const auto& [x, y, width, height] : clipped) {
        this->ExpectRefused(root->GetRawPixelMemory(luxImageDataModeRead, x, y, width, height, memory.Out()),
                            kClipped, "GetRawPixelMemory");
        EXPECT_FALSE(memory);
    }
    for (int mode : {0, 4})
        this->ExpectRefused(root->GetRawPixelMemory(static_cast<LuxImageDataModeConstants>(mode), 0, 0, 0, 0,
                                                    memory.Out()),
                            E_INVALIDARG, "GetRawPixelMemory");

    // The memory outlives the root object; Dispose ends it.
    memory = this->Open(root.get());
    root = nullptr;
    this->Scan0(memory.get())[8 * 3 + 5] = this->Value(2);
    EXPECT_EQ(this->StateOf(memory.get()), whole);
    ASSERT_EQ(memory->Dispose(), S_OK);
    LONG value = 0;
    LONGLONG scan0 = 0;
    this->ExpectRefused(memory->get_Width(&value), kNoPixels, "get_Width");
    this->ExpectRefused(memory->get_Height(&value), kNoPixels, "get_Height");
    this->ExpectRefused(memory->get_Stride(&value), kNoPixels, "get_Stride");
    this->ExpectRefused(memory->get_Scan0(&scan0), kNoPixels, "get_Scan0");
    EXPECT_EQ(memory->Dispose(), S_OK);
}

// Keeps the values an object saves, by name.
class CapturingWriter final : public core::ArchiveWriter {
public:
    void WriteEntry(std::string_view name, const VARIANT& value) override {
        names.emplace_back(name);
        values.emplace_back(value);
    }
    std::vector<std::string> names;
    std::vector<Variant> values;
};

template <class W>
Variant SavedPixelArray(typename W::Root* root) {
    CapturingWriter writer;
    EXPECT_EQ(core::CLuxArchive::Save(*ImageFixture::As<ILuxPersistArchive>(root), writer, luxPersistOptionAll), S_OK);
    for (size_t i = 0; i < writer.names.size(); ++i)
        if (writer.names[i] == "PixelArray") return writer.values[i];
    ADD_FAILURE() << "no PixelArray";
    return Variant();
}

template <class W>
HRESULT LoadPixelArray(typename W::Root* root, Variant value) {
    auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
    archive->AddEntry("PixelArray", std::move(value));
    return ImageFixture::As<ILuxPersistArchive>(root)->Persist(archive.get(), luxPersistOptionAll);
}

Variant ArrayValue(VARTYPE type, std::vector<SAFEARRAYBOUND> bounds) {
    Variant value;
    value.ptr()->vt = VT_ARRAY | type;
    value.ptr()->parray = SafeArrayCreate(type, static_cast<UINT>(bounds.size()), bounds.data());
    return value;
}

TYPED_TEST(ImageRootTest, PixelArrayIsSavedPackedAndAdoptedOnLoad) {
    using W = TypeParam;
    using Pel = typename W::Pel;
    auto root = this->NewRoot();
    EXPECT_EQ(SavedPixelArray<W>(root.get()).vt(), VT_EMPTY);

    ASSERT_EQ(this->Initialize(root.get(), 3, 2, nullptr, 5), S_OK);
    Pel* pels = this->Scan0(this->Open(root.get()).get());
    std::vector<Pel> packed;
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x) packed.push_back(pels[y * 5 + x] = this->Value(y * 3 + x + 1));
    Variant saved = SavedPixelArray<W>(root.get());
    ASSERT_EQ(saved.vt(), VT_ARRAY | W::kArrayType);
    SAFEARRAY* array = saved.get().parray;
    ASSERT_EQ(SafeArrayGetDim(array), 2u);
    const auto bounds = [&](UINT dimension) {
        std::pair<LONG, LONG> bound{-1, -1};
        SafeArrayGetLBound(array, dimension, &bound.first);
        SafeArrayGetUBound(array, dimension, &bound.second);
        return bound;
    };
    EXPECT_EQ(bounds(1), (std::pair<LONG, LONG>{0, 2}));  // the width first
    EXPECT_EQ(bounds(2), (std::pair<LONG, LONG>{0, 1}));
    const Pel* data = static_cast<const Pel*>(array->pvData);
    EXPECT_EQ(std::vector<Pel>(data, data + 6), packed);

    // Loaded, the array's own memory becomes the root's: stride = width.
    auto loaded = this->NewRoot();
    Variant adopted = saved;
    const LONGLONG arrayData = this->Address(static_cast<const Pel*>(adopted.get().parray->pvData));
    ASSERT_EQ(LoadPixelArray<W>(loaded.get(), std::move(adopted)), S_OK);
    auto memory = this->Open(loaded.get());
    const MemoryState state = this->StateOf(memory.get());
    EXPECT_EQ(state, (MemoryState{3, 2, 3, arrayData}));  // the array's memory, not a copy
    EXPECT_EQ(std::vector<Pel>(this->Scan0(memory.get()), this->Scan0(memory.get()) + 6), packed);

    // Refused arrays leave the root as it was and raise nothing.
    auto log = this->Listen(loaded.get());
    struct Bad {
        Variant value;
        HRESULT result;
    };
    Bad bad[] = {
        {ArrayValue(W::kOtherArrayType, {{3, 0}, {2, 0}}), E_FAIL},
        {Variant(int32_t{7}), E_FAIL},
        {ArrayValue(W::kArrayType, {{6, 0}}), E_INVALIDARG},
        {ArrayValue(W::kArrayType, {{3, 1}, {2, 0}}), E_INVALIDARG},
        {ArrayValue(W::kArrayType, {{3, 0}, {2, 1}}), E_INVALIDARG},
    };
    for (Bad& each : bad) {
        EXPECT_EQ(LoadPixelArray<W>(loaded.get(), std::move(each.value)), each.result);
        TakeErrorInfo();
        EXPECT_EQ(this->StateOf(this->Open(loaded.get()).get()), state);
    }
    EXPECT_TRUE(log->empty());

    // An empty value, or an array without elements, loads as an empty root, which saves an
    // empty value.
    for (ULONG width : {0u, 3u}) {
        ASSERT_EQ(LoadPixelArray<W>(loaded.get(), ArrayValue(W::kArrayType, {{width, 0}, {2 - width / 3 * 2, 0}})),
                  S_OK);
        ASSERT_EQ(LoadPixelArray<W>(root.get(), Variant()), S_OK);
        for (auto* each : {loaded.get(), root.get()}) {
            LONG width = -1, height = -1;
            EXPECT_EQ(each->get_Width(&width), S_OK);
            EXPECT_EQ(each->get_Height(&height), S_OK);
            EXPECT_EQ(width + height, 0);
            EXPECT_EQ(SavedPixelArray<W>(each).vt(), VT_EMPTY);
        }
    }
}

}  // namespace
}  // namespace tessaly::test
