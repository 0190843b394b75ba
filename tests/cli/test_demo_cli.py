"""`tessaly demo` run as a newcomer runs it: what it prints (the tool's run status, timings
and results), the files it writes (archives that `tessaly dump` reads and that hold the
tool with its image, tree, region and results; the image; an overlay PNG of the image's
size), its own image or one given, and its usage errors."""

import os
import re
import subprocess
import tempfile
import unittest

TESSALY = os.environ.get("TESSALY", "tessaly")


def run(*args, cwd=None):
    return subprocess.run([TESSALY, *args], capture_output=True, text=True, timeout=120, cwd=cwd)


def png_size(path):
    with open(path, "rb") as f:
        head = f.read(26)
    assert head[:8] == b"\x89PNG\r\n\x1a\n"
    return int.from_bytes(head[16:20], "big"), int.from_bytes(head[20:24], "big"), head[25]


class DemoCommandTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def path(self, *names):
        return os.path.join(self.folder.name, *names)

    def test_default_run_writes_its_folder_in_the_current_one(self):
        result = run("demo", cwd=self.folder.name)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "")
        out = result.stdout
        self.assertIn("image      640 x 480, 8-bit test pattern", out)
        self.assertIn('space "Fixture"', out)
        self.assertIn("rotated 20 deg, scaled 1.5", out)
        # The region is 160 x 120 in the fixture: 240 x 180 pixels, turned by 20 degrees,
        # centred on the image.
        self.assertIn("in pixels: centre (320.0, 240.0), sides 240.0 x 180.0, rotation 20.0 deg", out)
        self.assertIn("tool       LuxRegionStatisticsTool", out)
        self.assertIn("run        status 0x00000000 passed\n", out)
        raw, total = map(float, re.search(r"^ +TimeRaw ([0-9.]+) ms, Time ([0-9.]+) ms$", out, re.M).groups())
        self.assertGreater(raw, 0)
        self.assertGreaterEqual(total, raw)
        area = int(re.search(r"^area +(\d+) pixels$", out, re.M).group(1))
        self.assertLess(abs(area - 240 * 180), 240 + 180)      # within a pixel of the edges
        # The histogram's bins add up to the area.
        bins = [int(m) for m in re.findall(r"^ +\d+\.\.\d+ +(\d+)", out, re.M)]
        self.assertEqual(len(bins), 9)
        self.assertEqual(sum(bins), area)
        low, high = map(int, re.search(r"^min, max +(\d+), (\d+)$", out, re.M).groups())
        self.assertLessEqual(low, int(re.search(r"^median +(\d+)$", out, re.M).group(1)))
        self.assertIn("written to tessaly-demo/", out)
        self.assertTrue(out.endswith("loaded back: both archives run again to the same results\n"
                                     "run again: tessaly run tessaly-demo/demo.bin tessaly-demo/image.png\n"), out)
        self.assertLess(len(out.splitlines()), 40)             # a first impression, not a log
        for name in ("demo.xml", "demo.bin", "image.png", "overlay.png"):
            self.assertTrue(os.path.getsize(self.path("tessaly-demo", name)) > 0, name)
        self.assertEqual(png_size(self.path("tessaly-demo", "overlay.png")), (640, 480, 2))
        self.assertEqual(png_size(self.path("tessaly-demo", "image.png")), (640, 480, 0))
        # What the last line suggests gives the results printed above.
        again = run("run", "tessaly-demo/demo.bin", "tessaly-demo/image.png", cwd=self.folder.name)
        self.assertEqual(again.returncode, 0, again.stderr)
        row = again.stdout.splitlines()[1].split(",")
        self.assertEqual(row[:3], ["tessaly-demo/image.png", "0x00000000", ""])
        self.assertEqual(int(row[4]), area)
        self.assertEqual((int(row[7]), int(row[8])), (low, high))

    def test_the_archives_hold_the_tool_with_image_tree_region_and_results(self):
        out = self.path("out")
        self.assertEqual(run("demo", "--out", out).returncode, 0)
        xml = run("dump", os.path.join(out, "demo.xml"))
        binary = run("dump", os.path.join(out, "demo.bin"))
        self.assertEqual(xml.returncode, 0, xml.stderr)
        self.assertEqual(xml.stdout, binary.stdout)
        dump = xml.stdout
        self.assertTrue(dump.startswith("Tessaly.LuxRegionStatisticsTool"), dump[:200])
        for class_name in ("Tessaly.LuxImage8Grey", "Tessaly.LuxCoordinateSpaceTree", "Tessaly.LuxRectangleAffine",
                           "Tessaly.LuxRunStatus"):
            self.assertIn(class_name, dump)
        self.assertIn('"Fixture"', dump)
        self.assertRegex(dump, r"\n  Area: I4 = \d+\n")
        self.assertRegex(dump, r"\n  MeanWarnLow: R8 = 64\n")

    def test_a_given_image_and_the_same_run_twice(self):
        image = self.path("small.pgm")
        with open(image, "wb") as f:
            f.write(b"P5 80 60 255\n" + bytes((x * 3 + y) % 256 for y in range(60) for x in range(80)))
        result = run("demo", image, "--out", self.path("given"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn(f"image      80 x 60, read from {image}", result.stdout)
        self.assertIn("in pixels: centre (40.0, 30.0), sides 30.0 x 22.5, rotation 20.0 deg", result.stdout)
        self.assertEqual(png_size(self.path("given", "overlay.png")), (80, 60, 2))
        # Running again over the same folder replaces the files.
        self.assertEqual(run("demo", image, "--out=" + self.path("given")).returncode, 0)
        # A one-pixel image still gets a region of its own: one fixture unit each way.
        tiny = self.path("tiny.pgm")
        with open(tiny, "wb") as f:
            f.write(b"P5 1 1 255\n\x80")
        result = run("demo", tiny, "--out", self.path("tiny"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("area       1 pixels\nmean       128.00\n", result.stdout)
        self.assertIn("run        status 0x00000000 passed\n", result.stdout)
        self.assertIn("run again: tessaly run %s %s\n" % (self.path("tiny", "demo.bin"), self.path("tiny", "image.png")),
                      result.stdout)

    def test_failures_and_usage_errors(self):
        missing = self.path("missing.png")
        result = run("demo", missing, "--out", self.path("x"))
        self.assertEqual(result.returncode, 1)
        self.assertTrue(result.stderr.startswith(f"tessaly: {missing}: "), result.stderr)
        self.assertFalse(os.path.exists(self.path("x")))
        blocker = self.path("a-file")
        with open(blocker, "w") as f:
            f.write("not a folder")
        result = run("demo", "--out", blocker)
        self.assertEqual(result.returncode, 1)
        self.assertTrue(result.stderr.startswith(f"tessaly: {blocker}: "), result.stderr)
        for args, message in ((("--colour",), "unknown option '--colour'"),
                              (("a.png", "b.png"), "one IMAGE only"),
                              (("--out",), "--out needs a DIR"),
                              (("--out=",), "--out needs a DIR"),
                              (("--out", "a", "--out", "b"), "--out given twice")):
            result = run("demo", *args, cwd=self.folder.name)
            self.assertEqual(result.returncode, 2, args)
            self.assertIn(f"tessaly demo: {message}", result.stderr)
            self.assertIn("usage: tessaly demo [IMAGE] [--out DIR]", result.stderr)
        self.assertFalse(os.path.exists(self.path("tessaly-demo")))
        result = run("demo", "--help")
        self.assertEqual(result.returncode, 0)
        self.assertIn("Fixture", result.stdout)


if __name__ == "__main__":
    unittest.main()
