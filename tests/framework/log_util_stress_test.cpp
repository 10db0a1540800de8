// Log calls and level queries racing with every setter of the logging state.
// Meant for the ThreadSanitizer build as well.
#include <vel_loc_fw/log_util.h>

#include <atomic>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "stress_support.h"

namespace vel_loc_fw {
namespace {

TEST(LogUtilStressTest, TagLevelsHoldWhileOtherLevelsChange) {
    varn_test::LogCapture capture;
    // "Muted" and "Loud" are set first and never touched again: with ten
    // newer tags in front of them, they are found only by walking the whole
    // tag list.
    ASSERT_EQ(0, log_set_local_level_for_tag("Muted", EL_LOG_OFF));
    ASSERT_EQ(0, log_set_local_level_for_tag("Loud", EL_VERBOSE));
    std::vector<std::string> tags;
    for (int i = 0; i < 10; ++i) tags.push_back("Busy" + std::to_string(i));

    std::atomic<bool> stop{false};
    std::atomic<int> muted_enabled{0};
    std::atomic<size_t> loud_calls{0};
    // Thread 0 changes every setting while the others log.
    varn_test::runOnThreads(4, [&](int t) {
        for (int i = 0; t == 0 && i < 3000; ++i) {
            const std::string& tag = tags[static_cast<size_t>(i) % tags.size()];
            log_set_local_level_for_tag(tag.c_str(), i % 3 == 0 ? EL_VERBOSE : EL_ERROR);
            if (i % 7 == 0) log_flush_local_level_for_tag(tag.c_str());
            log_set_global_level(i % 2 == 0 ? EL_VERBOSE : EL_INFO);
            log_set_global_tag(i % 2 == 0 ? "ZORLOG" : "OTHER");
        }
        if (t == 0) stop = true;
        for (int i = 0; t != 0 && (!stop || i < 100); ++i) {
            log_verbose("Loud", "loud %d", i);
            ++loud_calls;
            log_verbose("Muted", "muted %d", i);
            log_error("Muted", "muted %d", i);
            log_debug(tags[static_cast<size_t>(i + t) % tags.size()].c_str(), "busy %d", i);
            if (is_log_level_enabled("Muted", EL_ERROR)) ++muted_enabled;
            if (t == 1) log_error_no_lock("Muted", "muted no lock %d", i);
        }
    });
    log_flush_all_local_level();
    log_set_global_level(EL_LOG_OFF);
    log_set_global_tag("ZORLOG");

    EXPECT_EQ(0u, capture.count("muted"));
    EXPECT_EQ(0, muted_enabled.load());
    EXPECT_EQ(loud_calls.load(), capture.count("[Loud] loud"));
}

}  // namespace
}  // namespace vel_loc_fw
