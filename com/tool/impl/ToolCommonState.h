// The state every tool shares: its name, the ProgID of its edit control, the three record
// enable masks and the status of its last run. ILuxToolImpl holds one under the object's
// lock and persists it before the tool's own keys:
//
//   "ToolName", "ControlProgID"     strings, always
//   "LastRunRecordEnableBase", "LastRunRecordDiagEnableBase", "CurrentRecordEnableBase"
//                                   int32, always (every bit pattern is a valid mask)
//   "RunStatus"                     the LuxRunStatus object, with luxPersistOptionResults
//
// A stored RunStatus that is not a run status (another object) is refused with
// ccArchive::BadContent naming the key, and the tool keeps its state.
#pragma once

#include <cstdint>

#include "TessalyCore.h"
#include "com/core/impl/ArchiveAccess.h"
#include "platform/Bstr.h"
#include "platform/ComPtr.h"

namespace tessaly::tool {

struct ToolCommonState {
    Bstr toolName;
    Bstr controlProgId;
    int32_t lastRunRecordEnable = luxToolLastRunRecordAll;
    int32_t lastRunRecordDiagEnable = luxToolLastRunRecordDiagNone;
    int32_t currentRecordEnable = luxToolCurrentRecordAll;
    // Null until the first run (or a load with results): RunStatus then makes a status of
    // a run that has not happened (code 0, no text, times 0).
    ComPtr<ILuxRunStatus> runStatus;

    // Saving with the object's lock held; loading records the assignments (ArchiveAccess).
    void Persist(core::ArchiveAccess& archive);
};

// A default tool name: the coclass's name without its "Lux" prefix ("RegionStatisticsTool").
Bstr DefaultToolName(const char* coclassName);

}  // namespace tessaly::tool
