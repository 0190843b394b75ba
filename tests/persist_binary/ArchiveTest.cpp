// The core archive on its own: values and their byte layout, the header and its version
// rules, lengths and counts checked against what remains, the buffering that hands large
// blocks through in one device call, and the state an archive keeps after a refusal.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

#include "persist/ccArchive.h"
#include "persist/ccByteBuffer.h"
#include "persist/ccTransferArchive.h"
#include "xnl/std/except/ccStdError.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A header of format version 1 followed by `body`.
Bytes WithHeader(const Bytes& body, uint16_t version = 1, uint16_t reserved = 0) {
    Bytes bytes(ccArchive::kMagic.begin(), ccArchive::kMagic.end());
    bytes.push_back(uint8_t(version));
    bytes.push_back(uint8_t(version >> 8));
    bytes.push_back(uint8_t(reserved));
    bytes.push_back(uint8_t(reserved >> 8));
    bytes.insert(bytes.end(), body.begin(), body.end());
    return bytes;
}

// A device over memory that records each request and may announce more than it holds.
class RecordingDevice : public ccByteDevice {
public:
    explicit RecordingDevice(Bytes bytes = {}, uint64_t extraAnnounced = 0)
        : buffer_(std::move(bytes)), extra_(extraAnnounced) {}
    size_t Read(void* data, size_t size) override {
        reads.push_back(size);
        return buffer_.Read(data, size);
    }
    void Write(const void* data, size_t size) override {
        writes.push_back(size);
        buffer_.Write(data, size);
    }
    uint64_t Remaining() override { return buffer_.Remaining() + extra_; }
    void Unread(size_t size) override { buffer_.Unread(size); }
    const Bytes& bytes() const { return buffer_.Bytes(); }
    size_t position() const { return buffer_.Position(); }

    std::vector<size_t> reads;
    std::vector<size_t> writes;

private:
    ccByteBuffer buffer_;
    uint64_t extra_;
};

TEST(ArchiveTest, NumbersStringsAndBlocksRoundTripLittleEndian) {
    ccTransferArchive out;
    out.Write<int8_t>(std::numeric_limits<int8_t>::min());
    out.Write<uint16_t>(0xBEEF);
    out.Write<int32_t>(std::numeric_limits<int32_t>::min());
    out.Write<uint32_t>(0x01020304);
    out.Write<int64_t>(std::numeric_limits<int64_t>::min());
    out.Write<uint64_t>(std::numeric_limits<uint64_t>::max());
    out.Write<float>(-0.0f);
    out.Write<double>(std::numeric_limits<double>::denorm_min());
    out.Write<double>(-std::numeric_limits<double>::infinity());
    out.Write<bool>(true);
    out.Write<bool>(false);
    out.WriteString("");
    out.WriteString(std::string("a\0b\xC3\xA9", 5));  // embedded NUL, UTF-8
    const std::string across(5000, 'x');              // longer than the buffer
    out.WriteString(across);
    const uint8_t block[3] = {7, 8, 9};
    out.WriteBlock(block, sizeof block);
    EXPECT_EQ(out.Position(), ccArchive::kHeaderSize + 1 + 2 + 4 + 4 + 8 + 8 + 4 + 8 + 8 + 2 + 4 + 9 + 5004 + 3);
    const Bytes bytes = out.TakeBytes();
    ASSERT_EQ(bytes.size(), out.Position());
    // Little-endian on the wire: 0x01020304 follows the header, one, two and four bytes.
    const size_t at = ccArchive::kHeaderSize + 1 + 2 + 4;
    EXPECT_EQ((Bytes{bytes[at], bytes[at + 1], bytes[at + 2], bytes[at + 3]}), (Bytes{4, 3, 2, 1}));

    ccTransferArchive in(bytes);
    EXPECT_EQ(in.Read<int8_t>(), std::numeric_limits<int8_t>::min());
    EXPECT_EQ(in.Read<uint16_t>(), 0xBEEF);
    EXPECT_EQ(in.Read<int32_t>(), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(in.Read<uint32_t>(), 0x01020304u);
    EXPECT_EQ(in.Read<int64_t>(), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(in.Read<uint64_t>(), std::numeric_limits<uint64_t>::max());
    const float negativeZero = in.Read<float>();
    EXPECT_TRUE(negativeZero == 0.0f && std::signbit(negativeZero));
    EXPECT_EQ(in.Read<double>(), std::numeric_limits<double>::denorm_min());
    EXPECT_EQ(in.Read<double>(), -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(in.Read<bool>());
    EXPECT_FALSE(in.Read<bool>());
    EXPECT_EQ(in.ReadString(), "");
    EXPECT_EQ(in.ReadString(), std::string("a\0b\xC3\xA9", 5));
    EXPECT_EQ(in.ReadString(), across);
    uint8_t back[3] = {};
    in.ReadBlock(back, sizeof back);
    EXPECT_EQ((Bytes{back[0], back[1], back[2]}), (Bytes{7, 8, 9}));
    EXPECT_EQ(in.Remaining(), 0u);
    EXPECT_THROW(in.Read<uint8_t>(), ccArchive::Eof);
}

TEST(ArchiveTest, StringsReadIntoOneStringWhereverTheBufferEnds) {
    // Strings of every length around the end of the read buffer, read into one string
    // that keeps its room: those that lie in the buffer are taken from it, the rest read.
    ccTransferArchive out;
    std::vector<std::string> written;
    for (size_t length = 0; length < 40; ++length) written.push_back(std::string(length * 3 + 4000, char('a' + length % 26)));
    for (const std::string& text : written) out.WriteString(text);
    for (uint8_t byte = 1; byte <= 8; ++byte) out.Write<uint8_t>(byte);
    ccTransferArchive in(out.TakeBytes());
    std::string text = "left over from before";
    for (const std::string& expected : written) {
        in.ReadString(text);
        ASSERT_EQ(text, expected);
    }
    // The next bytes, taken from the buffer only when they are all there.
    EXPECT_EQ(in.Read<uint8_t>(), 1);  // the rest is buffered now
    const uint64_t position = in.Position();
    EXPECT_EQ(in.TakeBuffered(8), nullptr);
    EXPECT_EQ(in.Position(), position) << "nothing consumed";
    const uint8_t* rest = in.TakeBuffered(7);
    ASSERT_NE(rest, nullptr);
    EXPECT_EQ((Bytes(rest, rest + 7)), (Bytes{2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(in.Position(), position + 7);
    EXPECT_EQ(in.Remaining(), 0u);
    text = "x";
    EXPECT_THROW(in.ReadString(text), ccArchive::Eof);
    EXPECT_EQ(text, "x");
}

TEST(ArchiveTest, HeaderIsMagicVersionAndReservedWord) {
    ccTransferArchive out;
    EXPECT_EQ(out.TakeBytes(), WithHeader({}));
    EXPECT_EQ(ccTransferArchive(WithHeader({})).FormatVersion(), 1);

    // Writing: only versions this code knows how to write.
    EXPECT_THROW(ccTransferArchive(uint16_t(0)), ccArchive::UnknownArchiveVersion);
    EXPECT_THROW(ccTransferArchive(uint16_t(ccArchive::kFormatVersion + 1)), ccArchive::UnknownArchiveVersion);

    // Reading: a newer format, a foreign start, a set reserved word, a short header.
    EXPECT_THROW(ccTransferArchive(WithHeader({}, ccArchive::kFormatVersion + 1)), ccArchive::UnknownArchiveVersion);
    EXPECT_THROW(ccTransferArchive(WithHeader({}, 0)), ccArchive::BadContent);
    EXPECT_THROW(ccTransferArchive(WithHeader({}, 1, 1)), ccArchive::BadContent);
    const std::string xml = "<?xml version=\"1.0\"?>\r\n<Root/>";
    EXPECT_THROW(ccTransferArchive(Bytes(xml.begin(), xml.end())), ccArchive::BadContent);
    EXPECT_THROW(ccTransferArchive(Bytes{'<'}), ccArchive::BadContent);
    const Bytes header = WithHeader({});
    for (size_t cut = 0; cut < header.size(); ++cut)
        EXPECT_THROW(ccTransferArchive(Bytes(header.begin(), header.begin() + cut)), ccArchive::Eof) << cut;

    // Detection from the first bytes.
    EXPECT_TRUE(ccArchive::LooksLikeArchive(header));
    EXPECT_TRUE(ccArchive::LooksLikeArchive(std::span(header).first(1)));
    EXPECT_FALSE(ccArchive::LooksLikeArchive({}));
    for (const char* text : {"<?xml", "\xEF\xBB\xBF<?xml", " <Root>", "\x89TSAX"})
        EXPECT_FALSE(ccArchive::LooksLikeArchive(
            std::span(reinterpret_cast<const uint8_t*>(text), std::char_traits<char>::length(text))))
            << text;
}

TEST(ArchiveTest, LengthsAndCountsAreCheckedBeforeAnythingIsRead) {
    // A string claiming 4 GiB in a few bytes, and one claiming one byte more than remains.
    for (const uint32_t claimed : {0xFFFFFFFFu, 4u}) {
        const Bytes body = {uint8_t(claimed), uint8_t(claimed >> 8), uint8_t(claimed >> 16), uint8_t(claimed >> 24),
                            'a', 'b', 'c'};
        ccTransferArchive in(WithHeader(body));
        EXPECT_THROW(in.ReadString(), ccArchive::Eof) << claimed;
    }
    {
        ccTransferArchive in(WithHeader({3, 0, 0, 0, 'a', 'b', 'c'}));
        EXPECT_EQ(in.ReadString(), "abc");  // exactly what remains
    }
    // Counts: five items of at least two bytes need ten.
    for (const size_t remaining : {9u, 10u}) {
        Bytes body = {5, 0, 0, 0};
        body.resize(4 + remaining);
        ccTransferArchive in(WithHeader(body));
        if (remaining < 10)
            EXPECT_THROW(in.ReadCount(2), ccArchive::Eof);
        else
            EXPECT_EQ(in.ReadCount(2), 5u);
    }
    {
        ccTransferArchive in(WithHeader({0xFF, 0xFF, 0xFF, 0xFF}));
        EXPECT_THROW(in.ReadCount(1), ccArchive::Eof);
    }

    // A refused block leaves the archive where it was: what remains can still be read.
    ccTransferArchive in(WithHeader({1, 2, 3}));
    uint8_t block[4] = {};
    EXPECT_THROW(in.ReadBlock(block, 4), ccArchive::Eof);
    EXPECT_EQ(in.Remaining(), 3u);
    EXPECT_EQ(in.Position(), ccArchive::kHeaderSize);
    in.ReadBlock(block, 3);
    EXPECT_EQ((Bytes{block[0], block[1], block[2]}), (Bytes{1, 2, 3}));

    // A boolean is 0 or 1.
    ccTransferArchive booleans(WithHeader({1, 2}));
    EXPECT_TRUE(booleans.Read<bool>());
    EXPECT_THROW(booleans.Read<bool>(), ccArchive::BadContent);
}

TEST(ArchiveTest, ClassAndFormatVersions) {
    ccTransferArchive out;
    out.WriteClassVersion(3);
    out.WriteClassVersion(4);
    out.RequireFormatVersion(ccArchive::kFormatVersion);  // what the archive has: allowed
    EXPECT_THROW(out.RequireFormatVersion(ccArchive::kFormatVersion + 1), ccArchive::CannotWriteToOldArchive);
    ccTransferArchive in(out.TakeBytes());
    EXPECT_EQ(in.ReadClassVersion(4), 3u);  // older than the reader: handed back to handle
    EXPECT_THROW(in.ReadClassVersion(3), ccArchive::UnknownVersion);
    EXPECT_TRUE(in.HasFormatVersion(1));
    EXPECT_FALSE(in.HasFormatVersion(ccArchive::kFormatVersion + 1));
    in.RequireFormatVersion(ccArchive::kFormatVersion + 1);  // reading: nothing to refuse
}

TEST(ArchiveTest, DirectionAndLifetimeAreEnforced) {
    ccTransferArchive out;
    EXPECT_THROW(out.Read<int32_t>(), ccStdError::Unexpected);
    out.Write<int32_t>(1);
    const Bytes bytes = out.TakeBytes();
    EXPECT_EQ(bytes.size(), ccArchive::kHeaderSize + 4);
    EXPECT_THROW(out.Write<int32_t>(2), ccStdError::Unexpected);  // handed over: closed
    EXPECT_THROW(out.TakeBytes(), ccStdError::Unexpected);

    ccTransferArchive in(bytes);
    EXPECT_THROW(in.Write<int32_t>(1), ccStdError::Unexpected);
    EXPECT_THROW(in.TakeBytes(), ccStdError::Unexpected);
    EXPECT_EQ(in.Read<int32_t>(), 1);

    // A writer dropped without Finish writes nothing it still buffered.
    RecordingDevice device;
    {
        ccArchive abandoned = ccArchive::ForWriting(device);
        abandoned.Write<int32_t>(5);
    }
    EXPECT_TRUE(device.writes.empty());
}

TEST(ArchiveTest, LargeBlocksPassInOneDeviceCallAndSmallValuesAreGathered) {
    Bytes large(1 << 20);
    std::iota(large.begin(), large.end(), uint8_t(0));
    RecordingDevice device;
    ccArchive out = ccArchive::ForWriting(device);
    for (int i = 0; i < 100; ++i) out.Write<uint32_t>(i);
    EXPECT_TRUE(device.writes.empty()) << "small values wait in the buffer";
    out.WriteBlock(large.data(), large.size());
    out.Write<uint16_t>(0xABCD);
    out.Finish();
    ASSERT_EQ(device.writes, (std::vector<size_t>{ccArchive::kHeaderSize + 400, large.size(), 2}));

    // Reading back, after the header and the first values are read ahead, the rest of the
    // block comes from the device in one call into the caller's memory.
    RecordingDevice source(device.bytes());
    ccArchive in = ccArchive::ForReading(source);
    for (uint32_t i = 0; i < 100; ++i) ASSERT_EQ(in.Read<uint32_t>(), i);
    Bytes back(large.size());
    in.ReadBlock(back.data(), back.size());
    EXPECT_EQ(back, large);
    EXPECT_EQ(in.Read<uint16_t>(), 0xABCD);
    ASSERT_EQ(source.reads.size(), 3u);
    EXPECT_EQ(source.reads[0], ccArchive::kBufferSize);
    EXPECT_EQ(source.reads[1], large.size() - (ccArchive::kBufferSize - ccArchive::kHeaderSize - 400));
    EXPECT_EQ(source.reads[2], 2u);

    // Values that straddle the end of the buffer arrive whole.
    ccTransferArchive straddle;
    for (uint64_t i = 0; i < 3000; ++i) straddle.Write<uint64_t>(i * 0x0101010101010101ull);
    ccTransferArchive again(straddle.TakeBytes());
    for (uint64_t i = 0; i < 3000; ++i) ASSERT_EQ(again.Read<uint64_t>(), i * 0x0101010101010101ull);
}

TEST(ArchiveTest, FinishGivesBackWhatWasReadAhead) {
    ccTransferArchive out;
    out.Write<uint32_t>(42);
    Bytes bytes = out.TakeBytes();
    const size_t archiveSize = bytes.size();
    bytes.insert(bytes.end(), {'n', 'e', 'x', 't'});  // whatever follows the archive

    ccByteBuffer device(bytes);
    ccArchive in = ccArchive::ForReading(device);
    EXPECT_EQ(in.Read<uint32_t>(), 42u);
    EXPECT_EQ(device.Position(), bytes.size()) << "read ahead to the end";
    in.Finish();
    EXPECT_EQ(device.Position(), archiveSize);
    char next[4];
    EXPECT_EQ(device.Read(next, 4), 4u);
    EXPECT_EQ(std::string(next, 4), "next");
}

TEST(ArchiveTest, DeviceHoldingLessThanAnnouncedEndsInEof) {
    ccTransferArchive out;
    out.Write<uint32_t>(7);
    RecordingDevice device(out.TakeBytes(), 10000);
    ccArchive in = ccArchive::ForReading(device);
    EXPECT_EQ(in.Read<uint32_t>(), 7u);
    EXPECT_THROW(in.Read<uint32_t>(), ccArchive::Eof);
    Bytes block(8000);
    EXPECT_THROW(in.ReadBlock(block.data(), block.size()), ccArchive::Eof);
}

}  // namespace
