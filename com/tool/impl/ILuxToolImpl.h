// The tool template: ILuxTool whole, with its events (ILuxToolEvents: Change, PreRun,
// PostRun, Terminating), persistence of what every tool shares and Clone, so that a tool
// class writes only its inputs, its work and its records:
//
//     class CLuxThingTool : public tool::ILuxToolImpl<CLuxThingTool, ILuxThingTool> {
//     public:
//         static const CoClassInfo& CoClass() noexcept;
//         using CoClassInterfaceList = generated::CoClassInterfaceList_LuxThingTool;
//
//         static std::span<const char* const> ExposedInputNames();   // property names
//         static std::span<const char* const> ExposedOutputNames();
//         ToolOutcome RunWork();                 // lock held; throws on failure
//         void DiscardResults() noexcept;        // lock held; after a failed RunWork
//         void AddCurrentRecords(ILuxRecord* top, int32_t enabled);
//         void AddLastRunRecords(ILuxRecord* top, int32_t enabled, int32_t diagEnabled);
//         void PersistToolState(core::ArchiveAccess& archive);   // after the common keys
//         void CopyToolFrom(const CLuxThingTool& source);        // Clone; source's lock
//         ... its own properties, each inside Guarded(...) ...
//     };
//
// Run: fire PreRun; start the stopwatch; under the object's lock run RunWork inside the
// method guard (a failure discards the results); TimeRaw = the milliseconds so far; release
// the lock; make a new LuxRunStatus from the outcome (code and text of a warning or
// rejection as RunWork answered them; code, text and source of a failure as the guard
// recorded them) and make it the tool's RunStatus; fire Change(-1, empty,
// luxFA_Tool_Results | luxFA_Tool_LastRunRecord) and Change(luxTool_RunStatus, the new
// status, luxFA_Tool_Results); Time = the milliseconds so far, so Time >= TimeRaw; fire
// PostRun. Run answers S_OK whenever a run took place, whatever its outcome: the outcome is
// in RunStatus. It fails only when no run status could be made (out of memory), and then
// the tool's RunStatus is the previous one. The run status is a new object each run: a
// client that kept the previous one still reads the previous run. Until the first run,
// RunStatus answers a status of code 0 with no text and times 0. A run changes results,
// not configuration: it leaves HasChanged as it was.
//
// Terminate fires Terminating, so that other holders release the tool; the tool stays
// usable.
//
// ToolName starts as the coclass's name without "Lux"; ControlProgID empty. The three
// enable masks start as All (last run), None (last-run diagnostics), All (current); any
// bit pattern is accepted. Each setter that changes a value raises Change(its state ID,
// the new value, area): ToolName and CurrentRecordEnableBase luxFA_Tool_CurrentRecord (the
// top record's key, the current record's content), the last-run masks
// luxFA_Tool_LastRunRecord, ControlProgID luxFA_Misc. The masks announce the state IDs
// luxTool_*EnableBase (0x101D004..6), which differ from their properties' DISPIDs. A
// setter given the present value raises nothing.
//
// CreateCurrentRecord / CreateLastRunRecord: a top record (ToolRecords.h) keyed by the
// tool's name, with the sub-records the class adds for the masks as they are when the
// record is made.
//
// Persistence: ToolCommonState's keys, then the class's. Clone: the common state (the run
// status cloned) and CopyToolFrom.
#pragma once

#include <span>
#include <utility>

#include "TessalyCore.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "com/tool/impl/ToolCommonState.h"
#include "com/tool/impl/ToolRecords.h"
#include "com/tool/impl/ToolRunReport.h"
#include "com/tool/impl/ToolRunStatus.h"
#include "platform/Variant.h"
#include "xnl/std/base/ccStopwatch.h"

namespace tessaly::tool {

template <class Derived, class ToolInterface>
class ILuxToolImpl : public core::ILuxObjectImplBase<Derived, ToolInterface> {
protected:
    using Guard = core::ObjectLock::Guard;

public:
    HRESULT get_RunStatus(ILuxRunStatus** RunStatus) override {
        return core::Guarded("get_RunStatus", IID_ILuxTool, [&] {
            core::RequireOut(RunStatus);
            *RunStatus = nullptr;
            ComPtr<ILuxRunStatus> status;
            {
                Guard guard(this->Lock());
                status = common_.runStatus;
            }
            if (!status) {
                ComPtr<ILuxRunStatus> fresh(static_cast<ILuxRunStatus*>(CLuxRunStatus::Make().get()));
                Guard guard(this->Lock());
                if (!common_.runStatus) common_.runStatus = fresh;  // another thread may have been first
                status = common_.runStatus;
            }
            *RunStatus = status.Detach();
        });
    }

    HRESULT Run() override {
        return core::Guarded("Run", IID_ILuxTool, [&] {
            this->FireEvent(DIID_ILuxToolEvents, luxToolEvents_PreRun);
            ccStopwatch watch;
            watch.Start();
            ToolOutcome outcome;
            HRESULT worked;
            {
                Guard guard(this->Lock());
                worked = core::Guarded("Run", IID_ILuxTool, [&] { outcome = Self().RunWork(); });
                if (FAILED(worked)) Self().DiscardResults();
            }
            const double timeRaw = watch.Milliseconds();
            const RunReport report = ReportOf(worked, std::move(outcome));
            ComPtr<CLuxRunStatus> status = NewRunStatus(report, timeRaw, timeRaw);
            {
                Guard guard(this->Lock());
                common_.runStatus = ComPtr<ILuxRunStatus>(static_cast<ILuxRunStatus*>(status.get()));
            }
            this->RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Tool_Results | luxFA_Tool_LastRunRecord,
                              false);
            this->RaiseChange(luxTool_RunStatus, Variant(static_cast<IDispatch*>(static_cast<ILuxRunStatus*>(status.get()))).get(),
                              luxFA_Tool_Results, false);
            SetRunStatusTime(status.get(), report, timeRaw, watch.Milliseconds());
            this->FireEvent(DIID_ILuxToolEvents, luxToolEvents_PostRun);
            return S_OK;
        });
    }

    HRESULT Terminate() override {
        return core::Guarded("Terminate", IID_ILuxTool, [&] {
            return this->FireEvent(DIID_ILuxToolEvents, luxToolEvents_Terminating);
        });
    }

    HRESULT get_ToolName(BSTR* ToolName) override {
        return core::Guarded("get_ToolName", IID_ILuxTool, [&] {
            core::RequireOut(ToolName);
            Guard guard(this->Lock());
            *ToolName = Bstr(common_.toolName).Detach();
        });
    }
    HRESULT put_ToolName(BSTR ToolName) override {
        return PutString("put_ToolName", &ToolCommonState::toolName, ToolName, luxTool_ToolName,
                         luxFA_Tool_CurrentRecord);
    }
    HRESULT get_ControlProgID(BSTR* ProgID) override {
        return core::Guarded("get_ControlProgID", IID_ILuxTool, [&] {
            core::RequireOut(ProgID);
            Guard guard(this->Lock());
            *ProgID = Bstr(common_.controlProgId).Detach();
        });
    }
    HRESULT put_ControlProgID(BSTR ProgID) override {
        return PutString("put_ControlProgID", &ToolCommonState::controlProgId, ProgID, luxTool_ControlProgID,
                         luxFA_Misc);
    }

    HRESULT get_LastRunRecordEnableBase(LONG* Enable) override {
        return GetMask("get_LastRunRecordEnableBase", &ToolCommonState::lastRunRecordEnable, Enable);
    }
    HRESULT put_LastRunRecordEnableBase(LONG Enable) override {
        return PutMask("put_LastRunRecordEnableBase", &ToolCommonState::lastRunRecordEnable, Enable,
                       luxTool_LastRunRecordEnableBase, luxFA_Tool_LastRunRecord);
    }
    HRESULT get_LastRunRecordDiagEnableBase(LONG* Enable) override {
        return GetMask("get_LastRunRecordDiagEnableBase", &ToolCommonState::lastRunRecordDiagEnable, Enable);
    }
    HRESULT put_LastRunRecordDiagEnableBase(LONG Enable) override {
        return PutMask("put_LastRunRecordDiagEnableBase", &ToolCommonState::lastRunRecordDiagEnable, Enable,
                       luxTool_LastRunRecordDiagEnableBase, luxFA_Tool_LastRunRecord);
    }
    HRESULT get_CurrentRecordEnableBase(LONG* Enable) override {
        return GetMask("get_CurrentRecordEnableBase", &ToolCommonState::currentRecordEnable, Enable);
    }
    HRESULT put_CurrentRecordEnableBase(LONG Enable) override {
        return PutMask("put_CurrentRecordEnableBase", &ToolCommonState::currentRecordEnable, Enable,
                       luxTool_CurrentRecordEnableBase, luxFA_Tool_CurrentRecord);
    }

    HRESULT get_ExposedInputProperties(ILuxStringCollection** Names) override {
        return core::Guarded("get_ExposedInputProperties", IID_ILuxTool, [&] {
            core::RequireOut(Names);
            *Names = nullptr;
            *Names = NewStringCollection(Derived::ExposedInputNames()).Detach();
        });
    }
    HRESULT get_ExposedOutputProperties(ILuxStringCollection** Names) override {
        return core::Guarded("get_ExposedOutputProperties", IID_ILuxTool, [&] {
            core::RequireOut(Names);
            *Names = nullptr;
            *Names = NewStringCollection(Derived::ExposedOutputNames()).Detach();
        });
    }

    HRESULT CreateCurrentRecord(ILuxRecord** Record) override {
        return core::Guarded("CreateCurrentRecord", IID_ILuxTool, [&] {
            core::RequireOut(Record);
            *Record = nullptr;
            const ToolCommonState common = Common();
            ComPtr<ILuxRecord> top = NewToolRecord(common.toolName.view());
            Self().AddCurrentRecords(top.get(), common.currentRecordEnable);
            *Record = top.Detach();
        });
    }
    HRESULT CreateLastRunRecord(ILuxRecord** Record) override {
        return core::Guarded("CreateLastRunRecord", IID_ILuxTool, [&] {
            core::RequireOut(Record);
            *Record = nullptr;
            const ToolCommonState common = Common();
            ComPtr<ILuxRecord> top = NewToolRecord(common.toolName.view());
            Self().AddLastRunRecords(top.get(), common.lastRunRecordEnable, common.lastRunRecordDiagEnable);
            *Record = top.Detach();
        });
    }

    // Persistence and Clone (see ILuxObjectImplBase).
    void PersistState(core::ArchiveAccess& archive) {
        common_.Persist(archive);
        Self().PersistToolState(archive);
    }
    void CopyFrom(const Derived& source) {
        ToolCommonState common = source.Common();
        if (common.runStatus) {
            Variant original(static_cast<IDispatch*>(common.runStatus.get()));
            Variant copy;
            core::CloneValue(original.get(), copy.Out());
            ComPtr<ILuxRunStatus> cloned;
            if (copy.vt() == VT_DISPATCH && copy.get().pdispVal)
                copy.get().pdispVal->QueryInterface(IID_ILuxRunStatus, cloned.OutVoid());
            common.runStatus = std::move(cloned);
        }
        {
            Guard guard(this->Lock());
            common_ = std::move(common);
        }
        Self().CopyToolFrom(source);
    }

    // A snapshot of the common state, under the lock.
    ToolCommonState Common() const {
        Guard guard(this->Lock());
        return common_;
    }

protected:
    ILuxToolImpl() { common_.toolName = DefaultToolName(Derived::CoClass().name); }
    ~ILuxToolImpl() override = default;

    // Guarded by the object's lock.
    ToolCommonState common_;

private:
    Derived& Self() noexcept { return static_cast<Derived&>(*this); }

    HRESULT PutString(const char* method, Bstr ToolCommonState::*field, BSTR value, int32_t stateId, int32_t area) {
        return core::Guarded(method, IID_ILuxTool, [&] {
            Bstr stored(BstrView(value));
            {
                Guard guard(this->Lock());
                if (common_.*field == stored) return S_OK;
                std::swap(common_.*field, stored);
            }
            return this->RaiseChange(stateId, Variant(BstrView(value)).get(), area);
        });
    }
    HRESULT GetMask(const char* method, int32_t ToolCommonState::*field, LONG* value) const {
        return core::Guarded(method, IID_ILuxTool, [&] {
            core::RequireOut(value);
            Guard guard(this->Lock());
            *value = common_.*field;
        });
    }
    HRESULT PutMask(const char* method, int32_t ToolCommonState::*field, LONG value, int32_t stateId, int32_t area) {
        return core::Guarded(method, IID_ILuxTool, [&] {
            {
                Guard guard(this->Lock());
                if (common_.*field == value) return S_OK;
                common_.*field = value;
            }
            return this->RaiseChange(stateId, Variant(static_cast<int32_t>(value)).get(), area);
        });
    }
};

}  // namespace tessaly::tool
