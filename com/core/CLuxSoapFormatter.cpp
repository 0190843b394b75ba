#include "com/core/CLuxSoapFormatter.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <deque>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "com/core/ArchiveWriter.h"
#include "com/core/CLuxArchive.h"
#include "com/core/FormatterErrors.h"
#include "com/core/FormatterPreamble.h"
#include "com/core/MessageTable.h"
#include "com/core/MethodGuard.h"
#include "com/core/ObjectGraphLoader.h"
#include "com/core/ObjectGraphSaver.h"
#include "com/core/XmlFormatterCommon.h"
#include "com/core/ccCOMError.h"
#include "persist/ccArchive.h"
#include "persist/ccBase64.h"
#include "persist/ccXmlReader.h"
#include "persist/ccXmlValueText.h"
#include "persist/ccXmlWriter.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ErrorInfo.h"
#include "platform/MemoryStream.h"
#include "platform/SafeArray.h"
#include "platform/Variant.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

namespace {

const ClassRegistrar<CLuxSoapFormatter> registrar;

using namespace xmlformat;

// Elements and attributes, with the prefixes this formatter writes and reads (the reader
// does not resolve namespace declarations: the prefixes are part of the format).
constexpr std::string_view kEnvelope = "SOAP-ENV:Envelope";
constexpr std::string_view kHeader = "SOAP-ENV:Header";
constexpr std::string_view kBody = "SOAP-ENV:Body";
constexpr std::string_view kClassPrefix = "lux:";
constexpr std::string_view kArrayItem = "item";
constexpr std::string_view kId = "id";
constexpr std::string_view kHref = "href";
constexpr std::string_view kClass = "lux:class";
constexpr std::string_view kType = "xsi:type";
constexpr std::string_view kNil = "xsi:nil";
constexpr std::string_view kArrayType = "SOAP-ENC:arrayType";
constexpr std::string_view kLowerBounds = "lux:lowerBounds";
constexpr std::string_view kEncodingStyle = "SOAP-ENV:encodingStyle";
// Values of attributes.
constexpr std::string_view kArrayTypeName = "SOAP-ENC:Array";
constexpr std::string_view kBase64Type = "xsd:base64Binary";
constexpr std::string_view kRefPrefix = "ref-";
constexpr std::string_view kNullClass = "NULL";
// The tag of an object whose class has no name that is an XML name.
constexpr std::string_view kPlainObjectTag = "Object";

// The fewest bytes an element takes: "<a/>".
constexpr size_t kMinimumElementSize = 4;
// Most dimensions an array may have: the descriptor counts them in 16 bits.
constexpr size_t kMaxDimensions = 0xFFFF;

// ---------------------------------------------------------------------------------------
// Types

struct TypeName {
    VARTYPE vt;
    std::string_view name;
};

// XML Schema's names where it has one, ours (lux:) where it has none.
constexpr TypeName kTypeNames[] = {
    {VT_EMPTY, "lux:empty"},         {VT_NULL, "lux:null"},          {VT_I1, "xsd:byte"},
    {VT_UI1, "xsd:unsignedByte"},    {VT_I2, "xsd:short"},           {VT_UI2, "xsd:unsignedShort"},
    {VT_I4, "xsd:int"},              {VT_UI4, "xsd:unsignedInt"},    {VT_I8, "xsd:long"},
    {VT_UI8, "xsd:unsignedLong"},    {VT_INT, "lux:int"},            {VT_UINT, "lux:uint"},
    {VT_R4, "xsd:float"},            {VT_R8, "xsd:double"},          {VT_CY, "xsd:decimal"},
    {VT_DATE, "xsd:dateTime"},       {VT_BOOL, "xsd:boolean"},       {VT_ERROR, "lux:error"},
    {VT_BSTR, "xsd:string"},         {VT_VARIANT, "xsd:anyType"},    {VT_DISPATCH, "lux:object"},
    {VT_UNKNOWN, "lux:unknown"},
};

std::string_view NameOfType(VARTYPE vt) noexcept {
    for (const TypeName& type : kTypeNames)
        if (type.vt == vt) return type.name;
    return {};
}

std::optional<VARTYPE> TypeOfName(std::string_view name) noexcept {
    for (const TypeName& type : kTypeNames)
        if (type.name == name) return type.vt;
    return std::nullopt;
}

// The type a value's text gives when its element has no xsi:type: a decimal integer in
// the 32-bit range is an int, a decimal with a point or an exponent a double, "true" and
// "false" booleans, anything else a string. The writer adds xsi:type exactly where this
// reading of its own text would give another type.
VARTYPE TypeOfText(std::string_view text) noexcept {
    if (text.empty()) return VT_BSTR;
    const char first = text[0];
    if (first == 't') return text == "true" ? VT_BOOL : VT_BSTR;
    if (first == 'f') return text == "false" ? VT_BOOL : VT_BSTR;
    if (first != '-' && (first < '0' || first > '9')) return VT_BSTR;
    size_t pos = first == '-' ? 1 : 0;
    const auto digits = [&] {
        const size_t start = pos;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') ++pos;
        return pos - start;
    };
    const size_t whole = digits();
    if (whole == 0) return VT_BSTR;
    if (pos == text.size()) {
        if (whole > 10) return VT_BSTR;
        int64_t value = 0;
        for (size_t i = first == '-' ? 1 : 0; i < text.size(); ++i) value = value * 10 + (text[i] - '0');
        if (first == '-') value = -value;
        return value >= std::numeric_limits<int32_t>::min() && value <= std::numeric_limits<int32_t>::max()
                   ? VT_I4
                   : VT_BSTR;
    }
    bool real = false;
    if (text[pos] == '.') {
        ++pos;
        if (digits() == 0) return VT_BSTR;
        real = true;
    }
    if (pos < text.size() && (text[pos] == 'e' || text[pos] == 'E')) {
        ++pos;
        if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) ++pos;
        if (digits() == 0) return VT_BSTR;
        real = true;
    }
    return real && pos == text.size() ? VT_R8 : VT_BSTR;
}

// "ref-N" at `out` (16 bytes); returns its end.
char* FormatRef(char* out, uint32_t id) noexcept {
    std::memcpy(out, kRefPrefix.data(), kRefPrefix.size());
    return ccXmlValueText::FormatUnsigned(out + kRefPrefix.size(), id);
}

// ---------------------------------------------------------------------------------------
// Saving

class SoapSaver final : public ArchiveWriter {
public:
    SoapSaver(ccXmlWriter& xml, ObjectGraphSaver& saver) noexcept : xml_(xml), saver_(saver) {}

    // The root and, after it, every object it reaches, each once, in the order first met.
    void WriteBody(IUnknown* root) {
        Queue(root);
        for (size_t next = 0; next < queue_.size(); ++next) {
            Queued object = std::move(queue_[next]);
            WriteObject(object);
        }
    }

    void WriteEntry(std::string_view name, const VARIANT& value) override {
        if (!ccXmlWriter::IsName(name) || name.find(':') != std::string_view::npos)
            CantSave("the value name \"" + Excerpt(name) + "\" cannot be an element name");
        WriteValue(name, value);
    }

private:
    struct Queued {
        ComPtr<IUnknown> object;
        ObjectGraphSaver::Visit visit;
    };

    // Numbers an object met for the first time and puts it in line; its number either way.
    uint32_t Queue(IUnknown* object) {
        ObjectGraphSaver::Visit visit = saver_.Enter(object);
        const uint32_t id = visit.id;
        if (visit.first) queue_.push_back(Queued{ComPtr<IUnknown>(object), std::move(visit)});
        return id;
    }

    // The element name of a class ("lux:LuxCollection" for Tessaly.LuxCollection.1), made
    // unique within the document; `first` tells whether the class is new to it.
    std::string_view TagOf(const std::string& identity, bool& first) {
        const auto found = tags_.find(identity);
        if (found != tags_.end()) {
            first = false;
            return found->second;
        }
        first = true;
        std::string_view name = identity;
        // The last part of the ProgID that is not its version.
        while (!name.empty()) {
            const size_t dot = name.rfind('.');
            const std::string_view part = dot == std::string_view::npos ? name : name.substr(dot + 1);
            if (!part.empty() && std::all_of(part.begin(), part.end(), [](char c) { return c >= '0' && c <= '9'; })) {
                name = dot == std::string_view::npos ? std::string_view() : name.substr(0, dot);
                continue;
            }
            name = part;
            break;
        }
        if (identity == kNullClass || !ccXmlWriter::IsName(name) || name.find(':') != std::string_view::npos)
            name = kPlainObjectTag;
        std::string tag = std::string(kClassPrefix) + std::string(name);
        for (int suffix = 2; usedTags_.contains(tag); ++suffix)
            tag = std::string(kClassPrefix) + std::string(name) + "-" + std::to_string(suffix);
        usedTags_.insert(tag);
        return tags_.emplace(identity, std::move(tag)).first->second;
    }

    void WriteObject(const Queued& queued) {
        const ObjectGraphSaver::Visit& visit = queued.visit;
        const std::string identity = visit.progId.empty() ? std::string(kNullClass) : visit.progId;
        owner_ = visit.progId.empty() ? std::string_view(FormatterErrors::kNoProgIdName)
                                      : std::string_view(visit.progId);
        bool firstOfClass = false;
        const std::string_view tag = TagOf(identity, firstOfClass);
        xml_.StartElement(tag);
        char ref[24];
        xml_.Attribute(kId, std::string_view(ref, FormatRef(ref, visit.id) - ref));
        if (firstOfClass) xml_.Attribute(kClass, identity);
        if (visit.streamPersisted) {
            const std::vector<uint8_t> bytes = saver_.SaveStream(queued.object.get());
            xml_.Attribute(kType, kBase64Type);
            xml_.Base64(bytes.data(), bytes.size(), false);
        } else {
            saver_.SaveEntries(queued.object.get(), *this);
        }
        xml_.EndElement();
    }

    [[noreturn]] void CantSave(std::string reason) const {
        FormatterErrors::Throw(ids_LuxFormatter_CantSaveObject_2, {std::string(owner_), std::move(reason)});
    }

    // Every element below the one about to start must still be readable.
    void CheckDepth() const {
        if (xml_.Depth() + 1 >= CLuxSoapFormatter::kMaxDepth)
            CantSave("arrays are nested deeper than " + std::to_string(CLuxSoapFormatter::kMaxDepth) + " levels");
    }

    // An object value: a reference to the object's own element in the body.
    void WriteReference(std::string_view element, IUnknown* object) {
        xml_.StartElement(element);
        if (!object) {
            xml_.Attribute(kNil, "true");
        } else {
            char href[24];
            href[0] = '#';
            xml_.Attribute(kHref, std::string_view(href, FormatRef(href + 1, Queue(object)) - href));
        }
        xml_.EndElement();
    }

    void WriteValue(std::string_view element, const VARIANT& given) {
        VARIANT value;
        if (std::string refused = Dereferenced(given, value); !refused.empty()) CantSave(std::move(refused));
        if (value.vt & VT_ARRAY) {
            WriteArray(element, value.vt, value.parray);
            return;
        }
        switch (value.vt) {
            case VT_EMPTY:
            case VT_NULL:
                xml_.StartElement(element);
                xml_.Attribute(kType, NameOfType(value.vt));
                xml_.EndElement();
                return;
            case VT_BSTR: {
                const std::string_view text = BstrView(value.bstrVal);
                xml_.StartElement(element);
                if (TypeOfText(text) != VT_BSTR) xml_.Attribute(kType, NameOfType(VT_BSTR));
                if (!text.empty()) xml_.Text(text);
                xml_.EndElement();
                return;
            }
            case VT_DISPATCH: WriteReference(element, value.pdispVal); return;
            case VT_UNKNOWN: WriteReference(element, value.punkVal); return;
            default: {
                if (!NumberValueSize(value.vt)) CantSave("a value of type " + TypeText(value.vt) + " cannot be stored");
                char text[ccXmlValueText::kMaxText];
                const std::string_view number(text, FormatNumber(value.vt, &value.llVal, text, BooleanText::Word) - text);
                xml_.StartElement(element);
                if (TypeOfText(number) != value.vt) xml_.Attribute(kType, NameOfType(value.vt));
                xml_.RawText(number);
                xml_.EndElement();
                return;
            }
        }
    }

    void WriteArray(std::string_view element, VARTYPE vt, SAFEARRAY* array) {
        const VARTYPE type = vt & ~VT_ARRAY;
        if (SafeArrayElementSize(type) == 0) CantSave("an array of type " + TypeText(vt) + " cannot be stored");
        CheckDepth();
        xml_.StartElement(element);
        if (!array) {
            // No dimensions at all: the null array.
            xml_.Attribute(kType, type == VT_UI1 ? kBase64Type : kArrayTypeName);
            xml_.Attribute(kArrayType, std::string(NameOfType(type)) + "[]");
            xml_.EndElement();
            return;
        }
        VARTYPE stored = VT_EMPTY;
        if (FAILED(SafeArrayGetVartype(array, &stored)) || stored != type || array->cbElements != SafeArrayElementSize(type))
            CantSave("an array value of type " + TypeText(vt) + " holds elements of another type");
        // SOAP counts dimensions with the right-most varying fastest; a SAFEARRAY's
        // left-most index varies fastest: the same memory order with the list reversed.
        const UINT dims = SafeArrayGetDim(array);
        std::string counts;
        std::string lowers;
        bool zeroBased = true;
        for (UINT dim = dims; dim >= 1; --dim) {
            LONG lower = 0;
            LONG upper = 0;
            ThrowIfFailed(SafeArrayGetLBound(array, dim, &lower));
            ThrowIfFailed(SafeArrayGetUBound(array, dim, &upper));
            if (dim < dims) {
                counts += ',';
                lowers += ',';
            }
            counts += std::to_string(int64_t(upper) - int64_t(lower) + 1);
            lowers += std::to_string(lower);
            zeroBased = zeroBased && lower == 0;
        }
        const size_t count = SafeArrayElementCount(array);
        const ArrayAccess access(array);
        const size_t size = SafeArrayElementSize(type);
        if (type == VT_UI1) {
            // The large-block path: straight from the array's memory into the buffer.
            xml_.Attribute(kType, kBase64Type);
            if (dims != 1 || !zeroBased) {
                xml_.Attribute(kArrayType, std::string(NameOfType(type)) + "[" + counts + "]");
                if (!zeroBased) xml_.Attribute(kLowerBounds, lowers);
            }
            xml_.Base64(access.data(), count, false);
            xml_.EndElement();
            return;
        }
        xml_.Attribute(kType, kArrayTypeName);
        xml_.Attribute(kArrayType, std::string(NameOfType(type)) + "[" + counts + "]");
        if (!zeroBased) xml_.Attribute(kLowerBounds, lowers);
        if (NumberValueSize(type)) {
            for (size_t i = 0; i < count; ++i) {
                xml_.StartElement(kArrayItem);
                char* out = xml_.RawSpace(ccXmlValueText::kMaxText);
                xml_.CommitRaw(FormatNumber(type, access.data() + i * size, out, BooleanText::Word));
                xml_.EndElement();
            }
        } else {
            for (size_t i = 0; i < count; ++i) {
                const uint8_t* at = access.data() + i * size;
                switch (type) {
                    case VT_BSTR: {
                        // The array's type says string: no xsi:type on its items.
                        const BSTR text = Load<BSTR>(at);
                        xml_.StartElement(kArrayItem);
                        if (SysStringLen(text) > 0) xml_.Text(BstrView(text));
                        xml_.EndElement();
                        break;
                    }
                    case VT_VARIANT: WriteValue(kArrayItem, *reinterpret_cast<const VARIANT*>(at)); break;
                    default: WriteReference(kArrayItem, Load<IUnknown*>(at)); break;
                }
            }
        }
        xml_.EndElement();
    }

    ccXmlWriter& xml_;
    ObjectGraphSaver& saver_;
    std::vector<Queued> queue_;                             // objects met, in the order of their numbers
    std::unordered_map<std::string, std::string> tags_;     // class identity -> element name
    std::unordered_set<std::string> usedTags_;
    std::string_view owner_ = FormatterErrors::kNoProgIdName;  // the object being saved, for messages
};

// ---------------------------------------------------------------------------------------
// Loading

struct ElementAttributes {
    const ccXmlReader::Attribute* id = nullptr;
    const ccXmlReader::Attribute* href = nullptr;
    const ccXmlReader::Attribute* classId = nullptr;
    const ccXmlReader::Attribute* type = nullptr;
    const ccXmlReader::Attribute* nil = nullptr;
    const ccXmlReader::Attribute* arrayType = nullptr;
    const ccXmlReader::Attribute* lowerBounds = nullptr;
};

class SoapLoader : private ElementReader {
public:
    SoapLoader(ccXmlReader& xml, ObjectGraphLoader& loader) noexcept : ElementReader(xml, loader) {}

    // No object takes its values before the whole document has been read and every
    // reference resolved: a document that fails anywhere has run no Persist, so it leaves an
    // existing root as it was and no cycle among the objects made for it.
    ComPtr<IDispatch> ReadDocument() {
        xml_.Next();  // the top element: anything else is the reader's failure
        if (xml_.Name() != kEnvelope || xml_.IsEmptyElement())
            FormatterErrors::Throw(ids_LuxFormatter_InvalidNodeObject);
        ScanAttributes(kEnvelope);
        bool bodyRead = false;
        for (bool closed = false; !closed;) {
            switch (xml_.Next()) {
                case ccXmlReader::Token::Text: IgnoreText(kEnvelope); break;
                case ccXmlReader::Token::StartElement: {
                    const std::string_view name = xml_.Name();
                    if (name == kBody && !bodyRead) {
                        ScanAttributes(name);
                        ReadBody();
                        bodyRead = true;
                    } else {
                        if (name != kHeader || bodyRead)
                            loader_.Warn("The element " + Located(name) + " of the envelope was ignored.");
                        xml_.SkipElement();
                    }
                    break;
                }
                default: closed = true; break;
            }
        }
        if (!bodyRead || pending_.empty()) FormatterErrors::Throw(ids_LuxFormatter_InvalidNodeObject);
        xml_.Next();  // the end of the document, or the reader's failure
        ResolveReferences();
        // The objects after those they hold: in a tree, the body lists an object after the
        // one that refers to it, so the last first, the root last. Should one fail, the
        // loader resets those it made, which breaks the cycles among them.
        ComPtr<CLuxArchive> archive;
        for (auto object = pending_.rbegin(); object != pending_.rend(); ++object) {
            if (object->streamed) {
                loader_.LoadStream(object->object, object->bytes);
                continue;
            }
            archive = loader_.NewArchive();
            for (size_t i = object->firstEntry; i < object->firstEntry + object->entryCount; ++i) {
                Entry& entry = entries_[i];
                try {
                    archive->AddEntry(entry.name, std::move(entry.value));
                } catch (const ccArchive::Duplicate&) {
                    loader_.Warn("The value " + Located(entry.name) + " of " + std::string(object->progId) +
                                 " (object " + std::to_string(object->id) + ") is stored twice; the second one was skipped.");
                }
            }
            loader_.LoadEntries(object->object, *archive);
            loader_.Recycle(std::move(archive));
        }
        return loader_.Finish();
    }

private:
    struct Entry {
        std::string_view name;
        Variant value;
    };

    // An object read and made, waiting for the end of the document to take its values.
    struct Pending {
        IDispatch* object = nullptr;  // kept alive by the loader
        uint32_t id = 0;
        std::string_view progId;
        bool streamed = false;
        std::vector<uint8_t> bytes;   // stream-persisted: its saved bytes
        size_t firstEntry = 0;        // archive-persisted: its values in entries_
        size_t entryCount = 0;
    };

    // A reference to an object not read yet, filled in once the body has been read.
    struct Forward {
        void* slot = nullptr;  // the VARIANT, or the element of an array of objects
        bool variant = true;
        uint32_t id = 0;
        std::string_view text;  // the href as written, for messages
    };

    std::string_view ValueOf(const ccXmlReader::Attribute* attribute, std::string& scratch) const {
        return xml_.Value(*attribute, scratch);
    }

    ElementAttributes ScanAttributes(std::string_view element) {
        ElementAttributes found;
        for (const ccXmlReader::Attribute& attribute : xml_.Attributes()) {
            const std::string_view name = attribute.name;
            if (name == kId) found.id = &attribute;
            else if (name == kHref) found.href = &attribute;
            else if (name == kType) found.type = &attribute;
            else if (name == kArrayType) found.arrayType = &attribute;
            else if (name == kClass) found.classId = &attribute;
            else if (name == kNil) found.nil = &attribute;
            else if (name == kLowerBounds) found.lowerBounds = &attribute;
            else if (name != "xmlns" && !name.starts_with("xmlns:") && name != kEncodingStyle)
                loader_.Warn("The attribute " + std::string(name) + " of the element " + Located(element) +
                             " is not known and was ignored.");
        }
        return found;
    }

    // "ref-N" with N from `lowest`.
    uint32_t ParseId(std::string_view element, std::string_view text, uint32_t lowest) const {
        std::optional<uint64_t> id;
        if (text.starts_with(kRefPrefix))
            id = ccXmlValueText::ParseUnsigned(text.substr(kRefPrefix.size()), std::numeric_limits<int32_t>::max());
        if (!id || *id < lowest || text.substr(kRefPrefix.size()).starts_with('+') ||
            ccXmlValueText::Trim(text) != text)
            FormatterErrors::Throw(ids_LuxFormatter_InvalidID_2, {Excerpt(text), Located(element)});
        return static_cast<uint32_t>(*id);
    }

    // The body: one element per object, the root first.
    void ReadBody() {
        if (xml_.IsEmptyElement()) {
            xml_.Next();
            return;
        }
        for (;;) {
            switch (xml_.Next()) {
                case ccXmlReader::Token::Text: IgnoreText(kBody); break;
                case ccXmlReader::Token::StartElement: ReadObject(); break;
                default: return;
            }
        }
    }

    void ReadObject() {
        const std::string_view element = xml_.Name();
        const ElementAttributes attributes = ScanAttributes(element);
        if (!element.starts_with(kClassPrefix) || element.size() == kClassPrefix.size())
            FormatterErrors::Throw(ids_LuxFormatter_InvalidNodeObject);
        if (!attributes.id || attributes.href || attributes.nil || attributes.arrayType || attributes.lowerBounds)
            InvalidAttributes(element);
        std::string scratch;
        bool streamed = false;
        if (attributes.type) {
            if (ValueOf(attributes.type, scratch) != kBase64Type) InvalidAttributes(element);
            streamed = true;
        }
        const std::string_view idText = ValueOf(attributes.id, scratch);
        const uint32_t id = ParseId(element, idText, 1);
        if (Known(id))
            FormatterErrors::Throw(ids_LuxFormatter_DuplicateID_2, {Excerpt(idText), Located(element)});
        // The class: named on the first element of its tag, known by the tag after that.
        std::string_view progId;
        if (attributes.classId) {
            std::string classScratch;
            progId = ValueOf(attributes.classId, classScratch);
            if (progId.empty()) InvalidAttributes(element);
            if (progId.data() == classScratch.data()) progId = KeepText(std::move(classScratch));
            const auto [known, added] = classes_.emplace(element, progId);
            if (!added && known->second != progId) InvalidAttributes(element);
        } else {
            const auto known = classes_.find(element);
            if (known == classes_.end())
                FormatterErrors::Throw(ids_LuxFormatter_CantCreateObject_1,
                                       {Located(element) + ", whose class is not named before it"});
            progId = known->second;
        }
        if (progId == kNullClass) {
            // An object that named no class when it was saved cannot be made again.
            if (pending_.empty()) FormatterErrors::Throw(ids_LuxFormatter_InvalidNodeObject);
            loader_.Warn("The element " + Located(element) + " holds an " + FormatterErrors::kNoProgIdName +
                         "; it was loaded as Nothing.");
            Remember(id, kNothing);
            xml_.SkipElement();
            return;
        }
        // In place before its values are read, so that it may refer to itself; no other
        // object is read until this one ends.
        IDispatch* object = loader_.Create(progId, id);
        reader_ = pending_.size();
        Remember(id, reader_);
        pending_.push_back(Pending{object, id, progId, streamed, {}, entries_.size(), 0});
        if (streamed) {
            std::string text;
            const std::string_view encoded = ReadText(element, text);
            const size_t size = DecodedSize(element, encoded, kAnySize);
            std::vector<uint8_t> bytes(size);
            Decode(element, encoded, bytes.data(), size);
            pending_.back().bytes = std::move(bytes);
        } else {
            ReadEntries(element);
            pending_.back().entryCount = entries_.size() - pending_.back().firstEntry;
        }
    }

    // Text that must outlive the scratch it was decoded into.
    std::string_view KeepText(std::string text) {
        kept_.push_back(std::move(text));
        return kept_.back();
    }

    void ReadEntries(std::string_view element) {
        if (xml_.IsEmptyElement()) {
            xml_.Next();
            return;
        }
        bool warned = false;
        for (;;) {
            switch (xml_.Next()) {
                case ccXmlReader::Token::Text:
                    if (!warned && !ccXmlReader::IsSpace(xml_.RawText())) {
                        IgnoreText(element);
                        warned = true;
                    }
                    break;
                case ccXmlReader::Token::StartElement: {
                    const std::string_view name = xml_.Name();
                    Variant value = ReadValue();
                    entries_.push_back(Entry{name, std::move(value)});
                    PlaceForward(entries_.back().value.ptr(), true);
                    break;
                }
                default: return;
            }
        }
    }

    // A forward reference just read goes to `slot` once resolved.
    void PlaceForward(void* slot, bool variant) noexcept {
        if (!openForward_) return;
        forwards_[*openForward_].slot = slot;
        forwards_[*openForward_].variant = variant;
        openForward_.reset();
    }

    Variant ReadValue() {
        const std::string_view element = xml_.Name();
        const ElementAttributes attributes = ScanAttributes(element);
        if (attributes.id || attributes.classId) InvalidAttributes(element);
        if (attributes.href || attributes.nil) return ReadReference(element, attributes);
        std::string scratch;
        if (attributes.arrayType || attributes.lowerBounds) return ReadArray(element, attributes);
        if (attributes.type) {
            const std::string_view type = ValueOf(attributes.type, scratch);
            if (type == kArrayTypeName || type == kBase64Type) return ReadArray(element, attributes);
        }
        return ReadScalar(element, attributes);
    }

    Variant ReadReference(std::string_view element, const ElementAttributes& attributes) {
        if (attributes.type || attributes.arrayType || attributes.lowerBounds || (attributes.href && attributes.nil))
            InvalidAttributes(element);
        std::string scratch;
        if (attributes.nil) {
            const std::string_view nil = ValueOf(attributes.nil, scratch);
            if (nil != "true" && nil != "1") InvalidAttributes(element);
            xml_.SkipElement();
            return Variant(static_cast<IDispatch*>(nullptr));
        }
        const std::string_view text = ValueOf(attributes.href, scratch);
        if (!text.starts_with('#'))
            FormatterErrors::Throw(ids_LuxFormatter_InvalidID_2, {Excerpt(text), Located(element)});
        const uint32_t id = ParseId(element, text.substr(1), 1);
        xml_.SkipElement();
        references_.push_back(Reference{reader_, id});
        if (const std::optional<size_t> known = Known(id))
            return Variant(*known == kNothing ? nullptr : pending_[*known].object);
        // Not read yet: resolved once the body has been read.
        forwards_.push_back(Forward{nullptr, true, id, element});
        openForward_ = forwards_.size() - 1;
        return Variant(static_cast<IDispatch*>(nullptr));
    }

    void ResolveReferences() {
        for (const Forward& forward : forwards_) {
            const std::optional<size_t> known = Known(forward.id);
            if (!known)
                FormatterErrors::Throw(ids_LuxFormatter_UnsresolvedHref_1,
                                       {"ref-" + std::to_string(forward.id) + " in " + Located(forward.text)});
            IDispatch* object = *known == kNothing ? nullptr : pending_[*known].object;
            if (!object || !forward.slot) continue;
            object->AddRef();
            if (forward.variant) {
                auto* value = static_cast<VARIANT*>(forward.slot);
                value->vt = VT_DISPATCH;
                value->pdispVal = object;
            } else {
                Store<IUnknown*>(forward.slot, object);
            }
        }
        // Objects hold each other only through references. Without a cycle among them, every
        // object the root does not reach is freed with the loader; with one, the loader is
        // told that a reference resolved, and resets at the end the objects the root does not
        // reach, so that their cycle cannot keep them alive.
        if (HasCycle()) loader_.Find(pending_.front().id);
    }

    // Whether the references among the objects of the body close a cycle (Kahn's order over
    // the objects: a cycle leaves objects that never run out of incoming references).
    bool HasCycle() const {
        const size_t count = pending_.size();
        std::vector<uint32_t> incoming(count, 0);
        std::vector<size_t> firstOut(count + 1, 0);
        for (const Reference& reference : references_) {
            const std::optional<size_t> target = Known(reference.id);
            if (!target || *target == kNothing) continue;
            ++incoming[*target];
            ++firstOut[reference.from + 1];
        }
        for (size_t i = 0; i < count; ++i) firstOut[i + 1] += firstOut[i];
        std::vector<size_t> targets(firstOut[count]);
        std::vector<size_t> filled(firstOut.begin(), firstOut.end() - 1);
        for (const Reference& reference : references_) {
            const std::optional<size_t> target = Known(reference.id);
            if (target && *target != kNothing) targets[filled[reference.from]++] = *target;
        }
        std::vector<size_t> ready;
        for (size_t i = 0; i < count; ++i)
            if (incoming[i] == 0) ready.push_back(i);
        size_t ordered = 0;
        while (!ready.empty()) {
            const size_t next = ready.back();
            ready.pop_back();
            ++ordered;
            for (size_t at = firstOut[next]; at < firstOut[next + 1]; ++at)
                if (--incoming[targets[at]] == 0) ready.push_back(targets[at]);
        }
        return ordered != count;
    }

    // The objects of the body by number: their place in pending_, or kNothing for an object
    // loaded as Nothing. The writer numbers objects 1, 2, 3 ... in body order, kept in a
    // vector; other numbers in a map.
    static constexpr size_t kNothing = SIZE_MAX;
    void Remember(uint32_t id, size_t place) {
        if (id == inOrder_.size() + 1)
            inOrder_.push_back(place);
        else
            others_.emplace(id, place);
    }
    std::optional<size_t> Known(uint32_t id) const {
        if (id >= 1 && id <= inOrder_.size()) return inOrder_[id - 1];
        const auto found = others_.find(id);
        if (found == others_.end()) return std::nullopt;
        return found->second;
    }

    Variant ReadScalar(std::string_view element, const ElementAttributes& attributes) {
        std::string typeScratch;
        std::optional<VARTYPE> given;
        if (attributes.type) {
            const std::string_view typeName = ValueOf(attributes.type, typeScratch);
            given = TypeOfName(typeName);
            if (!given || *given == VT_VARIANT || *given == VT_DISPATCH || *given == VT_UNKNOWN)
                InvalidAttributes(element);
        }
        std::string scratch;
        const std::string_view text = ReadText(element, scratch);
        const VARTYPE vt = given ? *given : TypeOfText(text);
        VARIANT value;
        VariantInit(&value);
        if (vt == VT_BSTR) {
            if (text.size() > std::numeric_limits<UINT>::max()) InvalidValue(element, "the string is too long");
            value.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
            if (!value.bstrVal) throw std::bad_alloc();
        } else if (vt == VT_EMPTY || vt == VT_NULL) {
            if (!ccXmlReader::IsSpace(text))
                InvalidValue(element, "a value of type " + std::string(NameOfType(vt)) + " has no text");
        } else if (!ParseNumber(vt, text, &value.llVal)) {
            InvalidValue(element, "\"" + Excerpt(text) + "\" is not a value of type " + std::string(NameOfType(vt)));
        }
        value.vt = vt;
        return Variant::Attach(value);
    }

    // Elements of a set of bounds, held at 2^40 so that the product cannot overflow; every
    // caller compares it with what the document holds before anything is allocated.
    static uint64_t ElementCount(const std::vector<SAFEARRAYBOUND>& bounds) noexcept {
        constexpr uint64_t kCap = uint64_t(1) << 40;
        uint64_t count = 1;
        for (const SAFEARRAYBOUND& bound : bounds) {
            if (bound.cElements == 0) return 0;
            count = count > kCap / bound.cElements ? kCap : count * bound.cElements;
        }
        return count;
    }

    // A comma-separated list of [-]digits, each within [low, high].
    std::vector<int64_t> ParseList(std::string_view element, std::string_view text, int64_t low, int64_t high) const {
        // Counted first, so that a list longer than any array can have allocates nothing.
        const size_t count = static_cast<size_t>(std::count(text.begin(), text.end(), ',')) + 1;
        if (count > kMaxDimensions) InvalidAttributes(element);
        std::vector<int64_t> values;
        values.reserve(count);
        size_t pos = 0;
        for (;;) {
            const bool negative = pos < text.size() && text[pos] == '-';
            size_t at = pos + (negative ? 1 : 0);
            const size_t digits = at;
            int64_t magnitude = 0;
            for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
                magnitude = std::min<int64_t>(magnitude * 10 + (text[at] - '0'), int64_t(1) << 40);
            if (at == digits || (at < text.size() && text[at] != ','))
                FormatterErrors::Throw(ids_LuxFormatter_InvalidArrayBoundSep_3,
                                       {Excerpt(text), Located(element), at < text.size() ? Excerpt(text.substr(at)) : "the end"});
            const int64_t value = negative ? -magnitude : magnitude;
            if (value < low || value > high) InvalidAttributes(element);
            values.push_back(value);
            if (at == text.size()) return values;
            pos = at + 1;
        }
    }

    Variant NewArray(std::string_view element, VARTYPE type, const std::vector<SAFEARRAYBOUND>& bounds) const {
        VARIANT value;
        VariantInit(&value);
        value.parray = SafeArrayCreate(type, static_cast<UINT>(bounds.size()), bounds.data());
        if (!value.parray) {
            if (ElementCount(bounds) > 0x7FFFFFFF) InvalidAttributes(element);
            throw std::bad_alloc();
        }
        value.vt = VT_ARRAY | type;
        return Variant::Attach(value);
    }

    Variant ReadArray(std::string_view element, const ElementAttributes& attributes) {
        std::string scratch;
        bool base64 = false;
        if (attributes.type) {
            const std::string_view type = ValueOf(attributes.type, scratch);
            if (type == kBase64Type) base64 = true;
            else if (type != kArrayTypeName) InvalidAttributes(element);
        }
        VARTYPE type = VT_UI1;
        // The bounds in SAFEARRAY order; none (bytes only): one dimension from 0.
        std::optional<std::vector<SAFEARRAYBOUND>> bounds;
        if (attributes.arrayType) {
            const std::string_view text = ValueOf(attributes.arrayType, scratch);
            const size_t open = text.find('[');
            const auto found = open == std::string_view::npos ? std::nullopt : TypeOfName(text.substr(0, open));
            if (!found || SafeArrayElementSize(*found) == 0 || (base64 && *found != VT_UI1) || !text.ends_with(']'))
                FormatterErrors::Throw(ids_LuxFormatter_InvalidArrayType_2, {Excerpt(text), Located(element)});
            type = *found;
            const std::string_view counts = text.substr(open + 1, text.size() - open - 2);
            if (counts.empty()) {
                // The null array.
                std::string content;
                if (attributes.lowerBounds || !ccXmlReader::IsSpace(ReadText(element, content)))
                    InvalidValue(element, "a null array holds values");
                VARIANT value;
                VariantInit(&value);
                value.vt = VT_ARRAY | type;
                return Variant::Attach(value);
            }
            const std::vector<int64_t> sizes = ParseList(element, counts, 0, std::numeric_limits<ULONG>::max());
            std::vector<int64_t> lowers(sizes.size(), 0);
            if (attributes.lowerBounds) {
                std::string lowerScratch;
                lowers = ParseList(element, ValueOf(attributes.lowerBounds, lowerScratch),
                                   std::numeric_limits<LONG>::min(), std::numeric_limits<LONG>::max());
                if (lowers.size() != sizes.size()) InvalidAttributes(element);
            }
            bounds.emplace();
            for (size_t i = sizes.size(); i-- > 0;) {
                // The last index of a dimension must be a 32-bit bound too.
                if (sizes[i] > 0 && lowers[i] + sizes[i] - 1 > std::numeric_limits<LONG>::max())
                    InvalidAttributes(element);
                bounds->push_back(SAFEARRAYBOUND{static_cast<ULONG>(sizes[i]), static_cast<LONG>(lowers[i])});
            }
        } else if (!base64 || attributes.lowerBounds) {
            FormatterErrors::Throw(ids_LuxFormatter_InvalidArrayType_2, {"", Located(element)});
        }
        if (base64) return ReadBase64Array(element, bounds ? std::move(*bounds) : std::vector<SAFEARRAYBOUND>{});
        return ReadItemArray(element, type, *bounds);
    }

    // Bytes in base64, decoded straight into the new array's memory.
    Variant ReadBase64Array(std::string_view element, std::vector<SAFEARRAYBOUND> bounds) {
        std::string scratch;
        const std::string_view text = ReadText(element, scratch);
        const size_t expected = bounds.empty() ? kAnySize : static_cast<size_t>(ElementCount(bounds));
        const size_t size = DecodedSize(element, text, expected);
        if (bounds.empty()) bounds.push_back(SAFEARRAYBOUND{static_cast<ULONG>(std::min<size_t>(size, 0xFFFFFFFF)), 0});
        if (size > 0x7FFFFFFF) InvalidAttributes(element);
        Variant array = NewArray(element, VT_UI1, bounds);
        Decode(element, text, static_cast<uint8_t*>(array.get().parray->pvData), size);
        return array;
    }

    // One child element per array element, in memory order; the bounds come from the
    // array's type.
    Variant ReadItemArray(std::string_view element, VARTYPE type, const std::vector<SAFEARRAYBOUND>& bounds) {
        // Every element takes at least "<a/>" of what is left of the document.
        const uint64_t count = ElementCount(bounds);
        if (count > xml_.Remaining() / kMinimumElementSize)
            InvalidValue(element, "it holds fewer values than its type says");
        Variant array = NewArray(element, type, bounds);
        const size_t size = SafeArrayElementSize(type);
        const bool text = NumberValueSize(type) != 0 || type == VT_BSTR;
        size_t index = 0;
        if (xml_.IsEmptyElement()) {
            xml_.Next();
        } else {
            for (bool done = false; !done;) {
                switch (xml_.Next()) {
                    case ccXmlReader::Token::Text:
                        if (!ccXmlReader::IsSpace(xml_.RawText()))
                            InvalidValue(element, "it holds text between its elements");
                        break;
                    case ccXmlReader::Token::StartElement: {
                        const std::string_view item = xml_.Name();
                        if (index == count) InvalidValue(element, "it holds more values than its type says");
                        Variant value = text ? ReadItemText(item, type) : ReadValue();
                        if ((type == VT_DISPATCH || type == VT_UNKNOWN) && value.vt() != VT_DISPATCH)
                            InvalidValue(item, "an element of an array of objects is not an object");
                        uint8_t* at = static_cast<uint8_t*>(array.get().parray->pvData) + index * size;
                        Place(at, type, std::move(value));
                        PlaceForward(at, type == VT_VARIANT);
                        ++index;
                        break;
                    }
                    default: done = true; break;
                }
            }
        }
        if (index != count) InvalidValue(element, "it holds fewer values than its type says");
        return array;
    }

    // An element of an array of numbers or strings: its text, of the array's type.
    Variant ReadItemText(std::string_view item, VARTYPE type) {
        const ElementAttributes attributes = ScanAttributes(item);
        if (attributes.id || attributes.href || attributes.nil || attributes.classId || attributes.arrayType ||
            attributes.lowerBounds || attributes.type)
            InvalidAttributes(item);
        std::string scratch;
        const std::string_view text = ReadText(item, scratch);
        VARIANT value;
        VariantInit(&value);
        if (type == VT_BSTR) {
            if (text.size() > std::numeric_limits<UINT>::max()) InvalidValue(item, "the string is too long");
            value.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
            if (!value.bstrVal) throw std::bad_alloc();
        } else if (!ParseNumber(type, text, &value.llVal)) {
            InvalidValue(item, "\"" + Excerpt(text) + "\" is not a value of type " + std::string(NameOfType(type)));
        }
        value.vt = type;
        return Variant::Attach(value);
    }

    // Moves a value of the right kind into an array element.
    static void Place(uint8_t* at, VARTYPE type, Variant value) noexcept {
        VARIANT taken = value.Detach();
        switch (type) {
            case VT_BSTR: Store<BSTR>(at, taken.bstrVal); break;
            case VT_VARIANT: std::memcpy(at, &taken, sizeof taken); break;
            case VT_DISPATCH:
            case VT_UNKNOWN: Store<IUnknown*>(at, taken.punkVal); break;
            default: std::memcpy(at, &taken.llVal, SafeArrayElementSize(type)); break;
        }
    }

    std::vector<size_t> inOrder_;                                    // see Remember
    std::unordered_map<uint32_t, size_t> others_;
    // A reference from the object at `from` in pending_ to the object numbered `id`.
    struct Reference {
        size_t from;
        uint32_t id;
    };
    std::vector<Reference> references_;
    size_t reader_ = 0;  // the object whose values are being read
    std::unordered_map<std::string_view, std::string_view> classes_;  // element name -> ProgID
    std::deque<std::string> kept_;                                   // decoded ProgIDs
    std::vector<Pending> pending_;                                   // in the order of the body
    std::deque<Entry> entries_;                                      // every object's values, in order
    std::vector<Forward> forwards_;
    std::optional<size_t> openForward_;  // the forward reference of the value just read
};

}  // namespace

HRESULT CLuxSoapFormatter::Serialize(IStream* Stream, IDispatch* Obj, LONG Options, BSTR SubFormat) {
    return FormatterPreamble::Serialize(Stream, Obj, Options, [&](ObjectGraphSaver& saver) {
        const ccXmlWriter::Layout layout = LayoutOf(SubFormat);
        StreamOutput output(Stream);
        ccXmlWriter xml(output, layout);
        SoapSaver writer(xml, saver);
        xml.Declaration();
        xml.StartElement(kEnvelope);
        xml.Attribute("xmlns:SOAP-ENV", kEnvelopeNamespace);
        xml.Attribute("xmlns:SOAP-ENC", kEncodingNamespace);
        xml.Attribute("xmlns:xsi", kInstanceNamespace);
        xml.Attribute("xmlns:xsd", kSchemaNamespace);
        xml.Attribute("xmlns:lux", kClassNamespace);
        xml.Attribute(kEncodingStyle, kEncodingNamespace);
        xml.StartElement(kBody);
        writer.WriteBody(Obj);
        xml.Finish();
    });
}

HRESULT CLuxSoapFormatter::Deserialize(IStream* Stream, IDispatch* Existing, LONG Options, BSTR SubFormat,
                                       ILuxStringCollection** Warnings, IDispatch** Obj) {
    return FormatterPreamble::Deserialize(Stream, Existing, Options, Warnings, Obj, [&](ObjectGraphLoader& loader) -> ComPtr<IDispatch> {
        LayoutOf(SubFormat);
        const Document document(Stream);
        ccXmlReader xml(document.Text(), kMaxDepth);
        try {
            return SoapLoader(xml, loader).ReadDocument();
        } catch (const ccXmlReader::Errors& error) {
            ThrowReaderFault(error);
        }
    });
}

}  // namespace tessaly::core
