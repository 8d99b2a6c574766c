"""Helpers of the pelcast package tests: test images, the packed linear
layouts written independently of the binding, the pelcast command and the
committed test frames."""

import os
import re
import subprocess
from pathlib import Path

import numpy as np

REPOSITORY = Path(__file__).resolve().parents[2]
TEST_DATA = REPOSITORY / "tests" / "data"

# Suffixes of linear frame files and their formats.
SUFFIX_FORMATS = {".nv12": "nv12", ".rgba": "rgba8888", ".rgb565": "rgb565"}
FRAME_NAME = re.compile(r"-(\d+)x(\d+)(?:-(\d+)f)?$")

FORMATS = ("nv12", "rgba8888", "rgb565")


def nv12_columns(width):
    return width + (width & 1)


def chroma_rows(height):
    return (height + 1) // 2


def array_shape(fmt, width, height):
    if fmt == "nv12":
        return (height + chroma_rows(height), nv12_columns(width))
    if fmt == "rgba8888":
        return (height, width, 4)
    return (height, width)


def array_dtype(fmt):
    return np.dtype("<u2") if fmt == "rgb565" else np.dtype(np.uint8)


def packed_size(fmt, width, height):
    if fmt == "nv12":
        return width * height + chroma_rows(height) * nv12_columns(width)
    return width * height * (4 if fmt == "rgba8888" else 2)


def to_array(packed, fmt, width, height):
    """The array decode() gives for a packed linear frame (padding column 0)."""
    packed = bytes(packed)
    if fmt == "nv12":
        luma = width * height
        out = np.zeros(array_shape(fmt, width, height), np.uint8)
        out[:height, :width] = np.frombuffer(packed, np.uint8, luma).reshape(height, width)
        out[height:] = np.frombuffer(packed, np.uint8, offset=luma).reshape(chroma_rows(height), -1)
        return out
    return np.frombuffer(packed, array_dtype(fmt)).reshape(array_shape(fmt, width, height)).copy()


def to_packed(array, fmt, width, height):
    """The packed linear frame of an array of decode()'s layout."""
    if fmt == "nv12":
        return array[:height, :width].tobytes() + array[height:].tobytes()
    return np.ascontiguousarray(array, array_dtype(fmt)).tobytes()


# Noise amplitude of the five vertical stripes of frame_image(): flat,
# smooth, fine texture, texture, noise.
STRIPE_NOISE = (0, 0, 3, 9, 80)


def frame_image(fmt, width, height, seed):
    """Frame-like content in five vertical stripes, from a flat fill through
    gradients with a disc and bars to noise, so that tiles take every unit
    count from 1 to raw."""
    rng = np.random.default_rng(seed)
    y, x = np.mgrid[0:height, 0:width]
    stripe = np.minimum(x * len(STRIPE_NOISE) // width, len(STRIPE_NOISE) - 1)
    base = (x * 3 + y * 2 + seed * 17) % 256
    disc = ((x - width / 2) ** 2 + (y - height / 2) ** 2) < (min(width, height) / 3) ** 2
    base = np.where(disc, 255 - base // 2, base)
    base = np.where((x // 7) % 5 == 0, 40, base)
    base = np.where(stripe == 0, 90 + seed, base)
    amplitude = np.take(STRIPE_NOISE, stripe)

    def channel(offset):
        wobble = rng.integers(0, 1 << 16, size=base.shape) % (amplitude + 1)
        return ((base + offset + wobble) % 256).astype(np.uint8)

    if fmt == "rgba8888":
        return np.stack([channel(0), channel(85), channel(170), channel(7) | 0xC0], axis=-1)
    if fmt == "rgb565":
        r, g, b = channel(0) >> 3, channel(60) >> 2, channel(120) >> 3
        return ((r.astype(np.uint16) << 11) | (g.astype(np.uint16) << 5) | b).astype("<u2")
    out = np.zeros(array_shape(fmt, width, height), np.uint8)
    out[:height, :width] = channel(0)
    rows, columns = chroma_rows(height), nv12_columns(width)
    cy, cx = np.mgrid[0:rows, 0:columns]
    chroma = (cx // 2 * 5 + cy * 3 + (cx % 2) * 100 + seed) % 256
    chroma_stripe = np.minimum(cx * len(STRIPE_NOISE) // columns, len(STRIPE_NOISE) - 1)
    chroma_noise = rng.integers(0, 1 << 16, size=chroma.shape) % (np.take(STRIPE_NOISE, chroma_stripe) + 1)
    out[height:] = ((chroma + chroma_noise) % 256).astype(np.uint8)
    return out


def random_image(fmt, width, height, seed):
    """Uniform noise: every tile is stored raw."""
    rng = np.random.default_rng(seed)
    if fmt == "rgb565":
        return rng.integers(0, 1 << 16, size=(height, width), dtype=np.uint16).astype("<u2")
    out = rng.integers(0, 256, size=array_shape(fmt, width, height), dtype=np.uint8)
    if fmt == "nv12" and width % 2:
        out[:height, width] = 0
    return out


def committed_frames():
    """(path, format, width, height, frame count) of the frame files under
    tests/data, sizes read from their names (name-WxH.ext, name-WxH-Nf.ext)."""
    found = []
    if TEST_DATA.is_dir():
        for path in sorted(TEST_DATA.iterdir()):
            fmt = SUFFIX_FORMATS.get(path.suffix)
            match = FRAME_NAME.search(path.stem)
            if fmt and match:
                width, height = int(match.group(1)), int(match.group(2))
                found.append((path, fmt, width, height, int(match.group(3) or 1)))
    return found


def read_committed(path, fmt, width, height, frames):
    """The frames of a committed file as arrays of decode()'s layout."""
    data = path.read_bytes()
    size = packed_size(fmt, width, height)
    assert len(data) == size * frames, f"{path.name}: {len(data)} bytes, expected {size * frames}"
    return [to_array(data[i * size : (i + 1) * size], fmt, width, height) for i in range(frames)]


class Command:
    """The pelcast executable: one letter, one input file, one output file."""

    def __init__(self, binary, folder):
        self.binary = binary
        self.folder = folder

    def run(self, letter, data, width, height):
        source = self.folder / f"in-{letter}"
        target = self.folder / f"out-{letter}"
        source.write_bytes(data)
        target.unlink(missing_ok=True)
        subprocess.run(
            [str(self.binary), letter, str(source), str(target), str(width), str(height)],
            check=True, stdout=subprocess.DEVNULL,
        )
        return target.read_bytes()
