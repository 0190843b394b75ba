// The memory and file streams: round trips, the seek pointer at and past the end, refusals
// that leave the stream as it was, copying between the two kinds, and open failures that
// name the file.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "platform/Bstr.h"
#include "platform/ComPtr.h"
#include "platform/ErrorInfo.h"
#include "platform/FileStream.h"
#include "platform/MemoryStream.h"
#include "platform/Module.h"

namespace tessaly::test {
namespace {

using Mode = FileStream::Mode;

class StreamTest : public ::testing::Test {
protected:
    void SetUp() override {
        liveAtStart_ = Module::LiveObjectCount();
        std::string pattern = ::testing::TempDir() + "tessaly-streams-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr) << std::strerror(errno);
        dir_ = pattern;
        ClearErrorInfo();
    }
    void TearDown() override {
        ClearErrorInfo();
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
        EXPECT_EQ(Module::LiveObjectCount(), liveAtStart_) << "a stream was leaked or released too often";
    }

    std::string PathOf(const char* name) const { return (dir_ / name).string(); }

    static ComPtr<IStream> NewMemory(std::string_view content = {}) {
        ComPtr<IStream> stream;
        EXPECT_EQ(MemoryStream::Create(content.data(), content.size(), stream.Out()), S_OK);
        return stream;
    }
    static ComPtr<IStream> OpenFile(const std::string& path, Mode mode) {
        ComPtr<IStream> stream;
        EXPECT_EQ(FileStream::Open(path, mode, stream.Out()), S_OK) << path;
        return stream;
    }

    static void WriteText(IStream* stream, std::string_view text) {
        ULONG written = 0;
        ASSERT_EQ(stream->Write(text.data(), static_cast<ULONG>(text.size()), &written), S_OK);
        ASSERT_EQ(written, text.size());
    }
    // Up to `count` bytes from the current position.
    static std::string ReadText(IStream* stream, ULONG count) {
        std::string text(count, '?');
        ULONG read = 0;
        EXPECT_EQ(stream->Read(text.data(), count, &read), S_OK);
        text.resize(read);
        return text;
    }
    // Everything, read from the start.
    static std::string Contents(IStream* stream) {
        EXPECT_EQ(stream->Seek(0, STREAM_SEEK_SET, nullptr), S_OK);
        return ReadText(stream, static_cast<ULONG>(Size(stream)));
    }
    static ULONGLONG Position(IStream* stream) {
        ULONGLONG position = ~0ull;
        EXPECT_EQ(stream->Seek(0, STREAM_SEEK_CUR, &position), S_OK);
        return position;
    }
    static ULONGLONG Size(IStream* stream) {
        STATSTG stat{};
        EXPECT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
        return stat.cbSize;
    }
    static std::string ErrorDescription() {
        ComPtr<IErrorInfo> info;
        if (::GetErrorInfo(0, info.Out()) != S_OK) return "<no error info>";
        Bstr text;
        EXPECT_EQ(info->GetDescription(text.Out()), S_OK);
        return text.str();
    }

    LONG liveAtStart_ = 0;
    std::filesystem::path dir_;
};

// Both kinds of stream must behave alike for the IStream contract; each case runs on both.
enum class Kind { Memory, File };

class StreamContractTest : public StreamTest, public ::testing::WithParamInterface<Kind> {
protected:
    ComPtr<IStream> NewStream() {
        if (GetParam() == Kind::Memory) return NewMemory();
        return OpenFile(PathOf("contract.bin"), Mode::ReadWrite);
    }
};

TEST_P(StreamContractTest, WriteSeekReadRoundTrip) {
    ComPtr<IStream> stream = NewStream();
    ASSERT_TRUE(stream);
    WriteText(stream.get(), "hello ");
    WriteText(stream.get(), "world");
    EXPECT_EQ(Position(stream.get()), 11u);
    EXPECT_EQ(Size(stream.get()), 11u);

    ULONGLONG position = 0;
    ASSERT_EQ(stream->Seek(-5, STREAM_SEEK_END, &position), S_OK);
    EXPECT_EQ(position, 6u);
    EXPECT_EQ(ReadText(stream.get(), 5), "world");
    ASSERT_EQ(stream->Seek(2, STREAM_SEEK_SET, nullptr), S_OK);
    ASSERT_EQ(stream->Seek(2, STREAM_SEEK_CUR, &position), S_OK);
    EXPECT_EQ(position, 4u);
    // Overwriting in the middle keeps the size.
    WriteText(stream.get(), "O_W");
    EXPECT_EQ(Contents(stream.get()), "hellO_World");

    // A null count pointer is allowed.
    ASSERT_EQ(stream->Seek(0, STREAM_SEEK_SET, nullptr), S_OK);
    char two[2] = {};
    EXPECT_EQ(stream->Read(two, 2, nullptr), S_OK);
    EXPECT_EQ(std::string(two, 2), "he");
    EXPECT_EQ(stream->Write("HE", 2, nullptr), S_OK);
    EXPECT_EQ(Contents(stream.get()), "heHEO_World");
}

TEST_P(StreamContractTest, ReadAtOrPastTheEndSucceedsWithFewerBytes) {
    ComPtr<IStream> stream = NewStream();
    WriteText(stream.get(), "abc");
    ASSERT_EQ(stream->Seek(1, STREAM_SEEK_SET, nullptr), S_OK);
    EXPECT_EQ(ReadText(stream.get(), 10), "bc");
    EXPECT_EQ(Position(stream.get()), 3u);

    char buffer[4] = {'x', 'x', 'x', 'x'};
    ULONG read = 99;
    EXPECT_EQ(stream->Read(buffer, 4, &read), S_OK);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(buffer[0], 'x') << "nothing is written into the buffer at the end";

    ASSERT_EQ(stream->Seek(100, STREAM_SEEK_SET, nullptr), S_OK);
    read = 99;
    EXPECT_EQ(stream->Read(buffer, 4, &read), S_OK);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(Position(stream.get()), 100u);
    EXPECT_EQ(Size(stream.get()), 3u) << "reading past the end does not grow the stream";
}

TEST_P(StreamContractTest, WritePastTheEndFillsTheGapWithZeros) {
    ComPtr<IStream> stream = NewStream();
    WriteText(stream.get(), "ab");
    ASSERT_EQ(stream->Seek(5, STREAM_SEEK_CUR, nullptr), S_OK);
    EXPECT_EQ(Size(stream.get()), 2u) << "seeking alone does not grow the stream";
    WriteText(stream.get(), "z");
    EXPECT_EQ(Size(stream.get()), 8u);
    EXPECT_EQ(Position(stream.get()), 8u);
    EXPECT_EQ(Contents(stream.get()), std::string("ab\0\0\0\0\0z", 8));
}

TEST_P(StreamContractTest, BadSeeksAreRefusedAndLeaveThePositionAlone) {
    ComPtr<IStream> stream = NewStream();
    WriteText(stream.get(), "0123456789");
    ASSERT_EQ(stream->Seek(4, STREAM_SEEK_SET, nullptr), S_OK);

    ULONGLONG position = 1234;
    EXPECT_EQ(stream->Seek(-1, STREAM_SEEK_SET, &position), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(stream->Seek(-5, STREAM_SEEK_CUR, &position), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(stream->Seek(-11, STREAM_SEEK_END, &position), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(stream->Seek(std::numeric_limits<LONGLONG>::min(), STREAM_SEEK_END, &position), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(stream->Seek(0, 3, &position), STG_E_INVALIDFUNCTION) << "unknown origin";
    EXPECT_EQ(position, 1234u) << "a refused seek reports no position";
    EXPECT_EQ(Position(stream.get()), 4u);

    // Moving forward from a position that cannot grow further overflows: refused too.
    ASSERT_EQ(stream->Seek(std::numeric_limits<LONGLONG>::max(), STREAM_SEEK_SET, nullptr), S_OK);
    EXPECT_EQ(stream->Seek(1, STREAM_SEEK_CUR, nullptr), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(Position(stream.get()), static_cast<ULONGLONG>(std::numeric_limits<LONGLONG>::max()));

    // The edges themselves are fine.
    EXPECT_EQ(stream->Seek(-10, STREAM_SEEK_END, &position), S_OK);
    EXPECT_EQ(position, 0u);
    EXPECT_EQ(stream->Seek(-4, STREAM_SEEK_END, nullptr), S_OK);
    EXPECT_EQ(stream->Seek(-6, STREAM_SEEK_CUR, &position), S_OK);
    EXPECT_EQ(position, 0u);
}

TEST_P(StreamContractTest, SetSizeTruncatesAndZeroExtendsWithoutMovingThePosition) {
    ComPtr<IStream> stream = NewStream();
    WriteText(stream.get(), "abcdef");
    ASSERT_EQ(stream->Seek(4, STREAM_SEEK_SET, nullptr), S_OK);

    ASSERT_EQ(stream->SetSize(2), S_OK);
    EXPECT_EQ(Size(stream.get()), 2u);
    EXPECT_EQ(Position(stream.get()), 4u);
    // Growing again must not bring back the bytes cut off before.
    ASSERT_EQ(stream->SetSize(5), S_OK);
    EXPECT_EQ(Position(stream.get()), 4u);
    EXPECT_EQ(Contents(stream.get()), std::string("ab\0\0\0", 5));
    ASSERT_EQ(stream->SetSize(0), S_OK);
    EXPECT_EQ(Contents(stream.get()), "");
}

TEST_P(StreamContractTest, NullBuffersAreRefusedUnlessNothingMoves) {
    ComPtr<IStream> stream = NewStream();
    WriteText(stream.get(), "abc");
    ULONG count = 77;
    EXPECT_EQ(stream->Read(nullptr, 1, &count), STG_E_INVALIDPOINTER);
    EXPECT_EQ(count, 0u);
    count = 77;
    EXPECT_EQ(stream->Write(nullptr, 1, &count), STG_E_INVALIDPOINTER);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(Size(stream.get()), 3u);
    EXPECT_EQ(Position(stream.get()), 3u);
    EXPECT_EQ(stream->Read(nullptr, 0, &count), S_OK);
    EXPECT_EQ(stream->Write(nullptr, 0, &count), S_OK);
    EXPECT_EQ(count, 0u);

    EXPECT_EQ(stream->Stat(nullptr, STATFLAG_DEFAULT), STG_E_INVALIDPOINTER);
    ULONGLONG read = 5;
    ULONGLONG written = 5;
    EXPECT_EQ(stream->CopyTo(nullptr, 3, &read, &written), STG_E_INVALIDPOINTER);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(Position(stream.get()), 3u);
    EXPECT_EQ(stream->Clone(nullptr), STG_E_INVALIDPOINTER);
    EXPECT_EQ(stream->LockRegion(0, 1, 0), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(stream->UnlockRegion(0, 1, 0), STG_E_INVALIDFUNCTION);
}

TEST_P(StreamContractTest, CloneStartsAtTheSamePositionAndMovesOnItsOwn) {
    ComPtr<IStream> stream = NewStream();
    WriteText(stream.get(), "0123456789");
    ASSERT_EQ(stream->Seek(3, STREAM_SEEK_SET, nullptr), S_OK);
    ComPtr<IStream> clone;
    ASSERT_EQ(stream->Clone(clone.Out()), S_OK);
    ASSERT_TRUE(clone);
    EXPECT_NE(clone.get(), stream.get());
    EXPECT_EQ(Position(clone.get()), 3u);
    EXPECT_EQ(ReadText(clone.get(), 4), "3456");
    EXPECT_EQ(Position(stream.get()), 3u) << "the clone has its own seek pointer";
    EXPECT_EQ(ReadText(stream.get(), 2), "34");
}

INSTANTIATE_TEST_SUITE_P(Kinds, StreamContractTest, ::testing::Values(Kind::Memory, Kind::File),
                         [](const auto& info) { return info.param == Kind::Memory ? "Memory" : "File"; });

// ---- memory stream ----

TEST_F(StreamTest, MemoryStreamCreatorsHandOutOneReference) {
    MemoryStream* raw = MemoryStream::Create();
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(Module::LiveObjectCount(), liveAtStart_ + 1);
    EXPECT_EQ(raw->Size(), 0u);
    EXPECT_EQ(raw->Release(), 0u) << "Create hands out exactly one reference";

    EXPECT_EQ(MemoryStream::Create(nullptr), E_POINTER);
    IStream* stream = reinterpret_cast<IStream*>(0x1);
    EXPECT_EQ(MemoryStream::Create(nullptr, 3, &stream), STG_E_INVALIDPOINTER);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(MemoryStream::Create("abc", 3, nullptr), E_POINTER);
    EXPECT_EQ(MemoryStream::Create(nullptr, 0, &stream), S_OK) << "no bytes need no pointer";
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->Release(), 0u);

    const char bytes[] = {'x', '\0', 'y'};
    ASSERT_EQ(MemoryStream::Create(bytes, sizeof bytes, &stream), S_OK);
    auto* memory = static_cast<MemoryStream*>(stream);
    ASSERT_EQ(memory->Size(), 3u);
    EXPECT_EQ(std::memcmp(memory->Data(), bytes, 3), 0);
    EXPECT_NE(static_cast<const void*>(memory->Data()), static_cast<const void*>(bytes)) << "the bytes are copied";
    EXPECT_EQ(Position(stream), 0u);
    EXPECT_EQ(stream->Release(), 0u);
}

TEST_F(StreamTest, MemoryStreamRefusesToGrowBeyondItsLimitAndStaysUnchanged) {
    ComPtr<IStream> stream = NewMemory("abc");
    ASSERT_EQ(stream->Seek(1, STREAM_SEEK_SET, nullptr), S_OK);

    EXPECT_EQ(stream->SetSize(MemoryStream::kMaxSize + 1), STG_E_MEDIUMFULL);
    EXPECT_EQ(stream->SetSize(std::numeric_limits<ULONGLONG>::max()), STG_E_MEDIUMFULL);
    EXPECT_EQ(Size(stream.get()), 3u);
    EXPECT_EQ(Position(stream.get()), 1u);

    ASSERT_EQ(stream->Seek(MemoryStream::kMaxSize - 1, STREAM_SEEK_SET, nullptr), S_OK);
    ULONG written = 9;
    EXPECT_EQ(stream->Write("xy", 2, &written), STG_E_MEDIUMFULL);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(Position(stream.get()), MemoryStream::kMaxSize - 1);
    EXPECT_EQ(Contents(stream.get()), "abc");

    IStream* none = reinterpret_cast<IStream*>(0x1);
    EXPECT_EQ(MemoryStream::Create("a", MemoryStream::kMaxSize + 1, &none), STG_E_MEDIUMFULL);
    EXPECT_EQ(none, nullptr);
}

TEST_F(StreamTest, MemoryStreamAppendsFromItsOwnBytes) {
    // The source lies inside the block that the write has to move.
    MemoryStream* stream = MemoryStream::Create();
    ASSERT_NE(stream, nullptr);
    WriteText(stream, "abcd");
    for (int round = 0; round < 6; ++round) {
        const ULONG size = static_cast<ULONG>(stream->Size());
        ASSERT_EQ(stream->Write(stream->Data(), size, nullptr), S_OK);
    }
    ASSERT_EQ(stream->Size(), 4u << 6);
    std::string expected;
    for (int i = 0; i < 64; ++i) expected += "abcd";
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(stream->Data()), stream->Size()), expected);
    stream->Release();
}

TEST_F(StreamTest, MemoryStreamStatReportsSizeTypeAndAnOptionalEmptyName) {
    ComPtr<IStream> stream = NewMemory("12345");
    STATSTG stat{};
    stat.pwcsName = reinterpret_cast<LPOLESTR>(0x1);
    ASSERT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(stat.pwcsName, nullptr);
    EXPECT_EQ(stat.type, STGTY_STREAM);
    EXPECT_EQ(stat.cbSize, 5u);

    ASSERT_EQ(stream->Stat(&stat, STATFLAG_DEFAULT), S_OK);
    ASSERT_NE(stat.pwcsName, nullptr);
    EXPECT_EQ(SysStringLen(stat.pwcsName), 0u);
    SysFreeString(stat.pwcsName);
}

TEST_F(StreamTest, MemoryStreamCloneIsACopy) {
    ComPtr<IStream> stream = NewMemory("abc");
    ComPtr<IStream> clone;
    ASSERT_EQ(stream->Clone(clone.Out()), S_OK);
    EXPECT_EQ(Module::LiveObjectCount(), liveAtStart_ + 2);
    WriteText(clone.get(), "XYZW");
    EXPECT_EQ(Contents(clone.get()), "XYZW");
    EXPECT_EQ(Contents(stream.get()), "abc") << "the clone shares nothing with its source";
}

TEST_F(StreamTest, CopyToIntoItselfAppendsWithoutDeadlock) {
    ComPtr<IStream> stream = NewMemory("abcd");
    ULONGLONG read = 0;
    ULONGLONG written = 0;
    ASSERT_EQ(stream->CopyTo(stream.get(), 4, &read, &written), S_OK);
    EXPECT_EQ(read, 4u);
    EXPECT_EQ(written, 4u);
    EXPECT_EQ(Position(stream.get()), 8u);
    EXPECT_EQ(Contents(stream.get()), "abcdabcd");
}

// ---- copying between the two kinds ----

TEST_F(StreamTest, CopyToMovesBytesBetweenMemoryAndFileInChunks) {
    // More than one chunk, with a pattern that shows a misplaced chunk.
    std::string payload(200'003, '\0');
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>((i * 131 + i / 4096) & 0xFF);
    ComPtr<IStream> source = NewMemory(payload);
    const std::string path = PathOf("copy.bin");
    ComPtr<IStream> file = OpenFile(path, Mode::ReadWrite);
    WriteText(file.get(), "head:");

    ULONGLONG read = 0;
    ULONGLONG written = 0;
    ASSERT_EQ(source->CopyTo(file.get(), ~0ull, &read, &written), S_OK) << "asking for more than there is";
    EXPECT_EQ(read, payload.size());
    EXPECT_EQ(written, payload.size());
    EXPECT_EQ(Position(source.get()), payload.size());
    EXPECT_EQ(Position(file.get()), payload.size() + 5);
    EXPECT_EQ(Contents(file.get()), "head:" + payload);

    // A bounded copy from the file back into memory, from the middle.
    ComPtr<IStream> back = NewMemory();
    ASSERT_EQ(file->Seek(5 + 70'000, STREAM_SEEK_SET, nullptr), S_OK);
    ASSERT_EQ(file->CopyTo(back.get(), 100'000, &read, nullptr), S_OK);
    EXPECT_EQ(read, 100'000u);
    EXPECT_EQ(Position(file.get()), 5u + 170'000u);
    EXPECT_EQ(Contents(back.get()), payload.substr(70'000, 100'000));

    // Nothing to copy at the end; nothing asked for.
    ASSERT_EQ(source->CopyTo(back.get(), 10, &read, &written), S_OK);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(written, 0u);
    ASSERT_EQ(source->Seek(0, STREAM_SEEK_SET, nullptr), S_OK);
    ASSERT_EQ(source->CopyTo(back.get(), 0, &read, &written), S_OK);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(Position(source.get()), 0u);
}

TEST_F(StreamTest, CopyToReportsWhatTheTargetRefused) {
    const std::string path = PathOf("readonly-target.bin");
    OpenFile(path, Mode::Write);  // creates it empty
    ComPtr<IStream> target = OpenFile(path, Mode::Read);
    ComPtr<IStream> source = NewMemory("payload");
    ULONGLONG read = 0;
    ULONGLONG written = 9;
    EXPECT_EQ(source->CopyTo(target.get(), 7, &read, &written), STG_E_ACCESSDENIED);
    EXPECT_EQ(read, 7u) << "the source was read before the target refused";
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(Size(target.get()), 0u);
}

// ---- file stream ----

TEST_F(StreamTest, FileModesDecideWhatHappensToExistingContent) {
    const std::string path = PathOf("modes.txt");
    {
        ComPtr<IStream> file = OpenFile(path, Mode::Write);
        WriteText(file.get(), "first version");
        EXPECT_EQ(file->Commit(0), S_OK);
    }
    {
        ComPtr<IStream> file = OpenFile(path, Mode::ReadWrite);
        EXPECT_EQ(Contents(file.get()), "first version") << "ReadWrite keeps what is there";
        ASSERT_EQ(file->Seek(0, STREAM_SEEK_SET, nullptr), S_OK);
        WriteText(file.get(), "FIRST");
    }
    {
        ComPtr<IStream> file = OpenFile(path, Mode::Read);
        EXPECT_EQ(Contents(file.get()), "FIRST version");
    }
    {
        ComPtr<IStream> file = OpenFile(path, Mode::Write);
        EXPECT_EQ(Size(file.get()), 0u) << "Write truncates";
    }
    const std::string fresh = PathOf("fresh.txt");
    ComPtr<IStream> file = OpenFile(fresh, Mode::ReadWrite);
    EXPECT_TRUE(std::filesystem::exists(fresh)) << "ReadWrite creates a missing file";
}

TEST_F(StreamTest, FileRefusesWhatItsModeForbidsAndStaysUnchanged) {
    const std::string path = PathOf("guarded.txt");
    {
        ComPtr<IStream> writer = OpenFile(path, Mode::Write);
        WriteText(writer.get(), "keep");
        char byte = 0;
        ULONG read = 5;
        EXPECT_EQ(writer->Read(&byte, 1, &read), STG_E_ACCESSDENIED);
        EXPECT_EQ(read, 0u);
        EXPECT_EQ(Position(writer.get()), 4u);
    }
    ComPtr<IStream> reader = OpenFile(path, Mode::Read);
    ULONG written = 5;
    ClearErrorInfo();
    EXPECT_EQ(reader->Write("x", 1, &written), STG_E_ACCESSDENIED);
    EXPECT_EQ(written, 0u);
    EXPECT_NE(ErrorDescription().find(path), std::string::npos);
    EXPECT_EQ(reader->SetSize(0), STG_E_ACCESSDENIED);
    EXPECT_EQ(Position(reader.get()), 0u);
    EXPECT_EQ(Contents(reader.get()), "keep");
    EXPECT_EQ(reader->Commit(0), S_OK);
}

TEST_F(StreamTest, FileStatReportsThePathSizeAndMode) {
    const std::string path = PathOf("stat.bin");
    ComPtr<IStream> file = OpenFile(path, Mode::ReadWrite);
    WriteText(file.get(), "0123456");
    STATSTG stat{};
    ASSERT_EQ(file->Stat(&stat, STATFLAG_DEFAULT), S_OK);
    EXPECT_EQ(BstrView(stat.pwcsName), path);
    EXPECT_EQ(stat.type, STGTY_STREAM);
    EXPECT_EQ(stat.cbSize, 7u);
    EXPECT_EQ(stat.grfMode, static_cast<DWORD>(Mode::ReadWrite));
    SysFreeString(stat.pwcsName);

    ASSERT_EQ(file->Stat(&stat, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(stat.pwcsName, nullptr);
    EXPECT_EQ(static_cast<uintmax_t>(stat.cbSize), std::filesystem::file_size(path));
}

TEST_F(StreamTest, FileCloneSharesTheFile) {
    const std::string path = PathOf("shared.bin");
    ComPtr<IStream> file = OpenFile(path, Mode::ReadWrite);
    WriteText(file.get(), "abc");
    ComPtr<IStream> clone;
    ASSERT_EQ(file->Clone(clone.Out()), S_OK);
    EXPECT_EQ(Position(clone.get()), 3u);
    WriteText(clone.get(), "DEF");
    EXPECT_EQ(Contents(file.get()), "abcDEF") << "writes through the clone reach the same file";
    file.Reset();
    EXPECT_EQ(Contents(clone.get()), "abcDEF") << "the clone outlives its source";
}

TEST_F(StreamTest, OpeningAMissingFileFailsWithItsPathInTheErrorInfo) {
    const std::string path = PathOf("missing.bin");
    IStream* stream = reinterpret_cast<IStream*>(0x1);
    EXPECT_EQ(FileStream::Open(path, Mode::Read, &stream), STG_E_FILENOTFOUND);
    EXPECT_EQ(stream, nullptr);
    EXPECT_FALSE(std::filesystem::exists(path)) << "Read never creates";

    ComPtr<IErrorInfo> info;
    ASSERT_EQ(::GetErrorInfo(0, info.Out()), S_OK);
    Bstr description;
    Bstr source;
    GUID iid{};
    ASSERT_EQ(info->GetDescription(description.Out()), S_OK);
    ASSERT_EQ(info->GetSource(source.Out()), S_OK);
    ASSERT_EQ(info->GetGUID(&iid), S_OK);
    EXPECT_EQ(description.str(), "Cannot open " + path + ": " + std::strerror(ENOENT));
    EXPECT_EQ(source.str(), "FileStream");
    EXPECT_EQ(iid, IStream::iid);

    // A missing directory on the way, and a file used as a directory, for writing too.
    EXPECT_EQ(FileStream::Open(PathOf("no-such-dir/file.bin"), Mode::Write, &stream), STG_E_FILENOTFOUND);
    EXPECT_EQ(stream, nullptr);
    OpenFile(PathOf("plain"), Mode::Write);
    EXPECT_EQ(FileStream::Open(PathOf("plain/file.bin"), Mode::ReadWrite, &stream), STG_E_FILENOTFOUND);
    EXPECT_NE(ErrorDescription().find(PathOf("plain/file.bin")), std::string::npos);

    EXPECT_EQ(FileStream::Open(path, Mode::Read, nullptr), E_POINTER);
    EXPECT_EQ(FileStream::Open(std::string_view("a\0b", 3), Mode::ReadWrite, &stream), STG_E_INVALIDPARAMETER);
    EXPECT_EQ(stream, nullptr);
    EXPECT_FALSE(std::filesystem::exists("a")) << "the path is not cut at the NUL";
}

TEST_F(StreamTest, OpeningADirectoryFailsInEveryMode) {
    const std::string path = dir_.string();
    for (Mode mode : {Mode::Read, Mode::Write, Mode::ReadWrite}) {
        IStream* stream = reinterpret_cast<IStream*>(0x1);
        EXPECT_EQ(FileStream::Open(path, mode, &stream), STG_E_ACCESSDENIED) << static_cast<int>(mode);
        EXPECT_EQ(stream, nullptr);
        EXPECT_NE(ErrorDescription().find("Cannot open " + path + ": "), std::string::npos);
    }
    EXPECT_TRUE(std::filesystem::is_directory(path));
    EXPECT_EQ(Module::LiveObjectCount(), liveAtStart_);
}

TEST_F(StreamTest, OpeningAFileWithoutPermissionIsAccessDenied) {
    if (::geteuid() == 0) GTEST_SKIP() << "permissions do not bind the superuser";
    const std::string path = PathOf("locked.bin");
    OpenFile(path, Mode::Write);
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    IStream* stream = reinterpret_cast<IStream*>(0x1);
    EXPECT_EQ(FileStream::Open(path, Mode::Read, &stream), STG_E_ACCESSDENIED);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(FileStream::Open(path, Mode::ReadWrite, &stream), STG_E_ACCESSDENIED);
}

}  // namespace
}  // namespace tessaly::test
