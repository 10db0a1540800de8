#!/usr/bin/env bash
# Installs a build tree into a prefix and builds a small consumer project
# against it with find_package(varn_wifihal CONFIG REQUIRED), then runs it.
set -eu
build=${1:?usage: check_package.sh BUILD_DIR PREFIX}
prefix=${2:?usage: check_package.sh BUILD_DIR PREFIX}
rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix"
consumer=$(mktemp -d)
trap 'rm -rf "$consumer"' EXIT
cat >"$consumer/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(varn_consumer CXX)
find_package(varn_wifihal CONFIG REQUIRED)
add_executable(consumer main.cpp)
target_link_libraries(consumer PRIVATE varn_wifihal::varn_wifihal)
# libvarn_wifihal.so resolves the client library at load time; on the host
# the simulated one stands in for it.
if(TARGET varn_wifihal::varn_client_sim)
  target_link_libraries(consumer PRIVATE varn_wifihal::varn_client_sim)
endif()
CMAKE
cat >"$consumer/main.cpp" <<'CPP'
#include <cstdio>
#include <memory>

#include <vel_loc_fw/config_file.h>
#include <vel_loc_fw/log_util.h>

int main() {
    if (vel_loc_fw::log_set_global_level(vel_loc_fw::EL_INFO) != 0) return 1;
    std::unique_ptr<vel_loc_fw::ConfigFile> config(
            vel_loc_fw::ConfigFile::createInstance("/nonexistent", 64, false));
    if (!config || config->isLoaded()) return 2;
    std::puts("consumer OK");
    return 0;
}
CPP
cmake -S "$consumer" -B "$consumer/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix"
ninja -C "$consumer/build"
"$consumer/build/consumer"
