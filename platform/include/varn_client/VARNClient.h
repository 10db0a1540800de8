// VARN client library `libvarn_client`: the client and everything it uses.
//
// Include this header only; it brings in the records, requests, responses
// and the listener interface.
//
//   VARNClient* client = VARNClient::createInstance(listener, true, VARN_LOG_INFO);
//   VARNCapabilityRequest request(++req_id);
//   VARNCapabilityResponse* caps = client->getCapabilities(&request);
//   ...
//   delete caps;
//   delete client;  // stops the response thread; no response arrives afterwards
#pragma once

#include <varn_client/VARNClientListener.h>
#include <varn_client/VARNMeasurement.h>
#include <varn_client/VARNRecords.h>
#include <varn_client/VARNRequest.h>
#include <varn_client/VARNResponse.h>
#include <varn_client/VARNTypes.h>

class VARNClient {
  public:
    // Connects to the location service and starts the client's response
    // thread, which delivers asynchronous responses to `listener` (borrowed;
    // it must outlive the client). `async_responses` asks for that delivery,
    // `log_level` sets the client's own logging. Returns null when the
    // service is unavailable. The caller deletes the client.
    static VARNClient* createInstance(VARNClientListener* listener, bool async_responses,
                                      eVARNLogLevel log_level);

    // Stops the response thread. Once the destructor returns, the listener is
    // never called again; responses still pending are deleted undelivered.
    // Must not be called from inside `responseReceived` (it waits for the
    // response thread).
    virtual ~VARNClient() = default;

    // Queues `request` (copied; the caller deletes it) and returns at once:
    // 0 when accepted, a negative value when refused. Answers, if the request
    // type has any, arrive later through the listener, never from inside
    // this call.
    virtual int sendRequest(VARNRequest* request) = 0;

    // Answers `request` synchronously. Returns the response (the caller
    // deletes it), or null when the service could not answer.
    virtual VARNResponse* processRequest(VARNRequest* request) = 0;

    // Answers a capability request synchronously. Returns the response (the
    // caller deletes it), or null when the service could not answer.
    virtual VARNCapabilityResponse* getCapabilities(VARNRequest* request) = 0;

  protected:
    VARNClient() = default;
    VARNClient(const VARNClient&) = delete;
    VARNClient& operator=(const VARNClient&) = delete;
};
