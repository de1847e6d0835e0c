// StreamReader: connections, drops and reconnection (see stream_reader.h).
#include "streaming/stream_reader.h"

#include "foundation/network_watch.h"
#include "streaming/QLDebug.h"
#include "streaming/held_stream.h"
#include "streaming/shoutstreamer.h"

#include <algorithm>
#include <chrono>

namespace belvane::detail {

namespace {
using Clock = std::chrono::steady_clock;
}

bool isStreamDrop(const StreamConnection::Result& result) {
  if (result.error == 0) return !result.declaredEnd;
  return result.error == SHOUTSTREAMER_ERROR_CONNECTION_LOST || result.error == SHOUTSTREAMER_ERROR_TIMED_OUT;
}

StreamReader::StreamReader(std::string url, StreamReaderPolicy policy)
    : url_(std::move(url)),
      policy_(policy),
      held_(policy.startOffset == 0 ? HeldStream::take(url_) : nullptr) {
  finite_.delivered = policy.startOffset;
  addresses_.push_back(url_);
  for (const auto& alternate : policy_.alternates)
    if (alternate != url_) addresses_.push_back(alternate);
}

StreamReader::~StreamReader() = default;

void StreamReader::cancel() {
  MutexLock lock(mutex_);
  cancelled_ = true;
  if (connection_) connection_->cancel();
  changed_.notify_all();
}

bool StreamReader::isCancelled() {
  MutexLock lock(mutex_);
  return cancelled_;
}

// Sleeps until seconds have passed, the network has news, or cancel();
// false for cancel().
bool StreamReader::pause(double seconds) {
  const auto until =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  MutexLock lock(mutex_);
  while (!cancelled_ && !networkNews_)
    if (lock.waitUntil(changed_, until) == std::cv_status::timeout) break;
  networkNews_ = false;
  return !cancelled_;
}

bool StreamReader::networkKnownDown() const {
  return policy_.followNetwork && !isLoopbackURL(url_) && !NetworkWatch::shared().isNetworkAvailable();
}

StreamReader::Attempt StreamReader::connectOnce(Client& client, double connectTimeout, uint64_t offset) {
  Attempt attempt;
  std::shared_ptr<HeldStream> held = std::move(held_);
  StreamConnection connection =
      held ? StreamConnection(url_, std::move(held), policy_.stallTimeout)
           : StreamConnection(url_, connectTimeout, policy_.stallTimeout, policy_.requestSettings);
  connection.setRefusesAAC(policy_.refuseAAC);
  if (offset > 0) connection.setStartOffset(offset);
  {
    MutexLock lock(mutex_);
    if (cancelled_) {
      attempt.result.cancelled = true;
      return attempt;
    }
    connection_ = &connection;
  }
  // The client hears of a connection only once its head was accepted.
  struct Forward final : StreamConnection::Handler {
    Client& client;
    Finite& finite;
    bool first;
    bool started = false;
    Forward(Client& c, Finite& f, bool isFirst) : client(c), finite(f), first(isFirst) {}
    int32_t head(const StreamReplyHead& head) override {
      started = true;
      if (first && head.field("content-length")) {
        finite.known = true;
        const std::string* ranges = head.field("accept-ranges");
        finite.resumable = ranges && ranges->find("bytes") != std::string::npos;
      }
      return client.head(head);
    }
    int32_t body(std::span<const uint8_t> bytes) override {
      finite.delivered += bytes.size();
      return client.body(bytes);
    }
  } forward(client, finite_, offset == policy_.startOffset && !finite_.known);
  attempt.result = connection.run(forward);
  {
    MutexLock lock(mutex_);
    connection_ = nullptr;
  }
  if (forward.started) {
    client.connectionEnded();
    attempt.played = client.connectionPlayed();
  }
  return attempt;
}

// Tries again after a drop, for the reconnection window. True with the
// attempt that played again (it has ended by then); false when every try
// failed (*error: the last one's) or cancel() came.
bool StreamReader::reconnect(Client& client, Attempt* resumed, int32_t* error) {
  auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                     std::chrono::duration<double>(policy_.reconnectWindow));
  auto remaining = [&] { return std::chrono::duration<double>(deadline - Clock::now()).count(); };
  // News of the network cuts the pauses short while this runs.
  uint64_t listener = 0;
  if (policy_.followNetwork) {
    listener = NetworkWatch::shared().addListener([this] {
      MutexLock lock(mutex_);
      networkNews_ = true;
      changed_.notify_all();
    });
  }
  struct Unlisten {
    uint64_t id;
    ~Unlisten() {
      if (id) NetworkWatch::shared().removeListener(id);
    }
  } unlisten{listener};
  double delay = policy_.reconnectFirstDelay;
  int tries = 0;
  while (remaining() > 0) {
    const auto pausedAt = Clock::now();
    if (!pause(std::min(delay, remaining()))) return false;
    if (networkKnownDown()) {
      // Nothing can be reached off this machine: the wait does not count.
      deadline += Clock::now() - pausedAt;
      continue;
    }
    if (remaining() <= 0) break;
    ++tries;
    // The station's own address first, then its alternates in turn.
    const size_t index = (current_ + size_t(tries - 1)) % addresses_.size();
    url_ = addresses_[index];
    QLDebugLog(QL_LOG_INFO, "stream: reconnecting to %s (try %d)", url_.c_str(), tries);
    client.reconnecting(tries);
    Attempt attempt = connectOnce(client, std::min(policy_.connectTimeout, std::max(remaining(), 0.5)), 0);
    if (attempt.result.cancelled) return false;
    // A server that sends a scrap of audio and hangs up again has not come
    // back; that try counts as failed.
    if (attempt.played) {
      current_ = index;  // a later break starts from the address that answered
      *resumed = attempt;
      return true;
    }
    *error = attempt.result.error ? attempt.result.error : SHOUTSTREAMER_ERROR_CONNECTION_LOST;
    delay = std::min(delay * 2, policy_.reconnectMaxDelay);
  }
  return false;
}

// One try at the rest of a file that broke off, after a short pause.
bool StreamReader::resume(Client& client, Attempt* attempt) {
  if (!pause(policy_.reconnectFirstDelay)) return false;
  QLDebugLog(QL_LOG_INFO, "stream: resuming %s at byte %llu", url_.c_str(),
             static_cast<unsigned long long>(finite_.delivered));
  *attempt = connectOnce(client, policy_.connectTimeout, finite_.delivered);
  return true;
}

StreamReader::Outcome StreamReader::run(Client& client) {
  Outcome outcome;
  Attempt attempt = connectOnce(client, policy_.connectTimeout, policy_.startOffset);
  uint64_t resumedAt = policy_.startOffset;
  while (!attempt.result.cancelled && !isCancelled()) {
    const auto& result = attempt.result;
    if (finite_.known && result.error && isStreamDrop(result)) {
      // A file that broke off: on from where it broke (while that gets
      // further), or not at all.
      bool progressed = finite_.delivered > resumedAt;
      resumedAt = finite_.delivered;
      if (finite_.resumable && progressed && resume(client, &attempt)) continue;
      outcome.error = result.error;
      return outcome;
    }
    if (!isStreamDrop(result) || !client.hasPlayed()) {
      // A stream that closed before playback started plays what it has.
      outcome.error = result.error;
      if (outcome.error == 0) outcome.error = client.silentEndError();
      if (outcome.error) {
        char* text = shoutstreamer_error_as_string(outcome.error);
        QLDebugLog(QL_LOG_ERROR, "stream: %s failed: %s", url_.c_str(), text ? text : "unknown error");
        std::free(text);
      }
      return outcome;
    }
    char* why = result.error ? shoutstreamer_error_as_string(result.error) : nullptr;
    QLDebugLog(QL_LOG_WARNING, "stream: %s dropped (%s)", url_.c_str(), why ? why : "closed");
    std::free(why);
    int32_t error = result.error ? result.error : SHOUTSTREAMER_ERROR_CONNECTION_LOST;
    if (!reconnect(client, &attempt, &error)) {
      if (isCancelled()) break;
      QLDebugLog(QL_LOG_ERROR, "stream: %s could not be reconnected", url_.c_str());
      outcome.error = error;
      return outcome;
    }
  }
  outcome.cancelled = true;
  return outcome;
}

}  // namespace belvane::detail
