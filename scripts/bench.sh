#!/usr/bin/env bash
# One performance report: runs every benchmark program of a release build (short runs), then
# prints the rows of bench/targets.json, each measurement beside the baseline measured in the same
# run, with its target, and marks every row that misses it. Figures go to a JSON file as well.
#
#   scripts/bench.sh                        # build/release/bench, report in build/bench-report.json
#   scripts/bench.sh -d other/bench -o r.json -f 'bench_hash|bench_archive'
#   scripts/bench.sh -r dir                 # report again from the raw results kept in dir
#
# Options: -d bench dir, -o JSON output, -f programs to run (extended regex, default all),
# -n repetitions (3), -t minimum seconds per repetition (0.1), -k keep raw results in a dir,
# -r report from raw results already in a dir (nothing is run).
# Each figure is computed from the fastest repetition (the one least disturbed by other load on
# a shared machine); the median's figure is printed beside it.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
dir="$root/build/release/bench"
out="$root/build/bench-report.json"
filter="."
reps=3
mintime=0.1
keep=""
reuse=""
while getopts "d:o:f:n:t:k:r:" opt; do
    case $opt in
        d) dir="$OPTARG" ;;
        o) out="$OPTARG" ;;
        f) filter="$OPTARG" ;;
        n) reps="$OPTARG" ;;
        t) mintime="$OPTARG" ;;
        k) keep="$OPTARG" ;;
        r) reuse="$OPTARG" ;;
        *) sed -n '2,14p' "$0"; exit 2 ;;
    esac
done

if [ -n "$reuse" ]; then
    raw="$reuse"
else
    raw="${keep:-$(mktemp -d)}"
    mkdir -p "$raw"
    [ -n "$keep" ] || trap 'rm -rf "$raw"' EXIT
    found=0
    for prog in "$dir"/bench_*; do
        [ -x "$prog" ] && [ -f "$prog" ] || continue
        name="$(basename "$prog")"
        echo "$name" | grep -Eq "$filter" || continue
        found=1
        echo "== $name" >&2
        "$prog" --benchmark_repetitions="$reps" --benchmark_min_time="$mintime" \
            --benchmark_format=json --benchmark_out="$raw/$name.json" \
            --benchmark_out_format=json >/dev/null 2>"$raw/$name.log" ||
            echo "   $name failed (see $raw/$name.log)" >&2
    done
    [ "$found" = 1 ] || { echo "no benchmark programs in $dir" >&2; exit 1; }
fi

python3 - "$root/bench/targets.json" "$raw" "$out" <<'PY'
import json, os, re, statistics, sys

targets_path, raw, out_path = sys.argv[1:4]
rows = json.load(open(targets_path))["rows"]
to_ns = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}

# name -> list of repetitions, per program
runs = {}
for f in sorted(os.listdir(raw)):
    if not f.endswith(".json"):
        continue
    try:
        data = json.load(open(os.path.join(raw, f)))
    except ValueError:
        continue
    progs = runs.setdefault(f[:-5], {})
    for b in data.get("benchmarks", []):
        if b.get("run_type", "iteration") != "iteration" or b.get("error_occurred"):
            continue
        progs.setdefault(b.get("run_name", b["name"]), []).append(b)

def find(program, pattern):
    if not pattern:
        return None
    for name, reps in runs.get(program, {}).items():
        if re.fullmatch(pattern, name):
            return name, reps
    return None

def value(reps, figure, clock):
    """Per repetition: ns per iteration (per entry for ns_per_entry) or millions of items/s."""
    vals = []
    for b in reps:
        t = b["real_time" if clock == "real" else "cpu_time"] * to_ns[b.get("time_unit", "ns")]
        if figure == "ns_per_entry":
            t /= b.get("entries", 1) or 1
        if figure == "items_per_second":
            t = b.get("items_per_second", 0) / 1e6
        vals.append(t)
    return vals

higher_better = {"speed", "items_per_second"}
report = []
for r in rows:
    fig, clock, target = r["figure"], r.get("clock", "cpu"), r.get("target")
    m = find(r["program"], r["measure"])
    b = find(r["program"], r.get("baseline"))
    entry = {"row": r["row"], "program": r["program"], "measure": m[0] if m else r["measure"],
             "baseline": b[0] if b else r.get("baseline"), "figure": fig, "target": target}
    if not m:
        entry["status"] = "not measured"
        report.append(entry)
        continue
    mv = value(m[1], fig, clock)
    bv = value(b[1], fig, clock) if b else None
    best = max if fig == "items_per_second" else min
    for stat, pick in (("min", best), ("median", statistics.median)):
        x = pick(mv)
        y = pick(bv) if bv else None
        ratio = x / y if y else None
        if fig == "speed":
            figure = y / x if y else None
        elif fig == "time":
            figure = ratio
        else:
            figure = x
        entry[stat] = {"value": x, "baseline": y, "ratio": ratio, "figure": figure}
    f = entry["min"]["figure"]
    if target is None or f is None:
        entry["status"] = "info"
    else:
        ok = f >= target if fig in higher_better else f <= target
        entry["status"] = "ok" if ok else "MISS"
    report.append(entry)

def fmt(x, fig):
    if x is None:
        return "-"
    if fig in ("speed", "time"):
        return "%.2f" % x
    return "%.1f" % x

UNITS = {"speed": "x", "time": "x", "ns_per_entry": " ns", "ns": " ns", "items_per_second": " M/s"}

def target_text(e):
    fig = e["figure"]
    if e["target"] is None:
        return "-"
    sign = ">=" if fig in higher_better else "<="
    return "%s %s%s" % (sign, fmt(e["target"], fig), UNITS[fig])

lines = []
for e in report:
    if e["status"] == "not measured":
        lines.append((e["row"], "not measured", "", "", target_text(e), ""))
        continue
    fig = e["figure"]
    base = e["min"]["baseline"]
    if fig in ("speed", "time"):
        bcol = "same run" if base is not None else "-"
    else:
        bcol = ("x%.2f" % e["min"]["ratio"]) if e["min"]["ratio"] is not None else "-"
    unit = UNITS[fig]
    mark = {"ok": "", "info": "", "MISS": "<< MISS"}[e["status"]]
    lines.append((e["row"], fmt(e["min"]["figure"], fig) + unit,
                  fmt(e["median"]["figure"], fig) + unit, bcol, target_text(e), mark))
head = ("row", "figure", "median", "vs baseline", "target", "")
widths = [max(len(str(l[i])) for l in lines + [head]) for i in range(len(head))]
print()
print("  ".join(h.ljust(w) for h, w in zip(head, widths)).rstrip())
print("  ".join("-" * w for w in widths[:-1]))
for l in lines:
    print("  ".join(str(c).ljust(w) for c, w in zip(l, widths)).rstrip())
print()
print("speed = baseline time / time; time = time / baseline time; figures from the fastest of the")
print("repetitions, median beside; 'vs baseline' of absolute rows = figure / baseline figure.")
os.makedirs(os.path.dirname(os.path.abspath(out_path)), exist_ok=True)
json.dump({"rows": report}, open(out_path, "w"), indent=1)
print("figures written to", out_path)
missed = sum(1 for e in report if e["status"] == "MISS")
print("%d row(s) miss their target" % missed if missed else "every measured row meets its target")
PY
