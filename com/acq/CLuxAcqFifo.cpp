#include "com/acq/CLuxAcqFifo.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>

#include "com/acq/AcqErrors.h"
#include "com/acq/PixelFormatConversion.h"
#include "com/core/MethodGuard.h"
#include "com/core/ccCOMError.h"
#include "com/image/files/ImageFileObjects.h"
#include "platform/ClassTable.h"
#include "platform/SafeArray.h"
#include "platform/Variant.h"

namespace tessaly::acq {

namespace {

constexpr int32_t kArea = luxFA_AcqFifo_Acquisition;

[[noreturn]] void ThrowResult(HRESULT code, const std::string& text, const char* method) {
    throw core::ccCOMError(code, text, method, IID_ILuxAcqFifo);
}

bool IsTriggerModel(int32_t model) noexcept {
    return model >= luxAcqTriggerModelManual && model <= luxAcqTriggerModelFreeRun;
}

const char* TriggerModelName(int32_t model) noexcept {
    static const char* const names[] = {"Manual", "Auto", "Semi", "Slave", "FreeRun"};
    return IsTriggerModel(model) ? names[model] : "unknown";
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

// A setting's value as the client's type.
void ReadAs(const SettingValue& value, double* out) {
    if (const double* number = std::get_if<double>(&value))
        *out = *number;
    else if (const int32_t* whole = std::get_if<int32_t>(&value))
        *out = *whole;
    else if (const bool* flag = std::get_if<bool>(&value))
        *out = *flag ? 1.0 : 0.0;
    else
        *out = 0.0;
}
void ReadAs(const SettingValue& value, LONG* out) {
    double number = 0;
    ReadAs(value, &number);
    *out = static_cast<LONG>(std::lround(number));
}
void ReadAs(const SettingValue& value, VARIANT_BOOL* out) {
    double number = 0;
    ReadAs(value, &number);
    *out = number != 0 ? VARIANT_TRUE : VARIANT_FALSE;
}
void ReadAs(const SettingValue& value, BSTR* out) {
    const std::string* text = std::get_if<std::string>(&value);
    *out = Bstr(text ? *text : std::string()).Detach();
}

}  // namespace

ComPtr<ILuxAcqFifo> CLuxAcqFifo::Make(ILuxFrameGrabber* grabber, FrameGrabberDriver& driver,
                                      const VideoFormatInfo& format, int32_t cameraPort,
                                      LuxImagePixelFormatConstants outputFormat, bool autoPrepare) {
    if (!CanConvertAcquiredPixels(format.acquiredFormat, outputFormat))
        ThrowResult(E_INVALIDARG,
                    "FifoType " + std::to_string(outputFormat) + " cannot be delivered from the video format \"" +
                        format.name + "\"; the output pixel formats are listed in the acquisition guide",
                    "CreateAcqFifo");
    auto fifo = ComPtr<CLuxAcqFifo>::Attach(Create());
    if (!fifo) throw std::bad_alloc();
    fifo->grabber_ = ComPtr<ILuxFrameGrabber>(grabber);
    fifo->driver_ = &driver;
    fifo->format_ = format;
    fifo->settings_.cameraPort = cameraPort;
    fifo->autoPrepare_ = autoPrepare;
    fifo->outputFormat_ = outputFormat;
    AcqQueueEvents& events = *fifo;
    fifo->queue_ = std::make_unique<AcqQueue>(driver.OpenSource(format, cameraPort), events);
    if (autoPrepare) fifo->queue_->Prepare(fifo->settings_);
    ComPtr<ILuxAcqFifo> made;
    made = ComPtr<ILuxAcqFifo>(static_cast<ILuxAcqFifo*>(fifo.get()));
    return made;
}

CLuxAcqFifo::~CLuxAcqFifo() {
    // The source stops before anything it could call back into goes.
    if (queue_) queue_->Stop();
    if (master_) master_->RemoveSlave(this);
}

void CLuxAcqFifo::CopyFrom(const CLuxAcqFifo& /*source*/) {
    ThrowResult(E_NOTIMPL, "An acquisition FIFO is not copied: it holds a camera port; ask its grabber for another",
                "Clone");
}

void CLuxAcqFifo::PersistState(core::ArchiveAccess& /*archive*/) {
    ThrowResult(E_NOTIMPL, "An acquisition FIFO is not persisted: it holds a camera port of its frame grabber",
                "Persist");
}

HRESULT CLuxAcqFifo::Clone(IDispatch** Copy) {
    return core::Guarded("Clone", IID_ILuxObject, [&] {
        core::RequireOut(Copy);
        *Copy = nullptr;
        CopyFrom(*this);
    });
}

std::string CLuxAcqFifo::GrabberName() const { return driver_ ? driver_->GrabberName() : std::string("no grabber"); }

// --- settings -------------------------------------------------------------------------

SettingSupport CLuxAcqFifo::RequireSupport(int32_t stateId, const char* name) const {
    SettingSupport support = queue_->Describe(stateId);
    if (!support.supported) ThrowResult(E_NOTIMPL, GrabberName() + " (" + format_.name + ") has no " + name, name);
    return support;
}

template <class Out>
HRESULT CLuxAcqFifo::GetSetting(int32_t stateId, const char* name, Out* value) {
    return core::Guarded(name, IID_ILuxAcqFifo, [&] {
        core::RequireOut(value);
        {
            core::ObjectLock::Guard guard(Lock());
            if (auto stored = settings_.values.find(stateId); stored != settings_.values.end()) {
                ReadAs(stored->second, value);
                return;
            }
        }
        ReadAs(RequireSupport(stateId, name).initial, value);
    });
}

HRESULT CLuxAcqFifo::GetBound(int32_t stateId, const char* name, bool largest, double* value) {
    return core::Guarded(name, IID_ILuxAcqFifo, [&] {
        core::RequireOut(value);
        const SettingSupport support = RequireSupport(stateId, name);
        *value = largest ? support.max : support.min;
    });
}

template <class Change>
void CLuxAcqFifo::ChangeSettings(int32_t stateId, const VARIANT& value, Change&& change) {
    AcquisitionSettings before, after;
    bool prepare = false;
    {
        core::ObjectLock::Guard guard(Lock());
        before = settings_;
        if (!change(settings_)) return;  // the same value: nothing happens
        after = settings_;
        prepare = autoPrepare_;
    }
    if (prepare) {
        try {
            queue_->Prepare(after);
        } catch (...) {
            core::ObjectLock::Guard guard(Lock());
            settings_ = std::move(before);
            throw;
        }
    }
    RaiseChange(stateId, value, kArea);
}

void CLuxAcqFifo::StoreSetting(int32_t stateId, const char* name, SettingValue value) {
    const SettingSupport support = RequireSupport(stateId, name);
    double number = 0;
    const bool numeric =
        !std::holds_alternative<std::string>(value) && !std::holds_alternative<std::vector<int32_t>>(value);
    if (numeric) {
        ReadAs(value, &number);
        if (!std::isfinite(number) ||
            (!std::holds_alternative<bool>(value) && (number < support.min || number > support.max)))
            ThrowResult(E_INVALIDARG,
                        std::string(name) + " must lie between " + Number(support.min) + " and " + Number(support.max) +
                            " for " + GrabberName() + " (" + format_.name + "), not " + Number(number),
                        name);
    }
    Variant announced;
    if (const double* d = std::get_if<double>(&value))
        announced = Variant(*d);
    else if (const bool* b = std::get_if<bool>(&value))
        announced = Variant(*b);
    else if (const int32_t* i = std::get_if<int32_t>(&value))
        announced = Variant(*i);
    else if (const std::string* s = std::get_if<std::string>(&value))
        announced = Variant(std::string_view(*s));
    ChangeSettings(stateId, announced.get(), [&](AcquisitionSettings& settings) {
        auto stored = settings.values.find(stateId);
        if (stored != settings.values.end() && stored->second == value) return false;
        if (stored == settings.values.end() && support.initial == value) {
            settings.values[stateId] = value;  // kept, though it announces nothing new
            return false;
        }
        settings.values[stateId] = value;
        return true;
    });
}

HRESULT CLuxAcqFifo::PutSetting(int32_t stateId, const char* name, double value) {
    return core::Guarded(name, IID_ILuxAcqFifo, [&] { StoreSetting(stateId, name, value); });
}

HRESULT CLuxAcqFifo::PutFlag(int32_t stateId, const char* name, VARIANT_BOOL value) {
    return core::Guarded(name, IID_ILuxAcqFifo, [&] { StoreSetting(stateId, name, value != VARIANT_FALSE); });
}

HRESULT CLuxAcqFifo::PutWhole(int32_t stateId, const char* name, LONG value) {
    return core::Guarded(name, IID_ILuxAcqFifo, [&] { StoreSetting(stateId, name, static_cast<int32_t>(value)); });
}

HRESULT CLuxAcqFifo::PutText(int32_t stateId, const char* name, BSTR value) {
    return core::Guarded(name, IID_ILuxAcqFifo, [&] { StoreSetting(stateId, name, std::string(BstrView(value))); });
}

HRESULT CLuxAcqFifo::get_LookupTable(VARIANT* LookupTable) {
    return core::Guarded("LookupTable", IID_ILuxAcqFifo, [&] {
        core::RequireOut(LookupTable);
        VariantInit(LookupTable);
        std::vector<int32_t> table;
        bool stored = false;
        {
            core::ObjectLock::Guard guard(Lock());
            if (auto found = settings_.values.find(luxAcqLookupTable_LookupTable); found != settings_.values.end()) {
                if (auto* list = std::get_if<std::vector<int32_t>>(&found->second)) table = *list;
                stored = true;
            }
        }
        if (!stored) {
            const SettingSupport support = RequireSupport(luxAcqLookupTable_LookupTable, "LookupTable");
            if (auto* list = std::get_if<std::vector<int32_t>>(&support.initial)) table = *list;
        }
        SAFEARRAY* array = SafeArrayCreateVector(VT_I4, 0, static_cast<ULONG>(table.size()));
        if (!array) throw std::bad_alloc();
        void* data = nullptr;
        SafeArrayAccessData(array, &data);
        if (!table.empty()) std::copy(table.begin(), table.end(), static_cast<int32_t*>(data));
        SafeArrayUnaccessData(array);
        LookupTable->vt = VT_ARRAY | VT_I4;
        LookupTable->parray = array;
    });
}

HRESULT CLuxAcqFifo::put_LookupTable(VARIANT LookupTable) {
    return core::Guarded("LookupTable", IID_ILuxAcqFifo, [&] {
        const VARIANT& value = (LookupTable.vt == (VT_BYREF | VT_VARIANT)) ? *LookupTable.pvarVal : LookupTable;
        const VARTYPE vt = static_cast<VARTYPE>(value.vt & ~VT_ARRAY);
        SAFEARRAY* array = (value.vt & VT_ARRAY) ? value.parray : nullptr;
        if (!array || SafeArrayGetDim(array) != 1 || (vt != VT_I4 && vt != VT_R8 && vt != VT_VARIANT))
            ThrowResult(E_INVALIDARG, "LookupTable must be a one-dimensional array of whole numbers", "LookupTable");
        std::vector<int32_t> table(SafeArrayElementCount(array));
        for (LONG i = 0; i < static_cast<LONG>(table.size()); ++i) {
            LONG index = i;
            if (vt == VT_I4) {
                SafeArrayGetElement(array, &index, &table[static_cast<size_t>(i)]);
            } else if (vt == VT_R8) {
                double number = 0;
                SafeArrayGetElement(array, &index, &number);
                table[static_cast<size_t>(i)] = static_cast<int32_t>(std::lround(number));
            } else {
                Variant element;
                SafeArrayGetElement(array, &index, element.Out());
                VARIANT whole;
                VariantInit(&whole);
                if (FAILED(VariantChangeType(&whole, &element.get(), 0, VT_I4)))
                    ThrowResult(E_INVALIDARG, "LookupTable entry " + std::to_string(i) + " is not a whole number",
                                "LookupTable");
                table[static_cast<size_t>(i)] = whole.lVal;
            }
        }
        StoreSetting(luxAcqLookupTable_LookupTable, "LookupTable", std::move(table));
    });
}

HRESULT CLuxAcqFifo::ResetEncoder() {
    return core::Guarded("ResetEncoder", IID_ILuxAcqFifo,
                         [&] { RequireSupport(luxAcqLineScan_ResetEncoder, "ResetEncoder"); });
}

HRESULT CLuxAcqFifo::get_CustomProperty(BSTR Name, VARIANT* Value) {
    return core::Guarded("CustomProperty", IID_ILuxAcqFifo, [&] {
        core::RequireOut(Value);
        VariantInit(Value);
        ThrowResult(E_NOTIMPL, GrabberName() + " has no custom property \"" + std::string(BstrView(Name)) + "\"",
                    "CustomProperty");
    });
}

HRESULT CLuxAcqFifo::put_CustomProperty(BSTR Name, VARIANT /*Value*/) {
    return core::Guarded("CustomProperty", IID_ILuxAcqFifo, [&] {
        ThrowResult(E_NOTIMPL, GrabberName() + " has no custom property \"" + std::string(BstrView(Name)) + "\"",
                    "CustomProperty");
    });
}

HRESULT CLuxAcqFifo::get_CustomPropertyNames(ILuxStringCollection** Names) {
    return core::Guarded("CustomPropertyNames", IID_ILuxAcqFifo, [&] {
        core::RequireOut(Names);
        *Names = nullptr;
        core::ThrowIfFailed(tessaly::CreateObject(CLSID_LuxStringCollection, IID_ILuxStringCollection,
                                                  reinterpret_cast<void**>(Names)));
    });
}

HRESULT CLuxAcqFifo::ExecuteCustomCommand(BSTR Name) {
    return core::Guarded("ExecuteCustomCommand", IID_ILuxAcqFifo, [&] {
        ThrowResult(E_NOTIMPL, GrabberName() + " has no command \"" + std::string(BstrView(Name)) + "\"",
                    "ExecuteCustomCommand");
    });
}

// --- trigger and region of interest ----------------------------------------------------

HRESULT CLuxAcqFifo::get_TriggerModel(LuxAcqTriggerModelConstants* TriggerModel) {
    return core::Guarded("TriggerModel", IID_ILuxAcqFifo, [&] {
        core::RequireOut(TriggerModel);
        core::ObjectLock::Guard guard(Lock());
        *TriggerModel = settings_.triggerModel;
    });
}

HRESULT CLuxAcqFifo::put_TriggerModel(LuxAcqTriggerModelConstants TriggerModel) {
    return core::Guarded("TriggerModel", IID_ILuxAcqFifo, [&] {
        if (!IsTriggerModel(TriggerModel))
            ThrowResult(E_INVALIDARG, "TriggerModel " + std::to_string(TriggerModel) + " is not a trigger model",
                        "TriggerModel");
        if (master_) ThrowAcqError(e_LuxAcq_NotAllowedForSlave, "a slave FIFO keeps the Slave trigger model");
        if (TriggerModel == luxAcqTriggerModelSlave)
            ThrowAcqError(e_LuxAcq_CannotSlave,
                          "a FIFO becomes a slave only when its master makes it (CreateSlaveAcqFifo)");
        ChangeSettings(luxAcqTrigger_TriggerModel, Variant(static_cast<int32_t>(TriggerModel)).get(),
                       [&](AcquisitionSettings& settings) {
                           if (settings.triggerModel == TriggerModel) return false;
                           settings.triggerModel = TriggerModel;
                           return true;
                       });
    });
}

HRESULT CLuxAcqFifo::get_TriggerEnabled(VARIANT_BOOL* TriggerEnabled) {
    return core::Guarded("TriggerEnabled", IID_ILuxAcqFifo, [&] {
        core::RequireOut(TriggerEnabled);
        core::ObjectLock::Guard guard(Lock());
        *TriggerEnabled = settings_.triggerEnabled ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxAcqFifo::put_TriggerEnabled(VARIANT_BOOL TriggerEnabled) {
    return core::Guarded("TriggerEnabled", IID_ILuxAcqFifo, [&] {
        const bool enabled = TriggerEnabled != VARIANT_FALSE;
        ChangeSettings(luxAcqTrigger_TriggerEnabled, Variant(enabled).get(), [&](AcquisitionSettings& settings) {
            if (settings.triggerEnabled == enabled) return false;
            settings.triggerEnabled = enabled;
            return true;
        });
    });
}

HRESULT CLuxAcqFifo::SetROIXYWidthHeight(LONG X, LONG Y, LONG Width, LONG Height) {
    return core::Guarded("SetROIXYWidthHeight", IID_ILuxAcqFifo, [&] {
        const bool whole = X == 0 && Y == 0 && Width == 0 && Height == 0;
        const bool inside = X >= 0 && Y >= 0 && Width >= 1 && Height >= 1 && int64_t{X} + Width <= format_.width &&
                            int64_t{Y} + Height <= format_.height;
        if (!whole && !inside)
            ThrowAcqError(e_LuxAcq_InvalidROI, "(" + std::to_string(X) + ", " + std::to_string(Y) + ") " +
                                                   std::to_string(Width) + " x " + std::to_string(Height) +
                                                   " does not lie in the " + std::to_string(format_.width) + " x " +
                                                   std::to_string(format_.height) + " frame");
        ChangeSettings(luxAcqROI_SetROIXYWidthHeight, Variant().get(), [&](AcquisitionSettings& settings) {
            RegionOfInterest& roi = settings.roi;
            if (roi.x == X && roi.y == Y && roi.width == Width && roi.height == Height) return false;
            roi.x = X, roi.y = Y, roi.width = Width, roi.height = Height;
            return true;
        });
    });
}

HRESULT CLuxAcqFifo::GetROIXYWidthHeight(LONG* X, LONG* Y, LONG* Width, LONG* Height) {
    return core::Guarded("GetROIXYWidthHeight", IID_ILuxAcqFifo, [&] {
        core::RequireOut(X, Y, Width, Height);
        core::ObjectLock::Guard guard(Lock());
        const RegionOfInterest& roi = settings_.roi;
        const bool whole = roi.width == 0;
        *X = whole ? 0 : roi.x;
        *Y = whole ? 0 : roi.y;
        *Width = whole ? format_.width : roi.width;
        *Height = whole ? format_.height : roi.height;
    });
}

HRESULT CLuxAcqFifo::get_ROIMode(LuxAcqROIModeConstants* ROIMode) {
    return core::Guarded("ROIMode", IID_ILuxAcqFifo, [&] {
        core::RequireOut(ROIMode);
        core::ObjectLock::Guard guard(Lock());
        *ROIMode = settings_.roi.mode;
    });
}

HRESULT CLuxAcqFifo::put_ROIMode(LuxAcqROIModeConstants ROIMode) {
    return core::Guarded("ROIMode", IID_ILuxAcqFifo, [&] {
        VARIANT_BOOL supported = VARIANT_FALSE;
        core::ThrowIfFailed(IsROIModeSupported(ROIMode, &supported));
        if (!supported)
            ThrowResult(E_NOTIMPL,
                        GrabberName() + " (" + format_.name + ") cannot cut the region of interest in hardware",
                        "ROIMode");
        ChangeSettings(luxAcqROI_ROIMode, Variant(static_cast<int32_t>(ROIMode)).get(),
                       [&](AcquisitionSettings& settings) {
                           if (settings.roi.mode == ROIMode) return false;
                           settings.roi.mode = ROIMode;
                           return true;
                       });
    });
}

HRESULT CLuxAcqFifo::IsROIModeSupported(LuxAcqROIModeConstants ROIMode, VARIANT_BOOL* Supported) {
    return core::Guarded("IsROIModeSupported", IID_ILuxAcqFifo, [&] {
        core::RequireOut(Supported);
        if (ROIMode != luxAcqROIModeHardware && ROIMode != luxAcqROIModeSoftware)
            ThrowResult(E_INVALIDARG, "ROIMode " + std::to_string(ROIMode) + " is not a mode", "ROIMode");
        // The FIFO cuts frames itself; the hardware only when the source can.
        const bool supported =
            ROIMode == luxAcqROIModeSoftware || queue_->Describe(luxAcqROI_SetROIXYWidthHeight).supported;
        *Supported = supported ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

// --- the FIFO's own properties ------------------------------------------------------------

HRESULT CLuxAcqFifo::get_SelectedSpaceName(BSTR* SelectedSpaceName) {
    return core::Guarded("SelectedSpaceName", IID_ILuxAcqFifo, [&] {
        core::RequireOut(SelectedSpaceName);
        core::ObjectLock::Guard guard(Lock());
        *SelectedSpaceName = Bstr(selectedSpaceName_).Detach();
    });
}

HRESULT CLuxAcqFifo::put_SelectedSpaceName(BSTR SelectedSpaceName) {
    return core::Guarded("SelectedSpaceName", IID_ILuxAcqFifo, [&] {
        Bstr name(BstrView(SelectedSpaceName));
        {
            core::ObjectLock::Guard guard(Lock());
            if (selectedSpaceName_.view() == name.view()) return;
            std::swap(selectedSpaceName_, name);
        }
        RaiseChange(luxAcq_SelectedSpaceName, Variant(BstrView(SelectedSpaceName)).get(), kArea);
    });
}

HRESULT CLuxAcqFifo::get_CoordinateSpaceTree(ILuxCoordinateSpaceTree** CoordinateSpaceTree) {
    return core::Guarded("CoordinateSpaceTree", IID_ILuxAcqFifo, [&] {
        core::RequireOut(CoordinateSpaceTree);
        core::ObjectLock::Guard guard(Lock());
        *CoordinateSpaceTree = ComPtr(tree_).Detach();
    });
}

HRESULT CLuxAcqFifo::putref_CoordinateSpaceTree(ILuxCoordinateSpaceTree* CoordinateSpaceTree) {
    return core::Guarded("CoordinateSpaceTree", IID_ILuxAcqFifo, [&] {
        ComPtr<ILuxCoordinateSpaceTree> tree(CoordinateSpaceTree);
        {
            core::ObjectLock::Guard guard(Lock());
            if (tree_ == tree) return;
            std::swap(tree_, tree);
        }
        RaiseChange(luxAcq_CoordinateSpaceTree, kArea);
    });
}

HRESULT CLuxAcqFifo::get_TimeoutEnabled(VARIANT_BOOL* TimeoutEnabled) {
    return core::Guarded("TimeoutEnabled", IID_ILuxAcqFifo, [&] {
        core::RequireOut(TimeoutEnabled);
        core::ObjectLock::Guard guard(Lock());
        *TimeoutEnabled = timeoutEnabled_ ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxAcqFifo::put_TimeoutEnabled(VARIANT_BOOL TimeoutEnabled) {
    return core::Guarded("TimeoutEnabled", IID_ILuxAcqFifo, [&] {
        const bool enabled = TimeoutEnabled != VARIANT_FALSE;
        {
            core::ObjectLock::Guard guard(Lock());
            if (timeoutEnabled_ == enabled) return;
            timeoutEnabled_ = enabled;
        }
        RaiseChange(luxAcq_TimeoutEnabled, Variant(enabled).get(), kArea);
    });
}

HRESULT CLuxAcqFifo::get_Timeout(double* Timeout) {
    return core::Guarded("Timeout", IID_ILuxAcqFifo, [&] {
        core::RequireOut(Timeout);
        core::ObjectLock::Guard guard(Lock());
        *Timeout = timeoutMs_;
    });
}

HRESULT CLuxAcqFifo::put_Timeout(double Timeout) {
    return core::Guarded("Timeout", IID_ILuxAcqFifo, [&] {
        if (!(Timeout >= 0) || !std::isfinite(Timeout))
            ThrowResult(E_INVALIDARG, "Timeout must be a number of milliseconds, 0 or more, not " + Number(Timeout),
                        "Timeout");
        {
            core::ObjectLock::Guard guard(Lock());
            if (timeoutMs_ == Timeout) return;
            timeoutMs_ = Timeout;
        }
        RaiseChange(luxAcq_Timeout, Variant(Timeout).get(), kArea);
    });
}

std::optional<double> CLuxAcqFifo::TimeoutMs() const {
    core::ObjectLock::Guard guard(Lock());
    return timeoutEnabled_ ? std::optional<double>(timeoutMs_) : std::nullopt;
}

HRESULT CLuxAcqFifo::get_CameraPort(LONG* CameraPort) {
    return core::Guarded("CameraPort", IID_ILuxAcqFifo, [&] {
        core::RequireOut(CameraPort);
        core::ObjectLock::Guard guard(Lock());
        *CameraPort = settings_.cameraPort;
    });
}

HRESULT CLuxAcqFifo::put_CameraPort(LONG CameraPort) {
    return core::Guarded("CameraPort", IID_ILuxAcqFifo, [&] {
        if (CameraPort < 0 || CameraPort >= format_.cameraPorts)
            ThrowResult(E_INVALIDARG,
                        "CameraPort must lie between 0 and " + std::to_string(format_.cameraPorts - 1) + " for \"" +
                            format_.name + "\", not " + std::to_string(CameraPort),
                        "CameraPort");
        AcquisitionSettings settings;
        bool prepare = false;
        {
            core::ObjectLock::Guard guard(Lock());
            if (settings_.cameraPort == CameraPort) return;
            settings = settings_;
            prepare = autoPrepare_;
        }
        settings.cameraPort = CameraPort;
        std::unique_ptr<FrameSource> source = driver_->OpenSource(format_, CameraPort);  // may be in use
        queue_->ReplaceSource(std::move(source));
        {
            core::ObjectLock::Guard guard(Lock());
            settings_.cameraPort = CameraPort;
        }
        if (prepare) queue_->Prepare(settings);
        RaiseChange(luxAcq_CameraPort, Variant(static_cast<int32_t>(CameraPort)).get(), kArea);
    });
}

HRESULT CLuxAcqFifo::get_AutoPrepareEnabled(VARIANT_BOOL* AutoPrepareEnabled) {
    return core::Guarded("AutoPrepareEnabled", IID_ILuxAcqFifo, [&] {
        core::RequireOut(AutoPrepareEnabled);
        core::ObjectLock::Guard guard(Lock());
        *AutoPrepareEnabled = autoPrepare_ ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxAcqFifo::put_AutoPrepareEnabled(VARIANT_BOOL AutoPrepareEnabled) {
    return core::Guarded("AutoPrepareEnabled", IID_ILuxAcqFifo, [&] {
        const bool enabled = AutoPrepareEnabled != VARIANT_FALSE;
        {
            core::ObjectLock::Guard guard(Lock());
            if (autoPrepare_ == enabled) return;
            autoPrepare_ = enabled;
        }
        RaiseChange(luxAcq_AutoPrepareEnabled, Variant(enabled).get(), kArea);
    });
}

HRESULT CLuxAcqFifo::get_FrameGrabber(ILuxFrameGrabber** FrameGrabber) {
    return core::Guarded("FrameGrabber", IID_ILuxAcqFifo, [&] {
        core::RequireOut(FrameGrabber);
        *FrameGrabber = ComPtr(grabber_).Detach();
    });
}

HRESULT CLuxAcqFifo::get_VideoFormat(BSTR* VideoFormat) {
    return core::Guarded("VideoFormat", IID_ILuxAcqFifo, [&] {
        core::RequireOut(VideoFormat);
        *VideoFormat = Bstr(format_.name).Detach();
    });
}

HRESULT CLuxAcqFifo::get_NumCameraPorts(LONG* NumCameraPorts) {
    return core::Guarded("NumCameraPorts", IID_ILuxAcqFifo, [&] {
        core::RequireOut(NumCameraPorts);
        *NumCameraPorts = format_.cameraPorts;
    });
}

HRESULT CLuxAcqFifo::get_OutputPixelFormat(LuxImagePixelFormatConstants* OutputPixelFormat) {
    return core::Guarded("OutputPixelFormat", IID_ILuxAcqFifo, [&] {
        core::RequireOut(OutputPixelFormat);
        core::ObjectLock::Guard guard(Lock());
        *OutputPixelFormat = outputFormat_;
    });
}

HRESULT CLuxAcqFifo::put_OutputPixelFormat(LuxImagePixelFormatConstants OutputPixelFormat) {
    return core::Guarded("OutputPixelFormat", IID_ILuxAcqFifo, [&] {
        if (!CanConvertAcquiredPixels(format_.acquiredFormat, OutputPixelFormat))
            ThrowResult(E_INVALIDARG,
                        "OutputPixelFormat " + std::to_string(OutputPixelFormat) +
                            " cannot be delivered from the pixel format the grabber acquires (" +
                            std::to_string(format_.acquiredFormat) + ")",
                        "OutputPixelFormat");
        {
            core::ObjectLock::Guard guard(Lock());
            if (outputFormat_ == OutputPixelFormat) return;
            outputFormat_ = OutputPixelFormat;
        }
        RaiseChange(luxAcq_OutputPixelFormat, Variant(static_cast<int32_t>(OutputPixelFormat)).get(), kArea);
    });
}

HRESULT CLuxAcqFifo::AcquiredPixelFormat(LuxImagePixelFormatConstants* AcquiredPixelFormat) {
    return core::Guarded("AcquiredPixelFormat", IID_ILuxAcqFifo, [&] {
        core::RequireOut(AcquiredPixelFormat);
        *AcquiredPixelFormat = format_.acquiredFormat;
    });
}

HRESULT CLuxAcqFifo::CreateEventSink(BSTR ProgIDOrClassID, IUnknown** EventSink) {
    return core::Guarded("CreateEventSink", IID_ILuxAcqFifo, [&] {
        core::RequireOut(EventSink);
        *EventSink = nullptr;
        // The class table's failures carry their own error info: passed on as they are.
        core::ThrowIfFailed(
            tessaly::CreateObject(BstrView(ProgIDOrClassID), IUnknown::iid, reinterpret_cast<void**>(EventSink)));
    });
}

// --- acquisition -----------------------------------------------------------------------

HRESULT CLuxAcqFifo::Prepare() {
    return core::Guarded("Prepare", IID_ILuxAcqFifo, [&] {
        AcquisitionSettings settings;
        {
            core::ObjectLock::Guard guard(Lock());
            settings = settings_;
        }
        queue_->Prepare(settings);
    });
}

void CLuxAcqFifo::RequireClientStarts(const char* method) const {
    if (master_)
        ThrowAcqError(e_LuxAcq_NotAllowedForSlave, std::string(method) + ": a slave acquires when its master does");
    core::ObjectLock::Guard guard(Lock());
    if (!settings_.triggerEnabled)
        ThrowAcqError(e_LuxAcq_WrongTriggerModel,
                      std::string(method) + ": acquisition is off (TriggerEnabled is false)");
    const int32_t model = settings_.triggerModel;
    if (model == luxAcqTriggerModelAuto || model == luxAcqTriggerModelFreeRun)
        ThrowAcqError(e_LuxAcq_WrongTriggerModel, std::string(method) + ": with the " + TriggerModelName(model) +
                                                      " trigger model the grabber starts acquisitions itself; "
                                                      "collect them with CompleteAcquire(-1)");
}

HRESULT CLuxAcqFifo::StartAcquire(LONG* Ticket) {
    return core::Guarded("StartAcquire", IID_ILuxAcqFifo, [&] {
        core::RequireOut(Ticket);
        RequireClientStarts("StartAcquire");
        *Ticket = queue_->Start();
    });
}

ComPtr<ILuxImage> CLuxAcqFifo::MakeImage(AcqQueue::Collected& collected) {
    LuxImagePixelFormatConstants output;
    RegionOfInterest roi;
    ComPtr<ILuxCoordinateSpaceTree> tree;
    Bstr spaceName;
    {
        core::ObjectLock::Guard guard(Lock());
        output = outputFormat_;
        roi = settings_.roi;
        tree = tree_;
        spaceName = selectedSpaceName_;
    }
    image::ImageFilePixels pixels = ConvertAcquiredPixels(*collected.pixels, collected.acquiredFormat, output);
    // A frame the hardware did not cut is cut here, as a window: no pixel is copied.
    if (roi.mode == luxAcqROIModeSoftware && roi.width > 0 && pixels.Width() == format_.width &&
        pixels.Height() == format_.height)
        pixels = pixels.Window(roi.x, roi.y, roi.width, roi.height);
    ComPtr<ILuxImage> image = image::ImageFromFilePixels(pixels);
    if (tree) {
        ComPtr<IDispatch> copy;
        core::ThrowIfFailed(ComPtr<ILuxObject>(tree.As<ILuxObject>())->Clone(copy.Out()));
        core::ThrowIfFailed(image->putref_CoordinateSpaceTree(copy.As<ILuxCoordinateSpaceTree>().get()));
    }
    if (spaceName.size() > 0) core::ThrowIfFailed(image->put_SelectedSpaceName(spaceName.get()));
    return image;
}

HRESULT CLuxAcqFifo::Complete(const char* method, LONG requestedTicket, LONG* ticket, LONG* triggerNumber,
                              double* timestamp, ILuxImage** image) {
    return core::Guarded(method, IID_ILuxAcqFifo, [&] {
        core::RequireOut(image);
        *image = nullptr;
        bool sourceStarts = master_ != nullptr;
        {
            core::ObjectLock::Guard guard(Lock());
            const int32_t model = settings_.triggerModel;
            sourceStarts = sourceStarts || model == luxAcqTriggerModelAuto || model == luxAcqTriggerModelFreeRun;
        }
        AcqQueue::Collected collected = queue_->Complete(requestedTicket, TimeoutMs(), sourceStarts);
        ComPtr<ILuxImage> made = MakeImage(collected);
        if (ticket) *ticket = collected.ticket;
        if (triggerNumber) *triggerNumber = collected.triggerNumber;
        if (timestamp) *timestamp = collected.timestampMs;
        *image = made.Detach();
    });
}

HRESULT CLuxAcqFifo::CompleteAcquire(LONG RequestedTicket, LONG* Ticket, LONG* TriggerNumber, ILuxImage** Image) {
    return Complete("CompleteAcquire", RequestedTicket, Ticket, TriggerNumber, nullptr, Image);
}

HRESULT CLuxAcqFifo::CompleteAcquireEx(LONG RequestedTicket, LONG* Ticket, LONG* TriggerNumber, double* Timestamp,
                                       ILuxImage** Image) {
    return Complete("CompleteAcquireEx", RequestedTicket, Ticket, TriggerNumber, Timestamp, Image);
}

HRESULT CLuxAcqFifo::Acquire(LONG* TriggerNumber, ILuxImage** Image) {
    return core::Guarded("Acquire", IID_ILuxAcqFifo, [&] {
        core::RequireOut(Image);
        *Image = nullptr;
        int32_t model = luxAcqTriggerModelManual;
        {
            core::ObjectLock::Guard guard(Lock());
            model = settings_.triggerModel;
        }
        // The models whose acquisitions start by themselves collect the oldest one.
        LONG ticket = -1;
        if (!master_ && model != luxAcqTriggerModelAuto && model != luxAcqTriggerModelFreeRun) {
            RequireClientStarts("Acquire");
            ticket = queue_->Start();
        } else if (!master_) {
            core::ObjectLock::Guard guard(Lock());
            if (!settings_.triggerEnabled)
                ThrowAcqError(e_LuxAcq_WrongTriggerModel, "Acquire: acquisition is off (TriggerEnabled is false)");
        }
        core::ThrowIfFailed(Complete("Acquire", ticket, nullptr, TriggerNumber, nullptr, Image));
    });
}

HRESULT CLuxAcqFifo::Flush() {
    return core::Guarded("Flush", IID_ILuxAcqFifo, [&] {
        queue_->Flush();
        FireEvent(DIID_ILuxAcqFifoEvents, 7457);
    });
}

HRESULT CLuxAcqFifo::GetFifoState(LONG* NumPending, LONG* NumReady, VARIANT_BOOL* Busy) {
    return core::Guarded("GetFifoState", IID_ILuxAcqFifo, [&] {
        core::RequireOut(NumPending, NumReady, Busy);
        const AcqQueue::State state = queue_->GetState();
        *NumPending = state.pending;
        *NumReady = state.ready;
        *Busy = state.busy ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

// --- events of the queue ------------------------------------------------------------------

void CLuxAcqFifo::AcquisitionStarted(int32_t /*ticket*/, int32_t /*triggerNumber*/) noexcept {
    // Every slave starts one acquisition with each of its master's.
    std::vector<ComPtr<CLuxAcqFifo>> slaves;
    {
        const std::lock_guard lock(slavesMutex_);
        for (CLuxAcqFifo* slave : slaves_) slaves.emplace_back(slave);
    }
    for (const ComPtr<CLuxAcqFifo>& slave : slaves) {
        try {
            slave->queue_->Start();
        } catch (...) {
            // The slave's own refusal (too many outstanding) leaves it a frame short,
            // which its client sees as a missing ticket; the master goes on.
        }
    }
}

void CLuxAcqFifo::ExposureEnded(int32_t ticket, int32_t triggerNumber) noexcept {
    FireEvent(DIID_ILuxAcqMovePartEvent, 1, static_cast<int32_t>(ticket), static_cast<int32_t>(triggerNumber));
}

void CLuxAcqFifo::AcquisitionComplete(int32_t ticket, int32_t triggerNumber) noexcept {
    FireEvent(DIID_ILuxAcqCompleteEvent, 1, static_cast<int32_t>(ticket), static_cast<int32_t>(triggerNumber));
}

void CLuxAcqFifo::AcquisitionLost(int32_t ticket, int32_t triggerNumber) noexcept {
    FireEvent(DIID_ILuxAcqOverrunEvent, 1, static_cast<int32_t>(ticket), static_cast<int32_t>(triggerNumber));
}

// --- simultaneous acquisition -------------------------------------------------------------

void CLuxAcqFifo::AddSlave(CLuxAcqFifo* slave) {
    const std::lock_guard lock(slavesMutex_);
    slaves_.push_back(slave);
}

void CLuxAcqFifo::RemoveSlave(CLuxAcqFifo* slave) noexcept {
    const std::lock_guard lock(slavesMutex_);
    std::erase(slaves_, slave);
}

HRESULT CLuxAcqFifo::get_Master(ILuxAcqFifo** Master) {
    return core::Guarded("Master", IID_ILuxAcqFifo, [&] {
        core::RequireOut(Master);
        *Master = master_ ? ComPtr<ILuxAcqFifo>(static_cast<ILuxAcqFifo*>(master_.get())).Detach() : nullptr;
    });
}

HRESULT CLuxAcqFifo::get_Slaves(ILuxCollection** Slaves) {
    return core::Guarded("Slaves", IID_ILuxAcqFifo, [&] {
        core::RequireOut(Slaves);
        *Slaves = nullptr;
        ComPtr<ILuxCollection> collection;
        core::ThrowIfFailed(tessaly::CreateObject(CLSID_LuxCollection, IID_ILuxCollection, collection.OutVoid()));
        std::vector<ComPtr<CLuxAcqFifo>> slaves;
        {
            const std::lock_guard lock(slavesMutex_);
            for (CLuxAcqFifo* slave : slaves_) slaves.emplace_back(slave);
        }
        for (const ComPtr<CLuxAcqFifo>& slave : slaves)
            core::ThrowIfFailed(collection->Add(
                Variant(static_cast<IDispatch*>(static_cast<ILuxAcqFifo*>(slave.get()))).get(), Bstr("").get(), -1));
        *Slaves = collection.Detach();
    });
}

HRESULT CLuxAcqFifo::CreateSlaveAcqFifo(VARIANT_BOOL AutoPrepare, ILuxAcqFifo** Slave) {
    return core::Guarded("CreateSlaveAcqFifo", IID_ILuxAcqFifo, [&] {
        core::RequireOut(Slave);
        *Slave = nullptr;
        if (master_) ThrowAcqError(e_LuxAcq_CannotSlave, "a slave FIFO has no slaves of its own");
        // The next camera port after the master's and its slaves' that the grabber opens.
        AcquisitionSettings settings;
        LuxImagePixelFormatConstants output;
        {
            core::ObjectLock::Guard guard(Lock());
            settings = settings_;
            output = outputFormat_;
        }
        std::unique_ptr<FrameSource> source;
        int32_t port = settings.cameraPort;
        for (int32_t step = 1; step < format_.cameraPorts && !source; ++step) {
            port = (settings.cameraPort + step) % format_.cameraPorts;
            try {
                source = driver_->OpenSource(format_, port);
            } catch (const core::ccCOMError& error) {
                if (error.Result() != e_LuxAcq_HardwareInUse) throw;
            }
        }
        if (!source)
            ThrowAcqError(e_LuxAcq_CannotSlave,
                          "\"" + format_.name + "\" of " + GrabberName() + " has no free camera port left for a slave");
        auto slave = ComPtr<CLuxAcqFifo>::Attach(Create());
        if (!slave) throw std::bad_alloc();
        slave->grabber_ = grabber_;
        slave->driver_ = driver_;
        slave->format_ = format_;
        slave->settings_ = settings;
        slave->settings_.cameraPort = port;
        slave->settings_.triggerModel = luxAcqTriggerModelSlave;
        slave->autoPrepare_ = AutoPrepare != VARIANT_FALSE;
        slave->outputFormat_ = output;
        AcqQueueEvents& events = *slave;
        slave->queue_ = std::make_unique<AcqQueue>(std::move(source), events);
        if (slave->autoPrepare_) slave->queue_->Prepare(slave->settings_);
        slave->master_ = ComPtr<CLuxAcqFifo>(this);
        AddSlave(slave.get());
        *Slave = ComPtr<ILuxAcqFifo>(static_cast<ILuxAcqFifo*>(slave.get())).Detach();
    });
}

}  // namespace tessaly::acq
