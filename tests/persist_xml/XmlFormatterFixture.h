// What the LuxXMLFormatter tests share: saving to and loading from text through the
// formatter's interfaces as a client does, the warnings as strings, and two persistable
// classes of the tests beside the library's own: one saved as a block of bytes
// (IPersistStream), one that names no class and writes whatever values it is given.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "TessalyCore.h"
#include "TessalyTest.h"
#include "core/CollectionFixture.h"
#include "platform/TypeInfo.h"
#include "platform/UnknownObject.h"
#include "support/FormatterRoundTrip.h"
#include "support/TestBlob.h"

namespace tessaly::test {

// Persists through an archive but names no class: saved with the ProgID "NULL". Saves the
// values it is given, under their names, whatever the names are.
class XmlTestRecord : public UnknownObject<XmlTestRecord, ILuxPersistArchive> {
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

    XmlTestRecord() = default;

protected:
    ~XmlTestRecord() override = default;
};

class XmlFormatterTest : public CollectionFixture {
protected:
    using Loaded = FormatterLoad;

    static ComPtr<ILuxFormatter> NewFormatter() { return Make<ILuxFormatter>("Tessaly.LuxXMLFormatter"); }

    // The document Serialize writes; `result` is what it must return.
    static std::string Save(IDispatch* object, const char* subFormat = "", ILuxFormatter* formatter = nullptr,
                            HRESULT result = S_OK, int32_t options = luxPersistOptionAll);
    static Loaded Load(std::string_view document, IDispatch* existing = nullptr, ILuxFormatter* formatter = nullptr,
                       int32_t options = luxPersistOptionAll);

    static ComPtr<ITestPoint> NewPoint(double x, double y, const Variant& marker = Variant());
    static std::string PointText(ITestPoint* point);
    static Variant Marker(ITestPoint* point);
    static Variant Item(ILuxCollection* collection, LONG index);
    // Whether two pointers are one object.
    static bool Same(IUnknown* a, IUnknown* b);
    // A value spelled out independently of the format: its type, the bits of a number,
    // a string's bytes, an array's bounds and elements; "obj" or "null" for an object.
    static std::string Dump(const VARIANT& value);
};

// A stream whose reads and writes fail, as a broken device's do.
class BrokenStream final : public UnknownObject<BrokenStream, IStream> {
public:
    HRESULT Read(void*, ULONG, ULONG*) override { return STG_E_READFAULT; }
    HRESULT Write(const void*, ULONG, ULONG*) override { return STG_E_MEDIUMFULL; }
    HRESULT Seek(LONGLONG, DWORD, ULONGLONG* position) override {
        if (position) *position = 0;
        return S_OK;
    }
    HRESULT SetSize(ULONGLONG) override { return E_NOTIMPL; }
    HRESULT CopyTo(IStream*, ULONGLONG, ULONGLONG*, ULONGLONG*) override { return E_NOTIMPL; }
    HRESULT Commit(DWORD) override { return S_OK; }
    HRESULT Revert() override { return E_NOTIMPL; }
    HRESULT LockRegion(ULONGLONG, ULONGLONG, DWORD) override { return E_NOTIMPL; }
    HRESULT UnlockRegion(ULONGLONG, ULONGLONG, DWORD) override { return E_NOTIMPL; }
    HRESULT Stat(STATSTG*, DWORD) override { return E_NOTIMPL; }
    HRESULT Clone(IStream**) override { return E_NOTIMPL; }

private:
    friend class UnknownObject<BrokenStream, IStream>;
    ~BrokenStream() override = default;
};

}  // namespace tessaly::test
