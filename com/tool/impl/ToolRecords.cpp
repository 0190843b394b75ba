#include "com/tool/impl/ToolRecords.h"

#include "com/core/ccCOMError.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"

namespace tessaly::tool {

namespace {

template <class I>
ComPtr<I> NewObject(const CLSID& clsid) {
    ComPtr<I> object;
    core::ThrowIfFailed(CreateObject(clsid, I::iid, object.OutVoid()));
    return object;
}

}  // namespace

ComPtr<ILuxRecord> NewToolRecord(std::string_view toolName) {
    ComPtr<ILuxRecord> record = NewObject<ILuxRecord>(CLSID_LuxRecord);
    VARIANT empty{};
    core::ThrowIfFailed(record->Initialize(Bstr(toolName).get(), static_cast<LuxRecordTypeConstants>(kToolRecordType),
                                           luxRecordUsageTool, VARIANT_FALSE, empty, nullptr, nullptr, 0));
    return record;
}

void AddSubRecord(ILuxRecord* parent, std::string_view key, int32_t type, int32_t usage, const VARIANT& content) {
    ComPtr<ILuxRecord> added;
    core::ThrowIfFailed(parent->AddNew(Bstr(key).get(), static_cast<LuxRecordTypeConstants>(type),
                                       static_cast<LuxRecordUsageConstants>(usage), VARIANT_FALSE, content, nullptr,
                                       nullptr, 0, added.Out()));
}

ComPtr<ILuxStringCollection> NewStringCollection(std::span<const char* const> items) {
    ComPtr<ILuxStringCollection> strings = NewObject<ILuxStringCollection>(CLSID_LuxStringCollection);
    for (const char* item : items) core::ThrowIfFailed(strings->Add(Bstr(item).get(), nullptr, -1));
    return strings;
}

}  // namespace tessaly::tool
