"""`tessaly inspect` run as a user runs it: the statistics under a region of image files
made here byte by byte, the overlay PNG read back pixel by pixel, spaces, and every kind of
malformed --region with its message and exit status 2."""

import math
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


def circle_inside(cx, cy, r):
    return lambda x, y: math.hypot(x - cx, y - cy) < r


def ellipse_inside(cx, cy, rx, ry, degrees):
    c, s = math.cos(math.radians(degrees)), math.sin(math.radians(degrees))
    return lambda x, y: (((x - cx) * c + (y - cy) * s) / rx) ** 2 + ((-(x - cx) * s + (y - cy) * c) / ry) ** 2 < 1


def section_inside(cx, cy, radius, start, span, scale):
    low, high = sorted((radius, radius * scale))
    def inside(x, y):
        turn = (math.degrees(math.atan2(y - cy, x - cx)) - start) * (1 if span > 0 else -1) % 360
        return low < math.hypot(x - cx, y - cy) < high and turn < abs(span)
    return inside


def polygon_inside(*xy):
    points = list(zip(xy[0::2], xy[1::2]))
    def inside(x, y):
        crossings = 0
        for (x1, y1), (x2, y2) in zip(points, points[1:] + points[:1]):
            if (y1 > y) != (y2 > y) and x < x1 + (y - y1) * (x2 - x1) / (y2 - y1):
                crossings += 1
        return crossings % 2 == 1
    return inside


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

    def measured(self, region, inside):
        """Runs inspect on the ramp and checks area, mean and range against the pixels whose
        centres `inside(x, y)` accepts."""
        result = run("inspect", self.ramp(), "--region", region)
        self.assertEqual(result.returncode, 0, result.stderr)
        values, _ = table(result.stdout)
        pixels = [4 * x + y for y in range(30) for x in range(40) if inside(x + 0.5, y + 0.5)]
        self.assertGreater(len(pixels), 10, region)
        self.assertEqual(values["area"], f"{len(pixels)} pixels", region)
        self.assertEqual(values["mean"], f"{sum(pixels) / len(pixels):.2f}", region)
        self.assertEqual(values["min, max"], f"{min(pixels)}, {max(pixels)}", region)
        return result.stdout

    def test_circles_ellipses_annulus_sections_and_polygons_by_pixel_centres(self):
        out = self.measured("circle:20.3,15.2,6.1", circle_inside(20.3, 15.2, 6.1))
        self.assertIn("circle: centre (20.3, 15.2), radius 6.1, in space '#'", out)

        out = self.measured("ellipse:19.7,14.1,11.3,4.2,30", ellipse_inside(19.7, 14.1, 11.3, 4.2, 30))
        self.assertIn("ellipse: centre (19.7, 14.1), radii 11.3 x 4.2, rotation 30 deg", out)
        # A circle typed as an ellipse is the same region.
        statistics = lambda region: {k: v for k, v in table(run("inspect", self.ramp(), "--region", region).stdout)[0].items()
                                     if k != "region"}
        self.assertEqual(statistics("ellipse:20.3,15.2,6.1,6.1,70"), statistics("circle:20.3,15.2,6.1"))

        # y points down: from 10 degrees clockwise through 100; and the same band the other way.
        out = self.measured("annulus:20.3,15.2,5.1,10,100,1.9", section_inside(20.3, 15.2, 5.1, 10, 100, 1.9))
        self.assertIn("annulus section: centre (20.3, 15.2), radius 5.1, start 10 deg, span 100 deg, radial scale 1.9",
                      out)
        self.measured("annulus:20.3,15.2,9.69,110,-100,0.5263157894736842",
                      section_inside(20.3, 15.2, 9.69, 110, -100, 0.5263157894736842))

        out = self.measured("polygon:5.2,5.1,33.7,8.3,12.4,25.6", polygon_inside(5.2, 5.1, 33.7, 8.3, 12.4, 25.6))
        self.assertIn("polygon: 3 vertices (5.2, 5.1) (33.7, 8.3) (12.4, 25.6)", out)
        self.measured("polygon:2.1,2.2,20.3,2.4,20.1,20.2,11.3,9.1,2.2,20.4",
                      polygon_inside(2.1, 2.2, 20.3, 2.4, 20.1, 20.2, 11.3, 9.1, 2.2, 20.4))

    def test_overlay_draws_the_outline_of_every_new_kind_on_its_own_pixels(self):
        image = self.ramp()
        kinds = {
            "circle:20,15,8": circle_inside(20, 15, 8),
            "ellipse:19.7,14.1,11.3,4.2,30": ellipse_inside(19.7, 14.1, 11.3, 4.2, 30),
            "annulus:20.3,15.2,5.1,10,100,1.9": section_inside(20.3, 15.2, 5.1, 10, 100, 1.9),
            "polygon:5.2,5.1,33.7,8.3,12.4,25.6": polygon_inside(5.2, 5.1, 33.7, 8.3, 12.4, 25.6),
        }
        for region, inside in kinds.items():
            overlay = self.path("overlay.png")
            result = run("inspect", image, "--region", region, "--overlay", overlay)
            self.assertEqual(result.returncode, 0, result.stderr)
            with open(overlay, "rb") as f:
                width, height, rows = read_rgb_png(f.read())
            self.assertEqual((width, height), (40, 30))
            pixels = {(x, y) for y in range(30) for x in range(40) if inside(x + 0.5, y + 0.5)}
            # The region's pixels with a neighbour outside it, and nothing else.
            edge = {(x, y) for x, y in pixels
                    if any(n not in pixels for n in ((x - 1, y), (x + 1, y), (x, y - 1), (x, y + 1)))}
            self.assertGreater(len(edge), 10, region)
            for y in range(30):
                for x in range(40):
                    want = (0, 255, 255) if (x, y) in edge else (4 * x + y,) * 3
                    self.assertEqual(rows[y][x], want, (region, x, y))

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
            "square:1,2,3": "--region: unknown region kind 'square' "
                            "(affine, rect, circle, ellipse, annulus, polygon)",
            "": "--region: unknown region kind '' (affine, rect, circle, ellipse, annulus, polygon)",
            "circle:1,2": "--region: circle takes 3 fields CX,CY,R, not 2",
            "circle:1,2,0": "--region: field R of circle: '0' must be greater than 0",
            "circle:1,2,-3": "--region: field R of circle: '-3' must be greater than 0",
            "circle:1,y,3": "--region: field CY of circle: 'y' is not a number",
            "ellipse:1,2,3,4": "--region: ellipse takes 5 fields CX,CY,RX,RY,ROT, not 4",
            "ellipse:1,2,3,0,5": "--region: field RY of ellipse: '0' must be greater than 0",
            "ellipse:1,2,3,4,inf": "--region: field ROT of ellipse: 'inf' is not a number",
            "annulus:1,2,3,4,5": "--region: annulus takes 6 fields CX,CY,R,START,SPAN,SCALE, not 5",
            "annulus:1,2,0,0,90,2": "--region: field R of annulus: '0' must be greater than 0",
            "annulus:1,2,3,0,0,2": "--region: field SPAN of annulus: '0' must not be 0",
            "annulus:1,2,3,0,-0,2": "--region: field SPAN of annulus: '-0' must not be 0",
            "annulus:1,2,3,0,90,1": "--region: field SCALE of annulus: '1' must be greater than 0 and not 1",
            "annulus:1,2,3,0,90,0": "--region: field SCALE of annulus: '0' must be greater than 0 and not 1",
            "annulus:1,2,3,0,90,-2": "--region: field SCALE of annulus: '-2' must be greater than 0 and not 1",
            "polygon:1,2,3,4": "--region: polygon takes at least 3 vertices X1,Y1,X2,Y2,X3,Y3, not 2",
            "polygon": "--region: polygon takes at least 3 vertices X1,Y1,X2,Y2,X3,Y3, not 0",
            "polygon:1,2,3,4,5": "--region: polygon takes X,Y pairs X1,Y1,X2,Y2,...: 5 fields leave Y3 missing",
            "polygon:1,2,3,4,5,6,7,q": "--region: field Y4 of polygon: 'q' is not a number",
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
        # Spans beyond a turn, negative spans, scales below 1 and a polygon of 3 vertices.
        for region in ("annulus:5,5,3,0,720,0.5", "annulus:5,5,3,0,-45,1.001", "polygon:0,0,5,0,0,5",
                       "circle:-3,-3,1e-9", "ellipse:5,5,1,2,-720"):
            self.assertEqual(run("inspect", image, "--region", region).returncode, 0, region)

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
