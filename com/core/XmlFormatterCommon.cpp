#include "com/core/XmlFormatterCommon.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <optional>
#include <vector>

#include "TessalyCore.h"
#include "com/core/FormatterErrors.h"
#include "com/core/MessageTable.h"
#include "persist/ccXmlValueText.h"
#include "platform/ComPtr.h"
#include "platform/ErrorInfo.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core::xmlformat {

namespace {

template <class T>
bool StoreInteger(void* at, std::string_view text) noexcept {
    const auto value =
        ccXmlValueText::ParseInteger(text, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
    if (value) Store<T>(at, static_cast<T>(*value));
    return value.has_value();
}

template <class T>
bool StoreUnsigned(void* at, std::string_view text) noexcept {
    const auto value = ccXmlValueText::ParseUnsigned(text, std::numeric_limits<T>::max());
    if (value) Store<T>(at, static_cast<T>(*value));
    return value.has_value();
}

template <class T, class Parsed>
bool StoreParsed(void* at, const std::optional<Parsed>& value) noexcept {
    if (value) Store<T>(at, static_cast<T>(*value));
    return value.has_value();
}

}  // namespace

char* FormatNumber(VARTYPE vt, const void* at, char* out, BooleanText booleans) noexcept {
    using Text = ccXmlValueText;
    switch (vt) {
        case VT_I1: return Text::FormatInteger(out, Load<int8_t>(at));
        case VT_UI1: return Text::FormatUnsigned(out, Load<uint8_t>(at));
        case VT_I2: return Text::FormatInteger(out, Load<int16_t>(at));
        case VT_UI2: return Text::FormatUnsigned(out, Load<uint16_t>(at));
        case VT_I4: case VT_INT: case VT_ERROR: return Text::FormatInteger(out, Load<int32_t>(at));
        case VT_UI4: case VT_UINT: return Text::FormatUnsigned(out, Load<uint32_t>(at));
        case VT_I8: return Text::FormatInteger(out, Load<int64_t>(at));
        case VT_UI8: return Text::FormatUnsigned(out, Load<uint64_t>(at));
        case VT_R4: return Text::FormatReal(out, Load<float>(at));
        case VT_R8: return Text::FormatReal(out, Load<double>(at));
        case VT_CY: return Text::FormatCurrency(out, Load<int64_t>(at));
        case VT_DATE: return Text::FormatDate(out, Load<double>(at));
        case VT_BOOL: {
            const bool value = Load<VARIANT_BOOL>(at) != 0;
            const std::string_view text = booleans == BooleanText::Digit ? (value ? "1" : "0") : (value ? "true" : "false");
            std::memcpy(out, text.data(), text.size());
            return out + text.size();
        }
        default: return out;
    }
}

bool ParseNumber(VARTYPE vt, std::string_view text, void* at) noexcept {
    using Text = ccXmlValueText;
    switch (vt) {
        case VT_I1: return StoreInteger<int8_t>(at, text);
        case VT_UI1: return StoreUnsigned<uint8_t>(at, text);
        case VT_I2: return StoreInteger<int16_t>(at, text);
        case VT_UI2: return StoreUnsigned<uint16_t>(at, text);
        case VT_I4: case VT_INT: case VT_ERROR: return StoreInteger<int32_t>(at, text);
        case VT_UI4: case VT_UINT: return StoreUnsigned<uint32_t>(at, text);
        case VT_I8: return StoreInteger<int64_t>(at, text);
        case VT_UI8: return StoreUnsigned<uint64_t>(at, text);
        case VT_R4: return StoreParsed<float>(at, Text::ParseFloat(text));
        case VT_R8: return StoreParsed<double>(at, Text::ParseDouble(text));
        case VT_CY: return StoreParsed<int64_t>(at, Text::ParseCurrency(text));
        case VT_DATE: return StoreParsed<double>(at, Text::ParseDate(text));
        case VT_BOOL: {
            const auto value = Text::ParseBoolean(text);
            if (value) Store<VARIANT_BOOL>(at, *value ? VARIANT_TRUE : VARIANT_FALSE);
            return value.has_value();
        }
        default: return false;
    }
}

std::string Dereferenced(const VARIANT& given, VARIANT& value) {
    value = given;
    if (!(given.vt & VT_BYREF)) return {};
    if (!given.byref) return "a value refers to nothing";
    const VARTYPE type = given.vt & ~VT_BYREF;
    if (type == VT_VARIANT) {
        value = *given.pvarVal;
        if (value.vt & VT_BYREF) return "a value refers to a reference";
    } else if (type & VT_ARRAY) {
        value.vt = type;
        value.parray = *given.pparray;
    } else {
        const size_t size = ReferencedValueSize(type);
        if (size == 0) return "a reference of type " + TypeText(given.vt) + " cannot be stored";
        value.vt = type;
        value.llVal = 0;
        std::memcpy(&value.llVal, given.byref, size);
    }
    return {};
}

std::string TypeText(VARTYPE vt) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%04X", unsigned(vt));
    return text;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) noexcept {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
               return lower(x) == lower(y);
           });
}

ccXmlWriter::Layout LayoutOf(BSTR subFormat) {
    const std::string_view name = BstrView(subFormat);
    if (name.empty()) return ccXmlWriter::Layout::Plain;
    if (EqualsIgnoringCase(name, "LineBreaks")) return ccXmlWriter::Layout::LineBreaks;
    throw ccStdError::BadArgument("SubFormat");
}

std::string FailureText(HRESULT result) {
    ComPtr<IErrorInfo> info;
    GetErrorInfo(0, info.Out());
    if (info) {
        Bstr description;
        if (SUCCEEDED(info->GetDescription(description.Out())) && !description.empty()) return description.str();
    }
    return MessageTable::ResultText(result);
}

std::string Excerpt(std::string_view text) {
    return text.size() <= 40 ? std::string(text) : std::string(text.substr(0, 37)) + "...";
}

void StreamOutput::Write(const char* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const auto chunk = static_cast<ULONG>(std::min<size_t>(size - done, kMaxChunk));
        ULONG written = 0;
        const HRESULT hr = stream_->Write(data + done, chunk, &written);
        if (FAILED(hr)) FormatterErrors::Throw(ids_LuxFormatter_WriteError_1, {FailureText(hr)});
        if (written != chunk)
            FormatterErrors::Throw(ids_LuxFormatter_WriteError_1, {"the stream took " + std::to_string(written) +
                                                                   " of " + std::to_string(chunk) + " bytes"});
        done += chunk;
    }
}

Document::Document(IStream* stream) {
    size_t capacity = kMinimumRead;
    ULONGLONG position = 0;
    STATSTG stat{};
    if (SUCCEEDED(stream->Stat(&stat, STATFLAG_NONAME))) {
        SysFreeString(stat.pwcsName);
        // One more byte than the stream says it holds, to see its end in one pass.
        if (SUCCEEDED(stream->Seek(0, STREAM_SEEK_CUR, &position)) && stat.cbSize > position &&
            stat.cbSize - position < std::numeric_limits<size_t>::max() / 2)
            capacity = std::max<size_t>(capacity, static_cast<size_t>(stat.cbSize - position) + 1);
    }
    bytes_ = std::make_unique_for_overwrite<char[]>(capacity);
    for (;;) {
        if (size_ == capacity) {
            const size_t larger = capacity * 2;
            auto grown = std::make_unique_for_overwrite<char[]>(larger);
            std::memcpy(grown.get(), bytes_.get(), size_);
            bytes_ = std::move(grown);
            capacity = larger;
        }
        const auto chunk = static_cast<ULONG>(std::min<size_t>(capacity - size_, kMaxChunk));
        ULONG got = 0;
        const HRESULT hr = stream->Read(bytes_.get() + size_, chunk, &got);
        if (FAILED(hr)) FormatterErrors::Throw(ids_LuxFormatter_ReadError_1, {FailureText(hr)});
        size_ += std::min(got, chunk);
        if (got == 0) break;
    }
}

namespace {

// How each failure of the XML reader is reported: its message, and which insert names the
// place it was found (-1: none), so that the position can follow it.
struct ReaderFault {
    int32_t code;
    int32_t messageId;
    int locatedInsert;
};

const ReaderFault kReaderFaults[] = {
    {ccXmlReader::NoStartTag::kCode, ids_LuxFormatter_NoStartTag, -1},
    {ccXmlReader::InvalidTagNameChar::kCode, ids_LuxFormatter_InvalidTagNameChar_2, 0},
    {ccXmlReader::InvalidInlineEndTag::kCode, ids_LuxFormatter_InvalidInlineEndTag_1, 0},
    {ccXmlReader::InvalidAttrName::kCode, ids_LuxFormatter_InvalidAttrName_2, 1},
    {ccXmlReader::AttrNoEquals::kCode, ids_LuxFormatter_AttrNoEquals_2, 1},
    {ccXmlReader::InvalidAttributes::kCode, ids_LuxFormatter_InvalidNodeAttrs_1, 0},
    {ccXmlReader::NoEndTag::kCode, ids_LuxFormatter_NoEndTag_1, 0},
    {ccXmlReader::InvalidEndTagNameChar::kCode, ids_LuxFormatter_InvalidEndTagNameChar_2, 0},
    {ccXmlReader::StartEndMismatch::kCode, ids_LuxFormatter_StartEndMismatch_2, 1},
    {ccXmlReader::InvalidEndTagEnd::kCode, ids_LuxFormatter_InvalidEndTagEnd_2, 0},
    {ccXmlReader::TooManyEscapeDigits::kCode, ids_LuxFormatter_TooManyEscapeDigits, -1},
    {ccXmlReader::EscapeNonDigit::kCode, ids_LuxFormatter_EscapeNonDigit_1, 0},
    {ccXmlReader::EndOfInput::kCode, ids_LuxFormatter_EndOfInputStream, -1},
    {ccXmlReader::BadDocument::kCode, ids_LuxFormatter_BadFormat, -1},
};

}  // namespace

void ThrowReaderFault(const ccXmlReader::Errors& error) {
    for (const ReaderFault& fault : kReaderFaults) {
        if (fault.code != error.Code()) continue;
        std::vector<std::string> inserts = error.Inserts();
        if (fault.locatedInsert >= 0 && static_cast<size_t>(fault.locatedInsert) < inserts.size())
            inserts[fault.locatedInsert] += " (" + error.Details() + ")";
        FormatterErrors::Throw(fault.messageId, std::move(inserts));
    }
    FormatterErrors::Throw(ids_LuxFormatter_BadFormat);
}

}  // namespace tessaly::core::xmlformat
