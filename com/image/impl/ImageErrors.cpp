#include "com/image/impl/ImageErrors.h"

#include "TessalyCore.h"
#include "com/core/ExceptionTable.h"
#include "com/image/impl/ccLuxGreyImageImpl.h"

namespace tessaly::image {
namespace {

using core::ExceptionRow;

constexpr uint32_t kCodeText = core::kTextMessage | core::kTextAppend | core::kTextDetailed;
constexpr uint32_t kDetailsOnly = core::kTextAppend | core::kTextDetailed;

const ExceptionRow kImageRows[] = {
    {"", ImageErrors::AllocateSize::kCode, e_LuxImage_AllocateSize, kCodeText, e_LuxImage_AllocateSize},
    // Nothing is wrong with the call itself, only with when it comes.
    {"", ImageErrors::InUse::kCode, E_UNEXPECTED, kDetailsOnly, 0},
    {"", ImageErrors::BadSelectedSpaceName::kCode, e_LuxImage_BadSelectedSpaceName, kCodeText,
     e_LuxImage_BadSelectedSpaceName},
    {"", ImageErrors::BadSize::kCode, e_LuxImage_BadCoord, kCodeText, e_LuxImage_BadCoord},
};

const core::ExceptionTableRegistrar registrar(kImageRows);

}  // namespace
void CheckAllocateSize(int32_t width, int32_t height) {
    const auto inRange = [](int32_t size) { return size >= 1 && size <= kMaxImageSize; };
    if (!inRange(width) || !inRange(height))
        throw ImageErrors::AllocateSize(std::to_string(width) + " x " + std::to_string(height) +
                                        ": each size must lie in 1..999999");
}

void ThrowOtherSize(int32_t width, int32_t height, int32_t askedWidth, int32_t askedHeight) {
    throw ImageErrors::AllocateSize("the image is " + std::to_string(width) + " x " + std::to_string(height) + "; " +
                                    std::to_string(askedWidth) + " x " + std::to_string(askedHeight) + " was asked for");
}

}  // namespace tessaly::image
