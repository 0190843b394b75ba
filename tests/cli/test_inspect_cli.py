"""`tessaly inspect` run as a user runs it: the statistics under a region of image files
made here byte by byte, the overlay PNG read back pixel by pixel, spaces, and every kind of
malformed --region with its message and exit status 2."""

import os
import struct
import subprocess
import tempfile
import unittest
import zlib

TESSALY = os.environ.get("TESSALY", "tessaly")


def run(*args, cwd=None):
    return subprocess.run([TESSALY, *args], capture_output=True, text=True, timeout=60, cwd=cwd)


def png(width, height, depth, colour, rows):
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)
    raw = b"".join(b"\x00" + row for row in rows)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b""))


def read_rgb_png(data):
    """(width, height, rows of (r, g, b) tuples) of an 8-bit truecolour PNG, any filters."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    position, idat = 8, b""
    while position < len(data):
        length, kind = struct.unpack(">I4s", data[position:position + 8])
        body = data[position + 8:position + 8 + length]
        if kind == b"IHDR":
            width, height, depth, colour = struct.unpack(">IIBB", body[:10])
            assert (depth, colour) == (8, 2), (depth, colour)
        elif kind == b"IDAT":
            idat += body
        position += 12 + length
    raw, stride, rows, previous = zlib.decompress(idat), 3 * width, [], bytearray(3 * width)
    for y in range(height):
        kind, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            left = line[i - 3] if i >= 3 else 0
            up, corner = previous[i], previous[i - 3] if i >= 3 else 0
            if kind == 1:
                line[i] = (line[i] + left) & 0xFF
            elif kind == 2:
                line[i] = (line[i] + up) & 0xFF
            elif kind == 3:
                line[i] = (line[i] + (left + up) // 2) & 0xFF
            elif kind == 4:
                p = left + up - corner
                pa, pb, pc = abs(p - left), abs(p - up), abs(p - corner)
                line[i] = (line[i] + (left if pa <= pb and pa <= pc else up if pb <= pc else corner)) & 0xFF
        rows.append([tuple(line[3 * x:3 * x + 3]) for x in range(width)])
        previous = line
    return width, height, rows


def table(stdout):
    """The `name  value` lines of the report as a dict, and the histogram's counts."""
    values, histogram = {}, []
    for line in stdout.splitlines():
        if line.startswith("  ") and ".." in line:
            histogram.append(int(line.split()[1]))
        elif line and not line.startswith(" "):
            name, _, value = line.partition("  ")
            values[name.strip()] = value.strip()
    return values, histogram


class InspectCommandTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def write(self, name, data):
        with open(self.path(name), "wb") as f:
            f.write(data)
        return self.path(name)

    def ramp(self):
        """40 x 30, pixel (x, y) = 4 x + y."""
        return self.write("ramp.pgm", b"P5 40 30 255\n" + bytes(4 * x + y for y in range(30) for x in range(40)))

    def test_statistics_under_a_rectangle(self):
        image = self.ramp()
        result = run("inspect", image, "--region", "rect:10,5,4,3")
        self.assertEqual(result.returncode, 0, result.stderr)
        values, histogram = table(result.stdout)
        # Columns 10..13, rows 5..7: values 45..59.
        pixels = sorted(4 * x + y for y in range(5, 8) for x in range(10, 14))
        self.assertEqual(values["area"], "12 pixels")
        self.assertEqual(values["mean"], f"{sum(pixels) / 12:.2f}")
        self.assertEqual(values["min, max"], "45, 59")
        self.assertEqual(values["median"], str(pixels[5]))
        mean = sum(pixels) / 12
        self.assertEqual(values["std dev"], f"{(sum((p - mean) ** 2 for p in pixels) / 12) ** 0.5:.2f}")
        self.assertEqual(values["measured"], "8-bit grey")
        self.assertEqual(len(histogram), 16)
        self.assertEqual(histogram, [sum(1 for p in pixels if p // 16 == b) for b in range(16)])
        self.assertIn("rectangle: corner (10, 5), size 4 x 3, in space '#'", result.stdout)

    def test_affine_rectangles_take_degrees_and_pixel_centres_decide(self):
        image = self.ramp()
        # A 4 x 2 rectangle turned by 90 degrees about (12, 6) covers columns 11..12 and rows
        # 4..7, as rect:11,4,2,4 does.
        turned = run("inspect", image, "--region", "affine:12,6,4,2,90,0")
        straight = run("inspect", image, "--region", "rect:11,4,2,4")
        self.assertEqual(turned.returncode, 0, turned.stderr)
        same = lambda result: ({k: v for k, v in table(result.stdout)[0].items() if k != "region"},
                               table(result.stdout)[1])
        self.assertEqual(same(turned), same(straight))
        self.assertEqual(table(turned.stdout)[0]["area"], "8 pixels")
        # Half-pixel edges: centres on the left and top edges are in, on the right and bottom out.
        self.assertEqual(table(run("inspect", image, "--region", "rect:9.5,4.5,2,1").stdout)[0]["area"], "2 pixels")

    def test_regions_partly_or_wholly_off_the_image(self):
        image = self.ramp()
        values, _ = table(run("inspect", image, "--region", "rect:-5,-5,7,6").stdout)
        self.assertEqual(values["area"], "2 pixels")
        self.assertEqual(values["min, max"], "0, 4")
        result = run("inspect", image, "--region", "rect:100,100,5,5")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("area       0 pixels\n           (the region covers no pixel of the image)\n", result.stdout)

    def test_sixteen_bit_and_colour_images(self):
        deep = self.write("deep.png", png(4, 1, 16, 0, [struct.pack(">HHHH", 0, 4096, 40000, 65535)]))
        values, histogram = table(run("inspect", deep, "--region", "rect:0,0,4,1").stdout)
        self.assertEqual(values["measured"], "16-bit grey (16 significant bits)")
        self.assertEqual(values["min, max"], "0, 65535")
        self.assertEqual(histogram, [1, 1] + [0] * 7 + [1] + [0] * 5 + [1])
        colour = self.write("colour.ppm", b"P6 2 1 255\n" + bytes([255, 0, 0, 10, 200, 30]))
        values, _ = table(run("inspect", colour, "--region", "rect:0,0,2,1").stdout)
        self.assertTrue(values["measured"].startswith("luminance of RGB"), values)
        # (299 * 255 + 500) // 1000 = 76; (2990 + 117400 + 3420 + 500) // 1000 = 124.
        self.assertEqual(values["min, max"], "76, 124")

    def test_overlay_draws_the_outline_on_the_regions_pixels(self):
        image = self.ramp()
        overlay = self.path("out.png")
        result = run("inspect", image, "--region", "rect:10,5,6,4", "--overlay", overlay)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn(f"overlay    {overlay}\n", result.stdout)
        with open(overlay, "rb") as f:
            width, height, rows = read_rgb_png(f.read())
        self.assertEqual((width, height), (40, 30))
        cyan = (0, 255, 255)
        for y in range(30):
            for x in range(40):
                edge = 10 <= x <= 15 and 5 <= y <= 8 and (x in (10, 15) or y in (5, 8))
                grey = 4 * x + y
                self.assertEqual(rows[y][x], cyan if edge else (grey, grey, grey), (x, y))

    def test_spaces(self):
        image = self.ramp()
        pixels = run("inspect", image, "--region", "rect:3,3,5,5")
        for space in ("#", "@", "."):
            result = run("inspect", image, "--region", "rect:3,3,5,5", "--space", space)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertEqual(table(result.stdout)[0]["area"], table(pixels.stdout)[0]["area"])
            self.assertIn(f"in space '{space}'", result.stdout)
        overlay = self.path("never.png")
        result = run("inspect", image, "--region", "rect:3,3,5,5", "--space", "Fixture", "--overlay", overlay)
        self.assertEqual(result.returncode, 2)
        self.assertIn("--space: the image has no space 'Fixture'", result.stderr)
        self.assertEqual(result.stdout, "")
        self.assertFalse(os.path.exists(overlay))

    def test_malformed_regions_are_usage_errors_naming_the_field(self):
        image = self.ramp()
        overlay = self.path("never.png")
        cases = {
            "affine:1,2,3,abc,5,6": "--region: field LY of affine: 'abc' is not a number",
            "affine:1,2,3,4,5": "--region: affine takes 6 fields CX,CY,LX,LY,ROT,SKEW, not 5",
            "rect:1,2,3,4,5": "--region: rect takes 4 fields X,Y,W,H, not 5",
            "rect": "--region: rect takes 4 fields X,Y,W,H, not 0",
            "rect:1,,3,4": "--region: field Y of rect: '' is not a number",
            "rect:1,2,nan,4": "--region: field W of rect: 'nan' is not a number",
            "rect:1,2,3,1e999": "--region: field H of rect: '1e999' is not a number",
            "rect:1,2,3x,4": "--region: field W of rect: '3x' is not a number",
            "rect:1,2,0,4": "--region: field W of rect: '0' must be greater than 0",
            "affine:1,2,3,-4,0,0": "--region: field LY of affine: '-4' must be greater than 0",
            "affine:1,2,3,4,0,90": "--region: field SKEW of affine: '90' makes the sides parallel",
            "circle:1,2,3": "--region: unknown region kind 'circle' (affine or rect)",
            "": "--region: unknown region kind '' (affine or rect)",
        }
        for region, message in cases.items():
            result = run("inspect", image, "--region", region, "--overlay", overlay)
            self.assertEqual(result.returncode, 2, region)
            self.assertIn(f"tessaly inspect: {message}", result.stderr, region)
            self.assertIn("usage: tessaly inspect IMAGE --region", result.stderr)
            self.assertEqual(result.stdout, "")
            self.assertFalse(os.path.exists(overlay))
        # Accepted at their edges: a skew just short of parallel, negative coordinates, =.
        self.assertEqual(run("inspect", image, "--region", "affine:5,5,3,3,-30,89.9").returncode, 0)
        self.assertEqual(run("inspect", image, "--region=rect:-1,-1,3,3").returncode, 0)

    def test_other_usage_errors_and_help(self):
        image = self.ramp()
        for args, message in (((image,), "no --region"),
                              (("--region", "rect:0,0,1,1"), "no IMAGE"),
                              ((image, "--region"), "--region needs a value"),
                              ((image, "--region", "rect:0,0,1,1", "--overlay="), "--overlay needs a value"),
                              ((image, "--region", "rect:0,0,1,1", "--space", ""), "--space needs a value"),
                              ((image, "--region", "rect:0,0,1,1", "--region", "rect:0,0,2,2"), "--region given twice"),
                              ((image, image, "--region", "rect:0,0,1,1"), "one IMAGE only"),
                              ((image, "--region", "rect:0,0,1,1", "--colour", "red"), "unknown option '--colour'")):
            result = run("inspect", *args)
            self.assertEqual(result.returncode, 2, args)
            self.assertIn(f"tessaly inspect: {message}", result.stderr)
        result = run("inspect", "--help")
        self.assertEqual(result.returncode, 0)
        self.assertIn("in degrees", result.stdout)
        self.assertEqual(result.stderr, "")
        self.assertIn("inspect IMAGE --region", run("help").stdout)

    def test_files_that_fail(self):
        missing = self.path("missing.png")
        result = run("inspect", missing, "--region", "rect:0,0,1,1")
        self.assertEqual(result.returncode, 1)
        self.assertTrue(result.stderr.startswith(f"tessaly: {missing}: "), result.stderr)
        self.assertIn("(0x8004C100)", result.stderr)
        image = self.ramp()
        folder = self.path("a-folder")
        os.mkdir(folder)
        result = run("inspect", image, "--region", "rect:0,0,1,1", "--overlay", folder)
        self.assertEqual(result.returncode, 1)
        self.assertTrue(result.stderr.startswith(f"tessaly: {folder}: "), result.stderr)


if __name__ == "__main__":
    unittest.main()
