"""Round trips of random and frame-like arrays of every format and many
sizes, the frame sizes, the arrays' shapes and dtypes, and NV12's odd widths."""

import numpy as np
import pytest

import pelcast
from frames import array_dtype, array_shape, frame_image, packed_size, random_image

# Odd and even sizes around the tile (NV12 32 x 8, RGBA8888 and RGB565
# 16 x 4) and macro-tile edges, single rows and columns.
SIZES = [(1, 1), (2, 1), (3, 3), (15, 5), (17, 7), (31, 9), (33, 17), (63, 31),
         (65, 33), (100, 1), (1, 100), (127, 65), (255, 129), (301, 171)]


def supported(fmt, width):
    # RGB565 surfaces of width 128k + 1 drop the last column: refused.
    return not (fmt == "rgb565" and width % 128 == 1)


ROUND_TRIPS = [
    pytest.param(fmt, width, height, id=f"{fmt}-{width}x{height}")
    for fmt in pelcast.FORMATS
    for width, height in SIZES
    if supported(fmt, width)
]


@pytest.mark.parametrize("fmt,width,height", ROUND_TRIPS)
@pytest.mark.parametrize("make", [random_image, frame_image], ids=["random", "frame"])
def test_round_trip(make, fmt, width, height):
    image = make(fmt, width, height, seed=width * 1000 + height)
    zpak = pelcast.encode(image, fmt, width=width)
    assert isinstance(zpak, bytes)
    assert len(zpak) == pelcast.zpak_frame_size(fmt, width, height)
    decoded = pelcast.decode(zpak, fmt, width, height)
    assert decoded.shape == array_shape(fmt, width, height)
    assert decoded.dtype == array_dtype(fmt)
    assert decoded.flags.c_contiguous and decoded.flags.writeable
    np.testing.assert_array_equal(decoded, image)


@pytest.mark.parametrize("fmt,width,height", ROUND_TRIPS)
def test_frame_sizes(fmt, width, height):
    assert pelcast.linear_frame_size(fmt, width, height) == packed_size(fmt, width, height)
    # Every data plane holds a 256-byte slot per tile, so a frame is at least
    # as large as its raw pixels.
    assert pelcast.zpak_frame_size(fmt, width, height) >= packed_size(fmt, width, height)


def test_formats_in_any_case():
    image = frame_image("rgba8888", 40, 20, 1)
    assert pelcast.encode(image, "RGBA8888") == pelcast.encode(image, "rgba8888")
    assert pelcast.zpak_frame_size("Nv12", 64, 64) == pelcast.zpak_frame_size("nv12", 64, 64)


def test_version_is_the_librarys():
    from importlib.metadata import version

    # The package's version comes from the header at build time; __version__
    # from the library linked in.
    assert pelcast.__version__ == version("pelcast")
    assert [int(part) for part in pelcast.__version__.split(".")] >= [1, 0, 0]


# NV12 of odd widths: width + 1 columns, the last column of the Y rows padding.
ODD_NV12 = [(1, 1), (3, 2), (33, 9), (97, 61), (255, 129)]


@pytest.mark.parametrize("width,height", ODD_NV12)
def test_nv12_odd_width_padding_column(width, height):
    image = frame_image("nv12", width, height, 3)
    padded = image.copy()
    padded[:height, width] = 0xA5
    zpak = pelcast.encode(image, "nv12", width=width)
    # encode never reads the padding column.
    assert pelcast.encode(padded, "nv12", width=width) == zpak
    decoded = pelcast.decode(zpak, "nv12", width, height)
    assert decoded.shape == (height + (height + 1) // 2, width + 1)
    assert not decoded[:height, width].any()
    np.testing.assert_array_equal(decoded, image)
    # decode into an array leaves the padding column as it was.
    out = np.full_like(image, 0x5A)
    pelcast.decode(zpak, "nv12", width, height, out=out)
    assert (out[:height, width] == 0x5A).all()
    np.testing.assert_array_equal(out[:height, :width], image[:height, :width])
    np.testing.assert_array_equal(out[height:], image[height:])


@pytest.mark.parametrize("width,height", ODD_NV12)
def test_nv12_odd_width_array_read_as_width_plus_one(width, height):
    # Without width=, an array of width + 1 columns is a frame of that width:
    # the padding column becomes a pixel column of its own.
    image = frame_image("nv12", width, height, 4)
    zpak = pelcast.encode(image, "nv12")
    np.testing.assert_array_equal(pelcast.decode(zpak, "nv12", width + 1, height), image)


def test_rgb565_words_are_little_endian():
    image = random_image("rgb565", 48, 8, 5)
    big = image.astype(">u2")
    assert pelcast.encode(big, "rgb565") == pelcast.encode(image, "rgb565")
    zpak = pelcast.encode(image, "rgb565")
    raw = pelcast.decode(zpak, "rgb565", 48, 8).tobytes()
    assert raw == image.astype("<u2").tobytes()


@pytest.mark.parametrize("fmt", pelcast.FORMATS)
def test_decode_into_out(fmt):
    image = frame_image(fmt, 70, 30, 6)
    zpak = pelcast.encode(image, fmt)
    out = np.zeros(array_shape(fmt, 70, 30), array_dtype(fmt))
    assert pelcast.decode(zpak, fmt, 70, 30, out=out) is out
    np.testing.assert_array_equal(out, image)


@pytest.mark.parametrize("fmt", pelcast.FORMATS)
def test_decode_ignores_bytes_after_the_frame(fmt):
    first, second = (frame_image(fmt, 40, 12, seed) for seed in (1, 2))
    data = pelcast.encode(first, fmt) + pelcast.encode(second, fmt)
    np.testing.assert_array_equal(pelcast.decode(data, fmt, 40, 12), first)
