// The settings of an acquisition FIFO that reach its FrameSource: the trigger, the camera
// port and every property of the FIFO's property interfaces, kept by state ID
// (LuxAcqFifoStateIDs) so that one mechanism stores, validates and applies all of them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include "TessalyCore.h"

namespace tessaly::acq {

// The value of one setting: a number, a flag, a whole number, a string (file names, the
// custom properties' string values) or a list of whole numbers (a look-up table).
using SettingValue = std::variant<double, bool, int32_t, std::string, std::vector<int32_t>>;

// What a source supports of one setting. Numbers outside [min, max] are refused by the
// FIFO with E_INVALIDARG naming the property; `initial` is the value a new FIFO reads.
struct SettingSupport {
    bool supported = false;
    double min = 0.0;
    double max = 0.0;
    SettingValue initial = 0.0;
};

// The region of interest in pixels of the full frame; width 0 means the whole frame.
struct RegionOfInterest {
    int32_t x = 0;
    int32_t y = 0;
    int32_t width = 0;
    int32_t height = 0;
    LuxAcqROIModeConstants mode = luxAcqROIModeHardware;
};

struct AcquisitionSettings {
    int32_t cameraPort = 0;
    LuxAcqTriggerModelConstants triggerModel = luxAcqTriggerModelManual;
    bool triggerEnabled = true;
    RegionOfInterest roi;
    // Every other property a client set, by state ID; properties never set are absent
    // (the source keeps its initial value).
    std::map<int32_t, SettingValue> values;
};

}  // namespace tessaly::acq
