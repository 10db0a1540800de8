// Internal helpers of the request bookkeeping (not exported).
//
// `req_id`, `rttRequestHandlers`, `rspHandlers`, `g_req_cache` and
// `rttCachedCapabilities` are shared between the HAL threads that issue and
// cancel requests and the client library's thread that delivers responses.
// One internal mutex guards all of them; every function here and every
// public look-up in <varn_wifihal.h> takes it for the duration of the call
// and releases it before returning. None of them calls into the client
// library or a HAL callback, so callers may call them from anywhere except
// while holding the log mutex.
//
// Code on the response thread (the listener) must use these functions instead
// of walking the lists or the cache itself.
#pragma once

#include <stdint.h>

#include <varn_wifihal.h>

// Takes the next client request id: increments `req_id`, then returns it.
// An increment from 4294967295 would reuse ids still pending in the service,
// so it logs an error and aborts the process instead.
uint32_t nextReqId();

// Sets `req_id` to 0, so that the next request carries 1.
void resetReqId();

// The listener's one look-up of a ranging response's request: copies the HAL
// id and the callbacks of the newest `rttRequestHandlers` node whose client id
// is `varnReqId`, both under one lock, and returns true; returns false and
// leaves both outputs untouched when there is none. Logs the hit at verbose
// level as `getRttHandler` does.
bool findRttRequest(uint32_t varnReqId, int32_t* clReqId, wifi_rtt_event_handler* handler);

// Records a ranging request's callbacks at the head of `rttRequestHandlers`.
// Returns 0, or -1 when out of memory (logged).
int addRttRequestHandler(int32_t clReqId, uint32_t varnReqId,
                         const wifi_rtt_event_handler& handler);

// Removes the `rttRequestHandlers` node whose client id is `varnReqId` (client
// ids are unique); nothing when there is none. Undoes `addRttRequestHandler`
// for a request the service refused.
void removeRttRequestHandler(uint32_t varnReqId);

// Records a scan/hotlist/significant-change request's callbacks at the head of
// `rspHandlers`. Returns 0, or -1 when out of memory (logged).
int addRspHandler(int32_t clReqId, uint32_t varnReqId, eVARNRequestType reqType,
                  const RspHandlerRecord& handler);

// Empties `g_req_cache` and frees its array.
void clearReqCache();

// Appends {`bssid`, `bandwidth`} to `g_req_cache`. Returns 0, or the vector's
// -1/-2 when its array cannot grow (logged by the vector).
int appendReqCache(const VARNMacAddress& bssid, eVARNBandwidth bandwidth);

// Looks up the bandwidth requested for `bssid`: the first `g_req_cache` entry
// whose address compares equal (`compareTo` 0). Returns true and copies the
// entry into `*entry` when found; false (leaving `*entry` untouched) when not.
bool findRequestedBandwidth(const VARNMacAddress& bssid, WiFiHalReqCacheEntry* entry);

// Copies the cached RTT capabilities into `*capabilities` and returns true;
// false when nothing is cached yet.
bool copyCachedRttCapabilities(wifi_rtt_capabilities* capabilities);

// Caches `capabilities` unless a record is already cached (the first one
// stays). Returns 0, or -1 when the record cannot be allocated.
int storeRttCapabilities(const wifi_rtt_capabilities& capabilities);

// Frees the cached capabilities and every node of both handler lists
// (`g_req_cache` stays as it is). Used by destroy.
void releaseBookkeeping();
