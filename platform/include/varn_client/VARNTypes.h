// VARN client library: enumerations and small value records.
//
// Every enumeration has a fixed 32-bit underlying type so that any code the
// service sends (also one outside the listed names) can be held and compared.
#pragma once

#include <cstdint>
#include <cstring>

// Request types, as returned by `VARNRequest::getRequestType()`.
enum eVARNRequestType : int32_t {
    VARN_REQ_INVALID = 0,
    VARN_REQ_DISCOVERY_SCAN = 1,
    VARN_REQ_PERIODIC_RANGING_SCAN = 2,
    VARN_REQ_CANCEL_RANGING_SCAN = 3,
    VARN_REQ_CAPABILITY = 4,
    VARN_REQ_CHANNELS_SUPPORTED = 5,
    VARN_REQ_CAPABILITY_SUBSCRIPTION = 6,
    VARN_REQ_GSCAN_CAPABILITIES = 7,
    VARN_REQ_GET_CACHED_BGSCAN_RESULTS = 8,
    VARN_REQ_BGSCAN_START = 9,
    VARN_REQ_BGSCAN_STOP = 10,
    VARN_REQ_HOTLIST_SET = 12,
    VARN_REQ_HOTLIST_CLEAR = 13,
    VARN_REQ_SIGNIFICANT_CHANGE_SET = 14,
    VARN_REQ_SIGNIFICANT_CHANGE_CLEAR = 15,
    VARN_REQ_SET_LCI_LOCATION_INFO = 20,
    VARN_REQ_SET_LCR_LOCATION_INFO = 21,
    VARN_REQ_RM_CHANNEL = 25,
    VARN_REQ_ENABLE_RESPONDER = 26,
    VARN_REQ_DISABLE_RESPONDER = 27,
};

// Response types, as returned by `VARNResponse::getResponseType()`. A code is
// shared by the synchronous answer of a long-running request and by the
// events it later produces (9: background scan; 12: hotlist set answer and
// significant-change event); see VARNResponse.h.
enum eVARNResponseType : int32_t {
    VARN_RSP_INVALID = 0,
    VARN_RSP_RANGING_SCAN = 2,            // ranging results (asynchronous)
    VARN_RSP_CAPABILITY = 4,
    VARN_RSP_CHANNELS_SUPPORTED = 5,
    VARN_RSP_DYNAMIC_CAPABILITIES = 6,
    VARN_RSP_GSCAN_CAPABILITIES = 7,
    VARN_RSP_CACHED_BGSCAN_RESULTS = 8,
    VARN_RSP_BGSCAN = 9,                  // start answer and background-scan events
    VARN_RSP_BGSCAN_STOP = 10,
    VARN_RSP_HOTLIST_EVENT = 11,          // AP found / lost events
    VARN_RSP_HOTLIST_SET = 12,
    VARN_RSP_SIGNIFICANT_CHANGE_EVENT = 12,
    VARN_RSP_HOTLIST_CLEAR = 13,
    VARN_RSP_SIGNIFICANT_CHANGE_SET = 14,
    VARN_RSP_SIGNIFICANT_CHANGE_CLEAR = 15,
    VARN_RSP_RM_CHANNEL = 25,
    VARN_RSP_ENABLE_RESPONDER = 26,
};

// Status of a response (1..10).
enum eVARNResponseStatus : int32_t {
    VARN_RSP_STATUS_SUCCESS = 1,
    VARN_RSP_STATUS_NOT_AVAILABLE = 2,
    VARN_RSP_STATUS_UNINITIALIZED = 3,
    VARN_RSP_STATUS_TIMED_OUT = 4,
    VARN_RSP_STATUS_UNKNOWN = 5,
    VARN_RSP_STATUS_INVALID_ARGS = 6,
    VARN_RSP_STATUS_NOT_SUPPORTED = 7,
    VARN_RSP_STATUS_INTERNAL_ERROR = 8,
    VARN_RSP_STATUS_TOO_MANY_REQUESTS = 9,
    VARN_RSP_STATUS_OUT_OF_MEMORY = 10,
};

// Response-level status of a ranging scan.
enum eScanStatus : int32_t {
    VARN_SCAN_STATUS_SUCCESS = 1,
    VARN_SCAN_STATUS_FAILURE = 2,
    VARN_SCAN_STATUS_ABORTED = 3,
    VARN_SCAN_STATUS_TIMEOUT = 4,
    VARN_SCAN_STATUS_BUSY = 5,
    VARN_SCAN_STATUS_INVALID_REQUEST = 6,
    VARN_SCAN_STATUS_NOT_CAPABLE = 7,
    VARN_SCAN_STATUS_NO_WIFI = 8,
};

// Per-peer status of a ranging measurement.
enum eVARNTargetStatus : int32_t {
    VARN_TARGET_STATUS_SUCCESS = 0,
    VARN_TARGET_STATUS_FAILURE = 1,
    VARN_TARGET_STATUS_RTT_FAIL_NO_RSP = 2,
    VARN_TARGET_STATUS_RTT_FAIL_REJECTED = 3,
    VARN_TARGET_STATUS_RTT_FAIL_FTM_TIMEOUT = 4,
    VARN_TARGET_STATUS_RTT_TARGET_ON_DIFF_CHANNEL = 5,
    VARN_TARGET_STATUS_RTT_FAIL_TARGET_NOT_CAPABLE = 6,
    VARN_TARGET_STATUS_RTT_FAIL_INVALID_TS = 7,
    VARN_TARGET_STATUS_RTT_FAIL_TARGET_BUSY_TRY_LATER = 8,
    VARN_TARGET_STATUS_RTT_NAN_RANGING_PROTOCOL_FAILURE = 9,
    VARN_TARGET_STATUS_RTT_NAN_RANGING_CONCURRENCY_NOT_SUPPORTED = 10,
    VARN_TARGET_STATUS_MAX = 11,
};

// Channel / frame bandwidth code.
enum eVARNBandwidth : int32_t {
    VARN_BW_20MHZ = 0,
    VARN_BW_40MHZ = 1,
    VARN_BW_80MHZ = 2,
    VARN_BW_160MHZ = 3,
    VARN_BW_MAX = 4,
};

// Preamble of a ranging request node and of the responder channel.
enum eVARNRttPreamble : int32_t {
    VARN_RTT_PREAMBLE_LEGACY = 0,
    VARN_RTT_PREAMBLE_HT = 1,
    VARN_RTT_PREAMBLE_VHT = 2,
    VARN_RTT_PREAMBLE_HE = 3,
};

// Preamble of a measured frame (`VARNRateInfo::preamble`), in the Android
// rate-word coding.
enum eVARNPreamble : int32_t {
    VARN_PREAMBLE_LEGACY = 0,
    VARN_PREAMBLE_CCK = 1,
    VARN_PREAMBLE_HT = 2,
    VARN_PREAMBLE_VHT = 3,
    VARN_PREAMBLE_HE = 4,
};

enum eVARNRttType : int32_t {
    VARN_RTT_TYPE_UNSPECIFIED = 0,
    VARN_RTT_TYPE_1_SIDED = 1,
    VARN_RTT_TYPE_2_SIDED = 2,
};

// Peer (node) type.
enum eVARNNodeType : int32_t {
    VARN_NODE_ACCESS_POINT = 1,
    VARN_NODE_PEER_DEVICE = 2,
    VARN_NODE_NAN_DEVICE = 3,
    VARN_NODE_STATION = 4,
};

// Event code of background-scan, hotlist and significant-change responses.
enum eVARNEventCode : int32_t {
    VARN_NO_EVT = 0,                  // synchronous answer, no event
    VARN_ON_FULL_SCAN_RESULT_EVT = 2, // one AP's full scan result
    VARN_ON_SCAN_EVT = 3,             // scan-status event
    VARN_AP_FOUND_EVT = 4,
    VARN_AP_LOST_EVT = 5,
    VARN_SIGNIFICANT_CHANGE_EVT = 6,
};

// Scan-status word of a background-scan event.
enum eVARNBgScanEvent : int32_t {
    VARN_BGSCAN_BUFFER_THRESHOLD = 0, // the report threshold was reached
    VARN_BGSCAN_SCAN_COMPLETE = 1,    // a scan completed, results are available
};

// Band of a channel query or scan bucket (the Android band numbering).
enum eVARNBand : int32_t {
    VARN_BAND_UNSPECIFIED = 0,
    VARN_BAND_BG = 1,
    VARN_BAND_A = 2,
    VARN_BAND_ABG = 3,
    VARN_BAND_A_DFS = 4,
    VARN_BAND_A_WITH_DFS = 6,
    VARN_BAND_ABG_WITH_DFS = 7,
};

enum eVARNMotionPattern : int32_t {
    VARN_MOTION_NOT_EXPECTED = 0,
    VARN_MOTION_EXPECTED = 1,
    VARN_MOTION_UNKNOWN = 2,
};

// Log level of the client library (same numbering as the framework's levels).
enum eVARNLogLevel : int32_t {
    VARN_LOG_OFF = 0,
    VARN_LOG_ERROR = 1,
    VARN_LOG_WARNING = 2,
    VARN_LOG_INFO = 3,
    VARN_LOG_DEBUG = 4,
    VARN_LOG_VERBOSE = 5,
};

// A 6-byte MAC address (BSSID). Plain value, trivially copyable, 6 bytes.
class VARNMacAddress {
  public:
    VARNMacAddress() : bytes_{} {}
    explicit VARNMacAddress(const uint8_t* bytes) { std::memcpy(bytes_, bytes, sizeof(bytes_)); }

    // Byte `i` (0..5) of the address.
    uint8_t& operator[](int i) { return bytes_[i]; }
    uint8_t operator[](int i) const { return bytes_[i]; }

    // 0 when both addresses are equal; otherwise the sign of the first
    // differing byte's difference.
    int compareTo(const VARNMacAddress& other) const {
        return std::memcmp(bytes_, other.bytes_, sizeof(bytes_));
    }
    bool operator==(const VARNMacAddress& other) const { return compareTo(other) == 0; }
    bool operator!=(const VARNMacAddress& other) const { return compareTo(other) != 0; }

    const uint8_t* bytes() const { return bytes_; }

  private:
    uint8_t bytes_[6];
};
static_assert(sizeof(VARNMacAddress) == 6, "a MAC address is six bytes");

// An SSID of up to 32 bytes. The length is kept as the service reported it:
// a record whose length is above 32 is malformed, and getSSID() then still
// copies no more than the 32 stored bytes.
class VARNSsid {
  public:
    static constexpr uint32_t kMaxSsidLength = 32;

    VARNSsid() : length_(0), ssid_{} {}
    VARNSsid(const char* ssid, uint32_t length) : VARNSsid() { setSSID(ssid, length); }

    // Copies min(`length`, 32) bytes of `ssid` and keeps `length` as given.
    void setSSID(const char* ssid, uint32_t length) {
        length_ = length;
        std::memcpy(ssid_, ssid, length < kMaxSsidLength ? length : kMaxSsidLength);
    }

    // Copies the SSID bytes (not NUL-terminated, at most 32) into `buffer`
    // and writes the reported length to `*length`. Returns 0, or -1 when an
    // argument is null.
    int getSSID(char* buffer, uint32_t* length) const {
        if (buffer == nullptr || length == nullptr) return -1;
        std::memcpy(buffer, ssid_, length_ < kMaxSsidLength ? length_ : kMaxSsidLength);
        *length = length_;
        return 0;
    }

  private:
    uint32_t length_;
    char ssid_[kMaxSsidLength];
};

// Helpers of the client library.
class VARNUtils {
  public:
    // Motion pattern from its raw code: 0, 1 and 2 map to themselves, any
    // other code to VARN_MOTION_UNKNOWN.
    static eVARNMotionPattern to_eVARNMotionPattern(uint8_t value) {
        return value <= VARN_MOTION_UNKNOWN ? static_cast<eVARNMotionPattern>(value)
                                            : VARN_MOTION_UNKNOWN;
    }
};
