#!/usr/bin/env python3
"""Writes the seed corpora of the archive loaders' fuzz targets.

    tests/fuzz/make_corpus.py build-cli/bin/tessaly

Valid seeds are XML documents written here by hand, and their conversions by
`tessaly convert` into the line-break layout, the binary format and SOAP, beside SOAP
envelopes written by hand; broken seeds are documents and archives damaged in one way each. File names say which is which: valid-*
must load, broken-* must fail (tests_hostile checks both), edge-* may do either, finding-*
are inputs a fuzzer found; every one must load or fail cleanly. Existing finding-* files
are kept."""

import os
import struct
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
CORPUS = os.path.join(HERE, "corpus")
COLLECTION = "Tessaly.LuxCollection.1"
STRINGS = "Tessaly.LuxStringCollection.1"


def document(root):
    return ('<?xml version="1.0"?>\r\n<Root xmlns:dt="urn:schemas-microsoft-com:datatypes">'
            + root + "</Root>")


def obj(element, object_id, *items, progid=COLLECTION):
    return f'<{element} ProgID="{progid}" id="{object_id}">' + "".join(items) + f"</{element}>"


def root(*items, progid=COLLECTION):
    return document(obj("Object", 1, *items, progid=progid))


def typed(name, dt, text):
    return f'<{name} dt:dt="{dt}">{text}</{name}>'


def nested(depth):
    body = typed("Item0", "i4", depth)
    for level in range(depth, 1, -1):
        body = obj("Item0", level, body, f"<Key0>level{level}</Key0>")
    return root(body)


VALID = {
    "scalars": root(
        typed("Item0", "i1", -128), typed("Item1", "ui1", 255), typed("Item2", "i2", -32768),
        typed("Item3", "ui2", 65535), typed("Item4", "i4", -2147483648), typed("Item5", "ui4", 4294967295),
        typed("Item6", "i8", -9223372036854775808), typed("Item7", "ui8", 18446744073709551615),
        typed("Item8", "int", 7), typed("Item9", "uint", 8), typed("Item10", "r4", "3.4028235e38"),
        typed("Item11", "r8", "1.#INF"), typed("Item12", "r8", "-2.5e-308"), typed("Item13", "fixed.14.4", "-12.3456"),
        typed("Item14", "dateTime", "2024-02-29T12:30:45.125"), typed("Item15", "boolean", 1),
        typed("Item16", "error", -2147467259), "<Item17>a &lt;b&gt; &amp; &#65;&#x42; \u00e9</Item17>",
        '<Item18 dt:dt="empty"/>', '<Item19 dt:dt="null"/>', "<Item20></Item20>", "<Key20>empty text</Key20>"),
    "nested": nested(4),
    "deep": nested(60),
    "shared": root(
        obj("Item0", 2, typed("Item0", "r8", 0.5), "<Item1>shared</Item1>"),
        '<Item1 idref="2"/>', "<Key1>again</Key1>",
        '<Item2 ArrayType="variant" ArrayBounds="0:1"><Item idref="2"/><Item idref="2"/></Item2>'),
    "cycle-root": root(obj("Item0", 2, '<Item0 idref="1"/>', '<Item1 idref="2"/>'), '<Item1 idref="1"/>'),
    "cycle-children": root(
        obj("Item0", 2, obj("Item0", 3, '<Item0 idref="2"/>', '<Item1 idref="3"/>'), '<Item1 idref="3"/>'),
        '<Item1 idref="3"/>'),
    "arrays": root(
        '<Item0 ArrayType="ui1" ArrayBounds="0:15" dt:dt="bin.base64">AAECAwQFBgcICQoLDA0ODw==</Item0>',
        '<Item1 ArrayType="i4" ArrayBounds="0:1,1:3">1 -2 3 -4 5 -6</Item1>',
        '<Item2 ArrayType="r8" ArrayBounds="-2:0">0.25 1.#INF -0</Item2>',
        '<Item3 ArrayType="string" ArrayBounds="0:2"><Item>one</Item><Item/><Item>th&lt;ree</Item></Item3>',
        '<Item4 ArrayType="i2" ArrayBounds="0:-1"/>', '<Item5 ArrayType="r4" ArrayBounds=""/>',
        '<Item6 ArrayType="boolean">1 0 1</Item6>', '<Item7 ArrayType="dateTime">2000-01-01 1999-12-31T23:59:59</Item7>',
        '<Item8 ArrayType="fixed.14.4" ArrayBounds="0:1">1.5 -0.0001</Item8>',
        '<Item9 ArrayType="ui8" ArrayBounds="0:0,0:0,0:1">0 18446744073709551615</Item9>'),
    "object-arrays": root(
        '<Item0 ArrayType="variant" ArrayBounds="0:3"><Item dt:dt="i4">5</Item>'
        + obj("Item", 2, "<Item0>inner</Item0>")
        + '<Item ArrayType="variant" ArrayBounds="0:1"><Item idref="2"/><Item ArrayType="i4">1 2</Item></Item>'
        + '<Item dt:dt="empty"/></Item0>',
        '<Item1 ArrayType="object" ArrayBounds="1:3"><Item idref="0"/><Item idref="1"/>'
        + obj("Item", 3, typed("Item0", "boolean", 0)) + "</Item1>",
        '<Item2 ArrayType="unknown" ArrayBounds="0:0"><Item idref="3"/></Item2>'),
    "strings": root(
        obj("Item0", 2, "<Item0>alpha</Item0>", "<Key0>a</Key0>", "<Item1>beta</Item1>", "<Item2>" + "x" * 200 + "</Item2>",
            "<Key2>long</Key2>", progid=STRINGS),
        obj("Item1", 3, progid=STRINGS)),
    "empty": root(),
    "null-objects": root('<Item0 idref="0"/>', '<Item1 ArrayType="object" ArrayBounds="0:1"><Item idref="0"/><Item idref="0"/></Item1>'),
}

# Documents only XML has: references by href, ignored attributes, text and elements,
# comments, CDATA, a byte-order mark, another top element name, ProgID NULL.
XML_ONLY = {
    "href": root(obj("Item0", 2), '<Item1 href="#2"/>', '<Item2 href="2"/>'),
    "ignored": document('<!-- saved by hand --><Object ProgID="Tessaly.LuxCollection" id="1" note="x">text'
                        '<Item0><![CDATA[<raw> & text]]></Item0><?pi ignored?></Object><After/>'),
    "bom": "\ufeff" + root("<Item0>bom</Item0>"),
    "top-name": '<?xml version="1.0"?><Settings><Object ProgID="{B809278B-0289-46F7-9589-972AA350300E}" id="1"/></Settings>',
    "null-progid": root('<Item0 ProgID="NULL" id="2"/>', '<Item1 idref="2"/>'),
}

BROKEN_XML = {
    "cut": VALID["shared"][:-40],
    "mismatch": root("<Item0>a</Item1>"),
    "unknown-class": root(obj("Item0", 2, progid="Tessaly.NoSuchClass")),
    "duplicate-id": root(obj("Item0", 2), obj("Item1", 2)),
    "unresolved": root('<Item0 idref="9"/>'),
    "forward-reference": root('<Item0 idref="2"/>', obj("Item1", 2)),
    "bad-number": root(typed("Item0", "i4", "12x")),
    "overflow": root(typed("Item0", "ui1", 256)),
    "bad-type": root(typed("Item0", "i5", 1)),
    "bad-base64": root('<Item0 ArrayType="ui1" ArrayBounds="0:3" dt:dt="bin.base64">A*==</Item0>'),
    "short-base64": root('<Item0 ArrayType="ui1" ArrayBounds="0:15" dt:dt="bin.base64">AAEC</Item0>'),
    "bound-separator": root('<Item0 ArrayType="i4" ArrayBounds="0;3">1 2 3 4</Item0>'),
    "bounds-huge": root('<Item0 ArrayType="i4" ArrayBounds="0:1048575,0:1048575">1</Item0>'),
    "bounds-count": root('<Item0 ArrayType="i4" ArrayBounds="0:3">1 2 3</Item0>'),
    "doctype": '<?xml version="1.0"?><!DOCTYPE r [<!ENTITY a "aaaa">]><Root><Object ProgID="Tessaly.LuxCollection" id="1"/></Root>',
    "char-ref": root("<Item0>&#x110000;</Item0>"),
    "entity": root("<Item0>&nbsp;</Item0>"),
    "no-object": document("<Item0>7</Item0>"),
    "string-item-object": root(obj("Item0", 2, '<Item0 idref="1"/>', progid=STRINGS)),
    "attribute": root('<Item0 dt:dt=i4>1</Item0>'),
}


SOAP_HEAD = ('<?xml version="1.0"?>\r\n<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" '
             'xmlns:SOAP-ENC="http://schemas.xmlsoap.org/soap/encoding/" '
             'xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:xsd="http://www.w3.org/2001/XMLSchema" '
             'xmlns:lux="urn:schemas-tessaly:classes" '
             'SOAP-ENV:encodingStyle="http://schemas.xmlsoap.org/soap/encoding/"><SOAP-ENV:Body>')


def envelope(*objects):
    return SOAP_HEAD + "".join(objects) + "</SOAP-ENV:Body></SOAP-ENV:Envelope>"


def soap_obj(object_id, *values, tag="lux:LuxCollection", progid=None):
    named = f' lux:class="{progid}"' if progid else ""
    return f'<{tag} id="ref-{object_id}"{named}>' + "".join(values) + f"</{tag}>"


def soap_root(*values, more=()):
    return envelope(soap_obj(1, *values, progid=COLLECTION), *more)


# Envelopes only SOAP has: references forward from values and arrays, objects out of order,
# a header and ignored pieces, typed and untyped values side by side.
SOAP_ONLY = {
    "forward": soap_root(
        '<Item0 href="#ref-3"/>',
        '<Item1 xsi:type="SOAP-ENC:Array" SOAP-ENC:arrayType="xsd:anyType[2]"><item>1</item>'
        '<item SOAP-ENC:arrayType="xsd:anyType[1]"><item href="#ref-2"/></item></Item1>',
        '<Item2 SOAP-ENC:arrayType="lux:unknown[2]"><item href="#ref-3"/><item xsi:nil="true"/></Item2>',
        more=[soap_obj(3, "<Item0>three</Item0>", tag="lux:Strings", progid=STRINGS),
              soap_obj(2, '<Item0 href="#ref-1"/>')]),
    "header": '<?xml version="1.0"?><!-- by hand -->\n<SOAP-ENV:Envelope><SOAP-ENV:Header><s>1</s></SOAP-ENV:Header>'
              '<SOAP-ENV:Body>\n<lux:C id="ref-1" lux:class="{B809278B-0289-46F7-9589-972AA350300E}" note="x">text'
              '<Item0><![CDATA[<raw> & text]]></Item0><Item1 xsi:type="xsd:int"> 12 </Item1></lux:C>'
              '</SOAP-ENV:Body><After/></SOAP-ENV:Envelope>',
    "typed": soap_root(
        "<Item0>5</Item0>", '<Item1 xsi:type="xsd:string">5</Item1>', "<Item2>0.5</Item2>",
        '<Item3 xsi:type="xsd:double">2</Item3>', "<Item4>true</Item4>", '<Item5 xsi:type="lux:empty"/>',
        '<Item6 xsi:type="xsd:dateTime">2024-02-29T12:30:45.125</Item6>', '<Item7 xsi:type="xsd:decimal">-1.5</Item7>',
        '<Item8 xsi:type="xsd:base64Binary" SOAP-ENC:arrayType="xsd:unsignedByte[2,2]" lux:lowerBounds="-1,0">'
        "AAECAw==</Item8>",
        '<Item9 xsi:type="SOAP-ENC:Array" SOAP-ENC:arrayType="xsd:short[2,2]" lux:lowerBounds="1,0">'
        "<item>-15</item><item>-5</item><item>5</item><item>15</item></Item9>",
        '<Item10 SOAP-ENC:arrayType="xsd:double[]"/>'),
    "null-class": soap_root('<Item0 href="#ref-2"/>', '<Item1 href="#ref-2"/>',
                            more=[soap_obj(2, tag="lux:Object", progid="NULL")]),
}

BROKEN_SOAP = {
    "no-body": '<SOAP-ENV:Envelope><SOAP-ENV:Header/></SOAP-ENV:Envelope>',
    "empty-body": envelope(),
    "no-id": envelope('<lux:LuxCollection lux:class="Tessaly.LuxCollection"/>'),
    "bad-id": envelope('<lux:LuxCollection id="ref-0" lux:class="Tessaly.LuxCollection"/>'),
    "duplicate-id": soap_root('<Item0 href="#ref-2"/>', more=[soap_obj(2), soap_obj(2)]),
    "unknown-class": envelope(soap_obj(1, tag="lux:Thing", progid="Tessaly.NoSuchThing")),
    "unnamed-class": soap_root('<Item0 href="#ref-2"/>', more=[soap_obj(2, tag="lux:Strings")]),
    "unresolved": soap_root('<Item0 href="#ref-9"/>'),
    "bad-number": soap_root('<Item0 xsi:type="xsd:int">12x</Item0>'),
    "bad-type": soap_root('<Item0 xsi:type="xsd:complex">1</Item0>'),
    "array-type": soap_root('<Item0 SOAP-ENC:arrayType="xsd:int[2;3]"><item>1</item></Item0>'),
    "array-huge": soap_root('<Item0 SOAP-ENC:arrayType="xsd:int[1048576,1048576]"><item>1</item></Item0>'),
    "array-count": soap_root('<Item0 SOAP-ENC:arrayType="xsd:int[3]"><item>1</item><item>2</item></Item0>'),
    "bad-base64": soap_root('<Item0 xsi:type="xsd:base64Binary">A*==</Item0>'),
    "short-base64": soap_root('<Item0 xsi:type="xsd:base64Binary" SOAP-ENC:arrayType="xsd:unsignedByte[16]">AAEC</Item0>'),
    "cut": soap_root('<Item0 href="#ref-2"/>', more=[soap_obj(2, "<Item0>x</Item0>")])[:-60],
}


def run(tessaly, *args):
    result = subprocess.run([tessaly, *args], capture_output=True, text=True)
    if result.returncode != 0:
        sys.exit(f"tessaly {' '.join(args)} failed: {result.stderr}")


def patch(data, old, new):
    """`data` with the first occurrence of `old` replaced by `new` (of the same length)."""
    assert len(old) == len(new) and old in data, old
    return data.replace(old, new, 1)


def u32(value):
    return struct.pack("<I", value)


def binary_broken(valid):
    """Binary archives damaged one way each, from the valid ones."""
    scalars, arrays, shared = valid["scalars"], valid["arrays"], valid["shared"]
    huge_string = patch(scalars, u32(len("empty text")) + b"empty text", u32(0xFFFFFFFF) + b"empty text")
    return {
        "magic": b"\x89TSAX" + scalars[5:],
        "version": scalars[:8] + b"\x63\x00" + scalars[10:],
        "cut": shared[: len(shared) * 2 // 3],
        "no-end": shared[:-1],
        "string-4gib": huge_string,
        "array-count": patch(arrays, u32(16) + u32(0) + bytes(range(16)), u32(0xFFFFFFFF) + u32(0) + bytes(range(16))),
        "array-dims": patch(arrays, b"\x11\x20\x01\x00" + u32(16), b"\x11\x20\xff\xff" + u32(16)),
        "unknown-type": patch(scalars, b"Item19\x01\x00", b"Item19\x0e\x00"),
        "reference": patch(shared, b"\x09\x00\x01" + u32(2), b"\x09\x00\x01" + u32(7)),
        "object-kind": patch(shared, b"\x09\x00\x01" + u32(2), b"\x09\x00\x05" + u32(2)),
        "empty": b"",
    }


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    tessaly = sys.argv[1]
    xml_dir, binary_dir = os.path.join(CORPUS, "xml"), os.path.join(CORPUS, "binary")
    soap_dir = os.path.join(CORPUS, "soap")
    for folder in (xml_dir, binary_dir, soap_dir):
        os.makedirs(folder, exist_ok=True)
        for name in os.listdir(folder):
            if not name.startswith("finding-"):
                os.remove(os.path.join(folder, name))

    def write(folder, name, content):
        with open(os.path.join(folder, name), "wb") as f:
            f.write(content.encode() if isinstance(content, str) else content)

    binaries = {}
    with tempfile.TemporaryDirectory() as work:
        for name, text in {**VALID, **XML_ONLY}.items():
            source = os.path.join(work, name + ".xml")
            write(work, name + ".xml", text)
            write(xml_dir, f"valid-{name}.xml", text)
            if name in XML_ONLY:
                continue
            lines = os.path.join(work, name + "-lines.xml")
            binary = os.path.join(work, name + ".bin")
            soap = os.path.join(work, name + ".soap")
            run(tessaly, "convert", source, lines, "--format", "xml-linebreaks")
            run(tessaly, "convert", source, binary, "--format", "binary")
            run(tessaly, "convert", source, soap, "--format", "soap")
            with open(soap, "rb") as f:
                write(soap_dir, f"valid-{name}.soap", f.read())
            with open(lines, "rb") as f:
                write(xml_dir, f"valid-{name}-lines.xml", f.read())
            with open(binary, "rb") as f:
                binaries[name] = f.read()
            write(binary_dir, f"valid-{name}.bin", binaries[name])
    for name, text in BROKEN_XML.items():
        write(xml_dir, f"broken-{name}.xml", text)
    for name, text in SOAP_ONLY.items():
        write(soap_dir, f"valid-{name}.soap", text)
    for name, text in BROKEN_SOAP.items():
        write(soap_dir, f"broken-{name}.soap", text)
    # An XML document: the SOAP loader refuses it, detection hands it to the XML loader.
    write(soap_dir, "edge-xml-document.soap", VALID["shared"])
    for name, data in binary_broken(binaries).items():
        write(binary_dir, f"broken-{name}.bin", data)
    # Bytes after the end mark: whether a reader takes them is its choice.
    write(binary_dir, "edge-trailing.bin", binaries["shared"] + b"\x00")


if __name__ == "__main__":
    main()
