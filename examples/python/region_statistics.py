"""A region of interest on an image: place a rectangle, take its run-length mask, measure the
pixels under it with NumPy, and draw it over the image.

    PYTHONPATH=build/python /usr/bin/python3 examples/python/region_statistics.py [IMAGE [OVERLAY.png]]

Without IMAGE the program makes a 320 x 240 test image; the overlay goes to OVERLAY.png, or
to a temporary folder that is removed at the end.
"""

import os
import sys
import tempfile

import numpy as np

import tessaly

c = tessaly.constants


def test_image():
    """A ramp from left to right with a bright disc in the middle."""
    y, x = np.mgrid[0:240, 0:320]
    pixels = (40 + x * 150 // 320).astype(np.uint8)
    pixels[(x - 160) ** 2 + (y - 120) ** 2 < 40 ** 2] = 230
    return tessaly.ImageFromArray(pixels, copy=True)


def grey_pixels(image):
    """The image's pixels as an array: a grey image's own, a colour image's luminance."""
    if type(image).__name__ == "LuxImage24PlanarColor":
        r, g, b = (np.asarray(image.GetPlane(i).Get8GreyPixelMemory(c.luxImageDataModeRead, 0, 0, 0, 0))
                   .astype(np.float64) for i in range(3))
        return 0.299 * r + 0.587 * g + 0.114 * b
    if type(image).__name__ == "LuxImage16Grey":
        return np.asarray(image.Get16GreyPixelMemory(c.luxImageDataModeRead, 0, 0, 0, 0))
    return np.asarray(image.Get8GreyPixelMemory(c.luxImageDataModeRead, 0, 0, 0, 0))


def main():
    image = tessaly.LoadImage(sys.argv[1]) if len(sys.argv) > 1 else test_image()
    width, height = image.Width, image.Height

    # A rectangle in pixels over the middle of the image, half its size. A pixel belongs to
    # the region when its centre is inside.
    region = tessaly.CreateObject("Tessaly.LuxRectangle")
    region.SetCenterWidthHeight(width / 2, height / 2, width / 2, height / 2)
    region.Color = c.luxColorOrange
    region.LineWidthInScreenPixels = 2

    # Its mask: runs of 255 inside and 0 outside, placed at the pixel (mask.X, mask.Y).
    mask = region.CreateRLE(255, 0)
    dense = np.asarray(mask.CreateImage8Grey().Get8GreyPixelMemory(c.luxImageDataModeRead, 0, 0, 0, 0))
    print(f"mask: {mask.Width} x {mask.Height} at ({mask.X}, {mask.Y}), {mask.NumRuns} runs")

    pixels = grey_pixels(image)[mask.Y:mask.Y + mask.Height, mask.X:mask.X + mask.Width]
    under = pixels[dense == 255]
    print(f"area {under.size} pixels (the rectangle's Area: {region.Area:g})")
    print(f"mean {under.mean():.2f}, std dev {under.std():.2f}, min {under.min()}, max {under.max()}")
    counts, edges = np.histogram(under, bins=8, range=(0, 256 if pixels.dtype != np.uint16 else 65536))
    print("histogram:", " ".join(f"{int(lo)}+:{n}" for lo, n in zip(edges[:-1], counts)))

    # The region over the image, tinted: a new colour image that a notebook shows as is.
    picture = tessaly.RenderOverlay(image, [region], tint=True)
    if len(sys.argv) > 2:
        tessaly.SaveImage(picture, sys.argv[2])
        print("overlay written to", sys.argv[2])
    else:
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "overlay.png")
            tessaly.SaveImage(picture, path)
            print(f"overlay: {picture.Width} x {picture.Height} colour image, {os.path.getsize(path)} bytes as PNG")


if __name__ == "__main__":
    main()
