"""Circular and elliptical arcs through the late-bound client: defaults, spans kept as given,
refusals by the core with the arc kept and nothing raised, Change events, a circular arc mapped
into an elliptical one, the unit-circle parameters, and persistence."""

import math

import pytest

import tessaly
from codes import E_INVALIDARG

constants = tessaly.constants


def circular(*params):
    arc = tessaly.CreateObject("Tessaly.LuxCircularArc")
    if params:
        arc.SetCenterRadiusAngleStartAngleSpan(*params)
    return arc


def elliptical(*params):
    arc = tessaly.CreateObject("Tessaly.LuxEllipticalArc")
    if params:
        arc.SetCenterRadiusXYRotationAngleStartAngleSpan(*params)
    return arc


class Recorder:
    def __init__(self):
        self.changes = []

    def Change(self, StateID, Value, FunctionalArea):
        self.changes.append((StateID, Value, FunctionalArea))


def test_defaults_and_spans_as_given():
    arc = circular()
    assert arc.GetCenterRadiusAngleStartAngleSpan() == (50.0, 50.0, 50.0, 0.0, math.pi)
    assert arc.GetStartEnd() == pytest.approx((100, 50, 0, 50), abs=1e-12)
    assert (arc.MidpointX, arc.MidpointY) == pytest.approx((50, 100), abs=1e-12)
    assert arc.ArcLength == pytest.approx(50 * math.pi)
    assert arc.DisplayMode == constants.luxCircularArcDisplayModeMathematical
    assert elliptical().GetCenterRadiusXYRotationAngleStartAngleSpan() == (50.0, 50.0, 50.0, 25.0, 0.0, 0.0, math.pi)
    arc.AngleSpan = 4 * math.pi
    arc.AngleStart = 7.0
    assert (arc.AngleStart, arc.AngleSpan) == (7.0, 4 * math.pi)
    assert arc.ArcLength == pytest.approx(50 * 4 * math.pi)


def test_refusals_keep_the_arc_and_raise_nothing():
    arc = circular(1, 2, 3, 0.5, 1.5)
    sink = Recorder()
    with tessaly.GetEvents(arc, sink):
        for call, text, source in [(lambda: setattr(arc, "AngleSpan", 0.0), "ccQvShapesError::InvalidAngleSpan",
                                    "put_AngleSpan"),
                                   (lambda: setattr(arc, "Radius", 0.0), "ccQvShapesError::InvalidRadius",
                                    "put_Radius"),
                                   (lambda: arc.SetCenterRadiusAngleStartAngleSpan(0, 0, -1, 0, 1),
                                    "ccQvShapesError::InvalidRadius", "SetCenterRadiusAngleStartAngleSpan")]:
            with pytest.raises(tessaly.ComError) as refused:
                call()
            assert refused.value.hresult == E_INVALIDARG
            assert text in refused.value.description
            assert refused.value.source == source
        with pytest.raises(tessaly.ComError) as refused:
            arc.DisplayMode = 2
        assert refused.value.description == "The argument DisplayMode is not one of the values of its enumeration."
    assert arc.GetCenterRadiusAngleStartAngleSpan() == (1.0, 2.0, 3.0, 0.5, 1.5)
    assert sink.changes == []


def test_events_and_a_circular_arc_mapped_into_an_elliptical_one():
    arc = circular(0, 0, 2, 0, math.pi / 2)
    sink = Recorder()
    with tessaly.GetEvents(arc, sink):
        arc.Radius = 4.0
        arc.Radius = 4.0
        arc.SetCenterRadiusAngleStartAngleSpan(1, 1, 4, 0, math.pi / 2)
        arc.EndPointAdornment = constants.luxCircularArcAdornmentSolidSquare
    geometry = constants.luxFA_Shape_Geometry
    assert sink.changes == [
        (constants.luxCircularArc_Radius, 4.0, geometry),
        (constants.luxState_MoreThanOneStateIDChanged, None, geometry),
        (constants.luxCircularArc_EndPointAdornment, 3, constants.luxFA_Shape_Graphic),
    ]
    stretch = tessaly.CreateObject("Tessaly.LuxTransform2DLinear")
    stretch.SetMatrixElementsTranslation(2, 0, 0, 1, 5, 0)
    mapped = arc.MapLinear(stretch, constants.luxCopyShapeAll)
    assert mapped.GetCenterRadiusXYRotationAngleStartAngleSpan()[:4] == pytest.approx((7, 1, 8, 4))
    assert mapped.GetStartEnd() == pytest.approx((15, 1, 7, 5), abs=1e-9)
    assert mapped.EndPointAdornment == constants.luxEllipticalArcAdornmentSolidSquare


def test_unit_circle_params_and_persistence():
    arc = elliptical(1, 2, 6, 3, 0.5, -0.75, 2.5)
    start, span, transform = arc.GetUnitCircleParams()
    assert (start, span) == (-0.75, 2.5)
    c, s = math.cos(0.5), math.sin(0.5)
    assert transform.GetMatrixElementsTranslation() == pytest.approx((6 * c, -3 * s, 6 * s, 3 * c, 1, 2))
    other = elliptical()
    other.SetFromUnitCircleParams(start, span, transform)
    assert other.GetCenterRadiusXYRotationAngleStartAngleSpan() == \
        pytest.approx(arc.GetCenterRadiusXYRotationAngleStartAngleSpan(), abs=1e-12)
    singular = tessaly.CreateObject("Tessaly.LuxTransform2DLinear")
    singular.SetMatrixElementsTranslation(1, 2, 2, 4, 0, 0)
    with pytest.raises(tessaly.ComError) as refused:
        other.SetFromUnitCircleParams(0, 1, singular)
    assert "ccShapesError::DegenerateShape" in refused.value.description

    arc.DirectionAdornment = constants.luxEllipticalArcDirectionAdornmentArrow
    for fmt in (constants.luxPersistFormatBinary, constants.luxPersistFormatXML):
        loaded = tessaly.LoadObjectFromBytes(tessaly.SaveObjectToBytes(arc, fmt))
        assert loaded.GetCenterRadiusXYRotationAngleStartAngleSpan() == \
            arc.GetCenterRadiusXYRotationAngleStartAngleSpan()
        assert loaded.DirectionAdornment == constants.luxEllipticalArcDirectionAdornmentArrow
