#include "com/tool/impl/ToolCommonState.h"

#include <string_view>

#include "persist/ccArchive.h"

namespace tessaly::tool {

void ToolCommonState::Persist(core::ArchiveAccess& archive) {
    using Content = core::ArchiveAccess::Content;
    archive.Persist("ToolName", toolName);
    archive.Persist("ControlProgID", controlProgId);
    archive.Persist("LastRunRecordEnableBase", lastRunRecordEnable);
    archive.Persist("LastRunRecordDiagEnableBase", lastRunRecordDiagEnable);
    archive.Persist("CurrentRecordEnableBase", currentRecordEnable);
    if (!archive.Selected(Content::Results)) return;
    if (archive.Saving()) {
        ComPtr<IDispatch> status;
        if (runStatus) runStatus->QueryInterface(IDispatch::iid, status.OutVoid());
        archive.Persist("RunStatus", status, Content::Results);
        return;
    }
    Variant stored;
    if (!archive.Read("RunStatus", stored)) return;
    ComPtr<ILuxRunStatus> loaded;
    const VARIANT& value = stored.get();
    const bool object = value.vt == VT_DISPATCH || value.vt == VT_UNKNOWN;
    if (object && value.punkVal) value.punkVal->QueryInterface(IID_ILuxRunStatus, loaded.OutVoid());
    if (!loaded && !(object && !value.punkVal) && value.vt != VT_EMPTY)
        throw ccArchive::BadContent("RunStatus is not a run status", ids_Lux_ReadInvalidObject_1, {"RunStatus"});
    archive.OnCommit([this, loaded = std::move(loaded)]() mutable noexcept { runStatus = std::move(loaded); });
}

Bstr DefaultToolName(const char* coclassName) {
    std::string_view name(coclassName);
    if (name.starts_with("Lux")) name.remove_prefix(3);
    return Bstr(name);
}

}  // namespace tessaly::tool
