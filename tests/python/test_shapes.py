"""Shapes through the late-bound client: a rectangle's parameters, defaults and refusals,
its Change events and the drag events of an interactive graphic, run-length masks, copies,
mapping and persistence."""

import pytest

import tessaly
from codes import E_INVALIDARG, hresult

constants = tessaly.constants
E_LUXSHAPE_DEGENERATESHAPE = hresult(0x8004E306)


def rectangle(x=0.0, y=0.0, width=1.0, height=1.0):
    shape = tessaly.CreateObject("Tessaly.LuxRectangle")
    shape.SetXYWidthHeight(x, y, width, height)
    return shape


class Recorder:
    def __init__(self):
        self.changes = []
        self.dragging = []
        self.stopped = []

    def Change(self, StateID, Value, FunctionalArea):
        self.changes.append((StateID, Value, FunctionalArea))

    def Dragging(self, DragGraphic):
        self.dragging.append(DragGraphic.GetXYWidthHeight())

    def DraggingStopped(self, DragGraphic):
        self.stopped.append(DragGraphic.GetXYWidthHeight())


def test_a_new_rectangle_is_100_by_100_at_the_origin_with_the_graphic_defaults():
    shape = tessaly.CreateObject("Tessaly.LuxRectangle")
    assert shape.GetXYWidthHeight() == (0.0, 0.0, 100.0, 100.0)
    assert (shape.Color, shape.SelectedColor, shape.DragColor) == (0xFFFF00, 0xFF0000, 0xFFFF)
    assert shape.Visible is True and shape.Interactive is False and shape.Selected is False
    assert shape.LineWidthInScreenPixels == 1 and shape.LineStyle == constants.luxGraphicLineStyleSolid
    assert shape.SelectedSpaceName == "." and shape.TipText == ""
    assert shape.GraphicDOFEnable == constants.luxRectangleDOFAll


def test_refusals_name_the_argument_and_leave_the_rectangle_as_it_was():
    shape = rectangle(1, 2, 3, 4)
    sink = Recorder()
    with tessaly.GetEvents(shape, sink):
        with pytest.raises(tessaly.ComError) as refused:
            shape.SetXYWidthHeight(0, 0, 0, 5)
        assert refused.value.hresult == E_INVALIDARG
        assert refused.value.description == "The argument Width must be greater than 0."
        assert refused.value.source == "SetXYWidthHeight"
        with pytest.raises(tessaly.ComError) as refused:
            shape.SetXYWidthHeight(0, 0, 5, -1)
        assert refused.value.description == "The argument Height must be greater than 0."
        with pytest.raises(tessaly.ComError) as refused:
            shape.LineStyle = 7
        assert refused.value.description == "The argument LineStyle is not one of the values of its enumeration."
        with pytest.raises(tessaly.ComError) as refused:
            shape.SelectedSpaceName = " bad"
        assert refused.value.hresult == hresult(0x8004E281)
    assert shape.GetXYWidthHeight() == (1.0, 2.0, 3.0, 4.0)
    assert shape.SelectedSpaceName == "." and shape.LineStyle == 0
    assert sink.changes == []


def test_setters_raise_change_with_the_state_id_the_value_and_the_area():
    shape = rectangle()
    sink = Recorder()
    with tessaly.GetEvents(shape, sink):
        shape.X = 5.5
        shape.X = 5.5
        shape.Color = constants.luxColorNone
        shape.SelectedSpaceName = "Fixture"
        shape.SetCenterWidthHeight(10, 10, 4, 2)
    assert sink.changes == [
        (constants.luxRectangle_X, 5.5, constants.luxFA_Shape_Geometry),
        (constants.luxRectangle_Color, -1, constants.luxFA_Shape_Graphic),
        (constants.luxShape_SelectedSpaceName, "Fixture", constants.luxFA_Shape_SelectedSpaceName),
        (constants.luxState_MoreThanOneStateIDChanged, None, constants.luxFA_Shape_Geometry),
    ]
    assert (shape.CenterX, shape.CenterY, shape.Area, shape.Perimeter) == (10.0, 10.0, 8.0, 12.0)


def test_a_sink_receives_dragging_and_dragging_stopped():
    shape = rectangle(10, 20, 30, 40)
    sink = Recorder()
    with tessaly.GetEvents(shape, sink):
        animation = shape.DragAnimate(0, 0, 3, 4, True, None)
        shape.DragStop(0, 0, 3, 4, True, None)
    assert animation.GetXYWidthHeight() == (13.0, 24.0, 30.0, 40.0)
    assert sink.dragging == [(13.0, 24.0, 30.0, 40.0)]
    assert sink.stopped == [(13.0, 24.0, 30.0, 40.0)]
    assert shape.GetXYWidthHeight() == (13.0, 24.0, 30.0, 40.0)
    assert [change[0] for change in sink.changes] == [constants.luxState_MoreThanOneStateIDChanged]


def test_create_rle_covers_the_rectangles_pixels():
    shape = rectangle(2, 3, 4, 5)
    mask = shape.CreateRLE(255, 0)
    assert (mask.X, mask.Y, mask.Width, mask.Height) == (2, 3, 4, 5)
    inside = sum(mask.Pixel[x, y] == 255 for x in range(2, 6) for y in range(3, 8))
    assert inside == shape.Area == 20
    with pytest.raises(tessaly.ComError) as refused:
        shape.CreateRLE(256, 0)
    assert refused.value.hresult == E_INVALIDARG and "InsidePelValue" in refused.value.description


def test_combinations_copies_and_maps():
    shape = rectangle(0, 0, 10, 10)
    shape.Color = 0x42
    other = rectangle(5, 5, 10, 10)
    assert shape.Intersect(other, constants.luxCopyShapeAll).GetXYWidthHeight() == (5.0, 5.0, 5.0, 5.0)
    assert shape.Union(other, constants.luxCopyShapeAll).GetXYWidthHeight() == (0.0, 0.0, 15.0, 15.0)
    with pytest.raises(tessaly.ComError) as refused:
        shape.Intersect(rectangle(20, 20, 1, 1), constants.luxCopyShapeAll)
    assert refused.value.hresult == E_LUXSHAPE_DEGENERATESHAPE
    assert shape.Copy(constants.luxCopyShapeGeometryOnly).Color == constants.luxColorCyan
    assert shape.Copy(constants.luxCopyShapeAll).Color == 0x42
    scale = tessaly.CreateObject("Tessaly.LuxTransform2DLinear")
    scale.SetMatrixElementsTranslation(2, 0, 0, 2, 1, 1)
    assert shape.Map(scale, constants.luxCopyShapeAll).GetXYWidthHeight() == (1.0, 1.0, 20.0, 20.0)


@pytest.mark.parametrize("format", ["luxPersistFormatBinary", "luxPersistFormatXML"])
def test_persistence_round_trip(format):
    shape = rectangle(1.25, -2, 3, 4)
    shape.SelectedSpaceName = "@\\Fixture"
    shape.TipText = "gate"
    shape.DragLineWidthInScreenPixels = 3
    data = tessaly.SaveObjectToBytes(shape, getattr(constants, format))
    loaded = tessaly.LoadObjectFromBytes(data, getattr(constants, format))
    assert loaded.GetXYWidthHeight() == (1.25, -2.0, 3.0, 4.0)
    assert (loaded.SelectedSpaceName, loaded.TipText, loaded.DragLineWidthInScreenPixels) == ("@\\Fixture", "gate", 3)
