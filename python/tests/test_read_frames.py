"""read_frames(): whole frames of a file in order, a warning for a partial
last frame, and the memory map closed when done."""

import warnings

import numpy as np
import pytest

import pelcast
from frames import frame_image

WIDTH, HEIGHT = 97, 33


def write_frames(path, fmt, count, extra=b""):
    images = [frame_image(fmt, WIDTH, HEIGHT, seed) for seed in range(count)]
    path.write_bytes(b"".join(pelcast.encode(image, fmt, width=WIDTH) for image in images) + extra)
    return images


# (id, frames, bytes after the last whole frame)
FILES = [("empty", 0, 0), ("one frame", 1, 0), ("three frames", 3, 0),
         ("partial only", 0, 100), ("three and a partial frame", 3, 1)]


@pytest.mark.parametrize("fmt", pelcast.FORMATS)
@pytest.mark.parametrize("count,extra", [f[1:] for f in FILES], ids=[f[0] for f in FILES])
def test_frames_in_order(fmt, count, extra, tmp_path):
    path = tmp_path / "frames.zpak"
    images = write_frames(path, fmt, count, b"\xff" * extra)
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        frames = pelcast.read_frames(path, fmt, WIDTH, HEIGHT)
    assert len(frames) == count
    decoded = list(frames)
    assert len(decoded) == count
    for image, array in zip(images, decoded):
        np.testing.assert_array_equal(array, image)
    if extra:
        assert len(caught) == 1 and issubclass(caught[0].category, RuntimeWarning)
        assert f"the last {extra} bytes are ignored" in str(caught[0].message)
        assert caught[0].filename == __file__
    else:
        assert not caught
    assert next(frames, None) is None


def test_close_and_with_block(tmp_path):
    path = tmp_path / "frames.zpak"
    images = write_frames(path, "rgba8888", 3)
    with pelcast.read_frames(path, "rgba8888", WIDTH, HEIGHT) as frames:
        np.testing.assert_array_equal(next(frames), images[0])
    # Closed by the with block: no more frames.
    assert list(frames) == []
    frames = pelcast.read_frames(path, "rgba8888", WIDTH, HEIGHT)
    frames.close()
    frames.close()
    assert list(frames) == []


def test_arrays_outlive_the_map(tmp_path):
    path = tmp_path / "frames.zpak"
    images = write_frames(path, "nv12", 2)
    arrays = list(pelcast.read_frames(path, "nv12", WIDTH, HEIGHT))
    path.write_bytes(b"")
    for image, array in zip(images, arrays):
        np.testing.assert_array_equal(array, image)
