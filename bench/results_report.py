#!/usr/bin/env python3
"""Writes bench/RESULTS.md from one pelcast_bench JSON report and the
end-to-end table of tools/e2e-bench.sh. Run by tools/bench.sh; every ratio it
prints divides two figures of the same run.

  results_report.py --json FILE --e2e FILE --out FILE --machine TEXT
                    --compiler TEXT --commands TEXT [--note TEXT]...
"""
import argparse
import json
import re
import sys

MB = 1e6


def load_rows(path):
    """Median MB/s per benchmark name, and the error text of skipped rows."""
    with open(path) as f:
        report = json.load(f)
    rates, errors = {}, {}
    for entry in report["benchmarks"]:
        # Rows timed by the wall clock carry a suffix that says so.
        name = entry.get("run_name", entry["name"]).removesuffix("/real_time")
        if entry.get("error_occurred"):
            errors[name] = entry.get("error_message", "error")
            continue
        aggregate = entry.get("aggregate_name")
        if aggregate not in (None, "median"):
            continue
        if "bytes_per_second" in entry:
            rates[name] = entry["bytes_per_second"] / MB
    return report["context"], rates, errors


def fmt_rate(value):
    if value is None:
        return "-"
    return f"{value:,.0f}" if value >= 100 else f"{value:,.1f}"


def fmt_ratio(a, b):
    if a is None or b is None or b == 0:
        return "-"
    r = a / b
    return f"{r:.3f}" if r < 0.1 else f"{r:.2f}"


def subjects(rates, prefix):
    """Subjects of rows named prefix/<subject>, in first-seen order."""
    seen = []
    for name in rates:
        if name.startswith(prefix + "/"):
            subject = name[len(prefix) + 1:]
            if subject not in seen:
                seen.append(subject)
    return seen


class Report:
    def __init__(self, rates, errors):
        self.rates = rates
        self.errors = errors
        self.used = set()
        self.lines = []

    def get(self, name):
        if name in self.rates:
            self.used.add(name)
            return self.rates[name]
        return None

    def out(self, text=""):
        self.lines.append(text)

    def table(self, header, rows, text_columns=1):
        """A table whose first `text_columns` columns are text, the rest figures."""
        self.out("| " + " | ".join(header) + " |")
        self.out("|" + "|".join("---" if i < text_columns else "---:"
                                for i in range(len(header))) + "|")
        for row in rows:
            self.out("| " + " | ".join(row) + " |")
        self.out()


def frame_tables(r):
    r.out("## Frame codecs")
    r.out()
    r.out("In-process frame functions (`DecodeZpakFrame`, `DecodeZpakFrameRgb565`, "
          "`EncodeZpakFrame`, `EncodeZpakFrameRgb565`) with the buffers and descriptor the "
          "commands use, on every 1920x1080 corpus file (`pan-hillside-8f`: its eight frames "
          "in turn) and on `uhd-mosaic`, a 3840x2160 frame of four corpus frames. MB/s of the "
          "packed linear frame in both directions; memcpy copies the same packed frames; QOI "
          "encodes and decodes the same RGBA frames. Every decode row was checked to give back "
          "the encoded frame before it was timed.")
    r.out()
    for direction, qoi in (("decode", "qoi_decode"), ("encode", "qoi_encode")):
        for fmt in ("nv12", "rgba8888", "rgb565"):
            prefix = f"frame_{direction}/{fmt}"
            names = subjects(r.rates, prefix)
            if not names:
                continue
            with_qoi = fmt == "rgba8888" and any(f"{qoi}/{fmt}/{s}" in r.rates for s in names)
            header = ["subject", f"pelcast {direction} MB/s", "memcpy MB/s", "pelcast / memcpy"]
            if with_qoi:
                header += [f"QOI {direction} MB/s", "pelcast / QOI"]
            rows = []
            for s in names:
                ours = r.get(f"{prefix}/{s}")
                copy = r.get(f"memcpy/{fmt}/{s}")
                row = [s, fmt_rate(ours), fmt_rate(copy), fmt_ratio(ours, copy)]
                if with_qoi:
                    ref = r.get(f"{qoi}/{fmt}/{s}")
                    row += [fmt_rate(ref), fmt_ratio(ours, ref)]
                rows.append(row)
            r.out(f"### Frame {direction}, {fmt.upper()}")
            r.out()
            r.table(header, rows)


# The targets of the speed work, checked against this run's figures.
DECODE_FLOOR = 3000          # MB/s, every corpus frame and format, one thread
ENCODE_FLOOR = {"nv12": 1500, "rgba8888": 1300}  # MB/s, one thread
QOI_DECODE_FACTOR = 2.0      # decode >= 2x QOI's RGBA decode of the same frame, per pixel
QOI_ENCODE_SUBJECTS = ("screen-home", "pattern-testsrc2")  # encode >= QOI's encode there
UHD_TOLERANCE = 0.10         # 3840x2160 within 10 % of 1080p per pixel
E2E_LIMITS = {"U": 1.5, "G": 1.5, "B": 1.5, "H": 2.0, "N": 2.0}  # command / cat
THREAD_SCALING = 1.7         # 2 threads against one, the public API
BYTES_PER_PIXEL = {"nv12": 1.5, "rgba8888": 4.0, "rgb565": 2.0}
UHD_SUBJECT = "uhd-mosaic"
UHD_QUADRANTS = 4


def mark(ok):
    return "met" if ok else "**missed**"


def frame_subjects(r, direction, fmt):
    return subjects(r.rates, f"frame_{direction}/{fmt}")


def uhd_reference(r, direction, fmt):
    """What the mosaic would run at if it ran at its quadrants' 1080p speed per
    pixel: the quadrants are the first four subjects of the format in turn
    (bench_support.cc UhdFrame), and four frames take the sum of their times,
    so the reference rate is the harmonic mean of theirs."""
    names = [s for s in frame_subjects(r, direction, fmt) if s != UHD_SUBJECT]
    if not names:
        return None, []
    parts = [names[q % len(names)] for q in range(UHD_QUADRANTS)]
    rates = [r.get(f"frame_{direction}/{fmt}/{s}") for s in parts]
    if any(v is None or v == 0 for v in rates):
        return None, parts
    return len(rates) / sum(1 / v for v in rates), parts


def e2e_rows(path):
    """{case: (ratio, one-thread ratio or None)} of the e2e table's rows."""
    rows = {}
    try:
        with open(path) as f:
            for line in f:
                cells = [c.strip() for c in line.strip().strip("|").split("|")]
                if len(cells) < 7 or not re.match(r"^[0-9.]+$", cells[6]):
                    continue
                one = float(cells[12]) if len(cells) > 12 and re.match(r"^[0-9.]+$", cells[12]) else None
                rows[cells[0]] = (float(cells[6]), one)
    except OSError:
        pass
    return rows


def target_lines(r, e2e_path):
    """One line per target: the figure of its worst row, the reference in the
    same run where there is one, and whether every row meets it; and the rows
    that miss it."""
    lines, missed = [], []

    def add(target, rows, higher_is_better=True):
        """rows: (row name, figure text, value, ok)."""
        if not rows:
            lines.append([target, "-", "no rows in this run", "-"])
            return
        worst = min(rows, key=lambda x: x[2]) if higher_is_better else max(rows, key=lambda x: x[2])
        ok = all(x[3] for x in rows)
        lines.append([target, f"{sum(x[3] for x in rows)} of {len(rows)}",
                      f"{worst[1]} ({worst[0]})", mark(ok)])
        missed.extend([target, x[0], x[1]] for x in rows if not x[3])

    for fmt in ("nv12", "rgba8888", "rgb565"):
        rows = []
        for s in frame_subjects(r, "decode", fmt):
            v = r.get(f"frame_decode/{fmt}/{s}")
            rows.append((s, f"{fmt_rate(v)} MB/s", v, v >= DECODE_FLOOR))
        if rows:
            add(f"{fmt.upper()} decode >= {DECODE_FLOOR:,} MB/s", rows)
    for fmt in ("nv12", "rgba8888", "rgb565"):
        rows = []
        for s in frame_subjects(r, "decode", fmt):
            qoi = r.get(f"qoi_decode/rgba8888/{s}")
            ours = r.get(f"frame_decode/{fmt}/{s}")
            # The same picture only: the mosaic is made of other frames per format.
            if qoi is None or ours is None or (s == UHD_SUBJECT and fmt != "rgba8888"):
                continue
            ratio = (ours / BYTES_PER_PIXEL[fmt]) / (qoi / BYTES_PER_PIXEL["rgba8888"])
            rows.append((s, f"{ratio:.2f}x (QOI {fmt_rate(qoi)} MB/s RGBA)", ratio,
                         ratio >= QOI_DECODE_FACTOR))
        if rows:
            add(f"{fmt.upper()} decode >= {QOI_DECODE_FACTOR:g}x QOI's decode, per pixel", rows)
    for fmt, floor in ENCODE_FLOOR.items():
        rows = []
        for s in frame_subjects(r, "encode", fmt):
            v = r.get(f"frame_encode/{fmt}/{s}")
            rows.append((s, f"{fmt_rate(v)} MB/s", v, v >= floor))
        if rows:
            add(f"{fmt.upper()} encode >= {floor:,} MB/s", rows)
    rows = []
    for s in QOI_ENCODE_SUBJECTS:
        ours = r.get(f"frame_encode/rgba8888/{s}")
        qoi = r.get(f"qoi_encode/rgba8888/{s}")
        if ours is not None and qoi is not None:
            rows.append((s, f"{ours / qoi:.2f}x (QOI {fmt_rate(qoi)} MB/s)", ours / qoi, ours >= qoi))
    add("RGBA8888 encode >= QOI's encode (screen-home, pattern)", rows)
    rows = []
    for direction in ("decode", "encode"):
        for fmt in ("nv12", "rgba8888", "rgb565"):
            uhd = r.get(f"frame_{direction}/{fmt}/{UHD_SUBJECT}")
            ref, parts = uhd_reference(r, direction, fmt)
            if uhd is None or ref is None:
                continue
            ratio = uhd / ref
            rows.append((f"{fmt} {direction}", f"{ratio:.2f} of 1080p ({fmt_rate(uhd)} against "
                         f"{fmt_rate(ref)} MB/s of {', '.join(dict.fromkeys(parts))})", ratio,
                         ratio >= 1 - UHD_TOLERANCE))
    add(f"3840x2160 within {UHD_TOLERANCE:.0%} of 1080p per pixel", rows)
    e2e = e2e_rows(e2e_path)
    for letters, limit in (("UGB", 1.5), ("HN", 2.0)):
        rows = []
        for case, (ratio, one) in e2e.items():
            if case.split()[0] in letters:
                one_text = f", 1 thread {one:.2f}" if one is not None else ""
                rows.append((case, f"{ratio:.2f}x cat{one_text}", ratio, ratio <= limit))
        add(f"end to end {', '.join(letters)} <= {limit:g}x cat", rows, higher_is_better=False)
    rows = []
    for direction in ("decode", "encode"):
        for fmt in ("nv12", "rgba8888", "rgb565"):
            for s in subjects(r.rates, f"api_{direction}/{fmt}/1t"):
                one = r.rates.get(f"api_{direction}/{fmt}/1t/{s}")
                two = r.rates.get(f"api_{direction}/{fmt}/2t/{s}")
                if one and two:
                    rows.append((f"{direction} {fmt} {s}", f"{two / one:.2f}x", two / one,
                                 two / one >= THREAD_SCALING))
    add(f"public API: 2 threads >= {THREAD_SCALING:g}x one (issue 12)", rows)
    return lines, missed


def targets_section(r, e2e_path):
    lines, missed = target_lines(r, e2e_path)
    r.out("## Targets")
    r.out()
    r.out("The speed targets, each checked on every row of this run it applies to: how many "
          "rows meet it, the figure of the row furthest from it (with the reference measured "
          "in the same run, where the target names one), and met when every row meets it. "
          "Decode and encode figures are one thread in process; the QOI comparison counts "
          "pixels (MB/s over the format's bytes per pixel, QOI's RGBA being 4), on the frames "
          "both have; 3840x2160 is compared with the four 1080p frames the mosaic is made of, "
          "at the rate four frames of their speeds would take together; end to end is the "
          "commands on their default threads against cat (the e2e table below also has them "
          "on one thread).")
    r.out()
    r.table(["target", "rows met", "furthest row", "met"], lines, text_columns=4)
    if missed:
        r.out("Rows that miss their target:")
        r.out()
        r.table(["target", "row", "figure"], missed, text_columns=3)


def threads_table(r):
    """The public API's frames on 1 and 2 threads (wall-clock time)."""
    names = [n for n in r.rates if n.startswith(("api_decode/", "api_encode/"))]
    if not names:
        return
    r.out("## Threads: the public API on 1 and 2 threads")
    r.out()
    r.out("`pelcast_codec_decode` and `pelcast_codec_encode` with `pelcast_codec_set_threads` "
          "1 and 2, timed by the wall clock (the other rows count one thread's CPU time). "
          "MB/s of the packed linear frame; target for 2 threads on this 2-core machine: "
          ">= 1.7x one thread at 1920x1080 and 3840x2160.")
    r.out()
    rows = []
    for direction in ("decode", "encode"):
        for fmt in ("nv12", "rgba8888", "rgb565"):
            for subject in subjects(r.rates, f"api_{direction}/{fmt}/1t"):
                one = r.get(f"api_{direction}/{fmt}/1t/{subject}")
                two = r.get(f"api_{direction}/{fmt}/2t/{subject}")
                speedup = two / one if one and two else None
                mark = "-" if speedup is None else ("met" if speedup >= 1.7 else "missed")
                rows.append([direction, fmt, subject, fmt_rate(one), fmt_rate(two),
                             fmt_ratio(two, one), mark])
    r.table(["direction", "format", "subject", "1 thread MB/s", "2 threads MB/s",
             "2 / 1", ">= 1.7"], rows, text_columns=3)


def tile_table(r):
    kinds = subjects(r.rates, "tile_decode") or subjects(r.rates, "tile_encode")
    if not kinds:
        return
    r.out("## Tile codecs")
    r.out()
    r.out("`DecodeTile` and `EncodeZpakTile` alone on 4096 tiles per plane kind, cut evenly "
          "from the single-frame corpus files of the format (about 1 MB: the set stays in "
          "cache). MB/s of raw tile bytes; memcpy copies the same raw tiles.")
    r.out()
    rows = []
    for k in kinds:
        dec = r.get(f"tile_decode/{k}")
        enc = r.get(f"tile_encode/{k}")
        copy = r.get(f"memcpy_tiles/{k}")
        rows.append([k, fmt_rate(dec), fmt_rate(enc), fmt_rate(copy), fmt_ratio(dec, copy),
                     fmt_ratio(enc, copy)])
    r.table(["plane kind", "decode MB/s", "encode MB/s", "memcpy MB/s", "decode / memcpy",
             "encode / memcpy"], rows)


RAW_KERNELS = [
    ("P: planar to NV12", "raw_P", "libyuv_I420ToNV12", "libyuv_MergeUVPlane"),
    ("I: NV12 to planar", "raw_I", "libyuv_NV12ToI420", "libyuv_SplitUVPlane"),
    ("C: crop to 2/3 x 2/3, planar", "raw_C", "libyuv_ConvertToI420_crop", None),
    ("E: padded NV12 to planar", "raw_E", "libyuv_NV12ToI420_padded", "libyuv_SplitUVPlane_padded"),
    ("S/R: luma squared error", "raw_sse", "libyuv_ComputeSumSquareError", None),
]


def raw_tables(r):
    names = subjects(r.rates, "raw_P")
    if not names:
        return
    r.out("## Raw tools: in-memory work per frame")
    r.out()
    r.out("What each command does to a frame between its read and its write, beside libyuv "
          "converting the same frame. P and I write the luma straight from their read buffer, "
          "so their work is the chroma reshuffle; libyuv's whole conversions also copy the luma "
          "into a new plane, and its MergeUVPlane / SplitUVPlane rows are the same chroma-only "
          "share. MB/s of the packed output frame (C: the cropped frame; S/R: the luma plane "
          "compared). T does nothing between read and write: its figure is the e2e table's.")
    r.out()
    rows = []
    for s in names:
        for label, ours_name, full_name, share_name in RAW_KERNELS:
            ours = r.get(f"{ours_name}/{s}")
            full = r.get(f"{full_name}/{s}")
            share = r.get(f"{share_name}/{s}") if share_name else None
            rows.append([label, s, fmt_rate(ours), f"{fmt_rate(full)} ({full_name[7:]})",
                         fmt_ratio(ours, full),
                         f"{fmt_rate(share)} ({share_name[7:]})" if share_name else "-",
                         fmt_ratio(ours, share)])
    r.table(["command", "subject", "pelcast MB/s", "libyuv MB/s", "pelcast / libyuv",
             "libyuv same share MB/s", "pelcast / share"], rows, text_columns=2)
    sets = []
    for name in r.rates:
        m = re.match(r"raw_P_rows/([^/]+)/", name)
        if m and m.group(1) not in sets:
            sets.append(m.group(1))
    if sets:
        r.out("### Row kernels per instruction set")
        r.out()
        r.out("The same loops compiled for each instruction set this processor runs (the "
              "commands use the last): P's interleave over the chroma rows (MB/s of the frame) "
              "and the squared error over the luma rows (MB/s of luma).")
        r.out()
        rows = []
        for s in names:
            for kernel in ("raw_P_rows", "raw_sse_rows"):
                base = r.get(f"{kernel}/{sets[0]}/{s}")
                cells = [kernel[:-5], s]
                for st in sets:
                    v = r.get(f"{kernel}/{st}/{s}")
                    cells.append(fmt_rate(v))
                cells.append(fmt_ratio(r.get(f"{kernel}/{sets[-1]}/{s}"), base))
                rows.append(cells)
        r.table(["kernel", "subject"] + [f"{st} MB/s" for st in sets] +
                [f"{sets[-1]} / {sets[0]}"], rows, text_columns=2)


STREAMED_TEXT = (
    "The {routine} routines of the sets that have streamed versions, which the frame decoder "
    "uses for walks that write 12 MiB or more to 16-byte aligned rows: their stores go past the "
    "cache to memory, as a frame far larger than the cache would push them out anyway. Here "
    "every tile goes to the same small buffer, which stays in cache for the ordinary routines "
    "and is sent to memory again after every tile by these, so these rows are slower than their "
    "ordinary twins; in the large frames they are for, the frame rows (3840x2160) show what "
    "they gain.")
STREAMED_NOTES = {
    "decode_tile_streamed": STREAMED_TEXT.format(routine="tile decode"),
    "expand_raw_streamed": STREAMED_TEXT.format(routine="raw-tile"),
}


def other_table(r):
    rest = [n for n in r.rates if n not in r.used]
    if rest:
        r.out("## Other benchmarks")
        r.out()
        r.out("Rows of further benchmark files, as measured (MB/s as each file counts it), "
              "grouped by the first part of their names.")
        r.out()
        groups = {}
        for n in rest:
            groups.setdefault(n.split("/", 1)[0], []).append(n)
        for group, names in groups.items():
            r.out(f"### {group}")
            r.out()
            if group in STREAMED_NOTES:
                r.out(STREAMED_NOTES[group])
                r.out()
            r.table(["benchmark", "MB/s"], [[n, fmt_rate(r.rates[n])] for n in names])
    if r.errors:
        r.out("## Rows that reported an error")
        r.out()
        r.table(["benchmark", "error"], [[n, e] for n, e in r.errors.items()], text_columns=2)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--json", required=True)
    parser.add_argument("--e2e", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--machine", required=True)
    parser.add_argument("--compiler", required=True)
    parser.add_argument("--commands", required=True)
    parser.add_argument("--note", action="append", default=[])
    args = parser.parse_args()

    context, rates, errors = load_rows(args.json)
    r = Report(rates, errors)
    r.out("# pelcast benchmark results")
    r.out()
    r.out("Regenerated by `tools/bench.sh`; do not edit by hand. Every ratio divides two "
          "figures of this same run. MB/s are 10^6 bytes per second of uncompressed pixel "
          "bytes, medians of repeated runs (CPU time, one thread).")
    r.out()
    r.out(f"- Machine: {args.machine}")
    r.out(f"- Compiler: {args.compiler}")
    r.out(f"- Run: {context.get('date', '?')}; load average at the start "
          f"{', '.join(f'{x:.2f}' for x in context.get('load_avg', []))}")
    r.out(f"- References: libyuv {context.get('libyuv', 'absent')}; QOI {context.get('qoi', 'absent')}")
    for note in args.note:
        r.out(f"- Note: {note}")
    r.out()
    r.out("Commands:")
    r.out()
    r.out("```")
    r.out(args.commands)
    r.out("```")
    r.out()
    targets_section(r, args.e2e)
    frame_tables(r)
    threads_table(r)
    tile_table(r)
    raw_tables(r)
    r.out("## End to end: the commands against cat")
    r.out()
    r.out("`tools/e2e-bench.sh`: the real pelcast commands on corpus files (single frames: "
          "photo-mountains; 4K: the 3840x2160 mosaic; seq: the 8-frame pan sequence), each "
          "beside `cat` of the same "
          "input to the same output place, warm page cache, measured by hyperfine: median "
          "wall-clock time of repeated runs, and their mean CPU time (user + system), which "
          "other work on the machine disturbs less. ratio = pelcast / cat. cat copies inside "
          "the kernel (copy_file_range) without passing the bytes through its own memory. "
          "The output column is the comparison with an independently known result where one "
          "exists (decoders give back the original frames, P undoes I, E gives what I gives, "
          "T copies the whole sequence).")
    r.out()
    with open(args.e2e) as f:
        r.out(f.read().rstrip("\n"))
    r.out()
    other_table(r)
    with open(args.out, "w") as f:
        f.write("\n".join(r.lines).rstrip("\n") + "\n")


if __name__ == "__main__":
    sys.exit(main())
