#include "xnl/std/shapes/ccConicScan.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "xnl/std/base/ccSpanSink.h"
#include "xnl/std/shapes/ccInsideRule.h"

namespace {

void TwoSum(double a, double b, double& sum, double& error) noexcept {
    sum = a + b;
    const double bv = sum - a;
    const double av = sum - bv;
    error = (a - av) + (b - bv);
}

void TwoProduct(double a, double b, double& product, double& error) noexcept {
    product = a * b;
    error = std::fma(a, b, -product);
}

constexpr double kEps = std::numeric_limits<double>::epsilon();

// ccInsideRule::FirstCentreAtOrAfter without its exact correction, inline: the row's
// limits are settled exactly afterwards whenever a centre lies within their error bound,
// which is wider than the rounding of limit - 0.5.
inline int32_t RoughFirstCentre(double limit) noexcept {
    const double shifted = limit - 0.5;
    constexpr double kSafe = 2147483000.0;
    if (shifted > -kSafe && shifted < kSafe) [[likely]] {
        const double truncated = static_cast<double>(static_cast<int32_t>(shifted));
        return static_cast<int32_t>(truncated < shifted ? truncated + 1 : truncated);
    }
    return ccInsideRule::FirstCentreAtOrAfter(limit);
}

}  // namespace

void ccExactSum::Add(double value) noexcept {
    if (value != 0 && count_ < kCapacity) terms_[count_++] = value;
}

void ccExactSum::AddProduct(double a, double b) noexcept {
    double p, e;
    TwoProduct(a, b, p, e);
    Add(p);
    Add(e);
}

void ccExactSum::AddProduct3(double a, double b1, double b0, double c1, double c0) noexcept {
    const double bs[2] = {b1, b0};
    const double cs[2] = {c1, c0};
    for (double b : bs) {
        for (double c : cs) {
            double p, e;
            TwoProduct(b, c, p, e);
            AddProduct(a, p);
            AddProduct(a, e);
        }
    }
}

int ccExactSum::Sign() const noexcept {
    // Grow a non-overlapping expansion term by term (zero components dropped); its
    // largest component carries the sign of the exact sum.
    double expansion[kCapacity * 2 + 2];
    int size = 0;
    for (int i = 0; i < count_; ++i) {
        double q = terms_[i];
        int out = 0;
        for (int j = 0; j < size; ++j) {
            double sum, error;
            TwoSum(q, expansion[j], sum, error);
            q = sum;
            if (error != 0) expansion[out++] = error;
        }
        if (q != 0) expansion[out++] = q;
        size = out;
    }
    if (size == 0) return 0;
    return expansion[size - 1] > 0 ? 1 : -1;
}

ccConicScan ccConicScan::Ellipse(const cc2Vect& center, double radiusX, double radiusY, double cosRotation,
                                 double sinRotation) noexcept {
    ccConicScan conic;
    conic.center_ = center;
    const double rx2 = radiusX * radiusX;
    const double ry2 = radiusY * radiusY;
    conic.a_ = cosRotation * cosRotation * ry2 + sinRotation * sinRotation * rx2;
    conic.b_ = 2.0 * cosRotation * sinRotation * (ry2 - rx2);
    conic.c_ = sinRotation * sinRotation * ry2 + cosRotation * cosRotation * rx2;
    TwoProduct(rx2, ry2, conic.fHi_, conic.fLo_);
    conic.inverseTwoA_ = 0.5 / conic.a_;
    conic.halfWidth_ = std::hypot(radiusX * cosRotation, radiusY * sinRotation);
    conic.halfHeight_ = std::hypot(radiusX * sinRotation, radiusY * cosRotation);
    return conic;
}

ccConicScan ccConicScan::Circle(const cc2Vect& center, double radius) noexcept {
    ccConicScan conic;
    conic.center_ = center;
    conic.a_ = 1.0;
    conic.b_ = 0.0;
    conic.c_ = 1.0;
    TwoProduct(radius, radius, conic.fHi_, conic.fLo_);
    conic.inverseTwoA_ = 0.5;
    conic.halfWidth_ = radius;
    conic.halfHeight_ = radius;
    conic.circle_ = true;
    return conic;
}

int ccConicScan::ExactSide(double x, double y) const noexcept {
    double dx1, dx0, dy1, dy0;
    TwoSum(x, -center_.X(), dx1, dx0);
    TwoSum(y, -center_.Y(), dy1, dy0);
    ccExactSum q;
    q.AddProduct3(a_, dx1, dx0, dx1, dx0);
    q.AddProduct3(b_, dx1, dx0, dy1, dy0);
    q.AddProduct3(c_, dy1, dy0, dy1, dy0);
    q.Add(-fHi_);
    q.Add(-fLo_);
    const int side = q.Sign();
    if (side != 0) return -side;
    // On the curve: Q(p + (e, e^2)) = gx e + (gy + A) e^2 + O(e^3), with
    // gx = 2 A dx + B dy and gy = B dx + 2 C dy.
    ccExactSum gx;
    gx.AddProduct(2.0 * a_, dx1);
    gx.AddProduct(2.0 * a_, dx0);
    gx.AddProduct(b_, dy1);
    gx.AddProduct(b_, dy0);
    const int sx = gx.Sign();
    if (sx != 0) return -sx;
    ccExactSum gy;
    gy.AddProduct(b_, dx1);
    gy.AddProduct(b_, dx0);
    gy.AddProduct(2.0 * c_, dy1);
    gy.AddProduct(2.0 * c_, dy0);
    gy.Add(a_);
    return gy.Sign() < 0 ? 1 : -1;
}

bool ccConicScan::Within(double x, double y) const noexcept { return ExactSide(x, y) > 0; }

ccPixelBox ccConicScan::Bounds() const noexcept {
    // A little beyond the exact box, so that rounding of the box itself never drops a row.
    const double mx = halfWidth_ * (1 + 8 * kEps) + 4 * kEps * std::fabs(center_.X());
    const double my = halfHeight_ * (1 + 8 * kEps) + 4 * kEps * std::fabs(center_.Y());
    const ccPixelBox box{ccInsideRule::FirstCentreAtOrAfter(center_.X() - mx),
                         ccInsideRule::FirstCentreAtOrAfter(center_.Y() - my),
                         ccInsideRule::FirstCentreAtOrAfter(center_.X() + mx) + 1,
                         ccInsideRule::FirstCentreAtOrAfter(center_.Y() + my) + 1};
    return box.Intersect(ccPixelBox::Everything());
}

int32_t ccConicScan::Settle(int32_t row, double x, double tol, bool left) const noexcept {
    const double cy = ccInsideRule::Centre(row);
    int32_t i = ccInsideRule::FirstCentreAtOrAfter(x - tol);
    const int32_t last = ccInsideRule::FirstCentreAtOrAfter(x + tol);
    // Centres in [i, last) are undecided; a left limit: the first inside one begins the
    // span, a right limit: the first outside one ends it.
    for (; i < last; ++i) {
        const bool inside = ExactSide(ccInsideRule::Centre(i), cy) > 0;
        if (inside == left) return i;
    }
    return last;
}

void ccConicScan::RowSpan(int32_t row, int32_t& first, int32_t& end) const noexcept {
    const double dy = ccInsideRule::Centre(row) - center_.Y();
    // A dx^2 + (B dy) dx + (C dy^2 - F) = 0.
    const double p = b_ * dy;
    const double constant = c_ * dy * dy - fHi_;
    const double disc = p * p - 4.0 * a_ * constant;
    // Bound of the rounding error of disc, and from it of the limits (|sqrt(u) - sqrt(v)|
    // <= sqrt(|u - v|) holds even where disc is near 0).
    const double discError = 16 * kEps * (p * p + 4.0 * a_ * (std::fabs(c_ * dy * dy) + fHi_)) + 4.0 * a_ * std::fabs(fLo_);
    const double inverseTwoA = inverseTwoA_;
    if (disc + discError < 0) {
        first = end = 0;
        return;
    }
    const double root = disc > 0 ? std::sqrt(disc) : 0.0;
    const double mid = center_.X() - p * inverseTwoA;
    const double half = root * inverseTwoA;
    const double xl = mid - half;
    const double xr = mid + half;
    // The limits' error bound: the rounding of mid and half, plus that of the root, which
    // is at most |u - v| / sqrt(u) away from the tangent rows and sqrt(|u - v|) near them.
    const double rounding = 8 * kEps * ((root + std::fabs(p)) * inverseTwoA + std::fabs(center_.X()) + std::fabs(mid) + half) + 1e-300;
    const double scale = root * (2.0 * a_);
    // Unless the two limits' uncertain zones could overlap (then the slower path below).
    if (disc > 4 * discError && (xr - xl) * scale > 2 * (discError + rounding * scale)) [[likely]] {
        // Compared multiplied by the root, which spares a division on every row.
        first = RoughFirstCentre(xl);
        end = RoughFirstCentre(xr);
        const auto near = [&](double limit, int32_t index) {
            const double distance = std::min(ccInsideRule::Centre(index) - limit, limit - (ccInsideRule::Centre(index) - 1.0));
            return distance * scale <= discError + rounding * scale;
        };
        if (near(xl, first) || near(xr, end)) {
            const double tol = discError / root * inverseTwoA + rounding;
            if (near(xl, first)) first = Settle(row, xl, tol, true);
            if (near(xr, end)) end = Settle(row, xr, tol, false);
        }
        return;
    }
    const double tol = std::sqrt(discError) * inverseTwoA + rounding;
    if (xr - xl <= 2 * tol) {
        // The two limits' uncertain zones overlap: decide every centre there.
        const double cy = ccInsideRule::Centre(row);
        int32_t i = ccInsideRule::FirstCentreAtOrAfter(xl - tol);
        const int32_t last = ccInsideRule::FirstCentreAtOrAfter(xr + tol);
        first = end = 0;
        for (; i < last; ++i) {
            if (ExactSide(ccInsideRule::Centre(i), cy) > 0) {
                first = i;
                end = i + 1;
                for (++i; i < last && ExactSide(ccInsideRule::Centre(i), cy) > 0; ++i) end = i + 1;
                return;
            }
        }
        return;
    }
    first = RoughFirstCentre(xl);
    end = RoughFirstCentre(xr);
    // Only when a centre lies within the bound of a limit can rounding have decided it.
    if (ccInsideRule::Centre(first) - xl <= tol || xl - (ccInsideRule::Centre(first) - 1.0) <= tol)
        first = Settle(row, xl, tol, true);
    if (ccInsideRule::Centre(end) - xr <= tol || xr - (ccInsideRule::Centre(end) - 1.0) <= tol)
        end = Settle(row, xr, tol, false);
}

void ccConicScan::ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const {
    const ccPixelBox box = clip.Intersect(Bounds());
    if (box.IsEmpty()) return;
    if (circle_) return ScanCircle(sink, box);
    for (int32_t row = box.y0; row < box.y1; ++row) {
        int32_t first, end;
        RowSpan(row, first, end);
        first = std::max(first, box.x0);
        end = std::min(end, box.x1);
        if (first < end) sink.blitH(first, row, end - first);
    }
}

void ccConicScan::ScanCircle(ccSpanSink& sink, const ccPixelBox& box) const {
    // T = F - dy^2 in plain arithmetic (a library fma would cost more than the rest of the
    // row) is off by less than 6 * 2^-53 (dy^2 + F) (the rounded dy squared, then two
    // subtractions); its square root s by that over s, plus half a unit of s. A limit
    // cx -+ s, and the limit - 0.5 the first centre is taken from, add a unit each of their
    // size. So the first centre of a limit is exact when the limit - 0.5 lies farther from
    // a whole number than E / s + G, with E = 8 * 2^-53 (dy^2 + F) and
    // G = 4 * 2^-53 (|cx| + s + 1) (generous factors, which cover the rounding of the test
    // itself); compared multiplied by s, which spares a division. A row that fails it, or
    // with no square root, goes the general way, which decides its centres exactly.
    constexpr double kUnit = kEps / 2;
    constexpr double kRange = 1073741824.0;  // 2^30: limits the quick way takes
    // Whole numbers by adding and taking away 1.5 * 2^52 (exact below 2^51): the row's
    // arithmetic stays in doubles, since a conversion from an integer would make each row
    // wait for the last one's registers.
    constexpr double kRounder = 6755399441055744.0;
    const double cx = center_.X();
    const double fMagnitude = fHi_ + std::fabs(fLo_);
    const double gBase = 4 * kUnit * (std::fabs(cx) + 1);
    // Rows in batches: the arithmetic of a batch runs without calls in between (a call
    // would spill every register), then the batch's spans go to the sink.
    constexpr int32_t kBatch = 64;
    int32_t firsts[kBatch], ends[kBatch];
    bool exacts[kBatch];
    for (int32_t batchRow = box.y0; batchRow < box.y1; batchRow += kBatch) {
        const int32_t rows = static_cast<int32_t>(std::min<int64_t>(kBatch, int64_t{box.y1} - batchRow));
        double centreY = ccInsideRule::Centre(batchRow);
        for (int32_t k = 0; k < rows; ++k, centreY += 1.0) {
            const double dy = centreY - center_.Y();
            const double dyy = dy * dy;
            const double t = (fHi_ - dyy) + fLo_;
            bool exact = false;
            double f = 0, l = 0;
            if (t > 0) {
                const double root = std::sqrt(t);
                const double e = 8 * kUnit * (dyy + fMagnitude);
                const double g = gBase + 4 * kUnit * root;
                // The first centre at or after `limit`, ceil(limit - 0.5), is the whole number
                // nearest the limit unless the limit lies on or next to a centre, which the
                // test below refuses (a wrong index makes a distance negative): no branch
                // on the fraction, which would be a coin toss every row.
                const auto firstCentre = [&](double limit, double& index) {
                    const double shifted = limit - 0.5;
                    index = (limit + kRounder) - kRounder;
                    const double distance = std::min(index - shifted, shifted - (index - 1.0));
                    return (distance - g) * root > e;
                };
                const double left = cx - root, right = cx + root;
                if (left > -kRange && right < kRange) [[likely]]
                    exact = firstCentre(left, f) & firstCentre(right, l);
            }
            exacts[k] = exact;
            firsts[k] = exact ? static_cast<int32_t>(f) : 0;
            ends[k] = exact ? static_cast<int32_t>(l) : 0;
        }
        for (int32_t k = 0; k < rows; ++k) {
            const int32_t row = batchRow + k;
            int32_t first = firsts[k], end = ends[k];
            if (!exacts[k]) [[unlikely]]
                RowSpan(row, first, end);
            first = std::max(first, box.x0);
            end = std::min(end, box.x1);
            if (first < end) sink.blitH(first, row, end - first);
        }
    }
}
