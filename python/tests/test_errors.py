"""Every refusal: ValueError with the library's description of the failure
first, TypeError for arguments of the wrong type, and nothing written into
`out` when a call fails."""

import numpy as np
import pytest

import pelcast
from frames import frame_image

# The library's descriptions (pelcast_status_string).
INVALID = "invalid argument"
TOO_SMALL = "buffer too small"
TOO_LARGE = "frame too large: a buffer would reach 2 GiB"
UNSUPPORTED = "the surface cannot hold every pixel of this size"

RGBA = frame_image("rgba8888", 32, 8, 1)
RGBA_ZPAK = pelcast.encode(RGBA, "rgba8888")
NV12 = frame_image("nv12", 64, 16, 1)
NV12_ZPAK = pelcast.encode(NV12, "nv12")


def read_only(array):
    array = array.copy()
    array.flags.writeable = False
    return array


# (id, call, description, detail the message names)
VALUE_ERRORS = [
    ("decode unknown format", lambda: pelcast.decode(RGBA_ZPAK, "rgba", 32, 8), INVALID, "'rgba'"),
    ("encode unknown format", lambda: pelcast.encode(RGBA, "yuv420"), INVALID, "'yuv420'"),
    ("stats unknown format", lambda: pelcast.stats(RGBA_ZPAK, "", 32, 8), INVALID, "unknown format"),
    ("size unknown format", lambda: pelcast.zpak_frame_size("nv21", 2, 2), INVALID, "'nv21'"),
    ("linear size unknown format", lambda: pelcast.linear_frame_size("p010", 2, 2), INVALID, "'p010'"),
    ("read_frames unknown format", lambda: pelcast.read_frames(__file__, "i420", 2, 2), INVALID, "'i420'"),
    ("width 0", lambda: pelcast.decode(RGBA_ZPAK, "rgba8888", 0, 8), INVALID, "rgba8888 0x8"),
    ("height 0", lambda: pelcast.zpak_frame_size("nv12", 16, 0), INVALID, "nv12 16x0"),
    ("linear size height 0", lambda: pelcast.linear_frame_size("rgb565", 16, 0), INVALID, "16x0"),
    ("negative width", lambda: pelcast.decode(RGBA_ZPAK, "rgba8888", -32, 8), INVALID, "width -32"),
    ("negative height", lambda: pelcast.stats(RGBA_ZPAK, "rgba8888", 32, -1), INVALID, "height -1"),
    ("width past 32 bits", lambda: pelcast.zpak_frame_size("nv12", 1 << 32, 2), TOO_LARGE, "width 4294967296"),
    ("width past 64 bits", lambda: pelcast.zpak_frame_size("nv12", 1 << 70, 2), TOO_LARGE, "width"),
    ("width past 64 bits negative", lambda: pelcast.zpak_frame_size("nv12", -(1 << 70), 2), INVALID, "width"),
    ("2 GiB frame", lambda: pelcast.zpak_frame_size("rgba8888", 30000, 20000), TOO_LARGE, "30000x20000"),
    ("2 GiB decode", lambda: pelcast.decode(b"", "rgba8888", 30000, 20000), TOO_LARGE, "30000x20000"),
    ("2 GiB encode", lambda: pelcast.encode(np.broadcast_to(np.uint8(0), (20000, 30000, 4)), "rgba8888"),
     TOO_LARGE, "30000x20000"),
    ("rgb565 width 129 decode", lambda: pelcast.decode(bytes(1 << 16), "rgb565", 129, 4), UNSUPPORTED, "129x4"),
    ("rgb565 width 1 encode", lambda: pelcast.encode(np.zeros((4, 1), np.uint16), "rgb565"), UNSUPPORTED, "1x4"),
    ("rgb565 width 257 stats", lambda: pelcast.stats(bytes(1 << 17), "rgb565", 257, 4), UNSUPPORTED, "257x4"),
    ("short data", lambda: pelcast.decode(RGBA_ZPAK[:-1], "rgba8888", 32, 8), TOO_SMALL,
     f"data holds {len(RGBA_ZPAK) - 1} bytes, one rgba8888 32x8 ZPAK frame is {len(RGBA_ZPAK)}"),
    ("empty data", lambda: pelcast.decode(b"", "nv12", 64, 16), TOO_SMALL, "data holds 0 bytes"),
    ("frame of a smaller size", lambda: pelcast.decode(RGBA_ZPAK, "rgba8888", 640, 480), TOO_SMALL, "640x480"),
    ("short stats data", lambda: pelcast.stats(NV12_ZPAK[:100], "nv12", 64, 16), TOO_SMALL, "holds 100 bytes"),
    ("threads -1", lambda: pelcast.decode(RGBA_ZPAK, "rgba8888", 32, 8, threads=-1), INVALID, "threads -1"),
    ("threads 65", lambda: pelcast.encode(RGBA, "rgba8888", threads=65), INVALID, "threads 65"),
    ("out of a wrong shape", lambda: pelcast.decode(RGBA_ZPAK, "rgba8888", 32, 8, out=np.zeros((8, 32, 3), np.uint8)),
     INVALID, "(8, 32, 3)"),
    ("out of a transposed shape", lambda: pelcast.decode(RGBA_ZPAK, "rgba8888", 32, 8, out=np.zeros((32, 8, 4), np.uint8)),
     INVALID, "(8, 32, 4)"),
    ("out of a wrong dtype", lambda: pelcast.decode(RGBA_ZPAK, "rgba8888", 32, 8, out=np.zeros((8, 32, 4), np.int8)),
     INVALID, "int8"),
    ("rgb565 out big-endian", lambda: pelcast.decode(bytes(1 << 16), "rgb565", 32, 8, out=np.zeros((8, 32), ">u2")),
     INVALID, ">u2"),
    ("nv12 out without padding column", lambda: pelcast.decode(bytes(1 << 16), "nv12", 33, 8, out=np.zeros((12, 33), np.uint8)),
     INVALID, "(12, 34)"),
    ("read-only out", lambda: pelcast.decode(RGBA_ZPAK, "rgba8888", 32, 8, out=read_only(RGBA)), INVALID, "read-only"),
    ("encode int64 image", lambda: pelcast.encode(RGBA.astype(np.int64), "rgba8888"), INVALID, "int64"),
    ("encode float image", lambda: pelcast.encode(RGBA.astype(np.float32), "rgba8888"), INVALID, "float32"),
    ("encode uint8 as rgb565", lambda: pelcast.encode(np.zeros((4, 16), np.uint8), "rgb565"), INVALID, "uint8"),
    ("encode uint16 as nv12", lambda: pelcast.encode(np.zeros((6, 16), np.uint16), "nv12"), INVALID, "uint16"),
    ("encode rgba of 3 channels", lambda: pelcast.encode(RGBA[..., :3], "rgba8888"), INVALID, "(8, 32, 3)"),
    ("encode rgba of 2 dimensions", lambda: pelcast.encode(RGBA[..., 0], "rgba8888"), INVALID, "(8, 32)"),
    ("encode rgb565 of 3 dimensions", lambda: pelcast.encode(np.zeros((4, 16, 1), np.uint16), "rgb565"), INVALID,
     "(4, 16, 1)"),
    ("encode nv12 of 1 dimension", lambda: pelcast.encode(NV12.ravel(), "nv12"), INVALID, f"({NV12.size},)"),
    ("encode nv12 row count of no height", lambda: pelcast.encode(np.zeros((4, 16), np.uint8), "nv12"), INVALID,
     "for 4"),
    ("encode nv12 odd column count", lambda: pelcast.encode(np.zeros((3, 15), np.uint8), "nv12"), INVALID, "not 15"),
    ("encode nv12 width not its columns", lambda: pelcast.encode(NV12, "nv12", width=62), INVALID, "not 64"),
    ("encode width not the rgba width", lambda: pelcast.encode(RGBA, "rgba8888", width=31), INVALID, "width 31"),
    ("encode empty image", lambda: pelcast.encode(np.zeros((0, 16, 4), np.uint8), "rgba8888"), INVALID,
     "rgba8888 16x0"),
    ("encode object array", lambda: pelcast.encode(np.array([object()]), "nv12"), INVALID, "object"),
    ("encode scalar", lambda: pelcast.encode(np.uint8(3), "rgb565"), INVALID, "uint8"),
]


@pytest.mark.parametrize("call,description,detail", [v[1:] for v in VALUE_ERRORS], ids=[v[0] for v in VALUE_ERRORS])
def test_value_errors(call, description, detail):
    with pytest.raises(ValueError) as error:
        call()
    message = str(error.value)
    assert message.startswith(description + ": "), message
    assert detail in message, message


TYPE_ERRORS = [
    ("data not a buffer", lambda: pelcast.decode("zpak", "rgba8888", 32, 8)),
    ("data None", lambda: pelcast.stats(None, "rgba8888", 32, 8)),
    ("format not a string", lambda: pelcast.decode(RGBA_ZPAK, 2, 32, 8)),
    ("width a float", lambda: pelcast.zpak_frame_size("nv12", 32.0, 8)),
    ("threads a string", lambda: pelcast.decode(RGBA_ZPAK, "rgba8888", 32, 8, threads="2")),
    ("out a list", lambda: pelcast.decode(RGBA_ZPAK, "rgba8888", 32, 8, out=[0] * 1024)),
    ("threads positional", lambda: pelcast.decode(RGBA_ZPAK, "rgba8888", 32, 8, 2)),
]


@pytest.mark.parametrize("call", [v[1] for v in TYPE_ERRORS], ids=[v[0] for v in TYPE_ERRORS])
def test_type_errors(call):
    with pytest.raises(TypeError):
        call()


def test_failed_decode_leaves_out_untouched():
    out = np.full_like(RGBA, 7)
    with pytest.raises(ValueError):
        pelcast.decode(RGBA_ZPAK[:-64], "rgba8888", 32, 8, out=out)
    assert (out == 7).all()


def test_rgb565_unsupported_width_still_has_sizes():
    # The sizes are the library's for every width it can describe; only the
    # codec refuses a width whose stride drops a column.
    assert pelcast.zpak_frame_size("rgb565", 129, 4) > 0
    assert pelcast.linear_frame_size("rgb565", 129, 4) == 129 * 4 * 2


def test_read_frames_missing_file(tmp_path):
    with pytest.raises(FileNotFoundError):
        pelcast.read_frames(tmp_path / "none.zpak", "nv12", 64, 16)
