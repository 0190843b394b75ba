#include "persist/ccXmlWriter.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "persist/ccBase64.h"
#include "persist/ccXmlReader.h"

namespace {

// What a byte needs in text (kText) and in attribute values (kAttribute): 0 = nothing,
// 1 = a reference.
struct EscapeTables {
    uint8_t text[256];
    uint8_t attribute[256];
};

constexpr EscapeTables MakeEscapeTables() {
    EscapeTables t{};
    for (int c = 0; c < 0x20; ++c) t.text[c] = t.attribute[c] = 1;
    t.text[static_cast<unsigned char>('\t')] = t.text[static_cast<unsigned char>('\n')] = 0;
    for (unsigned char c : {'<', '>', '&'}) t.text[c] = t.attribute[c] = 1;
    t.attribute[static_cast<unsigned char>('"')] = 1;
    return t;
}

constexpr EscapeTables kTables = MakeEscapeTables();

constexpr std::string_view kLineBreak = "\r\n";

}  // namespace

ccXmlWriter::ccXmlWriter(Output& output, Layout layout)
    : output_(output), layout_(layout), buffer_(new char[kBufferSize]) {
    open_.reserve(32);
}

bool ccXmlWriter::IsName(std::string_view name) noexcept { return ccXmlReader::IsName(name); }

void ccXmlWriter::Declaration() {
    Put("<?xml version=\"1.0\"?>");
    Put(kLineBreak);
}

void ccXmlWriter::StartElement(std::string_view name) {
    CloseStartTag();
    if (!open_.empty()) {
        open_.back().hasChildren = true;
        if (layout_ == Layout::LineBreaks) BreakLine(open_.size());
    }
    Put('<');
    Put(name);
    open_.push_back(Open{names_.size(), name.size(), false});
    names_.append(name);
    startTagOpen_ = true;
}

void ccXmlWriter::Attribute(std::string_view name, std::string_view value) {
    Put(' ');
    Put(name);
    Put("=\"");
    Escaped(value, kTables.attribute);
    Put('"');
}

void ccXmlWriter::Attribute(std::string_view name, int64_t value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    Put(' ');
    Put(name);
    Put("=\"");
    Put(std::string_view(digits, static_cast<size_t>(end - digits)));
    Put('"');
}

void ccXmlWriter::Text(std::string_view text) {
    CloseStartTag();
    Escaped(text, kTables.text);
}

void ccXmlWriter::RawText(std::string_view text) {
    CloseStartTag();
    Put(text);
}

char* ccXmlWriter::RawSpace(size_t size) {
    CloseStartTag();
    if (kBufferSize - used_ < size) Flush();
    return buffer_.get() + used_;
}

void ccXmlWriter::CommitRaw(char* end) noexcept { used_ = static_cast<size_t>(end - buffer_.get()); }

void ccXmlWriter::Base64(const uint8_t* data, size_t size, bool lineBreakFirst) {
    CloseStartTag();
    if (lineBreakFirst) Put(kLineBreak);
    const size_t encoded = ccBase64::EncodedSize(size);
    // With a buffer more, so that the end of the document fits too.
    if (encoded > kBufferSize - used_) output_.Expect(used_ + encoded + kBufferSize);
    while (size > 0) {
        if (kBufferSize - used_ < 4) Flush();
        const size_t bytes = std::min(size, (kBufferSize - used_) / 4 * 3);
        ccBase64::Encode(data, bytes, buffer_.get() + used_);
        used_ += ccBase64::EncodedSize(bytes);
        data += bytes;
        size -= bytes;
    }
}

void ccXmlWriter::EndElement() {
    if (open_.empty()) return;
    const Open element = open_.back();
    if (startTagOpen_) {
        Put("/>");
        startTagOpen_ = false;
    } else {
        if (element.hasChildren && layout_ == Layout::LineBreaks) BreakLine(open_.size() - 1);
        Put("</");
        Put(std::string_view(names_).substr(element.nameOffset, element.nameSize));
        Put('>');
    }
    open_.pop_back();
    names_.resize(element.nameOffset);
}

void ccXmlWriter::Finish() {
    while (!open_.empty()) EndElement();
    if (layout_ == Layout::LineBreaks) Put(kLineBreak);
    Flush();
}

void ccXmlWriter::CloseStartTag() {
    if (!startTagOpen_) return;
    Put('>');
    startTagOpen_ = false;
}

void ccXmlWriter::BreakLine(size_t depth) {
    if (kBufferSize - used_ < kLineBreak.size() + depth) Flush();
    if (kBufferSize - used_ < kLineBreak.size() + depth) {
        // Deeper than a buffer: only a caller that ignores every depth limit gets here.
        Put(kLineBreak);
        for (size_t i = 0; i < depth; ++i) Put('\t');
        return;
    }
    char* out = buffer_.get() + used_;
    std::memcpy(out, kLineBreak.data(), kLineBreak.size());
    std::memset(out + kLineBreak.size(), '\t', depth);
    used_ += kLineBreak.size() + depth;
}

void ccXmlWriter::Put(char c) {
    if (used_ == kBufferSize) Flush();
    buffer_[used_++] = c;
}

void ccXmlWriter::Put(std::string_view text) {
    if (text.size() <= kBufferSize - used_) {
        std::memcpy(buffer_.get() + used_, text.data(), text.size());
        used_ += text.size();
        return;
    }
    Flush();
    if (text.size() >= kBufferSize) {
        output_.Write(text.data(), text.size());
        return;
    }
    std::memcpy(buffer_.get(), text.data(), text.size());
    used_ = text.size();
}

void ccXmlWriter::Escaped(std::string_view text, const uint8_t* kind) {
    const char* p = text.data();
    const char* end = p + text.size();
    while (p < end) {
        const char* run = p;
        while (p < end && !kind[static_cast<unsigned char>(*p)]) ++p;
        if (p > run) Put(std::string_view(run, static_cast<size_t>(p - run)));
        if (p == end) break;
        switch (*p) {
            case '<': Put("&lt;"); break;
            case '>': Put("&gt;"); break;
            case '&': Put("&amp;"); break;
            case '"': Put("&quot;"); break;
            default: {
                char reference[8] = "&#";
                auto last = std::to_chars(reference + 2, reference + 6, static_cast<unsigned char>(*p)).ptr;
                *last++ = ';';
                Put(std::string_view(reference, static_cast<size_t>(last - reference)));
                break;
            }
        }
        ++p;
    }
}

void ccXmlWriter::Flush() {
    if (used_ == 0) return;
    const size_t size = used_;
    used_ = 0;
    output_.Write(buffer_.get(), size);
}
