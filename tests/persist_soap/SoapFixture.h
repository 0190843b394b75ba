// What the LuxSoapFormatter tests share: saving to and loading from text through the
// formatter's interfaces as a client does, and an independent yardstick for "the same
// graph": the binary archive of a graph, whose own suite checks it value by value.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "TessalyCore.h"
#include "core/CollectionFixture.h"
#include "platform/UnknownObject.h"
#include "support/FormatterRoundTrip.h"

namespace tessaly::test {

// Persists through an archive, under its own class ID (LuxCollection's, so that it can be
// saved), the values it is given under whatever names they have.
class SoapTestRecord : public UnknownObject<SoapTestRecord, ILuxPersistArchive, IPersist> {
public:
    std::vector<std::pair<std::string, Variant>> values;

    HRESULT GetTypeInfoCount(UINT* count) override;
    HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return DISP_E_UNKNOWNNAME; }
    HRESULT Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return DISP_E_MEMBERNOTFOUND;
    }
    HRESULT Persist(ILuxArchive* archive, LONG options) override;
    HRESULT PreLoad() override { return S_OK; }
    HRESULT PostLoad(VARIANT_BOOL) override { return S_OK; }
    HRESULT get_HasChanged(VARIANT_BOOL* changed) override;
    HRESULT put_HasChanged(VARIANT_BOOL) override { return S_OK; }
    HRESULT GetClassID(CLSID* clsid) override;

    SoapTestRecord() = default;

protected:
    ~SoapTestRecord() override = default;
};

class SoapFormatterTest : public CollectionFixture {
protected:
    using Loaded = FormatterLoad;

    static ComPtr<ILuxFormatter> NewFormatter() { return Make<ILuxFormatter>("Tessaly.LuxSoapFormatter"); }

    // The document Serialize writes; `result` is what it must return.
    static std::string Save(IDispatch* object, const char* subFormat = "", HRESULT result = S_OK,
                            int32_t options = luxPersistOptionAll);
    static Loaded Load(std::string_view document, IDispatch* existing = nullptr, int32_t options = luxPersistOptionAll);

    // The graph as the binary format saves it: equal bytes, equal graphs.
    static std::vector<uint8_t> Binary(IDispatch* object);
    // Empties a loaded graph, which may hold cycles, so that it is freed.
    static void Release(ComPtr<IDispatch>& root);

    // A document around a body, with the namespaces the formatter writes.
    static std::string Envelope(std::string_view body);
    // A document whose root collection holds `values` (elements) and, after it, `more`
    // (further objects of the body).
    static std::string Collection(std::string_view values, std::string_view more = "");

    // How often `part` occurs in `text`.
    static size_t Occurrences(std::string_view text, std::string_view part);
};

}  // namespace tessaly::test
