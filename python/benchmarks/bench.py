#!/usr/bin/env python3
"""Decode and encode speed of the pelcast Python package against the same
libpelcast calls made from C, measured side by side in one process.

    build/python-venv/bin/python python/benchmarks/bench.py [--corpus DIR]
        [--calls N] [--markdown FILE]

Frames: 1920x1080 frames of the project's corpus, in the folder named by
--corpus or else $PELCAST_CORPUS_DIR: photo-boats (NV12 and RGBA8888),
photo-mountains (RGB565) and the eight frames of pan-hillside (NV12) for
the two-Python-threads figure. Without the corpus, generated frames of the
same size are used and the output says so.

The C side is c_bench.c, compiled here into a shared library with the
libpelcast.a the package was linked with (python/build/*/libpelcast/api/
libpelcast.a; else build/release's) and loaded with ctypes. Its per-call
timing makes the calls the package makes for each frame (codec with its
threads, output allocated, decode or encode, both freed); its reused timing
keeps one codec and one buffer. Each of N steps times one Python call and
one call of each C timing, in turn, so that all three see the machine in
the same state; MB/s are medians of the steps (10^6 bytes of the packed
linear frame per second, both directions), ratios medians of the steps'
ratios. Every output is checked before it is timed.
"""

import argparse
import ctypes
import glob
import os
import platform
import statistics
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import numpy as np

import pelcast

HERE = Path(__file__).resolve().parent
REPOSITORY = HERE.parents[1]
WIDTH, HEIGHT = 1920, 1080
THREADS = (1, 2)

# (format, corpus file, dtype, array shape) of the timed frames.
SUBJECTS = [
    ("nv12", "photo-boats-1920x1080.nv12", np.uint8, (HEIGHT * 3 // 2, WIDTH)),
    ("rgba8888", "photo-boats-1920x1080.rgba", np.uint8, (HEIGHT, WIDTH, 4)),
    ("rgb565", "photo-mountains-1920x1080.rgb565", "<u2", (HEIGHT, WIDTH)),
]
PAN = "pan-hillside-1920x1080-8f.nv12"


def corpus_dir(argument):
    if argument:
        return Path(argument)
    if os.environ.get("PELCAST_CORPUS_DIR"):
        return Path(os.environ["PELCAST_CORPUS_DIR"])
    return None


def generated(fmt, seed):
    """A frame-like image: gradients, edges and a noisy stripe."""
    rng = np.random.default_rng(seed)
    y, x = np.mgrid[0:HEIGHT, 0:WIDTH]
    base = (x // 3 + y // 2 + seed * 8) % 256
    base = np.where((x // 40 + y // 40) % 7 == 0, 30, base)
    base = base + np.where(x > WIDTH * 3 // 4, rng.integers(0, 24, base.shape), 0)
    plane = (base % 256).astype(np.uint8)
    if fmt == "rgba8888":
        return np.stack([plane, plane[::-1], 255 - plane, np.full_like(plane, 255)], axis=-1)
    if fmt == "rgb565":
        return ((plane.astype(np.uint16) >> 3 << 11) | (plane[::-1].astype(np.uint16) >> 2 << 5)).astype("<u2")
    chroma = np.repeat(plane[::2, ::2], 2, axis=1)
    return np.concatenate([plane, chroma])


def load_subjects(corpus):
    """(format, name, image) of every subject, from the corpus if present."""
    found = []
    for fmt, name, dtype, shape in SUBJECTS:
        path = corpus / name if corpus else None
        if path and path.is_file():
            found.append((fmt, name, np.fromfile(path, dtype).reshape(shape)))
        else:
            found.append((fmt, f"generated {fmt}", generated(fmt, len(found))))
    return found


def load_pan(corpus):
    path = corpus / PAN if corpus else None
    if path and path.is_file():
        frames = np.fromfile(path, np.uint8).reshape(8, HEIGHT * 3 // 2, WIDTH)
        return PAN, list(frames)
    first = generated("nv12", 0)
    return "generated nv12, 8 frames", [np.roll(first, 8 * i, axis=1) for i in range(8)]


def package_library():
    """The libpelcast.a the installed package was linked with, else the
    release build's (built if missing)."""
    built = sorted(glob.glob(str(REPOSITORY / "python" / "build" / "*" / "libpelcast" / "api" / "libpelcast.a")),
                   key=os.path.getmtime)
    if built:
        return Path(built[-1])
    library = REPOSITORY / "build" / "release" / "api" / "libpelcast.a"
    if not library.is_file():
        subprocess.run(["cmake", "--preset", "release"], cwd=REPOSITORY, check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", "--preset", "release", "--target", "pelcast_static", "-j2"],
                       cwd=REPOSITORY, check=True)
    return library


def load_c_bench(library, folder):
    path = folder / "c_bench.so"
    subprocess.run(["cc", "-O2", "-std=c99", "-shared", "-fPIC", "-Wall", "-Wextra", "-Werror",
                    "-DPELCAST_STATIC_DEFINE", f"-I{REPOSITORY / 'include'}", str(HERE / "c_bench.c"),
                    str(library), "-Wl,--exclude-libs,ALL", "-lstdc++", "-lm", "-lpthread", "-o", str(path)],
                   check=True)
    c = ctypes.CDLL(str(path))
    c.bench_open.restype = ctypes.c_void_p
    c.bench_open.argtypes = [ctypes.c_int, ctypes.c_int, ctypes.c_uint32, ctypes.c_uint32, ctypes.c_char_p,
                             ctypes.c_size_t, ctypes.c_char_p, ctypes.c_size_t, ctypes.c_uint32]
    for timing in (c.bench_per_call, c.bench_reused):
        timing.restype = ctypes.c_double
        timing.argtypes = [ctypes.c_void_p]
    c.bench_close.argtypes = [ctypes.c_void_p]
    return c


# The library's format numbers (pelcast_format).
FORMAT_NUMBERS = {"nv12": 1, "rgba8888": 2, "rgb565": 3}


def time_call(call):
    start = time.perf_counter()
    call()
    return time.perf_counter() - start


def time_subject(c, fmt, image, calls):
    """Rows of figures for one frame: decode and encode at 1 and 2 threads."""
    zpak = pelcast.encode(image, fmt)
    assert np.array_equal(pelcast.decode(zpak, fmt, WIDTH, HEIGHT), image)
    linear = image.tobytes()
    rows = []
    for operation in ("decode", "encode"):
        encoding = operation == "encode"
        source, result = (linear, zpak) if encoding else (zpak, linear)
        for threads in THREADS:
            if encoding:
                call = lambda: pelcast.encode(image, fmt, threads=threads)  # noqa: E731
                assert call() == zpak
            else:
                call = lambda: pelcast.decode(zpak, fmt, WIDTH, HEIGHT, threads=threads)  # noqa: E731
                assert np.array_equal(call(), image)
            job = c.bench_open(int(encoding), FORMAT_NUMBERS[fmt], WIDTH, HEIGHT, source, len(source),
                               result, len(result), threads)
            if not job:
                sys.exit(f"c_bench: {operation} of {fmt} failed or gave other bytes")
            timings = {"python": call, "per_call": lambda: c.bench_per_call(job),
                       "reused": lambda: c.bench_reused(job)}
            seconds = {name: [] for name in timings}
            order = list(timings)
            for step in range(calls):
                for name in order[step % 3:] + order[: step % 3]:
                    seconds[name].append(time_call(timings[name]) if name == "python" else timings[name]())
            c.bench_close(job)
            if min(min(v) for v in seconds.values()) < 0:
                sys.exit(f"c_bench: a timed {operation} of {fmt} failed")
            rate = {name: [len(linear) / s / 1e6 for s in values] for name, values in seconds.items()}
            rows.append({
                "operation": operation, "threads": threads,
                "python": statistics.median(rate["python"]),
                "per_call": statistics.median(rate["per_call"]),
                "reused": statistics.median(rate["reused"]),
                "ratio": statistics.median(p / q for p, q in zip(rate["python"], rate["per_call"])),
                "ratio_reused": statistics.median(p / q for p, q in zip(rate["python"], rate["reused"])),
            })
    return rows


def time_python_threads(frames, runs):
    """Eight frames decoded one after another, on two Python threads, and
    one after another with the library's two threads each."""
    zpaks = [pelcast.encode(frame, "nv12") for frame in frames]

    def decode(zpak, threads=None):
        return pelcast.decode(zpak, "nv12", WIDTH, HEIGHT, threads=threads)

    def serial():
        return [decode(z) for z in zpaks]

    def library_threads():
        return [decode(z, 2) for z in zpaks]

    pool = ThreadPoolExecutor(2)

    def two_python_threads():
        return list(pool.map(decode, zpaks))

    for run in (serial, library_threads, two_python_threads):
        assert all(np.array_equal(a, f) for a, f in zip(run(), frames))
    times = {run.__name__: [] for run in (serial, library_threads, two_python_threads)}
    for _ in range(runs):
        for run in (serial, library_threads, two_python_threads):
            start = time.perf_counter()
            run()
            times[run.__name__].append(time.perf_counter() - start)
    pool.shutdown()
    return {name: statistics.median(values) for name, values in times.items()}


def machine():
    model = "unknown CPU"
    try:
        for line in Path("/proc/cpuinfo").read_text().splitlines():
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    except OSError:
        pass
    return f"{model}, {os.cpu_count()} cores, {platform.system()} {platform.machine()}"


def report(subject_rows, pan_name, pan, args, corpus_note, library, load_before):
    lines = [
        "# Python package benchmark",
        "",
        "Regenerated by `python/benchmarks/bench.py --markdown python/benchmarks/RESULTS.md`; do not edit "
        "by hand. Python's `pelcast.decode` / `pelcast.encode` against the same libpelcast calls from C "
        "(`c_bench.c`, loaded into the same process): *per call* makes what the package makes for each "
        "frame (codec with its threads, output buffer), *reused* keeps one codec and one buffer. Each step "
        "times one call of each, in turn, on the same frame; MB/s (10^6 bytes of the packed linear frame "
        "per second) are medians of the steps, ratios medians of the steps' ratios.",
        "",
        f"- Machine: {machine()}",
        f"- Python {platform.python_version()}, numpy {np.__version__}, pelcast {pelcast.__version__}; "
        f"C side linked with {library.relative_to(REPOSITORY) if library.is_relative_to(REPOSITORY) else library}",
        f"- Frames: {corpus_note}",
        f"- Run: {time.strftime('%Y-%m-%dT%H:%M:%S%z')}, {args.calls} steps per row; "
        f"load average before {load_before[0]:.2f}, after {os.getloadavg()[0]:.2f}",
        "",
        "| frame | call | threads | Python MB/s | C per call MB/s | Python / C | C reused MB/s | Python / C reused |",
        "|---|---|---:|---:|---:|---:|---:|---:|",
    ]
    for name, rows in subject_rows:
        for r in rows:
            lines.append(f"| {name} | {r['operation']} | {r['threads']} | {r['python']:,.0f} | {r['per_call']:,.0f} | "
                         f"{r['ratio']:.2f} | {r['reused']:,.0f} | {r['ratio_reused']:.2f} |")
    serial = pan["serial"]
    lines += [
        "",
        f"Eight NV12 frames ({pan_name}) decoded with `pelcast.decode`, medians of {args.runs} runs of each, in turn:",
        "",
        "| how | ms | speed-up over one after another |",
        "|---|---:|---:|",
        f"| one after another, 1 library thread | {serial * 1e3:.1f} | 1.00 |",
        f"| one after another, threads=2 | {pan['library_threads'] * 1e3:.1f} | {serial / pan['library_threads']:.2f} |",
        f"| on 2 Python threads, 1 library thread each | {pan['two_python_threads'] * 1e3:.1f} | "
        f"{serial / pan['two_python_threads']:.2f} |",
    ]
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--corpus", help="folder of the 1920x1080 corpus frames")
    parser.add_argument("--calls", type=int, default=120, help="steps per row")
    parser.add_argument("--runs", type=int, default=30, help="runs of the eight-frame decodes")
    parser.add_argument("--markdown", help="also write the report to this file")
    args = parser.parse_args()

    load_before = os.getloadavg()
    corpus = corpus_dir(args.corpus)
    if corpus is None:
        corpus_note = "no corpus named (--corpus, PELCAST_CORPUS_DIR): generated 1920x1080 frames"
    elif corpus.is_dir():
        corpus_note = f"1920x1080 corpus frames from {corpus}"
    else:
        corpus_note = f"no corpus at {corpus}: generated 1920x1080 frames"
        corpus = None
    print(corpus_note, file=sys.stderr)
    library = package_library()
    with tempfile.TemporaryDirectory() as temporary:
        folder = Path(temporary)
        c = load_c_bench(library, folder)
        subject_rows = []
        for fmt, name, image in load_subjects(corpus):
            print(f"timing {name}", file=sys.stderr)
            subject_rows.append((name, time_subject(c, fmt, image, args.calls)))
    pan_name, frames = load_pan(corpus)
    print(f"timing 8 frames of {pan_name}", file=sys.stderr)
    pan = time_python_threads(frames, args.runs)
    text = report(subject_rows, pan_name, pan, args, corpus_note, library, load_before)
    print(text)
    if args.markdown:
        Path(args.markdown).write_text(text)


if __name__ == "__main__":
    main()
