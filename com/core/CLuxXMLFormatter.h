// LuxXMLFormatter: saves an object graph as an XML document and loads it back.
// docs/xml-format.md describes the document; in short:
//
//     <?xml version="1.0"?>
//     <Root xmlns:dt="urn:schemas-microsoft-com:datatypes">
//         <Object ProgID="Tessaly.LuxCollection.1" id="1">
//             <Item0 dt:dt="i4">7</Item0>
//             <Item1 idref="1"/>
//         </Object>
//     </Root>
//
// Each object is an element with its ProgID and its number, written where the walk first
// meets it, its named values as child elements (or, for a stream-persisted object, its
// saved bytes in base64); a later meeting is an empty element with idref. Values carry
// their type in dt:dt, arrays their element type and bounds in ArrayType and ArrayBounds.
//
// SubFormat "" writes no white space between elements, "LineBreaks" one element per line,
// indented by one tab per level; both read the same way. Loading reads the whole stream
// into memory and parses it in one pass; any input ends in a document loaded or in a
// failure with its ids_LuxFormatter_* message, never in a crash or an allocation the
// input does not justify. The caller's existing root changes only once the whole
// document has been read.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "TessalyCore.h"
#include "platform/ComObject.h"

namespace tessaly::core {

class CLuxXMLFormatter : public ComObject<CLuxXMLFormatter, ILuxFormatter, ILuxXMLFormatterSettings> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxXMLFormatter; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxXMLFormatter;

    // The deepest nesting of elements that is written or read, the top element included.
    // Bounds the stack that a document can make the reader use.
    static constexpr uint32_t kMaxDepth = 512;
    static constexpr const char* kDefaultTopElementName = "Root";
    static constexpr const char* kDataTypesNamespace = "urn:schemas-microsoft-com:datatypes";

    // ILuxFormatter. SubFormat is "" or "LineBreaks" (any case); anything else is
    // E_INVALIDARG. Serialize fails with E_POINTER for a null stream or object.
    HRESULT Serialize(IStream* Stream, IDispatch* Obj, LONG Options, BSTR SubFormat) override;
    HRESULT Deserialize(IStream* Stream, IDispatch* Existing, LONG Options, BSTR SubFormat,
                        ILuxStringCollection** Warnings, IDispatch** Obj) override;

    // ILuxXMLFormatterSettings. An empty name restores "Root"; a name that is not an XML
    // name is E_INVALIDARG and changes nothing.
    HRESULT get_TopElementName(BSTR* Name) override;
    HRESULT put_TopElementName(BSTR Name) override;
    HRESULT get_RefuseNullClassID(VARIANT_BOOL* Refuse) override;
    HRESULT put_RefuseNullClassID(VARIANT_BOOL Refuse) override;

    CLuxXMLFormatter() = default;

protected:
    ~CLuxXMLFormatter() override = default;

private:
    std::mutex mutex_;
    std::string topElementName_ = kDefaultTopElementName;
    bool refuseNullClassId_ = false;
};

}  // namespace tessaly::core
