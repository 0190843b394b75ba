"""The typical request through the objects, as a Python host makes it: an image, a space of
its tree rotated and scaled against the pixels, a region placed in that space, the region
statistics tool run on them with its PreRun, Change and PostRun events, results checked
against NumPy over the same pixels, and the tool saved and loaded with its inputs and
results, then run again on a new image given the saved image's tree."""

import math

import numpy
import pytest

import tessaly
from codes import E_INVALIDARG
from tool_events import ToolRecorder

C = tessaly.constants
WIDTH, HEIGHT = 200, 160
ROTATION, SCALING = math.radians(20.0), 1.5
SIDES = (40.0, 30.0)                      # in fixture units: 60 x 45 pixels
RESULTS = ("Area", "Mean", "StandardDeviation", "Min", "Max", "Median")


def pixels(seed):
    return numpy.random.default_rng(seed).integers(10, 250, size=(HEIGHT, WIDTH), dtype=numpy.uint8)


def expected_results(array, centre):
    """The statistics of the pixels whose centres lie inside the fixture's rectangle."""
    ys, xs = numpy.mgrid[0:HEIGHT, 0:WIDTH]
    dx, dy = xs + 0.5 - centre[0], ys + 0.5 - centre[1]
    u = (math.cos(ROTATION) * dx + math.sin(ROTATION) * dy) / SCALING
    v = (-math.sin(ROTATION) * dx + math.cos(ROTATION) * dy) / SCALING
    margin_u, margin_v = numpy.abs(numpy.abs(u) - SIDES[0] / 2), numpy.abs(numpy.abs(v) - SIDES[1] / 2)
    assert margin_u.min() > 1e-6 and margin_v.min() > 1e-6  # no centre on an edge: the edge rule does not matter
    inside = array[(numpy.abs(u) < SIDES[0] / 2) & (numpy.abs(v) < SIDES[1] / 2)].astype(numpy.int64)
    histogram = numpy.bincount(inside, minlength=256)
    median = int(numpy.searchsorted(numpy.cumsum(histogram), (inside.size + 1) // 2))
    return {"Area": inside.size, "Mean": inside.mean(), "StandardDeviation": inside.std(), "Min": int(inside.min()),
            "Max": int(inside.max()), "Median": median, "Histogram": histogram}


def check_results(tool, expected):
    assert tool.ResultsValid
    assert tool.Area == expected["Area"]
    assert tool.Mean == pytest.approx(expected["Mean"], rel=1e-12)
    assert tool.StandardDeviation == pytest.approx(expected["StandardDeviation"], rel=1e-9)
    assert (tool.Min, tool.Max, tool.Median) == (expected["Min"], expected["Max"], expected["Median"])
    assert list(tool.Histogram) == list(expected["Histogram"])


def fixtured_image(array, centre):
    image = tessaly.ImageFromArray(array)
    fixture = tessaly.CreateObject("Tessaly.LuxTransform2DLinear")
    fixture.Scaling = SCALING
    fixture.Rotation = ROTATION
    fixture.TranslationX, fixture.TranslationY = centre
    image.CoordinateSpaceTree.AddSpace("@", "Fixture", fixture)
    return image


def test_the_typical_request_from_image_to_saved_tool_and_back(tmp_path):
    centre = (WIDTH / 2, HEIGHT / 2)
    array = pixels(1)
    image = fixtured_image(array, centre)
    # The tree composes the fixture with the pixels: one fixture unit along x is 1.5 pixels at 20 degrees.
    x, y = image.GetTransform("#", "Fixture").MapPoint(1.0, 0.0)
    assert (x, y) == pytest.approx((centre[0] + SCALING * math.cos(ROTATION), centre[1] + SCALING * math.sin(ROTATION)))

    region = tessaly.CreateObject("Tessaly.LuxRectangleAffine")
    region.SetCenterLengthsRotationSkew(0.0, 0.0, SIDES[0], SIDES[1], 0.0, 0.0)
    region.SelectedSpaceName = "Fixture"

    tool = tessaly.CreateObject("Tessaly.LuxRegionStatisticsTool")
    assert list(tool.ExposedInputProperties)[0] == "InputImage"
    assert list(tool.ExposedOutputProperties) == list(RESULTS)
    tool.InputImage = image
    tool.Region = region
    recorder = ToolRecorder()
    with tessaly.GetEvents(tool, recorder):
        tool.Run()
    status = tool.RunStatus
    assert (status.ErrorCode, status.ErrorString) == (0, "")
    assert 0 < status.TimeRaw <= status.Time
    expected = expected_results(array, centre)
    check_results(tool, expected)
    # PreRun first, PostRun last, and the results announced between them.
    assert recorder.events[0] == "PreRun" and recorder.events[-1] == "PostRun"
    changes = recorder.events[1:-1]
    assert changes and all(event[0] == "Change" for event in changes)
    assert any(event[2] & C.luxFA_Tool_Results for event in changes)
    assert ("Change", C.luxTool_RunStatus, C.luxFA_Tool_Results) in changes

    # A refused setting changes nothing and announces nothing.
    recorder.events.clear()
    with tessaly.GetEvents(tool, recorder):
        with pytest.raises(tessaly.ComError) as refused:
            tool.ColorPlane = 3
    assert refused.value.hresult == E_INVALIDARG
    assert tool.ColorPlane == 0
    assert recorder.events == []

    for format in (C.luxPersistFormatBinary, C.luxPersistFormatXMLWithLineBreaks):
        path = tmp_path / ("tool.%d" % format)
        tessaly.SaveObjectToFile(tool, str(path), format, C.luxPersistOptionAll)
        loaded = tessaly.LoadObjectFromFile(str(path))
        assert type(loaded).__name__ == "LuxRegionStatisticsTool"
        check_results(loaded, expected)  # the saved results, before any run
        assert loaded.Region.SelectedSpaceName == "Fixture"
        saved_tree = loaded.InputImage.CoordinateSpaceTree
        assert list(saved_tree.ChildNames("@")) == ["@\\Fixture"]
        loaded.Run()
        assert loaded.RunStatus.ErrorCode == 0
        check_results(loaded, expected)

        # A new image with the saved image's tree: the region finds its fixture there.
        other = pixels(2)
        new_image = tessaly.ImageFromArray(other)
        new_image.CoordinateSpaceTree = saved_tree
        loaded.InputImage = new_image
        loaded.Run()
        assert loaded.RunStatus.ErrorCode == 0
        check_results(loaded, expected_results(other, centre))
        # Without it the fixture is unknown: the run fails and says so, with no results.
        loaded.InputImage = tessaly.ImageFromArray(other)
        loaded.Run()
        assert loaded.RunStatus.ErrorCode < 0 and loaded.RunStatus.ErrorString != ""
        assert not loaded.ResultsValid
        tessaly.ClearObjectGraph(loaded)
