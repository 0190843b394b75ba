"""The region statistics tool from Python: configured and run as a script runs it, with its
events received by name, its results read, the histogram as a sequence, and a failed run
read from its run status."""

import numpy
import pytest

import tessaly
from tool_events import ToolRecorder

constants = tessaly.constants


@pytest.fixture
def pixels():
    random = numpy.random.default_rng(5)
    return random.integers(0, 256, size=(40, 60), dtype=numpy.uint8)


def test_a_configured_tool_runs_with_its_events_and_its_results_match_numpy(pixels):
    image = tessaly.ImageFromArray(pixels)
    region = tessaly.CreateObject("Tessaly.LuxRectangle")
    region.SetXYWidthHeight(10, 5, 30, 20)
    tool = tessaly.CreateObject("Tessaly.LuxRegionStatisticsTool")
    tool.InputImage = image
    tool.Region = region
    sink = ToolRecorder()
    connection = tessaly.GetEvents(tool, sink)
    try:
        tool.Run()
    finally:
        connection.close()
    assert sink.events == [
        "PreRun",
        ("Change", -1, constants.luxFA_Tool_Results | constants.luxFA_Tool_LastRunRecord),
        ("Change", constants.luxTool_RunStatus, constants.luxFA_Tool_Results),
        "PostRun",
    ]
    status = tool.RunStatus
    assert status.ErrorCode == 0
    assert status.Time >= status.TimeRaw >= 0

    under = pixels[5:25, 10:40].astype(numpy.int64)
    assert tool.ResultsValid
    assert tool.Area == under.size
    assert tool.Mean == pytest.approx(under.mean(), rel=1e-12)
    assert tool.StandardDeviation == pytest.approx(under.std(), rel=1e-12)  # population
    assert (tool.Min, tool.Max) == (under.min(), under.max())
    histogram = tool.Histogram
    assert len(histogram) == 256
    assert list(histogram) == list(numpy.bincount(under.ravel(), minlength=256))
    ordered = numpy.sort(under.ravel())
    assert tool.Median == ordered[(under.size - 1) // 2]

    # The names a host reads to wire the tool up are members it can reach.
    assert list(tool.ExposedInputProperties) == ["InputImage", "Region"]
    outputs = list(tool.ExposedOutputProperties)
    assert outputs == ["Area", "Mean", "StandardDeviation", "Min", "Max", "Median"]
    assert [getattr(tool, name) for name in outputs][0] == under.size


def test_a_failed_run_is_in_the_run_status_and_results_are_refused():
    tool = tessaly.CreateObject("Tessaly.LuxRegionStatisticsTool")
    sink = ToolRecorder()
    connection = tessaly.GetEvents(tool, sink)
    tool.Run()  # no input image: Run itself succeeds
    tool.Terminate()
    connection.close()
    assert sink.events[0] == "PreRun" and sink.events[-2:] == ["PostRun", "Terminating"]
    status = tool.RunStatus
    assert status.ErrorCode == constants.e_LuxOperator_NoInputImage
    assert status.ErrorString == "The tool has no input image."
    assert not tool.ResultsValid
    with pytest.raises(tessaly.ComError) as failure:
        tool.Area
    assert failure.value.hresult == constants.e_LuxTool_NoResult
