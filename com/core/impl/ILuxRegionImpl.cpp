#include "com/core/impl/ILuxRegionImpl.h"

#include "com/image/CLuxRLEBuffer.h"
#include "com/shape/RegionInImage.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

namespace {

uint8_t PelValue(int32_t value, const char* argument) {
    if (value < 0 || value > 255) throw ccStdError::OutOfRange(argument);
    return static_cast<uint8_t>(value);
}

}  // namespace

ILuxRLEBuffer* RegionRunsOf(const ccShape& shape, int32_t inside, int32_t outside) {
    const uint8_t insideValue = PelValue(inside, "InsidePelValue");
    const uint8_t outsideValue = PelValue(outside, "OutsidePelValue");
    shape::RegionMask mask = shape::Rasterize(shape, shape.PixelBounds(), insideValue, outsideValue);
    auto buffer = image::CLuxRLEBuffer::FromCore(std::move(mask.runs), mask.x, mask.y);
    ILuxRLEBuffer* answer = buffer.get();
    answer->AddRef();
    return answer;
}

}  // namespace tessaly::core
