"""The package gives the pelcast command's bytes: decode equals U, G and B,
encode equals N and H, on generated frames of even and odd sizes and on the
committed frames under tests/data."""

import numpy as np
import pytest

import pelcast
from frames import committed_frames, frame_image, read_committed, to_packed

DECODE_LETTER = {"nv12": "U", "rgba8888": "G", "rgb565": "B"}
ENCODE_LETTER = {"nv12": "N", "rgba8888": "H"}  # RGB565 has no encode command

# Even and odd sizes, frames smaller than one tile, partial macro tiles and
# metadata tiles.
SIZES = [(64, 32), (97, 61), (130, 66), (33, 9), (2, 2), (256, 144), (515, 77)]


def cases():
    for fmt in pelcast.FORMATS:
        for width, height in SIZES:
            yield pytest.param(fmt, width, height, None, id=f"generated-{fmt}-{width}x{height}")
    for path, fmt, width, height, _ in committed_frames():
        yield pytest.param(fmt, width, height, path, id=path.name)


def frames_of(fmt, width, height, path, generated=1):
    """The frames of a committed file, or `generated` generated frames."""
    if path is not None:
        count = next(c for p, *_, c in committed_frames() if p == path)
        return read_committed(path, fmt, width, height, count)
    return [frame_image(fmt, width, height, seed) for seed in range(generated)]


def zpak_of(command, fmt, width, height, image):
    """A ZPAK frame made by the command where it has one, else by encode()."""
    if fmt in ENCODE_LETTER:
        return command.run(ENCODE_LETTER[fmt], to_packed(image, fmt, width, height), width, height)
    return pelcast.encode(image, fmt, width=width)


def check_decoded(expected, arrays, fmt, width, height):
    got = b"".join(to_packed(a, fmt, width, height) for a in arrays)
    if fmt == "nv12" and (width % 2 or height % 2):
        # U writes the first w x h x 3 / 2 bytes of each frame.
        frame = width * height * 3 // 2
        assert len(expected) == frame * len(arrays)
        full = len(got) // len(arrays)
        for i in range(len(arrays)):
            assert got[i * full : i * full + frame] == expected[i * frame : (i + 1) * frame]
    else:
        assert got == expected


CASES = list(cases())


@pytest.mark.parametrize("fmt,width,height,path", [c for c in CASES if c.values[0] in ENCODE_LETTER])
def test_encode_equals_command(command, fmt, width, height, path):
    for image in frames_of(fmt, width, height, path):
        expected = command.run(ENCODE_LETTER[fmt], to_packed(image, fmt, width, height), width, height)
        assert pelcast.encode(image, fmt, width=width) == expected


@pytest.mark.parametrize("fmt,width,height,path", CASES)
def test_decode_equals_command(command, fmt, width, height, path):
    for image in frames_of(fmt, width, height, path):
        zpak = zpak_of(command, fmt, width, height, image)
        decoded = pelcast.decode(zpak, fmt, width, height)
        check_decoded(command.run(DECODE_LETTER[fmt], zpak, width, height), [decoded], fmt, width, height)
        # The frames are lossless: the command's input comes back.
        np.testing.assert_array_equal(decoded, image)


@pytest.mark.parametrize("fmt,width,height,path", CASES)
def test_read_frames_equals_command(command, fmt, width, height, path, tmp_path):
    images = frames_of(fmt, width, height, path, generated=3)
    zpak = b"".join(zpak_of(command, fmt, width, height, image) for image in images)
    file = tmp_path / "frames.zpak"
    file.write_bytes(zpak)
    arrays = list(pelcast.read_frames(file, fmt, width, height))
    assert len(arrays) == len(images)
    check_decoded(command.run(DECODE_LETTER[fmt], zpak, width, height), arrays, fmt, width, height)
