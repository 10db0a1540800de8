#!/usr/bin/env bash
# Builds the benchmarks in Release and prints one table: every path measured
# against its baseline in the same run (rounds of both alternate until the
# ratios settle; the median ratio is shown), with its goal and whether the
# run met it. Not part of the test command. Arguments are passed to every
# benchmark program (e.g. --benchmark_filter=Ranging).
#
# With --instructions first, it prints instead the instructions per operation
# of every row's path and baseline, counted by callgrind: steadier than times
# on a loaded machine, and the place to start a profile. VARN_BENCH_PROFILE_OPS
# sets the operations counted per side (default 500).
set -eu
mode=time
if [ "${1:-}" = "--instructions" ]; then
    mode=instructions
    shift
fi
ROOT=$(cd "$(dirname "$0")/.." && pwd)
OUT=${VARN_OUT:-$ROOT/out}
source "$ROOT/scripts/deps.sh"
mkdir -p "$OUT"
# Google Benchmark, and msgpack-c for the postcard's baseline.
varn_ensure_packages "${VARN_BUILD_PACKAGES[@]}" libbenchmark-dev libmsgpack-dev
[ "$mode" = time ] || varn_ensure_packages valgrind
cmake -S "$ROOT" -B "$OUT/bench" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARN_BUILD_BENCH=ON \
    -DVARN_BUILD_TESTS=OFF -DVARN_BUILD_DEMO=OFF \
    >"$OUT/bench.configure.log" 2>&1 || { cat "$OUT/bench.configure.log"; exit 1; }
ninja -C "$OUT/bench" -j "${VARN_JOBS:-2}" >"$OUT/bench.build.log" 2>&1 ||
    { grep -E 'error|FAILED' "$OUT/bench.build.log" | head -40; exit 1; }

rows=$(mktemp)
trap 'rm -f "$rows"' EXIT
failed=0

# Prints one table from the "|"-separated lines on standard input.
print_table() {
    awk -F'|' '
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
}

if [ "$mode" = instructions ]; then
    ops=${VARN_BENCH_PROFILE_OPS:-500}
    profile=$(mktemp)
    trap 'rm -f "$rows" "$profile"' EXIT
    # Inclusive instructions of the first function named $1 in the profile.
    cost_of() {
        [ -s "$profile" ] || return 0
        callgrind_annotate --inclusive=yes "$profile" 2>/dev/null |
            awk -v f="$1" 'index($0, f) && cost == "" { cost = $1; gsub(",", "", cost) } END { print cost }'
    }
    for program in log_util blocking_queue postcard listener; do
        exe="$OUT/bench/bench/${program}_bench"
        echo "== $program" >&2
        for benchmark in $("$exe" --benchmark_list_tests "$@"); do
            rm -f "$profile"
            # awk reads to the end: a program cut off by a closed pipe writes no profile.
            path=$(VARN_BENCH_PROFILE_OPS=$ops valgrind --tool=callgrind \
                       --callgrind-out-file="$profile" "$exe" --benchmark_filter="^$benchmark\$" \
                       2>/dev/null | awk -F'|' '/^row\|/ && path == "" { path = $2 } END { print path }')
            candidate=$(cost_of profile_candidate)
            baseline=$(cost_of profile_baseline)
            if [ -z "$path" ] || [ -z "$candidate" ] || [ -z "$baseline" ]; then
                echo "   $benchmark: no profile" >&2
                failed=1
                continue
            fi
            awk -v p="$path" -v c="$candidate" -v b="$baseline" -v n="$ops" \
                'BEGIN { printf "%s|%.0f|%.0f|%.2f\n", p, c / n, b / n, c / b }' >>"$rows"
        done
    done
    echo
    { echo "path|instructions/op|baseline|ratio"; cat "$rows"; } | print_table
    echo
    echo "$(grep -c . "$rows") rows, $ops operations per side (callgrind)"
    exit $failed
fi
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
} | print_table
missed=$(awk -F'|' '$7 == "NO"' "$rows" | wc -l)
echo
load=$(cut -d' ' -f1-3 /proc/loadavg)
echo "$(grep -c . "$rows") rows, $missed goals not met (machine load: $load)"
exit $failed
