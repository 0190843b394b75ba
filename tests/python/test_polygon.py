"""The polygon through the late-bound client: vertices from NumPy arrays (flat and N x 2, of
several dtypes), GetVertices back as an array, the vertex events after Change, refusals with
the polygon kept, fill modes, degenerate measures and persistence."""

import numpy
import pytest

import tessaly
from codes import E_INVALIDARG, hresult

constants = tessaly.constants
E_LUX_DEGENERATE_POLYGON = hresult(0x8004E304)


def polygon(coordinates=None):
    shape = tessaly.CreateObject("Tessaly.LuxPolygon")
    if coordinates is not None:
        shape.SetVertices(coordinates)
    return shape


def vertices(shape):
    return [tuple(float(c) for c in pair) for pair in numpy.asarray(shape.GetVertices()).reshape(-1, 2)]


class Recorder:
    def __init__(self):
        self.seen = []

    def Change(self, StateID, Value, FunctionalArea):
        self.seen.append(("Change", StateID, Value, FunctionalArea))

    def VertexChanged(self, Index, NewX, NewY):
        self.seen.append(("VertexChanged", Index, NewX, NewY))

    def VertexAdded(self, Index, NewX, NewY, NewNumVertices):
        self.seen.append(("VertexAdded", Index, NewX, NewY, NewNumVertices))

    def VertexRemoved(self, Index, NewNumVertices):
        self.seen.append(("VertexRemoved", Index, NewNumVertices))

    def BulkChanged(self, NewNumVertices):
        self.seen.append(("BulkChanged", NewNumVertices))


def test_numpy_arrays_in_and_out():
    triangle = [(1.0, 2.0), (30.0, 4.0), (5.0, 60.0)]
    for array in (numpy.array(triangle), numpy.array(triangle, dtype=numpy.float32),
                  numpy.array(triangle, dtype=numpy.int32), numpy.array(triangle).ravel(),
                  numpy.asfortranarray(numpy.array(triangle)), numpy.array(triangle)[:, :]):
        shape = polygon(array)
        assert vertices(shape) == triangle
        assert shape.NumVertices == 3
    assert vertices(polygon(triangle)) == triangle  # a list of (X, Y) tuples
    assert vertices(polygon([[1, 2], [30, 4], [5, 60]])) == triangle
    assert vertices(polygon([1, 2, 30, 4, 5, 60])) == triangle
    for bad in ([(1, 2), (3, 4, 5)], [(1, 2), 3], [[(1, 2), (3, 4)]], [(1, "x")]):
        with pytest.raises(tessaly.ComError) as refused:
            polygon(bad)
        assert refused.value.hresult == E_INVALIDARG and "CoordinatesXY" in refused.value.description
    out = numpy.asarray(polygon(numpy.array(triangle)).GetVertices())
    assert out.dtype == numpy.float64 and out.tolist() == [1, 2, 30, 4, 5, 60]
    assert vertices(polygon()) == [(0, 0), (100, 0), (100, 100), (0, 100)]


def test_vertex_events_follow_change():
    shape = polygon(numpy.array([(0, 0), (10, 0), (10, 10)], dtype=float))
    sink = Recorder()
    geometry = constants.luxFA_Shape_Geometry
    with tessaly.GetEvents(shape, sink):
        shape.AddVertex(0, 10)
        shape.SetVertex(1, 12, 0)
        shape.VertexY[2] = 11
        shape.RemoveVertex(0)
        shape.SetVertices(numpy.zeros((5, 2)))
        shape.NumVertices = 5  # unchanged: nothing
    assert sink.seen == [
        ("Change", constants.luxPolygon_NumVertices, 4, geometry), ("VertexAdded", 3, 0.0, 10.0, 4),
        ("Change", constants.luxPolygon_VertexX, 12.0, geometry), ("VertexChanged", 1, 12.0, 0.0),
        ("Change", constants.luxPolygon_VertexY, 11.0, geometry), ("VertexChanged", 2, 10.0, 11.0),
        ("Change", constants.luxPolygon_NumVertices, 3, geometry), ("VertexRemoved", 0, 3),
        ("Change", constants.luxState_MoreThanOneStateIDChanged, None, geometry), ("BulkChanged", 5),
    ]


def test_refusals_keep_the_polygon_and_raise_nothing():
    shape = polygon(numpy.array([(1, 2), (3, 4), (5, 7)], dtype=float))
    sink = Recorder()
    with tessaly.GetEvents(shape, sink):
        for call, source, text in [
            (lambda: shape.SetVertices(numpy.arange(5.0)), "SetVertices", "CoordinatesXY"),
            (lambda: shape.SetVertices(numpy.zeros((2, 3))), "SetVertices", "CoordinatesXY"),
            (lambda: shape.SetVertices(numpy.array([1.0, float("nan")])), "SetVertices", "CoordinatesXY"),
            (lambda: shape.AddVertex(9, 9, 4), "AddVertex", "vertex index"),
            (lambda: shape.GetVertex(3), "GetVertex", "vertex index"),
            (lambda: setattr(shape, "NumVertices", -1), "put_NumVertices", "NumVertices"),
            (lambda: shape.VertexAdornmentColor.__setitem__(0, -3), "put_VertexAdornmentColor",
             "vertex adornment color"),
            (lambda: setattr(shape, "VertexAdornment", 2), "put_VertexAdornment", "vertex adornment"),
        ]:
            with pytest.raises(tessaly.ComError) as refused:
                call()
            assert refused.value.hresult == E_INVALIDARG
            assert text in refused.value.description
            assert refused.value.source == source
    assert vertices(shape) == [(1, 2), (3, 4), (5, 7)]
    assert sink.seen == []


def test_fill_modes_measures_and_persistence():
    star = numpy.array([(60.3, 5.2), (90.1, 95.7), (12.4, 38.9), (108.6, 40.3), (29.8, 96.1)])
    shape = polygon(star)
    assert shape.Complex and not shape.Convex
    even_odd = shape.CreateRLE(255, 0)
    assert even_odd.Pixel[60, 55] == 0
    shape.FillMode = constants.luxPolygonFillWindingNumber
    assert shape.CreateRLE(255, 0).Pixel[60, 55] == 255
    line = polygon([1.0, 1.0, 5.0, 1.0])
    assert line.Area == 0 and line.Perimeter == 8
    with pytest.raises(tessaly.ComError) as refused:
        line.AreaCenter()
    assert refused.value.hresult == E_LUX_DEGENERATE_POLYGON and refused.value.source == "AreaCenter"
    shape.VertexAdornmentColor[4] = constants.luxPolygonVertexColorRed
    for fmt in (constants.luxPersistFormatBinary, constants.luxPersistFormatXML):
        loaded = tessaly.LoadObjectFromBytes(tessaly.SaveObjectToBytes(shape, fmt))
        assert vertices(loaded) == vertices(shape)
        assert loaded.FillMode == constants.luxPolygonFillWindingNumber
        assert loaded.VertexAdornmentColor[4] == constants.luxPolygonVertexColorRed


def test_handles_and_the_older_polygon_are_not_creatable():
    for prog_id in ("Tessaly.LuxPolygonVertexHandle", "Tessaly.LuxPolygonDeprecated"):
        with pytest.raises(tessaly.ComError) as refused:
            tessaly.CreateObject(prog_id)
        assert refused.value.hresult == hresult(0x80040154)
    assert hasattr(constants, "luxPolygonDeprecatedDOFVertexPositions")
