"""The linear and composed transforms as a Python client sees them: members and their help,
out parameters returned as tuples, refusals raised with their HRESULT and leaving the
transform as it was, one Change per change, and composition order."""

import math
import pydoc

import pytest

import tessaly
from codes import E_INVALIDARG, hresult

constants = tessaly.constants
E_SINGULAR = hresult(0x8004E203)
E_CANT_POP = hresult(0x8004E201)


class ChangeRecorder:
    def __init__(self):
        self.changes = []

    def Change(self, StateID, Value, FunctionalArea):
        self.changes.append((StateID, FunctionalArea))


@pytest.fixture
def linear():
    return tessaly.CreateObject("Tessaly.LuxTransform2DLinear")


@pytest.fixture
def composed():
    return tessaly.CreateObject("Tessaly.LuxTransform2DComposed")


def test_members_and_their_help_are_visible(linear):
    names = set(dir(linear))
    assert {"MapPoint", "Linear", "CopyBase", "ComposeBase", "Rotation", "Skew", "Scaling", "Aspect",
            "MatrixElement", "GetMatrixElementsTranslation", "SetScalingsRotationsTranslation", "Clone"} <= names
    text = pydoc.render_doc(linear, renderer=pydoc.plaintext)
    assert "Aspect is the ratio of scaling along the y axis" in text
    assert "Maps a point from the 'from' space to the 'to' space." in text
    assert "Returns a new, independent copy of this transform." in text  # CopyBase, of ILuxTransform2D
    assert linear.GetMatrixElementsTranslation.__doc__.startswith("GetMatrixElementsTranslation() -> (")


def test_out_parameters_come_back_as_tuples(linear):
    assert linear.MapPoint(1, 2) == (1.0, 2.0)
    linear.SetMatrixElementsTranslation(2, 0, 0, 3, 10, 20)
    assert linear.MapPoint(1, 2) == (12.0, 26.0)
    assert linear.GetMatrixElementsTranslation() == (2.0, 0.0, 0.0, 3.0, 10.0, 20.0)
    assert linear.MapVector(1, 1) == (2.0, 3.0)
    assert linear.MatrixElement[1, 1] == 3.0
    assert linear.MatrixDeterminant == 6.0
    linear.SetMatrixElementsTranslation(1, 0, 0, -1, 0, 0)
    assert linear.GetScalingAspectRotationSkewTranslation() == (1.0, 1.0, 0.0, -math.pi, 0.0, 0.0)
    fit, rms = linear.BestFitLinearTransform(None)
    assert rms == 0.0 and fit.GetMatrixElementsTranslation() == linear.GetMatrixElementsTranslation()


def test_refusals_raise_their_hresult_and_leave_the_transform_as_it_was(linear):
    linear.SetMatrixElementsTranslation(2, 1, 0, 3, 4, 5)
    before = linear.GetMatrixElementsTranslation()
    sink = ChangeRecorder()
    with tessaly.GetEvents(linear, sink):
        with pytest.raises(tessaly.ComError) as refused:
            linear.Scaling = 0
        assert refused.value.hresult == E_INVALIDARG
        assert refused.value.source == "put_Scaling"
        assert "Scaling" in refused.value.description
        with pytest.raises(tessaly.ComError) as refused:
            linear.MatrixElement[2, 0] = 1.0
        assert refused.value.hresult == E_INVALIDARG
        assert "Row" in refused.value.description
        with pytest.raises(tessaly.ComError) as refused:
            linear.Skew = math.pi / 2
        assert refused.value.hresult == E_INVALIDARG
        with pytest.raises(tessaly.ComError) as refused:
            linear.Compose(None)
        assert refused.value.hresult == E_INVALIDARG
        assert "RightSide" in refused.value.description
    assert linear.GetMatrixElementsTranslation() == before
    assert sink.changes == []

    linear.SetMatrixElementsTranslation(1, 2, 2, 4, 0, 0)
    with pytest.raises(tessaly.ComError) as refused:
        linear.Rotation
    assert refused.value.hresult == E_SINGULAR
    with pytest.raises(tessaly.ComError) as refused:
        linear.Invert()
    assert refused.value.hresult == E_SINGULAR
    assert linear.Singular(0) is True
    assert linear.MapArea(3) == 0.0


def test_one_change_per_change_and_none_for_the_same_value(linear):
    sink = ChangeRecorder()
    with tessaly.GetEvents(linear, sink):
        linear.Rotation = 2 * math.pi + 0.5
        linear.Rotation = 2 * math.pi + 0.5
        linear.SetScalingAspectRotationSkewTranslation(2, 1, 0, 0, 1, 1)
        linear.TranslationX = 1
    assert sink.changes == [(constants.luxState_MoreThanOneStateIDChanged, constants.luxFA_Misc)] * 2
    assert linear.Scaling == 2.0


def test_composition_maps_through_the_right_side_first(linear, composed):
    linear.SetScalingsRotationsTranslation(1, 1, math.pi / 2, math.pi / 2, 0, 0)
    shift = tessaly.CreateObject("Tessaly.LuxTransform2DLinear")
    shift.TranslationX = 10
    x, y = linear.Compose(shift).MapPoint(1, 0)
    assert x == pytest.approx(0, abs=1e-14) and y == pytest.approx(11)
    composed.PushOntoRight(linear)
    composed.PushOntoRight(shift, False)
    assert composed.Count == 2
    assert composed.MapPoint(1, 0) == pytest.approx((0, 11))
    single = composed.Canonize()
    assert type(single).__name__ == "LuxTransform2DLinear"
    assert single.MapPoint(1, 0) == pytest.approx((0, 11))
    composed.PopFromLeft()
    composed.PopFromLeft()
    with pytest.raises(tessaly.ComError) as refused:
        composed.PopFromRight()
    assert refused.value.hresult == E_CANT_POP
    assert composed.MapPoint(3, 4) == (3.0, 4.0)
