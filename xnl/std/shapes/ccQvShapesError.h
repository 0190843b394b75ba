// The failures of the ellipse, arc, annulus-section and general-contour code (family
// ccQvShapesError, 0x031). As everywhere, the class name is the message
// ("ccQvShapesError::InvalidRadius"); com/shape/ShapesErrors.cpp maps each to an HRESULT.
#pragma once

#include "xnl/std/except/ccException.h"

class ccQvShapesError {
public:
    using Errors = ccErrorFamily<"ccQvShapesError">;

    // A segment added where it would not keep the contour connected.
    using AddWontBreakContour = ccError<Errors, "ccQvShapesError::AddWontBreakContour", 0x10310001>;
    using DegenerateArcSegment = ccError<Errors, "ccQvShapesError::DegenerateArcSegment", 0x10310002>;
    using DegenerateChain = ccError<Errors, "ccQvShapesError::DegenerateChain", 0x10310003>;
    using DegenerateContour = ccError<Errors, "ccQvShapesError::DegenerateContour", 0x10310004>;
    using DegenerateLength = ccError<Errors, "ccQvShapesError::DegenerateLength", 0x10310005>;
    // Walking past the last segment of a contour.
    using EndOfContour = ccError<Errors, "ccQvShapesError::EndOfContour", 0x10310006>;
    // A broken invariant of the contour code itself.
    using InternalShapeError = ccError<Errors, "ccQvShapesError::InternalShapeError", 0x10310007>;
    using InvalidAngleSpan = ccError<Errors, "ccQvShapesError::InvalidAngleSpan", 0x10310008>;
    using InvalidArcFit = ccError<Errors, "ccQvShapesError::InvalidArcFit", 0x10310009>;
    using InvalidEllipseFraction = ccError<Errors, "ccQvShapesError::InvalidEllipseFraction", 0x1031000A>;
    using InvalidRadialScale = ccError<Errors, "ccQvShapesError::InvalidRadialScale", 0x1031000B>;
    using InvalidRadius = ccError<Errors, "ccQvShapesError::InvalidRadius", 0x1031000C>;
    using InvalidSegmentSet = ccError<Errors, "ccQvShapesError::InvalidSegmentSet", 0x1031000D>;
    using InvalidSegmentType = ccError<Errors, "ccQvShapesError::InvalidSegmentType", 0x1031000E>;
};
