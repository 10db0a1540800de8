// VARN client library: the receiver of asynchronous responses.
#pragma once

#include <varn_client/VARNResponse.h>

class VARNClientListener {
  public:
    // Called on the client library's own response thread, one response at a
    // time, never from inside a `VARNClient` call. `response` is never null
    // when it comes from the library; it belongs to the library, which deletes
    // it after this returns.
    virtual void responseReceived(VARNResponse* response) = 0;
    virtual ~VARNClientListener() = default;
};
