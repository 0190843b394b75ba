#!/usr/bin/env python3
"""Writes the seed corpora of the image loaders' fuzz targets (corpus/png, corpus/tiff,
corpus/pnm, corpus/jpeg).

    tests/fuzz/make_image_corpus.py

Every seed is made here byte by byte: PNG chunks around zlib streams, TIFF directories
around raw, PackBits or deflated strips, netpbm headers and rasters, and baseline JPEG
files of flat blocks (one-code Huffman tables). Names say what each is: valid-* must
load, broken-* must fail (tests_imagefile checks both), finding-* are inputs a fuzzer
found and are kept when the seeds are written again."""

import os
import struct
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
CORPUS = os.path.join(HERE, "corpus")


def pattern(count, seed=1):
    """`count` bytes of a fixed pseudo-random sequence."""
    state = seed
    out = bytearray()
    for _ in range(count):
        state = (state * 1103515245 + 12345) & 0x7FFFFFFF
        out.append(state >> 16 & 0xFF)
    return bytes(out)


# PNG

def chunk(kind, data):
    body = kind + data
    return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)


ADAM7 = [(0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4), (1, 0, 2, 2), (0, 1, 1, 2)]


def png(width, height, depth, colour, pixels, extra=(), interlace=False):
    """`pixels`: rows of packed samples (bytes per row as the PNG layout has them)."""
    channels = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}[colour]
    bits = depth * channels
    row_bytes = (width * bits + 7) // 8
    rows = [pixels[y * row_bytes:(y + 1) * row_bytes] for y in range(height)]
    if not interlace:
        raw = b"".join(b"\x00" + row for row in rows)
    else:
        assert bits % 8 == 0, "interlaced seeds are whole bytes a pixel"
        step = bits // 8
        raw = b""
        for x0, y0, dx, dy in ADAM7:
            for y in range(y0, height, dy):
                line = b"".join(rows[y][x * step:(x + 1) * step] for x in range(x0, width, dx))
                if line:
                    raw += b"\x00" + line
    header = struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, 1 if interlace else 0)
    out = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header)
    for kind, data in extra:
        out += chunk(kind, data)
    return out + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b"")


def png_seeds():
    seeds = {
        "valid-grey8.png": png(13, 7, 8, 0, pattern(13 * 7)),
        "valid-grey1.png": png(19, 3, 1, 0, pattern(3 * 3)),
        "valid-grey2.png": png(9, 4, 2, 0, pattern(3 * 4)),
        "valid-grey4.png": png(5, 5, 4, 0, pattern(3 * 5)),
        "valid-grey16.png": png(6, 4, 16, 0, pattern(12 * 4)),
        "valid-grey-alpha.png": png(4, 4, 8, 4, pattern(8 * 4)),
        "valid-grey-alpha16.png": png(3, 2, 16, 4, pattern(12 * 2)),
        "valid-rgb8.png": png(7, 5, 8, 2, pattern(21 * 5)),
        "valid-rgb16.png": png(3, 3, 16, 2, pattern(18 * 3)),
        "valid-rgba.png": png(4, 3, 8, 6, pattern(16 * 3)),
        "valid-palette.png": png(8, 4, 4, 3, bytes(b % 0x33 for b in pattern(16)),
                                 [(b"PLTE", pattern(3 * 4, 5)), (b"tRNS", b"\x80\x00")]),
        "valid-grey-trns.png": png(4, 2, 8, 0, pattern(8), [(b"tRNS", b"\x00\x07")]),
        "valid-interlaced-grey.png": png(11, 9, 8, 0, pattern(99), interlace=True),
        "valid-interlaced-rgb.png": png(9, 10, 8, 2, pattern(270), interlace=True),
        "valid-text.png": png(2, 2, 8, 0, b"\x01\x02\x03\x04",
                              [(b"tEXt", b"Comment\x00seed"), (b"zTXt", b"Note\x00\x00" + zlib.compress(b"x" * 50))]),
    }
    whole = png(16, 16, 8, 0, pattern(256))
    seeds["broken-truncated.png"] = whole[:len(whole) // 2]
    seeds["broken-no-iend.png"] = whole[:-12]
    seeds["broken-bad-depth.png"] = png(2, 2, 8, 0, b"\x00" * 4).replace(
        struct.pack(">IIBB", 2, 2, 8, 0), struct.pack(">IIBB", 2, 2, 3, 0))
    return seeds


# TIFF (little-endian unless `big`)

def tiff(pages, big=False):
    """pages: dicts with width, height, bits, samples, photometric, strips (list of bytes),
    and optional planar, compression, rows_per_strip, extra {tag: (type, [values])}."""
    order = ">" if big else "<"
    out = bytearray(b"MM\x00\x2a" if big else b"II\x2a\x00") + b"\x00\x00\x00\x00"
    next_pointer = 4
    for page in pages:
        offsets, counts = [], []
        for strip in page["strips"]:
            offsets.append(len(out))
            counts.append(len(strip))
            out += strip
        if len(out) % 2:
            out += b"\x00"
        entries = {
            256: (4, [page["width"]]), 257: (4, [page["height"]]),
            258: (3, [page["bits"]] * page["samples"]), 259: (3, [page.get("compression", 1)]),
            262: (3, [page["photometric"]]), 273: (4, offsets), 277: (3, [page["samples"]]),
            278: (4, [page.get("rows_per_strip", page["height"])]), 279: (4, counts),
            284: (3, [page.get("planar", 1)]),
        }
        entries.update(page.get("extra", {}))
        directory = len(out)
        struct.pack_into(order + "I", out, next_pointer, directory)
        outside = directory + 2 + 12 * len(entries) + 4
        outside_data = bytearray()
        out += struct.pack(order + "H", len(entries))
        for tag in sorted(entries):
            kind, values = entries[tag]
            code = "H" if kind == 3 else "I"
            data = b"".join(struct.pack(order + code, v) for v in values)
            out += struct.pack(order + "HHI", tag, kind, len(values))
            if len(data) <= 4:
                out += data.ljust(4, b"\x00")
            else:
                out += struct.pack(order + "I", outside + len(outside_data))
                outside_data += data
        next_pointer = len(out)
        out += b"\x00\x00\x00\x00" + outside_data
    return bytes(out)


def packbits(data):
    out = b""
    for start in range(0, len(data), 128):
        piece = data[start:start + 128]
        out += bytes([len(piece) - 1]) + piece
    return out


def grey16(values, big):
    return b"".join(struct.pack(">H" if big else "<H", v) for v in values)


def tiff_seeds():
    grey = pattern(10 * 6)
    rgb = pattern(5 * 4 * 3, 3)
    seeds = {
        "valid-grey8.tif": tiff([dict(width=10, height=6, bits=8, samples=1, photometric=1, strips=[grey])]),
        "valid-grey8-strips.tif": tiff([dict(width=10, height=6, bits=8, samples=1, photometric=1, rows_per_strip=2,
                                             strips=[grey[0:20], grey[20:40], grey[40:60]])]),
        "valid-miniswhite.tif": tiff([dict(width=10, height=6, bits=8, samples=1, photometric=0, strips=[grey])]),
        "valid-grey16-big.tif": tiff([dict(width=4, height=3, bits=16, samples=1, photometric=1,
                                           strips=[grey16(range(0, 60000, 5000), True)])], big=True),
        "valid-grey16.tif": tiff([dict(width=4, height=3, bits=16, samples=1, photometric=1,
                                       strips=[grey16(range(300, 312), False)])]),
        "valid-bilevel.tif": tiff([dict(width=12, height=3, bits=1, samples=1, photometric=0, strips=[pattern(6)])]),
        "valid-rgb.tif": tiff([dict(width=5, height=4, bits=8, samples=3, photometric=2, strips=[rgb])]),
        "valid-rgba.tif": tiff([dict(width=3, height=2, bits=8, samples=4, photometric=2, strips=[pattern(24)],
                                     extra={338: (3, [2])})]),
        "valid-rgb-planar.tif": tiff([dict(width=5, height=4, bits=8, samples=3, photometric=2, planar=2,
                                           strips=[rgb[0:20], rgb[20:40], rgb[40:60]])]),
        "valid-packbits.tif": tiff([dict(width=10, height=6, bits=8, samples=1, photometric=1, compression=32773,
                                         strips=[packbits(grey)])]),
        "valid-deflate.tif": tiff([dict(width=10, height=6, bits=8, samples=1, photometric=1, compression=8,
                                        strips=[zlib.compress(grey)])]),
        "valid-two-pages.tif": tiff([dict(width=10, height=6, bits=8, samples=1, photometric=1, strips=[grey]),
                                     dict(width=5, height=4, bits=8, samples=3, photometric=2, strips=[rgb])]),
        "broken-twelve-bit.tif": tiff([dict(width=2, height=2, bits=12, samples=1, photometric=1,
                                            strips=[pattern(6)])]),
        "broken-palette.tif": tiff([dict(width=2, height=2, bits=8, samples=1, photometric=3, strips=[pattern(4)],
                                         extra={320: (3, [0] * 768)})]),
        "broken-float.tif": tiff([dict(width=2, height=1, bits=32, samples=1, photometric=1, strips=[pattern(8)],
                                       extra={339: (3, [3])})]),
    }
    whole = seeds["valid-grey8-strips.tif"]
    seeds["broken-truncated.tif"] = whole[:len(whole) - 40]
    seeds["broken-strip-past-end.tif"] = tiff([dict(width=10, height=6, bits=8, samples=1, photometric=1,
                                                    rows_per_strip=3, strips=[grey[0:30]],
                                                    extra={273: (4, [8, 9000]), 279: (4, [30, 30])})])
    return seeds


# PGM / PPM

def pnm_seeds():
    grey = pattern(7 * 5)
    seeds = {
        "valid-p5.pgm": b"P5\n7 5\n255\n" + grey,
        "valid-p5-comments.pgm": b"P5 # size next\n7 # width\n5\n# maxval\n255\n" + grey,
        "valid-p5-16.pgm": b"P5\n3 2\n65535\n" + pattern(12),
        "valid-p5-maxval.pgm": b"P5 4 1 1000\n" + b"\x00\x01\x03\xe8\x01\x00\x02\x00",
        "valid-p2.pgm": b"P2\n# plain\n4 3\n15\n" + b" ".join(str(b % 16).encode() for b in pattern(12)) + b"\n",
        "valid-p2-16.pgm": b"P2 2 2 40000 0 39999\n40000 7\n",
        "valid-p6.ppm": b"P6\n4 3\n255\n" + pattern(36),
        "valid-p3.ppm": b"P3 2 2 255\n" + b" ".join(str(b).encode() for b in pattern(12)) + b"\n",
        "broken-truncated.pgm": b"P5\n7 5\n255\n" + grey[:20],
        "broken-above-maxval.pgm": b"P2 2 1 10 3 11\n",
        "broken-huge.pgm": b"P5 100000 100000 255\n" + pattern(16),
        "broken-p4.pbm": b"P4 8 1\n\x55",
    }
    return seeds


# JPEG: baseline, 8-bit, every block flat (DC difference 0 then end of block).

def segment(marker, payload):
    return bytes([0xFF, marker]) + struct.pack(">H", len(payload) + 2) + payload


def jpeg(width, height, components, restart=0):
    out = b"\xff\xd8"
    out += segment(0xDB, b"\x00" + bytes([1] * 64))
    sof = struct.pack(">BHHB", 8, height, width, components)
    for c in range(components):
        sof += bytes([c + 1, 0x11, 0])
    out += segment(0xC0, sof)
    one_code = bytes([1] + [0] * 15) + b"\x00"  # one code of length 1, for symbol 0
    out += segment(0xC4, b"\x00" + one_code) + segment(0xC4, b"\x10" + one_code)
    if restart:
        out += segment(0xDD, struct.pack(">H", restart))
    sos = bytes([components]) + b"".join(bytes([c + 1, 0x00]) for c in range(components)) + b"\x00\x3f\x00"
    out += segment(0xDA, sos)
    mcus = ((width + 7) // 8) * ((height + 7) // 8)
    if restart:
        # Each interval: its MCUs' two zero bits a block, padded with ones, then RSTn.
        data = b""
        for start in range(0, mcus, restart):
            bits = 2 * components * min(restart, mcus - start)
            nbytes = (bits + 7) // 8
            data += b"\x00" * (nbytes - 1) + bytes([(0xFF >> (bits - 8 * (nbytes - 1))) & 0xFF])
            if start + restart < mcus:
                data += bytes([0xFF, 0xD0 + (start // restart) % 8])
    else:
        bits = 2 * components * mcus
        nbytes = (bits + 7) // 8
        data = b"\x00" * (nbytes - 1) + bytes([(0xFF >> (bits - 8 * (nbytes - 1))) & 0xFF])
    return out + data + b"\xff\xd9"


def jpeg_seeds():
    seeds = {
        "valid-grey.jpg": jpeg(16, 16, 1),
        "valid-colour.jpg": jpeg(24, 8, 3),
        "valid-odd-size.jpg": jpeg(13, 9, 3),
        "valid-restarts.jpg": jpeg(32, 16, 1, restart=2),
    }
    whole = jpeg(64, 64, 3)
    seeds["broken-truncated.jpg"] = whole[:len(whole) - 20]
    seeds["broken-header-only.jpg"] = whole[:40]
    return seeds


def main():
    for folder, seeds in (("png", png_seeds()), ("tiff", tiff_seeds()), ("pnm", pnm_seeds()), ("jpeg", jpeg_seeds())):
        path = os.path.join(CORPUS, folder)
        os.makedirs(path, exist_ok=True)
        for name in os.listdir(path):
            if not name.startswith("finding-"):
                os.remove(os.path.join(path, name))
        for name, data in seeds.items():
            with open(os.path.join(path, name), "wb") as f:
                f.write(data)
        print(f"{folder}: {len(seeds)} seeds")


if __name__ == "__main__":
    main()
