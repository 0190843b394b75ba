#include "persist/ccXmlReader.h"

#include <algorithm>
#include <cstring>

namespace {

struct CharTables {
    uint8_t space[256];
    uint8_t nameStart[256];
    uint8_t name[256];
};

constexpr CharTables MakeCharTables() {
    CharTables t{};
    for (unsigned char c : {' ', '\t', '\r', '\n'}) t.space[c] = 1;
    for (int c = 'A'; c <= 'Z'; ++c) t.nameStart[c] = 1;
    for (int c = 'a'; c <= 'z'; ++c) t.nameStart[c] = 1;
    t.nameStart[static_cast<unsigned char>('_')] = t.nameStart[static_cast<unsigned char>(':')] = 1;
    for (int c = 0x80; c < 0x100; ++c) t.nameStart[c] = 1;
    for (int c = 0; c < 256; ++c) t.name[c] = t.nameStart[c];
    for (int c = '0'; c <= '9'; ++c) t.name[c] = 1;
    t.name[static_cast<unsigned char>('-')] = t.name[static_cast<unsigned char>('.')] = 1;
    return t;
}

constexpr CharTables kChars = MakeCharTables();

inline bool IsSpaceChar(char c) noexcept { return kChars.space[static_cast<unsigned char>(c)]; }
inline bool IsNameStart(char c) noexcept { return kChars.nameStart[static_cast<unsigned char>(c)]; }
inline bool IsNameChar(char c) noexcept { return kChars.name[static_cast<unsigned char>(c)]; }

// How a character appears in a message: itself in quotes when printable, else its code.
std::string CharText(char c) {
    const auto u = static_cast<unsigned char>(c);
    if (u > 0x20 && u < 0x7F) return std::string{'\'', c, '\''};
    static constexpr char kHex[] = "0123456789ABCDEF";
    return std::string{'0', 'x', kHex[u >> 4], kHex[u & 15]};
}

// A name as written, for a message: from `from` up to white space or markup, at most 64 bytes.
std::string RunText(const char* from, const char* end) {
    const char* p = from;
    while (p < end && p - from < 64 && !IsSpaceChar(*p) && *p != '>' && *p != '<' && *p != '/' && *p != '=') ++p;
    return std::string(from, static_cast<size_t>(p - from));
}

// A reference as written, for a message: from '&' up to and including ';', at most 16 bytes.
std::string ReferenceText(const char* from, const char* end) {
    const char* p = from;
    while (p < end && p - from < 16 && *p != ';') ++p;
    if (p < end && *p == ';') ++p;
    return std::string(from, static_cast<size_t>(p - from));
}

const char* Find(const char* p, const char* end, std::string_view what) noexcept {
    const auto found = std::string_view(p, static_cast<size_t>(end - p)).find(what);
    return found == std::string_view::npos ? nullptr : p + found;
}

void AppendUtf8(std::string& out, uint32_t code) {
    if (code < 0x80) {
        out.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (code >> 6)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (code >> 12)));
        out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (code >> 18)));
        out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    }
}

}  // namespace

ccXmlReader::ccXmlReader(std::string_view document, size_t maxDepth)
    : begin_(document.data()),
      p_(document.data()),
      end_(document.data() + document.size()),
      maxDepth_(maxDepth),
      tokenStart_(document.data()) {
    attributes_.reserve(8);
    open_.reserve(32);
    // A UTF-8 byte order mark says nothing the reader needs.
    if (document.size() >= 3 && document.substr(0, 3) == "\xEF\xBB\xBF") p_ += 3;
}

template <class Error>
void ccXmlReader::Fail(const char* at, std::vector<std::string> inserts) const {
    throw Error(Describe(PositionOf(at)), 0, std::move(inserts));
}

ccXmlReader::Token ccXmlReader::Next() {
    if (pendingEnd_) {
        // The end of an empty-element tag.
        pendingEnd_ = false;
        empty_ = false;
        attributes_.clear();
        token_ = Token::EndElement;
        open_.pop_back();
        if (open_.empty()) state_ = State::Epilog;
        return token_;
    }
    for (;;) {
        tokenStart_ = p_;
        if (state_ == State::Done) return token_ = Token::End;
        if (state_ != State::Content) {
            SkipSpace();
            tokenStart_ = p_;
            if (p_ == end_) {
                if (state_ == State::Prolog) Fail<NoStartTag>(p_);
                state_ = State::Done;
                return token_ = Token::End;
            }
            if (*p_ != '<') {
                if (state_ == State::Prolog) Fail<NoStartTag>(p_);
                Fail<BadDocument>(p_, {"text after the top element"});
            }
            if (end_ - p_ >= 2 && (p_[1] == '?' || p_[1] == '!')) {
                SkipMarkup();
                continue;
            }
            if (end_ - p_ >= 2 && p_[1] == '/') {
                if (state_ == State::Prolog) Fail<NoStartTag>(p_);
                Fail<BadDocument>(p_, {"an end tag after the top element"});
            }
            if (state_ == State::Epilog) Fail<BadDocument>(p_, {"a second top element"});
            StartTag();
            state_ = State::Content;
            return token_;
        }

        // An element left open is reported where it starts.
        if (p_ == end_) Fail<NoEndTag>(open_.back().data(), {std::string(open_.back())});
        if (*p_ != '<') {
            const void* lt = std::memchr(p_, '<', static_cast<size_t>(end_ - p_));
            if (!lt) Fail<NoEndTag>(open_.back().data(), {std::string(open_.back())});
            const char* stop = static_cast<const char*>(lt);
            text_ = std::string_view(p_, static_cast<size_t>(stop - p_));
            cdata_ = false;
            p_ = stop;
            return token_ = Token::Text;
        }
        if (end_ - p_ < 2) Fail<EndOfInput>(end_);
        const char second = p_[1];
        if (second == '/') {
            EndTag();
            return token_;
        }
        if (second == '!' && end_ - p_ >= 9 && std::memcmp(p_, "<![CDATA[", 9) == 0) {
            const char* close = Find(p_ + 9, end_, "]]>");
            if (!close) Fail<EndOfInput>(end_);
            text_ = std::string_view(p_ + 9, static_cast<size_t>(close - (p_ + 9)));
            cdata_ = true;
            p_ = close + 3;
            return token_ = Token::Text;
        }
        if (second == '!' || second == '?') {
            SkipMarkup();
            continue;
        }
        StartTag();
        return token_;
    }
}

void ccXmlReader::SkipMarkup() {
    // p_ is at "<?" or "<!".
    if (p_[1] == '?') {
        const char* close = Find(p_ + 2, end_, "?>");
        if (!close) Fail<EndOfInput>(end_);
        p_ = close + 2;
        return;
    }
    if (end_ - p_ >= 4 && std::memcmp(p_, "<!--", 4) == 0) {
        const char* close = Find(p_ + 4, end_, "-->");
        if (!close) Fail<EndOfInput>(end_);
        p_ = close + 3;
        return;
    }
    if (end_ - p_ < 4) Fail<EndOfInput>(end_);
    Fail<BadDocument>(p_, {"a declaration (<" + RunText(p_ + 1, end_) + ")"});
}

void ccXmlReader::StartTag() {
    // p_ is at '<'.
    const char* nameStart = ++p_;
    if (p_ == end_) Fail<EndOfInput>(p_);
    if (!IsNameStart(*p_)) Fail<InvalidTagNameChar>(p_, {RunText(nameStart, end_), CharText(*p_)});
    while (p_ < end_ && IsNameChar(*p_)) ++p_;
    if (p_ == end_) Fail<EndOfInput>(p_);
    if (!IsSpaceChar(*p_) && *p_ != '/' && *p_ != '>')
        Fail<InvalidTagNameChar>(p_, {RunText(nameStart, end_), CharText(*p_)});
    const std::string_view name(nameStart, static_cast<size_t>(p_ - nameStart));
    if (open_.size() >= maxDepth_)
        Fail<BadDocument>(nameStart, {"elements nested deeper than " + std::to_string(maxDepth_) + " levels"});

    attributes_.clear();
    bool empty = false;
    for (;;) {
        SkipSpace();
        if (p_ == end_) Fail<EndOfInput>(p_);
        if (*p_ == '>') {
            ++p_;
            break;
        }
        if (*p_ == '/') {
            ++p_;
            if (p_ == end_) Fail<EndOfInput>(p_);
            if (*p_ != '>') Fail<InvalidInlineEndTag>(p_, {std::string(name)});
            ++p_;
            empty = true;
            break;
        }
        const char* attributeStart = p_;
        if (!IsNameStart(*p_)) Fail<InvalidAttrName>(p_, {RunText(attributeStart, end_), std::string(name)});
        while (p_ < end_ && IsNameChar(*p_)) ++p_;
        if (p_ == end_) Fail<EndOfInput>(p_);
        // A name that ends the tag has no value; any other character spoils the name.
        if (*p_ == '/' || *p_ == '>') Fail<AttrNoEquals>(p_, {RunText(attributeStart, end_), std::string(name)});
        if (!IsSpaceChar(*p_) && *p_ != '=')
            Fail<InvalidAttrName>(p_, {RunText(attributeStart, end_), std::string(name)});
        const std::string_view attribute(attributeStart, static_cast<size_t>(p_ - attributeStart));
        SkipSpace();
        if (p_ == end_) Fail<EndOfInput>(p_);
        if (*p_ != '=') Fail<AttrNoEquals>(p_, {std::string(attribute), std::string(name)});
        ++p_;
        SkipSpace();
        if (p_ == end_) Fail<EndOfInput>(p_);
        const char quote = *p_;
        if (quote != '"' && quote != '\'') Fail<InvalidAttributes>(p_, {std::string(name)});
        const char* valueStart = ++p_;
        const void* close = std::memchr(p_, quote, static_cast<size_t>(end_ - p_));
        if (!close) Fail<EndOfInput>(end_);
        p_ = static_cast<const char*>(close);
        const std::string_view value(valueStart, static_cast<size_t>(p_ - valueStart));
        if (const void* lt = std::memchr(value.data(), '<', value.size()))
            Fail<InvalidAttributes>(static_cast<const char*>(lt), {std::string(name)});
        ++p_;
        if (attributes_.size() == kMaxAttributes) Fail<InvalidAttributes>(attributeStart, {std::string(name)});
        for (const Attribute& other : attributes_)
            if (other.name == attribute) Fail<InvalidAttributes>(attributeStart, {std::string(name)});
        attributes_.push_back(Attribute{attribute, value});
        if (p_ == end_) Fail<EndOfInput>(p_);
        if (!IsSpaceChar(*p_) && *p_ != '/' && *p_ != '>') Fail<InvalidAttributes>(p_, {std::string(name)});
    }
    open_.push_back(name);
    name_ = name;
    empty_ = empty;
    pendingEnd_ = empty;
    token_ = Token::StartElement;
}

void ccXmlReader::EndTag() {
    // p_ is at "</".
    p_ += 2;
    const char* nameStart = p_;
    if (p_ == end_) Fail<EndOfInput>(p_);
    if (!IsNameStart(*p_)) Fail<InvalidEndTagNameChar>(p_, {RunText(nameStart, end_), CharText(*p_)});
    while (p_ < end_ && IsNameChar(*p_)) ++p_;
    if (p_ == end_) Fail<EndOfInput>(p_);
    const std::string_view name(nameStart, static_cast<size_t>(p_ - nameStart));
    if (IsSpaceChar(*p_)) {
        SkipSpace();
        if (p_ == end_) Fail<EndOfInput>(p_);
        if (*p_ != '>') Fail<InvalidEndTagEnd>(p_, {std::string(name), CharText(*p_)});
    } else if (*p_ != '>') {
        Fail<InvalidEndTagNameChar>(p_, {RunText(nameStart, end_), CharText(*p_)});
    }
    if (name != open_.back()) Fail<StartEndMismatch>(nameStart, {std::string(open_.back()), std::string(name)});
    ++p_;
    open_.pop_back();
    if (open_.empty()) state_ = State::Epilog;
    name_ = name;
    empty_ = false;
    attributes_.clear();
    token_ = Token::EndElement;
}

void ccXmlReader::SkipSpace() noexcept {
    while (p_ < end_ && IsSpaceChar(*p_)) ++p_;
}

const ccXmlReader::Attribute* ccXmlReader::FindAttribute(std::string_view name) const noexcept {
    for (const Attribute& attribute : attributes_)
        if (attribute.name == name) return &attribute;
    return nullptr;
}

std::string_view ccXmlReader::Value(const Attribute& attribute, std::string& scratch) const {
    if (!std::memchr(attribute.value.data(), '&', attribute.value.size())) return attribute.value;
    scratch.clear();
    DecodeInto(attribute.value, scratch);
    return scratch;
}

std::string_view ccXmlReader::Text(std::string& scratch) const {
    if (cdata_ || !std::memchr(text_.data(), '&', text_.size())) return text_;
    scratch.clear();
    DecodeInto(text_, scratch);
    return scratch;
}

void ccXmlReader::AppendText(std::string& out) const {
    if (cdata_)
        out.append(text_);
    else
        DecodeInto(text_, out);
}

bool ccXmlReader::IsSpace(std::string_view text) noexcept {
    return std::all_of(text.begin(), text.end(), IsSpaceChar);
}

bool ccXmlReader::IsName(std::string_view text) noexcept {
    return !text.empty() && IsNameStart(text.front()) && std::all_of(text.begin(), text.end(), IsNameChar);
}

void ccXmlReader::SkipElement() {
    const size_t depth = open_.size();
    while (open_.size() >= depth) {
        if (Next() == Token::End) return;
    }
}

void ccXmlReader::DecodeInto(std::string_view raw, std::string& out) const {
    const char* p = raw.data();
    const char* end = p + raw.size();
    while (p < end) {
        const void* amp = std::memchr(p, '&', static_cast<size_t>(end - p));
        const char* stop = amp ? static_cast<const char*>(amp) : end;
        out.append(p, static_cast<size_t>(stop - p));
        if (!amp) return;
        const char* reference = stop;
        p = reference + 1;
        if (p < end && *p == '#') {
            ++p;
            const bool hex = p < end && *p == 'x';
            if (hex) ++p;
            const char* digits = p;
            uint32_t code = 0;
            while (p < end) {
                const char c = *p;
                int digit;
                if (c >= '0' && c <= '9')
                    digit = c - '0';
                else if (hex && c >= 'a' && c <= 'f')
                    digit = c - 'a' + 10;
                else if (hex && c >= 'A' && c <= 'F')
                    digit = c - 'A' + 10;
                else
                    break;
                // Seven decimal or six hexadecimal digits reach past U+10FFFF already.
                if (p - digits == (hex ? 6 : 7)) Fail<TooManyEscapeDigits>(reference, {ReferenceText(reference, end)});
                code = code * (hex ? 16 : 10) + static_cast<uint32_t>(digit);
                ++p;
            }
            if (p == digits || p == end || *p != ';')
                Fail<EscapeNonDigit>(p < end ? p : reference, {ReferenceText(reference, end)});
            if (code > 0x10FFFF) Fail<TooManyEscapeDigits>(reference, {ReferenceText(reference, end)});
            AppendUtf8(out, code);
            ++p;
            continue;
        }
        const char* nameEnd = p;
        while (nameEnd < end && nameEnd - p < 5 && *nameEnd != ';') ++nameEnd;
        const std::string_view entity(p, static_cast<size_t>(nameEnd - p));
        char c = 0;
        if (nameEnd < end && *nameEnd == ';') {
            if (entity == "lt") c = '<';
            else if (entity == "gt") c = '>';
            else if (entity == "amp") c = '&';
            else if (entity == "quot") c = '"';
            else if (entity == "apos") c = '\'';
        }
        if (!c) Fail<EscapeNonDigit>(reference, {ReferenceText(reference, end)});
        out.push_back(c);
        p = nameEnd + 1;
    }
}

ccXmlReader::Position ccXmlReader::PositionOf(const char* at) const noexcept {
    if (at < begin_) at = begin_;
    if (at > end_) at = end_;
    Position position{1, 1};
    const char* lineStart = begin_;
    for (const char* p = begin_; p < at; ++p) {
        if (*p == '\n') {
            ++position.line;
            lineStart = p + 1;
        }
    }
    position.column = static_cast<size_t>(at - lineStart) + 1;
    return position;
}

std::string ccXmlReader::Describe(Position position) {
    return "line " + std::to_string(position.line) + ", column " + std::to_string(position.column);
}
