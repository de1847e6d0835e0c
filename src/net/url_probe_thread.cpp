// BVURLProbeThread: fetches the first chunk of a URL's body on a worker thread.
#include <belvane/BVRunLoop.h>
#include <belvane/BVURLProbe.h>

#include <thread>

#include "foundation/request_settings_scope.h"

std::shared_ptr<BVURLProbeThread> BVURLProbeThread::create() { return std::make_shared<BVURLProbeThread>(); }

void BVURLProbeThread::downloadDataForURL(const BVURL& url, double timeout) {
  Parameters parameters{url, timeout, belvane::detail::RequestSettingsScope::current()};
  std::thread([self = std::static_pointer_cast<BVURLProbeThread>(shared_from_this()), parameters] {
    self->downloadThread(parameters);
  }).detach();
  {
    std::unique_lock<std::recursive_mutex> guard(_lock);
    _settled.wait(guard, [this] { return _status != 0; });
  }

  // Cut the stream here: right after the first chunk (or its end or failure).
  BVURLConnectionRef connection;
  {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    connection = std::move(_connection);
  }
  if (connection) connection->cancel();
}

void BVURLProbeThread::downloadThread(const Parameters& parameters) {
  BVRunLoop::ThreadScope scope;
  // A plain GET: the probe wants body bytes.
  BVURLRequest request(parameters.URL, parameters.timeout);
  request.ignoreCache = true;
  request.requestSettings = parameters.requestSettings;
  BVURLConnectionRef connection = BVURLConnection::start(request, this);
  {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    if (!connection) {
      _status = 3;
      _settled.notify_all();
      return;
    }
    _connection = connection;
  }
  connection.reset();
  scope.loop().run();
}

void BVURLProbeThread::settle(int32_t status) {
  {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    // The first report counts: the waiting thread may already have seen it.
    if (_status == 0) _status = status;
    _settled.notify_all();
  }
  BVRunLoop::current().stop();
}

void BVURLProbeThread::connectionDidReceiveResponse(BVURLConnection&, const BVURLResponse& response) {
  // After redirects the last response wins.
  std::lock_guard<std::recursive_mutex> guard(_lock);
  if (_status == 0) _response = std::make_shared<const BVURLResponse>(response);
}

void BVURLProbeThread::connectionDidReceiveData(BVURLConnection&, std::span<const uint8_t> data) {
  {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    // Only the first chunk is kept, however large; the caller cuts the
    // connection as soon as it sees the status change.
    if (_status != 0) return;
    _data.insert(_data.end(), data.begin(), data.end());
  }
  settle(1);
}

void BVURLProbeThread::connectionDidFinishLoading(BVURLConnection&) { settle(2); }

void BVURLProbeThread::connectionDidFailWithError(BVURLConnection&, const BVErrorRef&) { settle(3); }
