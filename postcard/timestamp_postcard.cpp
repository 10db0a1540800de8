// Time stamps carried in postcards: a nested card with the clock id and the
// time as three signed 32-bit fields.
#include <vel_loc_fw/time_util.h>

#include <new>

#include <vel_loc_fw/log_util.h>
#include <vel_loc_fw/postcard.h>

#include "postcard/postcard_impl.h"

namespace vel_loc_fw {
namespace {

constexpr const char kTag[] = "Timestamp";
constexpr const char kClockIdField[] = "CLOCK_ID";
constexpr const char kSecondsField[] = "TS_SEC";
constexpr const char kNanosecondsField[] = "TS_NSEC";

}  // namespace

int Timestamp::insert_into_postcard(OutPostcard* out, const char* name) const {
    // A null `out` counts as a missing object, like a null name.
    if (name == nullptr || out == nullptr) {
        log_error(kTag, "insert_into_postcard failed %d", 2);
        return 2;
    }
    OutPostcardImpl* card = new (std::nothrow) OutPostcardImpl();
    int result = 0;
    if (card == nullptr) {
        result = 3;
    } else if (!is_valid()) {
        result = 4;
    } else if (card->init() != 0) {
        result = 10;
    } else if (card->addInt32(kClockIdField, get_clock_id()) != 0) {
        result = 11;
    } else if (card->addInt32(kSecondsField, static_cast<int>(getTimestampPtr()->tv_sec)) != 0) {
        // Seconds and nanoseconds travel as their low 32 bits, a format the
        // readers on the other side depend on.
        result = 12;
    } else if (card->addInt32(kNanosecondsField, static_cast<int>(getTimestampPtr()->tv_nsec)) !=
               0) {
        result = 13;
    } else if (card->finalize() != 0) {
        result = 14;
    } else if (out->addCard(name, card) != 0) {
        result = 20;
    }
    delete card;
    if (result != 0) log_error(kTag, "insert_into_postcard failed %d", result);
    return result;
}

Timestamp Timestamp::retrieve_from_postcard(InPostcard* in, const char* name) {
    // Filled field by field: when a later field is missing the result stays
    // invalid but keeps the clock id already read.
    Timestamp result(false);
    int result_code = 0;
    InPostcard* card = nullptr;
    int seconds = 0;
    int nanoseconds = 0;
    if (name == nullptr) {
        result_code = 2;
    } else if (in == nullptr) {
        result_code = 3;
    } else if (in->getCard(name, &card, 0) != 0 ||
               card->getInt32(kClockIdField, result.clock_id_) != 0) {
        result_code = 10;
    } else if (card->getInt32(kSecondsField, seconds) != 0) {
        result_code = 11;
    } else if (card->getInt32(kNanosecondsField, nanoseconds) != 0) {
        result_code = 12;
    }
    delete card;
    if (result_code != 0) {
        log_error(kTag, "retrieve_from_postcard failed %d", result_code);
        return result;
    }
    result.time_.tv_sec = seconds;  // sign-extended
    result.time_.tv_nsec = nanoseconds;
    result.valid_ = true;
    return result;
}

}  // namespace vel_loc_fw
