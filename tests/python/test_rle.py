"""Run-length buffers from Python: a buffer loaded from an archive, its pixels by index, the
X event, PixelMap with NumPy byte arrays, drawing into and making grey images, Combine, a
binary round trip, and refusals as ComError with the library's codes."""

import numpy
import pytest

import tessaly
from codes import E_INVALIDARG, hresult

C = tessaly.constants
NOT_INITIALIZED = hresult(0x8004E700)
SUB_IMAGE_OFFSET = hresult(0x8004E703)
BAD_FILE_FORMAT = hresult(0x8004C104)


def buffer_from_runs(x, y, width, height, runs):
    """A LuxRLEBuffer as an archive holds one: X, Y, Width, Height, then value and length of each run."""
    numbers = [x, y, width, height] + [n for run in runs for n in run]
    xml = (
        '<?xml version="1.0"?>\r\n<Root xmlns:dt="urn:schemas-microsoft-com:datatypes">'
        '<Object ProgID="Tessaly.LuxRLEBuffer.1" id="1"><Initted dt:dt="boolean">1</Initted>'
        f'<RLEBuffer ArrayType="i4" ArrayBounds="0:{len(numbers) - 1}">{" ".join(map(str, numbers))}</RLEBuffer>'
        "</Object></Root>"
    )
    return tessaly.LoadObjectFromBytes(xml.encode(), C.luxPersistFormatXML)


def pixels(buffer):
    return [[buffer.Pixel[buffer.X + i, buffer.Y + j] for i in range(buffer.Width)] for j in range(buffer.Height)]


# 4 x 2 at (10, 20): 0 0 255 255 / 7 7 7 0
RUNS = [(0, 2), (255, 2), (7, 3), (0, 1)]


class ChangeRecorder:
    def __init__(self):
        self.changes = []

    def Change(self, StateID, Value, FunctionalArea):
        self.changes.append((StateID, Value, FunctionalArea))


def test_a_new_buffer_is_not_initialised():
    buffer = tessaly.CreateObject("Tessaly.LuxRLEBuffer")
    assert buffer.Initted is False and buffer.Width == 0 and buffer.NumRuns == 0
    with pytest.raises(tessaly.ComError) as refused:
        buffer.X
    assert refused.value.hresult == NOT_INITIALIZED and refused.value.source == "get_X"


def test_pixels_placement_and_the_x_event():
    buffer = buffer_from_runs(10, 20, 4, 2, RUNS)
    assert buffer.Initted is True and (buffer.X, buffer.Y, buffer.Width, buffer.Height) == (10, 20, 4, 2)
    assert buffer.NumRuns == 4 and buffer.Binary is False
    assert pixels(buffer) == [[0, 0, 255, 255], [7, 7, 7, 0]]
    sink = ChangeRecorder()
    with tessaly.GetEvents(buffer, sink):
        buffer.X = 3
        buffer.X = 3  # the present value: nothing
    assert sink.changes == [(C.luxRLEBuffer_X, 3, C.luxFA_Misc)]
    assert buffer.Pixel[3, 21] == 7


def test_pixel_map_with_numpy_byte_arrays():
    buffer = buffer_from_runs(0, 0, 4, 2, RUNS)
    inverted = buffer.PixelMap(255 - numpy.arange(256, dtype=numpy.uint8))
    assert pixels(inverted) == [[255, 255, 0, 0], [248, 248, 248, 255]]
    only_zero = buffer.PixelMap(numpy.array([99], dtype=numpy.uint8))
    assert pixels(only_zero) == [[99, 99, 255, 255], [7, 7, 7, 99]]
    with pytest.raises(tessaly.ComError) as refused:
        buffer.PixelMap(numpy.zeros(257, dtype=numpy.uint8))
    assert refused.value.hresult == E_INVALIDARG and "0..256" in refused.value.description
    assert pixels(buffer) == [[0, 0, 255, 255], [7, 7, 7, 0]]


def test_drawing_into_and_making_grey_images():
    buffer = buffer_from_runs(-1, 1, 4, 2, RUNS)
    made = buffer.CreateImage8Grey()
    assert (made.Width, made.Height) == (4, 2) and made.Pixel[3, 1] == 0 and made.Pixel[2, 0] == 255
    image = tessaly.CreateObject("Tessaly.LuxImage8Grey")
    image.Allocate(3, 3)
    buffer.DrawIntoImage8Grey(image, True, 0x100)  # 0 is transparent: only the low 8 bits count
    assert [[image.Pixel[x, y] for x in range(3)] for y in range(3)] == [[0, 0, 0], [0, 255, 255], [7, 7, 0]]
    with pytest.raises(tessaly.ComError) as refused:
        buffer.DrawIntoImage8Grey(None, False, 0)
    assert refused.value.hresult == E_INVALIDARG and "Image" in refused.value.description


def test_combine_and_its_refusals():
    base = buffer_from_runs(0, 0, 4, 2, [(1, 4), (1, 4)])
    sub = buffer_from_runs(1, 1, 2, 1, [(0, 1), (9, 1)])
    combined = base.Combine(sub, numpy.arange(256, dtype=numpy.uint8), 0)
    assert pixels(combined) == [[1, 1, 1, 1], [1, 1, 9, 1]]
    sub.X = -1
    with pytest.raises(tessaly.ComError) as refused:
        base.Combine(sub, numpy.arange(256, dtype=numpy.uint8), 0)
    assert refused.value.hresult == SUB_IMAGE_OFFSET


def test_binary_round_trip_and_a_refused_archive():
    buffer = buffer_from_runs(5, -6, 4, 2, RUNS)
    back = tessaly.LoadObjectFromBytes(tessaly.SaveObjectToBytes(buffer, C.luxPersistFormatBinary))
    assert (back.X, back.Y, back.NumRuns) == (5, -6, 4) and pixels(back) == pixels(buffer)
    with pytest.raises(tessaly.ComError) as refused:
        buffer_from_runs(0, 0, 4, 2, [(0, 2), (255, 2), (7, 3)])  # the last row is short
    assert refused.value.hresult == BAD_FILE_FORMAT
