#!/usr/bin/env bash
# Runs the whole test suite and ends with a line "N passed, N failed":
#   1. host tests built with gcc under AddressSanitizer + UndefinedBehaviorSanitizer;
#   2. the same built with clang;
#   3. the concurrency stress tests under ThreadSanitizer (clang);
#   4. the fuzz targets (libFuzzer, ASan + UBSan), about 20 s each;
#   5. the test suite cross-built for arm64 and run under qemu-aarch64;
#   6. the installed CMake package (the library's NEEDED platform libraries, a
#      HAL-style dlopen, two consumer projects) and the exported symbols of
#      libvarn_wifihal.so;
#   7. Android.bp against the CMake build (sources, flags, version, bpfmt) and
#      the library's formatting (clang-format).
# Build trees go to out/ (override with VARN_OUT). Exit status is non-zero when
# anything failed.
set -u
ROOT=$(cd "$(dirname "$0")/.." && pwd)
OUT=${VARN_OUT:-$ROOT/out}
JOBS=${VARN_JOBS:-2}
FUZZ_SECONDS=${VARN_FUZZ_SECONDS:-20}
source "$ROOT/scripts/deps.sh"
mkdir -p "$OUT"
varn_ensure_packages "${VARN_BUILD_PACKAGES[@]}" "${VARN_TEST_PACKAGES[@]}" || exit 1


passed=0
failed=0
failures=()

pass() { passed=$((passed + $1)); }
fail() { failed=$((failed + $1)); failures+=("$2"); }

# configure_and_build NAME [cmake options...]
configure_and_build() {
    local name=$1; shift
    echo "== [$name] configure and build"
    if ! cmake -S "$ROOT" -B "$OUT/$name" -G Ninja "$@" >"$OUT/$name.configure.log" 2>&1; then
        cat "$OUT/$name.configure.log"; fail 1 "$name: configure"; return 1
    fi
    if ! ninja -C "$OUT/$name" -j "$JOBS" >"$OUT/$name.build.log" 2>&1; then
        grep -E 'error|FAILED' "$OUT/$name.build.log" | head -40; fail 1 "$name: build"; return 1
    fi
}

# run_gtest LABEL COMMAND... : runs one GoogleTest executable, counts its results.
run_gtest() {
    local label=$1; shift
    local log="$OUT/${label//\//_}.log"
    "$@" >"$log" 2>&1
    local rc=$?
    local ok bad
    ok=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) tests\?\..*/\1/p' "$log" | tail -1)
    bad=$(sed -n 's/^\[  FAILED  \] \([0-9]*\) tests\?, listed below:.*/\1/p' "$log" | tail -1)
    pass "${ok:-0}"
    if [ -n "$bad" ]; then
        fail "$bad" "$label"; grep -E '^\[  FAILED  \] [A-Za-z]' "$log" | sort -u
    elif [ $rc -ne 0 ] || [ -z "$ok" ]; then
        fail 1 "$label (exit $rc)"; tail -30 "$log"
    fi
    echo "   $label: ${ok:-0} passed${bad:+, $bad failed} (log: $log)"
}

# run_test_dir NAME [runner...] : every *_tests executable of a build tree.
run_test_dir() {
    local name=$1; shift
    local exe
    for exe in "$OUT/$name"/tests/*_tests; do
        [ -x "$exe" ] && run_gtest "$name/$(basename "$exe")" "$@" "$exe"
    done
}

# 1, 2: sanitizers under both compilers.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
if configure_and_build gcc-asan -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
        -DVARN_SANITIZE=address,undefined -DVARN_BUILD_BENCH=ON; then
    run_test_dir gcc-asan
fi
if configure_and_build clang-asan -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
        -DVARN_SANITIZE=address,undefined -DVARN_BUILD_BENCH=ON; then
    run_test_dir clang-asan
fi

# 3: ThreadSanitizer. Its shadow memory needs a fixed address layout, which
# the kernel's high ASLR entropy can break: run without randomisation.
if configure_and_build tsan -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
        -DVARN_SANITIZE=thread -DVARN_STRESS_TESTS_ONLY=ON -DVARN_BUILD_DEMO=OFF; then
    TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1} \
        run_test_dir tsan setarch "$(uname -m)" -R
fi

# 4: fuzz smoke runs, each from its committed seed corpus.
if configure_and_build fuzz -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
        -DVARN_SANITIZE=address,undefined -DVARN_BUILD_FUZZ=ON -DVARN_BUILD_TESTS=OFF \
        -DVARN_BUILD_DEMO=OFF; then
    for exe in "$OUT/fuzz/fuzz"/*_fuzz; do
        [ -x "$exe" ] || continue
        name=$(basename "$exe" _fuzz)
        work="$OUT/fuzz/corpus-$name"
        rm -rf "$work"; mkdir -p "$work"
        if "$exe" -max_total_time="$FUZZ_SECONDS" -print_final_stats=1 "$work" \
                "$ROOT/fuzz/corpus/$name" >"$OUT/fuzz-$name.log" 2>&1; then
            pass 1; echo "   fuzz $name: no finding in ${FUZZ_SECONDS}s"
        else
            fail 1 "fuzz $name"; tail -40 "$OUT/fuzz-$name.log"
        fi
    done
fi

# 5: arm64 under qemu.
if configure_and_build arm64 -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/aarch64-linux-gnu.cmake" \
        -DVARN_BUILD_DEMO=OFF; then
    run_test_dir arm64 qemu-aarch64
fi

# 6: the installed package and the exported interface.
if configure_and_build release -DCMAKE_BUILD_TYPE=Release -DVARN_BUILD_TESTS=OFF; then
    if "$ROOT/scripts/check_package.sh" "$OUT/release" "$OUT/package" >"$OUT/package.log" 2>&1; then
        pass 1; echo "   package: loaded by dlopen, two consumers build and run against it"
    else
        fail 1 "package"; tail -30 "$OUT/package.log"
    fi
    if "$ROOT/scripts/check_exports.sh" "$OUT/release/libvarn_wifihal.so" >"$OUT/exports.log" 2>&1; then
        pass 1; echo "   exports: only the documented interface is exported"
    else
        fail 1 "exports"; cat "$OUT/exports.log"
    fi
fi

# 7: the Android build description and the code's formatting.
echo "== [static] Android.bp and formatting"
if "$ROOT/scripts/check_android_bp.sh" >"$OUT/android_bp.log" 2>&1; then
    pass 1; echo "   $(tail -1 "$OUT/android_bp.log")"
else
    fail 1 "Android.bp"; cat "$OUT/android_bp.log"
fi
if "$ROOT/scripts/check_format.sh" >"$OUT/format.log" 2>&1; then
    pass 1; echo "   $(tail -1 "$OUT/format.log")"
else
    fail 1 "format"; head -40 "$OUT/format.log"
fi

echo
for f in "${failures[@]}"; do echo "FAILED: $f"; done
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
