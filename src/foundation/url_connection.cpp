// BVURLConnection: asynchronous loading on a worker thread with delegate
// calls on the starting thread's run loop, and the synchronous send.
#include <belvane/BVURLConnection.h>

#include "foundation/curl_transfer.h"
#include "foundation/mime_type.h"
#include "foundation/request_settings_scope.h"
#include "foundation/thread_annotations.h"
#include "foundation/thread_name.h"
#include "foundation/url_connection_diversion.h"

#include <glib.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

const char* const BVURLErrorDomain = "NSURLErrorDomain";
const char* const BVURLErrorCurlCodeKey = "BVURLErrorCurlCode";

bool BVCaseInsensitiveLess::operator()(const std::string& a, const std::string& b) const {
  return g_ascii_strcasecmp(a.c_str(), b.c_str()) < 0;
}

namespace {

// A header name in its canonical form: each dash-separated word capitalised,
// the rest lower-case ("content-type" and "CONTENT-TYPE" give "Content-Type").
// Names are case-insensitive in HTTP, so a lookup by the usual spelling
// finds the field whatever case the server wrote.
std::string canonicalHeaderName(const std::string& name) {
  std::string out(name);
  bool wordStart = true;
  for (auto& c : out) {
    c = wordStart ? g_ascii_toupper(c) : g_ascii_tolower(c);
    wordStart = c == '-';
  }
  return out;
}

}  // namespace

BVURLResponse::BVURLResponse(BVURL url, int statusCode, BVHTTPHeaderFields fields)
    : url_(std::move(url)), statusCode_(statusCode), fields_(std::move(fields)) {
  for (auto& [k, v] : fields_) rawFields_[canonicalHeaderName(k)] = v;
}

std::string BVURLResponse::mimeType() const {
  auto it = fields_.find("Content-Type");
  if (it == fields_.end()) return {};
  return belvane::detail::mimeTypeWithoutParameters(it->second);
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
  // The state of a connection, for the diversion (URLConnectionAccess).
  static State& of(BVURLConnection& connection) { return *connection.state_; }
  BVURLRequest request;
  BVRunLoop loop;
  belvane::detail::CurlTransfer transfer;
  std::atomic<BVURLConnectionDelegate*> delegate{nullptr};  // cleared by cancel(), from any thread
  std::weak_ptr<BVURLConnection> connection;
  std::atomic<bool> cancelled{false};
  belvane::detail::Mutex mutex;
  // Body pieces and the end, in order, waiting for the loop. Kept here
  // rather than in the queued calls so that a diversion can take them.
  std::deque<std::vector<uint8_t>> queued GUARDED_BY(mutex);
  size_t queuedBytes GUARDED_BY(mutex) = 0;
  bool endQueued GUARDED_BY(mutex) = false;
  BVErrorRef queuedEnd GUARDED_BY(mutex);
  // Set once the body goes to a diversion instead of the delegate; weak, as
  // the diversion usually owns the connection.
  bool diverted GUARDED_BY(mutex) = false;
  std::weak_ptr<belvane::detail::URLConnectionDiversion> diversion GUARDED_BY(mutex);
  std::thread worker;

  // Calls fn with the connection and delegate, unless cancelled (on the loop).
  template <class F>
  void callDelegate(F&& fn) {
    if (cancelled) return;
    auto conn = connection.lock();  // keeps the connection alive during the call
    BVURLConnectionDelegate* d = delegate.load();
    if (conn && d) fn(*conn, *d);
  }

  // Runs fn on the loop with the connection and delegate, unless cancelled.
  template <class F>
  void deliver(std::shared_ptr<State> self, F fn) {
    // The state is the call's weak target: a queued call must not keep it
    // (and its run loop) alive after the connection and its worker are gone.
    loop.perform(self, [s = self.get(), fn = std::move(fn)]() mutable { s->callDelegate(fn); });
  }
};

BVURLConnection::BVURLConnection(std::shared_ptr<State> state) : state_(std::move(state)) {}

namespace {
// The request with the thread's scoped settings when it has none of its own.
BVURLRequest withScopedSettings(const BVURLRequest& request) {
  BVURLRequest scoped = request;
  if (!scoped.requestSettings) scoped.requestSettings = belvane::detail::RequestSettingsScope::current();
  return scoped;
}
}  // namespace

BVURLConnectionRef BVURLConnection::start(const BVURLRequest& request, BVURLConnectionDelegate* delegate) {
  auto state = std::make_shared<State>(withScopedSettings(request));
  state->delegate = delegate;
  auto connection = std::make_shared<BVURLConnection>(state);
  state->connection = connection;
  state->worker = std::thread([state] {
    belvane::detail::nameThisThread("bv-transfer");
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
      std::shared_ptr<belvane::detail::URLConnectionDiversion> diversion;
      bool diverted;
      {
        belvane::detail::MutexLock lock(state->mutex);
        diverted = state->diverted;
        if (diverted) {
          diversion = state->diversion.lock();
        } else {
          state->queued.emplace_back(bytes.begin(), bytes.end());
          state->queuedBytes += bytes.size();
        }
      }
      if (diverted) {
        // Outside the lock: the diversion may take its time (decoding,
        // waiting for room) without holding up the run loop.
        if (diversion) diversion->divertedData(bytes);
        return;
      }
      state->loop.perform(state, [s = state.get()] {
        std::vector<uint8_t> piece;
        {
          belvane::detail::MutexLock lock(s->mutex);
          if (s->queued.empty()) return;  // a diversion took it
          piece = std::move(s->queued.front());
          s->queued.pop_front();
          s->queuedBytes -= piece.size();
        }
        s->transfer.resume();
        s->callDelegate([&](BVURLConnection& c, BVURLConnectionDelegate& d) { d.connectionDidReceiveData(c, piece); });
      });
    };
    sink.canAccept = [&] {
      belvane::detail::MutexLock lock(state->mutex);
      if (state->diverted) {
        auto d = state->diversion.lock();
        return !d || d->divertedCanAccept();
      }
      return state->queuedBytes < kMaxQueuedBytes;
    };
    BVErrorRef error = state->transfer.run(sink);
    if (state->cancelled) return;
    {
      belvane::detail::MutexLock lock(state->mutex);
      if (state->diverted) {
        auto diversion = state->diversion.lock();
        lock.unlock();
        if (diversion) diversion->divertedEnd(error);
        return;
      }
      state->endQueued = true;
      state->queuedEnd = error;
    }
    state->loop.perform(state, [s = state.get()] {
      BVErrorRef error;
      {
        belvane::detail::MutexLock lock(s->mutex);
        if (!s->endQueued) return;  // a diversion took it
        s->endQueued = false;
        error = std::move(s->queuedEnd);
      }
      s->callDelegate([&](BVURLConnection& c, BVURLConnectionDelegate& d) {
        if (error)
          d.connectionDidFailWithError(c, error);
        else
          d.connectionDidFinishLoading(c);
      });
    });
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

namespace belvane::detail {

void URLConnectionAccess::divert(BVURLConnection& connection,
                                 const std::shared_ptr<URLConnectionDiversion>& diversion) {
  auto& state = BVURLConnection::State::of(connection);
  {
    // What the loop has not delivered yet goes to the diversion first.
    belvane::detail::MutexLock lock(state.mutex);
    state.diversion = diversion;
    state.diverted = true;
    state.delegate = nullptr;
    for (const auto& piece : state.queued) diversion->divertedData(piece);
    state.queued.clear();
    state.queuedBytes = 0;
    if (state.endQueued) {
      state.endQueued = false;
      diversion->divertedEnd(state.queuedEnd);
    }
  }
  state.transfer.resume();
}

void URLConnectionAccess::resume(BVURLConnection& connection) {
  BVURLConnection::State::of(connection).transfer.resume();
}

}  // namespace belvane::detail

// ---- synchronous send ----

std::optional<std::vector<uint8_t>> BVURLConnection::sendSynchronousRequest(const BVURLRequest& request,
                                                                           std::shared_ptr<BVURLResponse>* response,
                                                                           BVErrorRef* error, size_t maxBodyBytes) {
  belvane::detail::CurlTransfer transfer(withScopedSettings(request));
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
