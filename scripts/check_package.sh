#!/usr/bin/env bash
# Installs a build tree into a prefix and checks what a user of the package
# meets there:
#   - libvarn_wifihal.so needs the platform's client library and location
#     utilities (DT_NEEDED), as on a device, and the stand-ins need nothing
#     from it;
#   - a C program that dlopen()s libvarn_wifihal.so alone, as a HAL does,
#     loads it and reads the callback table;
#   - two consumer projects, each with find_package(varn_wifihal CONFIG
#     REQUIRED) and the one target varn_wifihal::varn_wifihal, build and run:
#     one uses only the framework (logging, configuration, postcards), the
#     other ranges through the callback table.
set -eu
build=${1:?usage: check_package.sh BUILD_DIR PREFIX}
prefix=$(realpath -m "${2:?usage: check_package.sh BUILD_DIR PREFIX}")
rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix"
libdir=$(dirname "$(find "$prefix" -name libvarn_wifihal.so | head -1)")
lib="$libdir/libvarn_wifihal.so"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo "== NEEDED entries of $lib"
needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
echo "$needed"
for soname in libvarn_client.so libloc_utils.so; do
    echo "$needed" | grep -qx "$soname" || { echo "libvarn_wifihal.so does not need $soname"; exit 1; }
    [ -f "$libdir/$soname" ] || { echo "$soname is not installed next to it"; exit 1; }
done

echo "== the stand-ins and libvarn_wifihal.so: no symbol defined by both, none imported from it"
nm -D --defined-only "$lib" | awk 'NF == 3 { print $3 }' | sort -u >"$work/library"
for soname in libvarn_client.so libloc_utils.so; do
    nm -D --defined-only "$libdir/$soname" | awk 'NF == 3 { print $3 }' | sort -u >"$work/defined"
    both=$(comm -12 "$work/library" "$work/defined")
    [ -z "$both" ] || { echo "defined by $soname and libvarn_wifihal.so:"; echo "$both"; exit 1; }
    nm -D --undefined-only "$libdir/$soname" | awk '{ print $NF }' | sed 's/@.*//' | sort -u \
        >"$work/imports"
    shared=$(comm -12 "$work/library" "$work/imports")
    [ -z "$shared" ] || { echo "$soname imports from libvarn_wifihal.so:"; echo "$shared"; exit 1; }
done

echo "== dlopen() of libvarn_wifihal.so alone"
cat >"$work/hal_loader.c" <<'C'
#include <dlfcn.h>
#include <stdio.h>

/* What a HAL knows: the library's file name, the name of the table getter,
 * and the 23 slots of the table in order (13 to 18 empty), the first being
 * init and the second destroy (both return 0 on success). */
typedef void (*slot_fn)(void);
typedef const slot_fn* (*get_table_fn)(void);

static const char* const kSlots[23] = {
        "init", "destroy", "get_rtt_capabilities", "rtt_range_request", "rtt_range_cancel",
        "get_varn_version", "get_varn_capabilities", "get_valid_channels",
        "get_gscan_capabilities", "start_gscan", "stop_gscan", "get_cached_gscan_results",
        NULL, NULL, NULL, NULL, NULL, NULL, "set_lci", "set_lcr", "get_responder_info",
        "enable_responder", "disable_responder"};

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    void* handle = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (handle == NULL) {
        fprintf(stderr, "dlopen: %s\n", dlerror());
        return 1;
    }
    get_table_fn get_table = (get_table_fn)dlsym(handle, "varn_wifihal_get_cb_table");
    if (get_table == NULL) {
        fprintf(stderr, "dlsym: %s\n", dlerror());
        return 1;
    }
    const slot_fn* table = get_table();
    int filled = 0;
    for (int i = 0; i < 23; ++i) {
        void* expected = NULL;
        if (kSlots[i] != NULL) {
            char name[64];
            snprintf(name, sizeof(name), "varn_wifihal_%s", kSlots[i]);
            expected = dlsym(handle, name);
            if (expected == NULL) {
                fprintf(stderr, "slot %d: %s is not exported\n", i + 1, name);
                return 1;
            }
        }
        if ((void*)table[i] != expected) {
            fprintf(stderr, "slot %d does not hold %s\n", i + 1, kSlots[i] ? kSlots[i] : "null");
            return 1;
        }
        filled += table[i] != NULL;
    }
    int (*init)(void) = (int (*)(void))table[0];
    int (*destroy)(void) = (int (*)(void))table[1];
    if (init() != 0 || destroy() != 0) return 1;
    printf("loaded: %d of 23 slots set, each its exported entry point; init and destroy through "
           "the table succeeded\n", filled);
    return dlclose(handle) == 0 ? 0 : 1;
}
C
cc -std=c99 -Wall -Wextra -Werror -o "$work/hal_loader" "$work/hal_loader.c" -ldl
"$work/hal_loader" "$lib"

# consumer NAME: builds and runs $work/NAME (CMakeLists.txt and main.cpp).
consumer() {
    cat >"$work/$1/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project($1 CXX)
find_package(varn_wifihal CONFIG REQUIRED)
add_executable($1 main.cpp)
target_link_libraries($1 PRIVATE varn_wifihal::varn_wifihal)
CMAKE
    echo "== consumer $1"
    cmake -S "$work/$1" -B "$work/$1/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
    ninja -C "$work/$1/build" >/dev/null
    "$work/$1/build/$1"
}

mkdir -p "$work/framework_consumer" "$work/ranging_consumer"
cat >"$work/framework_consumer/main.cpp" <<'CPP'
#include <cstdio>
#include <memory>

#include <vel_loc_fw/config_file.h>
#include <vel_loc_fw/log_util.h>
#include <vel_loc_fw/memory_stream.h>
#include <vel_loc_fw/postcard.h>

int main() {
    if (vel_loc_fw::log_set_global_level(vel_loc_fw::EL_INFO) != 0) return 1;
    std::unique_ptr<vel_loc_fw::ConfigFile> config(
            vel_loc_fw::ConfigFile::createInstance("/nonexistent", 64, false));
    if (!config || config->isLoaded()) return 2;

    std::unique_ptr<vel_loc_fw::OutPostcard> out(vel_loc_fw::OutPostcard::createInstance());
    if (!out || out->init() != 0 || out->addInt32("answer", 42) != 0 || out->finalize() != 0) {
        return 3;
    }
    std::unique_ptr<vel_loc_fw::InPostcard> in(vel_loc_fw::InPostcard::createInstance(out.get()));
    int answer = 0;
    if (!in || in->getInt32("answer", answer) != 0 || answer != 42) return 4;
    std::puts("framework consumer OK");
    return 0;
}
CPP
cat >"$work/ranging_consumer/main.cpp" <<'CPP'
// Ranges to one access point of the platform's location service through the
// callback table, as a HAL does, and waits for the result.
#include <cstdio>
#include <cstring>
#include <condition_variable>
#include <mutex>

#include <varn_wifihal.h>

namespace {
std::mutex g_mutex;
std::condition_variable g_done;
bool g_answered = false;
unsigned g_results = 0;

void on_results(wifi_request_id, unsigned num_results, wifi_rtt_result*[]) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_results = num_results;
    g_answered = true;
    g_done.notify_all();
}
void on_results_v2(wifi_request_id id, unsigned num_results, wifi_rtt_result_v2*[]) {
    on_results(id, num_results, nullptr);
}
}  // namespace

int main() {
    const varn_wifihal_cb_table_t* hal = varn_wifihal_get_cb_table();
    if (hal->init() != WIFI_SUCCESS) return 1;
    wifi_rtt_config config;
    std::memset(&config, 0, sizeof(config));
    const unsigned char bssid[6] = {0x02, 0x5a, 0x00, 0x00, 0x00, 0x01};
    std::memcpy(config.addr, bssid, sizeof(bssid));
    config.type = RTT_TYPE_2_SIDED;
    config.peer = RTT_PEER_AP;
    config.channel.width = WIFI_CHAN_WIDTH_80;
    config.channel.center_freq = 5180;
    config.channel.center_freq0 = 5210;
    config.num_frames_per_burst = 8;
    config.num_retries_per_rtt_frame = 3;
    config.num_retries_per_ftmr = 3;
    config.burst_duration = 9;
    config.preamble = WIFI_RTT_PREAMBLE_VHT;
    config.bw = WIFI_RTT_BW_80;
    wifi_rtt_event_handler handler;
    handler.on_rtt_results = on_results;
    handler.on_rtt_results_v2 = on_results_v2;
    if (hal->rtt_range_request(7, nullptr, 1, &config, handler) != WIFI_SUCCESS) return 2;
    bool answered;
    {
        std::unique_lock<std::mutex> lock(g_mutex);
        answered = g_done.wait_for(lock, std::chrono::seconds(10), [] { return g_answered; });
    }
    if (hal->destroy() != WIFI_SUCCESS) return 3;
    if (!answered || g_results != 1) return 4;
    std::printf("ranging consumer OK: %u result\n", g_results);
    return 0;
}
CPP
consumer framework_consumer
consumer ranging_consumer
