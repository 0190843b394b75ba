#include "com/tool/CLuxRegionStatisticsTool.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>
#include <limits>
#include <string>
#include <utility>

#include "com/core/MessageTable.h"
#include "com/core/ccCOMError.h"
#include "com/image/CLuxImage16Grey.h"
#include "com/image/CLuxImage24PlanarColor.h"
#include "com/image/CLuxImage8Grey.h"
#include "com/shape/ShapeFactory.h"
#include "persist/ccArchive.h"
#include "platform/ClassTable.h"
#include "platform/SafeArray.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/rlebuf/ccRegionPixelStatistics.h"
#include "xnl/std/shapes/ccRect.h"

namespace tessaly::tool {

namespace {

const ClassRegistrar<CLuxRegionStatisticsTool> registrar;

using Content = core::ArchiveAccess::Content;

constexpr const char* kInputNames[] = {"InputImage", "Region"};
constexpr const char* kOutputNames[] = {"Area", "Mean", "StandardDeviation", "Min", "Max", "Median"};

constexpr uint8_t kInside = 255;
constexpr uint8_t kOutside = 0;

const IID& ToolIid() noexcept { return IID_ILuxRegionStatisticsTool; }

[[noreturn]] void FailRun(HRESULT code, const std::string& text) {
    throw core::ccCOMError(code, text, "Run", ToolIid());
}

// The shortest text that reads back as the same double.
std::string NumberText(double value) {
    char text[32];
    const auto [end, error] = std::to_chars(text, text + sizeof text, value);
    return error == std::errc() ? std::string(text, end) : std::to_string(value);
}

[[noreturn]] void RefuseStored(const char* key, const std::string& why) {
    throw ccArchive::BadContent(std::string(key) + " " + why, ids_Lux_ReadInvalidProperty_1, {key});
}

void CheckNotNaN(double value, const char* property) {
    if (std::isnan(value)) [[unlikely]]
        throw ccStdError::BadArgument(property, ids_Lux_InvalidArgValue_1, {property});
}

bool ValidPlane(int32_t plane) noexcept { return plane >= 0 && plane <= 2; }

// A long array (VT_ARRAY | VT_I4) of the counts; throws std::bad_alloc.
VARIANT HistogramVariant(const std::vector<int32_t>& counts) {
    SAFEARRAY* array = SafeArrayCreateVector(VT_I4, 0, static_cast<ULONG>(counts.size()));
    if (!array) throw std::bad_alloc();
    void* data = nullptr;
    SafeArrayAccessData(array, &data);
    if (!counts.empty()) std::memcpy(data, counts.data(), counts.size() * sizeof(int32_t));
    SafeArrayUnaccessData(array);
    VARIANT value{};
    value.vt = VT_ARRAY | VT_I4;
    value.parray = array;
    return value;
}

// The counts of a stored histogram: a one-dimensional long array of 256 or 65536 entries,
// none negative.
std::vector<int32_t> StoredHistogram(const VARIANT& value) {
    if (value.vt != (VT_ARRAY | VT_I4) || !value.parray || SafeArrayGetDim(value.parray) != 1)
        RefuseStored("Histogram", "is not an array of 4-byte counts");
    LONG lower = 0;
    LONG upper = -1;
    SafeArrayGetLBound(value.parray, 1, &lower);
    SafeArrayGetUBound(value.parray, 1, &upper);
    const int64_t count = int64_t{upper} - lower + 1;
    if (count != 256 && count != 65536) RefuseStored("Histogram", "has neither 256 nor 65536 entries");
    std::vector<int32_t> counts(static_cast<size_t>(count));
    void* data = nullptr;
    if (FAILED(SafeArrayAccessData(value.parray, &data))) RefuseStored("Histogram", "cannot be read");
    std::memcpy(counts.data(), data, counts.size() * sizeof(int32_t));
    SafeArrayUnaccessData(value.parray);
    for (int32_t c : counts)
        if (c < 0) RefuseStored("Histogram", "holds a negative count");
    return counts;
}

double StoredDouble(Variant& value, const char* key) {
    if (FAILED(value.ChangeType(VT_R8))) RefuseStored(key, "is not a number");
    return value.get().dblVal;
}

int32_t StoredInt(Variant& value, const char* key) {
    if (FAILED(value.ChangeType(VT_I4))) RefuseStored(key, "is not a 4-byte integer");
    return value.get().lVal;
}

template <class I>
ComPtr<I> StoredObject(const Variant& value, const char* key) {
    const VARIANT& v = value.get();
    const bool object = v.vt == VT_DISPATCH || v.vt == VT_UNKNOWN;
    if (v.vt == VT_EMPTY || (object && !v.punkVal)) return nullptr;
    ComPtr<I> found;
    if (object) v.punkVal->QueryInterface(I::iid, found.OutVoid());
    if (!found) throw ccArchive::BadContent(std::string(key) + " is not of the expected kind",
                                           ids_Lux_ReadInvalidObject_1, {key});
    return found;
}

// The pixels a run measures: an 8-bit grey image, a plane of a colour image, or a 16-bit
// grey image (grey16 bound). Refuses another implementation of ILuxImage (E_INVALIDARG
// naming "InputImage") and an image without pixels (e_LuxImage_NoPixels).
struct MeasuredImage {
    ccPelBuffer<uint8_t> grey8;
    ccPelBuffer<uint16_t> grey16;

    int32_t Width() const noexcept { return grey16.IsBound() ? grey16.Width() : grey8.Width(); }
    int32_t Height() const noexcept { return grey16.IsBound() ? grey16.Height() : grey8.Height(); }

    static MeasuredImage Of(ILuxImage* image, int32_t plane) {
        MeasuredImage pixels;
        if (const auto* grey = image::CLuxImage8Grey::ImplementationOf(image)) {
            pixels.grey8 = grey->Pels();
        } else if (const auto* deep = image::CLuxImage16Grey::ImplementationOf(image)) {
            pixels.grey16 = deep->Pels();
        } else if (const auto* colour = image::CLuxImage24PlanarColor::ImplementationOf(image)) {
            const cc3PlanePelBuffer planes = colour->Planes();
            if (planes.Plane(0).IsBound()) pixels.grey8 = planes.Plane(plane);
        } else {
            throw ccStdError::BadArgument("InputImage", core::ids_Core_InvalidArg_1, {"InputImage"});
        }
        if (!pixels.grey8.IsBound() && !pixels.grey16.IsBound())
            FailRun(e_LuxImage_NoPixels, "The input image has no pixels.");
        return pixels;
    }
};

}  // namespace

std::span<const char* const> CLuxRegionStatisticsTool::ExposedInputNames() noexcept { return kInputNames; }
std::span<const char* const> CLuxRegionStatisticsTool::ExposedOutputNames() noexcept { return kOutputNames; }

// ---- the work -------------------------------------------------------------------------

CLuxRegionStatisticsTool::MeasuredPixels CLuxRegionStatisticsTool::PixelsToMeasure(ILuxImage* image, int32_t width,
                                                                                  int32_t height) {
    // Lock held (RunWork).
    ccShapePtrh_const core;
    cc2XformLinear pixelFromRegion;
    if (region_) {
        const core::ShapeImplementation& region = core::ShapeImplementation::Require(region_.get(), "Region");
        core = region.CoreShape();
        const std::string space = shape::SpaceInImage(image, region.CommonState().selectedSpaceName);
        pixelFromRegion = shape::LinearTransformInImage(image, "#", space);
    }
    const double key[6] = {pixelFromRegion.M00(), pixelFromRegion.M01(), pixelFromRegion.M10(),
                           pixelFromRegion.M11(), pixelFromRegion.TranslationX(), pixelFromRegion.TranslationY()};
    MaskCache& cache = maskCache_;
    if (cache.measured.regionInPixels && cache.regionCore == core && cache.width == width && cache.height == height &&
        std::equal(std::begin(key), std::end(key), std::begin(cache.pixelFromRegion)))
        return cache.measured;  // shares the runs and the shape

    MeasuredPixels measured;
    if (core)
        measured.regionInPixels = core->Map(pixelFromRegion);
    else
        measured.regionInPixels = ccShapePtrh_const(new ccRect(0, 0, width, height));
    const ccPixelBox box = measured.regionInPixels->PixelBounds().Intersect(ccPixelBox::OfImage(width, height));
    measured.mask = shape::Rasterize(*measured.regionInPixels, box, kInside, kOutside);
    cache.regionCore = core;
    std::copy(std::begin(key), std::end(key), std::begin(cache.pixelFromRegion));
    cache.width = width;
    cache.height = height;
    cache.measured = measured;
    return measured;
}

void CLuxRegionStatisticsTool::CheckLimitsOrder() const {
    const Limits& l = limits_;
    if (l.warnLow > l.warnHigh)
        FailRun(E_INVALIDARG, "MeanWarnLow (" + NumberText(l.warnLow) + ") is above MeanWarnHigh (" +
                                  NumberText(l.warnHigh) + ").");
    if (l.rejectLow > l.rejectHigh)
        FailRun(E_INVALIDARG, "MeanRejectLow (" + NumberText(l.rejectLow) + ") is above MeanRejectHigh (" +
                                  NumberText(l.rejectHigh) + ").");
}

ToolOutcome CLuxRegionStatisticsTool::Judge(double mean) const {
    if (!limitsEnabled_) return ToolOutcome::Pass();
    const Limits& l = limits_;
    const std::string m = "The mean " + NumberText(mean);
    if (mean < l.rejectLow) return ToolOutcome::Reject(m + " is below MeanRejectLow " + NumberText(l.rejectLow) + ".");
    if (mean > l.rejectHigh)
        return ToolOutcome::Reject(m + " is above MeanRejectHigh " + NumberText(l.rejectHigh) + ".");
    if (mean < l.warnLow) return ToolOutcome::Warn(m + " is below MeanWarnLow " + NumberText(l.warnLow) + ".");
    if (mean > l.warnHigh) return ToolOutcome::Warn(m + " is above MeanWarnHigh " + NumberText(l.warnHigh) + ".");
    return ToolOutcome::Pass();
}

ToolOutcome CLuxRegionStatisticsTool::RunWork() {
    // Lock held (ILuxToolImpl::Run).
    results_ = Results{};
    lastRun_ = LastRun{};
    lastRun_.image = image_;
    if (!image_) FailRun(e_LuxOperator_NoInputImage, "The tool has no input image.");
    if (limitsEnabled_) CheckLimitsOrder();

    const MeasuredImage pixels = MeasuredImage::Of(image_.get(), colorPlane_);
    MeasuredPixels measured = PixelsToMeasure(image_.get(), pixels.Width(), pixels.Height());
    const shape::RegionMask& mask = measured.mask;
    std::optional<ccRegionPixelStatistics> stats;
    if (pixels.grey16.IsBound())
        stats.emplace(pixels.grey16, mask.runs, mask.x, mask.y, kInside);
    else
        stats.emplace(pixels.grey8, mask.runs, mask.x, mask.y, kInside);
    if (stats->Count() == 0) FailRun(e_LuxOperator_InvalidRegion, "The region covers no pixel of the image.");
    if (stats->Count() > static_cast<uint64_t>(std::numeric_limits<int32_t>::max()))
        FailRun(E_INVALIDARG, "The region covers more pixels than an Area can count.");

    Results results;
    results.area = static_cast<int32_t>(stats->Count());
    results.mean = stats->Mean();
    results.deviation = stats->StandardDeviation();
    results.min = static_cast<int32_t>(stats->Min());
    results.max = static_cast<int32_t>(stats->Max());
    results.median = static_cast<int32_t>(stats->Median());
    const std::vector<uint64_t>& histogram = stats->Histogram();
    results.histogram.assign(histogram.begin(), histogram.end());  // each count <= Area
    results.valid = true;

    results_ = std::move(results);
    lastRun_.regionInPixels = std::move(measured.regionInPixels);
    lastRun_.mask = std::move(measured.mask);
    lastRun_.hasMask = true;
    return Judge(results_.mean);
}

void CLuxRegionStatisticsTool::DiscardResults() noexcept {
    results_ = Results{};
    lastRun_.regionInPixels = nullptr;
    lastRun_.mask = shape::RegionMask{};
    lastRun_.hasMask = false;
}

// ---- records --------------------------------------------------------------------------

void CLuxRegionStatisticsTool::AddCurrentRecords(ILuxRecord* top, int32_t enabled) {
    ComPtr<ILuxImage> image;
    ComPtr<ILuxRegion> region;
    {
        Guard guard(Lock());
        image = image_;
        region = region_;
    }
    if ((enabled & luxRegionStatisticsToolCurrentRecordInputImage) && image)
        AddSubRecord(top, "InputImage", luxRecordTypeImage, luxRecordUsageInput,
                     Variant(static_cast<IDispatch*>(image.get())).get());
    if ((enabled & luxRegionStatisticsToolCurrentRecordRegion) && region)
        AddSubRecord(top, "Region", luxRecordTypeGraphic, luxRecordUsageConfiguration,
                     Variant(static_cast<IDispatch*>(region.get())).get());
}

void CLuxRegionStatisticsTool::AddLastRunRecords(ILuxRecord* top, int32_t enabled, int32_t diagEnabled) {
    LastRun last;
    Results results;
    {
        Guard guard(Lock());
        last = lastRun_;
        results = results_;
    }
    if ((enabled & luxRegionStatisticsToolLastRunRecordInputImage) && last.image)
        AddSubRecord(top, "InputImage", luxRecordTypeImage, luxRecordUsageInput,
                     Variant(static_cast<IDispatch*>(last.image.get())).get());
    if ((enabled & luxRegionStatisticsToolLastRunRecordRegion) && last.regionInPixels) {
        ComPtr<ILuxShape> graphic = shape::NewShapeFromCore(*last.regionInPixels);
        core::ThrowIfFailed(graphic->put_SelectedSpaceName(Bstr("#").get()));
        AddSubRecord(top, "Region", luxRecordTypeGraphic, luxRecordUsageConfiguration,
                     Variant(static_cast<IDispatch*>(graphic.get())).get());
    }
    if ((enabled & luxRegionStatisticsToolLastRunRecordResultStrings) && results.valid) {
        ComPtr<ILuxStringCollection> strings = NewStringCollection({});
        const std::string texts[] = {std::to_string(results.area), NumberText(results.mean),
                                     NumberText(results.deviation), std::to_string(results.min),
                                     std::to_string(results.max), std::to_string(results.median)};
        for (size_t i = 0; i < std::size(kOutputNames); ++i)
            core::ThrowIfFailed(strings->Add(Bstr(texts[i]).get(), Bstr(kOutputNames[i]).get(), -1));
        AddSubRecord(top, "ResultStrings", luxRecordTypeStringsCollection, luxRecordUsageResult,
                     Variant(static_cast<IDispatch*>(strings.get())).get());
    }
    if ((diagEnabled & luxRegionStatisticsToolLastRunRecordDiagMask) && last.hasMask) {
        ComPtr<image::CLuxRLEBuffer> mask = image::CLuxRLEBuffer::FromCore(last.mask.runs, last.mask.x, last.mask.y);
        AddSubRecord(top, "Mask", kRecordTypeRunLengthMask, luxRecordUsageDiagnostic,
                     Variant(static_cast<IDispatch*>(static_cast<ILuxRLEBuffer*>(mask.get()))).get());
    }
}

// ---- inputs ---------------------------------------------------------------------------

HRESULT CLuxRegionStatisticsTool::get_InputImage(ILuxImage** Image) {
    return core::Guarded("get_InputImage", ToolIid(), [&] {
        core::RequireOut(Image);
        Guard guard(Lock());
        *Image = ComPtr<ILuxImage>(image_).Detach();
    });
}

HRESULT CLuxRegionStatisticsTool::putref_InputImage(ILuxImage* Image) {
    return core::Guarded("put_InputImage", ToolIid(), [&] {
        ComPtr<ILuxImage> previous(Image);
        {
            Guard guard(Lock());
            if (image_.get() == Image) return S_OK;
            std::swap(image_, previous);
        }
        previous = nullptr;  // released outside the lock
        return RaiseChange(luxRegionStatisticsTool_InputImage, Variant(static_cast<IDispatch*>(Image)).get(),
                           luxFA_Tool_CurrentRecord);
    });
}

HRESULT CLuxRegionStatisticsTool::get_Region(ILuxRegion** Region) {
    return core::Guarded("get_Region", ToolIid(), [&] {
        core::RequireOut(Region);
        Guard guard(Lock());
        *Region = ComPtr<ILuxRegion>(region_).Detach();
    });
}

HRESULT CLuxRegionStatisticsTool::putref_Region(ILuxRegion* Region) {
    return core::Guarded("put_Region", ToolIid(), [&] {
        if (Region) core::ShapeImplementation::Require(Region, "Region");
        ComPtr<ILuxRegion> previous(Region);
        {
            Guard guard(Lock());
            if (region_.get() == Region) return S_OK;
            std::swap(region_, previous);
        }
        previous = nullptr;
        return RaiseChange(luxRegionStatisticsTool_Region, Variant(static_cast<IDispatch*>(Region)).get(),
                           luxFA_Tool_CurrentRecord);
    });
}

HRESULT CLuxRegionStatisticsTool::get_ColorPlane(LONG* Plane) {
    return core::Guarded("get_ColorPlane", ToolIid(), [&] {
        core::RequireOut(Plane);
        Guard guard(Lock());
        *Plane = colorPlane_;
    });
}

HRESULT CLuxRegionStatisticsTool::put_ColorPlane(LONG Plane) {
    return core::Guarded("put_ColorPlane", ToolIid(), [&] {
        if (!ValidPlane(Plane)) throw ccStdError::BadArgument("ColorPlane", ids_Lux_InvalidArgValue_1, {"ColorPlane"});
        {
            Guard guard(Lock());
            if (colorPlane_ == Plane) return S_OK;
            colorPlane_ = Plane;
        }
        return RaiseChange(luxRegionStatisticsTool_ColorPlane, Variant(static_cast<int32_t>(Plane)).get(), luxFA_Misc);
    });
}

HRESULT CLuxRegionStatisticsTool::get_MeanLimitsEnabled(VARIANT_BOOL* Enabled) {
    return core::Guarded("get_MeanLimitsEnabled", ToolIid(), [&] {
        core::RequireOut(Enabled);
        Guard guard(Lock());
        *Enabled = limitsEnabled_ ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxRegionStatisticsTool::put_MeanLimitsEnabled(VARIANT_BOOL Enabled) {
    return core::Guarded("put_MeanLimitsEnabled", ToolIid(), [&] {
        const bool enabled = Enabled != VARIANT_FALSE;
        {
            Guard guard(Lock());
            if (limitsEnabled_ == enabled) return S_OK;
            limitsEnabled_ = enabled;
        }
        return RaiseChange(luxRegionStatisticsTool_MeanLimitsEnabled, Variant(enabled).get(), luxFA_Misc);
    });
}

HRESULT CLuxRegionStatisticsTool::GetLimit(const char* method, double Limits::*field, double* value) const {
    return core::Guarded(method, ToolIid(), [&] {
        core::RequireOut(value);
        Guard guard(Lock());
        *value = limits_.*field;
    });
}

HRESULT CLuxRegionStatisticsTool::PutLimit(const char* method, double Limits::*field, double value,
                                           const char* property, int32_t stateId) {
    return core::Guarded(method, ToolIid(), [&] {
        CheckNotNaN(value, property);
        {
            Guard guard(Lock());
            if (limits_.*field == value) return S_OK;
            limits_.*field = value;
        }
        return RaiseChange(stateId, Variant(value).get(), luxFA_Misc);
    });
}

HRESULT CLuxRegionStatisticsTool::get_MeanWarnLow(double* Limit) {
    return GetLimit("get_MeanWarnLow", &Limits::warnLow, Limit);
}
HRESULT CLuxRegionStatisticsTool::put_MeanWarnLow(double Limit) {
    return PutLimit("put_MeanWarnLow", &Limits::warnLow, Limit, "MeanWarnLow", luxRegionStatisticsTool_MeanWarnLow);
}
HRESULT CLuxRegionStatisticsTool::get_MeanWarnHigh(double* Limit) {
    return GetLimit("get_MeanWarnHigh", &Limits::warnHigh, Limit);
}
HRESULT CLuxRegionStatisticsTool::put_MeanWarnHigh(double Limit) {
    return PutLimit("put_MeanWarnHigh", &Limits::warnHigh, Limit, "MeanWarnHigh", luxRegionStatisticsTool_MeanWarnHigh);
}
HRESULT CLuxRegionStatisticsTool::get_MeanRejectLow(double* Limit) {
    return GetLimit("get_MeanRejectLow", &Limits::rejectLow, Limit);
}
HRESULT CLuxRegionStatisticsTool::put_MeanRejectLow(double Limit) {
    return PutLimit("put_MeanRejectLow", &Limits::rejectLow, Limit, "MeanRejectLow",
                    luxRegionStatisticsTool_MeanRejectLow);
}
HRESULT CLuxRegionStatisticsTool::get_MeanRejectHigh(double* Limit) {
    return GetLimit("get_MeanRejectHigh", &Limits::rejectHigh, Limit);
}
HRESULT CLuxRegionStatisticsTool::put_MeanRejectHigh(double Limit) {
    return PutLimit("put_MeanRejectHigh", &Limits::rejectHigh, Limit, "MeanRejectHigh",
                    luxRegionStatisticsTool_MeanRejectHigh);
}

// ---- results --------------------------------------------------------------------------

template <class T>
HRESULT CLuxRegionStatisticsTool::ReadResult(const char* method, T Results::*field, T* value) const {
    return core::Guarded(method, ToolIid(), [&] {
        core::RequireOut(value);
        Guard guard(Lock());
        if (!results_.valid)
            throw core::ccCOMError(e_LuxTool_NoResult,
                                   "The tool has no results: it has not run since it was made or loaded, or its "
                                   "last run failed.",
                                   method, ToolIid());
        *value = results_.*field;
    });
}

HRESULT CLuxRegionStatisticsTool::get_Area(LONG* Area) { return ReadResult("get_Area", &Results::area, Area); }
HRESULT CLuxRegionStatisticsTool::get_Mean(double* Mean) { return ReadResult("get_Mean", &Results::mean, Mean); }
HRESULT CLuxRegionStatisticsTool::get_StandardDeviation(double* Deviation) {
    return ReadResult("get_StandardDeviation", &Results::deviation, Deviation);
}
HRESULT CLuxRegionStatisticsTool::get_Min(LONG* Min) { return ReadResult("get_Min", &Results::min, Min); }
HRESULT CLuxRegionStatisticsTool::get_Max(LONG* Max) { return ReadResult("get_Max", &Results::max, Max); }
HRESULT CLuxRegionStatisticsTool::get_Median(LONG* Median) {
    return ReadResult("get_Median", &Results::median, Median);
}

HRESULT CLuxRegionStatisticsTool::get_Histogram(VARIANT* Histogram) {
    return core::Guarded("get_Histogram", ToolIid(), [&] {
        core::RequireOut(Histogram);
        std::vector<int32_t> counts;
        {
            Guard guard(Lock());
            if (!results_.valid)
                throw core::ccCOMError(e_LuxTool_NoResult,
                                       "The tool has no results: it has not run since it was made or loaded, or its "
                                       "last run failed.",
                                       "get_Histogram", ToolIid());
            counts = results_.histogram;
        }
        VariantInit(Histogram);
        *Histogram = HistogramVariant(counts);
    });
}

HRESULT CLuxRegionStatisticsTool::get_ResultsValid(VARIANT_BOOL* Valid) {
    return core::Guarded("get_ResultsValid", ToolIid(), [&] {
        core::RequireOut(Valid);
        Guard guard(Lock());
        *Valid = results_.valid ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

// ---- persistence and Clone ------------------------------------------------------------

void CLuxRegionStatisticsTool::PersistToolState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        // Lock held.
        if (archive.Selected(Content::InputImages)) {
            ComPtr<IDispatch> image;
            if (image_) image_->QueryInterface(IDispatch::iid, image.OutVoid());
            archive.Persist("InputImage", image, Content::InputImages);
        }
        ComPtr<IDispatch> region;
        if (region_) region_->QueryInterface(IDispatch::iid, region.OutVoid());
        archive.Persist("Region", region);
        archive.Persist("ColorPlane", colorPlane_);
        archive.Persist("MeanLimitsEnabled", limitsEnabled_);
        archive.Persist("MeanWarnLow", limits_.warnLow);
        archive.Persist("MeanWarnHigh", limits_.warnHigh);
        archive.Persist("MeanRejectLow", limits_.rejectLow);
        archive.Persist("MeanRejectHigh", limits_.rejectHigh);
        if (!archive.Selected(Content::Results)) return;
        archive.Persist("ResultsValid", results_.valid, Content::Results);
        if (!results_.valid) return;
        archive.Persist("Area", results_.area, Content::Results);
        archive.Persist("Mean", results_.mean, Content::Results);
        archive.Persist("StandardDeviation", results_.deviation, Content::Results);
        archive.Persist("Min", results_.min, Content::Results);
        archive.Persist("Max", results_.max, Content::Results);
        archive.Persist("Median", results_.median, Content::Results);
        VARIANT counts = HistogramVariant(results_.histogram);
        Variant histogram = Variant::Attach(counts);
        archive.Persist("Histogram", histogram, Content::Results);
        return;
    }

    Variant value;
    if (archive.Selected(Content::InputImages) && archive.Read("InputImage", value)) {
        ComPtr<ILuxImage> image = StoredObject<ILuxImage>(value, "InputImage");
        archive.OnCommit([this, image = std::move(image)]() mutable noexcept { image_ = std::move(image); });
    }
    if (archive.Read("Region", value)) {
        ComPtr<ILuxRegion> region = StoredObject<ILuxRegion>(value, "Region");
        if (region && !core::ShapeImplementation::Of(region.get()))
            throw ccArchive::BadContent("Region is not a region of this library", ids_Lux_ReadInvalidObject_1,
                                        {"Region"});
        archive.OnCommit([this, region = std::move(region)]() mutable noexcept { region_ = std::move(region); });
    }
    if (archive.Read("ColorPlane", value)) {
        const int32_t plane = StoredInt(value, "ColorPlane");
        if (!ValidPlane(plane)) RefuseStored("ColorPlane", "is not 0, 1 or 2");
        archive.OnCommit([this, plane]() noexcept { colorPlane_ = plane; });
    }
    archive.Persist("MeanLimitsEnabled", limitsEnabled_);
    const char* const limitKeys[] = {"MeanWarnLow", "MeanWarnHigh", "MeanRejectLow", "MeanRejectHigh"};
    double Limits::*const limitFields[] = {&Limits::warnLow, &Limits::warnHigh, &Limits::rejectLow,
                                           &Limits::rejectHigh};
    for (int i = 0; i < 4; ++i) {
        if (!archive.Read(limitKeys[i], value)) continue;
        const double limit = StoredDouble(value, limitKeys[i]);
        if (std::isnan(limit)) RefuseStored(limitKeys[i], "is not a number");
        archive.OnCommit([this, field = limitFields[i], limit]() noexcept { limits_.*field = limit; });
    }

    if (!archive.Selected(Content::Results) || !archive.Read("ResultsValid", value)) return;
    if (FAILED(value.ChangeType(VT_BOOL))) RefuseStored("ResultsValid", "is not a Boolean");
    Results results;
    results.valid = value.get().boolVal != VARIANT_FALSE;
    if (results.valid) {
        const char* const intKeys[] = {"Area", "Min", "Max", "Median"};
        int32_t Results::*const intFields[] = {&Results::area, &Results::min, &Results::max, &Results::median};
        for (int i = 0; i < 4; ++i) {
            if (!archive.Read(intKeys[i], value)) RefuseStored(intKeys[i], "is missing from valid results");
            results.*intFields[i] = StoredInt(value, intKeys[i]);
        }
        const char* const realKeys[] = {"Mean", "StandardDeviation"};
        double Results::*const realFields[] = {&Results::mean, &Results::deviation};
        for (int i = 0; i < 2; ++i) {
            if (!archive.Read(realKeys[i], value)) RefuseStored(realKeys[i], "is missing from valid results");
            results.*realFields[i] = StoredDouble(value, realKeys[i]);
            if (!std::isfinite(results.*realFields[i])) RefuseStored(realKeys[i], "is not finite");
        }
        if (!archive.Read("Histogram", value)) RefuseStored("Histogram", "is missing from valid results");
        results.histogram = StoredHistogram(value.get());
        int64_t total = 0;
        for (int32_t c : results.histogram) total += c;
        if (results.area <= 0 || total != results.area) RefuseStored("Histogram", "does not count Area pixels");
        const int32_t top = static_cast<int32_t>(results.histogram.size()) - 1;
        for (int32_t v : {results.min, results.max, results.median})
            if (v < 0 || v > top) RefuseStored("Histogram", "does not hold Min, Max and Median");
    }
    archive.OnCommit([this, results = std::move(results)]() mutable noexcept {
        results_ = std::move(results);
        lastRun_ = LastRun{};
    });
}

void CLuxRegionStatisticsTool::CopyToolFrom(const CLuxRegionStatisticsTool& source) {
    ComPtr<ILuxImage> image;
    ComPtr<ILuxRegion> region;
    int32_t plane;
    bool enabled;
    Limits limits;
    Results results;
    LastRun last;
    {
        Guard guard(source.Lock());
        image = source.image_;
        region = source.region_;
        plane = source.colorPlane_;
        enabled = source.limitsEnabled_;
        limits = source.limits_;
        results = source.results_;
        last = source.lastRun_;
    }
    // The region is the tool's configuration: the copy gets its own.
    ComPtr<ILuxRegion> regionCopy;
    if (region) {
        Variant original(static_cast<IDispatch*>(region.get()));
        Variant copy;
        core::CloneValue(original.get(), copy.Out());
        if (copy.vt() == VT_DISPATCH && copy.get().pdispVal)
            copy.get().pdispVal->QueryInterface(IID_ILuxRegion, regionCopy.OutVoid());
    }
    Guard guard(Lock());
    image_ = std::move(image);
    region_ = std::move(regionCopy);
    colorPlane_ = plane;
    limitsEnabled_ = enabled;
    limits_ = limits;
    results_ = std::move(results);
    lastRun_ = std::move(last);
}

}  // namespace tessaly::tool
