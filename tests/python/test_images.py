"""Images and numpy: pixel memory viewed as arrays without a copy (strides, read-only memory,
Dispose refused while viewed, the lifetimes), images over arrays both ways (shared and
copied, what keeps what alive, the refusals) and images shown as PNG files."""

import ctypes
import gc
import struct
import threading
import tracemalloc
import weakref
import zlib

import numpy as np
import pytest

import tessaly
from codes import hresult

constants = tessaly.constants
E_UNEXPECTED = hresult(0x8000FFFF)
READ, WRITE, READ_WRITE = constants.luxImageDataModeRead, constants.luxImageDataModeWrite, \
    constants.luxImageDataModeReadWrite
ACCEPTED = ("ImageFromArray takes a 2-D uint8 or uint16 array, or a 3 x H x W uint8 array, whose rows are "
            "contiguous; got ")


PyBUF_WRITABLE, PyBUF_ND = 0x0001, 0x0008


def request_buffer(exporter, flags):
    """Asks `exporter` for a buffer with exactly these flags, as a C consumer would."""
    view = ctypes.create_string_buffer(256)             # room for a Py_buffer
    get = ctypes.pythonapi.PyObject_GetBuffer
    get.argtypes = [ctypes.py_object, ctypes.c_void_p, ctypes.c_int]
    get(exporter, ctypes.addressof(view), flags)
    ctypes.pythonapi.PyBuffer_Release.argtypes = [ctypes.c_void_p]
    ctypes.pythonapi.PyBuffer_Release(ctypes.addressof(view))


def grey(kind, width, height):
    image = tessaly.CreateObject(f"Tessaly.LuxImage{kind}Grey")
    image.Allocate(width, height)
    return image


def memory_of(image, mode=READ_WRITE, x=0, y=0, width=0, height=0):
    if type(image).__name__ == "LuxImage16Grey":
        return image.Get16GreyPixelMemory(mode, x, y, width, height)
    return image.Get8GreyPixelMemory(mode, x, y, width, height)


# --- pixel memory as arrays ------------------------------------------------------------

@pytest.mark.parametrize("kind, dtype", [(8, np.uint8), (16, np.uint16)])
def test_pixel_memory_is_a_view_with_the_roots_stride(kind, dtype):
    image = grey(kind, 5, 4)                  # rows aligned to 32 bytes: the stride exceeds the width
    image.Pixel[4, 3] = 200
    memory = memory_of(image)
    arr = np.asarray(memory)
    item = np.dtype(dtype).itemsize
    assert arr.dtype == dtype and arr.shape == (4, 5)
    assert memory.Stride > 5 and arr.strides == (memory.Stride * item, item)
    assert arr.ctypes.data == memory.Scan0 and arr.flags.writeable
    assert arr[3, 4] == 200
    arr[1, 2] = 177                            # writes reach the image, reads see the image's writes
    assert image.Pixel[2, 1] == 177
    image.Pixel[0, 2] = 9
    assert arr[2, 0] == 9

    # A rectangle of the image: its corner is element [0, 0]; the root's stride stays.
    part = np.asarray(memory_of(image, READ_WRITE, 1, 2, 3, 2))
    assert part.shape == (2, 3) and part.strides == arr.strides and np.shares_memory(part, arr)
    arr[3, 2] = 66
    assert part.tolist() == arr[2:4, 1:4].tolist() and part[1, 1] == 66
    part[1, 2] = 55
    assert image.Pixel[3, 3] == 55


def test_sixteen_bit_values_and_a_negative_stride():
    rows = np.arange(12, dtype=np.uint16).reshape(3, 4) * 5000
    image = tessaly.ImageFromArray(rows[::-1])          # rows run upwards in memory
    memory = image.GetRoot().GetRawPixelMemory(READ, 0, 0, 0, 0)
    assert memory.Stride == -4
    arr = np.asarray(memory)
    assert arr.strides == (-8, 2) and arr.tolist() == rows[::-1].tolist()
    assert arr[0, 3] == 55000 and image.Pixel[3, 0] == 55000


def test_memory_opened_for_reading_is_a_read_only_view():
    pixels = np.zeros((2, 3), np.uint8)
    image = tessaly.ImageFromArray(pixels)
    memory = image.Get8GreyPixelMemory(READ, 0, 0, 0, 0)
    arr = np.asarray(memory)
    assert not arr.flags.writeable and memoryview(memory).readonly
    with pytest.raises(ValueError, match="read-only"):
        arr[0, 0] = 1
    with pytest.raises(BufferError) as refused:
        request_buffer(memory, PyBUF_WRITABLE)
    assert str(refused.value) == (
        "the pixel memory was opened for reading only (luxImageDataModeRead); a writable view needs "
        "luxImageDataModeWrite or luxImageDataModeReadWrite")
    assert np.asarray(image.Get8GreyPixelMemory(WRITE, 0, 0, 0, 0)).flags.writeable
    # Rows with a gap pass only to a consumer that takes strides.
    with pytest.raises(BufferError) as refused:
        request_buffer(memory_of(grey(8, 5, 4)), PyBUF_ND)
    assert str(refused.value) == "the pixel memory's rows lie 32 pixels apart for a width of 5: a view of it needs strides"


def test_only_pixel_memory_exports_pixels(collection):
    with pytest.raises(BufferError) as refused:
        memoryview(collection)
    assert str(refused.value) == ("a LuxCollection object has no pixels to view: pixel-memory objects "
                                  "(GetRawPixelMemory, Get8GreyPixelMemory, ...) do")
    with pytest.raises(BufferError, match="a LuxImage8Grey object has no pixels"):
        memoryview(grey(8, 2, 2))


def test_dispose_is_refused_while_an_array_views_the_memory():
    image = grey(8, 4, 3)
    memory = memory_of(image)
    arr = np.asarray(memory)
    view = memoryview(memory)
    with pytest.raises(tessaly.ComError) as refused:
        memory.Dispose()
    assert refused.value.hresult == E_UNEXPECTED and refused.value.source == "Dispose"
    assert "viewed by 2 arrays; release the arrays before disposing of it" in refused.value.description
    assert memory.Width == 4                             # refused: nothing changed
    arr[2, 3] = 8
    assert image.Pixel[3, 2] == 8

    view.release()
    with pytest.raises(tessaly.ComError, match="viewed by 1 array;"):
        memory.Dispose()
    del arr
    memory.Dispose()
    with pytest.raises(tessaly.ComError) as gone:
        memory.Width
    assert gone.value.hresult == constants.e_LuxImage_NoPixels
    # Disposed memory gives no array (numpy would otherwise make an object array of it).
    with pytest.raises(tessaly.ComError) as no_array:
        np.asarray(memory)
    assert no_array.value.hresult == constants.e_LuxImage_NoPixels
    assert "the pixel memory has been disposed of" in no_array.value.description


def test_a_view_keeps_the_pixels_alive():
    image = grey(16, 3, 2)
    image.Pixel[2, 1] = 4321
    arr = np.asarray(memory_of(image))
    del image
    gc.collect()
    assert arr[1, 2] == 4321 and arr.sum() == 4321      # the memory and its root live on
    arr[0, 0] = 1
    live = tessaly.LiveObjectCount()
    del arr
    gc.collect()
    assert tessaly.LiveObjectCount() < live              # the pixel memory went with the view


def test_a_quarter_gigabyte_view_allocates_nothing_of_its_size():
    image = grey(8, 16384, 16384)                        # 256 MiB
    memory = memory_of(image)
    tracemalloc.start()
    try:
        arr = np.asarray(memory)
        _, peak = tracemalloc.get_traced_memory()
    finally:
        tracemalloc.stop()
    assert peak < 64 * 1024
    assert arr.shape == (16384, 16384) and arr.ctypes.data == memory.Scan0
    arr[16383, 16383] = 77
    assert image.Pixel[16383, 16383] == 77


# --- images over arrays ------------------------------------------------------------------

@pytest.mark.parametrize("dtype, cls", [(np.uint8, "LuxImage8Grey"), (np.uint16, "LuxImage16Grey")])
def test_an_image_over_an_array_shares_its_memory(dtype, cls):
    whole = np.zeros((6, 10), dtype)
    pixels = whole[1:5, 2:9]                             # rows 10 pixels apart, 7 wide
    pixels[:] = np.arange(28).reshape(4, 7)
    image = tessaly.ImageFromArray(pixels)
    assert type(image).__name__ == cls and (image.Width, image.Height) == (7, 4)
    assert image.Pixel[6, 3] == 27 and image.Pixel[0, 1] == 7
    image.Pixel[3, 2] = 99                               # writes through the image show in the array
    assert pixels[2, 3] == 99
    pixels[0, 0] = 42
    assert image.Pixel[0, 0] == 42
    view = np.asarray(memory_of(image))
    assert view.ctypes.data == pixels.ctypes.data and view.strides == pixels.strides

    # The image keeps the array alive; dropping the image lets it go and leaves it intact.
    base = weakref.ref(whole)
    del whole, pixels, view
    gc.collect()
    assert base() is not None and image.Pixel[6, 3] == 27
    copy = image.Copy(constants.luxImageCopyModeSharePixels)
    del image
    gc.collect()
    assert base() is not None and copy.Pixel[3, 2] == 99
    del copy
    gc.collect()
    assert base() is None


def test_dropping_the_image_leaves_the_array_as_it_was():
    pixels = np.full((3, 4), 17, np.uint8)
    image = tessaly.ImageFromArray(pixels)
    image.Pixel[1, 1] = 5
    del image
    gc.collect()
    assert pixels.sum() == 11 * 17 + 5 and pixels.flags.writeable
    pixels[2, 3] = 1                                     # the array is its own again


def test_the_array_is_let_go_on_any_thread():
    # SetRoot runs without the GIL: the old root, and the array, go inside that call.
    for run in (lambda call: call(), lambda call: threading.Thread(target=call).start() or None):
        pixels = np.ones((2, 2), np.uint16)
        image = tessaly.ImageFromArray(pixels)
        held = weakref.ref(pixels)
        del pixels
        done = threading.Event()
        run(lambda: (image.SetRoot(None), done.set()))
        assert done.wait(10)
        gc.collect()
        assert held() is None and not image.Allocated


def test_copied_images_own_their_pixels():
    pixels = np.arange(20, dtype=np.uint16).reshape(4, 5) * 3000
    image = tessaly.ImageFromArray(pixels, copy=True)
    held = weakref.ref(pixels)
    assert image.Pixel[4, 3] == 57000
    image.Pixel[0, 0] = 1
    pixels[3, 4] = 2
    assert pixels[0, 0] == 0 and image.Pixel[4, 3] == 57000
    del pixels
    gc.collect()
    assert held() is None and image.Pixel[1, 0] == 3000

    # Any strides and read-only arrays copy.
    strided = np.arange(48, dtype=np.uint8).reshape(6, 8)[::-2, ::3]
    strided.flags.writeable = False
    copied = tessaly.ImageFromArray(strided, copy=True)
    assert np.asarray(memory_of(copied)).tolist() == strided.tolist()


@pytest.mark.parametrize("array, got", [
    (np.zeros((2, 3), np.float64), "a 2-D array of float64 (shape 2 x 3)"),
    (np.zeros((2, 3), np.int16), "a 2-D array of int16 (shape 2 x 3)"),
    (np.zeros((2, 3), ">u2"), "a 2-D array of >u2 (shape 2 x 3)"),
    (np.zeros(6, np.uint8), "a 1-D array of uint8 (shape 6)"),
    (np.zeros((3, 2, 2), np.uint16), "a 3-D array of uint16 (shape 3 x 2 x 2)"),
    (np.zeros((4, 2, 2), np.uint8), "a 3-D array of uint8 (shape 4 x 2 x 2)"),
    (np.zeros((1, 3, 2, 2), np.uint8), "a 4-D array of uint8 (shape 1 x 3 x 2 x 2)"),
    ([[1, 2], [3, 4]], "a list"),
])
def test_arrays_that_make_no_image_are_refused(array, got):
    for copy in (False, True):
        with pytest.raises(TypeError) as refused:
            tessaly.ImageFromArray(array, copy=copy)
        assert str(refused.value) == ACCEPTED + got


def test_layouts_an_image_cannot_share_are_refused():
    def refusal(array):
        with pytest.raises(TypeError) as refused:
            tessaly.ImageFromArray(array)
        return str(refused.value)

    base = np.zeros((4, 8), np.uint8)
    assert refusal(base[:, ::2]) == ACCEPTED + (
        "a 2-D array of uint8 (shape 4 x 4) whose pixels lie 2 bytes apart; pass copy=True to copy it")
    assert refusal(base.T) == ACCEPTED + (
        "a 2-D array of uint8 (shape 8 x 4) whose pixels lie 8 bytes apart; pass copy=True to copy it")
    odd = np.lib.stride_tricks.as_strided(np.zeros(64, np.uint8).view(np.uint16), (3, 4), (9, 2))
    assert refusal(odd) == ACCEPTED + (
        "a 2-D array of uint16 (shape 3 x 4) whose rows lie 9 bytes apart, not a whole number of pixels; "
        "pass copy=True to copy it")
    assert refusal(np.broadcast_to(np.zeros(5, np.uint8), (3, 5))) == ACCEPTED + (
        "a 2-D array of uint8 (shape 3 x 5) whose rows overlap (0 bytes apart, 5 bytes long); "
        "pass copy=True to copy it")
    read_only = np.zeros((2, 2), np.uint8)
    read_only.flags.writeable = False
    assert refusal(read_only) == ACCEPTED + (
        "a 2-D array of uint8 (shape 2 x 2) that is read-only: an image over it could write its pixels; "
        "pass copy=True to copy it")
    # One row needs no row stride of its own, one column no pixel stride.
    row = tessaly.ImageFromArray(np.lib.stride_tricks.as_strided(base[1], (1, 8), (3, 1)))
    column = tessaly.ImageFromArray(np.lib.stride_tricks.as_strided(base, (4, 1), (8, 5)))
    row.Pixel[7, 0] = 1
    column.Pixel[0, 3] = 2
    assert (row.Width, row.Height, column.Width, column.Height) == (8, 1, 1, 4)
    assert base[1, 7] == 1 and base[3, 0] == 2
    # An array without pixels is the root's refusal.
    with pytest.raises(tessaly.ComError) as empty:
        tessaly.ImageFromArray(np.zeros((0, 4), np.uint8))
    assert empty.value.hresult == constants.e_LuxImage_BadCoord


def test_a_planar_array_gives_a_colour_image_per_plane():
    pixels = np.zeros((3, 2, 4), np.uint8)
    pixels[0, 1, 3], pixels[1, 1, 3], pixels[2, 1, 3] = 10, 20, 30
    image = tessaly.ImageFromArray(pixels)
    assert type(image).__name__ == "LuxImage24PlanarColor" and (image.Width, image.Height) == (4, 2)
    assert image.GetPixel(3, 1) == (10, 20, 30)
    image.SetPixel(0, 0, 1, 2, 3)
    assert pixels[:, 0, 0].tolist() == [1, 2, 3]
    green = np.asarray(image.GetPlane(constants.luxImagePlaneGreen).Get8GreyPixelMemory(READ, 0, 0, 0, 0))
    assert np.shares_memory(green, pixels[1]) and green[1, 3] == 20
    held = weakref.ref(pixels)
    del pixels, green
    gc.collect()
    assert held() is not None and image.GetPixel(3, 1) == (10, 20, 30)
    del image
    gc.collect()
    assert held() is None

    copied = tessaly.ImageFromArray(np.arange(24, dtype=np.uint8).reshape(3, 2, 4), copy=True)
    assert copied.GetPixel(1, 1) == (5, 13, 21)


# --- PNG ---------------------------------------------------------------------------------

def read_png(data):
    """A small PNG reader: checks the signature and every chunk's CRC, returns the header
    fields and the rows (filter type 0 only, which the encoder writes) as a numpy array."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    chunks, at = [], 8
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + length]
        (crc,) = struct.unpack(">I", data[at + 8 + length:at + 12 + length])
        assert zlib.crc32(kind + body) == crc, kind
        chunks.append((kind, body))
        at += 12 + length
    assert [kind for kind, _ in chunks] == [b"IHDR", b"IDAT", b"IEND"]
    width, height, depth, colour, compression, filtering, interlace = struct.unpack(">IIBBBBB", chunks[0][1])
    assert (compression, filtering, interlace) == (0, 0, 0)
    channels = {0: 1, 2: 3}[colour]
    raw = zlib.decompress(chunks[1][1])
    row_bytes = 1 + width * channels * depth // 8
    assert len(raw) == row_bytes * height
    rows = [raw[y * row_bytes:(y + 1) * row_bytes] for y in range(height)]
    assert all(row[0] == 0 for row in rows)
    dtype = ">u2" if depth == 16 else np.uint8
    pixels = np.frombuffer(b"".join(row[1:] for row in rows), dtype).reshape(height, width, channels)
    return depth, colour, pixels


def test_images_show_themselves_as_png():
    pixels8 = (np.arange(35, dtype=np.uint8).reshape(5, 7) * 7)
    depth, colour, shown = read_png(tessaly.ImageFromArray(pixels8[:, ::-1], copy=True)._repr_png_())
    assert (depth, colour) == (8, 0) and shown[..., 0].tolist() == pixels8[:, ::-1].tolist()

    pixels16 = np.array([[0, 1, 256], [65535, 4660, 300]], np.uint16)
    depth, colour, shown = read_png(tessaly.ImageFromArray(pixels16)._repr_png_())
    assert (depth, colour) == (16, 0) and shown[..., 0].tolist() == pixels16.tolist()

    planes = np.arange(3 * 4 * 6, dtype=np.uint8).reshape(3, 4, 6)
    depth, colour, shown = read_png(tessaly.ImageFromArray(planes)._repr_png_())
    assert (depth, colour) == (8, 2) and shown.tolist() == np.moveaxis(planes, 0, -1).tolist()

    for kind in ("LuxImage8Grey", "LuxImage16Grey", "LuxImage24PlanarColor"):
        assert tessaly.CreateObject(f"Tessaly.{kind}")._repr_png_() is None    # no pixels: the repr stands
    with pytest.raises(AttributeError):
        tessaly.CreateObject("Tessaly.LuxCollection")._repr_png_


def test_image_files_round_trip_and_name_the_file_when_they_fail(tmp_path):
    grey = tessaly.ImageFromArray((np.arange(12, dtype=np.uint16).reshape(3, 4) * 5000), copy=True)
    tessaly.SaveImage(grey, str(tmp_path / "deep.png"))
    loaded = tessaly.LoadImage(str(tmp_path / "deep.png"))
    assert loaded.Pixel[3, 2] == 55000
    memory = loaded.Get16GreyPixelMemory(tessaly.constants.luxImageDataModeRead, 0, 0, 0, 0)
    assert np.array_equal(np.asarray(memory), np.arange(12, dtype=np.uint16).reshape(3, 4) * 5000)
    del memory

    colour = tessaly.ImageFromArray(np.arange(24, dtype=np.uint8).reshape(3, 2, 4), copy=True)
    tessaly.SaveImage(colour, str(tmp_path / "colour.tif"))
    assert tessaly.LoadImage(str(tmp_path / "colour.tif")).GetPixel(3, 1) == (7, 15, 23)

    with pytest.raises(tessaly.ComError) as missing:
        tessaly.LoadImage(str(tmp_path / "missing.png"))
    assert missing.value.hresult == tessaly.constants.e_Lux_FileOpen
    assert "missing.png" in missing.value.description
    (tmp_path / "broken.png").write_bytes(b"\x89PNG\r\n\x1a\n" + b"\0" * 10)
    with pytest.raises(tessaly.ComError) as broken:
        tessaly.LoadImage(str(tmp_path / "broken.png"))
    assert broken.value.hresult == tessaly.constants.e_Lux_BadFileFormat
    with pytest.raises(TypeError):
        tessaly.SaveImage(tessaly.CreateObject("Tessaly.LuxCollection"), str(tmp_path / "x.png"))
