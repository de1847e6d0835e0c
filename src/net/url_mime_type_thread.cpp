// BVURLMIMETypeThread: a HEAD request on a worker thread while the caller waits.
#include <belvane/BVRunLoop.h>
#include <belvane/BVURLMIMETypeThread.h>

#include <thread>

#include "foundation/request_settings_scope.h"

std::shared_ptr<BVURLMIMETypeThread> BVURLMIMETypeThread::create() { return std::make_shared<BVURLMIMETypeThread>(); }

std::optional<std::string> BVURLMIMETypeThread::getMIMETypeForURL(const BVURL& url, double timeout) {
  Parameters parameters{url, timeout, belvane::detail::RequestSettingsScope::current()};
  // The worker keeps this object alive until its thread ends.
  std::thread([self = std::static_pointer_cast<BVURLMIMETypeThread>(shared_from_this()), parameters] {
    self->getMIMETypeThread(parameters);
  }).detach();

  // The wait has no limit of its own: the request's time-out ends it.
  std::unique_lock<std::recursive_mutex> guard(_lock);
  _settled.wait(guard, [this] { return _status != 0; });
  return _mimeType;
}

void BVURLMIMETypeThread::getMIMETypeThread(const Parameters& parameters) {
  BVRunLoop::ThreadScope scope;
  BVURLRequest request(parameters.URL, parameters.timeout);
  request.ignoreCache = true;
  request.requestSettings = parameters.requestSettings;
  request.httpMethod = "HEAD";
  BVURLConnectionRef connection = BVURLConnection::start(request, this);
  if (!connection) {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    _status = 3;
    _settled.notify_all();
    return;
  }
  // Runs until the first response, the end of the load or a failure.
  scope.loop().run();
  connection->cancel();
}

void BVURLMIMETypeThread::settle(int32_t status) {
  {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    // The first report counts: the waiting thread may already have seen it.
    if (_status == 0) _status = status;
    _settled.notify_all();
  }
  BVRunLoop::current().stop();
}

void BVURLMIMETypeThread::connectionWillSendRequest(BVURLConnection&, const BVURLRequest&, const BVURLResponse*) {
  // Redirects are followed; the final response's type is the answer.
}

void BVURLMIMETypeThread::connectionDidReceiveResponse(BVURLConnection& connection, const BVURLResponse& response) {
  // Only the header fields are wanted; the status code is not examined, so
  // an error page's type is reported like any other.
  connection.cancel();
  {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    if (_status != 0) return;
    std::string mimeType = response.mimeType();
    if (!mimeType.empty()) _mimeType = std::move(mimeType);
  }
  settle(1);
}

void BVURLMIMETypeThread::connectionDidReceiveData(BVURLConnection&, std::span<const uint8_t>) {}

void BVURLMIMETypeThread::connectionDidFinishLoading(BVURLConnection&) { settle(2); }

void BVURLMIMETypeThread::connectionDidFailWithError(BVURLConnection&, const BVErrorRef&) { settle(3); }
