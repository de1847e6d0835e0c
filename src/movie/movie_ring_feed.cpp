// MovieRingFeed: the ring's frames into a movie's appsrc (see movie_ring_feed.h).
#include "movie/movie_ring_feed.h"

#include "foundation/thread_name.h"
#include "movie/movie_ring_title.h"
#include "streaming/QLDebug.h"
#include "streaming/station_tap.h"

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace belvane::detail {

namespace {

// An Ogg page's header: capture pattern, version, flags, granule position, serial.
struct OggPageHead {
  bool bos = false;
  uint64_t granule = 0;
  uint32_t serial = 0;
};
std::optional<OggPageHead> oggPageHead(const std::vector<uint8_t>& page) {
  if (page.size() < 27 || std::memcmp(page.data(), "OggS", 4) != 0) return std::nullopt;
  OggPageHead head;
  head.bos = (page[5] & 0x02) != 0;
  for (int i = 7; i >= 0; --i) head.granule = (head.granule << 8) | page[6 + i];
  for (int i = 3; i >= 0; --i) head.serial = (head.serial << 8) | page[14 + i];
  return head;
}

}  // namespace

MovieRingFeed::MovieRingFeed(GstElement* appsrc, std::shared_ptr<StationTap> tap, Hooks hooks)
    : appsrc_(appsrc), tap_(std::move(tap)), hooks_(std::move(hooks)) {}

MovieRingFeed::~MovieRingFeed() {
  {
    std::lock_guard lock(mutex_);
    stop_ = true;
  }
  wake_.notify_all();
  if (feeder_.joinable()) feeder_.join();
}

// ---- run loop ----------------------------------------------------------------------

bool MovieRingFeed::canShift() const {
  if (isHandedOver()) return true;
  StationTap::Reading reading = tap_->reading();
  return reading.kind != AudioSyncKind::None && reading.secondsHeld > 0;
}

void MovieRingFeed::requestShift() {
  if (isHandedOver() || wanted_.exchange(true)) return;
  // A reading thread waiting for room in the full queue (the output is
  // held) lets go of it.
  if (hooks_.wakeReader) hooks_.wakeReader();
  // Between two pieces of the body the hand-over is made at once; while a
  // piece is being handled, the reading thread makes it as it ends it.
  std::unique_lock reading(readingMutex_, std::try_to_lock);
  if (reading.owns_lock()) handOver();
}

double MovieRingFeed::behindLocked() const {
  if (!isHandedOver()) return 0.0;
  double behind = 0;
  tap_->withRing([&](const StationRing& ring) {
    // A jump asked for or under way: where it lands.
    if (auto landing = seekTo_ ? seekTo_ : landing_) {
      behind = ring.secondsFrom(*landing);
      return;
    }
    const double written = hooks_.secondsWritten ? hooks_.secondsWritten() : 0.0;
    behind = std::clamp(ring.secondsAppended() - (anchorTime_ + written), 0.0, ring.secondsHeld());
  });
  return behind;
}

double MovieRingFeed::secondsBehindLive() const {
  std::lock_guard lock(mutex_);
  return behindLocked();
}

std::optional<uint64_t> MovieRingFeed::landingLocked(double seconds) const {
  const double wanted = behindLocked() - seconds;
  std::optional<uint64_t> landing;
  tap_->withRing([&](const StationRing& ring) {
    if (ring.endFrame() > ring.firstFrame())
      landing = ring.frameSecondsBeforeEnd(std::clamp(wanted, 0.0, ring.secondsHeld()));
  });
  return landing;
}

bool MovieRingFeed::skipBy(double seconds) {
  std::unique_lock lock(mutex_);
  if (stop_ || finished_) return false;
  if (!isHandedOver()) {
    pendingSkip_ = pendingSkip_.value_or(0.0) + seconds;
    lock.unlock();
    requestShift();
    return true;
  }
  if (auto landing = landingLocked(seconds)) seekTo_ = landing;
  wake_.notify_all();
  return true;
}

bool MovieRingFeed::goLive() {
  std::lock_guard lock(mutex_);
  if (stop_ || finished_) return false;
  if (!isHandedOver()) {
    pendingSkip_.reset();  // what plays is live already
    return true;
  }
  tap_->withRing([&](const StationRing& ring) { seekTo_ = ring.endFrame(); });
  wake_.notify_all();
  return true;
}

// ---- reading thread ----------------------------------------------------------------

void MovieRingFeed::anchor() {
  double time = 0;
  tap_->withRing([&](const StationRing& ring) { time = ring.secondsAppended(); });
  std::lock_guard lock(mutex_);
  if (anchored_) return;
  anchored_ = true;
  anchorTime_ = time;
}

bool MovieRingFeed::handOver() {
  auto partial = tap_->partialFrame();
  if (!partial) return false;
  std::lock_guard lock(mutex_);
  if (stop_ || isHandedOver()) return isHandedOver();
  next_ = partial->first;
  skipBytes_ = partial->second;
  liveEnd_ = partial->first;
  handedOver_.store(true, std::memory_order_release);
  wanted_.store(false, std::memory_order_release);
  if (pendingSkip_) {
    if (auto landing = landingLocked(*pendingSkip_)) seekTo_ = landing;
    pendingSkip_.reset();
  }
  QLDebugLog(QL_LOG_INFO, "time-shift: the movie plays from the ring at frame %llu", (unsigned long long)next_);
  feeder_ = std::thread(&MovieRingFeed::feederMain, this);
  return true;
}

void MovieRingFeed::ringGrew() {
  uint64_t end = 0;
  tap_->withRing([&](const StationRing& ring) { end = ring.endFrame(); });
  {
    std::lock_guard lock(mutex_);
    liveEnd_ = end;
  }
  wake_.notify_all();
}

void MovieRingFeed::inputEnded(std::function<void()> finish) {
  {
    std::lock_guard lock(mutex_);
    finish_ = std::move(finish);
  }
  ringGrew();
}

// ---- streaming threads -------------------------------------------------------------

void MovieRingFeed::needData() {
  {
    std::lock_guard lock(mutex_);
    enough_ = false;
  }
  wake_.notify_all();
}

void MovieRingFeed::enoughData() {
  std::lock_guard lock(mutex_);
  enough_ = true;
}

// ---- feeder thread -----------------------------------------------------------------

void MovieRingFeed::pushTitle(const StreamTitle& title) {
  gst_element_send_event(appsrc_, gst_event_new_tag(ringTitleTags(title)));
}

bool MovieRingFeed::pushBytes(const uint8_t* data, size_t size, bool discont) {
  GstBuffer* buffer = gst_buffer_new_memdup(data, size);
  if (discont) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
  // Not blocking: the queue's enough-data is what makes the feeder wait.
  return gst_app_src_push_buffer(GST_APP_SRC(appsrc_), buffer) == GST_FLOW_OK;
}

// The output drops what it is given from now until the flush reaches it,
// the seek empties the appsrc and everything downstream of it, and the
// frames go on from target.
void MovieRingFeed::flushTo(uint64_t target) {
  if (hooks_.dropUntilFlushed) hooks_.dropUntilFlushed();
  gst_element_send_event(appsrc_, gst_event_new_seek(1.0, GST_FORMAT_BYTES, GST_SEEK_FLAG_FLUSH, GST_SEEK_TYPE_SET, 0,
                                                      GST_SEEK_TYPE_NONE, -1));
  std::optional<RingTitle> title;
  double anchorTime = 0;
  tap_->withRing([&](const StationRing& ring) {
    target = std::max(target, ring.firstFrame());
    title = ring.titleAt(target);
    anchorTime = ring.secondsAt(target);
  });
  std::optional<uint64_t> chainStart;
  {
    std::lock_guard lock(mutex_);
    chainStart = chainStart_;
  }
  std::vector<uint64_t> headers;
  if (tap_->reading().kind == AudioSyncKind::Ogg) {
    // The chain the landing lies in starts with a page marked as the
    // beginning of its stream; a chain other than the one in play needs
    // its header pages (those before any audio: granule 0) again.
    std::vector<uint8_t> page;
    tap_->withRing([&](const StationRing& ring) {
      for (uint64_t frame = target + 1; frame-- > ring.firstFrame();) {
        if (!ring.readFrame(frame, page)) break;
        auto head = oggPageHead(page);
        if (!head || !head->bos) continue;
        if (chainStart == frame) break;
        for (uint64_t h = frame; h < target && ring.readFrame(h, page); ++h) {
          auto pageHead = oggPageHead(page);
          if (!pageHead || pageHead->granule != 0) break;
          headers.push_back(h);
        }
        chainStart = frame;
        break;
      }
    });
  }
  std::lock_guard lock(mutex_);
  enough_ = false;
  skipBytes_ = 0;
  next_ = target;
  anchorTime_ = anchorTime;
  chainStart_ = chainStart;
  pendingHeaders_ = std::move(headers);
  pendingTitle_ = title ? std::optional<StreamTitle>(title->title) : std::nullopt;
  discont_ = true;
}

void MovieRingFeed::feederMain() {
  nameThisThread("bv-movie-ring");
  // The appsrc is sought when a skip flushes it: from now on it counts as seekable.
  gst_app_src_set_stream_type(GST_APP_SRC(appsrc_), GST_APP_STREAM_TYPE_SEEKABLE);
  std::vector<uint8_t> bytes;
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [&] {
      return stop_ || seekTo_ || (!enough_ && (next_ < liveEnd_ || !pendingHeaders_.empty())) ||
             (finish_ && !finished_ && next_ >= liveEnd_);
    });
    if (stop_) return;
    if (seekTo_) {
      const uint64_t target = *std::exchange(seekTo_, std::nullopt);
      landing_ = target;
      lock.unlock();
      flushTo(target);
      lock.lock();
      if (!seekTo_) landing_.reset();
      continue;
    }
    if (next_ >= liveEnd_ && pendingHeaders_.empty()) {
      // The station ended and everything it sent has been played.
      finished_ = true;
      auto finish = finish_;
      lock.unlock();
      finish();
      lock.lock();
      continue;
    }
    const bool header = !pendingHeaders_.empty();
    const uint64_t frame = header ? pendingHeaders_.front() : next_;
    if (header) pendingHeaders_.erase(pendingHeaders_.begin());
    const size_t skip = header ? 0 : std::exchange(skipBytes_, 0);
    std::optional<StreamTitle> title = header ? std::nullopt : std::exchange(pendingTitle_, std::nullopt);
    const bool discont = std::exchange(discont_, false);
    lock.unlock();

    bool read = false;
    uint64_t oldest = 0;
    tap_->withRing([&](const StationRing& ring) {
      oldest = ring.firstFrame();
      read = ring.readFrame(frame, bytes);
      if (read && !header && !title) {
        // A title that starts at this frame goes just before it.
        auto in = ring.titleAt(frame);
        if (in && in->frame == frame) title = in->title;
      }
    });
    const auto page = read && !header ? oggPageHead(bytes) : std::nullopt;
    if (title) pushTitle(*title);
    const bool pushed = read && (skip >= bytes.size() || pushBytes(bytes.data() + skip, bytes.size() - skip, discont));

    lock.lock();
    if (page && page->bos) chainStart_ = frame;
    if (header || seekTo_) continue;
    if (read && !pushed) {
      // The appsrc refuses (the pipeline stops): wait until it asks again.
      enough_ = true;
      next_ = frame;
      skipBytes_ = skip;
      continue;
    }
    if (!read && frame < oldest) {
      // Held longer than the ring reaches back: the oldest frame it still has.
      QLDebugLog(QL_LOG_INFO, "time-shift: frame %llu has left the ring; going on at %llu",
                 (unsigned long long)frame, (unsigned long long)oldest);
      next_ = oldest;
      discont_ = true;
      continue;
    }
    // A frame the disk cannot give back is passed over.
    if (next_ == frame) ++next_;
  }
}

}  // namespace belvane::detail
