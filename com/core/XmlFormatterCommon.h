// What the two text formatters (XML and SOAP) share: the text of numbers, the stream the
// XML writer writes to, the whole document the XML reader reads, and how the reader's
// failures are reported. Each formatter keeps its own element and attribute names.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "com/core/ccCOMError.h"
#include "persist/ccXmlReader.h"
#include "persist/ccXmlWriter.h"
#include "platform/Bstr.h"
#include "platform/MemoryStream.h"
#include "platform/SafeArray.h"
#include "platform/Variant.h"

namespace tessaly::core::xmlformat {

template <class T>
T Load(const void* at) noexcept {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

template <class T>
void Store(void* at, T value) noexcept {
    std::memcpy(at, &value, sizeof value);
}

// How a boolean is written: "1"/"0" or "true"/"false". The reader takes either.
enum class BooleanText { Digit, Word };

// A number's text at `out` (ccXmlValueText::kMaxText bytes); returns its end.
char* FormatNumber(VARTYPE vt, const void* at, char* out, BooleanText booleans) noexcept;

// Reads a number of type `vt` from its text into `at`; false when the text is not one.
bool ParseNumber(VARTYPE vt, std::string_view text, void* at) noexcept;

// A VARTYPE for a message: "0x0024".
std::string TypeText(VARTYPE vt);

bool EqualsIgnoringCase(std::string_view a, std::string_view b) noexcept;

// The writer's layout named by a SubFormat: none (plain) or "LineBreaks"; any other name
// is a bad argument.
ccXmlWriter::Layout LayoutOf(BSTR subFormat);

// The texts of a failure just reported on this thread by a stream.
std::string FailureText(HRESULT result);

// Text from a document for a message: at most 40 bytes of it.
std::string Excerpt(std::string_view text);

// The writer's device: the caller's stream, written in the writer's large blocks.
class StreamOutput final : public ccXmlWriter::Output {
public:
    explicit StreamOutput(IStream* stream) noexcept : stream_(stream), memory_(MemoryStream::ImplementationOf(stream)) {}

    // A large block is coming (a 16 MiB array is 22 MiB of base64): a memory stream makes
    // room for it once instead of growing, and copying, step by step.
    void Expect(size_t size) override {
        if (memory_) memory_->Reserve(size);
    }

    void Write(const char* data, size_t size) override;

private:
    static constexpr size_t kMaxChunk = size_t(1) << 30;

    IStream* stream_;
    MemoryStream* memory_;  // the same stream when it is the library's memory stream
};

// A SAFEARRAY's memory, locked while it is used.
class ArrayAccess {
public:
    explicit ArrayAccess(SAFEARRAY* array) : array_(array) { ThrowIfFailed(SafeArrayAccessData(array, &data_)); }
    ~ArrayAccess() { SafeArrayUnaccessData(array_); }
    ArrayAccess(const ArrayAccess&) = delete;
    ArrayAccess& operator=(const ArrayAccess&) = delete;
    uint8_t* data() const noexcept { return static_cast<uint8_t*>(data_); }

private:
    SAFEARRAY* array_;
    void* data_ = nullptr;
};

// The whole rest of a stream in one block.
class Document {
public:
    explicit Document(IStream* stream);

    std::string_view Text() const noexcept { return {bytes_.get(), size_}; }

private:
    static constexpr size_t kMinimumRead = 64 * 1024;
    static constexpr size_t kMaxChunk = size_t(1) << 30;

    std::unique_ptr<char[]> bytes_;
    size_t size_ = 0;
};

// Throws the formatter's failure for a failure of the XML reader: its message, with the
// place it was found after the insert that names it.
[[noreturn]] void ThrowReaderFault(const ccXmlReader::Errors& error);

}  // namespace tessaly::core::xmlformat
