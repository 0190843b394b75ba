// A linear (affine) transform of the plane: a translation and a row-major 2x2 matrix with
// its determinant, cached and recomputed whenever an element changes (never set on its
// own, except when a stored value is read back as it was written). A point (x, y) maps to
// (m00 x + m01 y + tx, m10 x + m11 y + ty). The default is the identity.
//
// Two parametrisations besides the matrix, both exact:
//  - scalings and rotations: the x axis maps to a vector of length ScalingX at angle
//    RotationX; the y axis to one of length ScalingY at angle RotationY measured from +y:
//        m00 = cos(rx) sx   m01 = -sin(ry) sy
//        m10 = sin(rx) sx   m11 =  cos(ry) sy
//    read back as sx = |column 0|, sy = |column 1|, rx = atan2(m10, m00),
//    ry = atan2(-m01, m11); scalings read back are never negative;
//  - scaling, aspect, rotation, skew: Scaling = sx, Aspect = sy / sx, Rotation = rx,
//    Skew = NormalizeAngle(ry - rx); built from sx = s, sy = s a, rx = r, ry = r + k.
// Handedness is carried by the skew: diag(1, -1) reads as skew -pi with aspect +1.
//
// Reading either parametrisation requires a determinant that is not exactly 0, else
// ccMathError::Singular; so does the inverse. Mapping never fails and allocates nothing.
//
// Heap instances come from the class's own pool ("LEAKcc2XformLinear", ccFixedBlockPool).
#pragma once

#include <cstddef>
#include <memory>

#include "xnl/std/base/cc2Vect.h"
#include "xnl/std/math/cc2XformBase.h"

class ccFixedBlockPool;

class cc2XformLinear final : public cc2XformBase {
public:
    // The identity.
    constexpr cc2XformLinear() noexcept = default;
    // A matrix and a translation; the determinant is computed.
    constexpr cc2XformLinear(double m00, double m01, double m10, double m11, double tx, double ty) noexcept
        : tx_(tx), ty_(ty), m00_(m00), m01_(m01), m10_(m10), m11_(m11), det_(m00 * m11 - m10 * m01) {}
    cc2XformLinear(const cc2XformLinear&) = default;
    cc2XformLinear& operator=(const cc2XformLinear&) = default;
    ~cc2XformLinear() override = default;

    // A value exactly as it was stored, determinant included (not recomputed).
    static cc2XformLinear FromStored(double m00, double m01, double m10, double m11, double tx, double ty,
                                     double determinant) noexcept;
    // Built from the scalings and rotations of the two axes.
    static cc2XformLinear FromScalingsRotations(double scalingX, double scalingY, double rotationX,
                                                double rotationY, double tx, double ty) noexcept;
    // Built from scaling, aspect, rotation and skew: FromScalingsRotations(s, s a, r, r + k).
    static cc2XformLinear FromScalingAspectRotationSkew(double scaling, double aspect, double rotation, double skew,
                                                        double tx, double ty) noexcept;

    // Brings an angle into [-pi, pi): a value already there is kept as it is; otherwise
    // r = fmod(value, 2 pi), plus 2 pi when negative, and r - 2 pi when r >= 2 pi - r. So
    // +pi becomes -pi.
    static double NormalizeAngle(double angle) noexcept;

    // The numbers.
    double M00() const noexcept { return m00_; }
    double M01() const noexcept { return m01_; }
    double M10() const noexcept { return m10_; }
    double M11() const noexcept { return m11_; }
    // Row and column each 0 or 1 (not checked: the automation layer checks its arguments).
    double Element(int row, int column) const noexcept;
    double TranslationX() const noexcept { return tx_; }
    double TranslationY() const noexcept { return ty_; }
    cc2Vect Translation() const noexcept { return {tx_, ty_}; }
    double Determinant() const noexcept { return det_; }

    void SetElement(int row, int column, double value) noexcept;
    void SetMatrix(double m00, double m01, double m10, double m11) noexcept;
    void SetTranslation(double tx, double ty) noexcept {
        tx_ = tx;
        ty_ = ty;
    }

    // The parametrisations (ccMathError::Singular for a determinant of exactly 0).
    struct ScalingsRotations {
        double scalingX, scalingY, rotationX, rotationY;
    };
    struct ScalingAspectRotationSkew {
        double scaling, aspect, rotation, skew;
    };
    ScalingsRotations DecomposeScalingsRotations() const;
    ScalingAspectRotationSkew DecomposeScalingAspectRotationSkew() const;
    double ScalingX() const { return DecomposeScalingsRotations().scalingX; }
    double ScalingY() const { return DecomposeScalingsRotations().scalingY; }
    double RotationX() const { return DecomposeScalingsRotations().rotationX; }
    double RotationY() const { return DecomposeScalingsRotations().rotationY; }

    // Tests with a tolerance.
    bool IsMatrixIdentity(double tolerance) const noexcept;
    bool IsIdentity(double tolerance) const noexcept;
    // Tolerance >= |determinant|.
    bool IsSingular(double tolerance) const noexcept;

    // Mapping: closed-form, allocation-free.
    cc2Vect MapPoint(const cc2Vect& point) const noexcept override {
        return {m00_ * point.X() + m01_ * point.Y() + tx_, m10_ * point.X() + m11_ * point.Y() + ty_};
    }
    void MapPoint(double x, double y, double& mappedX, double& mappedY) const noexcept {
        mappedX = m00_ * x + m01_ * y + tx_;
        mappedY = m10_ * x + m11_ * y + ty_;
    }
    // `count` points (x, y interleaved in `points`, 2 count doubles) into `mapped`, which may
    // be `points` itself.
    void MapPoints(const double* points, double* mapped, size_t count) const noexcept;
    void MapPoints(const cc2Vect* points, cc2Vect* mapped, size_t count) const noexcept;
    cc2Vect MapVector(const cc2Vect& vector) const noexcept {
        return {m00_ * vector.X() + m01_ * vector.Y(), m10_ * vector.X() + m11_ * vector.Y()};
    }
    // The direction of the image of the unit vector at `angle`, in (-pi, pi] (atan2's
    // range). ccMathError::NullVector when that image has length 0 (a singular matrix and a
    // direction along its kernel): it has no direction.
    double MapAngle(double angle) const;
    double MapArea(double area) const noexcept { return (det_ < 0 ? -det_ : det_) * area; }

    // The inverse (ccMathError::Singular for a determinant of exactly 0; any other
    // determinant, however small, is inverted).
    cc2XformLinear Inverse() const;
    // The transform that maps through `right` first, then through this one.
    cc2XformLinear Compose(const cc2XformLinear& right) const noexcept;
    cc2XformLinear operator*(const cc2XformLinear& right) const noexcept { return Compose(right); }

    // Exact equality of every number, the determinant included (so +0 equals -0 and NaN
    // equals nothing).
    bool operator==(const cc2XformLinear& other) const noexcept;

    // cc2XformBase
    bool IsLinear() const noexcept override { return true; }
    std::unique_ptr<cc2XformBase> Clone() const override;
    std::unique_ptr<cc2XformBase> InverseBase() const override;
    // Linear `right` only (the core has no composed value; the automation layer composes
    // other transforms): ccStdError::NotImplemented otherwise.
    std::unique_ptr<cc2XformBase> ComposeBase(const cc2XformBase& right) const override;
    // Base part, class version 1, then tx, ty, m00, m01, m10, m11 and the determinant as
    // held (float64 each).
    void Write(ccArchive& archive) const override;
    void Read(ccArchive& archive) override;
    const char* PersistentClassName() const noexcept override { return "cc2XformLinear"; }

    static constexpr uint32_t kVersion = 1;

    // Heap instances come from the class's pool.
    static void* operator new(size_t size);
    static void operator delete(void* block, size_t size) noexcept;
    // That pool, for leak checks.
    static const ccFixedBlockPool& HeapPool();

private:
    double tx_ = 0.0;
    double ty_ = 0.0;
    double m00_ = 1.0;
    double m01_ = 0.0;
    double m10_ = 0.0;
    double m11_ = 1.0;
    double det_ = 1.0;
};
