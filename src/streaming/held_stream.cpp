// HeldStream: the tuner's open stream reply, buffered for the streamer.
#include "streaming/held_stream.h"

#include <belvane/BVRunLoop.h>

#include "streaming/QLDebug.h"
#include "streaming/shoutstreamer_connection.h"

#include <chrono>
#include <map>

namespace belvane::detail {

namespace {

std::mutex gOfferedMutex;
std::map<std::string, std::shared_ptr<HeldStream>>& offered() {
  static auto* streams = new std::map<std::string, std::shared_ptr<HeldStream>>;
  return *streams;
}

// icy:// and http:// name the same reply.
std::string keyFor(const std::string& url) { return StreamConnection::fetchableURL(url); }

}  // namespace

HeldStream::HeldStream(StreamReplyHead head, std::vector<uint8_t> firstBytes, BVURLConnectionRef connection)
    : head_(std::move(head)), connection_(std::move(connection)), bytes_(std::move(firstBytes)) {}

std::shared_ptr<HeldStream> HeldStream::create(StreamReplyHead head, std::vector<uint8_t> firstBytes,
                                               BVURLConnectionRef connection) {
  auto stream = std::make_shared<HeldStream>(std::move(head), std::move(firstBytes), std::move(connection));
  URLConnectionAccess::divert(*stream->connection_, stream);
  return stream;
}

HeldStream::~HeldStream() { connection_->cancel(); }

void HeldStream::offer(const std::string& url, const std::shared_ptr<HeldStream>& stream) {
  std::lock_guard lock(gOfferedMutex);
  offered()[keyFor(url)] = stream;
}

void HeldStream::park(const std::string& url, const std::shared_ptr<HeldStream>& stream) {
  offer(url, stream);
  QLDebugLog(QL_LOG_DEBUG, "stream: keeping the reply from %s for another engine", url.c_str());
  // Withdrawn on the main loop later; taken or gone by then, nothing happens.
  std::weak_ptr<HeldStream> weak = stream;
  BVRunLoop::main().performAfterDelay(kParkSeconds, weak, [url, weak] {
    if (auto held = weak.lock()) withdraw(url, held);
  });
}

void HeldStream::withdraw(const std::string& url, const std::shared_ptr<HeldStream>& stream) {
  std::lock_guard lock(gOfferedMutex);
  auto it = offered().find(keyFor(url));
  if (it != offered().end() && it->second == stream) offered().erase(it);
}

std::shared_ptr<HeldStream> HeldStream::take(const std::string& url) {
  std::lock_guard lock(gOfferedMutex);
  auto it = offered().find(keyFor(url));
  if (it == offered().end()) return nullptr;
  auto stream = std::move(it->second);
  offered().erase(it);
  QLDebugLog(QL_LOG_DEBUG, "shoutstreamer: taking over the tuner's reply from %s", url.c_str());
  return stream;
}

void HeldStream::attach(Consumer consumer) {
  MutexLock delivering(consumerMutex_);
  std::vector<uint8_t> held;
  {
    MutexLock lock(mutex_);
    held.swap(bytes_);
  }
  consumer_ = std::move(consumer);
  if (!held.empty() && !consume(held)) return;
  // Room again: a transfer paused while nobody consumed goes on.
  URLConnectionAccess::resume(*connection_);
}

void HeldStream::detach() {
  MutexLock delivering(consumerMutex_);
  consumer_ = nullptr;
}

bool HeldStream::consume(std::span<const uint8_t> bytes) {
  if (consumer_(bytes)) return true;
  consumer_ = nullptr;
  ended(End::Stopped);
  connection_->cancel();
  return false;
}

void HeldStream::ended(End how) {
  {
    MutexLock lock(mutex_);
    if (end_ == End::None) end_ = how;
  }
  changed_.notify_all();
}

HeldStream::End HeldStream::waitForEnd(double timeout) {
  using Clock = std::chrono::steady_clock;
  const auto until =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(timeout));
  MutexLock lock(mutex_);
  while (!cancelled_ && end_ == End::None)
    if (lock.waitUntil(changed_, until) == std::cv_status::timeout) break;
  return cancelled_ ? End::Stopped : end_;
}

void HeldStream::cancel() {
  {
    MutexLock lock(mutex_);
    cancelled_ = true;
  }
  changed_.notify_all();
  connection_->cancel();
}

void HeldStream::divertedData(std::span<const uint8_t> bytes) {
  MutexLock delivering(consumerMutex_);
  if (consumer_) {
    consume(bytes);
    return;
  }
  MutexLock lock(mutex_);
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

void HeldStream::divertedEnd(const BVErrorRef& error) { ended(error ? End::Failed : End::Finished); }

bool HeldStream::divertedCanAccept() {
  MutexLock lock(mutex_);
  return bytes_.size() < kMaxHeldBytes;
}

}  // namespace belvane::detail
