#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets into fuzz/corpus/<target>/.

Each seed is a valid input in its target's layout (see the comment at the
top of each *_fuzzer.cc): a few header bytes that pick the case, then the
payload. Frames that a fuzzer should find compressed tiles in are made by
the pelcast binary given on the command line, from small gradient images.

    fuzz/make_seeds.py build/release/pelcast

The output is deterministic; re-running it rewrites the same files.
"""
import os
import random
import struct
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
CORPUS = os.path.join(HERE, "corpus")


def write(target, name, data):
    folder = os.path.join(CORPUS, target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as out:
        out.write(bytes(data))


def gradient(count, step=3, seed=0):
    return bytes((seed + i * step + (i // 64) * 5) & 0xFF for i in range(count))


def run_pelcast(pelcast, letter, data, width, height):
    """Encodes `data` with command H or N; returns the ZPAK file's bytes."""
    with tempfile.TemporaryDirectory() as work:
        source = os.path.join(work, "in")
        target = os.path.join(work, "out")
        with open(source, "wb") as out:
            out.write(data)
        subprocess.run([pelcast, letter, source, target, str(width), str(height)],
                       stdout=subprocess.DEVNULL, check=True)
        with open(target, "rb") as result:
            return result.read()


def u16(value):
    return list(struct.pack("<H", value))


# ---------------------------------------------------------------- tiles --
# Layout: plane kind, metadata byte, up to 256 staged bytes.
TILE_KINDS = 14  # entries of kKinds in tile_decoder_fuzzer.cc


def tile_seeds(rng):
    noise = bytes(rng.randrange(256) for _ in range(256))
    for kind in range(TILE_KINDS):
        write("tile_decoder", f"kind{kind:02}-raw", [kind, 31] + list(noise))
        write("tile_decoder", f"kind{kind:02}-zero-codes", [kind, 19] + [0x40] * 8)
        write("tile_decoder", f"kind{kind:02}-noise", [kind, 27] + list(noise))
    write("tile_decoder", "rgb565-raw23", [3, 23] + list(noise[:128]))
    write("tile_decoder", "meta255", [0, 255] + list(noise))


# --------------------------------------------------------------- frames --
# Layout: format (0 NV12, 1 RGBA8888, 2 RGB565), width (2 bytes), height,
# swizzleEnable, addressingMode, altAddressing, bypass byte (0 = bypass),
# enable byte (0 = disabled), bankBit - 14, surface-format byte (1 = the
# command's), fill (0 repeated, 1 zero-padded, 2 truncated), frame bytes.

def frame_header(fmt, width, height, swizzle=1, mode=1, alt=0, bypass=1, enable=1, bank=15,
                 fill=1):
    return [fmt] + u16(width) + [height, swizzle, mode, alt, bypass, enable, bank - 14, 1, fill]


def frame_seeds(pelcast, rng):
    rgba = run_pelcast(pelcast, "H", gradient(64 * 16 * 4), 64, 16)
    nv12 = run_pelcast(pelcast, "N", gradient(64 * 32 * 3 // 2, 1), 64, 32)
    odd = run_pelcast(pelcast, "N", gradient(33 * 9 + 34 * 5, 2), 33, 9)
    noise = bytes(rng.randrange(256) for _ in range(2048))
    write("frame_decoder", "rgba-64x16", frame_header(1, 64, 16) + list(rgba))
    write("frame_decoder", "rgba-64x16-truncated", frame_header(1, 64, 16, fill=2) + list(rgba[:6000]))
    write("frame_decoder", "nv12-64x32", frame_header(0, 64, 32) + list(nv12))
    write("frame_decoder", "nv12-33x9", frame_header(0, 33, 9) + list(odd))
    write("frame_decoder", "nv12-noswizzle", frame_header(0, 160, 40, swizzle=0, mode=0) + list(noise))
    write("frame_decoder", "rgb565-64x16", frame_header(2, 64, 16, fill=0) + list(noise))
    write("frame_decoder", "rgb565-alt", frame_header(2, 300, 20, alt=1, fill=0) + list(noise))
    write("frame_decoder", "rgba-alt-bank30", frame_header(1, 130, 33, alt=1, bank=30, fill=0) + list(noise))
    write("frame_decoder", "disabled", frame_header(1, 16, 4, enable=0) + list(noise[:64]))
    write("frame_decoder", "bypass", frame_header(0, 16, 4, bypass=0) + list(noise[:64]))


# -------------------------------------------------------------- encoder --
# Layout: mode (0-3 tiles: RGBA8888, NV12 luma, NV12 chroma, RGB565;
# 4-6 frames: RGBA8888, NV12, RGB565). Tiles: image mode (low 3 bits:
# 0 raw bytes, else the step shift of a smooth image), image bytes, then
# the bytes staged after the stored units. Frames: width - 1 (2 bytes),
# height - 1, swizzleEnable, addressingMode, altAddressing, bankBit - 14,
# then the image as for tiles (NV12: luma image, then chroma image).

def encoder_seeds(rng):
    noise = bytes(rng.randrange(256) for _ in range(1024))
    for mode in range(4):
        write("encoder_roundtrip", f"tile{mode}-raw", [mode, 0] + list(noise[:256]))
        write("encoder_roundtrip", f"tile{mode}-smooth", [mode, 3] + list(noise[:256]))
        write("encoder_roundtrip", f"tile{mode}-flat", [mode, 7] + [0] * 256)
    sizes = [(64, 16), (33, 9), (130, 65), (1, 1)]
    for mode in range(4, 7):
        for width, height in sizes:
            header = [mode] + u16(width - 1) + [height - 1, 1, 1, 0, 1]
            write("encoder_roundtrip", f"frame{mode}-{width}x{height}", header + [4] + list(noise))
        write("encoder_roundtrip", f"frame{mode}-alt-noswizzle",
              [mode] + u16(95) + [20, 0, 0, 1, 16] + [0] + list(noise))


# --------------------------------------------------------- command line --
# Layout: command index, argc - 1, input choice, output choice, four
# numbers, split byte, then the input file's bytes followed by the second
# file's. A small number n is a kind byte 0 and the two bytes n + 8.

COMMANDS = ["U", "G", "B", "H", "N", "P", "I", "C", "E", "T", "S", "R", "Uxyz", "Hello", "X",
            "u", "", "h"]


def number(value):
    return [0] + u16(value + 8)


def command_seed(name, letter, numbers, first, second=b"", output=0, argc=None):
    values = list(numbers) + [0] * (4 - len(numbers))
    count = argc if argc is not None else 4 + len(numbers)
    split = 255 if not second else 255 * len(first) // (len(first) + len(second))
    data = [COMMANDS.index(letter), count - 1, 0, output]
    for value in values:
        data += number(value)
    data.append(split)
    write("command_line", name, data + list(first) + list(second))


def command_seeds(pelcast, rng):
    rgba = run_pelcast(pelcast, "H", gradient(64 * 16 * 4), 64, 16)
    nv12 = run_pelcast(pelcast, "N", gradient(64 * 32 * 3 // 2, 1), 64, 32)
    noise = bytes(rng.randrange(256) for _ in range(8192))
    command_seed("U-64x32", "U", [64, 32], nv12)
    command_seed("G-64x16", "G", [64, 16], rgba)
    command_seed("B-64x16", "B", [64, 16], noise)
    command_seed("H-16x4", "H", [16, 4], gradient(16 * 4 * 4 * 2))
    command_seed("N-16x8", "N", [16, 8], gradient((16 * 8 + 16 * 4) * 2, 1))
    command_seed("P-4x4", "P", [4, 4], noise[:48])
    command_seed("I-4x4", "I", [4, 4], noise[:48])
    command_seed("C-8x8-to-4x4", "C", [8, 8, 4, 4], noise[:192])
    command_seed("E-8x8", "E", [8, 8], noise[:4096])
    command_seed("T-4x4-2", "T", [4, 4, 2], noise[:96])
    command_seed("S-4x4", "S", [4, 4], noise[:48], noise[:40] + noise[200:208])
    command_seed("R-4x4-8x8", "R", [4, 4, 8, 8], noise[:48], noise[:192])
    command_seed("U-same-file", "U", [64, 32], nv12, output=1)
    command_seed("H-symlink", "H", [16, 4], gradient(256), output=5)
    command_seed("G-no-numbers", "G", [], rgba, argc=4)


def identify_seeds(pelcast):
    """Settings byte, name length, name, then frames the commands encoded."""
    rgba = run_pelcast(pelcast, "H", gradient(64 * 16 * 4), 64, 16)
    nv12 = run_pelcast(pelcast, "N", gradient(64 * 32 * 3 // 2, 1), 64, 32)
    odd = run_pelcast(pelcast, "N", gradient(33 * 9 + 34 * 5, 2), 33, 9)
    cases = [
        ("rgba", 0, b"ui_64x16_rgba.bin", rgba),
        ("nv12-two", 0, b"cam.nv12", nv12 + nv12),
        ("odd", 4, b"", odd),
        ("nv12-only", 1, b"1080p.raw", nv12),
        ("torn", 0, b"x", rgba + bytes(100)),
    ]
    for name, settings, filename, data in cases:
        write("identify", name, bytes([settings, len(filename)]) + filename + data)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    pelcast = os.path.abspath(sys.argv[1])
    rng = random.Random(20240611)
    tile_seeds(rng)
    frame_seeds(pelcast, rng)
    encoder_seeds(rng)
    command_seeds(pelcast, rng)
    identify_seeds(pelcast)


if __name__ == "__main__":
    main()
