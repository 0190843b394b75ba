// LuxRegionStatisticsTool: the grey values of an image's pixels under a region - area,
// mean, population standard deviation, min, max, median and the full histogram - with
// optional warn and reject limits on the mean. It is the model of a tool on the tool
// template (ILuxToolImpl): inputs and their checks, the work, the results, the records.
//
// Inputs.
//  - InputImage: any image of the library, 8- or 16-bit grey or planar colour; null for
//    none. The tool holds a reference (the host owns the image). Of a colour image the
//    plane ColorPlane (0..2) is measured; ColorPlane is ignored for grey images.
//  - Region: any region of the library, in any space of the image's tree named by its
//    SelectedSpaceName (resolved as RegionInImage says); null measures the whole image.
//    A region of another implementation is refused with E_INVALIDARG naming "Region". The
//    tool holds a reference: later changes of the region apply to the next run.
//  - MeanLimitsEnabled, MeanWarnLow/High, MeanRejectLow/High: NaN is refused with
//    E_INVALIDARG (ids_Lux_InvalidArgValue_1 naming the property); infinities are taken as
//    "no limit". A low limit above its high one is accepted by the setters, so that limits
//    can be moved in any order, and fails the run (E_INVALIDARG, the text names both
//    limits) when the limits are enabled. Defaults: disabled, 0 and 65535 for all four.
//  - Each setter that changes something raises Change(its state ID, the new value, area):
//    InputImage and Region luxFA_Tool_CurrentRecord, the others luxFA_Misc. A refused call
//    changes nothing and raises nothing.
//
// Run (ILuxToolImpl::Run around RunWork). The region is mapped into the image's pixels and
// scan-converted on every run, unless its geometry (the same core shape), its transform
// into the pixels and the image's size are those of the previous run: the mask is then
// taken again as it was made. Failures, each leaving ResultsValid false:
//  - no input image: e_LuxOperator_NoInputImage;
//  - an image without pixels: e_LuxImage_NoPixels; of another implementation:
//    E_INVALIDARG naming "InputImage";
//  - a region whose space the image's tree does not hold: the tree's failure as it reports
//    it (e_LuxSpaceTree_NotInTree for a space it does not know);
//  - a region that covers no pixel of the image (area 0): e_LuxOperator_InvalidRegion;
//  - limits enabled with a low limit above its high one: E_INVALIDARG.
// Outcome with limits enabled: a mean below MeanRejectLow or above MeanRejectHigh gives
// s_LuxTool_Reject, else one below MeanWarnLow or above MeanWarnHigh s_LuxTool_Warn; the
// text names the limit crossed. The results are valid then too.
//
// Results: read with no valid results they fail with e_LuxTool_NoResult. Area (pixels),
// Mean, StandardDeviation (population), Min, Max, Median (the smallest value with at least
// half of the pixels at or below it), Histogram (an array of 4-byte counts, 256 entries
// for 8-bit pixels and colour planes, 65536 for 16-bit). ResultsValid is always readable.
//
// Records (bits of LuxRegionStatisticsTool*RecordConstants):
//  current:  "InputImage" (luxRecordTypeImage, luxRecordUsageInput), "Region"
//            (luxRecordTypeGraphic, luxRecordUsageConfiguration), each when set;
//  last run: "InputImage" (Image, Input) the image of the last run; "Region" (Graphic,
//            Configuration) the region as mapped into the image's pixels, a new shape in
//            space "#" (the image's rectangle when no region was set); "ResultStrings"
//            (luxRecordTypeStringsCollection, luxRecordUsageResult) a LuxStringCollection
//            of the results as text, keyed by result name; diagnostic "Mask"
//            (kRecordTypeRunLengthMask, luxRecordUsageDiagnostic) the LuxRLEBuffer of the
//            pixels measured (255 inside, 0 outside, placed at its pixel origin).
//  A failed run keeps only its input image for the last-run record. After a load, the
//  last-run record holds the loaded results' strings only.
//
// Persistence: the tool's common keys, then "Region" (always), "ColorPlane",
// "MeanLimitsEnabled", "MeanWarnLow", "MeanWarnHigh", "MeanRejectLow", "MeanRejectHigh";
// "InputImage" with luxPersistOptionInputImages; with luxPersistOptionResults
// "ResultsValid", "Area", "Mean", "StandardDeviation", "Min", "Max", "Median", "Histogram".
// Stored values are checked (plane 0..2, no NaN limit, a histogram of 256 or 65536
// non-negative counts summing to Area); a bad one is refused with ccArchive::BadContent
// naming the key and the tool keeps its state. Clone copies everything; the input image
// is shared, the region cloned.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "TessalyCore.h"
#include "com/shape/RegionInImage.h"
#include "com/tool/impl/ILuxToolImpl.h"
#include "platform/ComPtr.h"
#include "xnl/std/shapes/ccShape.h"

namespace tessaly::tool {

class CLuxRegionStatisticsTool : public ILuxToolImpl<CLuxRegionStatisticsTool, ILuxRegionStatisticsTool> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxRegionStatisticsTool; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxRegionStatisticsTool;

    // The record type of the diagnostic mask: tool-defined kind 0x0001, content an object.
    static constexpr int32_t kRecordTypeRunLengthMask = luxRecordTypeToolDefined | 0x0001000D;

    CLuxRegionStatisticsTool() = default;

    // What the tool template asks of the class.
    static std::span<const char* const> ExposedInputNames() noexcept;
    static std::span<const char* const> ExposedOutputNames() noexcept;
    ToolOutcome RunWork();
    void DiscardResults() noexcept;
    void AddCurrentRecords(ILuxRecord* top, int32_t enabled);
    void AddLastRunRecords(ILuxRecord* top, int32_t enabled, int32_t diagEnabled);
    void PersistToolState(core::ArchiveAccess& archive);
    void CopyToolFrom(const CLuxRegionStatisticsTool& source);

    // ILuxRegionStatisticsTool
    HRESULT get_InputImage(ILuxImage** Image) override;
    HRESULT putref_InputImage(ILuxImage* Image) override;
    HRESULT get_Region(ILuxRegion** Region) override;
    HRESULT putref_Region(ILuxRegion* Region) override;
    HRESULT get_ColorPlane(LONG* Plane) override;
    HRESULT put_ColorPlane(LONG Plane) override;
    HRESULT get_MeanLimitsEnabled(VARIANT_BOOL* Enabled) override;
    HRESULT put_MeanLimitsEnabled(VARIANT_BOOL Enabled) override;
    HRESULT get_MeanWarnLow(double* Limit) override;
    HRESULT put_MeanWarnLow(double Limit) override;
    HRESULT get_MeanWarnHigh(double* Limit) override;
    HRESULT put_MeanWarnHigh(double Limit) override;
    HRESULT get_MeanRejectLow(double* Limit) override;
    HRESULT put_MeanRejectLow(double Limit) override;
    HRESULT get_MeanRejectHigh(double* Limit) override;
    HRESULT put_MeanRejectHigh(double Limit) override;
    HRESULT get_Area(LONG* Area) override;
    HRESULT get_Mean(double* Mean) override;
    HRESULT get_StandardDeviation(double* Deviation) override;
    HRESULT get_Min(LONG* Min) override;
    HRESULT get_Max(LONG* Max) override;
    HRESULT get_Median(LONG* Median) override;
    HRESULT get_Histogram(VARIANT* Histogram) override;
    HRESULT get_ResultsValid(VARIANT_BOOL* Valid) override;

protected:
    ~CLuxRegionStatisticsTool() override = default;

private:
    struct Limits {
        double warnLow = 0.0;
        double warnHigh = 65535.0;
        double rejectLow = 0.0;
        double rejectHigh = 65535.0;
    };
    struct Results {
        bool valid = false;
        int32_t area = 0;
        double mean = 0.0;
        double deviation = 0.0;
        int32_t min = 0;
        int32_t max = 0;
        int32_t median = 0;
        std::vector<int32_t> histogram;
    };
    // What the last run used and made, for its record; guarded by the lock.
    struct LastRun {
        ComPtr<ILuxImage> image;
        ccShapePtrh_const regionInPixels;  // null after a failed run or a load
        shape::RegionMask mask;
        bool hasMask = false;
    };

    // The pixels measured: the region in the image's pixels and its mask.
    struct MeasuredPixels {
        ccShapePtrh_const regionInPixels;
        shape::RegionMask mask;
    };
    // What the mask of the last run was made from; a run whose region geometry (the same
    // core shape, held here so that its address cannot be taken by another), transform into
    // the pixels and image size are the same takes the mask again instead of making it.
    struct MaskCache {
        ccShapePtrh_const regionCore;  // null: the whole image
        double pixelFromRegion[6] = {};
        int32_t width = -1;
        int32_t height = -1;
        MeasuredPixels measured;
    };
    MeasuredPixels PixelsToMeasure(ILuxImage* image, int32_t width, int32_t height);
    ToolOutcome Judge(double mean) const;
    void CheckLimitsOrder() const;

    template <class T>
    HRESULT ReadResult(const char* method, T Results::*field, T* value) const;
    HRESULT PutLimit(const char* method, double Limits::*field, double value, const char* property, int32_t stateId);
    HRESULT GetLimit(const char* method, double Limits::*field, double* value) const;

    // Guarded by the object's lock.
    ComPtr<ILuxImage> image_;
    ComPtr<ILuxRegion> region_;
    int32_t colorPlane_ = 0;
    bool limitsEnabled_ = false;
    Limits limits_;
    Results results_;
    LastRun lastRun_;
    MaskCache maskCache_;
};

}  // namespace tessaly::tool
