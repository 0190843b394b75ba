"""`tessaly dump` and `tessaly convert` run as a user runs them, on archives made here:
small XML documents written by hand, and their conversions."""

import os
import re
import subprocess
import tempfile
import unittest

TESSALY = os.environ.get("TESSALY", "tessaly")
BINARY_MAGIC = b"\x89TSAR\r\n\x1a"


def run(*args):
    return subprocess.run([TESSALY, *args], capture_output=True, text=True, timeout=120)


def document(body):
    return ('<?xml version="1.0"?>\r\n<Root xmlns:dt="urn:schemas-microsoft-com:datatypes">'
            + body + "</Root>")


def collection(object_id, items, progid="Tessaly.LuxCollection.1", element="Object"):
    return f'<{element} ProgID="{progid}" id="{object_id}">' + "".join(items) + f"</{element}>"


# A graph with a sub-object shared twice, a cycle back to the root, arrays of three kinds
# and values of the common types.
GRAPH = document(collection(1, [
    '<Item0 dt:dt="i4">-7</Item0>',
    '<Item1>a &lt;b&gt; &amp; "c"</Item1>',
    "<Key1>second</Key1>",
    collection(2, [
        '<Item0 dt:dt="r8">2.5</Item0>',
        '<Item1 idref="1"/>',
        '<Item2 ArrayType="ui1" ArrayBounds="0:15" dt:dt="bin.base64">AAECAwQFBgcICQoLDA0ODw==</Item2>',
    ], element="Item2"),
    '<Item3 idref="2"/>',
    '<Item4 ArrayType="r8" ArrayBounds="0:1,1:3">1 2 3 4 5 6.5</Item4>',
    '<Item5 ArrayType="variant" ArrayBounds="0:2"><Item dt:dt="boolean">1</Item>'
    + collection(3, ["<Item0>x</Item0>"], progid="Tessaly.LuxStringCollection.1", element="Item")
    + '<Item idref="3"/></Item5>',
    '<Item6 dt:dt="error">-2147467259</Item6>',
    '<Item7 dt:dt="empty"/>',
    '<Item8 idref="0"/>',
    '<Item9 ArrayType="string" ArrayBounds="0:1"><Item>one</Item><Item>two</Item></Item9>',
]))

GRAPH_DUMP = """\
Tessaly.LuxCollection.1 (id 1)
  Item0: I4 = -7
  Item1: BSTR = "a <b> & \\"c\\""
  Key1: BSTR = "second"
  Item2: DISPATCH = Tessaly.LuxCollection.1 (id 2)
    Item0: R8 = 2.5
    Item1: DISPATCH -> id 1
    Item2: ARRAY(UI1)[0..15] = {0, 1, 2, 3, 4, 5, 6, 7, ... (16 elements)}
  Item3: DISPATCH -> id 2
  Item4: ARRAY(R8)[0..1][1..3] = {1, 2, 3, 4, 5, 6.5}
  Item5: ARRAY(VARIANT)[0..2]
    [0]: BOOL = True
    [1]: DISPATCH = Tessaly.LuxStringCollection.1 (id 3)
      Item0: BSTR = "x"
    [2]: DISPATCH -> id 3
  Item6: ERROR = 0x80004005
  Item7: EMPTY
  Item8: DISPATCH = null
  Item9: ARRAY(BSTR)[0..1] = {"one", "two"}
"""


class ArchiveCase(unittest.TestCase):
    def setUp(self):
        self._dir = tempfile.TemporaryDirectory()
        self.dir = self._dir.name

    def tearDown(self):
        self._dir.cleanup()

    def path(self, name):
        return os.path.join(self.dir, name)

    def write(self, name, content):
        path = self.path(name)
        with open(path, "wb") as f:
            f.write(content.encode() if isinstance(content, str) else content)
        return path

    def read(self, name):
        with open(self.path(name), "rb") as f:
            return f.read()

    def dump(self, path):
        result = run("dump", path)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "")
        return result.stdout

    def convert(self, source, target, *options):
        result = run("convert", source, target, *options)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout + result.stderr, "")
        return target

    def assertFails(self, result, file):
        """Exit status 1, nothing on stdout, one line naming the file on stderr."""
        self.assertEqual(result.returncode, 1, result.stdout + result.stderr)
        self.assertEqual(result.stdout, "")
        lines = result.stderr.splitlines()
        self.assertEqual(len(lines), 1, result.stderr)
        self.assertTrue(lines[0].startswith(f"tessaly: {file}: "), lines[0])
        self.assertGreater(len(lines[0]), len(f"tessaly: {file}: ") + 10, lines[0])
        return lines[0]


class DumpTest(ArchiveCase):
    def test_graph_prints_types_values_shared_objects_and_cycles(self):
        self.assertEqual(self.dump(self.write("graph.xml", GRAPH)), GRAPH_DUMP)

    def test_every_format_dumps_the_same_tree(self):
        source = self.write("graph.xml", GRAPH)
        binary = self.convert(source, self.path("graph.bin"), "--format", "binary")
        plain = self.convert(binary, self.path("plain.xml"), "--format=xml")
        lines = self.convert(plain, self.path("lines.xml"), "--format", "xml-linebreaks")
        for path in (binary, plain, lines):
            self.assertEqual(self.dump(path), GRAPH_DUMP, path)

    def test_large_arrays_are_summarised_and_later_numbers_stay_those_of_the_file(self):
        # Twelve objects in an array: only eight are shown, but the ones after them are
        # still numbered, so the reference after the array names the file's id 13.
        objects = "".join(collection(i + 2, [f'<Item0 dt:dt="i4">{i}</Item0>'], element="Item") for i in range(12))
        numbers = " ".join(str(i) for i in range(100))
        path = self.write("big.xml", document(collection(1, [
            f'<Item0 ArrayType="object" ArrayBounds="0:11">{objects}</Item0>',
            '<Item1 idref="13"/>',
            f'<Item2 ArrayType="i4" ArrayBounds="0:99">{numbers}</Item2>',
            '<Item3 ArrayType="i2" ArrayBounds="-1:1">5 6 7</Item3>',
            '<Item4 ArrayType="i4" ArrayBounds="0:-1"/>',
            '<Item5 ArrayType="i4" ArrayBounds=""/>',
        ])))
        out = self.dump(path)
        self.assertIn("  Item0: ARRAY(DISPATCH)[0..11]\n    [0]: DISPATCH = Tessaly.LuxCollection.1 (id 2)\n"
                      "      Item0: I4 = 0\n", out)
        self.assertIn("    [7]: DISPATCH = Tessaly.LuxCollection.1 (id 9)\n", out)
        self.assertNotIn("[8]", out)
        self.assertNotIn("I4 = 8\n", out)
        self.assertIn("    ... (12 elements)\n  Item1: DISPATCH -> id 13\n", out)
        self.assertIn("  Item2: ARRAY(I4)[0..99] = {0, 1, 2, 3, 4, 5, 6, 7, ... (100 elements)}\n", out)
        self.assertIn("  Item3: ARRAY(I2)[-1..1] = {5, 6, 7}\n", out)
        self.assertIn("  Item4: ARRAY(I4)[0..-1] = {}\n", out)
        self.assertIn("  Item5: ARRAY(I4) = null\n", out)
        # The same numbering once the file is binary.
        binary = self.convert(path, self.path("big.bin"))
        self.assertEqual(self.dump(binary), out)

    def test_strings_are_escaped_and_cut_at_a_character_boundary(self):
        long_text = "\u00e9" * 40  # 80 bytes of two-byte characters
        path = self.write("text.xml", document(collection(1, [
            f"<Item0>{long_text}</Item0>",
            "<Item1>tab\there&#10;line&#13;\\ &#1;</Item1>",
            f"<Item2>{'x' * 64}</Item2>",
            f"<Item3>{'x' * 65}</Item3>",
            "<Item4></Item4>",
        ])))
        lines = self.dump(path).splitlines()
        # 64 bytes are 32 characters; the cut never splits one.
        self.assertEqual(lines[1], f'  Item0: BSTR = "{chr(0xE9) * 32}..." (80 bytes)')
        self.assertEqual(lines[2], '  Item1: BSTR = "tab\\there\\nline\\r\\\\ \\x01"')
        self.assertEqual(lines[3], f'  Item2: BSTR = "{"x" * 64}"')
        self.assertEqual(lines[4], f'  Item3: BSTR = "{"x" * 64}..." (65 bytes)')
        self.assertEqual(lines[5], '  Item4: BSTR = ""')

    def test_deep_nesting_is_indented_level_by_level(self):
        depth = 100
        body = '<Item0 dt:dt="i4">0</Item0>'
        for level in range(depth, 1, -1):
            body = collection(level, [body], element="Item0")
        out = self.dump(self.write("deep.xml", document(collection(1, [body]))))
        lines = out.splitlines()
        self.assertEqual(len(lines), depth + 1)
        self.assertEqual(lines[-1], "  " * depth + "Item0: I4 = 0")
        self.assertEqual(lines[depth - 1], "  " * (depth - 1) + f"Item0: DISPATCH = Tessaly.LuxCollection.1 (id {depth})")

    def test_graphs_deeper_than_the_limit_fail_without_printing_half(self):
        # 2,000 objects side by side, each holding the one before: the document is
        # shallow, the graph 2,000 levels deep, beyond what the dump (or a save) walks.
        chain = [collection(3, [], element="Item0")]
        chain += [collection(i, [f'<Item0 idref="{i - 1}"/>'], element=f"Item{i - 3}") for i in range(4, 2001)]
        path = self.write("chain.xml", document(collection(1, [
            collection(2, chain, element="Chain"), '<Item0 idref="2000"/>'])))
        line = self.assertFails(run("dump", path), path)
        self.assertIn("nested deeper than 512 levels", line)
        line = self.assertFails(run("convert", path, self.path("chain.bin")), self.path("chain.bin"))
        self.assertIn("nested deeper than 512 levels", line)
        self.assertFalse(os.path.exists(self.path("chain.bin")))
        # 500 levels are still shown. The numbers are those of the walk: the file's own
        # numbers are not in the order a save would give them.
        short = self.write("short.xml", document(collection(1, [
            collection(2, chain[:499], element="Chain"), '<Item0 idref="501"/>'])))
        lines = self.dump(short).splitlines()
        self.assertEqual(len(lines), 500)
        self.assertEqual(lines[-1], "  " * 499 + "Item0: DISPATCH = Tessaly.LuxCollection.1 (id 500)")

    def test_files_that_cannot_be_dumped_fail_with_one_line(self):
        cases = {
            "missing.xml": None,
            "empty.bin": b"",
            "text.txt": b"just some notes\n",
            "cut.xml": GRAPH[: len(GRAPH) // 2].encode(),
            "unknown.xml": document(collection(1, [], progid="Tessaly.NoSuchClass")).encode(),
            "magic-only.bin": BINARY_MAGIC,
        }
        for name, content in cases.items():
            with self.subTest(name):
                path = self.path(name) if content is None else self.write(name, content)
                self.assertFails(run("dump", path), path)
        missing = self.assertFails(run("dump", self.path("missing.xml")), self.path("missing.xml"))
        self.assertIn("0x8004C100", missing)  # e_Lux_FileOpen
        self.assertIn("0x8004C100", self.assertFails(run("dump", self.dir), self.dir))
        unknown = self.assertFails(run("dump", self.path("unknown.xml")), self.path("unknown.xml"))
        self.assertIn("Tessaly.NoSuchClass", unknown)
        self.assertIn("0x8004831E", unknown)  # ids_LuxFormatter_CantCreateObject_1

    def test_every_truncation_of_a_binary_archive_fails_cleanly(self):
        binary = self.convert(self.write("graph.xml", GRAPH), self.path("graph.bin"))
        data = self.read("graph.bin")
        self.assertTrue(data.startswith(BINARY_MAGIC))
        # A sample of cuts across the whole file, the last byte included.
        for size in sorted({0, 1, 7, 8, 11, 12, 13, len(data) // 3, len(data) // 2, len(data) - 2, len(data) - 1}):
            with self.subTest(size=size):
                cut = self.write(f"cut{size}.bin", data[:size])
                line = self.assertFails(run("dump", cut), cut)
                self.assertRegex(line, r"\(0x8004C104\)$")  # e_Lux_BadFileFormat
        self.assertEqual(self.dump(binary), GRAPH_DUMP)


class ConvertTest(ArchiveCase):
    def test_formats_are_the_ones_asked_for(self):
        source = self.write("graph.xml", GRAPH)
        self.assertTrue(self.read(os.path.basename(self.convert(source, self.path("default.out")))).startswith(BINARY_MAGIC))
        plain = self.read(os.path.basename(self.convert(source, self.path("plain.out"), "--format", "xml")))
        lines = self.read(os.path.basename(self.convert(source, self.path("lines.out"), "--format", "xml-linebreaks")))
        for text in (plain, lines):
            self.assertTrue(text.startswith(b'<?xml version="1.0"?>\r\n<Root'), text[:40])
        self.assertEqual(plain.count(b"\n"), 1)  # the declaration's line only
        self.assertIn(b'\r\n\t<Object ProgID="Tessaly.LuxCollection.1" id="1">\r\n\t\t<Item0 dt:dt="i4">-7</Item0>', lines)
        # Shared objects are written once and referred to after that.
        self.assertEqual(plain.count(b'id="2"'), 1)
        self.assertEqual(plain.count(b'idref="2"'), 1)

    def test_binary_round_trip_is_stable(self):
        source = self.write("graph.xml", GRAPH)
        first = self.convert(source, self.path("first.bin"))
        back = self.convert(first, self.path("back.xml"), "--format", "xml")
        second = self.convert(back, self.path("second.bin"))
        self.assertEqual(self.read("first.bin"), self.read("second.bin"))
        # Converting a file onto itself works too.
        self.convert(second, second, "--format", "xml")
        self.assertEqual(self.read("second.bin"), self.read("back.xml"))

    def test_soap_converts_both_ways_and_dumps_the_same_tree(self):
        source = self.write("graph.xml", GRAPH)
        soap = self.convert(source, self.path("graph.soap"), "--format", "soap")
        text = self.read("graph.soap")
        self.assertTrue(text.startswith(b'<?xml version="1.0"?>\r\n<SOAP-ENV:Envelope '), text[:60])
        # One body element per object, the class named on the first of each class only; the
        # shared object written once and referred to from both places.
        self.assertEqual(text.count(b"<lux:LuxCollection id="), 2)
        self.assertEqual(text.count(b'lux:class="Tessaly.LuxCollection.1"'), 1)
        self.assertEqual(text.count(b'<lux:LuxCollection id="ref-2">'), 1)
        self.assertEqual(text.count(b'href="#ref-2"'), 2)
        self.assertEqual(self.dump(soap), GRAPH_DUMP)
        # SOAP -> binary -> SOAP gives the same bytes, and the binary is the XML's.
        binary = self.convert(soap, self.path("graph.bin"), "--format", "binary")
        self.convert(source, self.path("direct.bin"), "--format", "binary")
        self.assertEqual(self.read("graph.bin"), self.read("direct.bin"))
        self.convert(binary, self.path("again.soap"), "--format", "soap")
        self.assertEqual(self.read("again.soap"), text)
        # A damaged envelope is the input named, with the formatter's code.
        broken = self.write("broken.soap", text.replace(b'href="#ref-2"', b'href="#ref-7"'))
        line = self.assertFails(run("convert", broken, self.path("out.xml")), broken)
        self.assertRegex(line, r"\(0x80048304\)$")  # ids_LuxFormatter_UnsresolvedHref_1

    def test_failed_conversion_leaves_the_output_alone(self):
        old = self.write("out.bin", b"previous contents")
        broken = self.write("broken.xml", GRAPH.replace("</Item9>", ""))
        self.assertFails(run("convert", broken, old), broken)
        self.assertEqual(self.read("out.bin"), b"previous contents")
        self.assertFails(run("convert", self.path("missing.xml"), old), self.path("missing.xml"))
        self.assertEqual(self.read("out.bin"), b"previous contents")
        # An output that cannot be written is the file named, and nothing is left behind.
        source = self.write("graph.xml", GRAPH)
        target = self.path("no/such/dir/out.xml")
        line = self.assertFails(run("convert", source, target), target)
        self.assertIn("0x8004C100", line)
        self.assertEqual(sorted(os.listdir(self.dir)), ["broken.xml", "graph.xml", "out.bin"])


class UsageTest(ArchiveCase):
    def test_wrong_arguments_are_usage_errors(self):
        source = self.write("graph.xml", GRAPH)
        cases = [
            (("dump",), "usage: tessaly dump FILE"),
            (("dump", source, source), "usage: tessaly dump FILE"),
            (("convert", source), "usage: tessaly convert IN OUT"),
            (("convert", source, self.path("a"), self.path("b")), "usage: tessaly convert IN OUT"),
            (("convert", source, self.path("a"), "--format", "json"), "unknown format 'json'"),
            (("convert", source, self.path("a"), "--format=XML"), "unknown format 'XML'"),
            (("convert", source, self.path("a"), "--level", "9"), "unknown option '--level'"),
            (("convert", source, self.path("a"), "--format"), "usage: tessaly convert IN OUT"),
        ]
        for args, message in cases:
            with self.subTest(args=args[1:]):
                result = run(*args)
                self.assertEqual(result.returncode, 2, result.stderr)
                self.assertEqual(result.stdout, "")
                self.assertIn(message, result.stderr)
                self.assertRegex(result.stderr, r"usage: tessaly (dump|convert) ")
        self.assertEqual(sorted(os.listdir(self.dir)), ["graph.xml"])  # nothing was written

    def test_help_lists_the_commands(self):
        result = run("help")
        self.assertEqual(result.returncode, 0)
        self.assertTrue(re.search(r"^  dump FILE ", result.stdout, re.M), result.stdout)
        self.assertTrue(re.search(r"^  convert IN OUT ", result.stdout, re.M), result.stdout)


if __name__ == "__main__":
    unittest.main()
