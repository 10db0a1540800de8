#include <vel_loc_fw/time_util.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <vel_loc_fw/postcard.h>

#include "log_capture.h"
#include "tests/postcard/postcard_test_support.h"

namespace vel_loc_fw {
namespace {

// A timestamp travels as a card of three signed 32-bit fields; seconds keep
// only their low 32 bits and come back sign-extended.
TEST(TimestampPostcardTest, RoundTripThroughANestedCard) {
    const struct {
        int clock;
        long long seconds;
        long nanoseconds;
        int seconds_back;
    } cases[] = {
            {CLOCK_MONOTONIC, 1700000000, 123456789, 1700000000},
            {CLOCK_BOOTTIME, (1LL << 32) + 0x80000005LL, 0, static_cast<int>(0x80000005U)},
    };
    for (const auto& c : cases) {
        timespec time = {};
        time.tv_sec = static_cast<time_t>(c.seconds);
        time.tv_nsec = c.nanoseconds;
        std::unique_ptr<OutPostcard> out = varn_test::started();
        ASSERT_EQ(0, Timestamp(c.clock, time).insert_into_postcard(out.get(), "T"));
        ASSERT_EQ(0, out->finalize());
        std::unique_ptr<InPostcard> in(InPostcard::createInstance(out.get()));
        Timestamp back = Timestamp::retrieve_from_postcard(in.get(), "T");
        ASSERT_TRUE(back.is_valid());
        EXPECT_EQ(c.clock, back.get_clock_id());
        EXPECT_EQ(c.seconds_back, back.getTimestampPtr()->tv_sec);
        EXPECT_EQ(c.nanoseconds, back.getTimestampPtr()->tv_nsec);
        InPostcard* card = nullptr;
        ASSERT_EQ(0, in->getCard("T", &card, 0));
        std::unique_ptr<InPostcard> owned(card);
        int nanoseconds = 0;
        EXPECT_EQ(0, card->getInt32("TS_NSEC", nanoseconds));
    }
}

TEST(TimestampPostcardTest, InsertCodes) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    const Timestamp valid(CLOCK_REALTIME, timespec{});
    std::unique_ptr<OutPostcard> out = varn_test::started();
    EXPECT_EQ(2, valid.insert_into_postcard(out.get(), nullptr));
    EXPECT_EQ(4, Timestamp(false).insert_into_postcard(out.get(), "T"));
    for (int succeed : {0, 1}) {  // the temporary card, then its stream
        varn_test::NothrowAllocationFailure failure(succeed);
        EXPECT_EQ(succeed == 0 ? 3 : 10, valid.insert_into_postcard(out.get(), "T"));
    }
    EXPECT_EQ(20, valid.insert_into_postcard(out.get(), ""));
    EXPECT_TRUE(log.contains("[Timestamp] insert_into_postcard failed 20")) << log.dump();
    EXPECT_EQ(4u, out->getEncodedBuffer()->getSize());  // nothing added to `out`
}

TEST(TimestampPostcardTest, RetrieveFailuresGiveAnInvalidStamp) {
    std::unique_ptr<OutPostcard> out = varn_test::started();
    const char* names[] = {"CLOCK_ID", "TS_SEC", "TS_NSEC"};
    for (int fields = 1; fields <= 2; ++fields) {  // cards that lack the last field(s)
        std::unique_ptr<OutPostcard> card = varn_test::started();
        for (int i = 0; i < fields; ++i) ASSERT_EQ(0, card->addInt32(names[i], 1));
        ASSERT_EQ(0, card->finalize());
        ASSERT_EQ(0, out->addCard(names[fields], card.get()));
    }
    ASSERT_EQ(0, out->finalize());
    std::unique_ptr<InPostcard> in(InPostcard::createInstance(out.get()));
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    EXPECT_FALSE(Timestamp::retrieve_from_postcard(in.get(), nullptr).is_valid());
    EXPECT_FALSE(Timestamp::retrieve_from_postcard(nullptr, "T").is_valid());
    EXPECT_EQ(-1, Timestamp::retrieve_from_postcard(in.get(), "missing").get_clock_id());
    // A clock id read before the failure stays in the invalid result.
    const Timestamp no_seconds = Timestamp::retrieve_from_postcard(in.get(), "TS_SEC");
    EXPECT_FALSE(no_seconds.is_valid());
    EXPECT_EQ(1, no_seconds.get_clock_id());
    EXPECT_FALSE(Timestamp::retrieve_from_postcard(in.get(), "TS_NSEC").is_valid());
    for (int code : {2, 3, 10, 11, 12}) {
        EXPECT_TRUE(
                log.contains("[Timestamp] retrieve_from_postcard failed " + std::to_string(code)))
                << code << "\n"
                << log.dump();
    }
}

}  // namespace
}  // namespace vel_loc_fw
