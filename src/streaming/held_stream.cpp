// HeldStream: the tuner's open stream reply, buffered for the streamer.
#include "streaming/held_stream.h"

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

HeldStream::Piece HeldStream::next(double timeout) {
  Piece piece;
  {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::duration<double>(timeout),
                      [&] { return cancelled_ || ended_ || !bytes_.empty(); });
    if (cancelled_) {
      piece.kind = Piece::Kind::Cancelled;
    } else if (!bytes_.empty()) {
      piece.kind = Piece::Kind::Bytes;
      piece.bytes.swap(bytes_);
    } else if (ended_) {
      piece.kind = failed_ ? Piece::Kind::Failed : Piece::Kind::Ended;
    }
  }
  // Room again: a transfer paused for want of it goes on.
  if (piece.kind == Piece::Kind::Bytes) URLConnectionAccess::resume(*connection_);
  return piece;
}

void HeldStream::cancel() {
  {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
  }
  changed_.notify_all();
  connection_->cancel();
}

void HeldStream::divertedData(std::span<const uint8_t> bytes) {
  {
    std::lock_guard lock(mutex_);
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  }
  changed_.notify_all();
}

void HeldStream::divertedEnd(const BVErrorRef& error) {
  {
    std::lock_guard lock(mutex_);
    ended_ = true;
    failed_ = error != nullptr;
  }
  changed_.notify_all();
}

bool HeldStream::divertedCanAccept() {
  std::lock_guard lock(mutex_);
  return bytes_.size() < kMaxHeldBytes;
}

}  // namespace belvane::detail
