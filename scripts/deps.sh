# Installs, with apt-get, the Debian bookworm packages a command needs when
# they are missing. Sourced by the other scripts.

# Packages for building the library and running its demo.
VARN_BUILD_PACKAGES=(cmake ninja-build g++ pkg-config android-liblog-dev)
# Everything the full test suite uses on top: clang with its sanitizer and
# fuzzer runtimes, GoogleTest and Google Benchmark, msgpack-c for the postcard
# benchmark, the arm64 cross toolchain with qemu and the arm64 libraries, and
# the formatters of Android.bp (bpfmt) and of the C++ code.
VARN_TEST_PACKAGES=(clang libclang-rt-14-dev googletest libgtest-dev libgmock-dev
                    libbenchmark-dev libmsgpack-dev g++-aarch64-linux-gnu qemu-user
                    android-liblog-dev:arm64 libgtest-dev:arm64 libgmock-dev:arm64
                    blueprint-tools clang-format)

varn_as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# varn_ensure_packages PACKAGE... : installs whichever of them is missing.
varn_ensure_packages() {
    local missing=()
    local pkg
    for pkg in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
            missing+=("$pkg")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "== installing: ${missing[*]}"
    if printf '%s\n' "${missing[@]}" | grep -q ':arm64$' &&
            ! dpkg --print-foreign-architectures | grep -qx arm64; then
        varn_as_root dpkg --add-architecture arm64
    fi
    varn_as_root apt-get update -qq
    DEBIAN_FRONTEND=noninteractive varn_as_root apt-get install -y -qq --no-install-recommends \
        "${missing[@]}" >/dev/null
}
