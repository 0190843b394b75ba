// What the two text formatters (XML and SOAP) share: the text of numbers, the stream the
// XML writer writes to, the whole document the XML reader reads, and how the reader's
// failures are reported. Each formatter keeps its own element and attribute names.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "TessalyCore.h"
#include "com/core/FormatterErrors.h"
#include "com/core/ObjectGraphLoader.h"
#include "com/core/ccCOMError.h"
#include "persist/ccArchive.h"
#include "persist/ccBase64.h"
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

// `given` with one level of reference taken away, in `value` (a copy that owns nothing), so
// that a reference is written as the value it refers to; returns why it cannot be, or "".
std::string Dereferenced(const VARIANT& given, VARIANT& value);

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

// What a loader of either format does with the element the reader stands on: names it
// with its place for messages, refuses it, reads its text and decodes its base64.
class ElementReader {
protected:
    ElementReader(ccXmlReader& xml, ObjectGraphLoader& loader) noexcept : xml_(xml), loader_(loader) {}

    // A name of the document with where it stands: "Width (line 3, column 6)".
    std::string Located(std::string_view name) const {
        return std::string(name) + " (" + ccXmlReader::Describe(xml_.PositionOf(name.data())) + ")";
    }

    [[noreturn]] void InvalidAttributes(std::string_view element) const {
        FormatterErrors::Throw(ids_LuxFormatter_InvalidNodeAttrs_1, {Located(element)});
    }

    // A value whose text does not read as its type, or whose content is not a value.
    [[noreturn]] void InvalidValue(std::string_view element, const std::string& reason) const {
        throw ccArchive::BadType(Located(element) + ": " + reason, ids_Lux_ReadInvalidProperty_1,
                                 {std::string(element)});
    }

    void IgnoreText(std::string_view element) {
        if (ccXmlReader::IsSpace(xml_.RawText())) return;
        loader_.Warn("Text in the element " + Located(element) + " was ignored.");
    }

    // The current element's text, decoded, up to its end tag; refuses child elements.
    std::string_view ReadText(std::string_view element, std::string& scratch) {
        if (xml_.IsEmptyElement()) {
            xml_.Next();
            return {};
        }
        std::string_view text;
        bool inScratch = false;
        bool first = true;
        for (;;) {
            switch (xml_.Next()) {
                case ccXmlReader::Token::Text:
                    if (first) {
                        text = xml_.Text(scratch);
                        inScratch = text.data() == scratch.data();
                        first = false;
                    } else {
                        // Text broken by a comment or a CDATA section: joined in the scratch.
                        if (!inScratch) scratch.assign(text);
                        xml_.AppendText(scratch);
                        text = scratch;
                        inScratch = true;
                    }
                    break;
                case ccXmlReader::Token::StartElement:
                    InvalidValue(element,
                                 "it holds the element " + std::string(xml_.Name()) + " where a value belongs");
                default: return text;
            }
        }
    }

    // `expected` is the byte count the bounds announce, or kAnySize without bounds.
    static constexpr size_t kAnySize = SIZE_MAX;
    size_t DecodedSize(std::string_view element, std::string_view text, size_t expected) const {
        const ccBase64::SizeResult size = ccBase64::DecodedSize(text);
        const bool bounded = expected != kAnySize;
        if (size.status != ccBase64::Status::Ok || (bounded && size.bytes < expected))
            FormatterErrors::Throw(ids_LuxFormatter_ShortMime_1, {Located(element)});
        if (bounded && size.bytes > expected) FormatterErrors::Throw(ids_LuxFormatter_BadMime_1, {Located(element)});
        return size.bytes;
    }

    void Decode(std::string_view element, std::string_view text, uint8_t* out, size_t size) const {
        const ccBase64::DecodeResult result = ccBase64::Decode(text, out, size);
        if (result.status == ccBase64::Status::Short ||
            (result.status == ccBase64::Status::Ok && result.written < size))
            FormatterErrors::Throw(ids_LuxFormatter_ShortMime_1, {Located(element)});
        if (result.status != ccBase64::Status::Ok)
            FormatterErrors::Throw(ids_LuxFormatter_BadMime_1, {Located(element)});
    }

    ccXmlReader& xml_;
    ObjectGraphLoader& loader_;
};

// Throws the formatter's failure for a failure of the XML reader: its message, with the
// place it was found after the insert that names it.
[[noreturn]] void ThrowReaderFault(const ccXmlReader::Errors& error);

}  // namespace tessaly::core::xmlformat
