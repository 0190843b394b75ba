"""Images and NumPy without copies: an image over an array, pixel memory as an array, a copy
that shares pixels and one that does not, a fixture space in the image's tree, and a round
trip through a PNG file.

    PYTHONPATH=build/python /usr/bin/python3 examples/python/images_and_numpy.py
"""

import os
import tempfile

import numpy as np

import tessaly

c = tessaly.constants


def main():
    # A 16-bit image over a NumPy array: the image writes into the array's memory.
    frame = np.zeros((480, 640), dtype=np.uint16)
    image = tessaly.ImageFromArray(frame)
    image.Pixel[10, 20] = 4095
    print("pixel written through the image, read in the array:", frame[20, 10])

    # Pixel memory as an array: a view with the image's own stride, no copy.
    memory = image.Get16GreyPixelMemory(c.luxImageDataModeReadWrite, 0, 0, 0, 0)
    view = np.asarray(memory)
    view[100:110, 200:220] = 1000
    print("view", view.shape, view.dtype, "mean of the block:", int(frame[100:110, 200:220].mean()))
    del view
    memory.Dispose()

    # Copies: sharing pixels sees later writes, copying them does not.
    shared = image.Copy(c.luxImageCopyModeSharePixels)
    copied = image.Copy(c.luxImageCopyModeCopyPixels)
    image.Pixel[0, 0] = 7
    print("after a write: shared copy", shared.Pixel[0, 0], "| copy with its own pixels", copied.Pixel[0, 0])

    # A fixture space: points given in it map into pixels through the image's tree.
    fixture = tessaly.CreateObject("Tessaly.LuxTransform2DLinear")
    fixture.TranslationX, fixture.TranslationY = 50.0, 30.0
    image.CoordinateSpaceTree.AddSpace("@", "Fixture", fixture)
    x, y = image.GetTransform("#", "Fixture").MapPoint(1.0, 2.0)
    print("fixture (1, 2) is pixel", (x, y))

    # A PNG file: written and read back bit for bit.
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "frame.png")
        tessaly.SaveImage(image, path)
        loaded = tessaly.LoadImage(path)
        pixels = np.asarray(loaded.Get16GreyPixelMemory(c.luxImageDataModeRead, 0, 0, 0, 0))
        print("PNG round trip equal:", bool(np.array_equal(pixels, frame)))


if __name__ == "__main__":
    main()
