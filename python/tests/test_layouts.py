"""Arrays of any layout: strided, cropped, reversed and Fortran-ordered
images to encode and arrays to decode into, and every kind of buffer as ZPAK
data."""

import mmap
import tracemalloc

import numpy as np
import pytest

import pelcast
from frames import array_dtype, array_shape, frame_image

WIDTH, HEIGHT = 70, 22  # NV12: 22 + 11 rows

# Views of an image in other memory layouts, equal to the image. Crops and
# every other row leave a row stride larger than a row, which the library
# reads and writes in place; the others are copied.
def crop_of_larger(image):
    big = np.zeros((image.shape[0] + 5, image.shape[1] + 9) + image.shape[2:], image.dtype)
    big[3 : 3 + image.shape[0], 4 : 4 + image.shape[1]] = image
    return big[3 : 3 + image.shape[0], 4 : 4 + image.shape[1]]


def every_other_column(image):
    wide = np.zeros((image.shape[0], image.shape[1] * 2) + image.shape[2:], image.dtype)
    wide[:, ::2] = image
    return wide[:, ::2]


def every_other_row(image):
    tall = np.zeros((image.shape[0] * 2,) + image.shape[1:], image.dtype)
    tall[::2] = image
    return tall[::2]


def reversed_rows(image):
    return image[::-1].copy()[::-1]


def reversed_columns(image):
    return image[:, ::-1].copy()[:, ::-1]


def fortran_order(image):
    return np.asfortranarray(image)


def channels_apart(image):
    # RGBA with channels in separate planes (channel stride h x w).
    if image.ndim != 3:
        return np.asfortranarray(image)
    return np.moveaxis(np.ascontiguousarray(np.moveaxis(image, -1, 0)), 0, -1)


def read_only(image):
    return np.frombuffer(image.tobytes(), image.dtype).reshape(image.shape)


def unaligned(image):
    # uint16 pixels at an odd address.
    raw = np.zeros(image.nbytes + 1, np.uint8)
    view = raw[1:].view(image.dtype).reshape(image.shape)
    view[...] = image
    return view


VIEWS = [crop_of_larger, every_other_column, every_other_row, reversed_rows, reversed_columns,
         fortran_order, channels_apart, read_only, unaligned]


@pytest.mark.parametrize("fmt", pelcast.FORMATS)
@pytest.mark.parametrize("view", VIEWS, ids=lambda v: v.__name__)
def test_encode_any_layout(view, fmt):
    image = frame_image(fmt, WIDTH, HEIGHT, 2)
    strided = view(image)
    np.testing.assert_array_equal(strided, image)
    assert pelcast.encode(strided, fmt) == pelcast.encode(image, fmt)


def test_encode_takes_objects_with_the_buffer_interface():
    image = frame_image("rgba8888", 16, 4, 3)
    assert pelcast.encode(memoryview(image), "rgba8888") == pelcast.encode(image, "rgba8888")


def owner(array):
    while isinstance(array.base, np.ndarray):
        array = array.base
    return array


@pytest.mark.parametrize("fmt", pelcast.FORMATS)
@pytest.mark.parametrize("view", [v for v in VIEWS if v is not read_only], ids=lambda v: v.__name__)
def test_decode_into_any_layout(view, fmt):
    image = frame_image(fmt, WIDTH, HEIGHT, 4)
    zpak = pelcast.encode(image, fmt)
    out = view(np.full(array_shape(fmt, WIDTH, HEIGHT), 0x77, array_dtype(fmt)))
    memory = owner(out)
    before = memory.copy()
    assert pelcast.decode(zpak, fmt, WIDTH, HEIGHT, out=out) is out
    np.testing.assert_array_equal(out, image)
    # Only the view's elements changed.
    out[...] = 0x77
    np.testing.assert_array_equal(memory, before)


def test_decode_into_crop_writes_only_the_crop():
    fmt = "rgba8888"
    image = frame_image(fmt, WIDTH, HEIGHT, 5)
    zpak = pelcast.encode(image, fmt)
    big = np.full((HEIGHT + 6, WIDTH + 10, 4), 0x33, np.uint8)
    out = big[2 : 2 + HEIGHT, 3 : 3 + WIDTH]
    pelcast.decode(zpak, fmt, WIDTH, HEIGHT, out=out)
    np.testing.assert_array_equal(out, image)
    outside = np.ones(big.shape[:2], bool)
    outside[2 : 2 + HEIGHT, 3 : 3 + WIDTH] = False
    assert (big[outside] == 0x33).all()


def zpak_buffers(zpak, tmp_path):
    """The same ZPAK bytes as every kind of buffer decode() takes."""
    path = tmp_path / "frame.zpak"
    path.write_bytes(zpak)
    file = open(path, "rb")
    mapped = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)
    file.close()
    as_uint8 = np.frombuffer(zpak, np.uint8)
    spread = np.zeros(len(zpak) * 2, np.uint8)
    spread[::2] = as_uint8
    return {
        "bytes": zpak,
        "bytearray": bytearray(zpak),
        "memoryview": memoryview(zpak),
        "memoryview slice": memoryview(b"\0" * 64 + zpak)[64:],
        "mmap": mapped,
        "uint8 array": as_uint8,
        "uint32 array": np.frombuffer(zpak, np.uint32),
        "2-d array": as_uint8.reshape(64, -1),
        "strided array": spread[::2],
        "strided memoryview": memoryview(spread)[::2],
    }


@pytest.mark.parametrize("fmt", pelcast.FORMATS)
def test_decode_any_buffer(fmt, tmp_path):
    image = frame_image(fmt, WIDTH, HEIGHT, 6)
    zpak = pelcast.encode(image, fmt)
    for name, data in zpak_buffers(zpak, tmp_path).items():
        np.testing.assert_array_equal(pelcast.decode(data, fmt, WIDTH, HEIGHT), image, err_msg=name)
        assert pelcast.stats(data, fmt, WIDTH, HEIGHT) == pelcast.stats(zpak, fmt, WIDTH, HEIGHT), name


def peak_allocation(call):
    """Bytes allocated at the peak of call() (numpy arrays and Python objects)."""
    tracemalloc.start()
    try:
        call()
        return tracemalloc.get_traced_memory()[1]
    finally:
        tracemalloc.stop()


# (view, whether the image is copied): rows that are byte runs at a stride
# that keeps them apart are read and written in place.
IN_PLACE = [(crop_of_larger, False), (every_other_row, False), (read_only, False), (unaligned, False),
            (every_other_column, True), (reversed_rows, True), (fortran_order, True)]


@pytest.mark.parametrize("fmt", pelcast.FORMATS)
@pytest.mark.parametrize("view,copied", IN_PLACE, ids=[v.__name__ for v, _ in IN_PLACE])
def test_copies_only_when_it_must(view, copied, fmt):
    width, height = 256, 144
    image = frame_image(fmt, width, height, 7)
    zpak_bytes = pelcast.zpak_frame_size(fmt, width, height)
    strided = view(image)
    extra = peak_allocation(lambda: pelcast.encode(strided, fmt)) - zpak_bytes
    assert (extra >= image.nbytes) == copied, extra
    if view is not read_only:
        zpak = pelcast.encode(image, fmt)
        extra = peak_allocation(lambda: pelcast.decode(zpak, fmt, width, height, out=strided))
        assert (extra >= image.nbytes) == copied, extra
