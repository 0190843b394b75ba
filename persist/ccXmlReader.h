// A pull parser over an XML document held in memory: one pass, no copies (names, attribute
// values and text are views into the document), nothing allocated per element once the
// first few elements have sized its two small vectors.
//
//     ccXmlReader xml(document);
//     for (auto token = xml.Next(); token != ccXmlReader::Token::End; token = xml.Next()) ...
//
// Next() returns, in document order, a StartElement for every start tag (an empty-element
// tag "<a/>" gives a StartElement with IsEmptyElement() and then an EndElement), Text for
// every run of characters between tags (white space included, references still in it:
// Text() decodes them) and for every CDATA section, EndElement for every end tag, and End
// once after the top element was closed. The declaration, processing instructions and
// comments are skipped; a document type declaration is refused, so no entity of the input's
// own making is ever expanded. The entities are lt, gt, amp, quot and apos, and numeric
// character references (&#65; &#x41;) give UTF-8.
//
// Any input is safe: every failure is an exception of the family ccXmlReader::Errors whose
// details say where ("line 3, column 14") and whose inserts name what (the element, the
// attribute, the character); elements nest at most `maxDepth` levels, an element has at
// most kMaxAttributes attributes, and no step of the parser recurses.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "xnl/std/except/ccException.h"

class ccXmlReader {
public:
    using Errors = ccErrorFamily<"ccXmlReader">;
    // No element where the document should begin. No inserts.
    using NoStartTag = ccError<Errors, "ccXmlReader::NoStartTag", 0x100D0001>;
    // A start tag's name: the name as written, the offending character.
    using InvalidTagNameChar = ccError<Errors, "ccXmlReader::InvalidTagNameChar", 0x100D0002>;
    // "/" in a start tag not followed by ">": the element.
    using InvalidInlineEndTag = ccError<Errors, "ccXmlReader::InvalidInlineEndTag", 0x100D0003>;
    // An attribute name that is not a name: the attribute as written, the element.
    using InvalidAttrName = ccError<Errors, "ccXmlReader::InvalidAttrName", 0x100D0004>;
    // An attribute name not followed by "=": the attribute, the element.
    using AttrNoEquals = ccError<Errors, "ccXmlReader::AttrNoEquals", 0x100D0005>;
    // An unquoted or duplicated attribute, "<" in a value, too many attributes: the element.
    using InvalidAttributes = ccError<Errors, "ccXmlReader::InvalidAttributes", 0x100D0006>;
    // The input ends inside an element: the element.
    using NoEndTag = ccError<Errors, "ccXmlReader::NoEndTag", 0x100D0007>;
    // An end tag's name: the name as written, the offending character.
    using InvalidEndTagNameChar = ccError<Errors, "ccXmlReader::InvalidEndTagNameChar", 0x100D0008>;
    // An end tag for another element: the open element, the end tag's name.
    using StartEndMismatch = ccError<Errors, "ccXmlReader::StartEndMismatch", 0x100D0009>;
    // Something other than white space before an end tag's ">": the name, the character.
    using InvalidEndTagEnd = ccError<Errors, "ccXmlReader::InvalidEndTagEnd", 0x100D000A>;
    // A numeric character reference with too many digits or beyond U+10FFFF: the reference.
    using TooManyEscapeDigits = ccError<Errors, "ccXmlReader::TooManyEscapeDigits", 0x100D000B>;
    // A reference that is neither a known entity nor digits up to ";": the reference.
    using EscapeNonDigit = ccError<Errors, "ccXmlReader::EscapeNonDigit", 0x100D000C>;
    // The input ends inside a tag, a comment, a CDATA section or a processing instruction.
    using EndOfInput = ccError<Errors, "ccXmlReader::EndOfInput", 0x100D000D>;
    // A structure this reader does not take: nesting deeper than allowed, a document type
    // declaration, content after the top element. The insert says which.
    using BadDocument = ccError<Errors, "ccXmlReader::BadDocument", 0x100D000E>;

    static constexpr size_t kDefaultMaxDepth = 256;
    static constexpr size_t kMaxAttributes = 64;

    enum class Token { StartElement, Text, EndElement, End };

    struct Attribute {
        std::string_view name;
        std::string_view value;  // as written, references not yet decoded
    };

    struct Position {
        size_t line;    // from 1
        size_t column;  // in bytes, from 1
    };

    explicit ccXmlReader(std::string_view document, size_t maxDepth = kDefaultMaxDepth);
    ccXmlReader(const ccXmlReader&) = delete;
    ccXmlReader& operator=(const ccXmlReader&) = delete;

    Token Next();
    Token Current() const noexcept { return token_; }

    // The element of the current StartElement or EndElement.
    std::string_view Name() const noexcept { return name_; }
    bool IsEmptyElement() const noexcept { return empty_; }
    std::span<const Attribute> Attributes() const noexcept { return attributes_; }
    // The attribute of the current start tag with that name; nullptr when it has none.
    const Attribute* FindAttribute(std::string_view name) const noexcept;
    // An attribute's value with its references decoded: a view of the document when it has
    // none, else of `scratch`.
    std::string_view Value(const Attribute& attribute, std::string& scratch) const;

    // The current Text as written (a CDATA section's content as it stands).
    std::string_view RawText() const noexcept { return text_; }
    // The current Text decoded: a view of the document when it holds no reference, else
    // of `scratch`.
    std::string_view Text(std::string& scratch) const;
    // Appends the current Text, decoded, to `out`.
    void AppendText(std::string& out) const;
    // Whether `text` is XML white space only (space, tab, CR, LF), or empty.
    static bool IsSpace(std::string_view text) noexcept;
    // Whether `text` is a name as this reader reads names (of elements and attributes).
    static bool IsName(std::string_view text) noexcept;

    // Elements open, the current StartElement's included (and an EndElement's not).
    size_t Depth() const noexcept { return open_.size(); }
    // After a StartElement: reads up to and including its EndElement, checking the syntax.
    void SkipElement();

    // Where the current token begins, and where a byte of the document is.
    Position Where() const noexcept { return PositionOf(tokenStart_); }
    Position PositionOf(const char* at) const noexcept;
    // "line 3, column 14".
    static std::string Describe(Position position);
    // Bytes of the document not read yet.
    size_t Remaining() const noexcept { return static_cast<size_t>(end_ - p_); }

private:
    enum class State { Prolog, Content, Epilog, Done };

    void StartTag();
    void EndTag();
    void SkipMarkup();  // a comment or processing instruction at p_
    void DecodeInto(std::string_view raw, std::string& out) const;
    void SkipSpace() noexcept;

    template <class Error>
    [[noreturn]] void Fail(const char* at, std::vector<std::string> inserts = {}) const;

    const char* begin_;
    const char* p_;
    const char* end_;
    size_t maxDepth_;
    State state_ = State::Prolog;
    Token token_ = Token::End;
    const char* tokenStart_;
    std::string_view name_;
    bool empty_ = false;
    bool pendingEnd_ = false;
    bool cdata_ = false;
    std::string_view text_;
    std::vector<Attribute> attributes_;
    std::vector<std::string_view> open_;
};
