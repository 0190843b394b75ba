#include "xnl/std/math/cc2XformLinear.h"

#include <cmath>
#include <numbers>

#include "persist/ccArchive.h"
#include "xnl/std/base/ccFixedBlockPool.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/math/ccMathError.h"

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kTwoPi = 2.0 * std::numbers::pi;

ccFixedBlockPool& Pool() {
    // Made on first use and never destroyed: a block freed during static destruction still
    // finds its pool. The releaser frees the chunks at unload (reporting leaks in debug).
    static ccFixedBlockPool* const pool =
        new ccFixedBlockPool("LEAKcc2XformLinear", sizeof(cc2XformLinear), alignof(cc2XformLinear));
    static const ccFixedBlockPool::ReleaseAtUnload releaser(*pool);
    return *pool;
}

[[noreturn]] void ThrowSingular(const char* what) { throw ccMathError::Singular(what); }

}  // namespace

void* cc2XformLinear::operator new(size_t size) { return Pool().Allocate(size); }

void cc2XformLinear::operator delete(void* block, size_t size) noexcept { Pool().Free(block, size); }

const ccFixedBlockPool& cc2XformLinear::HeapPool() { return Pool(); }

cc2XformLinear cc2XformLinear::FromStored(double m00, double m01, double m10, double m11, double tx, double ty,
                                          double determinant) noexcept {
    cc2XformLinear value(m00, m01, m10, m11, tx, ty);
    value.det_ = determinant;
    return value;
}

cc2XformLinear cc2XformLinear::FromScalingsRotations(double scalingX, double scalingY, double rotationX,
                                                     double rotationY, double tx, double ty) noexcept {
    return cc2XformLinear(std::cos(rotationX) * scalingX, -std::sin(rotationY) * scalingY,
                          std::sin(rotationX) * scalingX, std::cos(rotationY) * scalingY, tx, ty);
}

cc2XformLinear cc2XformLinear::FromScalingAspectRotationSkew(double scaling, double aspect, double rotation,
                                                             double skew, double tx, double ty) noexcept {
    return FromScalingsRotations(scaling, scaling * aspect, rotation, rotation + skew, tx, ty);
}

double cc2XformLinear::NormalizeAngle(double angle) noexcept {
    if (angle >= -kPi && angle < kPi) return angle;
    double r = std::fmod(angle, kTwoPi);
    if (r < 0) r += kTwoPi;
    return r >= kTwoPi - r ? r - kTwoPi : r;
}

double cc2XformLinear::Element(int row, int column) const noexcept {
    if (row == 0) return column == 0 ? m00_ : m01_;
    return column == 0 ? m10_ : m11_;
}

void cc2XformLinear::SetElement(int row, int column, double value) noexcept {
    if (row == 0)
        (column == 0 ? m00_ : m01_) = value;
    else
        (column == 0 ? m10_ : m11_) = value;
    det_ = m00_ * m11_ - m10_ * m01_;
}

void cc2XformLinear::SetMatrix(double m00, double m01, double m10, double m11) noexcept {
    m00_ = m00;
    m01_ = m01;
    m10_ = m10;
    m11_ = m11;
    det_ = m00_ * m11_ - m10_ * m01_;
}

cc2XformLinear::ScalingsRotations cc2XformLinear::DecomposeScalingsRotations() const {
    if (det_ == 0) ThrowSingular("decomposing a matrix whose determinant is 0");
    return {std::sqrt(m00_ * m00_ + m10_ * m10_), std::sqrt(m01_ * m01_ + m11_ * m11_), std::atan2(m10_, m00_),
            std::atan2(-m01_, m11_)};
}

cc2XformLinear::ScalingAspectRotationSkew cc2XformLinear::DecomposeScalingAspectRotationSkew() const {
    const ScalingsRotations parts = DecomposeScalingsRotations();
    return {parts.scalingX, parts.scalingY / parts.scalingX, parts.rotationX,
            NormalizeAngle(parts.rotationY - parts.rotationX)};
}

bool cc2XformLinear::IsMatrixIdentity(double tolerance) const noexcept {
    return std::fabs(m00_ - 1) <= tolerance && std::fabs(m01_) <= tolerance && std::fabs(m10_) <= tolerance &&
           std::fabs(m11_ - 1) <= tolerance;
}

bool cc2XformLinear::IsIdentity(double tolerance) const noexcept {
    return std::fabs(tx_) <= tolerance && std::fabs(ty_) <= tolerance && IsMatrixIdentity(tolerance);
}

bool cc2XformLinear::IsSingular(double tolerance) const noexcept { return tolerance >= std::fabs(det_); }

void cc2XformLinear::MapPoints(const double* points, double* mapped, size_t count) const noexcept {
    // Locals, so that the compiler need not reload the numbers after every store (mapped
    // may alias points).
    const double m00 = m00_, m01 = m01_, m10 = m10_, m11 = m11_, tx = tx_, ty = ty_;
    for (size_t i = 0; i < count; ++i) {
        const double x = points[2 * i];
        const double y = points[2 * i + 1];
        mapped[2 * i] = m00 * x + m01 * y + tx;
        mapped[2 * i + 1] = m10 * x + m11 * y + ty;
    }
}

void cc2XformLinear::MapPoints(const cc2Vect* points, cc2Vect* mapped, size_t count) const noexcept {
    static_assert(sizeof(cc2Vect) == 2 * sizeof(double));
    MapPoints(reinterpret_cast<const double*>(points), reinterpret_cast<double*>(mapped), count);
}

double cc2XformLinear::MapAngle(double angle) const {
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double x = m00_ * c + m01_ * s;
    const double y = m10_ * c + m11_ * s;
    if (x == 0 && y == 0) throw ccMathError::NullVector("the direction maps to a vector of length 0");
    return std::atan2(y, x);
}

cc2XformLinear cc2XformLinear::Inverse() const {
    if (det_ == 0) ThrowSingular("inverting a matrix whose determinant is 0");
    const double d = det_;
    cc2XformLinear inverse(m11_ / d, -m01_ / d, -m10_ / d, m00_ / d, 0, 0);
    inverse.tx_ = -(inverse.m00_ * tx_ + inverse.m01_ * ty_);
    inverse.ty_ = -(inverse.m10_ * tx_ + inverse.m11_ * ty_);
    return inverse;
}

cc2XformLinear cc2XformLinear::Compose(const cc2XformLinear& right) const noexcept {
    return cc2XformLinear(m00_ * right.m00_ + m01_ * right.m10_, m00_ * right.m01_ + m01_ * right.m11_,
                          m10_ * right.m00_ + m11_ * right.m10_, m10_ * right.m01_ + m11_ * right.m11_,
                          m00_ * right.tx_ + m01_ * right.ty_ + tx_, m10_ * right.tx_ + m11_ * right.ty_ + ty_);
}

bool cc2XformLinear::operator==(const cc2XformLinear& other) const noexcept {
    return tx_ == other.tx_ && ty_ == other.ty_ && m00_ == other.m00_ && m01_ == other.m01_ &&
           m10_ == other.m10_ && m11_ == other.m11_ && det_ == other.det_;
}

std::unique_ptr<cc2XformBase> cc2XformLinear::Clone() const { return std::make_unique<cc2XformLinear>(*this); }

std::unique_ptr<cc2XformBase> cc2XformLinear::InverseBase() const {
    return std::make_unique<cc2XformLinear>(Inverse());
}

std::unique_ptr<cc2XformBase> cc2XformLinear::ComposeBase(const cc2XformBase& right) const {
    const auto* linear = dynamic_cast<const cc2XformLinear*>(&right);
    if (!linear) throw ccStdError::NotImplemented("composing a linear transform with a non-linear core value");
    return std::make_unique<cc2XformLinear>(Compose(*linear));
}

void cc2XformLinear::Write(ccArchive& archive) const {
    WriteBase(archive);
    archive.WriteClassVersion(kVersion);
    for (double value : {tx_, ty_, m00_, m01_, m10_, m11_, det_}) archive.Write<double>(value);
}

void cc2XformLinear::Read(ccArchive& archive) {
    ReadBase(archive);
    archive.ReadClassVersion(kVersion);
    double values[7];
    for (double& value : values) value = archive.Read<double>();
    // Assigned only once everything has been read: a short archive leaves the value as it was.
    *this = FromStored(values[2], values[3], values[4], values[5], values[0], values[1], values[6]);
}
