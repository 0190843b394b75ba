"""`tessaly run` as a user runs it: a tool saved by `tessaly demo` run over files and
folders, the CSV it writes (columns, quoting, rows for files that fail), the progress bar
only on a terminal, overlays, exit statuses and usage errors."""

import csv
import io
import os
import pty
import re
import shutil
import subprocess
import tempfile
import unittest

TESSALY = os.environ.get("TESSALY", "tessaly")
HEADER = ["file", "status", "status_text", "time_ms", "Area", "Mean", "StandardDeviation", "Min", "Max", "Median"]
E_LUX_FILEOPEN = "0x8004C100"
E_LUX_BADFILEFORMAT = "0x8004C104"


def run(*args, cwd=None, **kwargs):
    return subprocess.run([TESSALY, *args], capture_output=True, timeout=120, cwd=cwd, **kwargs)


def rows(data):
    text = data.decode() if isinstance(data, bytes) else data
    return list(csv.reader(io.StringIO(text, newline="")))


def png_size(path):
    with open(path, "rb") as f:
        head = f.read(24)
    assert head[:8] == b"\x89PNG\r\n\x1a\n", path
    return int.from_bytes(head[16:20], "big"), int.from_bytes(head[20:24], "big")


def pgm(path, width, height, value):
    with open(path, "wb") as f:
        f.write(b"P5 %d %d 255\n" % (width, height) + bytes([value]) * (width * height))


class RunCommandTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.demo_folder = tempfile.TemporaryDirectory()
        cls.demo = cls.demo_folder.name
        result = run("demo", "--out", cls.demo)
        assert result.returncode == 0, result.stderr
        cls.demo_output = result.stdout.decode()

    @classmethod
    def tearDownClass(cls):
        cls.demo_folder.cleanup()

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def path(self, *names):
        return os.path.join(self.folder.name, *names)

    def demo_file(self, name):
        return os.path.join(self.demo, name)

    def printed(self, label):
        return re.search(r"^%s +(.+)$" % re.escape(label), self.demo_output, re.M).group(1)

    def test_the_demos_tool_runs_again_to_the_results_the_demo_printed(self):
        for archive in ("demo.bin", "demo.xml"):
            result = run("run", self.demo_file(archive), self.demo_file("image.png"))
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertEqual(result.stderr, b"")
            table = rows(result.stdout)
            self.assertEqual(table[0], HEADER)
            self.assertEqual(len(table), 2)
            row = dict(zip(HEADER, table[1]))
            self.assertEqual(row["file"], self.demo_file("image.png"))
            self.assertEqual((row["status"], row["status_text"]), ("0x00000000", ""))
            self.assertGreater(float(row["time_ms"]), 0)
            self.assertEqual(row["Area"] + " pixels", self.printed("area"))
            self.assertEqual("%.2f" % float(row["Mean"]), self.printed("mean"))
            self.assertEqual("%.2f" % float(row["StandardDeviation"]), self.printed("std dev"))
            self.assertEqual(row["Min"] + ", " + row["Max"], self.printed("min, max"))
            self.assertEqual(row["Median"], self.printed("median"))
        # Every row ends with CR LF, the header included.
        self.assertTrue(result.stdout.endswith(b"\r\n"))
        self.assertEqual(result.stdout.count(b"\r\n"), 2)

    def test_a_tool_inside_a_collection_is_found(self):
        with open(self.demo_file("demo.xml"), encoding="utf-8") as f:
            xml = f.read()
        head, rest = xml.split('<Object ProgID="Tessaly.LuxRegionStatisticsTool.1" id="1">', 1)
        body, tail = rest.rsplit("</Object>", 1)
        wrapped = (head + '<Object ProgID="Tessaly.LuxCollection.1" id="9000"><Item0 dt:dt="i4">5</Item0>'
                   '<Item1 ProgID="Tessaly.LuxRegionStatisticsTool.1" id="1">' + body + "</Item1></Object>" + tail)
        archive = self.path("collection.xml")
        with open(archive, "w", encoding="utf-8") as f:
            f.write(wrapped)
        self.assertTrue(run("dump", archive).stdout.startswith(b"Tessaly.LuxCollection"))
        direct = run("run", self.demo_file("demo.xml"), self.demo_file("image.png"))
        result = run("run", archive, self.demo_file("image.png"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(rows(result.stdout)[1][4:], rows(direct.stdout)[1][4:])

    def test_files_and_folders_in_order_with_failing_files_as_rows_of_their_own(self):
        folder = self.path("parts")
        os.makedirs(os.path.join(folder, "sub"))
        shutil.copy(self.demo_file("image.png"), os.path.join(folder, "b.png"))
        shutil.copy(self.demo_file("image.png"), os.path.join(folder, "a.png"))
        shutil.copy(self.demo_file("image.png"), os.path.join(folder, "sub", "deeper.png"))  # not recursed into
        with open(os.path.join(folder, "corrupt.png"), "wb") as f:
            f.write(b"\x89PNG\r\n\x1a\n" + b"\x00" * 40)
        with open(os.path.join(folder, "notes.txt"), "w") as f:
            f.write("not an image, not listed from a folder\n")
        notes = os.path.join(folder, "notes.txt")
        missing = self.path("missing.png")
        result = run("run", self.demo_file("demo.bin"), notes, folder, missing)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertEqual(result.stderr, b"")
        table = rows(result.stdout)
        self.assertEqual(table[0], HEADER)
        self.assertEqual([r[0] for r in table[1:]],
                         [notes] + [os.path.join(folder, n) for n in ("a.png", "b.png", "corrupt.png")] + [missing])
        by_file = {r[0]: r for r in table[1:]}
        for name in ("a.png", "b.png"):
            self.assertEqual(by_file[os.path.join(folder, name)][1:3], ["0x00000000", ""])
            self.assertEqual(by_file[os.path.join(folder, name)][4], "43200")
        for failed, code in ((notes, E_LUX_BADFILEFORMAT), (os.path.join(folder, "corrupt.png"), E_LUX_BADFILEFORMAT),
                             (missing, E_LUX_FILEOPEN)):
            row = by_file[failed]
            self.assertEqual(len(row), len(HEADER))
            self.assertEqual(row[1], code, row)
            self.assertIn(os.path.basename(failed), row[2])
            self.assertEqual(row[3:], [""] * (len(HEADER) - 3))   # no time, no results
        self.assertIn("not an image file", by_file[notes][2])

    def test_fields_are_quoted_as_csv_requires(self):
        odd = self.path('say "cheese", twice.png')
        shutil.copy(self.demo_file("image.png"), odd)
        broken = self.path("broken,.png")
        with open(broken, "wb") as f:
            f.write(b"garbage")
        result = run("run", self.demo_file("demo.bin"), odd, broken)
        self.assertEqual(result.returncode, 1)
        lines = result.stdout.decode().split("\r\n")
        self.assertTrue(lines[1].startswith('"%s",0x00000000,,' % odd.replace('"', '""')), lines[1])
        self.assertTrue(lines[2].startswith('"%s",0x8004C104,"' % broken), lines[2])  # its reason holds commas
        table = rows(result.stdout)
        self.assertEqual([r[0] for r in table[1:]], [odd, broken])
        self.assertTrue(all(len(r) == len(HEADER) for r in table))

    def test_warnings_and_rejections_ran_and_exit_0_failed_runs_exit_1(self):
        with open(self.demo_file("demo.xml"), encoding="utf-8") as f:
            xml = f.read()
        image = self.demo_file("image.png")
        for limit, value, code in (("MeanWarnLow", "140", "0x00040400"), ("MeanRejectLow", "140", "0x00040410")):
            changed = re.sub(r"<%s dt:dt=\"r8\">[^<]*<" % limit, '<%s dt:dt="r8">%s<' % (limit, value), xml)
            self.assertNotEqual(changed, xml)
            archive = self.path(limit + ".xml")
            with open(archive, "w", encoding="utf-8") as f:
                f.write(changed)
            result = run("run", archive, image)
            self.assertEqual(result.returncode, 0, (limit, result.stderr))
            row = rows(result.stdout)[1]
            self.assertEqual(row[1], code)
            self.assertNotEqual(row[2], "")   # the text says which limit the mean crossed
            self.assertEqual(row[4], "43200")  # and the results are there
        # A one-pixel image lies outside the fixture's region: the run fails, the row says so.
        tiny = self.path("tiny.pgm")
        pgm(tiny, 1, 1, 128)
        result = run("run", self.demo_file("demo.bin"), tiny, image)
        self.assertEqual(result.returncode, 1)
        table = rows(result.stdout)
        self.assertTrue(table[1][1].startswith("0x8004E4"), table[1])
        self.assertEqual(table[1][4:], [""] * 6)
        self.assertEqual(table[2][1], "0x00000000")  # and the next image runs

    def test_csv_to_a_file_or_to_standard_output(self):
        out = self.path("out.csv")
        result = run("run", self.demo_file("demo.bin"), self.demo_file("image.png"), "--csv", out)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout, b"")
        with open(out, "rb") as f:
            written = f.read()
        self.assertEqual(rows(written)[0], HEADER)
        self.assertEqual(len(rows(written)), 2)
        dash = run("run", "--csv=-", self.demo_file("demo.bin"), self.demo_file("image.png"))
        self.assertEqual(rows(dash.stdout)[1][4:], rows(written)[1][4:])
        unwritable = run("run", self.demo_file("demo.bin"), self.demo_file("image.png"), "--csv",
                         self.path("no", "such", "folder.csv"))
        self.assertEqual(unwritable.returncode, 1)
        self.assertIn(b"folder.csv", unwritable.stderr)

    def on_terminal(self, args, stdout_too):
        """Runs tessaly with its error stream (and, when asked, its output) on a terminal;
        answers the exit status, what the terminal showed and what went to the pipe."""
        leader, follower = pty.openpty()
        try:
            process = subprocess.Popen([TESSALY, *args], stdout=follower if stdout_too else subprocess.PIPE,
                                       stderr=follower)
            os.close(follower)
            follower = None
            shown = b""
            while True:
                try:
                    chunk = os.read(leader, 4096)
                except OSError:  # the terminal's other end closed
                    break
                if not chunk:
                    break
                shown += chunk
            piped = b"" if stdout_too else process.stdout.read()
            status = process.wait(timeout=120)
            if process.stdout:
                process.stdout.close()
        finally:
            if follower is not None:
                os.close(follower)
            os.close(leader)
        return status, shown, piped

    def test_a_progress_bar_on_a_terminal_only(self):
        images = [self.demo_file("image.png")] * 3
        quiet = run("run", self.demo_file("demo.bin"), *images, "--csv", self.path("quiet.csv"))
        self.assertEqual(quiet.returncode, 0)
        self.assertEqual(quiet.stderr, b"")
        # The error stream on a terminal, the CSV to a file or a pipe: the bar is drawn.
        for csv_args in (("--csv", self.path("t.csv")), ()):
            status, shown, piped = self.on_terminal(["run", self.demo_file("demo.bin"), *images, *csv_args], False)
            self.assertEqual(status, 0)
            self.assertIn(b"\r[------------------------------]   0% 0/3 files", shown)
            self.assertIn(b"\r[##########--------------------]  33% 1/3 files", shown)
            self.assertTrue(shown.endswith(b"\r[##############################] 100% 3/3 files\r\n"), shown)
            self.assertNotIn(b"file,status", shown)
            if csv_args:
                with open(self.path("t.csv"), "rb") as f:
                    self.assertEqual(len(rows(f.read())), 4)
            else:
                self.assertEqual(len(rows(piped)), 4)
        # The CSV to the same terminal: its rows are the progress, no bar over them.
        status, shown, _ = self.on_terminal(["run", self.demo_file("demo.bin"), *images], True)
        self.assertEqual(status, 0)
        self.assertNotIn(b"files", shown)
        self.assertIn(b"file,status,status_text", shown)

    def test_overlays_one_png_per_image_that_ran(self):
        folder = self.path("in")
        os.makedirs(folder)
        shutil.copy(self.demo_file("image.png"), os.path.join(folder, "one.png"))
        shutil.copy(self.demo_file("image.png"), os.path.join(folder, "two.png"))
        small = os.path.join(folder, "one.pgm")   # a second "one": its overlay gets another name
        pgm(small, 640, 480, 90)
        with open(os.path.join(folder, "zz-corrupt.tif"), "wb") as f:
            f.write(b"II*\x00garbage")
        overlays = self.path("overlays")
        result = run("run", self.demo_file("demo.bin"), folder, "--overlays", overlays)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertEqual(sorted(os.listdir(overlays)), ["one-2.png", "one.png", "two.png"])
        for name in os.listdir(overlays):
            self.assertEqual(png_size(os.path.join(overlays, name)), (640, 480))
        # The region is drawn: the overlay of a flat grey image is no longer flat grey.
        with open(os.path.join(overlays, "one.png"), "rb") as a, open(os.path.join(overlays, "one-2.png"), "rb") as b:
            self.assertNotEqual(a.read(), b.read())

    def test_usage_errors_exit_2_and_archive_failures_exit_1(self):
        archive, image = self.demo_file("demo.bin"), self.demo_file("image.png")
        for args, message in (((), "no TOOL_ARCHIVE"),
                              ((archive,), "no IMAGE_OR_FOLDER"),
                              ((archive, image, "--colour"), "unknown option '--colour'"),
                              ((archive, image, "--csv"), "--csv needs a value"),
                              ((archive, image, "--csv="), "--csv needs a value"),
                              ((archive, image, "--overlays"), "--overlays needs a value"),
                              ((archive, image, "--csv", "a", "--csv", "b"), "--csv given twice")):
            result = run("run", *args, cwd=self.folder.name)
            self.assertEqual(result.returncode, 2, args)
            self.assertIn(b"tessaly run: " + message.encode() + b"\n", result.stderr)
            self.assertIn(b"usage: tessaly run TOOL_ARCHIVE IMAGE_OR_FOLDER...", result.stderr)
            self.assertEqual(result.stdout, b"")
        self.assertEqual(os.listdir(self.folder.name), [])   # nothing written
        help_text = run("run", "--help")
        self.assertEqual(help_text.returncode, 0)
        self.assertIn(b"status_text", help_text.stdout)

        missing = self.path("missing.bin")
        result = run("run", missing, image)
        self.assertEqual(result.returncode, 1)
        self.assertTrue(result.stderr.startswith(b"tessaly: " + missing.encode() + b": "), result.stderr)
        self.assertEqual(result.stdout, b"")
        no_tool = self.path("no-tool.xml")
        with open(no_tool, "w") as f:
            f.write('<?xml version="1.0"?>\r\n<Root xmlns:dt="urn:schemas-microsoft-com:datatypes">'
                    '<Object ProgID="Tessaly.LuxCollection.1" id="1"><Item0 dt:dt="i4">1</Item0></Object></Root>')
        result = run("run", no_tool, image)
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"no tool", result.stderr)
        self.assertEqual(result.stdout, b"")


if __name__ == "__main__":
    unittest.main()
