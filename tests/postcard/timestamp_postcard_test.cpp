#include <vel_loc_fw/time_util.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <vel_loc_fw/postcard.h>

#include "log_capture.h"
#include "tests/postcard/postcard_test_support.h"

namespace vel_loc_fw {
namespace {

std::unique_ptr<OutPostcard> started() {
    std::unique_ptr<OutPostcard> card(OutPostcard::createInstance());
    EXPECT_EQ(0, card->init());
    return card;
}

TEST(TimestampPostcardTest, RoundTripThroughANestedCard) {
    timespec time = {};
    time.tv_sec = 1700000000;
    time.tv_nsec = 123456789;
    const Timestamp stamp(CLOCK_MONOTONIC, time);
    std::unique_ptr<OutPostcard> out = started();
    ASSERT_EQ(0, stamp.insert_into_postcard(out.get(), "T"));
    ASSERT_EQ(0, out->finalize());
    std::unique_ptr<InPostcard> in(InPostcard::createInstance(out.get()));

    const Timestamp back = Timestamp::retrieve_from_postcard(in.get(), "T");
    ASSERT_TRUE(back.is_valid());
    EXPECT_EQ(CLOCK_MONOTONIC, back.get_clock_id());
    EXPECT_EQ(1700000000, back.getTimestampPtr()->tv_sec);
    EXPECT_EQ(123456789, back.getTimestampPtr()->tv_nsec);

    // The card holds three signed 32-bit fields.
    InPostcard* card = nullptr;
    ASSERT_EQ(0, in->getCard("T", &card, 0));
    std::unique_ptr<InPostcard> owned(card);
    int clock_id = 0;
    int seconds = 0;
    int nanoseconds = 0;
    EXPECT_EQ(0, card->getInt32("CLOCK_ID", clock_id));
    EXPECT_EQ(0, card->getInt32("TS_SEC", seconds));
    EXPECT_EQ(0, card->getInt32("TS_NSEC", nanoseconds));
    EXPECT_EQ(CLOCK_MONOTONIC, clock_id);
}

TEST(TimestampPostcardTest, SecondsTravelAsTheirLow32Bits) {
    timespec time = {};
    time.tv_sec = (1LL << 32) + 0x80000005LL;
    const Timestamp stamp(CLOCK_BOOTTIME, time);
    std::unique_ptr<OutPostcard> out = started();
    ASSERT_EQ(0, stamp.insert_into_postcard(out.get(), "T"));
    ASSERT_EQ(0, out->finalize());
    std::unique_ptr<InPostcard> in(InPostcard::createInstance(out.get()));
    const Timestamp back = Timestamp::retrieve_from_postcard(in.get(), "T");
    ASSERT_TRUE(back.is_valid());
    EXPECT_EQ(static_cast<int>(0x80000005U), back.getTimestampPtr()->tv_sec);  // sign-extended
}

TEST(TimestampPostcardTest, InsertCodes) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    timespec time = {};
    const Timestamp valid(CLOCK_REALTIME, time);
    const Timestamp invalid(false);
    std::unique_ptr<OutPostcard> out = started();
    EXPECT_EQ(2, valid.insert_into_postcard(out.get(), nullptr));
    EXPECT_EQ(4, invalid.insert_into_postcard(out.get(), "T"));
    {
        varn_test::NothrowAllocationFailure failure(0);
        EXPECT_EQ(3, valid.insert_into_postcard(out.get(), "T"));
    }
    {
        varn_test::NothrowAllocationFailure failure(1);  // the temporary card's stream
        EXPECT_EQ(10, valid.insert_into_postcard(out.get(), "T"));
    }
    EXPECT_EQ(20, valid.insert_into_postcard(out.get(), ""));
    EXPECT_TRUE(log.contains("[Timestamp] insert_into_postcard failed 20")) << log.dump();
    EXPECT_EQ(4u, out->getEncodedBuffer()->getSize());  // nothing added to `out`
}

TEST(TimestampPostcardTest, RetrieveFailuresGiveAnInvalidStamp) {
    std::unique_ptr<OutPostcard> partial = started();
    ASSERT_EQ(0, partial->addInt32("CLOCK_ID", 1));
    ASSERT_EQ(0, partial->addInt32("TS_SEC", 5));
    ASSERT_EQ(0, partial->finalize());
    std::unique_ptr<OutPostcard> no_seconds = started();
    ASSERT_EQ(0, no_seconds->addInt32("CLOCK_ID", 1));
    ASSERT_EQ(0, no_seconds->finalize());
    std::unique_ptr<OutPostcard> out = started();
    ASSERT_EQ(0, out->addCard("partial", partial.get()));
    ASSERT_EQ(0, out->addCard("no_seconds", no_seconds.get()));
    ASSERT_EQ(0, out->finalize());
    std::unique_ptr<InPostcard> in(InPostcard::createInstance(out.get()));

    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    EXPECT_FALSE(Timestamp::retrieve_from_postcard(in.get(), nullptr).is_valid());
    EXPECT_FALSE(Timestamp::retrieve_from_postcard(nullptr, "T").is_valid());
    EXPECT_FALSE(Timestamp::retrieve_from_postcard(in.get(), "missing").is_valid());
    EXPECT_EQ(-1, Timestamp::retrieve_from_postcard(in.get(), "missing").get_clock_id());
    // A clock id read before the failure stays in the invalid result.
    const Timestamp no_seconds_back = Timestamp::retrieve_from_postcard(in.get(), "no_seconds");
    EXPECT_FALSE(no_seconds_back.is_valid());
    EXPECT_EQ(1, no_seconds_back.get_clock_id());
    EXPECT_FALSE(Timestamp::retrieve_from_postcard(in.get(), "partial").is_valid());
    for (int code : {2, 3, 10, 11, 12}) {
        EXPECT_TRUE(log.contains("[Timestamp] retrieve_from_postcard failed " +
                                 std::to_string(code)))
                << code << "\n" << log.dump();
    }
}

}  // namespace
}  // namespace vel_loc_fw
