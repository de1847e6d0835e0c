// BVURLMIMETypeThread: one blocking MIME-type request for an http(s) URL.
//
// getMIMETypeForURL() starts a detached worker thread that runs a "HEAD"
// request on a run loop of its own, and waits on a condition variable until
// the worker reports a response, the end of the load or a failure. The request's time-out is the only bound on the wait.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVObject.h>
#include <belvane/BVURL.h>
#include <belvane/BVURLConnection.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

class BV_EXPORT BVURLMIMETypeThread final : public BVObject, public BVURLConnectionDelegate {
 public:
  // What the waiting thread hands to the worker.
  struct Parameters {
    BVURL URL;
    double timeout;
    // The waiting caller's request settings (see BVRequestSettings).
    BVRequestSettingsRef requestSettings;
  };

  static std::shared_ptr<BVURLMIMETypeThread> create();

  // Blocks until the request settles; the MIME type of the (final) response,
  // or nothing when the connection finished or failed without one.
  std::optional<std::string> getMIMETypeForURL(const BVURL& url, double timeout);

  // The worker thread's body (runs until a delegate call stops its loop).
  void getMIMETypeThread(const Parameters& parameters);

  void connectionWillSendRequest(BVURLConnection& connection, const BVURLRequest& request,
                                 const BVURLResponse* redirectResponse) override;
  void connectionDidReceiveResponse(BVURLConnection& connection, const BVURLResponse& response) override;
  void connectionDidReceiveData(BVURLConnection& connection, std::span<const uint8_t> data) override;
  void connectionDidFinishLoading(BVURLConnection& connection) override;
  void connectionDidFailWithError(BVURLConnection& connection, const BVErrorRef& error) override;

  std::string className() const override { return "BVURLMIMETypeThread"; }

  BVURLMIMETypeThread() = default;

 private:
  void settle(int32_t status);

  std::optional<std::string> _mimeType;
  int32_t _status = 0;  // 0 in flight, 1 response, 2 finished, 3 failed
  std::recursive_mutex _lock;
  std::condition_variable_any _settled;  // signalled when _status leaves 0
};
