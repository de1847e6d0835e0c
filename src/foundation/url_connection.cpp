// BVURLConnection: asynchronous loading on a worker thread with delegate
// calls on the starting thread's run loop, and the synchronous send.
#include <belvane/BVURLConnection.h>

#include "foundation/curl_transfer.h"

#include <glib.h>

#include <condition_variable>
#include <mutex>
#include <thread>

const char* const BVURLErrorDomain = "NSURLErrorDomain";
const char* const BVURLErrorCurlCodeKey = "BVURLErrorCurlCode";

bool BVCaseInsensitiveLess::operator()(const std::string& a, const std::string& b) const {
  return g_ascii_strcasecmp(a.c_str(), b.c_str()) < 0;
}

BVURLResponse::BVURLResponse(BVURL url, int statusCode, BVHTTPHeaderFields fields)
    : url_(std::move(url)), statusCode_(statusCode), fields_(std::move(fields)) {
  for (auto& [k, v] : fields_) rawFields_[k] = v;
}

std::string BVURLResponse::mimeType() const {
  auto it = fields_.find("Content-Type");
  if (it == fields_.end()) return {};
  std::string t = it->second.substr(0, it->second.find(';'));
  while (!t.empty() && (t.back() == ' ' || t.back() == '\t')) t.pop_back();
  for (auto& c : t) c = g_ascii_tolower(c);
  return t;
}

long long BVURLResponse::expectedContentLength() const {
  auto it = fields_.find("Content-Length");
  if (it == fields_.end()) return -1;
  return g_ascii_strtoll(it->second.c_str(), nullptr, 10);
}

// ---- asynchronous connection ----

namespace {
// Undelivered body bytes beyond this pause the transfer until the run loop
// has caught up, so a fast server cannot fill memory.
constexpr size_t kMaxQueuedBytes = 1 << 20;
}  // namespace

struct BVURLConnection::State {
  explicit State(const BVURLRequest& r) : request(r), loop(BVRunLoop::current()), transfer(r) {}
  BVURLRequest request;
  BVRunLoop loop;
  belvane::detail::CurlTransfer transfer;
  std::atomic<BVURLConnectionDelegate*> delegate{nullptr};  // cleared by cancel(), from any thread
  std::weak_ptr<BVURLConnection> connection;
  std::atomic<bool> cancelled{false};
  std::mutex mutex;
  size_t queuedBytes = 0;
  std::thread worker;

  // Runs fn on the loop with the connection and delegate, unless cancelled.
  template <class F>
  void deliver(std::shared_ptr<State> self, F fn) {
    // Weak: a queued call must not keep the state (and its run loop) alive
    // after the connection and its worker are gone.
    loop.perform([weak = std::weak_ptr<State>(self), fn = std::move(fn)]() mutable {
      auto self = weak.lock();
      if (!self || self->cancelled) return;
      auto conn = self->connection.lock();  // keeps the connection alive during the call
      BVURLConnectionDelegate* delegate = self->delegate.load();
      if (!conn || !delegate) return;
      fn(*conn, *delegate);
    });
  }
};

BVURLConnection::BVURLConnection(std::shared_ptr<State> state) : state_(std::move(state)) {}

BVURLConnectionRef BVURLConnection::start(const BVURLRequest& request, BVURLConnectionDelegate* delegate) {
  auto state = std::make_shared<State>(request);
  state->delegate = delegate;
  auto connection = std::make_shared<BVURLConnection>(state);
  state->connection = connection;
  state->worker = std::thread([state] {
    belvane::detail::TransferSink sink;
    sink.onResponse = [&](const BVURLResponse& response, bool redirect, const std::optional<BVURL>& location) {
      if (redirect) {
        if (!location) return;
        BVURLRequest next = state->request;
        next.url = *location;
        state->deliver(state, [next, response](BVURLConnection& c, BVURLConnectionDelegate& d) {
          d.connectionWillSendRequest(c, next, &response);
        });
        return;
      }
      state->deliver(state, [response](BVURLConnection& c, BVURLConnectionDelegate& d) {
        d.connectionDidReceiveResponse(c, response);
      });
    };
    sink.onData = [&](std::span<const uint8_t> bytes) {
      {
        std::lock_guard lock(state->mutex);
        state->queuedBytes += bytes.size();
      }
      std::vector<uint8_t> copy(bytes.begin(), bytes.end());
      std::weak_ptr<State> weak = state;
      state->deliver(state, [weak, copy = std::move(copy)](BVURLConnection& c, BVURLConnectionDelegate& d) {
        if (auto s = weak.lock()) {
          {
            std::lock_guard lock(s->mutex);
            s->queuedBytes -= copy.size();
          }
          s->transfer.resume();
        }
        d.connectionDidReceiveData(c, copy);
      });
    };
    sink.canAccept = [&] {
      std::lock_guard lock(state->mutex);
      return state->queuedBytes < kMaxQueuedBytes;
    };
    BVErrorRef error = state->transfer.run(sink);
    if (state->cancelled) return;
    if (error) {
      state->deliver(state, [error](BVURLConnection& c, BVURLConnectionDelegate& d) {
        d.connectionDidFailWithError(c, error);
      });
    } else {
      state->deliver(state, [](BVURLConnection& c, BVURLConnectionDelegate& d) { d.connectionDidFinishLoading(c); });
    }
  });
  return connection;
}

BVURLConnection::~BVURLConnection() {
  cancel();
  if (state_->worker.joinable()) {
    if (state_->worker.get_id() == std::this_thread::get_id())
      state_->worker.detach();
    else
      state_->worker.join();
  }
}

void BVURLConnection::cancel() {
  state_->cancelled = true;
  state_->delegate = nullptr;
  state_->transfer.cancel();
}

const BVURLRequest& BVURLConnection::originalRequest() const { return state_->request; }

// ---- synchronous send ----

std::optional<std::vector<uint8_t>> BVURLConnection::sendSynchronousRequest(const BVURLRequest& request,
                                                                           std::shared_ptr<BVURLResponse>* response,
                                                                           BVErrorRef* error, size_t maxBodyBytes) {
  belvane::detail::CurlTransfer transfer(request);
  std::vector<uint8_t> body;
  std::shared_ptr<BVURLResponse> last;
  bool tooLarge = false;
  belvane::detail::TransferSink sink;
  sink.onResponse = [&](const BVURLResponse& r, bool redirect, const std::optional<BVURL>&) {
    if (!redirect) last = std::make_shared<BVURLResponse>(r);
  };
  sink.onData = [&](std::span<const uint8_t> bytes) {
    if (body.size() + bytes.size() > maxBodyBytes) {
      tooLarge = true;
      transfer.cancel();
      return;
    }
    body.insert(body.end(), bytes.begin(), bytes.end());
  };
  BVErrorRef failure = transfer.run(sink);
  if (tooLarge) {
    failure = BVError::withDescription(BVURLErrorDomain, BVURLErrorDataLengthExceedsMaximum,
                                       "The resource is larger than " + std::to_string(maxBodyBytes) + " bytes.");
  }
  if (response) *response = last;
  if (failure) {
    if (error) *error = failure;
    return std::nullopt;
  }
  if (error) *error = nullptr;
  return body;
}
