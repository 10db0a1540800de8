// Cost of a log call that its level filters out, against the floor every log
// call pays: an uncontended lock and unlock of an error-checking mutex.
#include <pthread.h>

#include <vel_loc_fw/log_util.h>

#include "bench_ratio.h"

namespace {

void BM_ErrorCheckMutexFloor(benchmark::State& state) {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        benchmark::ClobberMemory();
        pthread_mutex_unlock(&mutex);
    }
    pthread_mutex_destroy(&mutex);
}
BENCHMARK(BM_ErrorCheckMutexFloor);

void BM_FilteredByGlobalLevel(benchmark::State& state) {
    vel_loc_fw::log_flush_all_local_level();
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_INFO);
    int i = 0;
    for (auto _ : state) vel_loc_fw::log_verbose("Bench", "filtered %d", ++i);
}
BENCHMARK(BM_FilteredByGlobalLevel);

void BM_FilteredByTagLevel(benchmark::State& state) {
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE);
    vel_loc_fw::log_set_local_level_for_tag("Other", vel_loc_fw::EL_VERBOSE);
    vel_loc_fw::log_set_local_level_for_tag("Bench", vel_loc_fw::EL_ERROR);
    int i = 0;
    for (auto _ : state) vel_loc_fw::log_verbose("Bench", "filtered %d", ++i);
    vel_loc_fw::log_flush_all_local_level();
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);
}
BENCHMARK(BM_FilteredByTagLevel);

}  // namespace

int main(int argc, char** argv) {
    return varn_bench::run_with_ratios(argc, argv, "BM_ErrorCheckMutexFloor",
                                       {"BM_FilteredByGlobalLevel", "BM_FilteredByTagLevel"});
}
