// Request bookkeeping: client request ids and the tables that map a client
// request id back to the HAL's request id and callbacks.
#include "wifihal/request_bookkeeping.h"

#include <stdlib.h>

#include <new>

#include <vel_loc_fw/log_util.h>
#include <vel_loc_fw/mutex.h>

#include "wifihal/wifihal_internal.h"

// Clang's thread-safety analysis (-Wthread-safety) checks that the tables
// below are touched only under the bookkeeping lock.
#if defined(__clang__)
#define VARN_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VARN_THREAD_ANNOTATION(x)
#endif

namespace {

// Guards `req_id`, both handler lists, `g_req_cache` and the cached
// capabilities. Never held while calling into the client library (not even
// its name tables) or a HAL callback; logging under it is fine, since the log
// code never calls back into the bookkeeping.
class VARN_THREAD_ANNOTATION(capability("mutex")) BookkeepingMutex {
  public:
    vel_loc_fw::MutexImpl mutex{"WifiHalBookkeeping", false};
};
BookkeepingMutex g_bookkeeping;

class VARN_THREAD_ANNOTATION(scoped_lockable) BookkeepingLock {
  public:
    BookkeepingLock() VARN_THREAD_ANNOTATION(acquire_capability(g_bookkeeping))
        : lock_(&g_bookkeeping.mutex, "WifiHalBookkeeping") {}
    ~BookkeepingLock() VARN_THREAD_ANNOTATION(release_capability()) {}

  private:
    vel_loc_fw::AutoLock lock_;
};

}  // namespace

uint32_t req_id VARN_THREAD_ANNOTATION(guarded_by(g_bookkeeping)) = 0;
wifi_rtt_capabilities* rttCachedCapabilities VARN_THREAD_ANNOTATION(guarded_by(g_bookkeeping)) =
        nullptr;
vel_loc_fw::List<RttRequestHandlerNode> rttRequestHandlers
        VARN_THREAD_ANNOTATION(guarded_by(g_bookkeeping));
vel_loc_fw::List<RspHandlerNode> rspHandlers VARN_THREAD_ANNOTATION(guarded_by(g_bookkeeping));
vel_loc_fw::vector<WiFiHalReqCacheEntry> g_req_cache
        VARN_THREAD_ANNOTATION(guarded_by(g_bookkeeping));

namespace {

enum class RspLookup { kWithSize, kWithoutSize };

// A node passed by an `rspHandlers` walk, kept for logging after the lock is
// released (the type's name comes from the client library, which is never
// called under the bookkeeping lock).
struct PassedNode {
    uint32_t varn_req_id;
    eVARNRequestType req_type;
};

// Walks `rspHandlers` for the node of request type `reqType` with client id
// `varnReqId` and copies the first match into `*found`; logs every node
// passed, then the hit. Returns whether it found one. The type must match
// too: a node of another type holds another kind of handler record.
bool findRspHandler(const char* caller, uint32_t varnReqId, eVARNRequestType reqType,
                    RspLookup style, RspHandlerNode* found) {
    const bool verbose = vel_loc_fw::is_log_verbose_enabled(kWifiHalTag);
    vel_loc_fw::vector<PassedNode> passed;
    unsigned size = 0;
    bool hit = false;
    {
        BookkeepingLock lock;
        size = static_cast<unsigned>(rspHandlers.size());
        const RspHandlerNode* node = rspHandlers.find([&](const RspHandlerNode& n) {
            if (verbose) passed.push_back(PassedNode{n.varnReqId, n.reqType});
            return n.varnReqId == varnReqId && n.reqType == reqType;
        });
        if (node != nullptr) {
            *found = *node;
            hit = true;
        }
    }
    for (const PassedNode& p : passed) {
        const char* type = VARNRequest::toString(p.req_type);
        if (style == RspLookup::kWithSize) {
            vel_loc_fw::log_verbose(kWifiHalTag,
                                    "%s: varnReqId(%u) storedVarnReqId(%d) reqType(%s) "
                                    "rspHandlersSz(%u)",
                                    caller, varnReqId, static_cast<int>(p.varn_req_id), type, size);
        } else {
            vel_loc_fw::log_verbose(kWifiHalTag,
                                    "%s: varnReqId(%u) storedVarnReqId(%d) reqType(%s) ", caller,
                                    varnReqId, static_cast<int>(p.varn_req_id), type);
        }
    }
    if (hit) {
        vel_loc_fw::log_verbose(kWifiHalTag, "%s: clReqId(%d), varnReqId(%u)", caller,
                                found->clReqId, varnReqId);
    }
    return hit;
}

}  // namespace

uint32_t nextReqId() {
    BookkeepingLock lock;
    if (req_id == UINT32_MAX) {
        // Wrapping would hand out ids the service may still have pending, and
        // responses would reach the wrong request.
        vel_loc_fw::log_error(kWifiHalTag, "%s: request id space exhausted (%u)", __func__, req_id);
        abort();
    }
    return ++req_id;
}

void resetReqId() {
    BookkeepingLock lock;
    req_id = 0;
}

bool findRttRequest(uint32_t varnReqId, int32_t* clReqId, wifi_rtt_event_handler* handler) {
    BookkeepingLock lock;
    const RttRequestHandlerNode* node = rttRequestHandlers.find(
            [varnReqId](const RttRequestHandlerNode& n) { return n.varnReqId == varnReqId; });
    if (node == nullptr) return false;
    *clReqId = node->clReqId;
    *handler = node->handler;
    vel_loc_fw::log_verbose(kWifiHalTag, "%s: clReqId(%d), varnReqId(%u)", "getRttHandler",
                            node->clReqId, varnReqId);
    return true;
}

int32_t getWiFiHalReqId(uint32_t varnReqId) {
    BookkeepingLock lock;
    const RttRequestHandlerNode* node = rttRequestHandlers.find(
            [varnReqId](const RttRequestHandlerNode& n) { return n.varnReqId == varnReqId; });
    return node != nullptr ? node->clReqId : -1;
}

void deleteWiFiHalReq(uint32_t clReqId) {
    BookkeepingLock lock;
    const int32_t wanted = static_cast<int32_t>(clReqId);
    RttRequestHandlerNode* node = rttRequestHandlers.find(
            [wanted](const RttRequestHandlerNode& n) { return n.clReqId == wanted; });
    if (node != nullptr) rttRequestHandlers.erase_and_delete(node);
}

int getRttHandler(uint32_t varnReqId, wifi_rtt_event_handler* handler) {
    int32_t clReqId = -1;
    return findRttRequest(varnReqId, &clReqId, handler) ? 0 : -1;
}

void getGscanEventHandler(int& clReqId, uint32_t varnReqId, wifi_scan_result_handler* handler) {
    RspHandlerNode node{};
    if (!findRspHandler(__func__, varnReqId, VARN_REQ_BGSCAN_START, RspLookup::kWithSize, &node)) {
        return;
    }
    clReqId = node.clReqId;
    *handler = node.handler.scan;
}

void getHotlistApEvtHandler(int& clReqId, uint32_t varnReqId,
                            wifi_hotlist_ap_found_handler* handler) {
    RspHandlerNode node{};
    if (!findRspHandler(__func__, varnReqId, VARN_REQ_HOTLIST_SET, RspLookup::kWithoutSize,
                        &node)) {
        return;
    }
    clReqId = node.clReqId;
    *handler = node.handler.hotlist;
}

void getSigChangeEvtHandler(int& clReqId, uint32_t varnReqId,
                            wifi_significant_change_handler* handler) {
    RspHandlerNode node{};
    if (!findRspHandler(__func__, varnReqId, VARN_REQ_SIGNIFICANT_CHANGE_SET,
                        RspLookup::kWithoutSize, &node)) {
        return;
    }
    clReqId = node.clReqId;
    *handler = node.handler.significant_change;
}

void cleanupHandlers(eVARNRequestType reqType) {
    const char* type = VARNRequest::toString(reqType);
    BookkeepingLock lock;
    vel_loc_fw::log_verbose(kWifiHalTag, "Before @cleanupHandlers(): rspHandlers size %d",
                            static_cast<int>(rspHandlers.size()));
    for (;;) {
        RspHandlerNode* node = rspHandlers.find(
                [reqType](const RspHandlerNode& n) { return n.reqType == reqType; });
        if (node == nullptr) break;
        vel_loc_fw::log_verbose(kWifiHalTag, "%s: for %s request", __func__, type);
        if (!rspHandlers.erase_and_delete(node)) break;
    }
    vel_loc_fw::log_verbose(kWifiHalTag, "After @cleanupHandlers(): rspHandlers size %d",
                            static_cast<int>(rspHandlers.size()));
}

void cleanupRttHandlers() {}

int addRttRequestHandler(int32_t clReqId, uint32_t varnReqId,
                         const wifi_rtt_event_handler& handler) {
    RttRequestHandlerNode* node =
            new (std::nothrow) RttRequestHandlerNode{nullptr, clReqId, varnReqId, handler};
    if (node == nullptr) {
        vel_loc_fw::log_error(kWifiHalTag, "%s: memory allocation failure", __func__);
        return -1;
    }
    BookkeepingLock lock;
    rttRequestHandlers.push_front(node);
    return 0;
}

void removeRttRequestHandler(uint32_t varnReqId) {
    BookkeepingLock lock;
    RttRequestHandlerNode* node = rttRequestHandlers.find(
            [varnReqId](const RttRequestHandlerNode& n) { return n.varnReqId == varnReqId; });
    if (node != nullptr) rttRequestHandlers.erase_and_delete(node);
}

int addRspHandler(int32_t clReqId, uint32_t varnReqId, eVARNRequestType reqType,
                  const RspHandlerRecord& handler) {
    RspHandlerNode* node =
            new (std::nothrow) RspHandlerNode{nullptr, clReqId, varnReqId, reqType, handler};
    if (node == nullptr) {
        vel_loc_fw::log_error(kWifiHalTag, "%s: memory allocation failure", __func__);
        return -1;
    }
    BookkeepingLock lock;
    rspHandlers.push_front(node);
    return 0;
}

void clearReqCache() {
    BookkeepingLock lock;
    g_req_cache.clear();
}

int appendReqCache(const VARNMacAddress& bssid, eVARNBandwidth bandwidth) {
    WiFiHalReqCacheEntry entry;
    entry.bssid = bssid;
    entry.bandwidth = bandwidth;
    BookkeepingLock lock;
    return g_req_cache.push_back(entry);
}

bool findRequestedBandwidth(const VARNMacAddress& bssid, WiFiHalReqCacheEntry* entry) {
    BookkeepingLock lock;
    for (const WiFiHalReqCacheEntry& cached : g_req_cache) {
        if (cached.bssid.compareTo(bssid) == 0) {
            *entry = cached;
            return true;
        }
    }
    return false;
}

bool copyCachedRttCapabilities(wifi_rtt_capabilities* capabilities) {
    BookkeepingLock lock;
    if (rttCachedCapabilities == nullptr) return false;
    *capabilities = *rttCachedCapabilities;
    return true;
}

int storeRttCapabilities(const wifi_rtt_capabilities& capabilities) {
    BookkeepingLock lock;
    if (rttCachedCapabilities != nullptr) return 0;
    rttCachedCapabilities =
            static_cast<wifi_rtt_capabilities*>(malloc(sizeof(wifi_rtt_capabilities)));
    if (rttCachedCapabilities == nullptr) return -1;
    *rttCachedCapabilities = capabilities;
    return 0;
}

void releaseBookkeeping() {
    BookkeepingLock lock;
    free(rttCachedCapabilities);
    rttCachedCapabilities = nullptr;
    rttRequestHandlers.clear();
    rspHandlers.clear();
}
