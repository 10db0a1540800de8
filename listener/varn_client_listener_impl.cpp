#include "listener/varn_client_listener_impl.h"

#include <vel_loc_fw/log_util.h>

namespace {
constexpr const char* kTag = "VARNClientListener";
}  // namespace

const int32_t VARNClientListenerImpl::RTT_STDEV[4] = {21000, 9270, 7000, 5600};

VARNClientListenerImpl::VARNClientListenerImpl(int stdev_multiplier)
    : stdev_multiplier_(stdev_multiplier) {}

VARNClientListenerImpl::~VARNClientListenerImpl() {
    vel_loc_fw::log_verbose(kTag, "~VARNClientListenerImpl");
}

void VARNClientListenerImpl::responseReceived(VARNResponse* rsp) {
    if (rsp == nullptr) {
        vel_loc_fw::log_error(kTag, "%s: invalid response: NULL pointer received ",
                              "responseReceived");
        return;
    }
    vel_loc_fw::log_verbose(kTag, "%s: varnReqid(%u)", "responseReceived", rsp->getRequestId());
}
