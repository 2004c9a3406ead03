#!/usr/bin/env python3
"""Writes bench/RESULTS.md from the JSON files of one run of scripts/bench.

Every figure is set against a reference measured in the same run of the same
executable: its peer (another implementation of the same job), the plain-read
floor (the same bytes or files read, copied or stat'ed with plain calls), or a
baseline of its own family (the smallest folder, the keyed form). A figure with
none of these says so.

Usage: bench_results.py RESULTS_DIR [CMAKE_CACHE] > bench/RESULTS.md
"""

import json
import os
import platform
import re
import subprocess
import sys

# (executable, figure pattern, reference template, kind of reference, what the
# reference is). "{arg}" in a template is the figure's first argument.
RULES = [
    ("mime_bench", r"BM_ReaderParse$", "BM_GMimeParse", "peer", "GMime 3 parsing the same messages"),
    ("index_load_bench", r"BM_StreamReaderFull/\d+", "BM_DocumentMemberFull/{arg}", "peer",
     "the document member (pugixml) loading the same file"),
    ("index_load_bench", r"BM_StreamReaderHeader/\d+", "BM_StreamReaderFull/{arg}", "baseline",
     "a full load of the same file"),
    ("index_rows_bench", r"BM_InsertRowsByName$", "BM_InsertRows", "baseline",
     "the same rows set by key"),
    ("index_rows_bench", r"BM_LookupById$", "BM_LookupByUid", "baseline", "lookup by UID"),
    ("index_rows_bench", r"BM_Teardown$", "BM_InsertRows", "baseline", "building the same rows"),
    ("index_write_bench", r"BM_AppendOneRow/\d+", "BM_AppendOneRow/1000", "baseline",
     "the same append to a 1,000-row folder (target: at most 1.5)"),
    ("index_write_bench", r"BM_FlagChangeOnFirstRow/\d+", "BM_CopySameBytes/{arg}", "floor",
     "copying the same bytes through the same buffer"),
    ("direct_store_bench", r"BM_\w+/\d+", "{family}/1000", "baseline",
     "the same call on a 1,000-row folder"),
    ("message_index_bench", r"BM_IndexBy\w+", "BM_PlainRead", "floor",
     "reading the same files whole"),
    ("rescan_bench", r"BM_Rebuild\w+/\d+", "BM_PlainRead/{arg}", "floor",
     "reading the same files whole"),
    ("rescan_bench", r"BM_RescanUpToDate\w+/\d+", "BM_PlainStat/{arg}", "floor",
     "one stat of each of the same files"),
    ("text_codecs_bench", r"BM_(Base64\w+|NarrowToWide\w+)", "BM_Copy", "floor",
     "memcpy of the same number of bytes"),
]

# Figures that are themselves the references above.
REFERENCES = {
    ("mime_bench", "BM_GMimeParse"): "peer",
    ("index_load_bench", "BM_DocumentMemberFull"): "peer",
    ("index_write_bench", "BM_CopySameBytes"): "floor",
    ("message_index_bench", "BM_PlainRead"): "floor",
    ("rescan_bench", "BM_PlainRead"): "floor",
    ("rescan_bench", "BM_PlainStat"): "floor",
    ("text_codecs_bench", "BM_Copy"): "floor",
}

# Figures that carry their comparison in a counter: (kind, what, counter,
# whether the counter is the reference's time over the figure's).
IN_COUNTER = {
    ("mime_bench", "BM_ReaderVersusGMime"): ("peer", "GMime 3, alternating with the reader in one loop", "speedup", True),
}

NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def key_of(run_name):
    """The family and its numeric arguments, without iteration or time options."""
    parts = run_name.split("/")
    return "/".join([parts[0]] + [p for p in parts[1:] if re.fullmatch(r"-?\d+", p)])


def load_runs(path):
    with open(path) as f:
        data = json.load(f)
    runs = {}
    for b in data.get("benchmarks", []):
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "mean":
            continue
        runs[key_of(b.get("run_name", b["name"]))] = b
    return data.get("context", {}), runs


def time_ns(b):
    return b["real_time"] * NS.get(b.get("time_unit", "ns"), 1.0)


def human_time(ns):
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if ns >= scale:
            return f"{ns / scale:.3g} {unit}"
    return f"{ns:.3g} ns"


def human_rate(b):
    if "bytes_per_second" in b:
        return f"{b['bytes_per_second'] / (1 << 20):,.1f} MiB/s"
    if "items_per_second" in b:
        return f"{b['items_per_second']:,.0f} items/s"
    return ""


def counters(b):
    skip = {"name", "run_name", "run_type", "repetitions", "repetition_index", "threads",
            "iterations", "real_time", "cpu_time", "time_unit", "bytes_per_second",
            "items_per_second", "family_index", "per_family_instance_index", "label",
            "aggregate_name", "aggregate_unit", "error_occurred", "error_message"}
    shown = []
    for k, v in b.items():
        if k in skip or not isinstance(v, (int, float)):
            continue
        shown.append(f"{k} {number(v)}")
    return ", ".join(shown)


def number(v):
    if isinstance(v, int) or (abs(v) < 1e15 and v == int(v)):
        return f"{int(v):,}"
    return f"{v:,.3g}"


def bytes_per_run(b):
    """Bytes one iteration handles. Google Benchmark's byte rate is per CPU
    second; the CPU time of one iteration brings it back to a count."""
    return b.get("bytes_per_second", 0) * b["cpu_time"] * NS.get(b.get("time_unit", "ns"), 1.0) / 1e9


def ratio(b, ref):
    """How many times the reference's wall-clock cost the figure takes, per
    byte where both count bytes (below 1: cheaper)."""
    figure, reference = time_ns(b), time_ns(ref)
    if bytes_per_run(b) > 0 and bytes_per_run(ref) > 0:
        figure /= bytes_per_run(b)
        reference /= bytes_per_run(ref)
    return figure / reference


def reference_for(exe, name, runs):
    """The reference run (or None), its kind, and what it is."""
    if (exe, name.split("/")[0]) in REFERENCES:
        return None, REFERENCES[(exe, name.split("/")[0])], "is itself the reference"
    for rule_exe, pattern, template, kind, what in RULES:
        if rule_exe != exe or not re.fullmatch(pattern, name):
            continue
        parts = name.split("/")
        ref_name = template.format(arg=parts[1] if len(parts) > 1 else "", family=parts[0])
        if ref_name == name:
            return None, "baseline", "is itself the baseline"
        return runs.get(ref_name), kind, f"{ref_name}: {what}"
    if any(rule[0] == exe for rule in RULES):
        return None, "", "no peer or floor in this benchmark"
    # An executable added later: a plain read or copy beside it is the floor.
    for ref_name in runs:
        if re.search(r"Plain|Copy|Floor", ref_name):
            return runs[ref_name], "floor", f"{ref_name} (same run)"
    return None, "", "no peer or floor in this benchmark"


def cmake_value(cache_path, name):
    if not cache_path or not os.path.exists(cache_path):
        return ""
    with open(cache_path) as f:
        for line in f:
            if line.startswith(name + ":"):
                return line.split("=", 1)[1].strip()
    return ""


def machine(context, cache_path):
    cpu = ""
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    cpu = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    memory = ""
    try:
        with open("/proc/meminfo") as f:
            kb = int(f.readline().split()[1])
            memory = f"{kb / (1 << 20):.1f} GiB memory"
    except (OSError, ValueError, IndexError):
        pass
    compiler = cmake_value(cache_path, "CMAKE_CXX_COMPILER")
    if compiler:
        try:
            compiler = subprocess.run([compiler, "--version"], capture_output=True,
                                      text=True).stdout.splitlines()[0]
        except (OSError, IndexError):
            pass
    cpus = context.get("num_cpus", os.cpu_count())
    mhz = context.get("mhz_per_cpu", "")
    parts = [f"{cpu or platform.processor()}", f"{cpus} CPUs" + (f" at {mhz} MHz" if mhz else ""),
             memory, f"{platform.system()} {platform.release()}", compiler]
    return "; ".join(p for p in parts if p)


def main():
    results_dir = sys.argv[1]
    cache = sys.argv[2] if len(sys.argv) > 2 else ""
    files = sorted(f for f in os.listdir(results_dir) if f.endswith(".json"))
    loaded = []
    for f in files:
        try:
            loaded.append((f[:-5], *load_runs(os.path.join(results_dir, f))))
        except (OSError, ValueError) as e:
            loaded.append((f[:-5], {}, {}))
            print(f"warning: {f}: {e}", file=sys.stderr)
    context = next((c for _, c, _ in loaded if c), {})
    try:
        commit = subprocess.run(["git", "describe", "--always", "--dirty"], capture_output=True,
                                text=True, cwd=os.path.dirname(os.path.abspath(__file__))
                                ).stdout.strip()
    except OSError:
        commit = ""
    out = ["# Benchmark results", "",
           "Written by `scripts/bench` from one run of every `bench/*_bench` executable "
           "(Release build).", "",
           f"- Date: {context.get('date', 'unknown')}",
           f"- Machine: {machine(context, cache)}",
           f"- Build: {cmake_value(cache, 'CMAKE_BUILD_TYPE') or 'unknown'}"
           + (f", source {commit}" if commit else "")
           + f" (the Google Benchmark library itself reports a "
           f"{context.get('library_build_type', 'unknown')} build)",
           f"- Load average when the run began: "
           f"{', '.join(f'{x:.2f}' for x in context.get('load_avg', [])) or 'unknown'}; "
           f"CPU frequency scaling {'on' if context.get('cpu_scaling_enabled') else 'off'}", "",
           "Each figure is set against a reference from the same run: its **peer** (another "
           "implementation doing the same job), the **floor** (the same data read, copied or "
           "stat'ed with plain calls, which no implementation can beat), or a **baseline** of "
           "its own family. *Ratio* is the figure's wall-clock time in units of the reference's "
           "(per byte where both count bytes, else per run): below 1 is faster than the "
           "reference. *Rate* is Google Benchmark's own, per CPU second. The machine is shared, "
           "so the load average above says how quiet it was.", ""]
    for exe, _, runs in loaded:
        out += [f"## {exe}", ""]
        if not runs:
            out += ["No results (the executable failed or was filtered out).", ""]
            continue
        out += ["| Figure | Time | Rate | Counters | Reference | Ratio |",
                "|---|---|---|---|---|---|"]
        for name, b in runs.items():
            if b.get("error_occurred"):
                out.append(f"| `{name}` | error: {b.get('error_message', '')} | | | | |")
                continue
            ref, kind, what = reference_for(exe, name, runs)
            shown_ratio = (f"{ratio(b, ref):.3g}" if ref and not ref.get("error_occurred")
                           else "—")
            noted = IN_COUNTER.get((exe, name.split("/")[0]))
            if noted and noted[2] in b and b[noted[2]]:
                kind, what = noted[0], noted[1]
                value = b[noted[2]]
                shown_ratio = f"{1 / value if noted[3] else value:.3g}"
            label = f"{kind}: {what}" if kind else what
            out.append(f"| `{name}` | {human_time(time_ns(b))} | {human_rate(b)} | {counters(b)} "
                       f"| {label} | {shown_ratio} |")
        out.append("")
    sys.stdout.write("\n".join(out))


if __name__ == "__main__":
    main()
