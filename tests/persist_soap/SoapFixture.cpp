#include "persist_soap/SoapFixture.h"

#include "com/core/ObjectPersistence.h"

namespace tessaly::test {

HRESULT SoapTestRecord::GetTypeInfoCount(UINT* count) {
    if (!count) return E_POINTER;
    *count = 0;
    return S_OK;
}

HRESULT SoapTestRecord::Persist(ILuxArchive* archive, LONG options) {
    if (!(options & luxPersistOptionSaving)) return S_OK;
    for (auto& [name, value] : values) {
        const HRESULT hr = archive->PersistVariant(Bstr(name).get(), value.ptr());
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT SoapTestRecord::get_HasChanged(VARIANT_BOOL* changed) {
    if (!changed) return E_POINTER;
    *changed = VARIANT_FALSE;
    return S_OK;
}

HRESULT SoapTestRecord::GetClassID(CLSID* clsid) {
    if (!clsid) return E_POINTER;
    *clsid = CLSID_LuxCollection;
    return S_OK;
}

std::string SoapFormatterTest::Save(IDispatch* object, const char* subFormat, HRESULT result, int32_t options) {
    return SaveThrough(NewFormatter().get(), object, subFormat, result, options);
}

SoapFormatterTest::Loaded SoapFormatterTest::Load(std::string_view document, IDispatch* existing, int32_t options) {
    return LoadThrough(NewFormatter().get(), document, existing, options);
}

std::vector<uint8_t> SoapFormatterTest::Binary(IDispatch* object) {
    std::vector<uint8_t> bytes;
    EXPECT_EQ(SaveObjectToBytes(object, luxPersistFormatBinary, luxPersistOptionAll, &bytes), S_OK);
    return bytes;
}

void SoapFormatterTest::Release(ComPtr<IDispatch>& root) {
    if (root) {
        EXPECT_EQ(ClearObjectGraph(root.get()), S_OK);
    }
    root.Reset();
}

std::string SoapFormatterTest::Envelope(std::string_view body) {
    return "<?xml version=\"1.0\"?>\r\n"
           "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\" "
           "xmlns:SOAP-ENC=\"http://schemas.xmlsoap.org/soap/encoding/\" "
           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
           "xmlns:lux=\"urn:schemas-tessaly:classes\" "
           "SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><SOAP-ENV:Body>" +
           std::string(body) + "</SOAP-ENV:Body></SOAP-ENV:Envelope>";
}

std::string SoapFormatterTest::Collection(std::string_view values, std::string_view more) {
    return Envelope("<lux:LuxCollection id=\"ref-1\" lux:class=\"Tessaly.LuxCollection.1\">" + std::string(values) +
                    "</lux:LuxCollection>" + std::string(more));
}

size_t SoapFormatterTest::Occurrences(std::string_view text, std::string_view part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

}  // namespace tessaly::test
