// A parallelogram given by its centre c, two side lengths, a rotation and a skew:
//
//     u = sideX (cos r, sin r)                   the side from CornerOrigin to CornerX
//     v = sideY (cos phi, sin phi),  phi = r + pi/2 + skew
//     CornerOrigin = c - (u + v)/2,  CornerX = CornerOrigin + u,
//     CornerY = CornerOrigin + v,    CornerOpposite = CornerOrigin + u + v
//
// It is the image of the unit square under the map (0,0) -> CornerOrigin,
// (1,0) -> CornerX, (0,1) -> CornerY; the centre is the image of (0.5, 0.5). A skew of 0
// gives a true rectangle; area = sideX sideY |cos skew|, perimeter = 2 (sideX + sideY).
//
// Every value held is valid: sides > 0 (else BadLength), and the skew, normalised into
// [-pi, pi), not within 0.001 rad of +-pi/2, where the sides would be parallel (else
// BadSkew). Rotation and skew are stored normalised (+pi becomes -pi). A refused setter
// changes nothing.
//
// The corners are a cache: each is computed on first request and marked by a bit; every
// parameter change clears the bits. The bits are atomic, and a reader that finds a corner
// being computed by another thread computes its own copy instead of waiting, so that any
// number of threads may read one const value at once without locks (changing a value
// still needs the one holder that MakeUnique gives).
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "xnl/std/except/ccException.h"
#include "xnl/std/shapes/ccShape.h"

class ccAffineRectangle;
using ccAffineRectanglePtrh = ccPtrHandle<ccAffineRectangle>;
using ccAffineRectanglePtrh_const = ccPtrHandle_const<ccAffineRectangle>;

class ccAffineRectangle : public ccShape {
public:
    using Errors = ccErrorFamily<"ccAffineRectangle">;
    // A side length <= 0 (or NaN), or three corners that span no area.
    using BadLength = ccError<Errors, "ccAffineRectangle::BadLength", 0x10320001>;
    // A skew whose normalised value lies within kSkewMargin of +-pi/2.
    using BadSkew = ccError<Errors, "ccAffineRectangle::BadSkew", 0x10320002>;

    // How close to +-pi/2 a skew may come.
    static constexpr double kSkewMargin = 0.001;

    // The corners in their cyclic order.
    enum class Corner : uint8_t { Origin = 0, X = 1, Opposite = 2, Y = 3 };

    // Picks the constructor that takes the origin corner rather than the centre.
    struct FromOriginTag {};
    static constexpr FromOriginTag kFromOrigin{};

    // The unit square: centre (0.5, 0.5), sides 1, rotation 0, skew 0.
    ccAffineRectangle() noexcept;
    ccAffineRectangle(const cc2Vect& center, double sideXLength, double sideYLength, double rotation, double skew);
    ccAffineRectangle(FromOriginTag, const cc2Vect& origin, double sideXLength, double sideYLength, double rotation,
                      double skew);
    // From three corners: BadLength when cornerX equals origin, or when the sides are
    // parallel (their cross product is exactly 0); BadSkew when the skew they give is too
    // close to +-pi/2.
    ccAffineRectangle(const cc2Vect& origin, const cc2Vect& cornerX, const cc2Vect& cornerY);
    // The cache's bits are atomic: copies are written out.
    ccAffineRectangle(const ccAffineRectangle& other) noexcept;
    ccAffineRectangle& operator=(const ccAffineRectangle& other) noexcept;

    // The checks every setter makes (public, so that a caller may ask before it changes
    // anything of its own).
    static void ValidateLengths(double sideXLength, double sideYLength);
    // Normalises and checks; answers the normalised skew.
    static double ValidatedSkew(double skew);

    // Parameters.
    cc2Vect Center() const noexcept { return center_; }
    double SideXLength() const noexcept { return sideX_; }
    double SideYLength() const noexcept { return sideY_; }
    double Rotation() const noexcept { return rotation_; }
    double Skew() const noexcept { return skew_; }
    // The side vectors u and v.
    cc2Vect SideX() const noexcept;
    cc2Vect SideY() const noexcept;

    // Derived points, through the cache.
    cc2Vect CornerAt(Corner which) const noexcept;
    cc2Vect CornerOrigin() const noexcept { return CornerAt(Corner::Origin); }
    cc2Vect CornerX() const noexcept { return CornerAt(Corner::X); }
    cc2Vect CornerY() const noexcept { return CornerAt(Corner::Y); }
    cc2Vect CornerOpposite() const noexcept { return CornerAt(Corner::Opposite); }
    // The map from the unit square onto this parallelogram.
    cc2XformLinear UnitSquareMap() const noexcept;

    // Setters: each validates first and changes nothing when it refuses.
    void SetCenter(const cc2Vect& center) noexcept;
    void SetSideXLength(double length);
    void SetSideYLength(double length);
    void SetRotation(double rotation) noexcept;
    void SetSkew(double skew);
    void SetCenterLengthsRotationSkew(const cc2Vect& center, double sideXLength, double sideYLength, double rotation,
                                      double skew);
    void SetOriginLengthsRotationSkew(const cc2Vect& origin, double sideXLength, double sideYLength, double rotation,
                                      double skew);
    void SetOriginCornerXCornerY(const cc2Vect& origin, const cc2Vect& cornerX, const cc2Vect& cornerY);

    // ccShape
    ccAffineRectangle* Clone() const override { return new ccAffineRectangle(*this); }
    const char* TypeName() const noexcept override { return "ccAffineRectangle"; }
    bool IsRegion() const noexcept override { return true; }
    bool IsFinite() const noexcept override;
    bool IsConvex() const noexcept override { return true; }
    // The same five parameters, exactly.
    bool Equals(const ccShape& other) const noexcept override;
    std::string Description() const override;

    // From the four corners; InfiniteExtent when not finite.
    ccRectPtrh BoundingBox() const override;
    // Always a ccAffineRectangle: the images of the origin and of the corners X and Y.
    // DegenerateShape for a singular matrix.
    ccShapePtrh Map(const cc2XformLinear& xform) const override;
    ccShapePtrh Translate(const cc2Vect& offset) const override;
    // On the outline: the sides Origin-X, X-Opposite, Opposite-Y, Y-Origin in that order,
    // a later side replacing the best so far only when strictly closer.
    cc2Vect NearestPoint(const cc2Vect& point) const override;
    void Sample(double maxStep, std::vector<cc2Vect>& points) const override;
    cc2Vect Centroid() const override { return center_; }

    bool Within(const cc2Vect& point) const noexcept override;
    double Area() const noexcept override;
    double Perimeter() const noexcept override;
    // Its own scan converter: the corners in the cyclic order Origin, X, Opposite, Y (X and
    // Y swapped when cos(skew) < 0, so that they always turn the same way), walked from the
    // corner of least y (least x among equals) down to the opposite corner, one span per
    // row between the left and the right chain of edges. BadGeom when a parameter or a
    // corner is not finite.
    void ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const override;
    using ccShape::ScanConvert;
    // The pixels whose centres lie in the bounding box: every pixel ScanConvert emits.
    ccPixelBox PixelBounds() const override;

protected:
    ~ccAffineRectangle() override = default;

private:
    // Parameters are valid; clears the cache.
    void Store(const cc2Vect& center, double sideXLength, double sideYLength, double rotation, double skew) noexcept;
    cc2Vect ComputeCorner(Corner which) const noexcept;
    // The corners in the order the scan converter walks them: start, then the right chain
    // start -> [1] -> [2], the left chain start -> [3] -> [2].
    void ScanCorners(cc2Vect (&corners)[4]) const noexcept;

    cc2Vect center_{0.5, 0.5};
    double sideX_ = 1.0;
    double sideY_ = 1.0;
    double rotation_ = 0.0;
    double skew_ = 0.0;

    // Bit i: corner i is in corners_[i]. Bit 8 + i: a thread is writing corners_[i].
    static constexpr uint32_t kReady = 0x01;
    static constexpr uint32_t kBusy = 0x100;
    mutable std::atomic<uint32_t> cacheBits_{0};
    mutable cc2Vect corners_[4];
};
