#!/usr/bin/env bash
# Builds the benchmarks in Release and prints one table: every path measured
# against its baseline in the same run (rounds of both alternate until the
# ratios settle; the median ratio is shown), with its goal and whether the
# run met it. Not part of the test command. Arguments are passed to every
# benchmark program (e.g. --benchmark_filter=Ranging).
set -eu
ROOT=$(cd "$(dirname "$0")/.." && pwd)
OUT=${VARN_OUT:-$ROOT/out}
source "$ROOT/scripts/deps.sh"
mkdir -p "$OUT"
# Google Benchmark, and msgpack-c for the postcard's baseline.
varn_ensure_packages "${VARN_BUILD_PACKAGES[@]}" libbenchmark-dev libmsgpack-dev
cmake -S "$ROOT" -B "$OUT/bench" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARN_BUILD_BENCH=ON \
    -DVARN_BUILD_TESTS=OFF -DVARN_BUILD_DEMO=OFF \
    >"$OUT/bench.configure.log" 2>&1 || { cat "$OUT/bench.configure.log"; exit 1; }
ninja -C "$OUT/bench" -j "${VARN_JOBS:-2}" >"$OUT/bench.build.log" 2>&1 ||
    { grep -E 'error|FAILED' "$OUT/bench.build.log" | head -40; exit 1; }

rows=$(mktemp)
trap 'rm -f "$rows"' EXIT
failed=0
for program in log_util blocking_queue postcard listener; do
    exe="$OUT/bench/bench/${program}_bench"
    echo "== $program" >&2
    # The Google Benchmark report goes to the log; the rows to the table.
    if ! "$exe" "$@" >"$OUT/bench.$program.log" 2>&1; then
        echo "   $program failed (log: $OUT/bench.$program.log)" >&2
        failed=1
    fi
    grep '^row|' "$OUT/bench.$program.log" >>"$rows" || true
done

echo
{
    echo "path|measured|baseline|ratio|goal|met|spread"
    sed 's/^row|//' "$rows"
} | awk -F'|' '
    {
        for (i = 1; i <= NF; ++i) {
            cell[NR, i] = $i
            if (length($i) > width[i]) width[i] = length($i)
        }
    }
    NF > fields { fields = NF }
    END {
        for (r = 1; r <= NR; ++r) {
            line = ""
            for (i = 1; i <= fields; ++i) line = line sprintf("%-" width[i] "s  ", cell[r, i])
            sub(/ +$/, "", line)
            print line
        }
    }'
missed=$(awk -F'|' '$7 == "NO"' "$rows" | wc -l)
echo
load=$(cut -d' ' -f1-3 /proc/loadavg)
echo "$(grep -c . "$rows") rows, $missed goals not met (machine load: $load)"
exit $failed
