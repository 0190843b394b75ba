"""`tessaly image info` and `tessaly image convert` run as a user runs them, on image files
made here byte by byte (PGM, PPM, PNG)."""

import os
import struct
import subprocess
import tempfile
import unittest
import zlib

TESSALY = os.environ.get("TESSALY", "tessaly")


def run(*args):
    return subprocess.run([TESSALY, *args], capture_output=True, text=True, timeout=60)


def png(width, height, depth, colour, rows):
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)
    raw = b"".join(b"\x00" + row for row in rows)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b""))


class ImageCommandTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def write(self, name, data):
        with open(self.path(name), "wb") as f:
            f.write(data)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), "rb") as f:
            return f.read()

    def test_info_prints_size_kind_and_plane_statistics(self):
        grey = self.write("grey.pgm", b"P5 3 2 255\n" + bytes([0, 10, 20, 30, 40, 255]))
        result = run("image", "info", grey)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout, f"file: {grey}\nsize: 3 x 2\nkind: Grey8\n"
                                        "grey: min 0 max 255 mean 59.17\n")
        deep = self.write("deep.png", png(2, 1, 16, 0, [struct.pack(">HH", 300, 65535)]))
        result = run("image", "info", deep)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("kind: Grey16\ngrey: min 300 max 65535 mean 32917.50\n", result.stdout)
        colour = self.write("colour.ppm", b"P6 2 1 255\n" + bytes([1, 2, 3, 5, 6, 7]))
        result = run("image", "info", colour)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertTrue(result.stdout.endswith("kind: RGB8\nR: min 1 max 5 mean 3.00\n"
                                               "G: min 2 max 6 mean 4.00\nB: min 3 max 7 mean 5.00\n"),
                        result.stdout)

    def test_convert_goes_through_every_written_format_and_back(self):
        raster = bytes(range(0, 250, 10))  # 5 x 5
        source = self.write("in.pgm", b"P5\n5 5\n255\n" + raster)
        for step in ("a.png", "b.TIF", "c.pnm", "d.tiff", "e.pgm"):
            previous = source
            source = self.path(step)
            result = run("image", "convert", previous, source)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""), step)
        self.assertEqual(self.read("e.pgm"), b"P5\n5 5\n255\n" + raster)
        self.assertEqual(self.read("a.png")[:8], b"\x89PNG\r\n\x1a\n")
        self.assertEqual(self.read("b.TIF")[:4], b"II*\x00")

    def test_failures_name_the_file_and_exit_1(self):
        grey = self.write("grey.pgm", b"P5 2 2 255\n\x01\x02\x03\x04")
        colour = self.write("colour.ppm", b"P6 1 1 255\n\x01\x02\x03")
        cut = self.write("cut.pgm", b"P5 4 4 255\n" + bytes(9))
        cases = [
            (("info", self.path("missing.png")), self.path("missing.png"), "0x8004C100", "No such file"),
            (("info", cut), cut, "0x8004C104", "truncated at row 2"),
            (("info", self.write("big.pgm", b"P5 100000 100000 255\n")), self.path("big.pgm"), "0x8004C104",
             "image too large"),
            (("convert", grey, self.path("out.jpg")), self.path("out.jpg"), "0x8004C102", "JPEG files are read"),
            (("convert", colour, self.path("out.pgm")), self.path("out.pgm"), "0x8004C102",
             "PGM holds grey pixels, not RGB8"),
            (("convert", self.path("none.pgm"), self.path("out.png")), self.path("none.pgm"), "0x8004C100", ""),
        ]
        for args, named, code, reason in cases:
            with self.subTest(args=args):
                result = run("image", *args)
                self.assertEqual(result.returncode, 1, result.stderr)
                self.assertEqual(result.stdout, "")
                self.assertTrue(result.stderr.startswith(f"tessaly: {named}: "), result.stderr)
                self.assertIn(reason, result.stderr)
                self.assertTrue(result.stderr.rstrip().endswith(f"({code})"), result.stderr)
                self.assertEqual(result.stderr.count("\n"), 1)
        self.assertFalse(os.path.exists(self.path("out.png")))
        self.assertEqual(sorted(os.listdir(self.folder.name)), ["big.pgm", "colour.ppm", "cut.pgm", "grey.pgm"])

    def test_usage_errors_exit_2_and_help_exits_0(self):
        grey = self.write("grey.pgm", b"P5 1 1 255\n\x01")
        for args in [(), ("info",), ("info", grey, grey), ("convert", grey), ("convert", grey, grey, grey),
                     ("resize", grey), ("info", grey, "--fast")]:
            with self.subTest(args=args):
                result = run("image", *args)
                self.assertEqual(result.returncode, 2, result.stderr)
                self.assertIn("usage: tessaly image info FILE", result.stderr)
                self.assertEqual(result.stdout, "")
        for args in [("--help",), ("info", "--help"), ("convert", "-h")]:
            result = run("image", *args)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertIn("usage: tessaly image info FILE", result.stdout)
            self.assertIn("convert IN OUT", result.stdout)
        self.assertIn("image info FILE", run("help").stdout)


if __name__ == "__main__":
    unittest.main()
