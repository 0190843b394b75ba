// A persistable class of the tests that saves itself as a block of bytes (IPersistStream)
// instead of through an archive, as classes outside the library may do. Its class ID can
// be switched to all zeros, and its Load made to fail, for the refusals.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/TypeInfo.h"
#include "platform/UnknownObject.h"

namespace tessaly::test {

class TestBlob : public UnknownObject<TestBlob, IDispatch, IPersistStream> {
public:
    static constexpr CLSID kClassId = MakeGuid("6A1C54E2-93B0-4F0B-8C55-3E0D7B2A9C41");
    static constexpr const char* kProgId = "Tessaly.TestBlob.1";
    static const CoClassInfo& CoClass() noexcept;

    // The bytes saved and loaded.
    std::vector<uint8_t> bytes;
    bool nullClassId = false;
    // Every blob's Load fails while set.
    static inline bool failLoads = false;

    void* FindInterface(const IID& iid) noexcept;

    // IDispatch: no members.
    HRESULT GetTypeInfoCount(UINT* count) override;
    HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return DISP_E_UNKNOWNNAME; }
    HRESULT Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return DISP_E_MEMBERNOTFOUND;
    }

    // IPersistStream
    HRESULT GetClassID(CLSID* clsid) override;
    HRESULT IsDirty() override { return S_FALSE; }
    HRESULT Load(IStream* stream) override;
    HRESULT Save(IStream* stream, BOOL clearDirty) override;
    HRESULT GetSizeMax(ULONGLONG* size) override;

    TestBlob() = default;

protected:
    ~TestBlob() override = default;
};

}  // namespace tessaly::test
