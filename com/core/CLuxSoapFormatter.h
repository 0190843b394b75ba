// LuxSoapFormatter: saves an object graph as a SOAP 1.1 envelope and loads it back.
// docs/soap-format.md describes the document; in short:
//
//     <?xml version="1.0"?>
//     <SOAP-ENV:Envelope xmlns:SOAP-ENV=... xmlns:lux="urn:schemas-tessaly:classes" ...>
//     <SOAP-ENV:Body>
//     <lux:LuxCollection id="ref-1" lux:class="Tessaly.LuxCollection.1">
//         <Item0>7</Item0><Item1 href="#ref-2"/><Key1>shared</Key1>
//     </lux:LuxCollection>
//     <lux:LuxCollection id="ref-2"><Item0 href="#ref-1"/></lux:LuxCollection>
//     </SOAP-ENV:Body>
//     </SOAP-ENV:Envelope>
//
// Every object is one child of the body, in the order a walk first meets the objects (the
// root first), named by its class; the class's ProgID is written on the first object of
// each class only. Object values are references (href) to those elements, so shared
// objects and cycles need nothing more. A value's type is read from its text (an integer,
// a real, true or false, else a string) and written in xsi:type only where that reading
// would be wrong. Arrays of numbers, strings, variants and objects are SOAP-encoded arrays
// with SOAP-ENC:arrayType; byte arrays are one xsd:base64Binary text.
//
// Loading reads the whole stream into memory and parses it in one pass with the XML reader;
// references may point forward and are resolved once the body has been read. Any input
// ends in a graph loaded or in a failure with its ids_LuxFormatter_* message and where it
// was found, never in a crash or an allocation the input does not justify. The caller's
// existing root changes only once the whole document has been read.
#pragma once

#include <cstdint>

#include "TessalyCore.h"
#include "platform/ComObject.h"

namespace tessaly::core {

class CLuxSoapFormatter : public ComObject<CLuxSoapFormatter, ILuxFormatter> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxSoapFormatter; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxSoapFormatter;

    // The deepest nesting of elements written or read, the envelope included. Objects do
    // not nest (each is a child of the body); arrays of variants do.
    static constexpr uint32_t kMaxDepth = 512;

    static constexpr const char* kEnvelopeNamespace = "http://schemas.xmlsoap.org/soap/envelope/";
    static constexpr const char* kEncodingNamespace = "http://schemas.xmlsoap.org/soap/encoding/";
    static constexpr const char* kInstanceNamespace = "http://www.w3.org/2001/XMLSchema-instance";
    static constexpr const char* kSchemaNamespace = "http://www.w3.org/2001/XMLSchema";
    static constexpr const char* kClassNamespace = "urn:schemas-tessaly:classes";

    // ILuxFormatter. SubFormat is "" (no white space between elements) or "LineBreaks"
    // (any case); anything else is E_INVALIDARG. Both read the same way.
    HRESULT Serialize(IStream* Stream, IDispatch* Obj, LONG Options, BSTR SubFormat) override;
    HRESULT Deserialize(IStream* Stream, IDispatch* Existing, LONG Options, BSTR SubFormat,
                        ILuxStringCollection** Warnings, IDispatch** Obj) override;

    CLuxSoapFormatter() = default;

protected:
    ~CLuxSoapFormatter() override = default;
};

}  // namespace tessaly::core
