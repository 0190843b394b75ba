"""Acquisition from Python, over the simulated grabber: the grabbers present, tickets and
their refusals as ComError codes, the per-ticket events received by name, flushing,
timeouts, settings of the property interfaces, and frames read as NumPy arrays."""

import threading
import time

import numpy
import pytest

import tessaly
from codes import (E_ACQ_BAD_TICKET, E_ACQ_BAD_VIDEO_FORMAT, E_ACQ_NO_OUTSTANDING_STARTS, E_ACQ_OLD_TICKET,
                   E_ACQ_TIMEOUT, E_ACQ_WRONG_TRIGGER_MODEL, E_INVALIDARG, E_NOTIMPL, hresult)

constants = tessaly.constants

GREY8 = "Simulated 640x480 Grey8"


@pytest.fixture
def grabber():
    return tessaly.CreateObject("Tessaly.LuxSimulatedFrameGrabber")


def make_fifo(grabber, video_format=GREY8, kind=None):
    kind = constants.luxImagePixelFormatGrey8 if kind is None else kind
    return grabber.CreateAcqFifo(video_format, kind, 0, True)


def frame(image):
    return numpy.asarray(image.Get8GreyPixelMemory(constants.luxImageDataModeRead, 0, 0, 0, 0))


def pattern_number(image):
    """The trigger number the simulated grabber writes into the first four pixels."""
    return int.from_bytes(bytes(frame(image)[0, :4]), "little")


def raises(code, call, *args):
    with pytest.raises(tessaly.ComError) as caught:
        call(*args)
    assert caught.value.hresult == code, hex(caught.value.hresult & 0xFFFFFFFF)
    return caught.value


class Recorder:
    def __init__(self):
        self.events = []
        self.lock = threading.Lock()

    def _add(self, *event):
        with self.lock:
            self.events.append(event)

    def MovePart(self, ticket, trigger):
        self._add("MovePart", ticket, trigger)

    def Complete(self, ticket, trigger):
        self._add("Complete", ticket, trigger)

    def Overrun(self, ticket, trigger):
        self._add("Overrun", ticket, trigger)

    def Flushed(self):
        self._add("Flushed")

    def Change(self, state_id, value, area):
        self._add("Change", state_id)

    def wait_for(self, name, count):
        for _ in range(1000):
            with self.lock:
                if sum(1 for e in self.events if e[0] == name) >= count:
                    return
            time.sleep(0.001)
        raise AssertionError(f"{count} {name} events did not come: {self.events}")


def test_the_grabbers_present_begin_with_the_simulated_one():
    grabbers = tessaly.CreateObject("Tessaly.LuxFrameGrabbers")
    assert grabbers.Count >= 1
    simulated = grabbers.Item(0)
    assert (simulated.Name, simulated.SerialNumber) == ("Simulated", "SIM-0001")
    assert grabbers.Item("Simulated").Name == "Simulated"
    assert [g.Name for g in grabbers][0] == "Simulated"
    assert list(simulated.AvailableVideoFormats) == [
        "Simulated 640x480 Grey8", "Simulated 1280x1024 Grey16",
        "Simulated 640x480 Bayer8", "Simulated 640x480 PlanarRGB8"]
    assert simulated.NumCameraPorts(GREY8) == 2
    raises(E_ACQ_BAD_VIDEO_FORMAT, simulated.NumCameraPorts, "Simulated 1x1 Grey8")
    raises(hresult(0x8004C180), grabbers.Item, grabbers.Count)  # the index out of range
    raises(hresult(0x8004C181), grabbers.Item, "No such grabber")  # no grabber of that name


def test_tickets_events_and_frames_from_python(grabber):
    fifo = make_fifo(grabber)
    sink = Recorder()
    connection = tessaly.GetEvents(fifo, sink)
    try:
        assert [fifo.StartAcquire() for _ in range(3)] == [0, 1, 2]
        image, ticket, trigger = fifo.CompleteAcquire(-1)
        assert (ticket, trigger) == (0, 1)
        assert pattern_number(image) == 1
        image, ticket, trigger, stamp = fifo.CompleteAcquireEx(2)
        assert (ticket, trigger, pattern_number(image)) == (2, 3, 3)
        assert stamp > 0
        assert frame(image).shape == (480, 640)
        sink.wait_for("Complete", 3)
        raises(E_ACQ_OLD_TICKET, fifo.CompleteAcquire, 2)
        raises(E_ACQ_BAD_TICKET, fifo.CompleteAcquire, 9)
        fifo.CompleteAcquire(-1)
        raises(E_ACQ_NO_OUTSTANDING_STARTS, fifo.CompleteAcquire, -1)
        image, trigger = fifo.Acquire()
        assert trigger == 4
        fifo.StartAcquire()
        fifo.Flush()
        assert fifo.GetFifoState()[:2] == (0, 0)  # the grabber may still be busy with the flushed frame
    finally:
        connection.close()
    completes = sorted(e for e in sink.events if e[0] == "Complete")
    assert completes[:3] == [("Complete", 0, 1), ("Complete", 1, 2), ("Complete", 2, 3)]
    assert ("MovePart", 0, 1) in sink.events
    assert ("Flushed",) in sink.events


def test_timeout_counts_only_when_enabled(grabber):
    fifo = make_fifo(grabber)
    fifo.TriggerModel = constants.luxAcqTriggerModelSemi
    fifo.Timeout = 1.0
    ticket = fifo.StartAcquire()
    late = threading.Timer(0.05, grabber.FireHardwareTrigger, args=(0,))
    late.start()
    image, done, trigger = fifo.CompleteAcquire(ticket)  # waits beyond the 1 ms
    late.join()
    assert done == ticket
    fifo.TimeoutEnabled = True
    ticket = fifo.StartAcquire()
    raises(E_ACQ_TIMEOUT, fifo.CompleteAcquire, ticket)
    assert fifo.GetFifoState()[0] == 1
    fifo.TriggerModel = constants.luxAcqTriggerModelAuto
    raises(E_ACQ_WRONG_TRIGGER_MODEL, fifo.StartAcquire)


def test_settings_of_the_property_interfaces(grabber):
    fifo = make_fifo(grabber)
    sink = Recorder()
    connection = tessaly.GetEvents(fifo, sink)
    try:
        fifo.Exposure = 3.0
        assert fifo.Exposure == 3.0
        assert (fifo.MinExposure, fifo.MaxExposure) == (0.0, 10000.0)
        error = raises(E_INVALIDARG, setattr, fifo, "Exposure", -1.0)
        assert "Exposure" in error.description
        error = raises(E_NOTIMPL, getattr, fifo, "LightPower")
        assert "LightPower" in error.description
        fifo.SetROIXYWidthHeight(8, 4, 32, 16)
        assert fifo.GetROIXYWidthHeight() == (8, 4, 32, 16)
        image, trigger = fifo.Acquire()
        expected = (numpy.add.outer(numpy.arange(4, 20), numpy.arange(8, 40)) + 4 * trigger) % 256
        assert numpy.array_equal(frame(image), expected)
    finally:
        connection.close()
    assert ("Change", constants.luxAcqExposure_Exposure) in sink.events


def test_bayer_frames_become_colour(grabber):
    fifo = make_fifo(grabber, "Simulated 640x480 Bayer8", constants.luxImagePixelFormatPlanarRGB8)
    assert fifo.AcquiredPixelFormat() == constants.luxImagePixelFormatBayer8
    image, _ = fifo.Acquire()
    assert image.Width == 640
    raises(E_INVALIDARG, setattr, fifo, "OutputPixelFormat", constants.luxImagePixelFormatGrey16)
    assert fifo.OutputPixelFormat == constants.luxImagePixelFormatPlanarRGB8
