#include "RegionPeers.h"

#include <cmath>
#include <opencv2/imgproc.hpp>

namespace tessaly::bench {

OpenCVPolygonFill::OpenCVPolygonFill(const Quad& quad, const ccPixelBox& box)
    : mask_(static_cast<int>(box.Height()), static_cast<int>(box.Width()), CV_8UC1) {
    constexpr double kOne = 1 << kShift;
    std::vector<cv::Point> points;
    for (const cc2Vect& corner : quad)
        points.emplace_back(static_cast<int>(std::lround((corner.X() - box.x0 - 0.5) * kOne)),
                            static_cast<int>(std::lround((corner.Y() - box.y0 - 0.5) * kOne)));
    polygons_.push_back(std::move(points));
}

void OpenCVPolygonFill::Fill() {
    mask_.setTo(cv::Scalar(0));
    cv::fillPoly(mask_, polygons_, cv::Scalar(255), cv::LINE_8, kShift);
}

cv::Mat OpenCVPolygonFill::Outline() const {
    cv::Mat outline = cv::Mat::zeros(mask_.size(), CV_8UC1);
    std::vector<std::vector<cv::Point>> rounded(1);
    for (const cv::Point& point : polygons_[0])
        rounded[0].emplace_back((point.x + (1 << (kShift - 1))) >> kShift, (point.y + (1 << (kShift - 1))) >> kShift);
    cv::polylines(outline, rounded, true, cv::Scalar(255), 1, cv::LINE_8);
    return outline;
}

AggPolygonSpans::AggPolygonSpans(const Quad& quad) : quad_(quad) { rasterizer_.gamma(agg::gamma_threshold(0.5)); }

}  // namespace tessaly::bench
