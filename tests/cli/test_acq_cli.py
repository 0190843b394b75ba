"""`tessaly acq list` and `tessaly acq grab` run as a user runs them, over the simulated
frame grabber that every build has."""

import os
import re
import subprocess
import tempfile
import unittest

TESSALY = os.environ.get("TESSALY", "tessaly")

SIMULATED_FORMATS = ["Simulated 640x480 Grey8", "Simulated 1280x1024 Grey16",
                     "Simulated 640x480 Bayer8", "Simulated 640x480 PlanarRGB8"]


def run(*args):
    return subprocess.run([TESSALY, *args], capture_output=True, text=True, timeout=120)


class AcqCommandTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def test_list_shows_the_simulated_grabber_first_with_its_formats_and_ports(self):
        result = run("acq", "list")
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = result.stdout.splitlines()
        self.assertRegex(lines[0], r"^Simulated \(serial number \S+\)$")
        self.assertEqual(lines[1:5], [f"  {name}, 2 camera ports" for name in SIMULATED_FORMATS])
        # Either cameras follow or the build says it cannot look for them.
        rest = "\n".join(lines[5:])
        self.assertTrue(rest == "" or "GenICam" in rest or re.search(r"\(serial number", rest), rest)

    def grab(self, *options):
        out = os.path.join(self.folder.name, "frames")
        return out, run("acq", "grab", "--out", out, *options)

    def info(self, path):
        result = run("image", "info", path)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout

    def test_grab_saves_numbered_frames_and_reports_rate_and_drops(self):
        out, result = self.grab("--count", "3")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "")  # no progress bar when the errors go to a file
        self.assertRegex(result.stdout, r"^3 frames from Simulated \(Simulated 640x480 Grey8\) saved in "
                                        + re.escape(out) + r": [0-9.]+ frames per second, 0 dropped\n$")
        self.assertEqual(sorted(os.listdir(out)), ["frame-0001.png", "frame-0002.png", "frame-0003.png"])
        self.assertIn("size: 640 x 480\nkind: Grey8\n", self.info(os.path.join(out, "frame-0001.png")))

    def test_each_format_is_saved_with_all_its_pixels(self):
        for name, expected in [("Simulated 1280x1024 Grey16", "size: 1280 x 1024\nkind: Grey16\n"),
                               ("Simulated 640x480 Bayer8", "size: 640 x 480\nkind: RGB8\n"),
                               ("Simulated 640x480 PlanarRGB8", "size: 640 x 480\nkind: RGB8\n")]:
            with self.subTest(name):
                out, result = self.grab("--grabber", "Simulated", "--format", name)
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertIn("1 frame from Simulated", result.stdout)
                self.assertIn(expected, self.info(os.path.join(out, "frame-0001.png")))

    def test_failures_name_what_failed_and_usage_errors_exit_2(self):
        _, result = self.grab("--format", "Simulated 1x1 Grey3")
        self.assertEqual(result.returncode, 1)
        self.assertIn("Simulated 1x1 Grey3", result.stderr)
        self.assertIn("0x8004E600", result.stderr)  # the video format is not valid
        _, result = self.grab("--grabber", "No such grabber")
        self.assertEqual(result.returncode, 1)
        self.assertIn("No such grabber", result.stderr)
        for arguments in [("--count", "0"), ("--count", "x"), ("--speed", "2"), ("--count",)]:
            with self.subTest(arguments):
                _, result = self.grab(*arguments)
                self.assertEqual(result.returncode, 2, result.stderr)
                self.assertIn("usage: tessaly acq", result.stderr)
        self.assertEqual(run("acq").returncode, 2)
        self.assertEqual(run("acq", "list", "extra").returncode, 2)
        help_text = run("acq", "--help")
        self.assertEqual(help_text.returncode, 0)
        self.assertIn("frame-0001.png", help_text.stdout)


if __name__ == "__main__":
    unittest.main()
