// BVBasePlayer: state, position and attribute announcements and the error
// account of the link.
#include <belvane/BVBasePlayer.h>
#include <belvane/BVConstants.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>

#include "audio_output/output_playback.h"
#include "foundation/request_settings_scope.h"
#include "foundation/url_redaction.h"
#include "players/base_player_impl.h"

#include <vector>

std::shared_ptr<BVBasePlayer> BVBasePlayer::create() { return std::shared_ptr<BVBasePlayer>(new BVBasePlayer()); }

BVBasePlayer::BVBasePlayer() : impl_(std::make_unique<Impl>()) {}

BVBasePlayer::~BVBasePlayer() { owner_ = nullptr; }

std::shared_ptr<BVMediaLink> BVBasePlayer::Impl::link() const {
  belvane::detail::MutexLock lock(linkMutex);
  return link_;
}

std::shared_ptr<BVMediaLink> BVBasePlayer::link() const { return impl_->link(); }

void BVBasePlayer::checkThread(const char* operation) const { impl_->madeOn.check(operation); }

void BVBasePlayer::playLink(const std::shared_ptr<BVMediaLink>& link) {
  checkThread("BVBasePlayer::playLink");
  {
    belvane::detail::MutexLock lock(impl_->linkMutex);
    impl_->link_ = link;
    if (!impl_->outputPlaybackShared) impl_->outputPlayback_ = std::make_shared<belvane::detail::OutputPlayback>();
  }
  startStationTap();
}

void BVBasePlayer::changeStateTo(BVPlayerState state, const BVErrorRef& error) {
  checkThread("BVBasePlayer::changeStateTo");
  if (state == state_) return;
  BVPlayerState old = state_;
  state_ = state;
  if (!owner_) return;
  auto self = shared_from_this();  // the owner may drop us during the call
  BVErrorRef customized = customizeError(error);
  if (owner_) owner_->playerStateChanged(*this, old, state, customized);
}

void BVBasePlayer::changedPosition(float position) {
  checkThread("BVBasePlayer::changedPosition");
  if (!owner_) return;
  auto self = shared_from_this();
  owner_->playerPositionChanged(*this, position);
}

void BVBasePlayer::changedAttribute(const BVDictionary& attributes) {
  checkThread("BVBasePlayer::changedAttribute");
  if (!owner_) return;
  auto self = shared_from_this();
  owner_->playerAttributeChanged(*this, attributes);
}

const char* BVPlayerReceptionStateName(BVPlayerReceptionState state) {
  switch (state) {
    case BVPlayerReceptionPrebuffering: return "prebuffering";
    case BVPlayerReceptionReceiving: return "receiving";
    case BVPlayerReceptionBuffering: return "buffering";
    case BVPlayerReceptionReconnecting: return "reconnecting";
    case BVPlayerReceptionNone: break;
  }
  return "none";
}

void BVBasePlayer::changedReception(const BVPlayerReception& reception) {
  checkThread("BVBasePlayer::changedReception");
  if (!owner_) return;
  auto self = shared_from_this();
  owner_->playerReceptionChanged(*this, reception);
}

void BVBasePlayer::changedOutput(const std::string& output) {
  checkThread("BVBasePlayer::changedOutput");
  if (!owner_) return;
  auto self = shared_from_this();
  owner_->playerOutputChanged(*this, output);
}

BVErrorRef BVBasePlayer::customizeError(const BVErrorRef& error) {
  auto link = this->link();
  if (!error || !link) return error;
  std::vector<std::string> lines;
  std::string url = belvane::detail::withoutURLPasswords(link->url().absoluteString());
  if (!url.empty()) lines.push_back("MediaLink URL:\n" + url);
  if (auto format = link->format()) {
    // A link whose type is not known yet asks its server: as the playback's requests do.
    belvane::detail::RequestSettingsScope requests(requestSettings());
    if (auto mime = format->mimeType()) lines.push_back("MediaLink MIME Type: " + *mime);
    if (auto rt = format->radioTimeMediaType()) lines.push_back("MediaLink RadioTime Media Type: " + *rt);
  }
  if (lines.empty()) return error;
  std::string joined;
  for (size_t i = 0; i < lines.size(); ++i) joined += (i ? "\n\n" : "") + lines[i];
  BVDictionary info;
  if (error->hasUserInfo()) {
    info = error->userInfo();
    if (auto old = BVDictionaryString(info, BVBasePlayerErrorKey)) joined = *old + "\n\n" + joined;
  }
  info[BVBasePlayerErrorKey] = BVValue(joined);
  return BVError::create(error->domain(), error->code(), std::move(info));
}
