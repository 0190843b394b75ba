#include "com/core/CLuxStringCollection.h"

#include "persist/ccArchive.h"
#include "platform/ClassTable.h"

namespace tessaly::core {

namespace {
const ClassRegistrar<CLuxStringCollection> registrar;
}  // namespace

Bstr LuxStringCollectionItems::FromArchive(Variant value, const std::string& name) {
    const HRESULT hr = value.ChangeType(VT_BSTR);
    if (hr == E_OUTOFMEMORY) throw std::bad_alloc();
    if (FAILED(hr)) throw ccArchive::BadType("the stored item is not text", ids_Lux_ReadInvalidProperty_1, {name});
    return Bstr::Attach(value.Detach().bstrVal);
}

}  // namespace tessaly::core
