// BVShoutstreamerDelegate: callback bridging, title buffering by frames,
// the drain of the audio output, and volume and mute through its gain.
#include "players/mp3_stream/shoutstreamer_delegate.h"

#include <belvane/BVKitOwner.h>
#include <belvane/BVMP3StreamPlayer.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "foundation/text_encoding.h"
#include "players/mp3_stream/mp3_stream_player_impl.h"
#include "streaming/shoutstreamer_tuning.h"

std::shared_ptr<BVShoutstreamerDelegate> BVShoutstreamerDelegate::create() {
  return std::shared_ptr<BVShoutstreamerDelegate>(new BVShoutstreamerDelegate());
}

BVShoutstreamerDelegate::BVShoutstreamerDelegate()
    : _audio(belvane::detail::AudioDelivery::create()), loop_(BVRunLoop::current()) {
  _audio->setClient(this);
}

BVShoutstreamerDelegate::~BVShoutstreamerDelegate() {
  _audio->setClient(nullptr);
}

std::shared_ptr<BVMP3StreamPlayer> BVShoutstreamerDelegate::owner() {
  belvane::detail::MutexLock lock(ownerMutex_);
  return _owner.lock();
}

void BVShoutstreamerDelegate::setOwner(std::weak_ptr<BVMP3StreamPlayer> owner) {
  belvane::detail::MutexLock lock(ownerMutex_);
  _owner = std::move(owner);
}

void BVShoutstreamerDelegate::setRunLoop(const BVRunLoop& loop) {
  belvane::detail::MutexLock lock(loopMutex_);
  loop_ = loop;
  _audio->useCurrentRunLoop();
}

// Queues fn on the playing thread's loop without waiting. The delegate is
// the call's weak target, so one torn down meanwhile is simply skipped.
void BVShoutstreamerDelegate::performOnRunLoop(std::function<void(BVShoutstreamerDelegate&)> fn) {
  belvane::detail::MutexLock lock(loopMutex_);
  loop_.perform(weak_from_this(), [this, fn = std::move(fn)] { fn(*this); });
}

int BVShoutstreamerDelegate::startAudioPlayer() { return _audio->start(); }

// ---- drain ---------------------------------------------------------------

void BVShoutstreamerDelegate::askAudioPlayerToStop() {
  auto self = shared_from_this();  // the owner may drop its player (and us) when told
  if (!_audio->isPlaying()) {
    draining_ = false;
    _audio->stop();
    if (auto o = owner()) o->didStopAudioPlayer();
    return;
  }
  if (draining_) return;
  draining_ = true;
  _audio->playDone();  // audioDeliveryDrained follows
}

void BVShoutstreamerDelegate::audioDeliveryDrained() {
  if (!draining_) return;
  auto self = shared_from_this();
  draining_ = false;
  _audio->stop();
  if (auto o = owner()) o->didStopAudioPlayer();
}

void BVShoutstreamerDelegate::stopAudioPlayerNow() {
  draining_ = false;
  _audio->stop();
}

// ---- library thread ----------------------------------------------------------

void BVShoutstreamerDelegate::shoutstreamerChangedState(int oldState, int newState, int32_t errorCode) {
  belvane::detail::StreamerStateChange change{oldState, newState, errorCode};
  performOnRunLoop([change, generation = generation_.load()](BVShoutstreamerDelegate& self) {
    if (generation != self.generation_) return;  // from a stream torn down for a seek
    if (auto o = self.owner()) o->_shoutstreamerChangedState(change.oldState, change.newState, change.errorCode);
  });
}

void BVShoutstreamerDelegate::shoutstreamerDidProvideAudio(float sampleRate, float** data, int32_t frames) {
  sampleRate_ = int(sampleRate);
  if (uint64_t skip = skipFrames_; skip > 0) {
    int32_t skipped = int32_t(std::min<uint64_t>(skip, uint64_t(frames)));
    skipFrames_ = skip - uint64_t(skipped);
    if (skipped == frames) return;
    float* rest[2] = {data[0] + skipped, data[1] + skipped};
    _audio->write(sampleRate, rest, frames - skipped);
    framesDelivered_ += uint64_t(frames - skipped);
    return;
  }
  _audio->write(sampleRate, data, frames);
  framesDelivered_ += uint64_t(frames);
}

void BVShoutstreamerDelegate::startOver(uint64_t skipFrames) {
  ++generation_;
  skipFrames_ = skipFrames;
  framesDelivered_ = 0;
}

void BVShoutstreamerDelegate::shoutstreamerDidProvideTitle(
    const std::shared_ptr<const belvane::detail::StreamTitle>& title) {
  if (auto o = owner()) BVMP3StreamPlayer::Impl::titleDue(*o, title);
}

void BVShoutstreamerDelegate::audioDeliveryStoppedAtTitle() {
  if (auto o = owner()) o->didStopAtTitle();
}

void BVShoutstreamerDelegate::audioDeliveryOutputChanged(const std::string& device) {
  if (auto o = owner()) o->didChangeOutput(device);
}

void BVShoutstreamerDelegate::audioDeliveryOutputFailed(const BVErrorRef& error) {
  if (auto o = owner()) o->didFailOutput(error);
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
  // An empty title (StreamTitle='') is news too: the host clears its display.
  if (!bytes || length < 0) return;
  std::span<const uint8_t> raw(reinterpret_cast<const uint8_t*>(bytes), size_t(length));
  if (!belvane::detail::isValidUTF8(raw)) return;  // undecodable titles are dropped
  if (auto* d = contextOf(streamer))
    d->shoutstreamerDidProvideTitle(std::string(bytes, size_t(length)), framesBuffered,
                                    belvane::detail::shoutstreamerTitleURL(streamer));
}

// Runs on the destroying thread: stopping the output releases an audio
// callback blocked in orplayer_play_wait, so destroy never waits on a
// stalled device.
void BVShoutstreamerDelegate::interruptCallback(shoutstreamer_t streamer) {
  if (auto* d = contextOf(streamer)) d->_audio->interrupt();
}
