// Saving and loading whole object graphs for clients, in one call, in any of the formats
// of LuxPersistFormatConstants:
//  - luxPersistFormatXML and luxPersistFormatXMLWithLineBreaks: LuxXMLFormatter, plain or
//    with line breaks;
//  - luxPersistFormatBinary: LuxBinaryFormatter;
//  - luxPersistFormatSoap: LuxSoapFormatter;
//  - luxPersistFormatAny: saves binary; loading tells binary, XML and SOAP apart by the
//    first bytes.
// luxPersistFormatCustom needs a formatter object (E_INVALIDARG): use the formatter's
// Serialize directly.
//
// Every function reports failures as an HRESULT with error info and changes nothing on
// failure: a file is replaced only once the whole graph has been written (through a
// temporary file beside it), and a failed load hands back no object. File failures are
// e_Lux_FileOpen, e_Lux_FileRead and e_Lux_FileWrite with the path in the description.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "TessalyCore.h"

namespace tessaly {

HRESULT SaveObjectToStream(IDispatch* object, IStream* stream, int32_t format, int32_t options) noexcept;
HRESULT LoadObjectFromStream(IStream* stream, int32_t format, IDispatch** object) noexcept;

HRESULT SaveObjectToFile(IDispatch* object, std::string_view path, int32_t format, int32_t options) noexcept;
HRESULT LoadObjectFromFile(std::string_view path, int32_t format, IDispatch** object) noexcept;

HRESULT SaveObjectToBytes(IDispatch* object, int32_t format, int32_t options, std::vector<uint8_t>* bytes) noexcept;
HRESULT LoadObjectFromBytes(std::span<const uint8_t> bytes, int32_t format, IDispatch** object) noexcept;

// Empties every object reachable from `root` (root included, each object met through the
// values its Persist saves), as loading it from an empty archive does: each drops what it
// holds and returns to a new object's state, announcing it with Change. A loaded graph may
// hold cycles (a collection that holds itself, objects that hold each other), which
// reference counts alone never free; after this call the caller's own releases free the
// whole graph. Every reachable object is emptied, also one the caller holds elsewhere.
// Objects that refuse are passed by; the first refusal is the result, once every other
// object has been emptied.
HRESULT ClearObjectGraph(IDispatch* root) noexcept;

// The format of saved bytes judged from their start (after an optional byte-order mark and
// white space): luxPersistFormatSoap when the top element, after the XML declaration,
// comments and processing instructions that fit in the head, is <SOAP-ENV:Envelope; luxPersistFormatXML for any other text beginning with
// '<'; else luxPersistFormatBinary.
int32_t DetectPersistFormat(std::span<const uint8_t> head) noexcept;

}  // namespace tessaly
