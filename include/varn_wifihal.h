// VARN Wi-Fi HAL entry layer.
//
// The vendor Wi-Fi HAL hands its location work (RTT ranging, responder, LCI/LCR,
// background scan, capability queries) to the VARN location service through
// the `varn_wifihal_*` entry points below, either by name or through the
// table returned by `varn_wifihal_get_cb_table()`:
//
//   const varn_wifihal_cb_table_t* table = varn_wifihal_get_cb_table();
//   if (table->init() == WIFI_SUCCESS) {
//       table->rtt_range_request(id, iface, n, configs, handler);
//       ...
//       table->destroy();
//   }
//
// Every request goes through the one `client`; every asynchronous answer
// comes back on the client library's thread through the one `listener`,
// which uses the request bookkeeping declared here to find the HAL's
// request id and callbacks.
//
// Threads: `varn_wifihal_init()` and `varn_wifihal_destroy()` must not run
// concurrently with each other or with any other entry point. Requests,
// cancels and the bookkeeping look-ups may run concurrently from any thread;
// the bookkeeping is guarded internally.
#pragma once

#include <stdint.h>

#include <hardware_legacy/wifi_hal.h>
#include <varn_client/VARNClient.h>
#include <vel_loc_fw/fw_export.h>
#include <vel_loc_fw/list.h>
#include <vel_loc_fw/vector.h>

class VARNClientListenerImpl;

// ---------------------------------------------------------------------------
// Entry points
// ---------------------------------------------------------------------------

extern "C" {

// Reads the configuration file named by `LOC_PATH_VARN_CONF`, sets the log
// level and the ranging statistics settings, creates the listener and the
// client and marks the interface up. Returns WIFI_SUCCESS, also when already
// up (then only a warning is logged and `client`/`listener` are left null),
// or WIFI_ERROR_UNINITIALIZED when the client could not be created.
// Blocks while the client connects.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_init(void);

// Deletes the client (no response is delivered afterwards), then the
// listener, frees the cached capabilities and every pending handler, and
// marks the interface down. Works in any state; always WIFI_SUCCESS.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_destroy(void);

// Starts ranging towards `num_rtt_config` targets. `rtt_config` is borrowed
// for the call; `handler` is copied and called later, on the client
// library's thread, with the results. Returns WIFI_SUCCESS once the service
// accepted the request, WIFI_ERROR_UNINITIALIZED while the interface is down
// or has no client (a second init while up drops it), WIFI_ERROR_UNKNOWN for
// missing arguments, an invalid configuration or a refusal,
// WIFI_ERROR_OUT_OF_MEMORY when the request cannot be built or recorded
// (nothing is sent then). The callbacks are recorded before the send, so an
// answer that comes before this returns is delivered; a refused, invalid or
// unrecorded request leaves no callbacks behind, and an invalid one consumes
// no request id either. Does not block.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_rtt_range_request(wifi_request_id id,
                                                            wifi_interface_handle iface,
                                                            unsigned num_rtt_config,
                                                            wifi_rtt_config rtt_config[],
                                                            wifi_rtt_event_handler handler);

// Forgets the handler of request `id` and asks the service to stop ranging
// towards the `num_devices` addresses of `addr` (borrowed). Returns
// WIFI_SUCCESS when the service accepted the cancel, WIFI_ERROR_UNINITIALIZED
// while down or without a client, WIFI_ERROR_UNKNOWN for missing arguments or
// a refusal. The handler is forgotten even when the cancel is refused. Does
// not block.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_rtt_range_cancel(wifi_request_id id,
                                                           wifi_interface_handle iface,
                                                           unsigned num_devices, mac_addr addr[]);

// ---- Capability, version and channel queries ------------------------------
// Synchronous: each asks the service and returns its answer; nothing is
// called back. Outputs are written only on the results noted.

// RTT capabilities. The first successful call asks the service and caches
// the answer until destroy; later calls are answered from the cache without
// a request. Returns WIFI_SUCCESS with `*capabilities` written,
// WIFI_ERROR_UNINITIALIZED while down, WIFI_ERROR_INVALID_ARGS for a null
// `capabilities`, WIFI_ERROR_UNKNOWN when the service does not answer or the
// cache cannot be allocated (nothing written then).
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_get_rtt_capabilities(wifi_interface_handle iface,
                                                               wifi_rtt_capabilities* capabilities);

// Writes the version 2.1.1 and returns WIFI_SUCCESS, in any state. Null
// outputs are skipped.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_get_varn_version(u16* major, u16* minor, u16* micro);

// Service capability bits: bit 0 one-sided ranging, bit 1 two-sided (11mc)
// ranging, bit 2 background scan. Unlike every other entry point it does not
// test the interface state, only that a client exists: before init (no
// client) it returns WIFI_ERROR_UNINITIALIZED. Also fills the RTT capability
// cache when empty. Returns WIFI_SUCCESS, WIFI_ERROR_INVALID_ARGS for a null
// `capabilities`, WIFI_ERROR_UNKNOWN when the service does not answer or, with
// `*capabilities` already written, when the cache cannot be allocated.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_get_varn_capabilities(u32* capabilities);

// Channels (MHz) of `band` (a `wifi_band` code). The service is asked for at
// most `max_channels`; `*num_channels` is set to the number it answered with,
// as it answered, and at most `max_channels` entries are written to
// `channels`. Returns the service's status as a wifi_error (WIFI_SUCCESS when
// it succeeded), WIFI_ERROR_UNINITIALIZED while down, WIFI_ERROR_INVALID_ARGS
// for a null output, WIFI_ERROR_UNKNOWN when the service does not answer.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_get_valid_channels(wifi_interface_handle iface, int band,
                                                             int max_channels,
                                                             wifi_channel* channels,
                                                             int* num_channels);

// Background-scan capabilities; where the platform batches scans, the cache
// size, APs per scan and reporting threshold are those of the batching.
// Returns the service's status as a wifi_error, WIFI_ERROR_UNINITIALIZED while
// down, WIFI_ERROR_INVALID_ARGS for a null `capabilities`,
// WIFI_ERROR_OUT_OF_MEMORY when the batching capabilities are not answered,
// WIFI_ERROR_UNKNOWN when the scan capabilities are not.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_get_gscan_capabilities(
        wifi_interface_handle iface, wifi_gscan_capabilities* capabilities);

// The channel and preamble the RTT responder uses, written to
// `*responder_info` when that is not null. Returns WIFI_SUCCESS whatever
// status the service reports, WIFI_ERROR_UNINITIALIZED while down,
// WIFI_ERROR_UNKNOWN when the service does not answer.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_get_responder_info(wifi_interface_handle iface,
                                                             wifi_rtt_responder* responder_info);

// ---- Responder and location information ------------------------------------
// `id` is not used: each call carries a new client request id.

// Turns the RTT responder on for at most `max_duration_seconds` on the
// hinted channel and writes the channel it uses to `*responder_info` (when
// not null), also when the service reports a failure status. Returns the
// service's status as a wifi_error, WIFI_ERROR_UNINITIALIZED while down,
// WIFI_ERROR_UNKNOWN when the service does not answer.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_enable_responder(wifi_request_id id,
                                                           wifi_interface_handle iface,
                                                           wifi_channel_info channel_hint,
                                                           unsigned max_duration_seconds,
                                                           wifi_rtt_responder* responder_info);

// Turns the RTT responder off. Returns WIFI_SUCCESS when the service accepted
// the request, WIFI_ERROR_UNINITIALIZED while down, WIFI_ERROR_UNKNOWN when
// it refused. Does not block.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_disable_responder(wifi_request_id id,
                                                            wifi_interface_handle iface);

// Hands the location the responder announces (`lci` borrowed for the call).
// Returns WIFI_SUCCESS when the service accepted it, WIFI_ERROR_UNINITIALIZED
// while down, WIFI_ERROR_INVALID_ARGS for a null `lci`, WIFI_ERROR_UNKNOWN
// when refused. Does not block.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_set_lci(wifi_request_id id, wifi_interface_handle iface,
                                                  wifi_lci_information* lci);

// Hands the civic location the responder announces: `lcr->length` bytes of
// `civic_info` (`lcr` borrowed for the call). Returns WIFI_SUCCESS when the
// service accepted it, WIFI_ERROR_UNINITIALIZED while down,
// WIFI_ERROR_INVALID_ARGS for a null `lcr` or a negative length,
// WIFI_ERROR_UNKNOWN when refused. A length above 256 ends the process.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_set_lcr(wifi_request_id id, wifi_interface_handle iface,
                                                  wifi_lcr_information* lcr);

// ---- Background scan, hotlist and significant change -----------------------
// The set/start calls register the HAL's handler (copied) under `id` and ask
// the service synchronously; events then arrive on the client library's
// thread through that handler. The stop/reset calls drop every handler of
// their kind, whatever the outcome and also while down. Results: the status
// of the service's answer as a wifi_error, WIFI_ERROR_UNINITIALIZED while
// down, WIFI_ERROR_UNKNOWN when the service does not answer or answers with
// another kind of response, WIFI_ERROR_OUT_OF_MEMORY when a handler cannot
// be recorded (nothing is sent then).

// Starts background scanning. Both handler pointers are required
// (WIFI_ERROR_INVALID_ARGS otherwise). The handler stays registered even when
// the service refuses, until the next stop. More than 16 buckets or more than
// 16 channels in a bucket (or a negative count) ends the process.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_start_gscan(wifi_request_id id,
                                                      wifi_interface_handle iface,
                                                      wifi_scan_cmd_params params,
                                                      wifi_scan_result_handler handler);

// Stops background scanning; `id` and `iface` are not used.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_stop_gscan(wifi_request_id id,
                                                     wifi_interface_handle iface);

// Fetches at most `max` cached scans into `results` (an array of `max`
// records) and sets `*num` to the number written. Each record's `num_results`
// is the scan's full count, also above the 32 records it holds. `flush`
// empties the service's cache. Returns WIFI_SUCCESS, the service's failure
// status as a wifi_error (nothing written), WIFI_ERROR_UNINITIALIZED while
// down, WIFI_ERROR_INVALID_ARGS for a null output or a negative `max`,
// WIFI_ERROR_UNKNOWN when the service does not answer.
VEL_LOC_FW_EXPORT wifi_error
varn_wifihal_get_cached_gscan_results(wifi_interface_handle iface, byte flush, int max,
                                      wifi_cached_scan_results* results, int* num);

// Watches the BSSIDs of `params`; found/lost events go to `handler`. More
// than 128 BSSIDs (or a negative count) ends the process. Not in the table.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_set_bssid_hotlist(wifi_request_id id,
                                                            wifi_interface_handle iface,
                                                            wifi_bssid_hotlist_params params,
                                                            wifi_hotlist_ap_found_handler handler);

// Stops the hotlist. Not in the table.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_reset_bssid_hotlist(wifi_request_id id);

// Watches the RSSI of the BSSIDs of `params`; changes go to `handler`. More
// than 64 BSSIDs (or a negative count) ends the process. Not in the table.
VEL_LOC_FW_EXPORT wifi_error varn_wifihal_set_significant_change_handler(
        wifi_request_id id, wifi_interface_handle iface, wifi_significant_change_params params,
        wifi_significant_change_handler handler);

// Stops significant-change monitoring; `id` and `iface` are not used. Not in
// the table.
VEL_LOC_FW_EXPORT wifi_error
varn_wifihal_reset_significant_change_handler(wifi_request_id id, wifi_interface_handle iface);

}  // extern "C"

// ---------------------------------------------------------------------------
// Callback table
// ---------------------------------------------------------------------------

// The 23 entry points in the order the HAL expects them. Slots 13 to 18 are
// null on purpose: the hotlist and significant-change entry points are
// reachable by name only.
// clang-format off
struct varn_wifihal_cb_table_t {
    wifi_error (*init)(void);                                                    // 1
    wifi_error (*destroy)(void);                                                 // 2
    wifi_error (*get_rtt_capabilities)(wifi_interface_handle iface,              // 3
                                       wifi_rtt_capabilities* capabilities);
    wifi_error (*rtt_range_request)(wifi_request_id id, wifi_interface_handle iface,  // 4
                                    unsigned num_rtt_config, wifi_rtt_config rtt_config[],
                                    wifi_rtt_event_handler handler);
    wifi_error (*rtt_range_cancel)(wifi_request_id id, wifi_interface_handle iface,  // 5
                                   unsigned num_devices, mac_addr addr[]);
    wifi_error (*get_varn_version)(u16* major, u16* minor, u16* micro);          // 6
    wifi_error (*get_varn_capabilities)(u32* capabilities);                      // 7
    wifi_error (*get_valid_channels)(wifi_interface_handle iface, int band,      // 8
                                     int max_channels, wifi_channel* channels,
                                     int* num_channels);
    wifi_error (*get_gscan_capabilities)(wifi_interface_handle iface,            // 9
                                         wifi_gscan_capabilities* capabilities);
    wifi_error (*start_gscan)(wifi_request_id id, wifi_interface_handle iface,   // 10
                              wifi_scan_cmd_params params, wifi_scan_result_handler handler);
    wifi_error (*stop_gscan)(wifi_request_id id, wifi_interface_handle iface);   // 11
    wifi_error (*get_cached_gscan_results)(wifi_interface_handle iface, byte flush,  // 12
                                           int max, wifi_cached_scan_results* results,
                                           int* num);
    void (*reserved_13)(void);                                                   // 13
    void (*reserved_14)(void);                                                   // 14
    void (*reserved_15)(void);                                                   // 15
    void (*reserved_16)(void);                                                   // 16
    void (*reserved_17)(void);                                                   // 17
    void (*reserved_18)(void);                                                   // 18
    wifi_error (*set_lci)(wifi_request_id id, wifi_interface_handle iface,       // 19
                          wifi_lci_information* lci);
    wifi_error (*set_lcr)(wifi_request_id id, wifi_interface_handle iface,       // 20
                          wifi_lcr_information* lcr);
    wifi_error (*get_responder_info)(wifi_interface_handle iface,                // 21
                                     wifi_rtt_responder* responder_info);
    wifi_error (*enable_responder)(wifi_request_id id, wifi_interface_handle iface,  // 22
                                   wifi_channel_info channel_hint,
                                   unsigned max_duration_seconds,
                                   wifi_rtt_responder* responder_info);
    wifi_error (*disable_responder)(wifi_request_id id, wifi_interface_handle iface);  // 23
};
// clang-format on
static_assert(sizeof(varn_wifihal_cb_table_t) == 23 * sizeof(void*),
              "the callback table has 23 pointer slots");

extern "C" {
// The static callback table; usable before init. Never null.
VEL_LOC_FW_EXPORT const varn_wifihal_cb_table_t* varn_wifihal_get_cb_table(void);
}

// ---------------------------------------------------------------------------
// Interface state and settings
// ---------------------------------------------------------------------------

// 1 while the interface is up (after a successful init, until destroy).
VEL_LOC_FW_EXPORT extern uint8_t varn_wifihal_interface_initialized;
// The client every request goes through; null while down.
VEL_LOC_FW_EXPORT extern VARNClient* client;
// The receiver of every asynchronous response; null while down.
VEL_LOC_FW_EXPORT extern VARNClientListenerImpl* listener;
// "VARN_RTT_WEIGHTED_MEAN" (default 0): RTT statistics use a weighted mean.
VEL_LOC_FW_EXPORT extern int32_t g_weighted_mean;
// "VARN_WIFIHAL_BW_MISMATCH" (default 0): drop frames measured at another
// bandwidth than requested; ranging requests then fill `g_req_cache`.
VEL_LOC_FW_EXPORT extern uint32_t g_discard_bw_mis_match;

// ---------------------------------------------------------------------------
// Request bookkeeping
//
// The globals below are guarded by one internal mutex. Code outside the
// entry layer reads them only through the functions here and in
// wifihal/request_bookkeeping.h, except single-threaded tests.
// ---------------------------------------------------------------------------

// Last client request id handed out; 0 after init, so the first request
// carries 1. Never wraps: taking the next id after 4294967295 ends the process.
VEL_LOC_FW_EXPORT extern uint32_t req_id;

// RTT capabilities fetched once from the service (heap, `malloc`); null until
// then, freed by destroy.
VEL_LOC_FW_EXPORT extern wifi_rtt_capabilities* rttCachedCapabilities;

// A pending ranging request: the HAL's id, the client id and its callbacks.
struct RttRequestHandlerNode {
    RttRequestHandlerNode* next;
    int32_t clReqId;                 // the HAL's `wifi_request_id`
    uint32_t varnReqId;              // the client request id
    wifi_rtt_event_handler handler;  // copied by value
};

// The callbacks of a background-scan, hotlist or significant-change request
// (16 bytes; an 8-byte significant-change handler leaves the rest zero).
union RspHandlerRecord {
    wifi_scan_result_handler scan;
    wifi_hotlist_ap_found_handler hotlist;
    wifi_significant_change_handler significant_change;
    unsigned char raw[16];
};
static_assert(sizeof(RspHandlerRecord) == 16, "handler record is 16 bytes");

// A running background-scan, hotlist or significant-change request.
struct RspHandlerNode {
    RspHandlerNode* next;
    int32_t clReqId;           // the HAL's `wifi_request_id`
    uint32_t varnReqId;        // the client request id
    eVARNRequestType reqType;  // 9, 12 or 14
    RspHandlerRecord handler;  // copied by value
};

// Bandwidth requested for one ranging target, kept while bandwidth-mismatch
// filtering is on so that the listener can compare it with what was measured.
struct WiFiHalReqCacheEntry {
    VARNMacAddress bssid;
    eVARNBandwidth bandwidth;
};
static_assert(sizeof(WiFiHalReqCacheEntry) == 12, "cache entries are 12 bytes");

// Pending ranging requests, newest first.
VEL_LOC_FW_EXPORT extern vel_loc_fw::List<RttRequestHandlerNode> rttRequestHandlers;
// Running scan/hotlist/significant-change requests, newest first.
VEL_LOC_FW_EXPORT extern vel_loc_fw::List<RspHandlerNode> rspHandlers;
// Targets of the latest ranging request with their requested bandwidth.
VEL_LOC_FW_EXPORT extern vel_loc_fw::vector<WiFiHalReqCacheEntry> g_req_cache;

// The HAL id of the newest pending ranging request with client id
// `varnReqId`, or -1 when there is none.
VEL_LOC_FW_EXPORT int32_t getWiFiHalReqId(uint32_t varnReqId);

// Removes the newest pending ranging request whose HAL id is `clReqId`
// (compared as a signed 32-bit id). Does nothing, silently, when none.
VEL_LOC_FW_EXPORT void deleteWiFiHalReq(uint32_t clReqId);

// Copies the callbacks of the newest pending ranging request with client id
// `varnReqId` into `*handler` and returns 0; returns -1 and leaves `*handler`
// untouched when there is none.
VEL_LOC_FW_EXPORT int getRttHandler(uint32_t varnReqId, wifi_rtt_event_handler* handler);

// Look-ups of `rspHandlers` by client id: on a hit write the HAL id to
// `clReqId` and copy the callbacks to `*handler`; when absent leave both
// untouched.
VEL_LOC_FW_EXPORT void getGscanEventHandler(int& clReqId, uint32_t varnReqId,
                                            wifi_scan_result_handler* handler);
VEL_LOC_FW_EXPORT void getHotlistApEvtHandler(int& clReqId, uint32_t varnReqId,
                                              wifi_hotlist_ap_found_handler* handler);
VEL_LOC_FW_EXPORT void getSigChangeEvtHandler(int& clReqId, uint32_t varnReqId,
                                              wifi_significant_change_handler* handler);

// Removes every `rspHandlers` node of request type `reqType`.
VEL_LOC_FW_EXPORT void cleanupHandlers(eVARNRequestType reqType);

// Kept for callers of the entry layer; ranging handlers leave one by one
// (cancel, final results, destroy), so there is nothing to do here.
VEL_LOC_FW_EXPORT void cleanupRttHandlers();
