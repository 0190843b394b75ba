"""Circles and ellipses through the late-bound client: defaults, Change events with their
state IDs (the unit-circle transform's own), refusals of the core with the state kept, a
circle mapped into an ellipse, the unit-circle transform and the inscribed ellipse of an
affine rectangle, masks and persistence."""

import math

import pytest

import tessaly
from codes import E_INVALIDARG, hresult

constants = tessaly.constants
E_LUX_BAD_FILE_FORMAT = hresult(0x8004C104)
E_LUX_DEGENERATE_SHAPE = hresult(0x8004E306)


class Recorder:
    def __init__(self):
        self.changes = []

    def Change(self, StateID, Value, FunctionalArea):
        self.changes.append((StateID, Value, FunctionalArea))


def linear(*elements):
    transform = tessaly.CreateObject("Tessaly.LuxTransform2DLinear")
    transform.SetMatrixElementsTranslation(*elements)
    return transform


def mask_pixels(shape):
    mask = shape.CreateRLE(255, 0)
    return {(x, y) for x in range(mask.X, mask.X + mask.Width) for y in range(mask.Y, mask.Y + mask.Height)
            if mask.Pixel[x, y] == 255}


def test_circle_events_refusals_and_its_map_into_an_ellipse():
    circle = tessaly.CreateObject("Tessaly.LuxCircle")
    assert circle.GetCenterRadius() == (50.0, 50.0, 50.0)
    assert circle.Area == pytest.approx(math.pi * 2500)
    sink = Recorder()
    with tessaly.GetEvents(circle, sink):
        circle.Radius = 10
        circle.Radius = 10
        circle.SetCenterRadius(1, 2, 10)
        for bad in (0, -3):
            with pytest.raises(tessaly.ComError) as refused:
                circle.Radius = bad
            assert refused.value.hresult == E_INVALIDARG
            assert refused.value.description == "ccQvShapesError::InvalidRadius"
            assert refused.value.source == "put_Radius"
    geometry = constants.luxFA_Shape_Geometry
    assert sink.changes == [(constants.luxCircle_Radius, 10.0, geometry),
                            (constants.luxState_MoreThanOneStateIDChanged, None, geometry)]
    assert circle.GetCenterRadius() == (1.0, 2.0, 10.0)

    ellipse = circle.MapLinear(linear(1, 0, 0, 3, 5, 0), constants.luxCopyShapeAll)
    cx, cy, rx, ry, _ = ellipse.GetCenterXYRadiusXYRotation()
    assert (cx, cy) == pytest.approx((6, 6))
    assert sorted((rx, ry)) == pytest.approx([10, 30])
    assert ellipse.Area == pytest.approx(math.pi * 300)


def test_ellipse_unit_circle_transform_and_inscribed_rectangle():
    ellipse = tessaly.CreateObject("Tessaly.LuxEllipse")
    assert ellipse.GetCenterXYRadiusXYRotation() == (50.0, 50.0, 50.0, 25.0, 0.0)
    sink = Recorder()
    with tessaly.GetEvents(ellipse, sink):
        ellipse.SetFromUnitCircleTransform(linear(0, -2, 3, 0, 4, 5))
        with pytest.raises(tessaly.ComError) as refused:
            ellipse.SetFromUnitCircleTransform(linear(1, 2, 2, 4, 0, 0))
        assert refused.value.hresult == E_LUX_DEGENERATE_SHAPE
        assert refused.value.source == "SetFromUnitCircleTransform"
    assert sink.changes == [(constants.luxEllipse_UnitCircleTransform, None, constants.luxFA_Shape_Geometry)]
    cx, cy, rx, ry, rotation = ellipse.GetCenterXYRadiusXYRotation()
    assert (cx, cy, rx, ry) == pytest.approx((4, 5, 3, 2))
    assert abs(math.sin(rotation)) == pytest.approx(1)  # the long axis along y

    rect = tessaly.CreateObject("Tessaly.LuxRectangleAffine")
    rect.SetCenterLengthsRotationSkew(20, 30, 16, 6, 0.3, 0.4)
    ellipse.SetFromBoundingRectangleAffine(rect)
    assert ellipse.Area == pytest.approx(math.pi * 8 * 3 * math.cos(0.4))
    bounds = ellipse.GetBoundingRectangleAffine(True)
    assert bounds.Skew == pytest.approx(0, abs=1e-12)
    assert bounds.Area == pytest.approx(4 * ellipse.Area / math.pi)


def test_ellipse_mask_and_persistence():
    ellipse = tessaly.CreateObject("Tessaly.LuxEllipse")
    ellipse.SetCenterXYRadiusXYRotation(20.5, 15.25, 12, 5, 0.7)
    ellipse.YDirectionAdornment = constants.luxEllipseDirectionAdornmentArrow
    pixels = mask_pixels(ellipse)
    assert abs(len(pixels) - ellipse.Area) < 0.1 * ellipse.Area
    for fmt in (constants.luxPersistFormatBinary, constants.luxPersistFormatXML):
        loaded = tessaly.LoadObjectFromBytes(tessaly.SaveObjectToBytes(ellipse, fmt))
        assert loaded.GetCenterXYRadiusXYRotation() == ellipse.GetCenterXYRadiusXYRotation()
        assert loaded.YDirectionAdornment == constants.luxEllipseDirectionAdornmentArrow
        assert mask_pixels(loaded) == pixels
    bad = tessaly.SaveObjectToBytes(ellipse, constants.luxPersistFormatXML).replace(
        b'<RadiusY dt:dt="r8">5<', b'<RadiusY dt:dt="r8">0<')
    assert b'<RadiusY dt:dt="r8">0<' in bad
    with pytest.raises(tessaly.ComError) as refused:
        tessaly.LoadObjectFromBytes(bad)
    assert refused.value.hresult == E_LUX_BAD_FILE_FORMAT and "RadiusY" in refused.value.description
