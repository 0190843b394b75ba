// Writes an XML document element by element into a buffer that it hands to an Output in
// large blocks (64 KiB), so that the device sees few calls whatever the document holds.
//
//     ccXmlWriter xml(output, ccXmlWriter::Layout::LineBreaks);
//     xml.Declaration();
//     xml.StartElement("Root");
//     xml.Attribute("xmlns:dt", "urn:schemas-microsoft-com:datatypes");
//     xml.StartElement("Width");
//     xml.Attribute("dt:dt", "i4");
//     xml.Text("640");
//     xml.EndElement();
//     xml.EndElement();
//     xml.Finish();
//
// Text and attribute values are escaped here: '<', '>' and '&' always become "&lt;",
// "&gt;" and "&amp;"; in attribute values '"' becomes "&quot;" and tab and line feed
// become character references; control characters (and carriage return, which readers
// would otherwise fold into the line feed) become "&#N;" everywhere. Other bytes, UTF-8 or
// not, pass unchanged, so every string reads back byte for byte.
//
// Layout::Plain puts no white space between elements. Layout::LineBreaks starts every
// element on its own line (CR LF) indented by one tab per level, and puts the end tag of an
// element with child elements on its own line too; an element's text is never touched.
// Element and attribute names are the caller's to choose: IsName says which are valid.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class ccXmlWriter {
public:
    // Where the document goes. Write receives the bytes in order, in blocks; it throws when
    // the device fails, and the exception leaves the writer.
    class Output {
    public:
        virtual void Write(const char* data, size_t size) = 0;
        // About `size` more bytes are coming: a device that grows may make room at once.
        virtual void Expect(size_t /*size*/) {}

    protected:
        ~Output() = default;
    };

    enum class Layout { Plain, LineBreaks };

    static constexpr size_t kBufferSize = 64 * 1024;

    ccXmlWriter(Output& output, Layout layout);
    ccXmlWriter(const ccXmlWriter&) = delete;
    ccXmlWriter& operator=(const ccXmlWriter&) = delete;

    // Whether `name` is a valid element or attribute name: a letter, '_', ':' or any byte of
    // a multi-byte UTF-8 character first, then those, digits, '-' and '.'.
    static bool IsName(std::string_view name) noexcept;

    // `<?xml version="1.0"?>` and CR LF.
    void Declaration();

    // Opens an element; its start tag stays open for attributes until content or its end.
    void StartElement(std::string_view name);
    // An attribute of the element just started, its value escaped.
    void Attribute(std::string_view name, std::string_view value);
    void Attribute(std::string_view name, int64_t value);
    // Escaped text content.
    void Text(std::string_view text);
    // Content the caller has checked needs no escaping (numbers, dates): copied as it is.
    void RawText(std::string_view text);
    // Room for `size` characters of raw content, written by the caller straight into the
    // buffer; `size` must not pass kBufferSize. Content written so is committed by the
    // next call of the writer, up to the end the caller reports with CommitRaw.
    char* RawSpace(size_t size);
    void CommitRaw(char* end) noexcept;
    // `size` bytes as base64 content, encoded straight into the buffer block by block. With
    // `lineBreakFirst` the content begins with CR LF (after the start tag).
    void Base64(const uint8_t* data, size_t size, bool lineBreakFirst);
    // Closes the innermost element: "/>" when it got no content, else its end tag.
    void EndElement();

    // Elements open.
    size_t Depth() const noexcept { return open_.size(); }

    // Closes whatever is open, ends the line in the line-break layout and hands the rest
    // of the buffer to the output.
    void Finish();

private:
    struct Open {
        size_t nameOffset;  // in names_
        size_t nameSize;
        bool hasChildren;
    };

    void CloseStartTag();
    void BreakLine(size_t depth);
    void Put(std::string_view text);
    void Put(char c);
    void Escaped(std::string_view text, const uint8_t* kind);
    void Flush();

    Output& output_;
    Layout layout_;
    std::unique_ptr<char[]> buffer_;
    size_t used_ = 0;
    bool startTagOpen_ = false;
    std::vector<Open> open_;
    std::string names_;  // the open elements' names, one after the other
};
