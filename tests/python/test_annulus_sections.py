"""The circular and elliptical annulus sections through the late-bound client: defaults,
angles kept as given, refusals of the core with the section kept and no event, one Change a
call, a circular section mapped into an elliptical one with the same pixels, arcs at radial
fractions, the unit-circle parameters, and persistence with a refused load."""

import math

import pytest

import tessaly
from codes import E_INVALIDARG, hresult

constants = tessaly.constants
E_LUX_BAD_FILE_FORMAT = hresult(0x8004C104)


def circular(*params):
    shape = tessaly.CreateObject("Tessaly.LuxCircularAnnulusSection")
    if params:
        shape.SetCenterRadiusAngleStartAngleSpanRadialScale(*params)
    return shape


def elliptical(*params):
    shape = tessaly.CreateObject("Tessaly.LuxEllipticalAnnulusSection")
    if params:
        shape.SetCenterRadiusXYRotationAngleStartAngleSpanRadialScale(*params)
    return shape


class Recorder:
    def __init__(self):
        self.changes = []

    def Change(self, StateID, Value, FunctionalArea):
        self.changes.append((StateID, Value, FunctionalArea))


def mask_pixels(shape):
    mask = shape.CreateRLE(255, 0)
    return {(x, y) for x in range(mask.X, mask.X + mask.Width) for y in range(mask.Y, mask.Y + mask.Height)
            if mask.Pixel[x, y] == 255}


def test_defaults_and_angles_kept_as_given():
    section = circular()
    assert section.GetCenterRadiusAngleStartAngleSpanRadialScale() == (50.0, 50.0, 25.0, 0.0, math.pi, 2.0)
    assert section.ManipArcFraction == 0.5
    assert elliptical().GetCenterRadiusXYRotationAngleStartAngleSpanRadialScale() == \
        (50.0, 50.0, 25.0, 25.0, 0.0, 0.0, math.pi, 2.0)
    section.AngleSpan = 4 * math.pi
    section.AngleStart = 7
    assert (section.AngleStart, section.AngleSpan) == (7, 4 * math.pi)
    section.RadialScale = 0.5
    assert section.CreateCircularArc(0, 0).Radius > section.CreateCircularArc(1, 0).Radius
    assert section.CreateCircularArc(0.5, 0).Radius == pytest.approx(25 * 0.75)


def test_refusals_keep_the_section_and_raise_nothing():
    section = circular(10, 20, 30, 0.5, 1.5, 3)
    sink = Recorder()
    with tessaly.GetEvents(section, sink):
        for name, value, text in [("Radius", 0, "ccQvShapesError::InvalidRadius"),
                                  ("AngleSpan", 0, "ccQvShapesError::InvalidAngleSpan"),
                                  ("RadialScale", 1, "ccQvShapesError::InvalidRadialScale"),
                                  ("ManipArcFraction", 1, "ccQvShapesError::InvalidEllipseFraction")]:
            with pytest.raises(tessaly.ComError) as refused:
                setattr(section, name, value)
            assert refused.value.hresult == E_INVALIDARG
            assert text in refused.value.description
            assert refused.value.source == "put_" + name
        with pytest.raises(tessaly.ComError) as refused:
            section.CenterArcAdornment = 3
        assert refused.value.description == \
            "The argument CenterArcAdornment is not one of the values of its enumeration."
        with pytest.raises(tessaly.ComError) as refused:
            section.MapLinear(None, 0)
        assert refused.value.description == "The argument Transform must not be null."
    assert section.GetCenterRadiusAngleStartAngleSpanRadialScale() == (10, 20, 30, 0.5, 1.5, 3)
    assert sink.changes == []


def test_events_one_per_call():
    section = elliptical()
    sink = Recorder()
    geometry = constants.luxFA_Shape_Geometry
    with tessaly.GetEvents(section, sink):
        section.Rotation = math.pi
        section.Rotation = -math.pi
        section.SetCenterRadiusXYRotationAngleStartAngleSpanRadialScale(1, 2, 3, 4, 0, 0, 1, 2)
        section.ArcDirectionAdornment = constants.luxEllipticalAnnulusSectionDirectionAdornmentArrow
    assert sink.changes == [
        (constants.luxEllipticalAnnulusSection_Rotation, -math.pi, geometry),
        (constants.luxState_MoreThanOneStateIDChanged, None, geometry),
        (constants.luxEllipticalAnnulusSection_ArcDirectionAdornment, 1, constants.luxFA_Shape_Graphic),
    ]


def test_a_mapped_circular_section_keeps_its_pixels_and_the_unit_circle_round_trips():
    section = circular(30.4, 25.2, 8.3, 0.4, -4.0, 2.2)
    shift = tessaly.CreateObject("Tessaly.LuxTransform2DLinear")
    shift.SetMatrixElementsTranslation(1, 0, 0, 1, 3, -2)
    mapped = section.MapLinear(shift, constants.luxCopyShapeAll)
    assert mapped.GetCenterRadiusXYRotationAngleStartAngleSpanRadialScale()[:2] == pytest.approx((33.4, 23.2))
    assert {(x - 3, y + 2) for x, y in mask_pixels(mapped)} == mask_pixels(section)

    start, span, scale, transform = mapped.GetUnitCircleParams()
    copy = elliptical()
    copy.SetFromUnitCircleParams(start, span, scale, transform)
    assert copy.Area == pytest.approx(mapped.Area)
    assert mask_pixels(copy) == mask_pixels(mapped)


def test_persistence_and_a_refused_load():
    section = circular(-3.25, 4.5, 12.5, 7, -4 * math.pi, 0.5)
    section.RadialDirectionAdornment = constants.luxCircularAnnulusSectionDirectionAdornmentSolidArrow
    for fmt in (constants.luxPersistFormatBinary, constants.luxPersistFormatXML):
        loaded = tessaly.LoadObjectFromBytes(tessaly.SaveObjectToBytes(section, fmt))
        assert loaded.GetCenterRadiusAngleStartAngleSpanRadialScale() == \
            section.GetCenterRadiusAngleStartAngleSpanRadialScale()
        assert loaded.RadialDirectionAdornment == constants.luxCircularAnnulusSectionDirectionAdornmentSolidArrow
    bad = tessaly.SaveObjectToBytes(section, constants.luxPersistFormatXML).replace(
        b'<RadialScale dt:dt="r8">0.5<', b'<RadialScale dt:dt="r8">1<')
    assert b'<RadialScale dt:dt="r8">1<' in bad
    with pytest.raises(tessaly.ComError) as refused:
        tessaly.LoadObjectFromBytes(bad)
    assert refused.value.hresult == E_LUX_BAD_FILE_FORMAT and "RadialScale" in refused.value.description
