// The region a command measures, as typed on the command line:
//
//     affine:CX,CY,LX,LY,ROT,SKEW   an affine rectangle: centre, side lengths, rotation and
//                                   skew in degrees
//     rect:X,Y,W,H                  an axis-aligned rectangle: top-left corner and size
//     circle:CX,CY,R                a circle: centre and radius
//     ellipse:CX,CY,RX,RY,ROT       an ellipse: centre, the radii along its own axes and the
//                                   rotation of its x-axis in degrees
//     annulus:CX,CY,R,START,SPAN,SCALE
//                                   a circular annulus section: centre, the radius of its
//                                   start arc, the arc's start angle and signed span in
//                                   degrees, and the scale that makes the end arc (> 0, not 1)
//     polygon:X1,Y1,X2,Y2,...       a polygon of at least 3 vertices
//
// Coordinates are in the region's space (pixels unless --space says otherwise). Parse
// checks everything a user can get wrong and names it, so that a region that parses makes
// a shape without refusal. The shapes are made through the class table by their ProgIDs,
// so a kind whose class this build lacks is refused by Parse with a message saying so.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "TessalyCore.h"
#include "platform/ComPtr.h"

namespace tessaly::cli {

class RegionArgument {
public:
    enum class Kind { Affine, Rect, Circle, Ellipse, Annulus, Polygon };

    static constexpr const char* kSyntax =
        "affine:CX,CY,LX,LY,ROT,SKEW | rect:X,Y,W,H | circle:CX,CY,R | ellipse:CX,CY,RX,RY,ROT |\n"
        "                       annulus:CX,CY,R,START,SPAN,SCALE | polygon:X1,Y1,X2,Y2,X3,Y3,...";

    // The region, or nullopt with `problem` set to what is wrong ("field LY of affine:
    // 'abc' is not a number").
    static std::optional<RegionArgument> Parse(std::string_view text, std::string& problem);

    Kind kind() const noexcept { return kind_; }
    // The fields in the order typed (angles in degrees); a polygon's are X1, Y1, X2, Y2, ...
    const std::vector<double>& values() const noexcept { return values_; }

    // A new shape of the kind in the space `space`; throws on failure.
    ComPtr<ILuxShape> MakeShape(const std::string& space) const;
    // "affine rectangle: centre (320, 240), sides 200 x 100, rotation 20 deg, skew 0 deg".
    std::string Describe() const;

private:
    Kind kind_ = Kind::Rect;
    std::vector<double> values_;
};

}  // namespace tessaly::cli
