"""ZPAK frames as numpy arrays.

A thin binding of libpelcast (the C library of the pelcast project): one call
from a ZPAK frame to an array and back, with a thread count and without
copies where the array's layout allows.

Formats are the strings 'nv12', 'rgba8888' and 'rgb565' (any case). Arrays:

  'rgba8888'  (height, width, 4) uint8
  'rgb565'    (height, width) uint16, the library's little-endian words
  'nv12'      (height + (height + 1) // 2, width) uint8: Y rows, then U,V
              rows, as cv2.cvtColor(a, cv2.COLOR_YUV2RGB_NV12) takes them;
              an odd width has width + 1 columns (the chroma rows' (width + 1)
              // 2 pairs), the last column of the Y rows being padding

threads: None or 1 is the calling thread (the library's default), 0 one per
processor, n is n (at most 64); every count gives the same bytes. The GIL is
released during codec calls, so Python threads decode and encode in parallel.

Bad input raises ValueError whose message starts with the library's
description of the failure ('invalid argument', 'buffer too small', ...).
"""

import mmap
import os
import warnings

from ._pelcast import __version__, decode, encode, linear_frame_size, stats, zpak_frame_size

__all__ = [
    "__version__",
    "FORMATS",
    "FrameReader",
    "decode",
    "encode",
    "linear_frame_size",
    "read_frames",
    "stats",
    "zpak_frame_size",
]

FORMATS = ("nv12", "rgba8888", "rgb565")


class FrameReader:
    """The ZPAK frames of a file, decoded one by one from a read-only memory map.

    Iterating yields one array per whole frame (decode()'s shapes); len() is
    the number of whole frames. Bytes after the last whole frame are ignored
    with a warning, as the pelcast decode commands do. The map is closed when
    the frames run out, by close(), or on leaving a with block.
    """

    def __init__(self, path, format, width, height, *, threads=None):
        self._frame_bytes = zpak_frame_size(format, width, height)
        self._frame = (format, width, height)
        self._threads = threads
        self._next = 0
        self._map = None
        self._view = None
        with open(path, "rb") as file:
            size = os.fstat(file.fileno()).st_size
            if size >= self._frame_bytes:
                self._map = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)
                self._view = memoryview(self._map)
        self._count = size // self._frame_bytes
        rest = size % self._frame_bytes
        if rest:
            warnings.warn(
                f"{os.fspath(path)}: {size} bytes is not a whole number of {self._frame_bytes}-byte "
                f"ZPAK frames; the last {rest} bytes are ignored",
                RuntimeWarning,
                stacklevel=3,
            )

    def __len__(self):
        return self._count

    def __iter__(self):
        return self

    def __next__(self):
        if self._next >= self._count or self._view is None:
            self.close()
            raise StopIteration
        start = self._next * self._frame_bytes
        with self._view[start : start + self._frame_bytes] as frame:
            array = decode(frame, *self._frame, threads=self._threads)
        self._next += 1
        return array

    def close(self):
        if self._view is not None:
            self._view.release()
            self._map.close()
            self._view = None
            self._map = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()


def read_frames(path, format, width, height, *, threads=None):
    """An iterator over the ZPAK frames of the file at `path` (a FrameReader).

    The file is memory-mapped and each frame decoded straight from the map.
    Format, size and threads as for decode(); a wrong format or size raises
    ValueError here, a missing file OSError.
    """
    return FrameReader(path, format, width, height, threads=threads)
