// The yardsticks of bench_region's rasterisation, each given the region's corners in its
// own pixel convention. The benchmarks time exactly these calls, and the pixel check runs
// them first, so what is timed is what was checked.
#pragma once

#include <agg_gamma_functions.h>
#include <agg_rasterizer_scanline_aa.h>
#include <agg_scanline_bin.h>

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "RegionPixels.h"

namespace tessaly::bench {

// cv::fillPoly into a dense CV_8U mask of `box` (pixel (0, 0) of the mask is pixel
// (box.x0, box.y0)), zeroed first. OpenCV puts pixel centres on integer coordinates, so
// the corners are moved by -0.5 and handed over as fixed point with kShift fraction bits
// (the most fillPoly takes).
class OpenCVPolygonFill {
public:
    static constexpr int kShift = 16;

    OpenCVPolygonFill(const Quad& quad, const ccPixelBox& box);
    // The mask zeroed, then the polygon filled with 255.
    void Fill();
    const cv::Mat& Mask() const { return mask_; }
    // What fillPoly draws besides the inside, alone in a zeroed mask of the box: the
    // 8-connected lines between the corners rounded to pixel centres. Only to explain
    // where its pixels differ from ours.
    cv::Mat Outline() const;

private:
    cv::Mat mask_;
    std::vector<std::vector<cv::Point>> polygons_;
};

// AGG's scanline rasteriser with a binary scanline: a pixel is in when the polygon
// covers at least half of its area (gamma_threshold(0.5)), the nearest AGG comes to a
// centre rule. AGG's pixel (x, y) is the square [x, x+1) x [y, y+1), as ours is, so the
// corners go in as they are. The rasteriser keeps its cell storage from one call to the
// next, as a renderer that draws many shapes would.
class AggPolygonSpans {
public:
    explicit AggPolygonSpans(const Quad& quad);
    // Rasterises the polygon and hands every span to onSpan(y, x, length).
    template <class OnSpan>
    void Sweep(OnSpan&& onSpan) {
        rasterizer_.reset();
        rasterizer_.move_to_d(quad_[0].X(), quad_[0].Y());
        for (size_t k = 1; k < 4; ++k) rasterizer_.line_to_d(quad_[k].X(), quad_[k].Y());
        rasterizer_.close_polygon();
        if (!rasterizer_.rewind_scanlines()) return;
        scanline_.reset(rasterizer_.min_x(), rasterizer_.max_x());
        while (rasterizer_.sweep_scanline(scanline_)) {
            const int y = scanline_.y();
            unsigned spans = scanline_.num_spans();
            for (auto span = scanline_.begin(); spans > 0; --spans, ++span) onSpan(y, span->x, span->len);
        }
    }

private:
    Quad quad_;
    agg::rasterizer_scanline_aa<> rasterizer_;
    agg::scanline_bin scanline_;
};

}  // namespace tessaly::bench
