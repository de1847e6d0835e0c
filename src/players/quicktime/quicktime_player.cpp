// BVQuickTimePlayer: the movie's lifetime, movie notifications turned into
// states and positions, the idle tick, the error wording, and the query and
// control operations.
#include <belvane/BVErrorMapping.h>
#include <belvane/BVQuickTimePlayer.h>
#include <belvane/BVRunLoop.h>

#include "movie/movie_ring_feed.h"
#include "movie/movie_status.h"
#include "players/quicktime/quicktime_player_impl.h"
#include "players/reconnect_wording.h"

#include <cmath>

using belvane::detail::QTGetTimeInterval;
using belvane::detail::QTTime;
using belvane::detail::QTTimeIsIndefinite;

namespace {
constexpr const char* kStreamNotAvailableDescription = "The stream is not available at this time.";
}  // namespace

std::shared_ptr<BVQuickTimePlayer> BVQuickTimePlayer::create() {
  return std::shared_ptr<BVQuickTimePlayer>(new BVQuickTimePlayer());
}

BVQuickTimePlayer::BVQuickTimePlayer() : impl_(std::make_unique<Impl>(*this)) {}

BVQuickTimePlayer::~BVQuickTimePlayer() {
  stopObservingMovie();
  stopMovieAudio();
  if (impl_->audio) impl_->audio->setClient(nullptr);
  if (_subPlayer) _subPlayer->setOwner(nullptr);
  _subPlayer.reset();
  if (_playlist) _playlist->setDelegate(nullptr);
  _playlist.reset();
  _lastError.reset();
  _releaseMovie();
  impl_->receptionWatch.reset();
}

template <class Fn>
void BVQuickTimePlayer::inMovieCallback(Fn&& fn) {
  auto self = shared_from_this();  // the owner may drop us during the callback
  ++movieCallbackDepth_;
  fn();
  --movieCallbackDepth_;
}

void BVQuickTimePlayer::stopObservingMovie() {
  if (impl_->movie) impl_->movie->removeObserver(this);
}

void BVQuickTimePlayer::_releaseMovie() {
  stopObservingMovie();
  if (!impl_->movie) return;
  belvane::detail::MCSetActionFilterWithRefCon(impl_->movie->quickTimeMovieController(), nullptr, 0);
  stopMovieAudio();
  impl_->movie->stop();
  auto old = std::move(impl_->movie);
  impl_->movie = nullptr;
  // A movie released from inside one of its own callbacks is destroyed once
  // that callback has returned.
  if (movieCallbackDepth_ > 0) BVRunLoop::current().perform([old] {});
  _lastAttributes.reset();
  _lastIdleTimestamp = 0.0;
  paused_ = false;
  if (impl_->audio) impl_->audio->setHeld(false);  // a time-shifted station's hold ends with it
}

void BVQuickTimePlayer::changeStateTo(BVPlayerState state, const BVErrorRef& error) {
  auto self = weak_from_this().lock();  // the owner may let us go when told
  if (state == BVPlayerStateStopped || state == BVPlayerStateError) stopObservingMovie();
  BVErrorRef reported = error;
  if (error && error->domain() == BVOSStatusErrorDomain && (error->code() == -2048 || error->code() == -19160) &&
      !BVDictionaryString(error->userInfo(), BVLocalizedDescriptionKey)) {
    BVDictionary info = error->hasUserInfo() ? error->userInfo() : BVDictionary{};
    info[BVLocalizedDescriptionKey] = BVValue(kStreamNotAvailableDescription);
    reported = BVError::create(error->domain(), error->code(), std::move(info));
  }
  BVBasePlayer::changeStateTo(state, reported);
  if (self && (state == BVPlayerStateStopped || state == BVPlayerStateError) && impl_->receptionWatch)
    impl_->receptionWatch->stop();
}

// Movie notifications.

void BVQuickTimePlayer::Impl::_noteMovieLoadingChange(const QTNotification*) {
  if (!movie) return;
  int64_t loadState = movie->attributeForKey(belvane::detail::QTMovieLoadStateAttribute).integerValue();
  if (loadState >= belvane::detail::QTMovieLoadStatePlaythroughOK) {
    if (player.state() > BVPlayerStateConnecting) return;
    movie->play();
    player.changeStateTo(BVPlayerStatePlaying);
    player.changedPosition(player.position());
    player._updateAttributesNotifyingChanges(true);
  } else if (loadState == 1 || loadState == belvane::detail::QTMovieLoadStateError) {
    int32_t status = movie->movieStatus();
    if (status == 0) status = -1;
    BVErrorRef error = BVErrorForQuickTimeErrorCode(status);
    // A live station that played and broke off was tried again first.
    if (player.state() == BVPlayerStatePlaying && !movie->isFiniteResource() &&
        (status == belvane::detail::kMovieStatusCannotReachStream || status >= 100))
      error = belvane::detail::withReconnectionAccount(error, player.reconnectPatience());
    player.changeStateTo(BVPlayerStateError, error);
  }
}

void BVQuickTimePlayer::Impl::_noteMovieTimeChange(const QTNotification*) {
  if (movie) player.changedPosition(player.position());
}

void BVQuickTimePlayer::Impl::_noteMovieDidEnd(const QTNotification*) {
  if (player._playlist) {
    if (player._currentTrackNumber < player._playlist->countOfTracks()) player.playNextTrack();
    return;
  }
  player.changedPosition(player.position());
  player.changeStateTo(BVPlayerStateStopped);
}

void BVQuickTimePlayer::Impl::_noteMovieRateDidChange(const QTNotification* notification) {
  if (!notification || !notification->rate) return;
  double rate = *notification->rate;
  if (!(rate <= 0.0) || player.state() != BVPlayerStatePlaying || !movie || player.paused_) return;
  int64_t loadState = movie->attributeForKey(belvane::detail::QTMovieLoadStateAttribute).integerValue();
  // A file that stops while fully loaded has ended, whether or not the end
  // is announced; a stream that stalls has not.
  if (loadState == belvane::detail::QTMovieLoadStateComplete ||
      loadState == belvane::detail::QTMovieLoadStatePlaythroughOK)
    _noteMovieDidEnd(nullptr);
}

// New tags on the movie: a live station has no position and so no idle
// refresh, and this is how its stream titles reach the owner.
void BVQuickTimePlayer::Impl::_noteMovieMetaDataChange(const QTNotification*) {
  if (movie) player._updateAttributesNotifyingChanges(true);
}

void BVQuickTimePlayer::_noteMovieIdle() {
  if (!impl_->movie || !hasPosition()) return;
  double seconds = 0;
  if (!QTGetTimeInterval(impl_->movie->currentTime(), &seconds)) return;
  // Only a second or more of progress counts; after a seek backwards the
  // tick waits until the movie passes the last counted time again.
  if (seconds <= _lastIdleTimestamp + 1.0) return;
  _lastIdleTimestamp = seconds;
  inMovieCallback([&] {
    impl_->_noteMovieTimeChange(nullptr);
    // About every second at the start, then every five seconds.
    if (impl_->movie && (seconds < 30.0 || int64_t(seconds) % 5 == 0)) _updateAttributesNotifyingChanges(true);
  });
}

namespace {
// The movie controller's action filter: the idle action drives the player's
// idle tick. Never handles an action itself (always false).
bool mcActionFilter(belvane::detail::QTMovieController*, int16_t action, void*, intptr_t refCon) {
  if (refCon && action == belvane::detail::mcActionIdle) {
    reinterpret_cast<BVQuickTimePlayer*>(refCon)->_noteMovieIdle();
  }
  return false;
}
}  // namespace

void BVQuickTimePlayer::observeMovie() {
  using namespace belvane::detail;
  std::weak_ptr<BVQuickTimePlayer> weak = sharedAs<BVQuickTimePlayer>();
  auto observe = [&](const char* name, void (Impl::*handler)(const QTNotification*)) {
    impl_->movie->addObserver(this, name, [weak, handler](const QTNotification& note) {
      if (auto player = weak.lock()) player->inMovieCallback([&] { ((*player->impl_).*handler)(&note); });
    });
  };
  observe(QTMovieLoadStateDidChangeNotification, &Impl::_noteMovieLoadingChange);
  observe(QTMovieTimeDidChangeNotification, &Impl::_noteMovieTimeChange);
  observe(QTMovieDidEndNotification, &Impl::_noteMovieDidEnd);
  observe(QTMovieRateDidChangeNotification, &Impl::_noteMovieRateDidChange);
  observe(QTMovieMetaDataDidChangeNotification, &Impl::_noteMovieMetaDataChange);
  MCSetActionFilterWithRefCon(impl_->movie->quickTimeMovieController(), mcActionFilter,
                              reinterpret_cast<intptr_t>(this));
}

// Queries and controls.

BVPlayerState BVQuickTimePlayer::state() const {
  return _subPlayer ? _subPlayer->state() : BVBasePlayer::state();
}

bool BVQuickTimePlayer::hasPosition() const {
  if (_subPlayer) return _subPlayer->hasPosition();
  if (!impl_->movie) return false;
  return !QTTimeIsIndefinite(impl_->movie->duration());
}

float BVQuickTimePlayer::position() const {
  if (_subPlayer) return _subPlayer->position();
  if (!impl_->movie) return -1.0f;
  QTTime duration = impl_->movie->duration();
  if (QTTimeIsIndefinite(duration)) return -1.0f;
  double now = 0, total = 0;
  if (!QTGetTimeInterval(impl_->movie->currentTime(), &now) || !QTGetTimeInterval(duration, &total) || total <= 0)
    return -1.0f;
  return float(now / total);
}

void BVQuickTimePlayer::setPosition(float fraction) {
  if (_subPlayer) return _subPlayer->setPosition(fraction);
  if (!impl_->movie || !hasPosition()) return;
  // A request for the very end lands just before it.
  fraction = std::fmax(std::fmin(fraction, 0.9999f), 0.0f);
  QTTime duration = impl_->movie->duration();
  QTTime time = duration;
  time.timeValue = int64_t(float(duration.timeValue) * fraction);
  impl_->movie->setCurrentTime(time);
  impl_->_noteMovieTimeChange(nullptr);
}

bool BVQuickTimePlayer::pause() {
  if (_subPlayer) return _subPlayer->pause();
  if (paused_) return true;
  if (canTimeShift()) {
    // The output is held at once; the connection goes on into the ring and
    // the station plays from there from now on.
    impl_->audio->setHeld(true);
    impl_->movie->ringFeed()->requestShift();
    paused_ = true;
    return true;
  }
  if (!impl_->movie || !hasPosition() || state() != BVPlayerStatePlaying) return false;
  paused_ = true;
  impl_->movie->stop();
  return true;
}

void BVQuickTimePlayer::resume() {
  if (_subPlayer) return _subPlayer->resume();
  if (!paused_) return;
  paused_ = false;
  if (impl_->audio && impl_->audio->isHeld()) {
    impl_->audio->setHeld(false);
    return;
  }
  if (impl_->movie) impl_->movie->play();
}

bool BVQuickTimePlayer::isPaused() const { return _subPlayer ? _subPlayer->isPaused() : paused_; }

// ---- a live station: time-shift -------------------------------------------------

bool BVQuickTimePlayer::canTimeShift() const {
  if (_subPlayer) return _subPlayer->canTimeShift();
  const auto& movie = impl_->movie;
  if (!movie || !impl_->audio || state() != BVPlayerStatePlaying || timeShiftMinutes() <= 0 ||
      movie->isFiniteResource())
    return false;
  auto* feed = movie->ringFeed();
  return feed && feed->canShift();
}

bool BVQuickTimePlayer::skipBy(double seconds) {
  if (_subPlayer) return _subPlayer->skipBy(seconds);
  return canTimeShift() && !std::isnan(seconds) && impl_->movie->ringFeed()->skipBy(seconds);
}

bool BVQuickTimePlayer::goLive() {
  if (_subPlayer) return _subPlayer->goLive();
  return canTimeShift() && impl_->movie->ringFeed()->goLive();
}

double BVQuickTimePlayer::secondsBehindLive() const {
  if (_subPlayer) return _subPlayer->secondsBehindLive();
  auto* feed = impl_->movie ? impl_->movie->ringFeed() : nullptr;
  return feed ? feed->secondsBehindLive() : 0.0;
}

float BVQuickTimePlayer::elapsedTime() const {
  if (_subPlayer) return _subPlayer->elapsedTime();
  double seconds = 0;
  if (!impl_->movie || !QTGetTimeInterval(impl_->movie->currentTime(), &seconds)) return -1.0f;
  return float(seconds);
}

float BVQuickTimePlayer::volume() const { return _subPlayer ? _subPlayer->volume() : _volume; }

// The volume is always kept, the mute setting only without a sub-player.
void BVQuickTimePlayer::setVolume(float volume) {
  _volume = volume;
  if (_subPlayer)
    _subPlayer->setVolume(volume);
  else if (impl_->audio)
    impl_->audio->setVolume(volume);
}

bool BVQuickTimePlayer::isMuted() const { return _subPlayer ? _subPlayer->isMuted() : _muted; }

void BVQuickTimePlayer::setMuted(bool muted) {
  if (_subPlayer) return _subPlayer->setMuted(muted);
  _muted = muted;
  if (impl_->audio) impl_->audio->setMuted(muted);
}
