// LuxAcqFifo: images taken from one camera port of a frame grabber in one video format,
// each acquisition identified by a ticket (AcqQueue holds the rules of tickets, waiting
// and flushing). A FIFO is made by its grabber (CreateAcqFifo) and keeps the grabber alive.
//
//  - Settings: every property of the property interfaces is kept by its state ID in one
//    AcquisitionSettings and read, checked and stored by one mechanism (GetSetting,
//    PutSetting): the source says which it supports, their range and initial value; an
//    unsupported one is E_NOTIMPL both ways, a number out of range E_INVALIDARG, both
//    naming the property and the grabber. A change raises Change(StateID, Value,
//    luxFA_AcqFifo_Acquisition), none when the value is the same, and with
//    AutoPrepareEnabled prepares the source at once; a setting the source refuses then is
//    put back and the put fails with the source's error.
//  - Images: the pixels the source delivered, converted to OutputPixelFormat when it
//    differs (PixelFormatConversion), cut to the region of interest in software mode,
//    shared with the image without a copy otherwise; each carries a copy of the FIFO's
//    CoordinateSpaceTree (when one is set) and its SelectedSpaceName.
//  - Trigger models: StartAcquire (and Acquire) is e_LuxAcq_WrongTriggerModel while
//    TriggerEnabled is false and for the Auto and FreeRun models, whose acquisitions the
//    source starts itself; e_LuxAcq_NotAllowedForSlave for a slave, whose acquisitions
//    start with its master's. With those models (and for a slave) CompleteAcquire(-1) and
//    Acquire wait for the next acquisition when none is outstanding.
//  - Events: MovePart, Complete and Overrun on their own outgoing interfaces, fired on the
//    grabber's thread with no lock of the FIFO held; Flushed on the thread that flushed.
//  - Simultaneous acquisition: CreateSlaveAcqFifo makes a FIFO on the next free camera port
//    with the Slave model; every acquisition the master starts starts one on each slave.
//    The master knows its slaves without holding them; each slave holds its master.
//  - A FIFO is not cloned or persisted: it holds a camera port. Clone and Persist fail
//    with E_NOTIMPL.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "TessalyCore.h"
#include "com/acq/AcqQueue.h"
#include "com/acq/FrameGrabberDriver.h"
#include "com/acq/VideoFormatInfo.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "platform/Bstr.h"
#include "platform/ComPtr.h"

namespace tessaly::acq {

class CLuxAcqFifo
    : public core::ILuxObjectImplBase<CLuxAcqFifo, ILuxAcqFifo, ILuxAcqSimultaneous, ILuxAcqLight, ILuxAcqStrobe,
                                      ILuxAcqExposure, ILuxAcqTrigger, ILuxAcqROI, ILuxAcqBrightness, ILuxAcqContrast,
                                      ILuxAcqSettlingTime, ILuxAcqSample, ILuxAcqLookupTable, ILuxAcqReadoutDirection,
                                      ILuxAcqTriggerFilter, ILuxAcqStrobeDelay, ILuxAcqCameraCalibration,
                                      ILuxAcqDigitalGain, ILuxAcqMasterClock, ILuxAcqOffsetClamp, ILuxAcqLineScan,
                                      ILuxAcqCustomProperties, ILuxAcqGain, ILuxAcqFrameRate>,
      private AcqQueueEvents {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxAcqFifo; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxAcqFifo;

    // The milliseconds Acquire and CompleteAcquire wait once TimeoutEnabled is set.
    static constexpr double kDefaultTimeoutMs = 10000.0;

    CLuxAcqFifo() = default;

    // A FIFO of `grabber` (whose driver is `driver`) on a camera port in a video format,
    // delivering `outputFormat`; prepared at once when `autoPrepare`. Throws the
    // grabber's refusal, E_INVALIDARG for an output format the FIFO cannot convert to.
    static ComPtr<ILuxAcqFifo> Make(ILuxFrameGrabber* grabber, FrameGrabberDriver& driver,
                                    const VideoFormatInfo& format, int32_t cameraPort,
                                    LuxImagePixelFormatConstants outputFormat, bool autoPrepare);

    // What the object base asks of a class.
    void CopyFrom(const CLuxAcqFifo& source);
    void PersistState(core::ArchiveAccess& archive);
    void ResetState() noexcept {}

    // ILuxObject: a FIFO is not cloned.
    HRESULT Clone(IDispatch** Copy) override;

    // ILuxAcqFifo
    HRESULT get_SelectedSpaceName(BSTR* SelectedSpaceName) override;
    HRESULT put_SelectedSpaceName(BSTR SelectedSpaceName) override;
    HRESULT get_CoordinateSpaceTree(ILuxCoordinateSpaceTree** CoordinateSpaceTree) override;
    HRESULT putref_CoordinateSpaceTree(ILuxCoordinateSpaceTree* CoordinateSpaceTree) override;
    HRESULT get_TimeoutEnabled(VARIANT_BOOL* TimeoutEnabled) override;
    HRESULT put_TimeoutEnabled(VARIANT_BOOL TimeoutEnabled) override;
    HRESULT get_Timeout(double* Timeout) override;
    HRESULT put_Timeout(double Timeout) override;
    HRESULT get_CameraPort(LONG* CameraPort) override;
    HRESULT put_CameraPort(LONG CameraPort) override;
    HRESULT get_AutoPrepareEnabled(VARIANT_BOOL* AutoPrepareEnabled) override;
    HRESULT put_AutoPrepareEnabled(VARIANT_BOOL AutoPrepareEnabled) override;
    HRESULT get_FrameGrabber(ILuxFrameGrabber** FrameGrabber) override;
    HRESULT get_VideoFormat(BSTR* VideoFormat) override;
    HRESULT Acquire(LONG* TriggerNumber, ILuxImage** Image) override;
    HRESULT StartAcquire(LONG* Ticket) override;
    HRESULT CompleteAcquire(LONG RequestedTicket, LONG* Ticket, LONG* TriggerNumber, ILuxImage** Image) override;
    HRESULT Flush() override;
    HRESULT get_NumCameraPorts(LONG* NumCameraPorts) override;
    HRESULT GetFifoState(LONG* NumPending, LONG* NumReady, VARIANT_BOOL* Busy) override;
    HRESULT Prepare() override;
    HRESULT CompleteAcquireEx(LONG RequestedTicket, LONG* Ticket, LONG* TriggerNumber, double* Timestamp,
                              ILuxImage** Image) override;
    HRESULT get_OutputPixelFormat(LuxImagePixelFormatConstants* OutputPixelFormat) override;
    HRESULT put_OutputPixelFormat(LuxImagePixelFormatConstants OutputPixelFormat) override;
    HRESULT AcquiredPixelFormat(LuxImagePixelFormatConstants* AcquiredPixelFormat) override;
    HRESULT CreateEventSink(BSTR ProgIDOrClassID, IUnknown** EventSink) override;

    // ILuxAcqSimultaneous
    HRESULT get_Master(ILuxAcqFifo** Master) override;
    HRESULT get_Slaves(ILuxCollection** Slaves) override;
    HRESULT CreateSlaveAcqFifo(VARIANT_BOOL AutoPrepare, ILuxAcqFifo** Slave) override;

    // ILuxAcqLight
    HRESULT get_LightPower(double* v) override { return GetSetting(luxAcqLight_LightPower, "LightPower", v); }
    HRESULT put_LightPower(double v) override { return PutSetting(luxAcqLight_LightPower, "LightPower", v); }
    HRESULT get_LightEnabled(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqLight_LightEnabled, "LightEnabled", v);
    }
    HRESULT put_LightEnabled(VARIANT_BOOL v) override { return PutFlag(luxAcqLight_LightEnabled, "LightEnabled", v); }
    HRESULT get_LightBrightFieldPowerRatio(double* v) override {
        return GetSetting(luxAcqLight_LightBrightFieldPowerRatio, "LightBrightFieldPowerRatio", v);
    }
    HRESULT put_LightBrightFieldPowerRatio(double v) override {
        return PutSetting(luxAcqLight_LightBrightFieldPowerRatio, "LightBrightFieldPowerRatio", v);
    }
    HRESULT get_LightDelay(double* v) override { return GetSetting(luxAcqLight_LightDelay, "LightDelay", v); }
    HRESULT put_LightDelay(double v) override { return PutSetting(luxAcqLight_LightDelay, "LightDelay", v); }
    HRESULT get_AuxLightEnabled(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqLight_AuxLightEnabled, "AuxLightEnabled", v);
    }
    HRESULT put_AuxLightEnabled(VARIANT_BOOL v) override {
        return PutFlag(luxAcqLight_AuxLightEnabled, "AuxLightEnabled", v);
    }

    // ILuxAcqStrobe
    HRESULT get_StrobeEnabled(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqStrobe_StrobeEnabled, "StrobeEnabled", v);
    }
    HRESULT put_StrobeEnabled(VARIANT_BOOL v) override {
        return PutFlag(luxAcqStrobe_StrobeEnabled, "StrobeEnabled", v);
    }
    HRESULT get_StrobePulseDuration(double* v) override {
        return GetSetting(luxAcqStrobe_StrobePulseDuration, "StrobePulseDuration", v);
    }
    HRESULT put_StrobePulseDuration(double v) override {
        return PutSetting(luxAcqStrobe_StrobePulseDuration, "StrobePulseDuration", v);
    }
    HRESULT get_StrobeLowToHigh(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqStrobe_StrobeLowToHigh, "StrobeLowToHigh", v);
    }
    HRESULT put_StrobeLowToHigh(VARIANT_BOOL v) override {
        return PutFlag(luxAcqStrobe_StrobeLowToHigh, "StrobeLowToHigh", v);
    }

    // ILuxAcqExposure
    HRESULT get_Exposure(double* v) override { return GetSetting(luxAcqExposure_Exposure, "Exposure", v); }
    HRESULT put_Exposure(double v) override { return PutSetting(luxAcqExposure_Exposure, "Exposure", v); }
    HRESULT get_MinExposure(double* v) override { return GetBound(luxAcqExposure_Exposure, "MinExposure", false, v); }
    HRESULT get_MaxExposure(double* v) override { return GetBound(luxAcqExposure_Exposure, "MaxExposure", true, v); }

    // ILuxAcqTrigger
    HRESULT get_TriggerModel(LuxAcqTriggerModelConstants* TriggerModel) override;
    HRESULT put_TriggerModel(LuxAcqTriggerModelConstants TriggerModel) override;
    HRESULT get_TriggerEnabled(VARIANT_BOOL* TriggerEnabled) override;
    HRESULT put_TriggerEnabled(VARIANT_BOOL TriggerEnabled) override;
    HRESULT get_TriggerLowToHigh(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqTrigger_TriggerLowToHigh, "TriggerLowToHigh", v);
    }
    HRESULT put_TriggerLowToHigh(VARIANT_BOOL v) override {
        return PutFlag(luxAcqTrigger_TriggerLowToHigh, "TriggerLowToHigh", v);
    }

    // ILuxAcqROI
    HRESULT SetROIXYWidthHeight(LONG X, LONG Y, LONG Width, LONG Height) override;
    HRESULT GetROIXYWidthHeight(LONG* X, LONG* Y, LONG* Width, LONG* Height) override;
    HRESULT get_ROIMode(LuxAcqROIModeConstants* ROIMode) override;
    HRESULT put_ROIMode(LuxAcqROIModeConstants ROIMode) override;
    HRESULT IsROIModeSupported(LuxAcqROIModeConstants ROIMode, VARIANT_BOOL* Supported) override;

    // ILuxAcqBrightness, ILuxAcqContrast, ILuxAcqSettlingTime
    HRESULT get_Brightness(double* v) override { return GetSetting(luxAcqBrightness_Brightness, "Brightness", v); }
    HRESULT put_Brightness(double v) override { return PutSetting(luxAcqBrightness_Brightness, "Brightness", v); }
    HRESULT get_Contrast(double* v) override { return GetSetting(luxAcqContrast_Contrast, "Contrast", v); }
    HRESULT put_Contrast(double v) override { return PutSetting(luxAcqContrast_Contrast, "Contrast", v); }
    HRESULT get_SettlingTime(double* v) override {
        return GetSetting(luxAcqSettlingTime_SettlingTime, "SettlingTime", v);
    }
    HRESULT put_SettlingTime(double v) override {
        return PutSetting(luxAcqSettlingTime_SettlingTime, "SettlingTime", v);
    }

    // ILuxAcqSample
    HRESULT get_SampleHorizontal(LONG* v) override {
        return GetSetting(luxAcqSample_SampleHorizontal, "SampleHorizontal", v);
    }
    HRESULT put_SampleHorizontal(LONG v) override {
        return PutWhole(luxAcqSample_SampleHorizontal, "SampleHorizontal", v);
    }
    HRESULT get_SampleVertical(LONG* v) override {
        return GetSetting(luxAcqSample_SampleVertical, "SampleVertical", v);
    }
    HRESULT put_SampleVertical(LONG v) override { return PutWhole(luxAcqSample_SampleVertical, "SampleVertical", v); }

    // ILuxAcqLookupTable
    HRESULT get_LookupTableEnabled(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqLookupTable_LookupTableEnabled, "LookupTableEnabled", v);
    }
    HRESULT put_LookupTableEnabled(VARIANT_BOOL v) override {
        return PutFlag(luxAcqLookupTable_LookupTableEnabled, "LookupTableEnabled", v);
    }
    HRESULT get_LookupTable(VARIANT* LookupTable) override;
    HRESULT put_LookupTable(VARIANT LookupTable) override;

    // ILuxAcqReadoutDirection
    HRESULT get_ReverseX(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqReadoutDirection_ReverseX, "ReverseX", v);
    }
    HRESULT put_ReverseX(VARIANT_BOOL v) override { return PutFlag(luxAcqReadoutDirection_ReverseX, "ReverseX", v); }
    HRESULT get_ReverseY(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqReadoutDirection_ReverseY, "ReverseY", v);
    }
    HRESULT put_ReverseY(VARIANT_BOOL v) override { return PutFlag(luxAcqReadoutDirection_ReverseY, "ReverseY", v); }

    // ILuxAcqTriggerFilter, ILuxAcqStrobeDelay
    HRESULT get_TriggerFilterEnabled(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqTriggerFilter_TriggerFilterEnabled, "TriggerFilterEnabled", v);
    }
    HRESULT put_TriggerFilterEnabled(VARIANT_BOOL v) override {
        return PutFlag(luxAcqTriggerFilter_TriggerFilterEnabled, "TriggerFilterEnabled", v);
    }
    HRESULT get_TriggerFilterWidth(double* v) override {
        return GetSetting(luxAcqTriggerFilter_TriggerFilterWidth, "TriggerFilterWidth", v);
    }
    HRESULT put_TriggerFilterWidth(double v) override {
        return PutSetting(luxAcqTriggerFilter_TriggerFilterWidth, "TriggerFilterWidth", v);
    }
    HRESULT get_StrobeDelay(double* v) override { return GetSetting(luxAcqStrobeDelay_StrobeDelay, "StrobeDelay", v); }
    HRESULT put_StrobeDelay(double v) override { return PutSetting(luxAcqStrobeDelay_StrobeDelay, "StrobeDelay", v); }

    // ILuxAcqCameraCalibration
    HRESULT get_FlatFieldCorrectionEnabled(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqCameraCalibration_FlatFieldCorrectionEnabled, "FlatFieldCorrectionEnabled", v);
    }
    HRESULT put_FlatFieldCorrectionEnabled(VARIANT_BOOL v) override {
        return PutFlag(luxAcqCameraCalibration_FlatFieldCorrectionEnabled, "FlatFieldCorrectionEnabled", v);
    }
    HRESULT get_DefectPixelCorrectionEnabled(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqCameraCalibration_DefectPixelCorrectionEnabled, "DefectPixelCorrectionEnabled", v);
    }
    HRESULT put_DefectPixelCorrectionEnabled(VARIANT_BOOL v) override {
        return PutFlag(luxAcqCameraCalibration_DefectPixelCorrectionEnabled, "DefectPixelCorrectionEnabled", v);
    }
    HRESULT get_CalibrationFileName(BSTR* v) override {
        return GetSetting(luxAcqCameraCalibration_CalibrationFileName, "CalibrationFileName", v);
    }
    HRESULT put_CalibrationFileName(BSTR v) override {
        return PutText(luxAcqCameraCalibration_CalibrationFileName, "CalibrationFileName", v);
    }

    // ILuxAcqDigitalGain
    HRESULT get_DigitalGain(double* v) override { return GetSetting(luxAcqDigitalGain_DigitalGain, "DigitalGain", v); }
    HRESULT put_DigitalGain(double v) override { return PutSetting(luxAcqDigitalGain_DigitalGain, "DigitalGain", v); }
    HRESULT get_MinDigitalGain(double* v) override {
        return GetBound(luxAcqDigitalGain_DigitalGain, "MinDigitalGain", false, v);
    }
    HRESULT get_MaxDigitalGain(double* v) override {
        return GetBound(luxAcqDigitalGain_DigitalGain, "MaxDigitalGain", true, v);
    }

    // ILuxAcqMasterClock
    HRESULT get_MasterClockEnabled(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqMasterClock_MasterClockEnabled, "MasterClockEnabled", v);
    }
    HRESULT put_MasterClockEnabled(VARIANT_BOOL v) override {
        return PutFlag(luxAcqMasterClock_MasterClockEnabled, "MasterClockEnabled", v);
    }
    HRESULT get_MasterClockFrequency(double* v) override {
        return GetSetting(luxAcqMasterClock_MasterClockFrequency, "MasterClockFrequency", v);
    }
    HRESULT put_MasterClockFrequency(double v) override {
        return PutSetting(luxAcqMasterClock_MasterClockFrequency, "MasterClockFrequency", v);
    }

    // ILuxAcqOffsetClamp
    HRESULT get_Offset(double* v) override { return GetSetting(luxAcqOffsetClamp_Offset, "Offset", v); }
    HRESULT put_Offset(double v) override { return PutSetting(luxAcqOffsetClamp_Offset, "Offset", v); }
    HRESULT get_ClampEnabled(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqOffsetClamp_ClampEnabled, "ClampEnabled", v);
    }
    HRESULT put_ClampEnabled(VARIANT_BOOL v) override {
        return PutFlag(luxAcqOffsetClamp_ClampEnabled, "ClampEnabled", v);
    }
    HRESULT get_ClampLevel(double* v) override { return GetSetting(luxAcqOffsetClamp_ClampLevel, "ClampLevel", v); }
    HRESULT put_ClampLevel(double v) override { return PutSetting(luxAcqOffsetClamp_ClampLevel, "ClampLevel", v); }

    // ILuxAcqLineScan
    HRESULT get_LinesPerFrame(LONG* v) override { return GetSetting(luxAcqLineScan_LinesPerFrame, "LinesPerFrame", v); }
    HRESULT put_LinesPerFrame(LONG v) override { return PutWhole(luxAcqLineScan_LinesPerFrame, "LinesPerFrame", v); }
    HRESULT get_LinePeriod(double* v) override { return GetSetting(luxAcqLineScan_LinePeriod, "LinePeriod", v); }
    HRESULT put_LinePeriod(double v) override { return PutSetting(luxAcqLineScan_LinePeriod, "LinePeriod", v); }
    HRESULT get_EncoderEnabled(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqLineScan_EncoderEnabled, "EncoderEnabled", v);
    }
    HRESULT put_EncoderEnabled(VARIANT_BOOL v) override {
        return PutFlag(luxAcqLineScan_EncoderEnabled, "EncoderEnabled", v);
    }
    HRESULT get_EncoderDivider(LONG* v) override {
        return GetSetting(luxAcqLineScan_EncoderDivider, "EncoderDivider", v);
    }
    HRESULT put_EncoderDivider(LONG v) override { return PutWhole(luxAcqLineScan_EncoderDivider, "EncoderDivider", v); }
    HRESULT get_EncoderForward(VARIANT_BOOL* v) override {
        return GetSetting(luxAcqLineScan_EncoderForward, "EncoderForward", v);
    }
    HRESULT put_EncoderForward(VARIANT_BOOL v) override {
        return PutFlag(luxAcqLineScan_EncoderForward, "EncoderForward", v);
    }
    HRESULT get_EncoderOffset(LONG* v) override { return GetSetting(luxAcqLineScan_EncoderOffset, "EncoderOffset", v); }
    HRESULT put_EncoderOffset(LONG v) override { return PutWhole(luxAcqLineScan_EncoderOffset, "EncoderOffset", v); }
    HRESULT ResetEncoder() override;

    // ILuxAcqCustomProperties
    HRESULT get_CustomProperty(BSTR Name, VARIANT* Value) override;
    HRESULT put_CustomProperty(BSTR Name, VARIANT Value) override;
    HRESULT get_CustomPropertyNames(ILuxStringCollection** Names) override;
    HRESULT ExecuteCustomCommand(BSTR Name) override;

    // ILuxAcqGain, ILuxAcqFrameRate
    HRESULT get_Gain(double* v) override { return GetSetting(luxAcqGain_Gain, "Gain", v); }
    HRESULT put_Gain(double v) override { return PutSetting(luxAcqGain_Gain, "Gain", v); }
    HRESULT get_MinGain(double* v) override { return GetBound(luxAcqGain_Gain, "MinGain", false, v); }
    HRESULT get_MaxGain(double* v) override { return GetBound(luxAcqGain_Gain, "MaxGain", true, v); }
    HRESULT get_FrameRate(double* v) override { return GetSetting(luxAcqFrameRate_FrameRate, "FrameRate", v); }
    HRESULT put_FrameRate(double v) override { return PutSetting(luxAcqFrameRate_FrameRate, "FrameRate", v); }
    HRESULT get_MaxFrameRate(double* v) override {
        return GetBound(luxAcqFrameRate_FrameRate, "MaxFrameRate", true, v);
    }

protected:
    ~CLuxAcqFifo() override;

private:
    // A setting read as the client's type: the stored value, else the source's initial one.
    template <class Out>
    HRESULT GetSetting(int32_t stateId, const char* name, Out* value);
    // The smallest or largest value the source allows for a setting.
    HRESULT GetBound(int32_t stateId, const char* name, bool largest, double* value);
    HRESULT PutSetting(int32_t stateId, const char* name, double value);
    HRESULT PutFlag(int32_t stateId, const char* name, VARIANT_BOOL value);
    HRESULT PutWhole(int32_t stateId, const char* name, LONG value);
    HRESULT PutText(int32_t stateId, const char* name, BSTR value);
    // Checks `value` against the source, stores it, prepares when asked, raises Change.
    void StoreSetting(int32_t stateId, const char* name, SettingValue value);
    // The source's support of a setting; E_NOTIMPL naming it when it has none.
    SettingSupport RequireSupport(int32_t stateId, const char* name) const;
    // Applies a change to the settings, prepares when AutoPrepareEnabled, and undoes the
    // change when the source refuses; then raises Change(stateId, value).
    template <class Change>
    void ChangeSettings(int32_t stateId, const VARIANT& value, Change&& change);

    // The image of an acquisition collected from the queue.
    ComPtr<ILuxImage> MakeImage(AcqQueue::Collected& collected);
    HRESULT Complete(const char* method, LONG requestedTicket, LONG* ticket, LONG* triggerNumber, double* timestamp,
                     ILuxImage** image);
    void RequireClientStarts(const char* method) const;
    std::optional<double> TimeoutMs() const;
    std::string GrabberName() const;

    // AcqQueueEvents
    void AcquisitionStarted(int32_t ticket, int32_t triggerNumber) noexcept override;
    void ExposureEnded(int32_t ticket, int32_t triggerNumber) noexcept override;
    void AcquisitionComplete(int32_t ticket, int32_t triggerNumber) noexcept override;
    void AcquisitionLost(int32_t ticket, int32_t triggerNumber) noexcept override;

    void AddSlave(CLuxAcqFifo* slave);
    void RemoveSlave(CLuxAcqFifo* slave) noexcept;

    // Set once by Make, then read without the lock.
    ComPtr<ILuxFrameGrabber> grabber_;
    FrameGrabberDriver* driver_ = nullptr;
    VideoFormatInfo format_;
    std::unique_ptr<AcqQueue> queue_;

    // Under the object's lock.
    AcquisitionSettings settings_;
    Bstr selectedSpaceName_;
    ComPtr<ILuxCoordinateSpaceTree> tree_;
    bool timeoutEnabled_ = false;
    double timeoutMs_ = kDefaultTimeoutMs;
    bool autoPrepare_ = true;
    LuxImagePixelFormatConstants outputFormat_ = luxImagePixelFormatGrey8;

    // The group of simultaneous acquisition.
    ComPtr<CLuxAcqFifo> master_;  // a slave's master, set once by CreateSlaveAcqFifo
    mutable std::mutex slavesMutex_;
    std::vector<CLuxAcqFifo*> slaves_;  // a master's slaves, each removing itself as it goes
};

}  // namespace tessaly::acq
