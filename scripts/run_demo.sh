#!/usr/bin/env bash
# The main job: builds the library and the ranging demo (Release) and runs the
# demo over the simulated location service with its built-in scenario. Any
# arguments are passed to the demo (try --help).
set -eu
ROOT=$(cd "$(dirname "$0")/.." && pwd)
OUT=${VARN_OUT:-$ROOT/out}
source "$ROOT/scripts/deps.sh"
mkdir -p "$OUT"
varn_ensure_packages "${VARN_BUILD_PACKAGES[@]}"
cmake -S "$ROOT" -B "$OUT/release" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARN_BUILD_TESTS=OFF \
    >"$OUT/release.configure.log" 2>&1 || { cat "$OUT/release.configure.log"; exit 1; }
ninja -C "$OUT/release" -j "${VARN_JOBS:-2}" >"$OUT/release.build.log" 2>&1 ||
    { grep -E 'error|FAILED' "$OUT/release.build.log" | head -40; exit 1; }
exec "$OUT/release/demo/varn_demo" "$@"
