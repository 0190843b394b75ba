// Polygons and round shapes against their yardsticks, in one run:
//  (a) a 64-vertex star (32 points, radii 2048 and 1024, centre (2048.3, 2048.7)) into a
//      run-length buffer: ccGenPoly::ScanConvert into a ccRLEBufferBuilder over the
//      polygon's pixel bounds, then Finish; against cv::fillPoly into a dense CV_8U mask of
//      the same box, zeroed on every call, and AGG's scanline rasteriser with a binary
//      scanline whose spans are walked and summed;
//  (b) area, area moments up to order 2 and convex hull of a star-shaped polygon of 10^5
//      vertices against cv::contourArea, cv::moments and cv::convexHull on the same points
//      (floats that are exactly our doubles);
//  (c) mapping that polygon through a linear transform (ccGenPoly::MapPoly, a new polygon)
//      against mapping the raw points with cc2XformLinear::MapPoints into a new vector;
//  (d) a disc of radius 2048 (ccCircle::ScanConvert into a ccRLEBufferBuilder) against
//      cv::circle filled into a dense mask and AGG's ellipse path; skipped with a message
//      while ccCircle is not built.
//
// Before anything is timed, our star's pixels are checked against the inside rule at a
// million random pixel centres (ccGenPoly::Within, exact), and each peer's pixels against
// ours: the pixels a peer places differently are counted, and one farther than 1.5 px from
// the outline is a fault that ends the program (for cv::circle, which draws a polygon of
// 72 sides, farther than those sides lie from the circle plus 1 px). The measures of (b) are compared with the
// peers' to 1e-9 relative, the hulls as point sets.
#include <benchmark/benchmark.h>

#include <agg_ellipse.h>
#include <agg_gamma_functions.h>
#include <agg_rasterizer_scanline_aa.h>
#include <agg_scanline_bin.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <numbers>
#include <opencv2/imgproc.hpp>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "AllocationCounter.h"
#include "RatioReporter.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/rlebuf/ccRLEBufferBuilder.h"
#include "xnl/std/shapes/ccCircle.h"
#include "xnl/std/shapes/ccGenPoly.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace {

using tessaly::bench::AllocationCount;
using tessaly::bench::ReportAllocationsPerCall;

constexpr int kShift = 16;  // fixed-point fraction bits handed to fillPoly and cv::circle
constexpr double kPi = std::numbers::pi;

[[noreturn]] void Fail(const std::string& message) {
    std::fprintf(stderr, "bench_shapes: %s\n", message.c_str());
    std::exit(1);
}

// ---------------------------------------------------------------------------------------
// (a) the star

struct Star {
    ccGenPolyPtrh poly;
    ccPixelBox box;
    std::vector<std::vector<cv::Point>> fixedPoint;  // for fillPoly: centres on integers
};

const Star& TheStar() {
    static const Star star = [] {
        Star s;
        std::vector<cc2Vect> vertices;
        const cc2Vect centre{2048.3, 2048.7};
        for (int k = 0; k < 64; ++k) {
            const double radius = k % 2 ? 1024.0 : 2047.9;
            const double angle = 2 * kPi * k / 64;
            vertices.push_back(centre + cc2Vect{std::cos(angle), std::sin(angle)} * radius);
        }
        s.poly = ccGenPolyPtrh(new ccGenPoly(std::move(vertices)));
        s.box = s.poly->PixelBounds();
        std::vector<cv::Point> points;
        for (const cc2Vect& v : s.poly->Vertices())
            points.emplace_back(static_cast<int>(std::lround((v.X() - s.box.x0 - 0.5) * (1 << kShift))),
                                static_cast<int>(std::lround((v.Y() - s.box.y0 - 0.5) * (1 << kShift))));
        s.fixedPoint.push_back(std::move(points));
        return s;
    }();
    return star;
}

ccRLEBuffer CoreMask(const ccShape& shape, const ccPixelBox& box) {
    ccRLEBufferBuilder builder(box.x0, box.y0, static_cast<int32_t>(box.Width()), static_cast<int32_t>(box.Height()));
    shape.ScanConvert(builder, box);
    return builder.Finish();
}

cv::Mat DenseOf(const ccRLEBuffer& buffer) {
    cv::Mat mask(buffer.Height(), buffer.Width(), CV_8UC1);
    for (int32_t y = 0; y < buffer.Height(); ++y) {
        int32_t x = 0;
        for (const ccRLERun& run : buffer.Row(y)) {
            std::fill_n(mask.ptr<uint8_t>(y) + x, run.length, run.value);
            x += run.length;
        }
    }
    return mask;
}

// AGG with a binary scanline: a pixel is in when the shape covers at least half of it.
class AggSpans {
public:
    AggSpans() { rasterizer_.gamma(agg::gamma_threshold(0.5)); }
    template <class AddPath, class OnSpan>
    void Sweep(AddPath&& addPath, OnSpan&& onSpan) {
        rasterizer_.reset();
        addPath(rasterizer_);
        if (!rasterizer_.rewind_scanlines()) return;
        scanline_.reset(rasterizer_.min_x(), rasterizer_.max_x());
        while (rasterizer_.sweep_scanline(scanline_)) {
            const int y = scanline_.y();
            unsigned spans = scanline_.num_spans();
            for (auto span = scanline_.begin(); spans > 0; --spans, ++span) onSpan(y, span->x, span->len);
        }
    }

private:
    agg::rasterizer_scanline_aa<> rasterizer_;
    agg::scanline_bin scanline_;
};

void AddStarPath(agg::rasterizer_scanline_aa<>& rasterizer) {
    const auto& vertices = TheStar().poly->Vertices();
    rasterizer.move_to_d(vertices[0].X(), vertices[0].Y());
    for (size_t k = 1; k < vertices.size(); ++k) rasterizer.line_to_d(vertices[k].X(), vertices[k].Y());
    rasterizer.close_polygon();
}

// How a peer's mask differs from ours; every differing pixel must lie within `allowed`
// pixels of the outline.
void ComparePeer(const char* name, const cv::Mat& ours, const cv::Mat& peer, const ccPixelBox& box,
                 const ccShape& shape, double allowed = 1.5) {
    int64_t extra = 0, missing = 0;
    double farthest = 0;
    for (int y = 0; y < ours.rows; ++y)
        for (int x = 0; x < ours.cols; ++x) {
            const bool a = ours.at<uint8_t>(y, x) != 0, b = peer.at<uint8_t>(y, x) != 0;
            if (a == b) continue;
            (b ? extra : missing) += 1;
            farthest = std::max(farthest, shape.DistanceToPoint({box.x0 + x + 0.5, box.y0 + y + 0.5}));
        }
    std::printf("%-14s %lld pixels more, %lld fewer than ours; the farthest %.2f px from the outline\n", name,
                static_cast<long long>(extra), static_cast<long long>(missing), farthest);
    if (farthest > allowed) Fail(std::string(name) + " differs from our pixels away from the outline");
}

cv::Mat AggDense(const ccPixelBox& box, const std::function<void(agg::rasterizer_scanline_aa<>&)>& addPath) {
    cv::Mat mask = cv::Mat::zeros(static_cast<int>(box.Height()), static_cast<int>(box.Width()), CV_8UC1);
    AggSpans agg;
    agg.Sweep(addPath, [&](int y, int x, int length) {
        for (int k = x; k < x + length; ++k)
            if (box.Contains(k, y)) mask.at<uint8_t>(y - box.y0, k - box.x0) = 255;
            else Fail("AGG put a pixel outside the bounds");
    });
    return mask;
}

void CheckStar() {
    const Star& star = TheStar();
    const ccRLEBuffer ours = CoreMask(*star.poly, star.box);
    const cv::Mat dense = DenseOf(ours);
    std::mt19937 random(1);
    for (int k = 0; k < 1000000; ++k) {
        const int x = static_cast<int>(random() % dense.cols), y = static_cast<int>(random() % dense.rows);
        const bool within = star.poly->Within({star.box.x0 + x + 0.5, star.box.y0 + y + 0.5});
        if (within != (dense.at<uint8_t>(y, x) != 0)) Fail("the star's mask breaks the inside rule");
    }
    std::printf("star: %lld x %lld pixels, %d runs; a million centres agree with the inside rule\n",
                static_cast<long long>(star.box.Width()), static_cast<long long>(star.box.Height()), ours.NumRuns());
    cv::Mat opencv = cv::Mat::zeros(dense.size(), CV_8UC1);
    cv::fillPoly(opencv, star.fixedPoint, cv::Scalar(255), cv::LINE_8, kShift);
    ComparePeer("cv::fillPoly:", dense, opencv, star.box, *star.poly);
    ComparePeer("AGG:", dense, AggDense(star.box, AddStarPath), star.box, *star.poly);
}

void StarCore(benchmark::State& state) {
    const Star& star = TheStar();
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        ccRLEBuffer mask = CoreMask(*star.poly, star.box);
        benchmark::DoNotOptimize(mask);
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(StarCore)->Unit(benchmark::kMicrosecond);

void StarFillPolyOpenCV(benchmark::State& state) {
    const Star& star = TheStar();
    cv::Mat mask(static_cast<int>(star.box.Height()), static_cast<int>(star.box.Width()), CV_8UC1);
    for (auto _ : state) {
        mask.setTo(cv::Scalar(0));
        cv::fillPoly(mask, star.fixedPoint, cv::Scalar(255), cv::LINE_8, kShift);
        benchmark::DoNotOptimize(mask.data);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(StarFillPolyOpenCV)->Unit(benchmark::kMicrosecond);

void StarAggSpans(benchmark::State& state) {
    AggSpans agg;
    for (auto _ : state) {
        uint64_t sum = 0;
        agg.Sweep(AddStarPath, [&sum](int y, int x, int length) { sum += uint64_t(x) + uint64_t(y) + uint64_t(length); });
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(StarAggSpans)->Unit(benchmark::kMicrosecond);

// ---------------------------------------------------------------------------------------
// (b) and (c): a polygon of 10^5 vertices

constexpr int kManyVertices = 100000;

struct Many {
    ccGenPolyPtrh poly;
    std::vector<cv::Point2f> points;
};

const Many& TheMany() {
    static const Many many = [] {
        Many m;
        std::mt19937 random(2);
        std::uniform_real_distribution<float> radius(500.0f, 1000.0f);
        std::vector<cc2Vect> vertices;
        for (int k = 0; k < kManyVertices; ++k) {
            const double angle = 2 * kPi * k / kManyVertices;
            const float r = radius(random);
            const float x = static_cast<float>(2000 + r * std::cos(angle)), y = static_cast<float>(1500 + r * std::sin(angle));
            m.points.emplace_back(x, y);
            vertices.push_back({x, y});
        }
        m.poly = ccGenPolyPtrh(new ccGenPoly(std::move(vertices)));
        return m;
    }();
    return many;
}

void CheckMany() {
    const Many& many = TheMany();
    const auto near = [](double a, double b) { return std::fabs(a - b) <= 1e-9 * std::max(std::fabs(a), std::fabs(b)); };
    const double area = cv::contourArea(many.points);
    if (!near(area, many.poly->Area())) Fail("contourArea differs from Area");
    const cv::Moments m = cv::moments(many.points);
    const ccGenPoly::Moments2 ours = many.poly->AreaMoments2();
    std::printf("10^5 vertices: area %.6f (contourArea %.6f); m20 %.9g (cv %.9g)\n", ours.sum, area, ours.sumXX, m.m20);
    if (!near(m.m00, ours.sum) || !near(m.m10, ours.sumX) || !near(m.m01, ours.sumY) || !near(m.m20, ours.sumXX) ||
        !near(m.m02, ours.sumYY) || !near(m.m11, ours.sumXY))
        Fail("cv::moments differs from AreaMoments2");
    std::vector<cv::Point2f> hull;
    cv::convexHull(many.points, hull);
    std::set<std::pair<float, float>> theirs, mine;
    for (const cv::Point2f& p : hull) theirs.insert({p.x, p.y});
    for (const cc2Vect& v : many.poly->ConvexHull()->Vertices())
        mine.insert({static_cast<float>(v.X()), static_cast<float>(v.Y())});
    std::printf("hull: %zu corners (cv::convexHull %zu)\n", mine.size(), theirs.size());
    if (mine != theirs) Fail("cv::convexHull's corners differ from ConvexHull's");
}

void ManyArea(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(TheMany().poly->Area());
}
BENCHMARK(ManyArea)->Unit(benchmark::kMicrosecond);
void ManyAreaOpenCV(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(cv::contourArea(TheMany().points));
}
BENCHMARK(ManyAreaOpenCV)->Unit(benchmark::kMicrosecond);
void ManyMoments(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(TheMany().poly->AreaMoments2());
}
BENCHMARK(ManyMoments)->Unit(benchmark::kMicrosecond);
void ManyMomentsOpenCV(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(cv::moments(TheMany().points));
}
BENCHMARK(ManyMomentsOpenCV)->Unit(benchmark::kMicrosecond);
void ManyHull(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(TheMany().poly->ConvexHull());
}
BENCHMARK(ManyHull)->Unit(benchmark::kMicrosecond);
void ManyHullOpenCV(benchmark::State& state) {
    std::vector<cv::Point2f> hull;
    for (auto _ : state) {
        cv::convexHull(TheMany().points, hull);
        benchmark::DoNotOptimize(hull.data());
    }
}
BENCHMARK(ManyHullOpenCV)->Unit(benchmark::kMicrosecond);

// No peer: how long the exact complexity test takes on these long, crowded sides.
void ManyIsComplex(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(TheMany().poly->IsComplex());
}
BENCHMARK(ManyIsComplex)->Unit(benchmark::kMillisecond);

// And on 10^5 short sides: a ring of radius 1000 with radii drawn from 999.5-1000.5.
void RingIsComplex(benchmark::State& state) {
    static const ccGenPolyPtrh ring = [] {
        std::mt19937 random(3);
        std::uniform_real_distribution<double> radius(999.5, 1000.5);
        std::vector<cc2Vect> vertices;
        for (int k = 0; k < kManyVertices; ++k) {
            const double angle = 2 * kPi * k / kManyVertices;
            vertices.push_back(cc2Vect{std::cos(angle), std::sin(angle)} * radius(random));
        }
        return ccGenPolyPtrh(new ccGenPoly(std::move(vertices)));
    }();
    for (auto _ : state) benchmark::DoNotOptimize(ring->IsComplex());
}
BENCHMARK(RingIsComplex)->Unit(benchmark::kMillisecond);

const cc2XformLinear kXform(0.8, -0.6, 0.6, 0.8, 12.5, -7.25);

void ManyMap(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(TheMany().poly->MapPoly(kXform));
}
BENCHMARK(ManyMap)->Unit(benchmark::kMicrosecond);
void ManyMapRawPoints(benchmark::State& state) {
    const std::vector<cc2Vect>& points = TheMany().poly->Vertices();
    for (auto _ : state) {
        std::vector<cc2Vect> mapped(points.size());
        kXform.MapPoints(points.data(), mapped.data(), points.size());
        benchmark::DoNotOptimize(mapped.data());
    }
}
BENCHMARK(ManyMapRawPoints)->Unit(benchmark::kMicrosecond);

// ---------------------------------------------------------------------------------------
// (d) a disc of radius 2048

const cc2Vect kCircleCentre{2048.25, 2048.5};
constexpr double kCircleRadius = 2048;

ccCirclePtrh TheCircle() {
    try {
        return ccCirclePtrh(new ccCircle(kCircleCentre, kCircleRadius));
    } catch (const ccShapesError::NotImplemented&) {
        return ccCirclePtrh();
    }
}

void AddCirclePath(agg::rasterizer_scanline_aa<>& rasterizer) {
    agg::ellipse ellipse(kCircleCentre.X(), kCircleCentre.Y(), kCircleRadius, kCircleRadius);
    rasterizer.add_path(ellipse);
}

cv::Point CircleCentreFixed(const ccPixelBox& box) {
    return {static_cast<int>(std::lround((kCircleCentre.X() - box.x0 - 0.5) * (1 << kShift))),
            static_cast<int>(std::lround((kCircleCentre.Y() - box.y0 - 0.5) * (1 << kShift)))};
}

void CheckCircle() {
    const ccCirclePtrh circle = TheCircle();
    if (!circle) {
        std::printf("circle: ccCircle is not built yet; (d) is skipped\n");
        return;
    }
    const ccPixelBox box = circle->PixelBounds();
    const cv::Mat dense = DenseOf(CoreMask(*circle, box));
    cv::Mat opencv = cv::Mat::zeros(dense.size(), CV_8UC1);
    cv::circle(opencv, CircleCentreFixed(box), static_cast<int>(kCircleRadius * (1 << kShift)), cv::Scalar(255),
               cv::FILLED, cv::LINE_8, kShift);
    // cv::circle draws a fixed-point circle as a polygon with a corner every 5 degrees: its
    // sides lie up to r (1 - cos 2.5 deg), 1.95 px at this radius, inside the circle.
    ComparePeer("cv::circle:", dense, opencv, box, *circle, kCircleRadius * (1 - std::cos(2.5 * kPi / 180)) + 1.0);
    ComparePeer("AGG ellipse:", dense, AggDense(box, AddCirclePath), box, *circle);
}

void CircleCore(benchmark::State& state) {
    const ccCirclePtrh circle = TheCircle();
    if (!circle) return state.SkipWithError("ccCircle is not built");
    const ccPixelBox box = circle->PixelBounds();
    for (auto _ : state) {
        ccRLEBuffer mask = CoreMask(*circle, box);
        benchmark::DoNotOptimize(mask);
    }
}
BENCHMARK(CircleCore)->Unit(benchmark::kMicrosecond);

void CircleOpenCV(benchmark::State& state) {
    const ccPixelBox box{0, 0, 4097, 4097};
    cv::Mat mask(static_cast<int>(box.Height()), static_cast<int>(box.Width()), CV_8UC1);
    for (auto _ : state) {
        mask.setTo(cv::Scalar(0));
        cv::circle(mask, CircleCentreFixed(box), static_cast<int>(kCircleRadius * (1 << kShift)), cv::Scalar(255),
                   cv::FILLED, cv::LINE_8, kShift);
        benchmark::DoNotOptimize(mask.data);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(CircleOpenCV)->Unit(benchmark::kMicrosecond);

void CircleAggSpans(benchmark::State& state) {
    AggSpans agg;
    for (auto _ : state) {
        uint64_t sum = 0;
        agg.Sweep(AddCirclePath, [&sum](int y, int x, int length) { sum += uint64_t(x) + uint64_t(y) + uint64_t(length); });
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(CircleAggSpans)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    CheckStar();
    CheckMany();
    CheckCircle();
    const tessaly::bench::RatioReporter* reporter = tessaly::bench::RunBenchmarks(argc, argv);
    if (!reporter) return 1;
    std::printf("\nRatios, peer / ours (targets: star >= 10 against cv::fillPoly and >= 2 against AGG; "
                "area, moments and hull >= 1.0; map: ours / raw points <= 1.2)\n");
    reporter->PrintRatio("StarFillPolyOpenCV", "StarCore");
    reporter->PrintRatio("StarAggSpans", "StarCore");
    reporter->PrintRatio("ManyAreaOpenCV", "ManyArea");
    reporter->PrintRatio("ManyMomentsOpenCV", "ManyMoments");
    reporter->PrintRatio("ManyHullOpenCV", "ManyHull");
    reporter->PrintRatio("ManyMap", "ManyMapRawPoints");
    reporter->PrintRatio("CircleOpenCV", "CircleCore");
    reporter->PrintRatio("CircleAggSpans", "CircleCore");
    return 0;
}
