"""stats(): the planes' tile counts, units and ratio, on frames whose storage
is known (flat, noise, cleared, one metadata byte spoilt) and against
`zpak info`'s figures."""

import json
import math
import os
import subprocess
from pathlib import Path

import numpy as np
import pytest

import pelcast
from frames import REPOSITORY, array_dtype, array_shape, frame_image, random_image

# Tile size in image pixels and units of a raw tile, by format and plane.
PLANES = {
    "nv12": {"y": (32, 8, 4), "uv": (32, 16, 4)},
    "rgba8888": {"rgba": (16, 4, 4)},
    "rgb565": {"rgb565": (16, 4, 2)},
}
SIZES = [(1, 1), (33, 9), (97, 61), (256, 144), (300, 17)]
CASES = [pytest.param(fmt, w, h, id=f"{fmt}-{w}x{h}") for fmt in PLANES for w, h in SIZES
         if not (fmt == "rgb565" and w % 128 == 1)]


def tile_count(fmt, plane, width, height):
    tile_width, tile_height, _ = PLANES[fmt][plane]
    return math.ceil(width / tile_width) * math.ceil(height / tile_height)


def check_consistent(figures, raw_units_per_tile):
    compressed = sum(figures["tiles_by_units"].values())
    assert compressed + figures["raw_tiles"] + figures["bad_metadata_tiles"] == figures["tiles"]
    stored = sum(units * n for units, n in figures["tiles_by_units"].items())
    raw_like = figures["raw_tiles"] + figures["bad_metadata_tiles"]
    assert figures["units"] == stored + raw_units_per_tile * raw_like
    assert figures["raw_units"] == raw_units_per_tile * figures["tiles"]
    assert figures["ratio"] == pytest.approx(figures["units"] / figures["raw_units"])


@pytest.mark.parametrize("fmt,width,height", CASES)
def test_flat_frame_is_one_unit_a_tile(fmt, width, height):
    flat = np.full(array_shape(fmt, width, height), 0x41, array_dtype(fmt))
    figures = pelcast.stats(pelcast.encode(flat, fmt, width=width), fmt, width, height)
    assert list(figures) == list(PLANES[fmt])
    for plane, (_, _, raw_units) in PLANES[fmt].items():
        p = figures[plane]
        assert p["tiles"] == tile_count(fmt, plane, width, height)
        assert p["tiles_by_units"] == {1: p["tiles"], 2: 0, 3: 0}
        assert p["ratio"] == pytest.approx(1 / raw_units)
        assert p["overrun_tiles"] == 0
        check_consistent(p, raw_units)


@pytest.mark.parametrize("fmt,width,height", CASES)
def test_noise_is_stored_raw(fmt, width, height):
    noise = random_image(fmt, width, height, 11)
    figures = pelcast.stats(pelcast.encode(noise, fmt, width=width), fmt, width, height)
    for plane, (tile_width, tile_height, raw_units) in PLANES[fmt].items():
        p = figures[plane]
        # Tiles the image covers only in part hold zeros beyond it and may
        # shrink; whole tiles of noise cannot.
        whole = (width // tile_width) * (height // tile_height)
        assert whole <= p["raw_tiles"] <= p["tiles"]
        if whole == p["tiles"]:
            assert p["ratio"] == 1.0
        check_consistent(p, raw_units)


@pytest.mark.parametrize("fmt,width,height", CASES)
def test_cleared_frame_has_only_bad_metadata(fmt, width, height):
    figures = pelcast.stats(bytes(pelcast.zpak_frame_size(fmt, width, height)), fmt, width, height)
    for plane, (_, _, raw_units) in PLANES[fmt].items():
        p = figures[plane]
        assert p["bad_metadata_tiles"] == p["tiles"] == tile_count(fmt, plane, width, height)
        assert p["ratio"] == 1.0
        check_consistent(p, raw_units)


@pytest.mark.parametrize("fmt", PLANES)
def test_one_spoilt_metadata_byte(fmt):
    image = frame_image(fmt, 256, 144, 12)
    zpak = bytearray(pelcast.encode(image, fmt))
    before = pelcast.stats(zpak, fmt, 256, 144)
    zpak[0] = 0x02  # the first tile's metadata byte: no unit count
    after = pelcast.stats(zpak, fmt, 256, 144)
    first = next(iter(PLANES[fmt]))
    assert after[first]["bad_metadata_tiles"] == before[first]["bad_metadata_tiles"] + 1
    assert after[first]["tiles"] == before[first]["tiles"]
    check_consistent(after[first], PLANES[fmt][first][2])


def zpak_binary():
    default = REPOSITORY / "build" / "release" / "tools" / "zpak" / "zpak"
    return Path(os.environ.get("PELCAST_ZPAK", default))


@pytest.mark.parametrize("fmt,width,height", CASES)
def test_figures_equal_zpak_info(fmt, width, height, tmp_path):
    binary = zpak_binary()
    if not binary.is_file():
        pytest.skip(f"no zpak at {binary}")
    zpak = pelcast.encode(frame_image(fmt, width, height, 13), fmt, width=width)
    path = tmp_path / "frame.zpak"
    path.write_bytes(zpak)
    report = json.loads(subprocess.run([str(binary), "info", "--json", fmt, str(path), str(width),
                                        str(height)],
                                       check=True, capture_output=True, text=True).stdout)
    planes = report["frames"][0]["planes"]
    figures = pelcast.stats(zpak, fmt, width, height)
    for name, reported in zip(figures, planes):
        p = figures[name]
        assert (p["tiles"], p["units"], p["raw_units"]) == (
            reported["tiles"], reported["units"], reported["raw_units"]), name
        by_units = reported["tiles_by_units"]
        assert [p["tiles_by_units"][u] for u in (1, 2, 3)] == [by_units[str(u)] for u in (1, 2, 3)], name
        assert p["raw_tiles"] == by_units["raw"], name
        assert p["bad_metadata_tiles"] == by_units["bad_metadata"], name
        assert p["overrun_tiles"] == reported["overrun_tiles"], name
