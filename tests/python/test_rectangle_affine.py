"""The affine rectangle through the late-bound client: defaults, the skew's conditioning and
the angles' normalisation, Change events, refusals of the core with the state kept, masks
(a rectangle mapped into an affine rectangle keeps its pixels), and persistence."""

import math

import pytest

import tessaly
from codes import E_INVALIDARG, hresult

constants = tessaly.constants
E_LUX_NOT_IMPLEMENTED = hresult(0x8004C003)
E_LUX_BAD_FILE_FORMAT = hresult(0x8004C104)
SNAPPED = 1.5727963267948966  # pi/2 + 0.002


def affine(*params):
    shape = tessaly.CreateObject("Tessaly.LuxRectangleAffine")
    if params:
        shape.SetCenterLengthsRotationSkew(*params)
    return shape


class Recorder:
    def __init__(self):
        self.changes = []

    def Change(self, StateID, Value, FunctionalArea):
        self.changes.append((StateID, Value, FunctionalArea))


def corners(shape):
    return [(shape.CornerOriginX, shape.CornerOriginY), (shape.CornerX_X, shape.CornerX_Y),
            (shape.CornerOppositeX, shape.CornerOppositeY), (shape.CornerY_X, shape.CornerY_Y)]


def mask_pixels(shape):
    mask = shape.CreateRLE(255, 0)
    return {(x, y) for x in range(mask.X, mask.X + mask.Width) for y in range(mask.Y, mask.Y + mask.Height)
            if mask.Pixel[x, y] == 255}


def test_defaults_and_the_angles_as_stored():
    shape = affine()
    assert shape.GetCenterLengthsRotationSkew() == (50.0, 50.0, 100.0, 100.0, 0.0, 0.0)
    assert corners(shape) == [(0.0, 0.0), (100.0, 0.0), (100.0, 100.0), (0.0, 100.0)]
    assert shape.XDirectionAdornment == constants.luxRectangleAffineDirectionAdornmentNone
    assert shape.GraphicDOFEnable == constants.luxRectangleAffineDOFAll
    for passed, stored in [(math.pi / 2, SNAPPED), (-math.pi / 2 + 0.001, -SNAPPED), (1.5, 1.5),
                           (3 * math.pi / 2, SNAPPED)]:
        shape.Skew = passed
        assert shape.Skew == stored, passed
    shape.Rotation = 4
    assert shape.Rotation == 4 - 2 * math.pi
    shape.Rotation = math.pi
    assert shape.Rotation == -math.pi


def test_events_one_per_call_and_none_for_the_present_value():
    shape = affine()
    sink = Recorder()
    with tessaly.GetEvents(shape, sink):
        shape.CenterX = 7.5
        shape.Rotation = 0.25
        shape.Rotation = 0.25
        shape.Skew = math.pi / 2
        shape.Skew = math.pi / 2 - 0.0005  # conditions to the present skew
        shape.SetCenterLengthsRotationSkew(1, 2, 3, 4, 0, 0)
        shape.YDirectionAdornment = constants.luxRectangleAffineDirectionAdornmentArrow
    several = constants.luxState_MoreThanOneStateIDChanged
    geometry = constants.luxFA_Shape_Geometry
    assert sink.changes == [
        (constants.luxRectangleAffine_CenterX, 7.5, geometry),
        (several, None, geometry),
        (several, None, geometry),
        (several, None, geometry),
        (constants.luxRectangleAffine_YDirectionAdornment, 1, constants.luxFA_Shape_Graphic),
    ]


def test_refusals_keep_the_shape_and_raise_nothing():
    shape = affine(10, 20, 30, 40, 0.5, 0.25)
    sink = Recorder()
    with tessaly.GetEvents(shape, sink):
        for call, text in [(lambda: shape.SetCenterLengthsRotationSkew(0, 0, 0, 5, 0, 0), "ccAffineRectangle::BadLength"),
                           (lambda: shape.SetCenterLengthsRotationSkew(0, 0, 5, 5, 0, math.pi / 2),
                            "ccAffineRectangle::BadSkew")]:
            with pytest.raises(tessaly.ComError) as refused:
                call()
            assert refused.value.hresult == E_INVALIDARG
            assert text in refused.value.description
            assert refused.value.source == "SetCenterLengthsRotationSkew"
        with pytest.raises(tessaly.ComError) as refused:
            shape.SideXLength = 0
        assert refused.value.description == "The argument SideXLength must be greater than 0."
        with pytest.raises(tessaly.ComError) as refused:
            shape.XDirectionAdornment = 3
        assert refused.value.description == \
            "The argument XDirectionAdornment is not one of the values of its enumeration."
        with pytest.raises(tessaly.ComError) as refused:
            shape.SetFromRectangle(None, None)
        assert refused.value.description == "The argument Rectangle must not be null."
        with pytest.raises(tessaly.ComError) as refused:
            shape.MakeShapeModel(1.0, 0, True)
        assert refused.value.hresult == E_LUX_NOT_IMPLEMENTED
    assert shape.GetCenterLengthsRotationSkew() == pytest.approx((10, 20, 30, 40, 0.5, 0.25), abs=1e-15)
    assert sink.changes == []


def test_masks_maps_and_persistence():
    shape = affine(20.3, 15.7, 25.1, 11.3, 0.6, -0.35)
    pixels = mask_pixels(shape)
    assert shape.Area == pytest.approx(25.1 * 11.3 * math.cos(0.35))
    assert abs(len(pixels) - shape.Area) < 0.1 * shape.Area

    rectangle = tessaly.CreateObject("Tessaly.LuxRectangle")
    rectangle.SetXYWidthHeight(2, 3, 8, 4)
    turn = tessaly.CreateObject("Tessaly.LuxTransform2DLinear")
    turn.SetMatrixElementsTranslation(0, -1, 1, 0, 0, 0)
    mapped = rectangle.Map(turn, constants.luxCopyShapeAll)
    assert mapped.GetOriginCornerXCornerY() == pytest.approx((-3, 2, -3, 10, -7, 2), abs=1e-12)
    upright = tessaly.CreateObject("Tessaly.LuxRectangle")
    upright.SetXYWidthHeight(-7, 2, 4, 8)
    assert mask_pixels(mapped) == mask_pixels(upright)

    shape.XDirectionAdornment = constants.luxRectangleAffineDirectionAdornmentSolidArrow
    for fmt in (constants.luxPersistFormatBinary, constants.luxPersistFormatXML):
        loaded = tessaly.LoadObjectFromBytes(tessaly.SaveObjectToBytes(shape, fmt))
        assert loaded.GetCenterLengthsRotationSkew() == shape.GetCenterLengthsRotationSkew()
        assert loaded.XDirectionAdornment == constants.luxRectangleAffineDirectionAdornmentSolidArrow
        assert mask_pixels(loaded) == pixels
    bad = tessaly.SaveObjectToBytes(shape, constants.luxPersistFormatXML).replace(
        b'<SideYLength dt:dt="r8">11.3<', b'<SideYLength dt:dt="r8">-1<')
    assert b">-1<" in bad
    with pytest.raises(tessaly.ComError) as refused:
        tessaly.LoadObjectFromBytes(bad)
    assert refused.value.hresult == E_LUX_BAD_FILE_FORMAT and "SideYLength" in refused.value.description
