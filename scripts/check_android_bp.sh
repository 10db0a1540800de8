#!/usr/bin/env bash
# Keeps Android.bp and the CMake build in step. Fails when:
#   - Android.bp is not well-formed or not formatted as bpfmt wants it;
#   - a source file compiled by one build is missing from the other, a file of
#     the source folders is compiled by neither, or a `srcs` list is unsorted;
#   - the flags that change results (-ffp-contract=off, the visibility flags)
#     or the version string differ between the two;
#   - TEST_MAPPING misses a test module of Android.bp or names one it lacks.
# What CMake compiles comes from its file API, in a tree configured here with
# every optional part on (clang, for the fuzz targets); nothing is built.
#
# Module names follow the CMake targets: vel_loc_fw -> libvel_loc_fw,
# <folder>_tests -> varn_wifihal_<folder>_tests, <name>_fuzz ->
# varn_wifihal_<name>_fuzzer, <name>_bench -> varn_wifihal_<name>_bench.
set -u
ROOT=$(cd "$(dirname "$0")/.." && pwd)
OUT=${VARN_OUT:-$ROOT/out}
BP=${VARN_ANDROID_BP:-$ROOT/Android.bp}
tree="$OUT/bp-check"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
problem() { echo "$*"; status=1; }

# CMake targets that Android.bp does not build, and why: the demo and the
# tuning tool (with its tests) are host programs over the simulator; the
# postcard benchmark measures against msgpack-c, which the platform tree does
# not carry.
cmake_only="varn_demo varn_tune varn_tune_core demo_tests postcard_bench"
# Files that CMake compiles into targets of its own only.
cmake_only_files="demo/varn_demo.cpp demo/varn_tune.cpp demo/tune_report.cpp demo/tune_runner.cpp
    tests/demo/tune_test.cpp bench/postcard_bench.cpp"

# 1. Well-formed and formatted.
if ! bpfmt -d "$BP" >"$work/bpfmt.diff" 2>&1; then
    problem "Android.bp does not parse:"; cat "$work/bpfmt.diff"
elif [ -s "$work/bpfmt.diff" ]; then
    problem "Android.bp is not formatted as bpfmt wants it (bpfmt -w Android.bp):"
    cat "$work/bpfmt.diff"
fi

# 2. What CMake compiles.
mkdir -p "$tree/.cmake/api/v1/query"
touch "$tree/.cmake/api/v1/query/codemodel-v2"
if ! cmake -S "$ROOT" -B "$tree" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
        -DVARN_BUILD_TESTS=ON -DVARN_BUILD_BENCH=ON -DVARN_BUILD_FUZZ=ON -DVARN_BUILD_DEMO=ON \
        >"$work/configure.log" 2>&1; then
    cat "$work/configure.log"; echo "CMake configuration failed"; exit 1
fi
cmake -DBUILD_DIR="$tree" -P "$ROOT/cmake/ListBuildGraph.cmake" >"$work/cmake.txt" || exit 1

# 3. What Android.bp declares, one fact a line:
#   module <name> <type>
#   prop <module> <path.of.property> <value>    (one line per list element)
#   unsorted <module> <property>
awk '
function flush(   i) {
    if (name == "") name = "<unnamed " type ">"
    print "module", name, type
    for (i = 0; i < nfacts; i++) print "prop", name, facts[i]
    for (i = 0; i < nunsorted; i++) print "unsorted", name, unsorted[i]
}
function unquote(s) {
    sub(/^[ \t]*"/, "", s); sub(/",?[ \t]*(\/\/.*)?$/, "", s)
    gsub(/\\"/, "\"", s); gsub(/\\\\/, "\\", s)
    return s
}
function path(key,   p, i) {
    p = ""
    for (i = 1; i <= depth; i++) p = p stack[i] "."
    return p key
}
function add(key, value) {
    if (key == "srcs" && listcount > 0 && value < last) unsorted[nunsorted++] = path(key)
    last = value; listcount++
    facts[nfacts++] = path(key) " " value
}
/^[ \t]*\/\// { next }
/^[a-z_]+ \{$/ { type = $1; name = ""; nfacts = 0; nunsorted = 0; depth = 0; next }
/^\}$/ { flush(); type = ""; next }
type == "" { next }
/^    name: "/ && depth == 0 { name = unquote(substr($0, index($0, ":") + 1)); next }
/^ +[a-z_0-9]+: \{$/ { key = $1; sub(/:$/, "", key); stack[++depth] = key; next }
/^ +\},?$/ { depth--; next }
/^ +[a-z_0-9]+: \[$/ { key = $1; sub(/:$/, "", key); inlist = 1; listcount = 0; next }
inlist && /^ +\],?$/ { inlist = 0; next }
inlist && /^ +"/ { add(key, unquote($0)); next }
/^ +[a-z_0-9]+: \[.*\],?$/ {
    key = $1; sub(/:$/, "", key); listcount = 0
    body = $0; sub(/^[^[]*\[/, "", body); sub(/\],?$/, "", body)
    n = split(body, items, /", *"/)
    for (i = 1; i <= n; i++) { item = items[i]; gsub(/^"|"$/, "", item); add(key, item) }
    next
}
/^ +[a-z_0-9]+: / {
    key = $1; sub(/:$/, "", key)
    value = substr($0, index($0, ":") + 2); sub(/,$/, "", value)
    facts[nfacts++] = path(key) " " value
    next
}
' "$BP" >"$work/bp.txt"

while read -r _ module prop; do
    problem "Android.bp: $prop of $module is not sorted"
done < <(grep '^unsorted ' "$work/bp.txt")

# The bp module that builds what CMake target $1 builds ("" when none).
bp_module() {
    case " $cmake_only " in *" $1 "*) return ;; esac
    case $1 in
        vel_loc_fw | varn_wifi_layer | varn_wifihal) echo "lib$1" ;;
        varn_client_sim) echo libvarn_client_sim ;;
        varn_loc_utils_sim) echo libloc_utils_sim ;;
        varn_test_support) echo varn_wifihal_test_defaults ;;
        *_tests) echo "varn_wifihal_$1" ;;
        *_fuzz) echo "varn_wifihal_${1}er" ;;
        *_bench) echo "varn_wifihal_$1" ;;
        *) echo "?$1" ;;
    esac
}

# 4. The same sources in the same modules.
: >"$work/cmake_sources"
while read -r _ target _; do
    module=$(bp_module "$target")
    [ -n "$module" ] || continue
    if [ "${module#\?}" != "$module" ]; then
        problem "CMake target $target has no counterpart in Android.bp (name it in scripts/check_android_bp.sh)"
        continue
    fi
    grep -q "^module $module " "$work/bp.txt" ||
        problem "Android.bp has no module $module for the CMake target $target"
    awk -v t="$target" -v m="$module" '$1 == "source" && $2 == t { print m, $3 }' "$work/cmake.txt" \
        >>"$work/cmake_sources"
done < <(grep '^target ' "$work/cmake.txt")
sort -o "$work/cmake_sources" "$work/cmake_sources"
awk '$1 == "prop" && $3 == "srcs" { print $2, $4 }' "$work/bp.txt" | sort >"$work/bp_sources"
if ! diff -u --label CMake --label Android.bp "$work/cmake_sources" "$work/bp_sources" \
        >"$work/sources.diff"; then
    problem "sources differ (- only in CMake, + only in Android.bp):"
    grep -E '^[-+][^-+]' "$work/sources.diff"
fi

# Every source file of the project is compiled by CMake.
awk '$1 == "source" { print $3 }' "$work/cmake.txt" | sort -u >"$work/compiled"
(cd "$ROOT" && find framework postcard wifihal listener platform tests fuzz bench demo \
    -name '*.cpp' -o -name '*.c' -o -name '*.cc') | sort >"$work/on_disk"
for f in $(comm -23 "$work/on_disk" "$work/compiled"); do
    problem "$f is not compiled by CMake"
done
for f in $cmake_only_files; do
    grep -qx "$f" "$work/compiled" || problem "$f is not compiled by CMake"
done

# Presubmit runs every test module, and only modules that exist.
mapping="$ROOT/TEST_MAPPING"
mapped=$(sed -n 's/^ *"name": "\(.*\)",\{0,1\}$/\1/p' "$mapping" | sort -u)
tests=$(awk '$1 == "module" && $3 == "cc_test" { print $2 }' "$work/bp.txt" | sort -u)
for t in $(comm -23 <(echo "$tests") <(echo "$mapped")); do
    problem "TEST_MAPPING does not name the test module $t"
done
for t in $(comm -13 <(echo "$tests") <(echo "$mapped")); do
    problem "TEST_MAPPING names $t, which is no test module of Android.bp"
done

# 5. Flags and version. bp_flags MODULE PROPERTY: the values of PROPERTY in
# MODULE and in every defaults module it names, recursively.
bp_flags() {
    local module=$1 property=$2 d
    awk -v m="$module" -v p="$property" '$1 == "prop" && $2 == m && $3 == p { print $4 }' \
        "$work/bp.txt"
    for d in $(awk -v m="$module" '$1 == "prop" && $2 == m && $3 == "defaults" { print $4 }' \
            "$work/bp.txt"); do
        bp_flags "$d" "$property"
    done
}
cmake_flags() { awk -v t="$1" '$1 == "flag" && $2 == t { print $3 }' "$work/cmake.txt"; }

# -ffp-contract=off everywhere; hidden visibility in the library's layers.
while read -r _ target _; do
    module=$(bp_module "$target")
    grep -q "^source $target " "$work/cmake.txt" || continue
    cmake_flags "$target" | grep -qx -- -ffp-contract=off ||
        problem "CMake compiles $target without -ffp-contract=off"
    if [ -n "$module" ] && [ "${module#\?}" = "$module" ]; then
        bp_flags "$module" cflags | grep -qx -- -ffp-contract=off ||
            problem "Android.bp compiles $module without -ffp-contract=off"
    fi
done < <(grep '^target ' "$work/cmake.txt")
for target in vel_loc_fw varn_wifi_layer; do
    module=$(bp_module "$target")
    for flag in -fvisibility=hidden -fvisibility-inlines-hidden; do
        cmake_flags "$target" | grep -qx -- "$flag" ||
            problem "CMake compiles $target without $flag"
    done
    bp_flags "$module" cflags | grep -qx -- -fvisibility=hidden ||
        problem "Android.bp compiles $module without -fvisibility=hidden"
    { bp_flags "$module" cflags; bp_flags "$module" cppflags; } |
        grep -qx -- -fvisibility-inlines-hidden ||
        problem "Android.bp compiles $module without -fvisibility-inlines-hidden"
done
bp_flags libvarn_wifihal cflags | grep -qx -- -fvisibility=hidden ||
    problem "Android.bp builds libvarn_wifihal without -fvisibility=hidden"

cmake_version=$(awk '$1 == "define" && $2 == "varn_wifi_layer" && $3 ~ /^VARN_WIFIHAL_VERSION=/ {
    sub(/^VARN_WIFIHAL_VERSION=/, "", $3); print $3 }' "$work/cmake.txt")
bp_version=$(bp_flags libvarn_wifi_layer cflags | sed -n 's/^-DVARN_WIFIHAL_VERSION=//p')
project_version=$(sed -n 's/^project(varn_wifihal VERSION \([0-9.]*\).*/"\1"/p' "$ROOT/CMakeLists.txt")
if [ -z "$cmake_version" ] || [ "$cmake_version" != "$project_version" ]; then
    problem "CMake's VARN_WIFIHAL_VERSION ($cmake_version) is not the project version ($project_version)"
fi
if [ "$bp_version" != "$cmake_version" ]; then
    problem "VARN_WIFIHAL_VERSION differs: CMake $cmake_version, Android.bp ${bp_version:-none}"
fi

if [ $status -eq 0 ]; then
    echo "Android.bp OK: $(wc -l <"$work/bp_sources") sources in" \
         "$(cut -d' ' -f1 "$work/bp_sources" | sort -u | wc -l) modules agree with CMake;" \
         "flags and version $cmake_version agree"
fi
exit $status
