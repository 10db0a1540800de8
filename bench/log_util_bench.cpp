// Cost of a log call that its level filters out, against the floor every log
// call pays: an uncontended lock and unlock of an error-checking mutex.
#include <vel_loc_fw/log_util.h>

#include "bench_ratio.h"

namespace {

void filtered_row(benchmark::State& state, const char* path) {
    varn_bench::ErrorCheckMutex floor;
    int i = 0;
    varn_bench::ratio_row(
            state, path, {1.3}, varn_bench::Clock::kThreadCpu,
            [&](int64_t ops) {
                for (int64_t k = 0; k < ops; ++k)
                    vel_loc_fw::log_verbose("Bench", "filtered %d", ++i);
            },
            [&](int64_t ops) {
                for (int64_t k = 0; k < ops; ++k) {
                    pthread_mutex_lock(&floor.mutex);
                    benchmark::ClobberMemory();
                    pthread_mutex_unlock(&floor.mutex);
                }
            });
}

void BM_FilteredByGlobalLevel(benchmark::State& state) {
    vel_loc_fw::log_flush_all_local_level();
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_INFO);
    filtered_row(state, "filtered-out log call, global level / error-checking lock+unlock");
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);
}
BENCHMARK(BM_FilteredByGlobalLevel)->Iterations(1);

void BM_FilteredByTagLevel(benchmark::State& state) {
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE);
    vel_loc_fw::log_set_local_level_for_tag("Other", vel_loc_fw::EL_VERBOSE);
    vel_loc_fw::log_set_local_level_for_tag("Bench", vel_loc_fw::EL_ERROR);
    filtered_row(state, "filtered-out log call, per-tag level / error-checking lock+unlock");
    vel_loc_fw::log_flush_all_local_level();
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);
}
BENCHMARK(BM_FilteredByTagLevel)->Iterations(1);

}  // namespace

int main(int argc, char** argv) { return varn_bench::main(argc, argv); }
