#!/usr/bin/env python3
"""Compares how this library and ImageMagick read the images of a folder that other programs wrote.

    tests/bitmap/compare-foreign.py PROGRAM FOLDER

PROGRAM is the built image-dump. Every TGA, BMP, PCX and JPEG file below FOLDER is read by both. Each must load with the
same pixels, or be refused although its header says that it is none of the files this library reads. Known differences:
5 bits of a 16-bit TGA are compared without the bits that ImageMagick fills in below them, entries of a TGA colour map
are taken the other way round, and JPEG may differ by 2 in a channel where the decoders differ. Exit status: 0 if all agree.
"""
import pathlib
import struct
import subprocess
import sys


def readable(kind, data):
    """Whether the header is one of a file that must load; None if only the decoder can tell."""
    if kind == "tga" and len(data) >= 18:
        mapped = data[2] == 1 and data[1] == 1 and data[7] == 24 and data[16] == 8
        plain = data[2] == 2 and data[1] == 0 and data[16] in (16, 24, 32)
        entries = struct.unpack_from("<H", data, 5)[0]
        return (plain or mapped and entries == 256) and not data[17] & 0xD0
    if kind == "bmp" and len(data) >= 54:
        size, width = struct.unpack_from("<Ii", data, 14)
        planes, bits, compression = struct.unpack_from("<HHI", data, 26)
        return data[:2] == b"BM" and size == 40 and planes == 1 and compression == 0 and bits in (8, 24) and width % 4 == 0
    if kind == "pcx" and len(data) >= 897:
        return data[1] == 5 and data[2] == 1 and data[3] == 8 and data[65] == 1 and data[-769] == 12
    return None


def magick(path):
    size = subprocess.run(["identify", "-format", "%w %h\n", path], capture_output=True, text=True).stdout.split("\n")[0]
    raw = subprocess.run(["convert", f"{path}[0]", "-auto-orient", "-depth", "8", "BGRA:-"], capture_output=True).stdout
    return size, raw


def same(kind, data, ours, theirs):
    if len(ours) != len(theirs):
        return False
    if kind == "tga" and data[2] == 1:  # red and blue exchanged
        swapped = bytearray(theirs)
        swapped[0::4], swapped[2::4] = theirs[2::4], theirs[0::4]
        theirs = bytes(swapped)
    if kind == "tga" and data[16] == 16:
        return all(a & 0xF8 == b & 0xF8 for i in range(3) for a, b in zip(ours[i::4], theirs[i::4]))
    if kind.startswith("jp"):
        return all(abs(a - b) <= 2 for a, b in zip(ours, theirs))
    return ours == theirs


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    program, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    count = dict(same=0, refused=0, different=0, wrongly_refused=0)
    for path in sorted(folder.rglob("*")):
        kind = path.suffix.lower().lstrip(".")
        if kind not in ("tga", "bmp", "pcx", "jpg", "jpeg") or not path.is_file():
            continue
        data = path.read_bytes()
        result = subprocess.run([program, path], capture_output=True)
        if result.returncode == 0:
            line, _, ours = result.stdout.partition(b"\n")
            size, theirs = magick(path)
            verdict = "same" if line.decode() == size and same(kind, data, ours, theirs) else "different"
        elif result.returncode == 1:
            verdict = "wrongly_refused" if readable(kind, data) else "refused"
        else:
            verdict = "different"
        count[verdict] += 1
        if verdict not in ("same", "refused"):
            print(f"{verdict}: {path}")
    print(", ".join(f"{k.replace('_', ' ')} {v}" for k, v in count.items()))
    return 1 if count["different"] or count["wrongly_refused"] else 0


if __name__ == "__main__":
    sys.exit(main())
