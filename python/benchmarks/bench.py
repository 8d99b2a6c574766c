#!/usr/bin/env python3
"""Decode and encode speed of the pelcast Python package against the same
libpelcast calls made from C, measured in the same run.

    build/python-venv/bin/python python/benchmarks/bench.py [--corpus DIR]
        [--rounds N] [--calls N] [--markdown FILE]

Frames: 1920x1080 frames of the project's corpus (--corpus, else
$PELCAST_CORPUS_DIR, else ../shared/corpus beside the repository):
photo-boats (NV12 and RGBA8888), photo-mountains (RGB565) and the eight
frames of pan-hillside (NV12) for the two-Python-threads figure. Without the
corpus, generated frames of the same size are used and the output says so.

The C side is c_bench.c, compiled here against the libpelcast.a the package
was linked with (python/build/*/libpelcast/api/libpelcast.a; else
build/release's). Its per-call mode makes the calls the package makes for
each frame (codec with its threads, output allocated, decode or encode, both
freed); its reused mode keeps one codec and one buffer. Each round times
Python, then C, on the same frame and thread count; the figures are medians
over the rounds of per-call medians, and the ratios medians of the rounds'
ratios. MB/s are 10^6 bytes of the packed linear frame per second, in both
directions. Every output is checked before it is timed.
"""

import argparse
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
    return REPOSITORY.parent / "shared" / "corpus"


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
        path = corpus / name
        if path.is_file():
            found.append((fmt, name, np.fromfile(path, dtype).reshape(shape)))
        else:
            found.append((fmt, f"generated {fmt}", generated(fmt, len(found))))
    return found


def load_pan(corpus):
    path = corpus / PAN
    if path.is_file():
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


def build_c_bench(library, folder):
    program = folder / "c_bench"
    subprocess.run(["cc", "-O2", "-std=c99", "-Wall", "-Wextra", "-Werror", "-DPELCAST_STATIC_DEFINE",
                    f"-I{REPOSITORY / 'include'}", str(HERE / "c_bench.c"), str(library),
                    "-lstdc++", "-lm", "-lpthread", "-o", str(program)], check=True)
    return program


def median_call(call, calls):
    times = []
    for _ in range(calls):
        start = time.perf_counter()
        call()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def c_call(program, operation, fmt, files, threads, calls):
    out = subprocess.run([str(program), operation, fmt, str(WIDTH), str(HEIGHT), str(files[0]), str(files[1]),
                          str(threads), str(calls)], check=True, capture_output=True, text=True).stdout
    return {mode: float(seconds) for mode, seconds in (line.split() for line in out.splitlines())}


def time_subject(program, fmt, image, folder, rounds, calls):
    """Rows of figures for one frame: decode and encode at 1 and 2 threads."""
    zpak = pelcast.encode(image, fmt)
    assert np.array_equal(pelcast.decode(zpak, fmt, WIDTH, HEIGHT), image)
    linear_bytes = pelcast.linear_frame_size(fmt, WIDTH, HEIGHT)
    files = (folder / f"{fmt}.linear", folder / f"{fmt}.zpak")
    files[0].write_bytes(image.tobytes())
    files[1].write_bytes(zpak)
    python_calls = {
        "decode": lambda t: pelcast.decode(zpak, fmt, WIDTH, HEIGHT, threads=t),
        "encode": lambda t: pelcast.encode(image, fmt, threads=t),
    }
    rows = []
    for operation, call in python_calls.items():
        for threads in THREADS:
            assert (call(threads) == zpak) if operation == "encode" else np.array_equal(call(threads), image)
            figures = {"python": [], "per_call": [], "reused": []}
            for _ in range(rounds):
                figures["python"].append(median_call(lambda: call(threads), calls))
                for mode, seconds in c_call(program, operation, fmt, files, threads, calls).items():
                    figures[mode].append(seconds)
            rate = {k: [linear_bytes / s / 1e6 for s in v] for k, v in figures.items()}
            rows.append({
                "operation": operation, "threads": threads,
                "python": statistics.median(rate["python"]),
                "per_call": statistics.median(rate["per_call"]),
                "reused": statistics.median(rate["reused"]),
                "ratio": statistics.median(p / c for p, c in zip(rate["python"], rate["per_call"])),
                "ratio_reused": statistics.median(p / c for p, c in zip(rate["python"], rate["reused"])),
            })
    return rows


def time_python_threads(frames, rounds):
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
    for _ in range(rounds * 3):
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
        "by hand. Every ratio divides two figures of this same run, taken round after round on the same "
        "frame: Python's `pelcast.decode` / `pelcast.encode` against the same libpelcast calls from C "
        "(`c_bench.c`): *per call* makes what the package makes for each frame (codec with its threads, "
        "output buffer), *reused* keeps one codec and one buffer. MB/s are 10^6 bytes of the packed "
        "linear frame per second, medians over the rounds of per-call medians.",
        "",
        f"- Machine: {machine()}",
        f"- Python {platform.python_version()}, numpy {np.__version__}, pelcast {pelcast.__version__}; "
        f"C side linked with {library.relative_to(REPOSITORY) if library.is_relative_to(REPOSITORY) else library}",
        f"- Frames: {corpus_note}",
        f"- Run: {time.strftime('%Y-%m-%dT%H:%M:%S%z')}, {args.rounds} rounds of {args.calls} calls; "
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
        f"Eight NV12 frames ({pan_name}) decoded with `pelcast.decode`, medians of {args.rounds * 3} runs:",
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
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--calls", type=int, default=20)
    parser.add_argument("--markdown", help="also write the report to this file")
    args = parser.parse_args()

    load_before = os.getloadavg()
    corpus = corpus_dir(args.corpus)
    if corpus.is_dir():
        corpus_note = f"1920x1080 corpus frames from {corpus}"
    else:
        corpus_note = f"no corpus at {corpus}: generated 1920x1080 frames"
    print(corpus_note, file=sys.stderr)
    library = package_library()
    with tempfile.TemporaryDirectory() as temporary:
        folder = Path(temporary)
        program = build_c_bench(library, folder)
        subject_rows = []
        for fmt, name, image in load_subjects(corpus):
            print(f"timing {name}", file=sys.stderr)
            subject_rows.append((name, time_subject(program, fmt, image, folder, args.rounds, args.calls)))
    pan_name, frames = load_pan(corpus)
    print(f"timing 8 frames of {pan_name}", file=sys.stderr)
    pan = time_python_threads(frames, args.rounds)
    text = report(subject_rows, pan_name, pan, args, corpus_note, library, load_before)
    print(text)
    if args.markdown:
        Path(args.markdown).write_text(text)


if __name__ == "__main__":
    main()
