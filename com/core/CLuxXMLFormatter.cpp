#include "com/core/CLuxXMLFormatter.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
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

const ClassRegistrar<CLuxXMLFormatter> registrar;

using namespace xmlformat;

// The element of the root object, and of each element of an array of strings, variants
// or objects.
constexpr std::string_view kRootObjectElement = "Object";
constexpr std::string_view kArrayItemElement = "Item";
constexpr std::string_view kBase64 = "bin.base64";
constexpr std::string_view kNullProgId = "NULL";
// Attributes.
constexpr std::string_view kProgId = "ProgID";
constexpr std::string_view kId = "id";
constexpr std::string_view kIdRef = "idref";
constexpr std::string_view kHref = "href";
constexpr std::string_view kDataType = "dt:dt";
constexpr std::string_view kArrayType = "ArrayType";
constexpr std::string_view kArrayBounds = "ArrayBounds";

// The fewest bytes an element of an array of strings, variants or objects takes: "<a/>".
constexpr size_t kMinimumItemSize = 4;
// Most dimensions an array may have: the descriptor counts them in 16 bits.
constexpr size_t kMaxDimensions = 0xFFFF;

// ---------------------------------------------------------------------------------------
// Types

struct TypeName {
    VARTYPE vt;
    std::string_view name;
};

// The names written, from the data-types namespace where it has one.
constexpr TypeName kTypeNames[] = {
    {VT_EMPTY, "empty"},   {VT_NULL, "null"},        {VT_I1, "i1"},         {VT_UI1, "ui1"},
    {VT_I2, "i2"},         {VT_UI2, "ui2"},          {VT_I4, "i4"},         {VT_UI4, "ui4"},
    {VT_I8, "i8"},         {VT_UI8, "ui8"},          {VT_INT, "int"},       {VT_UINT, "uint"},
    {VT_R4, "r4"},         {VT_R8, "r8"},            {VT_CY, "fixed.14.4"}, {VT_DATE, "dateTime"},
    {VT_BOOL, "boolean"},  {VT_ERROR, "error"},      {VT_BSTR, "string"},   {VT_VARIANT, "variant"},
    {VT_DISPATCH, "object"}, {VT_UNKNOWN, "unknown"},
};
// Other names the reader takes.
constexpr TypeName kTypeAliases[] = {{VT_R8, "float"}, {VT_DATE, "date"}, {VT_DISPATCH, "dispatch"}};

std::string_view NameOfType(VARTYPE vt) noexcept {
    for (const TypeName& type : kTypeNames)
        if (type.vt == vt) return type.name;
    return {};
}

std::optional<VARTYPE> TypeOfName(std::string_view name) noexcept {
    for (const TypeName& type : kTypeNames)
        if (type.name == name) return type.vt;
    for (const TypeName& type : kTypeAliases)
        if (type.name == name) return type.vt;
    return std::nullopt;
}

// ---------------------------------------------------------------------------------------
// Saving

class XmlSaver final : public ArchiveWriter {
public:
    XmlSaver(ccXmlWriter& xml, ObjectGraphSaver& saver) noexcept : xml_(xml), saver_(saver) {}

    void WriteEntry(std::string_view name, const VARIANT& value) override {
        if (!ccXmlWriter::IsName(name))
            CantSave("the value name \"" + Excerpt(name) + "\" cannot be an XML element name");
        WriteValue(name, value);
    }

    // An object value: written in full where it is first met, as a reference after that.
    void WriteObject(std::string_view element, IUnknown* object) {
        if (!object) {
            // The number 0 names no object.
            xml_.StartElement(element);
            xml_.Attribute(kIdRef, int64_t(0));
            xml_.EndElement();
            return;
        }
        const ObjectGraphSaver::Visit visit = saver_.Enter(object);
        if (!visit.first) {
            xml_.StartElement(element);
            xml_.Attribute(kIdRef, int64_t(visit.id));
            xml_.EndElement();
            return;
        }
        owners_.push_back(visit.progId.empty() ? std::string_view(FormatterErrors::kNoProgIdName)
                                               : std::string_view(visit.progId));
        CheckDepth();
        xml_.StartElement(element);
        xml_.Attribute(kProgId, visit.progId.empty() ? kNullProgId : std::string_view(visit.progId));
        xml_.Attribute(kId, int64_t(visit.id));
        if (visit.streamPersisted) {
            const std::vector<uint8_t> bytes = saver_.SaveStream(object);
            xml_.Attribute(kDataType, kBase64);
            xml_.Base64(bytes.data(), bytes.size(), true);
        } else {
            saver_.SaveEntries(object, *this);
        }
        xml_.EndElement();
        owners_.pop_back();
    }

private:
    [[noreturn]] void CantSave(std::string reason) const {
        FormatterErrors::Throw(ids_LuxFormatter_CantSaveObject_2,
                               {std::string(owners_.empty() ? FormatterErrors::kNoProgIdName : owners_.back()),
                                std::move(reason)});
    }

    // Every element below the one about to start must still be readable.
    void CheckDepth() const {
        if (xml_.Depth() + 1 >= CLuxXMLFormatter::kMaxDepth)
            CantSave("objects and arrays are nested deeper than " + std::to_string(CLuxXMLFormatter::kMaxDepth) +
                     " levels");
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
                xml_.Attribute(kDataType, NameOfType(value.vt));
                xml_.EndElement();
                return;
            case VT_BSTR:
                // Strings are the type of an element without dt:dt.
                xml_.StartElement(element);
                if (SysStringLen(value.bstrVal) > 0) xml_.Text(BstrView(value.bstrVal));
                xml_.EndElement();
                return;
            case VT_DISPATCH: WriteObject(element, value.pdispVal); return;
            case VT_UNKNOWN: WriteObject(element, value.punkVal); return;
            default:
                if (!NumberValueSize(value.vt)) CantSave("a value of type " + TypeText(value.vt) + " cannot be stored");
                xml_.StartElement(element);
                xml_.Attribute(kDataType, NameOfType(value.vt));
                char* out = xml_.RawSpace(ccXmlValueText::kMaxText);
                xml_.CommitRaw(FormatNumber(value.vt, &value.llVal, out, BooleanText::Digit));
                xml_.EndElement();
                return;
        }
    }

    void WriteArray(std::string_view element, VARTYPE vt, SAFEARRAY* array) {
        const VARTYPE type = vt & ~VT_ARRAY;
        if (SafeArrayElementSize(type) == 0) CantSave("an array of type " + TypeText(vt) + " cannot be stored");
        CheckDepth();
        xml_.StartElement(element);
        xml_.Attribute(kArrayType, NameOfType(type));
        if (!array) {
            // No bounds at all: the null array.
            xml_.Attribute(kArrayBounds, "");
            xml_.EndElement();
            return;
        }
        VARTYPE stored = VT_EMPTY;
        if (FAILED(SafeArrayGetVartype(array, &stored)) || stored != type || array->cbElements != SafeArrayElementSize(type))
            CantSave("an array value of type " + TypeText(vt) + " holds elements of another type");
        std::string bounds;
        const UINT dims = SafeArrayGetDim(array);
        for (UINT dim = 1; dim <= dims; ++dim) {
            LONG lower = 0;
            LONG upper = 0;
            ThrowIfFailed(SafeArrayGetLBound(array, dim, &lower));
            ThrowIfFailed(SafeArrayGetUBound(array, dim, &upper));
            if (dim > 1) bounds += ',';
            bounds += std::to_string(lower) + ':' + std::to_string(upper);
        }
        xml_.Attribute(kArrayBounds, bounds);
        const size_t count = SafeArrayElementCount(array);
        const ArrayAccess access(array);
        const size_t size = SafeArrayElementSize(type);
        if (type == VT_UI1) {
            // The large-block path: straight from the array's memory into the buffer.
            xml_.Attribute(kDataType, kBase64);
            xml_.Base64(access.data(), count, false);
        } else if (NumberValueSize(type)) {
            for (size_t i = 0; i < count; ++i) {
                char* out = xml_.RawSpace(ccXmlValueText::kMaxText + 1);
                if (i > 0) *out++ = ' ';
                xml_.CommitRaw(FormatNumber(type, access.data() + i * size, out, BooleanText::Digit));
            }
        } else {
            for (size_t i = 0; i < count; ++i) {
                const uint8_t* at = access.data() + i * size;
                switch (type) {
                    case VT_BSTR: {
                        const BSTR text = Load<BSTR>(at);
                        xml_.StartElement(kArrayItemElement);
                        if (SysStringLen(text) > 0) xml_.Text(BstrView(text));
                        xml_.EndElement();
                        break;
                    }
                    case VT_VARIANT: WriteValue(kArrayItemElement, *reinterpret_cast<const VARIANT*>(at)); break;
                    default: WriteObject(kArrayItemElement, Load<IUnknown*>(at)); break;
                }
            }
        }
        xml_.EndElement();
    }

    ccXmlWriter& xml_;
    ObjectGraphSaver& saver_;
    std::vector<std::string_view> owners_;  // the ProgIDs of the objects being saved, innermost last
};

// ---------------------------------------------------------------------------------------
// Loading

struct ElementAttributes {
    const ccXmlReader::Attribute* progId = nullptr;
    const ccXmlReader::Attribute* id = nullptr;
    const ccXmlReader::Attribute* idref = nullptr;
    const ccXmlReader::Attribute* href = nullptr;
    const ccXmlReader::Attribute* dataType = nullptr;
    const ccXmlReader::Attribute* arrayType = nullptr;
    const ccXmlReader::Attribute* arrayBounds = nullptr;
};

class XmlLoader : private ElementReader {
public:
    XmlLoader(ccXmlReader& xml, ObjectGraphLoader& loader) noexcept : ElementReader(xml, loader) {}

    // The top element holds the root object. No object takes its values before the whole
    // document has been read: a document that fails anywhere has run no Persist, so it
    // leaves an existing root as it was and no cycle among the objects made for it.
    ComPtr<IDispatch> ReadDocument() {
        xml_.Next();  // the top element: anything else is the reader's failure
        const std::string_view top = xml_.Name();
        ScanAttributes(top);
        if (xml_.IsEmptyElement()) FormatterErrors::Throw(ids_LuxFormatter_InvalidNodeObject);
        for (bool found = false; !found;) {
            switch (xml_.Next()) {
                case ccXmlReader::Token::Text: IgnoreText(top); break;
                case ccXmlReader::Token::StartElement: found = true; break;
                default: FormatterErrors::Throw(ids_LuxFormatter_InvalidNodeObject);
            }
        }
        const ElementAttributes root = ScanAttributes(xml_.Name());
        if (!root.progId || root.idref || root.href) FormatterErrors::Throw(ids_LuxFormatter_InvalidNodeObject);
        ReadObject(xml_.Name(), root);
        for (bool closed = false; !closed;) {
            switch (xml_.Next()) {
                case ccXmlReader::Token::Text: IgnoreText(top); break;
                case ccXmlReader::Token::StartElement:
                    loader_.Warn("The element " + Located(xml_.Name()) + " after the root object was ignored.");
                    xml_.SkipElement();
                    break;
                default: closed = true; break;
            }
        }
        xml_.Next();  // the end of the document, or the reader's failure
        // Each object after the objects among its values, the root last. Should one of them
        // fail, the loader resets those it made, which breaks the cycles among them.
        for (Pending& object : pending_) {
            if (object.archive)
                loader_.LoadEntries(object.object, *object.archive);
            else
                loader_.LoadStream(object.object, object.bytes);
        }
        return loader_.Finish();
    }

private:
    std::string_view ValueOf(const ccXmlReader::Attribute& attribute, std::string& scratch) const {
        return xml_.Value(attribute, scratch);
    }

    ElementAttributes ScanAttributes(std::string_view element) {
        ElementAttributes found;
        for (const ccXmlReader::Attribute& attribute : xml_.Attributes()) {
            const std::string_view name = attribute.name;
            if (name == kProgId) found.progId = &attribute;
            else if (name == kId) found.id = &attribute;
            else if (name == kIdRef) found.idref = &attribute;
            else if (name == kHref) found.href = &attribute;
            else if (name == kDataType) found.dataType = &attribute;
            else if (name == kArrayType) found.arrayType = &attribute;
            else if (name == kArrayBounds) found.arrayBounds = &attribute;
            else if (name != "xmlns" && !name.starts_with("xmlns:"))
                loader_.Warn("The attribute " + std::string(name) + " of the element " + Located(element) +
                             " is not known and was ignored.");
        }
        return found;
    }

    Variant ReadValue() {
        const std::string_view element = xml_.Name();
        const ElementAttributes attributes = ScanAttributes(element);
        if (attributes.idref || attributes.href) return ReadReference(element, attributes);
        if (attributes.progId) return ReadObject(element, attributes);
        std::string scratch;
        if (attributes.arrayType || attributes.arrayBounds ||
            (attributes.dataType && ValueOf(*attributes.dataType, scratch) == kBase64))
            return ReadArray(element, attributes);
        return ReadScalar(element, attributes);
    }

    uint32_t ParseId(std::string_view element, std::string_view text, uint32_t lowest) const {
        const auto id = ccXmlValueText::ParseUnsigned(text, std::numeric_limits<int32_t>::max());
        if (!id || *id < lowest)
            FormatterErrors::Throw(ids_LuxFormatter_InvalidID_2, {Excerpt(text), Located(element)});
        return static_cast<uint32_t>(*id);
    }

    Variant ReadReference(std::string_view element, const ElementAttributes& attributes) {
        if (attributes.progId || attributes.id || attributes.dataType || attributes.arrayType ||
            attributes.arrayBounds || (attributes.idref && attributes.href))
            InvalidAttributes(element);
        std::string scratch;
        std::string_view text = ValueOf(attributes.idref ? *attributes.idref : *attributes.href, scratch);
        if (attributes.href && text.starts_with('#')) text.remove_prefix(1);
        const uint32_t id = ParseId(element, text, 0);
        const std::string reference(text);
        xml_.SkipElement();
        if (id == 0) return Variant(static_cast<IDispatch*>(nullptr));
        if (IDispatch* object = loader_.Find(id)) return Variant(object);
        if (nullIds_.contains(id)) return Variant(static_cast<IDispatch*>(nullptr));
        FormatterErrors::Throw(ids_LuxFormatter_UnsresolvedHref_1, {Excerpt(reference) + " in " + Located(element)});
    }

    Variant ReadObject(std::string_view element, const ElementAttributes& attributes) {
        if (attributes.arrayType || attributes.arrayBounds) InvalidAttributes(element);
        std::string scratch;
        bool streamed = false;
        if (attributes.dataType) {
            if (ValueOf(*attributes.dataType, scratch) != kBase64) InvalidAttributes(element);
            streamed = true;
        }
        uint32_t id = 0;
        if (attributes.id) {
            const std::string_view text = ValueOf(*attributes.id, scratch);
            id = ParseId(element, text, 1);
            if (loader_.Find(id) || nullIds_.contains(id))
                FormatterErrors::Throw(ids_LuxFormatter_DuplicateID_2, {Excerpt(text), Located(element)});
        }
        std::string progIdScratch;
        const std::string_view progId = ValueOf(*attributes.progId, progIdScratch);
        if (progId == kNullProgId) {
            // An object that named no class when it was saved cannot be made again.
            loader_.Warn("The element " + Located(element) + " holds an " + FormatterErrors::kNoProgIdName +
                         "; it was loaded as Nothing.");
            if (id) nullIds_.insert(id);
            xml_.SkipElement();
            return Variant(static_cast<IDispatch*>(nullptr));
        }
        Pending read;
        read.object = loader_.Create(progId, id);
        if (streamed) {
            read.bytes = ReadBase64(element, kAnySize);
        } else {
            read.archive = loader_.NewArchive();
            ReadEntries(element, *read.archive, progId, id);
        }
        pending_.push_back(std::move(read));
        return Variant(pending_.back().object);
    }

    // The values of an archive-persisted object, named by its ProgID and number in warnings.
    void ReadEntries(std::string_view element, CLuxArchive& archive, std::string_view progId, uint32_t id) {
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
                    try {
                        archive.AddEntry(name, std::move(value));
                    } catch (const ccArchive::Duplicate&) {
                        loader_.Warn("The value " + Located(name) + " of " + std::string(progId) +
                                     (id ? " (object " + std::to_string(id) + ")" : std::string()) +
                                     " is stored twice; the second one was skipped.");
                    }
                    break;
                }
                default: return;
            }
        }
    }

    Variant ReadScalar(std::string_view element, const ElementAttributes& attributes) {
        std::string scratch;
        VARTYPE vt = VT_BSTR;
        std::string_view typeName = NameOfType(VT_BSTR);
        if (attributes.dataType) {
            typeName = ValueOf(*attributes.dataType, scratch);
            const auto type = TypeOfName(typeName);
            if (!type || *type == VT_VARIANT || *type == VT_DISPATCH || *type == VT_UNKNOWN) InvalidAttributes(element);
            vt = *type;
        }
        const std::string type(typeName);
        const std::string_view text = ReadText(element, scratch);
        VARIANT value;
        VariantInit(&value);
        if (vt == VT_BSTR) {
            if (text.size() > std::numeric_limits<UINT>::max()) InvalidValue(element, "the string is too long");
            value.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
            if (!value.bstrVal) throw std::bad_alloc();
        } else if (vt == VT_EMPTY || vt == VT_NULL) {
            if (!ccXmlReader::IsSpace(text)) InvalidValue(element, "a value of type " + type + " has no text");
        } else if (!ParseNumber(vt, text, &value.llVal)) {
            InvalidValue(element, "\"" + Excerpt(text) + "\" is not a value of type " + type);
        }
        value.vt = vt;
        return Variant::Attach(value);
    }

    // The dimensions of ArrayBounds, the left-most first: "lower:upper" each, separated by
    // commas; an upper bound one below the lower gives an empty dimension.
    std::vector<SAFEARRAYBOUND> ParseBounds(std::string_view element, std::string_view text) const {
        std::vector<SAFEARRAYBOUND> bounds;
        size_t pos = 0;
        const auto separator = [&]() -> std::string {
            return pos < text.size() ? Excerpt(text.substr(pos)) : "the end";
        };
        // [-]digits; values beyond 32 bits saturate and are refused below.
        const auto number = [&](int64_t& value) {
            const bool negative = pos < text.size() && text[pos] == '-';
            size_t at = pos + (negative ? 1 : 0);
            const size_t digits = at;
            int64_t magnitude = 0;
            for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
                magnitude = std::min<int64_t>(magnitude * 10 + (text[at] - '0'), int64_t(1) << 40);
            if (at == digits) return false;
            pos = at;
            value = negative ? -magnitude : magnitude;
            return true;
        };
        for (;;) {
            int64_t lower = 0;
            int64_t upper = 0;
            if (!number(lower) || pos >= text.size() || text[pos] != ':')
                FormatterErrors::Throw(ids_LuxFormatter_InvalidArrayBoundSep_3,
                                       {Excerpt(text), Located(element), separator()});
            ++pos;
            if (!number(upper))
                FormatterErrors::Throw(ids_LuxFormatter_InvalidArrayBoundSep_3,
                                       {Excerpt(text), Located(element), separator()});
            constexpr int64_t kLow = std::numeric_limits<LONG>::min();
            constexpr int64_t kHigh = std::numeric_limits<LONG>::max();
            // A dimension counts its elements in 32 bits.
            if (lower < kLow || lower > kHigh || upper < kLow || upper > kHigh || upper < lower - 1 ||
                upper - lower + 1 > int64_t(std::numeric_limits<ULONG>::max()) || bounds.size() == kMaxDimensions)
                InvalidAttributes(element);
            bounds.push_back(SAFEARRAYBOUND{static_cast<ULONG>(upper - lower + 1), static_cast<LONG>(lower)});
            if (pos == text.size()) return bounds;
            if (text[pos] != ',')
                FormatterErrors::Throw(ids_LuxFormatter_ExtraArrayDimChars_1,
                                       {Excerpt(text) + " of " + Located(element)});
            ++pos;
        }
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
        VARTYPE type = VT_UI1;
        bool base64 = false;
        if (attributes.dataType) {
            if (ValueOf(*attributes.dataType, scratch) != kBase64) InvalidAttributes(element);
            base64 = true;
        }
        if (attributes.arrayType) {
            const std::string_view name = ValueOf(*attributes.arrayType, scratch);
            const auto found = TypeOfName(name);
            if (!found || SafeArrayElementSize(*found) == 0 || (base64 && *found != VT_UI1))
                FormatterErrors::Throw(ids_LuxFormatter_InvalidArrayType_2, {Excerpt(name), Located(element)});
            type = *found;
        } else if (!base64) {
            FormatterErrors::Throw(ids_LuxFormatter_InvalidArrayType_2, {"", Located(element)});
        }
        std::optional<std::vector<SAFEARRAYBOUND>> bounds;
        if (attributes.arrayBounds) {
            const std::string_view text = ValueOf(*attributes.arrayBounds, scratch);
            if (text.empty()) {
                // The null array.
                std::string content;
                if (!ccXmlReader::IsSpace(ReadText(element, content)))
                    InvalidValue(element, "a null array holds values");
                VARIANT value;
                VariantInit(&value);
                value.vt = VT_ARRAY | type;
                return Variant::Attach(value);
            }
            bounds = ParseBounds(element, text);
        }
        if (base64) {
            std::vector<SAFEARRAYBOUND> dims = bounds ? *bounds : std::vector<SAFEARRAYBOUND>{};
            return ReadBase64Array(element, std::move(dims));
        }
        if (NumberValueSize(type)) return ReadNumberArray(element, type, bounds);
        return ReadItemArray(element, type, bounds);
    }

    // Base64 content decoded into a new block; `expected` bytes unless kAnySize.
    std::vector<uint8_t> ReadBase64(std::string_view element, size_t expected) {
        std::string scratch;
        const std::string_view text = ReadText(element, scratch);
        const size_t size = DecodedSize(element, text, expected);
        std::vector<uint8_t> bytes(size);
        Decode(element, text, bytes.data(), size);
        return bytes;
    }

    // Bytes in base64, decoded straight into the new array's memory.
    Variant ReadBase64Array(std::string_view element, std::vector<SAFEARRAYBOUND> bounds) {
        std::string scratch;
        const std::string_view text = ReadText(element, scratch);
        const size_t expected = bounds.empty() ? kAnySize : static_cast<size_t>(ElementCount(bounds));
        const size_t size = DecodedSize(element, text, expected);
        if (bounds.empty()) bounds.push_back(SAFEARRAYBOUND{static_cast<ULONG>(size), 0});
        if (size > 0x7FFFFFFF) InvalidAttributes(element);
        Variant array = NewArray(element, VT_UI1, bounds);
        Decode(element, text, static_cast<uint8_t*>(array.get().parray->pvData), size);
        return array;
    }

    // Numbers as one list separated by white space, in memory order.
    Variant ReadNumberArray(std::string_view element, VARTYPE type,
                            std::optional<std::vector<SAFEARRAYBOUND>>& bounds) {
        std::string scratch;
        const std::string_view text = ReadText(element, scratch);
        const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
        size_t pos = 0;
        const auto next = [&]() -> std::string_view {
            while (pos < text.size() && isSpace(text[pos])) ++pos;
            const size_t start = pos;
            while (pos < text.size() && !isSpace(text[pos])) ++pos;
            return text.substr(start, pos - start);
        };
        if (!bounds) {
            size_t count = 0;
            while (!next().empty()) ++count;
            pos = 0;
            bounds =
                std::vector<SAFEARRAYBOUND>{SAFEARRAYBOUND{static_cast<ULONG>(std::min<size_t>(count, 0xFFFFFFFF)), 0}};
        }
        // Every number takes a character and a separator.
        const uint64_t count = ElementCount(*bounds);
        if (count > (text.size() + 1) / 2) InvalidValue(element, "it holds fewer values than its bounds say");
        Variant array = NewArray(element, type, *bounds);
        auto* data = static_cast<uint8_t*>(array.get().parray->pvData);
        const size_t size = NumberValueSize(type);
        for (size_t i = 0; i < count; ++i) {
            const std::string_view number = next();
            if (number.empty()) InvalidValue(element, "it holds fewer values than its bounds say");
            if (!ParseNumber(type, number, data + i * size))
                InvalidValue(element,
                             "\"" + Excerpt(number) + "\" is not a value of type " + std::string(NameOfType(type)));
        }
        if (!next().empty()) InvalidValue(element, "it holds more values than its bounds say");
        return array;
    }

    // Strings, variants or objects: one child element each, in memory order.
    Variant ReadItemArray(std::string_view element, VARTYPE type,
                          const std::optional<std::vector<SAFEARRAYBOUND>>& bounds) {
        const bool empty = xml_.IsEmptyElement();
        std::vector<Variant> items;
        Variant array;
        size_t count = 0;
        if (bounds) {
            // Every element takes at least "<a/>" of what is left of the document.
            const uint64_t wanted = ElementCount(*bounds);
            if (wanted > xml_.Remaining() / kMinimumItemSize)
                InvalidValue(element, "it holds fewer values than its bounds say");
            count = static_cast<size_t>(wanted);
            array = NewArray(element, type, *bounds);
        }
        size_t index = 0;
        if (empty) {
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
                        Variant value = ReadValue();
                        if (type == VT_BSTR && value.vt() != VT_BSTR)
                            InvalidValue(item, "an element of an array of strings is not a string");
                        if ((type == VT_DISPATCH || type == VT_UNKNOWN) && value.vt() != VT_DISPATCH)
                            InvalidValue(item, "an element of an array of objects is not an object");
                        if (!bounds) {
                            items.push_back(std::move(value));
                            break;
                        }
                        if (index == count) InvalidValue(element, "it holds more values than its bounds say");
                        Place(array.get().parray, type, index++, std::move(value));
                        break;
                    }
                    default: done = true; break;
                }
            }
        }
        if (bounds) {
            if (index != count) InvalidValue(element, "it holds fewer values than its bounds say");
            return array;
        }
        array = NewArray(element, type, {SAFEARRAYBOUND{static_cast<ULONG>(items.size()), 0}});
        for (size_t i = 0; i < items.size(); ++i) Place(array.get().parray, type, i, std::move(items[i]));
        return array;
    }

    // Moves a value of the right kind into an array element.
    static void Place(SAFEARRAY* array, VARTYPE type, size_t index, Variant value) noexcept {
        uint8_t* at = static_cast<uint8_t*>(array->pvData) + index * array->cbElements;
        VARIANT taken = value.Detach();
        switch (type) {
            case VT_BSTR: Store<BSTR>(at, taken.bstrVal); break;
            case VT_VARIANT: std::memcpy(at, &taken, sizeof taken); break;
            default: Store<IUnknown*>(at, taken.punkVal); break;
        }
    }

    std::unordered_set<uint32_t> nullIds_;  // numbers of objects loaded as Nothing
    // An object read and made, waiting for the end of the document to take its values.
    struct Pending {
        IDispatch* object = nullptr;     // kept alive by the loader
        ComPtr<CLuxArchive> archive;     // archive-persisted: its values
        std::vector<uint8_t> bytes;      // stream-persisted: its saved bytes
    };
    std::vector<Pending> pending_;       // in the order their elements ended
};

}  // namespace

HRESULT CLuxXMLFormatter::Serialize(IStream* Stream, IDispatch* Obj, LONG Options, BSTR SubFormat) {
    return FormatterPreamble::Serialize(Stream, Obj, Options, [&](ObjectGraphSaver& saver) {
        const ccXmlWriter::Layout layout = LayoutOf(SubFormat);
        std::string top;
        bool refuse = false;
        {
            std::lock_guard lock(mutex_);
            top = topElementName_;
            refuse = refuseNullClassId_;
        }
        StreamOutput output(Stream);
        ccXmlWriter xml(output, layout);
        saver.SetRefuseNullClassID(refuse);
        XmlSaver writer(xml, saver);
        xml.Declaration();
        xml.StartElement(top);
        xml.Attribute("xmlns:dt", kDataTypesNamespace);
        writer.WriteObject(kRootObjectElement, Obj);
        xml.Finish();
    });
}

HRESULT CLuxXMLFormatter::Deserialize(IStream* Stream, IDispatch* Existing, LONG Options, BSTR SubFormat,
                                      ILuxStringCollection** Warnings, IDispatch** Obj) {
    return FormatterPreamble::Deserialize(Stream, Existing, Options, Warnings, Obj, [&](ObjectGraphLoader& loader) -> ComPtr<IDispatch> {
        LayoutOf(SubFormat);
        const Document document(Stream);
        ccXmlReader xml(document.Text(), kMaxDepth);
        try {
            return XmlLoader(xml, loader).ReadDocument();
        } catch (const ccXmlReader::Errors& error) {
            ThrowReaderFault(error);
        }
    });
}

HRESULT CLuxXMLFormatter::get_TopElementName(BSTR* Name) {
    return Guarded("get_TopElementName", IID_ILuxXMLFormatterSettings, [&] {
        RequireOut(Name);
        *Name = nullptr;
        std::lock_guard lock(mutex_);
        *Name = Bstr(topElementName_).Detach();
        return S_OK;
    });
}

HRESULT CLuxXMLFormatter::put_TopElementName(BSTR Name) {
    return Guarded("put_TopElementName", IID_ILuxXMLFormatterSettings, [&] {
        std::string name(BstrView(Name));
        if (name.empty()) name = kDefaultTopElementName;
        if (!ccXmlWriter::IsName(name)) throw ccStdError::BadArgument("Name");
        std::lock_guard lock(mutex_);
        topElementName_ = std::move(name);
    });
}

HRESULT CLuxXMLFormatter::get_RefuseNullClassID(VARIANT_BOOL* Refuse) {
    return Guarded("get_RefuseNullClassID", IID_ILuxXMLFormatterSettings, [&] {
        RequireOut(Refuse);
        std::lock_guard lock(mutex_);
        *Refuse = refuseNullClassId_ ? VARIANT_TRUE : VARIANT_FALSE;
        return S_OK;
    });
}

HRESULT CLuxXMLFormatter::put_RefuseNullClassID(VARIANT_BOOL Refuse) {
    return Guarded("put_RefuseNullClassID", IID_ILuxXMLFormatterSettings, [&] {
        std::lock_guard lock(mutex_);
        refuseNullClassId_ = Refuse != VARIANT_FALSE;
    });
}

}  // namespace tessaly::core
