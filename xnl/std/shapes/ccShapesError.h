// The failures of the core geometry (family ccShapesError, 0x030). Every shape throws
// these; the class name is the message ("ccShapesError::BadRadius"), and the automation
// layer turns each into an HRESULT whose description is that name (com/shape/ShapesErrors.cpp).
//
//     throw ccShapesError::NotRegion("Within on a ccLineSeg");
//     catch (const ccShapesError::Errors&) { ... }   // any failure of the family
#pragma once

#include "xnl/std/except/ccException.h"

class ccShapesError {
public:
    using Errors = ccErrorFamily<"ccShapesError">;

    // The shape has collapsed (zero length, zero area, coincident defining points) and the
    // operation needs extent; also a shape mapped through a singular transform.
    using DegenerateShape = ccError<Errors, "ccShapesError::DegenerateShape", 0x10300001>;
    // The intersection of two parallel lines.
    using LinesParallel = ccError<Errors, "ccShapesError::LinesParallel", 0x10300002>;
    // A radius that is negative or otherwise unusable.
    using BadRadius = ccError<Errors, "ccShapesError::BadRadius", 0x10300003>;
    // Two circles or ellipses that must share a centre do not.
    using NotConcentric = ccError<Errors, "ccShapesError::NotConcentric", 0x10300004>;
    // Coefficients of a line or conic that describe none.
    using BadCoef = ccError<Errors, "ccShapesError::BadCoef", 0x10300005>;
    // Geometry the operation cannot work with (non-finite coordinates, for instance).
    using BadGeom = ccError<Errors, "ccShapesError::BadGeom", 0x10300006>;
    // A unit or angle unit out of range.
    using BadUnit = ccError<Errors, "ccShapesError::BadUnit", 0x10300007>;
    // A vertex, segment or child index out of range.
    using BadIndex = ccError<Errors, "ccShapesError::BadIndex", 0x10300008>;
    // Any other argument refused.
    using BadParams = ccError<Errors, "ccShapesError::BadParams", 0x10300009>;
    // A bounding box or area of an unbounded shape.
    using InfiniteExtent = ccError<Errors, "ccShapesError::InfiniteExtent", 0x1030000A>;
    // Sampling would give more points than ccShape::kMaxSamplePoints.
    using SampleOverflow = ccError<Errors, "ccShapesError::SampleOverflow", 0x1030000B>;
    // An open-contour operation (start point, length, tangent ...) on a shape that is not
    // an open contour.
    using NotOpenContour = ccError<Errors, "ccShapesError::NotOpenContour", 0x1030000C>;
    // A tangent where the contour has none.
    using NoTangent = ccError<Errors, "ccShapesError::NoTangent", 0x1030000D>;
    // An operation on an empty shape or tree.
    using EmptyShape = ccError<Errors, "ccShapesError::EmptyShape", 0x1030000E>;
    // Reversal of a shape that has no direction.
    using NotReversible = ccError<Errors, "ccShapesError::NotReversible", 0x1030000F>;
    // A region operation (inside test, area, rasterising) on a shape that is not closed.
    using NotRegion = ccError<Errors, "ccShapesError::NotRegion", 0x10300010>;
    // A weight that must be positive is not.
    using NonpositiveWeight = ccError<Errors, "ccShapesError::NonpositiveWeight", 0x10300011>;
    // Two defining points coincide.
    using CoincidentShapePoints = ccError<Errors, "ccShapesError::CoincidentShapePoints", 0x10300012>;
    // The operation is not available for this kind of shape.
    using NotImplemented = ccError<Errors, "ccShapesError::NotImplemented", 0x10300013>;
};
