// LuxRLEBuffer through its interfaces: what an uninitialised buffer refuses, placement and
// pixels with their events, the direct run data, PixelMap's Map checks and edge cases,
// drawing into and making grey images, Combine's rules, Clone, and persistence in both
// formats with the refusal of runs that cannot make a buffer. Every refusal is checked for
// its exact HRESULT, for the object left as it was and for no event raised.
#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "com/core/CLuxArchive.h"
#include "com/core/ObjectPersistence.h"
#include "com/image/CLuxRLEBuffer.h"
#include "image/ImageFixture.h"
#include "platform/SafeArray.h"

namespace tessaly::test {
namespace {

using image::CLuxRLEBuffer;

constexpr HRESULT kNotInitialized = static_cast<HRESULT>(e_LuxRLEBuffer_NotInitialized);
constexpr HRESULT kCombineFailed = static_cast<HRESULT>(e_LuxRLEBuffer_CombineFailed);
constexpr HRESULT kSubImageSize = static_cast<HRESULT>(e_LuxRLEBuffer_CombineSubImageSize);
constexpr HRESULT kSubImageOffset = static_cast<HRESULT>(e_LuxRLEBuffer_CombineSubImageOffset);
constexpr HRESULT kSubImageExtent = static_cast<HRESULT>(e_LuxRLEBuffer_CombineSubImageExtent);
constexpr HRESULT kBadFileFormat = static_cast<HRESULT>(e_Lux_BadFileFormat);

struct Event {
    int32_t stateId;
    Variant value;
};

// What a client can see of a buffer, to show that a refusal left it as it was.
struct Seen {
    bool initted = false;
    LONG x = 0, y = 0, width = -1, height = -1, runs = -1;
    std::vector<ccRLERun> core;
    bool operator==(const Seen&) const = default;
};

class RLEBufferTest : public ImageFixture {
public:
    // A buffer of `runs` (rows of `width`) at (x, y).
    static ComPtr<ILuxRLEBuffer> Buffer(int32_t width, int32_t height, std::vector<ccRLERun> runs, int32_t x = 0,
                                        int32_t y = 0) {
        return ComPtr<ILuxRLEBuffer>(CLuxRLEBuffer::FromCore(ccRLEBuffer::FromRuns(width, height, runs), x, y).get());
    }
    static ccRLEBuffer CoreOf(ILuxRLEBuffer* buffer) { return CLuxRLEBuffer::ImplementationOf(buffer)->Core(); }

    static Seen See(ILuxRLEBuffer* buffer) {
        Seen seen;
        VARIANT_BOOL initted = 0;
        EXPECT_EQ(buffer->get_Initted(&initted), S_OK);
        seen.initted = initted == VARIANT_TRUE;
        EXPECT_EQ(buffer->get_Width(&seen.width), S_OK);
        EXPECT_EQ(buffer->get_Height(&seen.height), S_OK);
        EXPECT_EQ(buffer->get_NumRuns(&seen.runs), S_OK);
        if (seen.initted) {
            EXPECT_EQ(buffer->get_X(&seen.x), S_OK);
            EXPECT_EQ(buffer->get_Y(&seen.y), S_OK);
        }
        const ccRLEBuffer core = CoreOf(buffer);
        seen.core.assign(core.Runs().begin(), core.Runs().end());
        return seen;
    }

    // Every Change the object raises from now on, with its value.
    static std::shared_ptr<std::vector<Event>> Record(IUnknown* object) {
        auto log = std::make_shared<std::vector<Event>>();
        auto sink = ComPtr<IDispatch>::Attach(MakeEventSink(
            luxChange_Change,
            [log](std::span<const VARIANT> args) { log->push_back(Event{args[0].lVal, Variant(args[1])}); },
            DIID_ILuxChangeEvent));
        DWORD cookie = 0;
        EXPECT_EQ(Advise(object, DIID_ILuxChangeEvent, sink.get(), &cookie), S_OK);
        return log;
    }

    // A one-dimensional array of bytes from `lower`.
    static Variant Bytes(LONG lower, const std::vector<uint8_t>& values) {
        Variant map;
        SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, lower, static_cast<ULONG>(values.size()));
        void* data = nullptr;
        SafeArrayAccessData(array, &data);
        if (!values.empty()) std::memcpy(data, values.data(), values.size());
        SafeArrayUnaccessData(array);
        map.ptr()->vt = VT_ARRAY | VT_UI1;
        map.ptr()->parray = array;
        return map;
    }
    static Variant Identity() {
        std::vector<uint8_t> values(256);
        for (size_t v = 0; v < 256; ++v) values[v] = static_cast<uint8_t>(v);
        return Bytes(0, values);
    }

    static ComPtr<ILuxImage8Grey> Image(LONG width, LONG height, LONG fill) {
        auto image = Make<ILuxImage8Grey>("Tessaly.LuxImage8Grey");
        EXPECT_EQ(As<ILuxImage>(image.get())->Allocate(width, height), S_OK);
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) EXPECT_EQ(image->put_Pixel(x, y, fill), S_OK);
        return image;
    }
    static LONG Pel(ILuxImage8Grey* image, LONG x, LONG y) {
        LONG value = -1;
        EXPECT_EQ(image->get_Pixel(x, y, &value), S_OK);
        return value;
    }
    static LONG Pel(ILuxRLEBuffer* buffer, LONG x, LONG y) {
        LONG value = -1;
        EXPECT_EQ(buffer->get_Pixel(x, y, &value), S_OK);
        return value;
    }
};

// 4 x 3: 0 0 255 255 / 255 255 255 255 / 7 0 0 0
const std::vector<ccRLERun> kRuns{{0, 2}, {255, 2}, {255, 4}, {7, 1}, {0, 3}};

TEST_F(RLEBufferTest, AnUninitialisedBufferRefusesWhatNeedsRuns) {
    auto buffer = Make<ILuxRLEBuffer>("Tessaly.LuxRLEBuffer");
    auto log = Record(buffer.get());
    const Seen before = See(buffer.get());
    EXPECT_FALSE(before.initted);
    EXPECT_EQ(before.width, 0);
    EXPECT_EQ(before.runs, 0);

    LONG value = 7;
    VARIANT_BOOL flag = 0;
    LuxRLEData data{};
    ExpectRefused(buffer->get_X(&value), kNotInitialized, "get_X");
    ExpectRefused(buffer->get_Y(&value), kNotInitialized, "get_Y");
    ExpectRefused(buffer->put_X(3), kNotInitialized, "put_X");
    ExpectRefused(buffer->put_Y(3), kNotInitialized, "put_Y");
    ExpectRefused(buffer->get_Binary(&flag), kNotInitialized, "get_Binary");
    ExpectRefused(As<ILuxRLEData>(buffer.get())->get_RLEData(&data), kNotInitialized, "get_RLEData");
    ComPtr<ILuxImage8Grey> made;
    ExpectRefused(buffer->CreateImage8Grey(made.Out()), kNotInitialized, "CreateImage8Grey");
    EXPECT_EQ(made, nullptr);
    auto image = Image(3, 3, 9);
    ExpectRefused(buffer->DrawIntoImage8Grey(image.get(), VARIANT_FALSE, 0), kNotInitialized, "DrawIntoImage8Grey");
    EXPECT_EQ(Pel(image.get(), 0, 0), 9);
    ComPtr<ILuxRLEBuffer> out;
    ExpectRefused(buffer->PixelMap(Identity().get(), out.Out()), kNotInitialized, "PixelMap");
    EXPECT_EQ(out, nullptr);
    ExpectRefused(buffer->get_Pixel(0, 0, &value), kBadCoord, "get_Pixel");
    EXPECT_EQ(value, 7);
    auto initted = Buffer(4, 3, kRuns);
    ExpectRefused(buffer->Combine(initted.get(), Identity().get(), 0, out.Out()), kCombineFailed, "Combine");
    ExpectRefused(initted->Combine(buffer.get(), Identity().get(), 0, out.Out()), kCombineFailed, "Combine");
    EXPECT_EQ(out, nullptr);

    EXPECT_EQ(See(buffer.get()), before);
    EXPECT_TRUE(log->empty());
    VARIANT_BOOL changed = VARIANT_TRUE;
    ASSERT_EQ(As<ILuxPersistArchive>(buffer.get())->get_HasChanged(&changed), S_OK);
    EXPECT_EQ(changed, VARIANT_FALSE);
}

TEST_F(RLEBufferTest, PlacementPixelsEventsAndRunData) {
    auto buffer = Buffer(4, 3, kRuns, 10, 20);
    auto log = Record(buffer.get());
    const Seen seen = See(buffer.get());
    EXPECT_TRUE(seen.initted);
    EXPECT_EQ(std::make_pair(seen.x, seen.y), std::make_pair(LONG{10}, LONG{20}));
    EXPECT_EQ(std::make_pair(seen.width, seen.height), std::make_pair(LONG{4}, LONG{3}));
    EXPECT_EQ(seen.runs, 5);
    VARIANT_BOOL binary = VARIANT_TRUE;
    ASSERT_EQ(buffer->get_Binary(&binary), S_OK);
    EXPECT_EQ(binary, VARIANT_FALSE);  // the 7
    ASSERT_EQ(Buffer(2, 1, {{0, 1}, {255, 1}})->get_Binary(&binary), S_OK);
    EXPECT_EQ(binary, VARIANT_TRUE);

    // Pixels are addressed where the buffer lies.
    EXPECT_EQ(Pel(buffer.get(), 11, 20), 0);
    EXPECT_EQ(Pel(buffer.get(), 12, 20), 255);
    EXPECT_EQ(Pel(buffer.get(), 13, 21), 255);
    EXPECT_EQ(Pel(buffer.get(), 10, 22), 7);
    LONG value = -1;
    for (const auto& [x, y] : {std::pair{9, 20}, {14, 20}, {10, 19}, {10, 23}, {0, 0}})
        ExpectRefused(buffer->get_Pixel(x, y, &value), kBadCoord, "get_Pixel");
    EXPECT_EQ(value, -1);

    // X and Y announce themselves with their state IDs and new values; the present value
    // announces nothing.
    ASSERT_EQ(buffer->put_X(-5), S_OK);
    ASSERT_EQ(buffer->put_X(-5), S_OK);
    ASSERT_EQ(buffer->put_Y(7), S_OK);
    ASSERT_EQ(buffer->put_Y(7), S_OK);
    ASSERT_EQ(log->size(), 2u);
    EXPECT_EQ((*log)[0].stateId, luxRLEBuffer_X);
    EXPECT_EQ((*log)[0].value.vt(), VT_I4);
    EXPECT_EQ((*log)[0].value.get().lVal, -5);
    EXPECT_EQ((*log)[1].stateId, luxRLEBuffer_Y);
    EXPECT_EQ((*log)[1].value.get().lVal, 7);
    EXPECT_EQ(Pel(buffer.get(), -5, 9), 7);
    VARIANT_BOOL changed = VARIANT_FALSE;
    ASSERT_EQ(As<ILuxPersistArchive>(buffer.get())->get_HasChanged(&changed), S_OK);
    EXPECT_EQ(changed, VARIANT_TRUE);

    // The run data is the object's own array, in LuxRLERun's layout.
    LuxRLEData data{};
    ASSERT_EQ(As<ILuxRLEData>(buffer.get())->get_RLEData(&data), S_OK);
    EXPECT_EQ(data.X, -5);
    EXPECT_EQ(data.Y, 7);
    EXPECT_EQ(data.Width, 4);
    EXPECT_EQ(data.Height, 3);
    EXPECT_EQ(data.NumRuns, 5);
    EXPECT_EQ(data.FreeRuns, 0);
    EXPECT_EQ(static_cast<const void*>(data.pRuns), static_cast<const void*>(CoreOf(buffer.get()).Runs().data()));
    EXPECT_EQ(data.pRuns[2].Value, 255);
    EXPECT_EQ(data.pRuns[2].Length, 4);
    EXPECT_EQ(data.pRuns[3].Value, 7);
    // Room a builder reserved shows as FreeRuns.
    ccRLEBuffer roomy = ccRLEBuffer::FromRuns(4, 3, kRuns);
    roomy.Reserve(9);
    auto spacious = CLuxRLEBuffer::FromCore(roomy, 0, 0);
    ASSERT_EQ(spacious->get_RLEData(&data), S_OK);
    EXPECT_EQ(data.FreeRuns, 4);

    // Null out-pointers.
    for (const HRESULT hr : {buffer->get_Initted(nullptr), buffer->get_Binary(nullptr), buffer->get_X(nullptr),
                             buffer->get_Y(nullptr), buffer->get_Width(nullptr), buffer->get_Height(nullptr),
                             buffer->get_NumRuns(nullptr), buffer->get_Pixel(-5, 7, nullptr),
                             As<ILuxRLEData>(buffer.get())->get_RLEData(nullptr), buffer->CreateImage8Grey(nullptr)})
        EXPECT_EQ(hr, E_POINTER);
    EXPECT_EQ(log->size(), 2u);
}

TEST_F(RLEBufferTest, PixelMapTakesAByteArrayIndexedByValue) {
    // 6 x 2: 0 0 1 2 254 255 / 255 255 255 0 0 0
    auto buffer = Buffer(6, 2, {{0, 2}, {1, 1}, {2, 1}, {254, 1}, {255, 1}, {255, 3}, {0, 3}}, 3, 4);
    auto log = Record(buffer.get());
    const Seen before = See(buffer.get());
    const auto mapped = [&](const Variant& map) {
        ComPtr<ILuxRLEBuffer> result;
        EXPECT_EQ(buffer->PixelMap(map.get(), result.Out()), S_OK);
        std::vector<LONG> pixels;
        if (!result) return pixels;
        EXPECT_EQ(See(result.get()).runs, 7) << "runs stay as they were, values change";
        EXPECT_EQ(See(result.get()).x, 3);
        for (LONG y = 4; y < 6; ++y)
            for (LONG x = 3; x < 9; ++x) pixels.push_back(Pel(result.get(), x, y));
        return pixels;
    };

    std::vector<uint8_t> inverting(256);
    for (size_t v = 0; v < 256; ++v) inverting[v] = static_cast<uint8_t>(255 - v);
    EXPECT_EQ(mapped(Bytes(0, inverting)), (std::vector<LONG>{255, 255, 254, 253, 1, 0, 0, 0, 0, 255, 255, 255}));
    // A map of one entry changes only the runs of value 0.
    EXPECT_EQ(mapped(Bytes(0, {99})), (std::vector<LONG>{99, 99, 1, 2, 254, 255, 255, 255, 255, 99, 99, 99}));
    // From a lower bound of 254: element i still maps value i.
    EXPECT_EQ(mapped(Bytes(254, {10, 20})), (std::vector<LONG>{0, 0, 1, 2, 10, 20, 20, 20, 20, 0, 0, 0}));
    EXPECT_EQ(mapped(Bytes(0, {})), (std::vector<LONG>{0, 0, 1, 2, 254, 255, 255, 255, 255, 0, 0, 0}));
    // By reference, and a reference to a variant holding the array.
    Variant inverse = Bytes(0, inverting);
    SAFEARRAY* array = inverse.get().parray;
    VARIANT byRef{};
    byRef.vt = VT_BYREF | VT_ARRAY | VT_UI1;
    byRef.pparray = &array;
    EXPECT_EQ(mapped(Variant(byRef))[0], 255);
    VARIANT toVariant{};
    toVariant.vt = VT_BYREF | VT_VARIANT;
    toVariant.pvarVal = inverse.ptr();
    EXPECT_EQ(mapped(Variant(toVariant))[2], 254);
    EXPECT_TRUE(log->empty());

    // Refusals: the exact code, nothing handed out, the buffer as it was, no event.
    std::vector<uint8_t> tooLong(257, 1);
    Variant twoDimensions;
    SAFEARRAYBOUND bounds[2] = {{4, 0}, {4, 0}};
    twoDimensions.ptr()->vt = VT_ARRAY | VT_UI1;
    twoDimensions.ptr()->parray = SafeArrayCreate(VT_UI1, 2, bounds);
    Variant longs;
    longs.ptr()->vt = VT_ARRAY | VT_I4;
    longs.ptr()->parray = SafeArrayCreateVector(VT_I4, 0, 4);
    std::vector<Variant> bad;
    bad.push_back(Bytes(0, tooLong));                          // upper bound 256
    bad.push_back(Bytes(-1, {1, 2}));                          // lower bound -1
    bad.push_back(Bytes(250, std::vector<uint8_t>(7, 1)));     // 250..256
    bad.push_back(twoDimensions);
    bad.push_back(longs);
    bad.push_back(Variant(int32_t{3}));
    bad.push_back(Variant());                                  // no Map at all
    for (const Variant& map : bad) {
        ComPtr<ILuxRLEBuffer> result;
        ExpectRefused(buffer->PixelMap(map.get(), result.Out()), E_INVALIDARG, "PixelMap");
        EXPECT_EQ(result, nullptr);
    }
    ComPtr<ILuxRLEBuffer> result;
    ASSERT_EQ(buffer->PixelMap(Bytes(0, tooLong).get(), result.Out()), E_INVALIDARG);
    EXPECT_NE(TakeErrorInfo().description.find("0..256"), std::string::npos) << "the range message names the bounds";
    EXPECT_EQ(buffer->PixelMap(Identity().get(), nullptr), E_POINTER);
    EXPECT_EQ(See(buffer.get()), before);
    EXPECT_TRUE(log->empty());
}

TEST_F(RLEBufferTest, DrawingIntoAndMakingGreyImages) {
    auto buffer = Buffer(4, 3, kRuns, 10, 20);
    auto log = Record(buffer.get());
    // The made image's pixel (0, 0) is the buffer's (X, Y).
    ComPtr<ILuxImage8Grey> made;
    ASSERT_EQ(buffer->CreateImage8Grey(made.Out()), S_OK);
    LONG width = 0, height = 0;
    ASSERT_EQ(As<ILuxImage>(made.get())->get_Width(&width), S_OK);
    ASSERT_EQ(As<ILuxImage>(made.get())->get_Height(&height), S_OK);
    ASSERT_EQ(std::make_pair(width, height), std::make_pair(LONG{4}, LONG{3}));
    for (LONG y = 0; y < 3; ++y)
        for (LONG x = 0; x < 4; ++x) EXPECT_EQ(Pel(made.get(), x, y), Pel(buffer.get(), 10 + x, 20 + y));

    // Drawn where it lies, clipped to the image, transparency by the low 8 bits.
    const auto draw = [&](LONG x, LONG y, VARIANT_BOOL transparent, LONG value) {
        EXPECT_EQ(buffer->put_X(x), S_OK);
        EXPECT_EQ(buffer->put_Y(y), S_OK);
        auto image = Image(12, 22, 50);
        EXPECT_EQ(buffer->DrawIntoImage8Grey(image.get(), transparent, value), S_OK);
        std::vector<std::vector<LONG>> pixels(22, std::vector<LONG>(12));
        for (LONG j = 0; j < 22; ++j)
            for (LONG i = 0; i < 12; ++i) pixels[size_t(j)][size_t(i)] = Pel(image.get(), i, j);
        return pixels;
    };
    const auto expected = [&](LONG x, LONG y, int transparent) {
        std::vector<std::vector<LONG>> pixels(22, std::vector<LONG>(12, 50));
        const ccRLEBuffer core = CoreOf(buffer.get());
        for (LONG j = 0; j < 3; ++j)
            for (LONG i = 0; i < 4; ++i) {
                const LONG ix = x + i, iy = y + j;
                const LONG value = core.Pixel(i, j);
                if (ix >= 0 && iy >= 0 && ix < 12 && iy < 22 && value != transparent) pixels[size_t(iy)][size_t(ix)] = value;
            }
        return pixels;
    };
    EXPECT_EQ(draw(10, 20, VARIANT_FALSE, 0), expected(10, 20, -1));
    EXPECT_EQ(draw(-2, -1, VARIANT_FALSE, 0), expected(-2, -1, -1));
    EXPECT_EQ(draw(3, 5, VARIANT_TRUE, 0x100), expected(3, 5, 0)) << "0x100 leaves the 0 pixels";
    EXPECT_EQ(draw(3, 5, VARIANT_TRUE, 255), expected(3, 5, 255));
    EXPECT_EQ(draw(30, 5, VARIANT_FALSE, 0), expected(30, 5, -1)) << "wholly outside: nothing drawn";
    log->clear();

    ExpectRefused(buffer->DrawIntoImage8Grey(nullptr, VARIANT_FALSE, 0), E_INVALIDARG, "DrawIntoImage8Grey");
    ASSERT_EQ(buffer->DrawIntoImage8Grey(nullptr, VARIANT_FALSE, 0), E_INVALIDARG);
    EXPECT_NE(TakeErrorInfo().description.find("Image"), std::string::npos);
    auto empty = Make<ILuxImage8Grey>("Tessaly.LuxImage8Grey");
    ExpectRefused(buffer->DrawIntoImage8Grey(empty.get(), VARIANT_FALSE, 0), kNoPixels, "DrawIntoImage8Grey");
    // A buffer without pixels makes no image.
    auto narrow = CLuxRLEBuffer::FromCore(ccRLEBuffer(0, 3, 0), 0, 0);
    ExpectRefused(narrow->CreateImage8Grey(made.Out()), kAllocateSize, "CreateImage8Grey");
    EXPECT_EQ(made, nullptr);
    EXPECT_TRUE(log->empty());
}

TEST_F(RLEBufferTest, CombineOverlaysTheMappedSubImageInsideThisBuffer) {
    auto base = Buffer(6, 4, {{1, 6}, {1, 6}, {1, 6}, {1, 6}}, 10, 20);
    // 3 x 2: 0 9 9 / 5 5 5, at (11, 21)
    auto sub = Buffer(3, 2, {{0, 1}, {9, 2}, {5, 3}}, 11, 21);
    auto log = Record(base.get());
    auto subLog = Record(sub.get());
    const Seen before = See(base.get());
    const Seen subBefore = See(sub.get());
    std::vector<uint8_t> map(256);
    for (size_t v = 0; v < 256; ++v) map[v] = static_cast<uint8_t>(v == 9 ? 77 : v);

    ComPtr<ILuxRLEBuffer> combined;
    ASSERT_EQ(base->Combine(sub.get(), Bytes(0, map).get(), 0x100, combined.Out()), S_OK);
    const Seen result = See(combined.get());
    EXPECT_EQ(std::make_pair(result.x, result.y), std::make_pair(LONG{10}, LONG{20}));
    EXPECT_EQ(std::make_pair(result.width, result.height), std::make_pair(LONG{6}, LONG{4}));
    std::vector<LONG> expected(24, 1);
    expected[1 * 6 + 2] = expected[1 * 6 + 3] = 77;          // 9 mapped; the 0 is transparent
    expected[2 * 6 + 1] = expected[2 * 6 + 2] = expected[2 * 6 + 3] = 5;
    std::vector<LONG> pixels;
    for (LONG y = 20; y < 24; ++y)
        for (LONG x = 10; x < 16; ++x) pixels.push_back(Pel(combined.get(), x, y));
    EXPECT_EQ(pixels, expected);
    // With 5 transparent instead, the 0 is written and the row of 5 is not.
    ASSERT_EQ(base->Combine(sub.get(), Bytes(0, map).get(), 5, combined.Out()), S_OK);
    EXPECT_EQ(Pel(combined.get(), 11, 21), 0);
    EXPECT_EQ(Pel(combined.get(), 12, 22), 1);
    // The sub-image may fill this buffer exactly.
    ASSERT_EQ(base->Combine(base.get(), Bytes(0, {3}).get(), 2, combined.Out()), S_OK);
    EXPECT_EQ(Pel(combined.get(), 15, 23), 1);

    // The refusals, in the order they are checked.
    struct Refusal {
        int32_t width, height, x, y;
        HRESULT expected;
    };
    for (const Refusal& refusal : {Refusal{7, 1, 10, 20, kSubImageSize}, Refusal{1, 5, 10, 20, kSubImageSize},
                                   Refusal{7, 5, 0, 0, kSubImageSize}, Refusal{2, 2, 9, 20, kSubImageOffset},
                                   Refusal{2, 2, 10, 19, kSubImageOffset}, Refusal{3, 2, 14, 20, kSubImageExtent},
                                   Refusal{3, 2, 10, 23, kSubImageExtent}, Refusal{6, 4, 11, 20, kSubImageExtent}}) {
        auto other = CLuxRLEBuffer::FromCore(ccRLEBuffer(refusal.width, refusal.height, 3), refusal.x, refusal.y);
        ComPtr<ILuxRLEBuffer> none;
        ExpectRefused(base->Combine(other.get(), Bytes(0, map).get(), 0, none.Out()), refusal.expected, "Combine");
        EXPECT_EQ(none, nullptr);
    }
    ComPtr<ILuxRLEBuffer> none;
    ExpectRefused(base->Combine(nullptr, Bytes(0, map).get(), 0, none.Out()), E_INVALIDARG, "Combine");
    ExpectRefused(base->Combine(sub.get(), Bytes(0, std::vector<uint8_t>(300)).get(), 0, none.Out()), E_INVALIDARG,
                  "Combine");
    ExpectRefused(base->Combine(sub.get(), Variant().get(), 0, none.Out()), E_INVALIDARG, "Combine");
    auto uninitialised = Make<ILuxRLEBuffer>("Tessaly.LuxRLEBuffer");
    ExpectRefused(base->Combine(uninitialised.get(), Bytes(0, map).get(), 0, none.Out()), kCombineFailed, "Combine");
    EXPECT_EQ(base->Combine(sub.get(), Bytes(0, map).get(), 0, nullptr), E_POINTER);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(See(base.get()), before);
    EXPECT_EQ(See(sub.get()), subBefore);
    EXPECT_TRUE(log->empty());
    EXPECT_TRUE(subLog->empty());
}

TEST_F(RLEBufferTest, CloneAndPersistenceKeepRunsAndPlace) {
    auto buffer = Buffer(4, 3, kRuns, -3, 8);
    ComPtr<IDispatch> copy;
    ASSERT_EQ(As<ILuxObject>(buffer.get())->Clone(copy.Out()), S_OK);
    auto clone = As<ILuxRLEBuffer>(copy.get());
    EXPECT_EQ(See(clone.get()), See(buffer.get()));
    ASSERT_EQ(clone->put_X(0), S_OK);
    EXPECT_EQ(See(buffer.get()).x, -3) << "the clone has a place of its own";

    auto uninitialised = Make<ILuxRLEBuffer>("Tessaly.LuxRLEBuffer");
    for (const int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        for (ILuxRLEBuffer* original : {buffer.get(), uninitialised.get()}) {
            std::vector<uint8_t> bytes;
            ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(original).get(), format, luxPersistOptionAll, &bytes), S_OK);
            ComPtr<IDispatch> loaded;
            ASSERT_EQ(LoadObjectFromBytes(bytes, format, loaded.Out()), S_OK);
            auto back = As<ILuxRLEBuffer>(loaded.get());
            EXPECT_EQ(See(back.get()), See(original)) << "format " << format;
            EXPECT_TRUE(CoreOf(back.get()) == CoreOf(original));
        }
    }
}

TEST_F(RLEBufferTest, LoadsRefuseRunsThatCannotMakeABuffer) {
    auto buffer = Buffer(4, 3, kRuns, 1, 2);
    auto log = Record(buffer.get());
    const Seen before = See(buffer.get());
    const auto load = [&](std::vector<std::pair<const char*, Variant>> entries) {
        auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
        for (auto& [name, value] : entries) archive->AddEntry(name, std::move(value));
        return As<ILuxPersistArchive>(buffer.get())->Persist(archive.get(), luxPersistOptionAll);
    };
    const auto numbers = [](std::vector<int32_t> values) {
        Variant stored;
        SAFEARRAY* array = SafeArrayCreateVector(VT_I4, 0, static_cast<ULONG>(values.size()));
        void* data = nullptr;
        SafeArrayAccessData(array, &data);
        std::memcpy(data, values.data(), values.size() * sizeof(int32_t));
        SafeArrayUnaccessData(array);
        stored.ptr()->vt = VT_ARRAY | VT_I4;
        stored.ptr()->parray = array;
        return stored;
    };
    Variant doubles;
    doubles.ptr()->vt = VT_ARRAY | VT_R8;
    doubles.ptr()->parray = SafeArrayCreateVector(VT_R8, 0, 6);
    Variant square;
    SAFEARRAYBOUND bounds[2] = {{3, 0}, {2, 0}};
    square.ptr()->vt = VT_ARRAY | VT_I4;
    square.ptr()->parray = SafeArrayCreate(VT_I4, 2, bounds);

    const std::vector<std::pair<const char*, Variant>> refused[] = {
        {{"Initted", Variant(true)}, {"RLEBuffer", numbers({0, 0, 4, 1, 5, 3})}},             // short of the width
        {{"Initted", Variant(true)}, {"RLEBuffer", numbers({0, 0, 2, 1, 5, 3, 6, -1})}},      // a negative length
        {{"Initted", Variant(true)}, {"RLEBuffer", numbers({0, 0, 2, 1, 5, 0, 6, 2})}},       // a length of 0
        {{"Initted", Variant(true)}, {"RLEBuffer", numbers({0, 0, 2, 2, 5, 2, 6, 2, 7, 1})}}, // a run too many
        {{"Initted", Variant(true)}, {"RLEBuffer", numbers({0, 0, 1, 1, 300, 1})}},           // a value beyond a byte
        {{"Initted", Variant(true)}, {"RLEBuffer", numbers({0, 0, 1, 1000000000, 1, 1})}},    // rows without runs
        {{"Initted", Variant(true)}, {"RLEBuffer", numbers({0, 0, 0, 2000000000})}},          // nothing bounds it
        {{"Initted", Variant(true)}, {"RLEBuffer", numbers({0, 0, -1, 1})}},                  // a negative width
        {{"Initted", Variant(true)}, {"RLEBuffer", numbers({0, 0, 1, 1, 5})}},                // half a run
        {{"Initted", Variant(true)}, {"RLEBuffer", numbers({0, 0, 1})}},                      // no size
        {{"Initted", Variant(true)}, {"RLEBuffer", doubles}},
        {{"Initted", Variant(true)}, {"RLEBuffer", square}},
        {{"Initted", Variant(true)}, {"RLEBuffer", Variant()}},
        {{"Initted", Variant(true)}},
        {{"Initted", Variant("maybe")}, {"RLEBuffer", numbers({0, 0, 1, 1, 5, 1})}},
    };
    for (const auto& entries : refused) {
        ExpectRefused(load(entries), kBadFileFormat, "Persist");
        EXPECT_EQ(See(buffer.get()), before);
    }
    EXPECT_TRUE(log->empty());

    ASSERT_EQ(load({{"Initted", Variant(true)}, {"RLEBuffer", numbers({-7, 9, 3, 2, 4, 3, 5, 1, 6, 2})}}), S_OK);
    ASSERT_EQ(log->size(), 1u);
    EXPECT_EQ((*log)[0].stateId, luxState_MoreThanOneStateIDChanged);
    const Seen loaded = See(buffer.get());
    EXPECT_EQ(std::make_pair(loaded.x, loaded.y), std::make_pair(LONG{-7}, LONG{9}));
    EXPECT_EQ(loaded.core, (std::vector<ccRLERun>{{4, 3}, {5, 1}, {6, 2}}));
    ASSERT_EQ(load({{"Initted", Variant(false)}}), S_OK);
    EXPECT_FALSE(See(buffer.get()).initted);
}

}  // namespace
}  // namespace tessaly::test
