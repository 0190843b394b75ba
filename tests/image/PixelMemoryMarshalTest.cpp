// Pixel memory passed to another apartment (its own pointer) and to another process (its
// pixels, packed), and streams that lie about what they hold.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "TessalyCore.h"
#include "com/image/CLuxImage16PixelMemory.h"
#include "com/image/CLuxImage8PixelMemory.h"
#include "platform/MemoryStream.h"
#include "support/LiveObjectFixture.h"

namespace tessaly::image {
namespace {

class PixelMemoryMarshalTest : public test::LiveObjectFixture {
protected:
    // 5 x 3 pixels of a root whose rows are 32 pixels apart, values 10 * y + x.
    static ccPelBuffer<uint8_t> Padded() {
        ccPelBuffer<uint8_t> pixels(5, 3, 32);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 5; ++x) pixels.Set(x, y, static_cast<uint8_t>(10 * y + x));
        return pixels;
    }
    static ComPtr<IStream> NewStream() {
        ComPtr<IStream> stream;
        EXPECT_EQ(MemoryStream::Create(stream.Out()), S_OK);
        return stream;
    }
    static std::vector<uint8_t> Bytes(IStream* stream) {
        ULONGLONG size = 0;
        stream->Seek(0, STREAM_SEEK_END, &size);
        stream->Seek(0, STREAM_SEEK_SET, nullptr);
        std::vector<uint8_t> bytes(size);
        ULONG read = 0;
        if (size) stream->Read(bytes.data(), static_cast<ULONG>(size), &read);
        stream->Seek(0, STREAM_SEEK_SET, nullptr);
        return bytes;
    }
    static ComPtr<IMarshal> MarshalOf(IUnknown* object) {
        ComPtr<IMarshal> marshal;
        EXPECT_EQ(object->QueryInterface(IMarshal::iid, marshal.OutVoid()), S_OK);
        return marshal;
    }
};

TEST_F(PixelMemoryMarshalTest, ByValueWritesTheSizeAndPackedRowsAndUnmarshalsIntoMemoryOfItsOwn) {
    auto memory = CLuxImage8PixelMemory::Open(Padded(), luxImageDataModeRead);
    auto stream = NewStream();
    ASSERT_EQ(MarshalOf(memory->GetUnknown())->MarshalInterface(stream.get(), IID_ILuxImage8PixelMemory, nullptr,
                                                        MSHCTX_DIFFERENTMACHINE, nullptr, 0),
              S_OK);
    const std::vector<uint8_t> bytes = Bytes(stream.get());
    ASSERT_EQ(bytes.size(), 4u + 4 + 4 + 15);
    EXPECT_EQ(bytes[0], MSHCTX_DIFFERENTMACHINE);
    EXPECT_EQ(bytes[4], 5);  // width, little-endian
    EXPECT_EQ(bytes[8], 3);  // height
    for (int i = 0; i < 15; ++i) EXPECT_EQ(bytes[12 + i], 10 * (i / 5) + i % 5) << "byte " << i;

    auto fresh = ComPtr<CLuxImage8PixelMemory>::Attach(CLuxImage8PixelMemory::Create());
    ComPtr<ILuxImage8PixelMemory> copy;
    ASSERT_EQ(MarshalOf(fresh->GetUnknown())->UnmarshalInterface(stream.get(), IID_ILuxImage8PixelMemory, copy.OutVoid()), S_OK);
    LONG width = 0, height = 0, stride = 0;
    LONGLONG scan0 = 0;
    copy->get_Width(&width);
    copy->get_Height(&height);
    copy->get_Stride(&stride);
    copy->get_Scan0(&scan0);
    EXPECT_EQ(width, 5);
    EXPECT_EQ(height, 3);
    const auto* first = reinterpret_cast<const uint8_t*>(scan0);
    EXPECT_EQ(first[2 * stride + 4], 24);
    EXPECT_NE(first, memory->Window().PelPointer(0, 0)) << "by value means pixels of its own";
    EXPECT_EQ(fresh->Mode(), luxImageDataModeRead);
}

TEST_F(PixelMemoryMarshalTest, SixteenBitRowsAreTwoBytesAPixelAndReleasingSkipsThemAll) {
    ccPelBuffer<uint16_t> pixels(3, 2, 32);
    pixels.Set(2, 1, 0xBEEF);
    auto memory = CLuxImage16PixelMemory::Open(pixels, luxImageDataModeRead);
    auto stream = NewStream();
    ASSERT_EQ(MarshalOf(memory->GetUnknown())->MarshalInterface(stream.get(), IID_ILuxImage16PixelMemory, nullptr,
                                                        MSHCTX_LOCAL, nullptr, 0),
              S_OK);
    const uint32_t trailer = 0x5A5A5A5A;
    stream->Write(&trailer, 4, nullptr);
    const std::vector<uint8_t> bytes = Bytes(stream.get());
    ASSERT_EQ(bytes.size(), 12u + 12 + 4);
    EXPECT_EQ(bytes[12 + 10], 0xEF);
    EXPECT_EQ(bytes[12 + 11], 0xBE);
    // Releasing the data leaves the stream just after the pixels.
    ASSERT_EQ(MarshalOf(memory->GetUnknown())->ReleaseMarshalData(stream.get()), S_OK);
    uint32_t next = 0;
    ULONG read = 0;
    stream->Read(&next, 4, &read);
    EXPECT_EQ(next, trailer);
}

TEST_F(PixelMemoryMarshalTest, MemoryOpenedForWritingIsRefusedByValueAndWritesNothing) {
    auto memory = CLuxImage8PixelMemory::Open(Padded(), luxImageDataModeReadWrite);
    auto stream = NewStream();
    EXPECT_EQ(MarshalOf(memory->GetUnknown())->MarshalInterface(stream.get(), IID_ILuxImage8PixelMemory, nullptr,
                                                        MSHCTX_LOCAL, nullptr, 0),
              E_FAIL);
    EXPECT_TRUE(Bytes(stream.get()).empty());
}

TEST_F(PixelMemoryMarshalTest, WithinTheProcessThePointerPassesWithAReferenceThatReleasingDrops) {
    auto memory = CLuxImage8PixelMemory::Open(Padded(), luxImageDataModeReadWrite);
    auto stream = NewStream();
    ASSERT_EQ(MarshalOf(memory->GetUnknown())->MarshalInterface(stream.get(), IID_ILuxImage8PixelMemory, nullptr,
                                                        MSHCTX_INPROC, nullptr, 0),
              S_OK);
    EXPECT_EQ(Bytes(stream.get()).size(), 12u);
    auto fresh = ComPtr<CLuxImage8PixelMemory>::Attach(CLuxImage8PixelMemory::Create());
    ComPtr<ILuxImage8PixelMemory> same;
    ASSERT_EQ(MarshalOf(fresh->GetUnknown())->UnmarshalInterface(stream.get(), IID_ILuxImage8PixelMemory, same.OutVoid()),
              S_OK);
    EXPECT_EQ(static_cast<IUnknown*>(same.get()), memory->GetUnknown());

    // Marshalled again and released instead: the reference goes (the fixture sees leaks).
    auto again = NewStream();
    MarshalOf(memory->GetUnknown())->MarshalInterface(again.get(), IID_ILuxImage8PixelMemory, nullptr, MSHCTX_INPROC, nullptr, 0);
    again->Seek(0, STREAM_SEEK_SET, nullptr);
    EXPECT_EQ(MarshalOf(memory->GetUnknown())->ReleaseMarshalData(again.get()), S_OK);
}

TEST_F(PixelMemoryMarshalTest, StreamsThatClaimImpossibleSizesOrEndEarlyAreRefusedWithoutAllocating) {
    struct Case {
        std::vector<uint8_t> bytes;
        HRESULT expected;
    };
    const Case cases[] = {
        {{1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0x7F, 2, 0, 0, 0}, E_INVALIDARG},           // width 2^31 - 1
        {{1, 0, 0, 0, 0x3F, 0x42, 0x0F, 0, 0x3F, 0x42, 0x0F, 0}, E_INVALIDARG},     // 999999 x 999999
        {{1, 0, 0, 0, 4, 0, 0, 0, 4, 0, 0, 0, 1, 2, 3}, STG_E_READFAULT},            // 16 pixels promised, 3 there
        {{1, 0}, STG_E_READFAULT},                                                  // not even a context
    };
    for (const Case& each : cases) {
        ComPtr<IStream> stream;
        ASSERT_EQ(MemoryStream::Create(each.bytes.data(), each.bytes.size(), stream.Out()), S_OK);
        auto fresh = ComPtr<CLuxImage8PixelMemory>::Attach(CLuxImage8PixelMemory::Create());
        ComPtr<ILuxImage8PixelMemory> out;
        EXPECT_EQ(MarshalOf(fresh->GetUnknown())->UnmarshalInterface(stream.get(), IID_ILuxImage8PixelMemory, out.OutVoid()),
                  each.expected);
        EXPECT_FALSE(out);
        LONG width = 0;
        EXPECT_EQ(fresh->get_Width(&width), e_LuxImage_NoPixels) << "a refused unmarshal leaves the object empty";
    }
}

}  // namespace
}  // namespace tessaly::image
