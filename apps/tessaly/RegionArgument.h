// The region a command measures, as typed on the command line:
//
//     affine:CX,CY,LX,LY,ROT,SKEW   an affine rectangle: centre, side lengths, rotation and
//                                   skew in degrees
//     rect:X,Y,W,H                  an axis-aligned rectangle: top-left corner and size
//
// Coordinates are in the region's space (pixels unless --space says otherwise). Parse
// checks everything a user can get wrong and names it, so that a region that parses makes
// a shape without refusal.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "TessalyCore.h"
#include "platform/ComPtr.h"

namespace tessaly::cli {

class RegionArgument {
public:
    enum class Kind { Affine, Rect };

    static constexpr const char* kSyntax = "affine:CX,CY,LX,LY,ROT,SKEW | rect:X,Y,W,H";

    // The region, or nullopt with `problem` set to what is wrong ("field LY of affine:
    // 'abc' is not a number").
    static std::optional<RegionArgument> Parse(std::string_view text, std::string& problem);

    Kind kind() const noexcept { return kind_; }
    // affine: CX, CY, LX, LY, ROT, SKEW (angles in degrees); rect: X, Y, W, H.
    const std::array<double, 6>& values() const noexcept { return values_; }

    // A new LuxRectangleAffine or LuxRectangle in the space `space`; throws on failure.
    ComPtr<ILuxShape> MakeShape(const std::string& space) const;
    // "affine rectangle: centre (320, 240), sides 200 x 100, rotation 20 deg, skew 0 deg".
    std::string Describe() const;

private:
    Kind kind_ = Kind::Rect;
    std::array<double, 6> values_{};
};

}  // namespace tessaly::cli
