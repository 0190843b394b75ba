#include "xnl/std/shapes/ccInsideRule.h"

#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>

namespace {

constexpr double kInt32Min = std::numeric_limits<int32_t>::min();
constexpr double kInt32Max = std::numeric_limits<int32_t>::max();

// Error-free transformations (a sum or a product as a rounded value and its exact error),
// for round-to-nearest doubles without extended precision.
struct Split {
    double high;
    double low;
};
inline Split TwoSum(double a, double b) noexcept {
    const double sum = a + b;
    const double bVirtual = sum - a;
    const double aVirtual = sum - bVirtual;
    return {sum, (a - aVirtual) + (b - bVirtual)};
}
inline Split TwoProduct(double a, double b) noexcept {
    const double product = a * b;
    return {product, std::fma(a, b, -product)};
}

// An exact sum of doubles as a non-overlapping expansion, smallest component first (zeros
// may stay in between). Adding a term is Shewchuk's Grow-Expansion.
class ExactSum {
public:
    void Add(double term) noexcept {
        double carry = term;
        for (int i = 0; i < count_; ++i) {
            const Split s = TwoSum(carry, parts_[i]);
            parts_[i] = s.low;
            carry = s.high;
        }
        parts_[count_++] = carry;
    }
    // The sign of the whole: that of the largest non-zero component, the last one.
    int Sign() const noexcept {
        for (int i = count_ - 1; i >= 0; --i) {
            if (parts_[i] > 0) return 1;
            if (parts_[i] < 0) return -1;
        }
        return 0;
    }

private:
    double parts_[17] = {};
    int count_ = 0;
};

// Adds the exact product (a.high + a.low)(b.high + b.low), times `sign`.
void AddProduct(ExactSum& sum, Split a, Split b, double sign) noexcept {
    for (double x : {a.high, a.low}) {
        for (double y : {b.high, b.low}) {
            const Split p = TwoProduct(x, y);
            sum.Add(sign * p.high);
            sum.Add(sign * p.low);
        }
    }
}

}  // namespace

int32_t ccInsideRule::FirstCentreAtOrAfter(double limit) noexcept {
    // Beyond the range (and NaN, which compares false) saturate; within it the candidate
    // from ceil is checked against the exact centres i + 0.5, since limit - 0.5 itself may
    // round onto an integer.
    if (!(limit > kInt32Min + 0.5)) return limit <= kInt32Min + 0.5 ? std::numeric_limits<int32_t>::min()
                                                                     : std::numeric_limits<int32_t>::max();
    if (limit > kInt32Max - 0.5) return std::numeric_limits<int32_t>::max();
    int64_t index = static_cast<int64_t>(std::ceil(limit - 0.5));
    if (static_cast<double>(index) + 0.5 < limit)
        ++index;
    else if (static_cast<double>(index - 1) + 0.5 >= limit)
        --index;
    return static_cast<int32_t>(index);
}

int ccInsideRule::Orientation(const cc2Vect& a, const cc2Vect& b, const cc2Vect& p) noexcept {
    const double left = (b.X() - a.X()) * (p.Y() - a.Y());
    const double right = (b.Y() - a.Y()) * (p.X() - a.X());
    const double determinant = left - right;
    // The bound of the rounding error of the plain evaluation (Shewchuk's ccwerrboundA):
    // outside it the sign is certain.
    constexpr double kEpsilon = std::numeric_limits<double>::epsilon() / 2;
    constexpr double kBound = (3.0 + 16.0 * kEpsilon) * kEpsilon;
    const double errorBound = kBound * (std::fabs(left) + std::fabs(right));
    if (determinant > errorBound) return 1;
    if (-determinant > errorBound) return -1;
    if (!std::isfinite(determinant)) return 0;

    // Too close to call: the differences split into exact pairs, the products expanded.
    ExactSum sum;
    AddProduct(sum, TwoSum(b.X(), -a.X()), TwoSum(p.Y(), -a.Y()), 1.0);
    AddProduct(sum, TwoSum(b.Y(), -a.Y()), TwoSum(p.X(), -a.X()), -1.0);
    return sum.Sign();
}

bool ccInsideRule::WithinConvex(const cc2Vect* corners, int count, const cc2Vect& p) noexcept {
    for (int i = 0; i < count; ++i) {
        const cc2Vect& a = corners[i];
        const cc2Vect& b = corners[(i + 1) % count];
        const int side = Orientation(a, b, p);
        if (side > 0) continue;
        if (side < 0) return false;
        // On the edge's line: inside when p + (e, e^2) moves into the interior, that is
        // when (b - a) x (e, e^2) > 0 for small e: an edge running up (a left edge), or a
        // horizontal one running towards +x (a top edge).
        const double dy = b.Y() - a.Y();
        const double dx = b.X() - a.X();
        if (!(dy < 0 || (dy == 0 && dx > 0))) return false;
    }
    return count > 0;
}
