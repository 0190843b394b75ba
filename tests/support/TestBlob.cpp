#include "support/TestBlob.h"

#include "platform/ClassTable.h"

namespace tessaly::test {

namespace {
const CoClassInfo kCoClass{"TestBlob", TestBlob::kClassId, "A class saved as a block of bytes", true,
                           TestBlob::kProgId, "Tessaly.TestBlob", nullptr, 0};
const ClassRegistrar<TestBlob> registrar;
}  // namespace

const CoClassInfo& TestBlob::CoClass() noexcept { return kCoClass; }

void* TestBlob::FindInterface(const IID& iid) noexcept {
    if (iid == IPersist::iid) return static_cast<IPersist*>(static_cast<IPersistStream*>(this));
    return FindListed(iid);
}

HRESULT TestBlob::GetTypeInfoCount(UINT* count) {
    if (!count) return E_POINTER;
    *count = 0;
    return S_OK;
}

HRESULT TestBlob::GetClassID(CLSID* clsid) {
    if (!clsid) return E_POINTER;
    *clsid = nullClassId ? GUID_NULL : kClassId;
    return S_OK;
}

HRESULT TestBlob::Load(IStream* stream) {
    if (failLoads) return E_ACCESSDENIED;
    STATSTG stat{};
    HRESULT hr = stream->Stat(&stat, STATFLAG_NONAME);
    if (FAILED(hr)) return hr;
    std::vector<uint8_t> loaded(static_cast<size_t>(stat.cbSize));
    ULONG got = 0;
    hr = stream->Read(loaded.data(), static_cast<ULONG>(loaded.size()), &got);
    if (FAILED(hr)) return hr;
    loaded.resize(got);
    bytes = std::move(loaded);
    return S_OK;
}

HRESULT TestBlob::Save(IStream* stream, BOOL) {
    return stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr);
}

HRESULT TestBlob::GetSizeMax(ULONGLONG* size) {
    if (!size) return E_POINTER;
    *size = bytes.size();
    return S_OK;
}

}  // namespace tessaly::test
