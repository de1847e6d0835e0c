// BVShoutstreamerDelegate: callback bridging, title buffering by frames,
// the drain of the audio output, and volume and mute through its gain.
#include "players/mp3_stream/shoutstreamer_delegate.h"

#include <belvane/BVKitOwner.h>
#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVTimerForwarder.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "foundation/text_encoding.h"

std::shared_ptr<BVShoutstreamerDelegate> BVShoutstreamerDelegate::create() {
  return std::shared_ptr<BVShoutstreamerDelegate>(new BVShoutstreamerDelegate());
}

BVShoutstreamerDelegate::BVShoutstreamerDelegate() : loop_(BVRunLoop::current()) {
  _orplayer = orplayer_create();
  orplayer_options_t options{};
  options.flags = ORPLAYER_OPTION_LOW_LATENCY;
  orplayer_set_options(_orplayer, &options);
}

BVShoutstreamerDelegate::~BVShoutstreamerDelegate() {
  setOwner(nullptr);
  orplayer_destroy(_orplayer);
  if (_checkPlayerDoneTimer) _checkPlayerDoneTimer->invalidate();
}

BVMP3StreamPlayer* BVShoutstreamerDelegate::owner() {
  std::lock_guard lock(ownerMutex_);
  return _owner;
}

void BVShoutstreamerDelegate::setOwner(BVMP3StreamPlayer* owner) {
  std::lock_guard lock(ownerMutex_);
  _owner = owner;
}

void BVShoutstreamerDelegate::setRunLoop(const BVRunLoop& loop) {
  std::lock_guard lock(loopMutex_);
  loop_ = loop;
  loopThread_ = std::this_thread::get_id();
}

// Queues fn on the playing thread's loop without waiting. The request holds
// only a weak reference, so a delegate torn down meanwhile is simply skipped.
void BVShoutstreamerDelegate::performOnRunLoop(std::function<void(BVShoutstreamerDelegate&)> fn) {
  std::weak_ptr<BVShoutstreamerDelegate> weak = weak_from_this();
  std::lock_guard lock(loopMutex_);
  loop_.perform([weak, fn = std::move(fn)] {
    if (auto self = weak.lock()) fn(*self);
  });
}

int BVShoutstreamerDelegate::startAudioPlayer() { return orplayer_start(_orplayer); }

int BVShoutstreamerDelegate::setAudioOutput(const std::string& setting) {
  return orplayer_set_output(_orplayer, setting.c_str());
}

uint64_t BVShoutstreamerDelegate::framesWritten() const { return orplayer_frames_written(_orplayer); }

const char* BVShoutstreamerDelegate::outputName() const { return orplayer_output_name(_orplayer); }

// ---- drain ---------------------------------------------------------------

void BVShoutstreamerDelegate::askAudioPlayerToStop() {
  auto self = shared_from_this();  // the owner may drop its player (and us) when told
  if (!orplayer_is_playing(_orplayer)) {
    orplayer_stop(_orplayer);
    if (auto* o = owner()) o->didStopAudioPlayer();
    return;
  }
  if (_checkPlayerDoneTimer) return;
  orplayer_play_done(_orplayer);
  _checkPlayerDoneTimer = timerWithNonretainedTarget(this, &BVShoutstreamerDelegate::checkPlayerDone, 1.0);
}

void BVShoutstreamerDelegate::checkPlayerDone(BVTimer& timer) {
  if (orplayer_is_playing(_orplayer)) return;
  auto self = shared_from_this();
  timer.invalidate();
  orplayer_stop(_orplayer);
  if (auto* o = owner()) o->didStopAudioPlayer();
}

// ---- volume and mute -------------------------------------------------------

void BVShoutstreamerDelegate::setVolume(float volume) {
  if (volume < 0) return;
  if (isMuted())
    _unmutedVolume = volume;
  else
    orplayer_set_gain(_orplayer, volume);
}

float BVShoutstreamerDelegate::volume() const { return isMuted() ? _unmutedVolume : orplayer_get_gain(_orplayer); }

void BVShoutstreamerDelegate::setMuted(bool muted) {
  if (muted) {
    if (isMuted()) return;
    _unmutedVolume = orplayer_get_gain(_orplayer);
    if (_unmutedVolume > 0) orplayer_set_gain(_orplayer, 0.0f);
  } else {
    if (!isMuted()) return;
    orplayer_set_gain(_orplayer, _unmutedVolume);
    _unmutedVolume = -1.0f;
  }
}

// ---- library thread ----------------------------------------------------------

void BVShoutstreamerDelegate::shoutstreamerChangedState(int oldState, int newState, int32_t errorCode) {
  BVDictionary change{{"oldState", BVValue(oldState)}, {"newState", BVValue(newState)}, {"errorCode", BVValue(errorCode)}};
  performOnRunLoop([change](BVShoutstreamerDelegate& self) {
    if (auto* o = self.owner()) o->shoutstreamerChangedState(change);
  });
}

// Hands a title to the run loop. When it belongs to audio just written,
// the delivery thread waits (briefly, bounded) until the run loop has
// announced it (at most 2 s, for a run loop that is busy or not running),
// so that no further audio is written before the listener
// sees the new title.
void BVShoutstreamerDelegate::announceTitle(std::string title, bool waitForAnnouncement) {
  auto shared = std::make_shared<const std::string>(std::move(title));
  uint64_t ticket;
  {
    std::lock_guard lock(ackMutex_);
    ticket = ++titlesSent_;
  }
  performOnRunLoop([shared, ticket](BVShoutstreamerDelegate& self) {
    self.shoutstreamerDidProvideTitle(shared);
    std::lock_guard lock(self.ackMutex_);
    self.titlesAnnounced_ = std::max(self.titlesAnnounced_, ticket);
    self.ackCondition_.notify_all();
  });
  bool onLoopThread;
  {
    std::lock_guard lock(loopMutex_);
    onLoopThread = loopThread_ == std::this_thread::get_id();  // waiting would only time out
  }
  if (!waitForAnnouncement || onLoopThread) return;
  std::unique_lock lock(ackMutex_);
  ackCondition_.wait_for(lock, std::chrono::seconds(2),
                         [&] { return interrupted_ || titlesAnnounced_ >= ticket; });
}

void BVShoutstreamerDelegate::shoutstreamerDidProvideTitle(const std::shared_ptr<const std::string>& title) {
  if (auto* o = owner()) o->shoutstreamerDidProvideTitle(title);
}

void BVShoutstreamerDelegate::shoutstreamerDidProvideTitle(const std::string& title, int32_t framesBuffered) {
  if (framesBuffered < 0) return;
  if (framesBuffered == 0) {
    // Its audio comes next: announce it once what was written has played.
    waitUntilWritten();
    announceTitle(title, true);
    return;
  }
  if (!_bufferedTitles.empty()) {
    // The frames still to be written before the last pending title: the
    // countdown to the first, plus the spacing of those after it. Entries
    // after the first hold their distance from the title before them.
    int64_t pending = _framesBuffered;
    for (size_t i = 1; i < _bufferedTitles.size(); ++i) pending += _bufferedTitles[i].framesBuffered;
    if (framesBuffered <= pending) {
      BVLog("Stream player was given title '%s' to buffer for %i frames but is already buffering for %i frames.",
            title.c_str(), int(framesBuffered), int(pending));
      return;
    }
    framesBuffered -= int32_t(pending);
  } else {
    _framesBuffered = framesBuffered;
  }
  _bufferedTitles.push_back({title, framesBuffered});
}

void BVShoutstreamerDelegate::shoutstreamerDidProvideAudio(float sampleRate, float** data, int32_t frames) {
  if (_framesBuffered == 0 || frames < 0 || _framesBuffered - frames > 0) {
    writeAudio(sampleRate, data, 0, frames);
    if (_framesBuffered != 0 && frames >= 0) _framesBuffered -= frames;
    return;
  }
  // A title falls due within this block.
  _framesBuffered -= frames;
  if (_bufferedTitles.empty()) {
    writeAudio(sampleRate, data, 0, frames);
    _framesBuffered = 0;
    BVLog("Error: was buffering frames, but there are no buffered titles.");
    return;
  }
  std::string title = std::move(_bufferedTitles.front().title);
  _bufferedTitles.pop_front();
  int32_t dueAt = frames + _framesBuffered;  // where in the block the chosen title's audio starts
  while (!_bufferedTitles.empty()) {
    _framesBuffered += _bufferedTitles.front().framesBuffered;
    if (_framesBuffered > 0) break;
    dueAt = frames + _framesBuffered;
    title = std::move(_bufferedTitles.front().title);
    _bufferedTitles.pop_front();
  }
  if (_framesBuffered < 0) _framesBuffered = 0;
  dueAt = std::clamp(dueAt, 0, frames);
  // The listener hears the title change with its audio: write up to it, let
  // the output play that out, announce, then write the rest.
  writeAudio(sampleRate, data, 0, dueAt);
  waitUntilWritten();
  announceTitle(std::move(title), true);
  writeAudio(sampleRate, data, dueAt, frames - dueAt);
}

void BVShoutstreamerDelegate::writeAudio(float sampleRate, float** data, int32_t from, int32_t count) {
  if (count <= 0) return;
  float* channels[2] = {data[0] + from, data[1] ? data[1] + from : nullptr};
  orplayer_play_wait(_orplayer, sampleRate, channels, count);
  framesQueued_ += uint64_t(count);
  if (sampleRate > 0) lastSampleRate_ = sampleRate;
}

void BVShoutstreamerDelegate::waitUntilWritten() {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  while (!interrupted_ && orplayer_is_playing(_orplayer) && std::chrono::steady_clock::now() < deadline) {
    uint64_t written = orplayer_frames_written(_orplayer);
    if (written >= framesQueued_) break;
    // A paced output takes the queued frames at about their rate: sleep for
    // half of what is still ahead of it (0.5 to 10 ms) rather than polling
    // at the finest step all along.
    double ahead = double(framesQueued_ - written) / double(lastSampleRate_);
    std::this_thread::sleep_for(std::chrono::duration<double>(std::clamp(ahead / 2, 0.0005, 0.010)));
  }
}

// ---- C callbacks -------------------------------------------------------------

namespace {
BVShoutstreamerDelegate* contextOf(shoutstreamer_t streamer) {
  auto* d = shoutstreamer_delegate(streamer);
  return d ? static_cast<BVShoutstreamerDelegate*>(d->context) : nullptr;
}
}  // namespace

void BVShoutstreamerDelegate::stateCallback(shoutstreamer_t streamer, int oldState, int newState) {
  int32_t code = 0;
  shoutstreamer_status(streamer, &code);
  if (auto* d = contextOf(streamer)) d->shoutstreamerChangedState(oldState, newState, code);
}

void BVShoutstreamerDelegate::audioCallback(shoutstreamer_t streamer, float sampleRate, float** channels,
                                            int32_t frames) {
  if (auto* d = contextOf(streamer)) d->shoutstreamerDidProvideAudio(sampleRate, channels, frames);
}

void BVShoutstreamerDelegate::titleCallback(shoutstreamer_t streamer, const char* bytes, int32_t length,
                                            int32_t framesBuffered) {
  if (!bytes || length <= 0) return;
  std::span<const uint8_t> raw(reinterpret_cast<const uint8_t*>(bytes), size_t(length));
  if (!belvane::detail::isValidUTF8(raw)) return;  // undecodable titles are dropped
  if (auto* d = contextOf(streamer)) d->shoutstreamerDidProvideTitle(std::string(bytes, size_t(length)), framesBuffered);
}

// Runs on the destroying thread: stopping the output releases an audio
// callback blocked in orplayer_play_wait, so destroy never waits on a
// stalled device.
void BVShoutstreamerDelegate::interruptCallback(shoutstreamer_t streamer) {
  auto* d = contextOf(streamer);
  if (!d) return;
  {
    std::lock_guard lock(d->ackMutex_);
    d->interrupted_ = true;
    d->ackCondition_.notify_all();
  }
  orplayer_stop(d->_orplayer);
}
