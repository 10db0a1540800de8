#!/usr/bin/env bash
# Fails when a source file of the library is not formatted as .clang-format
# says (clang-format 14, as in Debian bookworm); prints the places.
# Fix with: clang-format -i <files>
set -u
ROOT=$(cd "$(dirname "$0")/.." && pwd)
cd "$ROOT" || exit 1
mapfile -t files < <(find framework postcard wifihal listener include \
    -name '*.cpp' -o -name '*.h' | sort)
if clang-format --dry-run -Werror "${files[@]}"; then
    echo "format OK: ${#files[@]} files of the library"
else
    exit 1
fi
