// The C interface (include/belvane/belvane.h) over the master player.
//
// A bv_player is the owner of one master player for its whole life; stop is
// the master's stop, and the master keeps the volume, mute and audio output
// the host chose across stations and engines. Callbacks are
// relayed from the master's owner calls, which arrive on the thread whose run
// loop plays: the host calls from the default main context's thread, so they
// arrive there.
//
// Destroying inside a callback: the handle counts the callbacks it is inside
// of; a destroy there releases the master and silences the handle at once,
// and the outermost callback frees it as it unwinds.
//
// Published on MPRIS, the publisher stands between the master and the
// handle (it forwards every callback); withdrawing or destroying gives the
// owner slot back. The library's log lines go through one process-wide
// route: the host's callback, or GLib's debug level.
#include <belvane/belvane.h>

#include <belvane/BVAudioOutputs.h>
#include <belvane/BVConstants.h>
#include <belvane/BVKitOwner.h>
#include <belvane/BVMPRISPublisher.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVURL.h>
#include <belvane/BVURLAdditions.h>


#include "foundation/request_settings_scope.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <glib.h>

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

static_assert(BELVANE_VERSION_MAJOR == BELVANE_BUILD_VERSION_MAJOR &&
                  BELVANE_VERSION_MINOR == BELVANE_BUILD_VERSION_MINOR &&
                  BELVANE_VERSION_PATCH == BELVANE_BUILD_VERSION_PATCH,
              "belvane.h's version macros must match the project version");

namespace belvane::detail {
namespace {

// A newly malloc'ed copy (the host frees it with bv_free), NULL when memory ran out.
char* duplicate(const std::string& s) {
  char* copy = static_cast<char*>(std::malloc(s.size() + 1));
  if (copy) std::memcpy(copy, s.c_str(), s.size() + 1);
  return copy;
}

// An attribute value as the C interface shows it; nothing for an absent or
// null value (a removed attribute).
std::optional<std::string> attributeText(const BVValue& value) {
  char number[64];
  switch (value.kind()) {
    case BVValue::Kind::None:
    case BVValue::Kind::Null: return std::nullopt;
    case BVValue::Kind::String: return *value.string();
    case BVValue::Kind::Integer:
      std::snprintf(number, sizeof number, "%lld", static_cast<long long>(value.integerValue()));
      return std::string(number);
    case BVValue::Kind::Real:
      std::snprintf(number, sizeof number, "%.15g", value.doubleValue());
      return std::string(number);
    case BVValue::Kind::Boolean: return std::string(value.boolValue() ? "1" : "0");
    default: return value.description();
  }
}

// The C interface's log route: the host's callback, or GLib's debug level
// (quiet unless G_MESSAGES_DEBUG asks). Installed as the kit owner's
// delegate when a C host makes its first player or sets a callback, unless
// another delegate (a C++ host's) is there.
class CLogRoute final : public BVKitOwnerDelegate {
 public:
  static CLogRoute& shared() {
    static CLogRoute* route = new CLogRoute();  // lives for the rest of the process
    return *route;
  }
  void install() {
    auto& owner = BVKitOwner::sharedOwner();
    if (!owner.delegate()) owner.setDelegate(this);
  }
  void set(bv_log_callback callback, void* userdata) {
    std::unique_lock lock(mutex_);  // waits for calls in progress
    callback_ = callback;
    userdata_ = userdata;
  }
  void belvaneOwnerDebugLog(const std::string& message) override {
    std::shared_lock lock(mutex_);
    if (callback_)
      callback_(message.c_str(), userdata_);
    else
      g_log_structured(G_LOG_DOMAIN, G_LOG_LEVEL_DEBUG, "MESSAGE", "%s", message.c_str());
  }

 private:
  std::shared_mutex mutex_;
  bv_log_callback callback_ = nullptr;
  void* userdata_ = nullptr;
};

}  // namespace
}  // namespace belvane::detail

using namespace belvane::detail;

struct bv_player final : BVPlayerOwner {
  std::shared_ptr<BVMasterPlayer> master = BVMasterPlayer::create();
  // Between the master and this handle while published (it forwards every
  // callback here).
  std::shared_ptr<BVMPRISPublisher> publisher;
  bool destroyed = false;
  int callbackDepth = 0;

  bv_state_callback stateCallback = nullptr;
  void* stateUserdata = nullptr;
  bv_attribute_callback attributeCallback = nullptr;
  void* attributeUserdata = nullptr;
  bv_position_callback positionCallback = nullptr;
  void* positionUserdata = nullptr;
  bv_reception_callback receptionCallback = nullptr;
  void* receptionUserdata = nullptr;
  bv_recorded_file_callback recordedFileCallback = nullptr;
  void* recordedFileUserdata = nullptr;
  bv_output_callback outputCallback = nullptr;
  void* outputUserdata = nullptr;
  bv_recording_stopped_callback recordingStoppedCallback = nullptr;
  void* recordingStoppedUserdata = nullptr;
  // The strings of the last recording error handed out.
  std::string recordingErrorDomain, recordingErrorText;

  bv_player() { master->setOwner(this); }
  ~bv_player() override { releaseMaster(); }

  // The last state the host was told of: after a stop the next station's
  // player starts from Idle, but the host heard Stopped, so changes are
  // relayed from this.
  bv_state reportedState = BV_STATE_IDLE;

  void releaseMaster() {
    if (!master) return;
    publisher.reset();  // gives the owner slot back to this handle
    // The owner goes first, so the released player says nothing more.
    master->setOwner(nullptr);
    master.reset();
  }

  // Keeps the handle alive across a callback; the outermost one frees a
  // handle destroyed inside it. Returns false when the handle must be freed.
  struct CallbackScope {
    bv_player* p;
    explicit CallbackScope(bv_player* player) : p(player) { ++p->callbackDepth; }
    ~CallbackScope() {
      if (--p->callbackDepth == 0 && p->destroyed) delete p;
    }
  };

  void reportState(bv_state to, const BVErrorRef& error) {
    bv_state from = reportedState;
    reportedState = to;
    if (destroyed || !stateCallback || from == to) return;
    CallbackScope scope(this);
    if (!error) {
      stateCallback(this, from, to, nullptr, stateUserdata);
      return;
    }
    std::string description = error->localizedDescription();
    bv_player_error info{error->code(), error->domain().c_str(), description.c_str()};
    stateCallback(this, from, to, &info, stateUserdata);
  }

  void playerStateChanged(BVBasePlayer&, BVPlayerState, BVPlayerState to, const BVErrorRef& error) override {
    reportState(static_cast<bv_state>(to), error);
  }

  void playerPositionChanged(BVBasePlayer&, float position) override {
    if (destroyed || !positionCallback) return;
    CallbackScope scope(this);
    positionCallback(this, position, positionUserdata);
  }

  void playerReceptionChanged(BVBasePlayer&, const BVPlayerReception& reception) override {
    if (destroyed || !receptionCallback) return;
    bv_reception r = receptionOf(reception);
    CallbackScope scope(this);
    receptionCallback(this, &r, receptionUserdata);
  }

  void playerOutputChanged(BVBasePlayer&, const std::string& output) override {
    if (destroyed || !outputCallback) return;
    CallbackScope scope(this);
    outputCallback(this, output.c_str(), outputUserdata);
  }

  void playerRecordedFile(BVBasePlayer&, const std::string& path, const std::string& title, bool complete) override {
    if (destroyed || !recordedFileCallback) return;
    CallbackScope scope(this);
    recordedFileCallback(this, path.c_str(), title.c_str(), complete ? 1 : 0, recordedFileUserdata);
  }

  void playerRecordingStopped(BVBasePlayer&, const BVErrorRef& error) override {
    if (destroyed || !recordingStoppedCallback) return;
    CallbackScope scope(this);
    if (!error) return recordingStoppedCallback(this, nullptr, recordingStoppedUserdata);
    std::string description = error->localizedDescription();
    bv_player_error info{error->code(), error->domain().c_str(), description.c_str()};
    recordingStoppedCallback(this, &info, recordingStoppedUserdata);
  }

  static bv_reception receptionOf(const BVPlayerReception& r) {
    return {static_cast<bv_reception_state>(r.state), r.secondsWithoutAudio, r.tries, double(r.prebufferProgress)};
  }

  void playerAttributeChanged(BVBasePlayer&, const BVDictionary& attributes) override {
    if (destroyed || !attributeCallback) return;
    std::vector<std::string> texts;
    std::vector<const char*> keys, values;
    texts.reserve(attributes.size());
    for (const auto& [key, value] : attributes) {
      auto text = attributeText(value);
      if (!text) continue;
      texts.push_back(std::move(*text));
      keys.push_back(key.c_str());
    }
    for (const auto& text : texts) values.push_back(text.c_str());
    CallbackScope scope(this);
    attributeCallback(this, keys.data(), values.data(), keys.size(), attributeUserdata);
  }
};

namespace {
// Sets what `change` makes of the master's request settings (each call of
// the C interface changes one thing); a refusal (nullptr) changes nothing.
template <class Change>
int changeRequestSettings(bv_player* player, Change change) {
  if (!player || !player->master) return BV_ERROR_INVALID_PARAMETER;
  BVRequestSettingsRef changed = change(*player->master->requestSettings());
  if (!changed) return BV_ERROR_INVALID_PARAMETER;
  player->master->setRequestSettings(std::move(changed));
  return BV_OK;
}
}  // namespace

namespace {
// The code of a recording call, with its error in *error (strings kept by the handle).
int recordingResult(bv_player* player, const BVErrorRef& result, bv_player_error* error) {
  if (!result) return BV_OK;
  if (error) {
    player->recordingErrorDomain = result->domain();
    player->recordingErrorText = result->localizedDescription();
    *error = {result->code(), player->recordingErrorDomain.c_str(), player->recordingErrorText.c_str()};
  }
  return int(result->code());
}
}  // namespace

extern "C" {

unsigned long bv_version(void) { return BELVANE_VERSION; }

const char* bv_error_string(int code) {
  switch (code) {
    case BV_OK: return "success";
    case BV_ERROR_INVALID_PARAMETER: return "invalid parameter";
    case BV_ERROR_INVALID_URL: return "invalid URL";
    case BV_ERROR_INVALID_AUDIO_OUTPUT: return "unknown audio output setting";
    case BV_ERROR_NOMEM: return "out of memory";
    case BV_ERROR_NOT_SUPPORTED: return "not possible for this playback";
    case BV_ERROR_UNAVAILABLE: return "system service unavailable";
  }
  return "unknown error";
}

void bv_free(void* data) { std::free(data); }

bv_player* bv_player_create(void) {
  CLogRoute::shared().install();
  return new (std::nothrow) bv_player();
}

void bv_set_log_callback(bv_log_callback callback, void* userdata) {
  CLogRoute::shared().set(callback, userdata);
  CLogRoute::shared().install();
}

void bv_player_destroy(bv_player* player) {
  if (!player || player->destroyed) return;
  player->destroyed = true;
  player->releaseMaster();
  if (player->callbackDepth == 0) delete player;
}

int bv_player_play(bv_player* player, const char* url, const char* title) {
  bv_play_options options = BV_PLAY_OPTIONS_INIT;
  options.title = title;
  return bv_player_play_with_options(player, url, &options);
}

int bv_player_play_with_options(bv_player* player, const char* url, const bv_play_options* options) {
  if (!player || player->destroyed || !url) return BV_ERROR_INVALID_PARAMETER;
  auto parsed = bvURLFromArgument(url);
  if (!parsed) return BV_ERROR_INVALID_URL;
  try {
    // Making the link may ask its server for its type: as the playback's requests go.
    RequestSettingsScope requests(player->master->requestSettings());
    std::shared_ptr<BVMediaLink> link;
    const bool hasClues = options && (options->mime_type || options->engine_id);
    std::optional<std::string> title;
    if (options && options->title) title = options->title;
    const char* encoding = options && options->title_encoding && *options->title_encoding ? options->title_encoding
                                                                                            : nullptr;
    if (encoding && !BVMediaLink::isUsableTitleEncoding(encoding)) {
      BVLog("Title encoding refused: '%s' is no character set iconv knows", encoding);
      return BV_ERROR_INVALID_PARAMETER;
    }
    if (hasClues || title) {
      auto format = BVMediaMutableFormat::formatByInferringFromURL(
          *parsed, options->mime_type ? std::optional<std::string>(options->mime_type) : std::nullopt);
      if (options->engine_id) format->setEngineID(std::string(options->engine_id));
      link = BVMediaLink::create(parsed, title, format, nullptr);
    } else {
      link = BVMediaLink::linkWithURL(*parsed);
    }
    if (encoding) {
      auto withEncoding = link->mutableCopy();
      withEncoding->setTitleEncoding(std::string(encoding));
      link = withEncoding->copy();
    }
    auto master = player->master;  // the callbacks below may destroy the handle
    master->playLink(link);
  } catch (const std::bad_alloc&) {
    return BV_ERROR_NOMEM;
  }
  return BV_OK;
}

int bv_player_stop(bv_player* player) {
  if (!player || player->destroyed) return BV_ERROR_INVALID_PARAMETER;
  auto master = player->master;  // the callback may destroy the handle
  master->stop();
  return BV_OK;
}

bv_state bv_player_get_state(const bv_player* player) {
  return player && player->master ? static_cast<bv_state>(player->master->state()) : BV_STATE_IDLE;
}

double bv_player_get_position(const bv_player* player) {
  return player && player->master ? player->master->position() : -1.0;
}

double bv_player_get_elapsed_time(const bv_player* player) {
  return player && player->master ? player->master->elapsedTime() : -1.0;
}

uint64_t bv_player_get_frames_written(const bv_player* player) {
  return player && player->master ? player->master->outputFramesWritten() : 0;
}

int bv_player_has_position(const bv_player* player) {
  return player && player->master && player->master->hasPosition() ? 1 : 0;
}

int bv_player_set_position(bv_player* player, double position) {
  if (!player || !player->master || !(position >= 0.0 && position <= 1.0)) return BV_ERROR_INVALID_PARAMETER;
  if (!player->master->hasPosition()) return BV_ERROR_NOT_SUPPORTED;
  auto master = player->master;  // the position callback may destroy the handle
  master->setPosition(static_cast<float>(position));
  return BV_OK;
}

int bv_player_seek(bv_player* player, double seconds) {
  if (!player || !player->master || !(seconds >= 0.0)) return BV_ERROR_INVALID_PARAMETER;
  if (!player->master->hasPosition()) return BV_ERROR_NOT_SUPPORTED;
  // The length: the duration attribute, else what the time played and the
  // fraction it makes of the whole say.
  double length = 0;
  BVDictionary attributes = player->master->attributes();
  if (auto it = attributes.find(std::string_view(BVPlayerAttributeDurationKey));
      it != attributes.end() && it->second.isNumber())
    length = it->second.doubleValue();
  if (length <= 0) {
    float fraction = player->master->position(), elapsed = player->master->elapsedTime();
    if (fraction > 0.001f && elapsed > 0) length = elapsed / fraction;
  }
  if (length <= 0) return BV_ERROR_NOT_SUPPORTED;
  return bv_player_set_position(player, std::min(seconds / length, 1.0));
}

int bv_player_pause(bv_player* player) {
  if (!player || !player->master) return BV_ERROR_INVALID_PARAMETER;
  if (!player->master->pause()) return BV_ERROR_NOT_SUPPORTED;
  return BV_OK;
}

int bv_player_resume(bv_player* player) {
  if (!player || !player->master) return BV_ERROR_INVALID_PARAMETER;
  player->master->resume();
  return BV_OK;
}

int bv_player_is_paused(const bv_player* player) { return player && player->master && player->master->isPaused() ? 1 : 0; }

int bv_player_publish_mpris(bv_player* player, int enable) {
  if (!player || !player->master) return BV_ERROR_INVALID_PARAMETER;
  if (!enable) {
    player->publisher.reset();
    return BV_OK;
  }
  if (player->publisher) return BV_OK;
  player->publisher = BVMPRISPublisher::create(player->master);
  return player->publisher ? BV_OK : BV_ERROR_UNAVAILABLE;
}

int bv_player_set_volume(bv_player* player, double volume) {
  if (!player || !player->master || !(volume >= 0.0 && volume <= 1.0)) return BV_ERROR_INVALID_PARAMETER;
  player->master->setVolume(static_cast<float>(volume));
  if (player->publisher) player->publisher->volumeChanged();
  return BV_OK;
}

double bv_player_get_volume(const bv_player* player) {
  return player && player->master ? player->master->volume() : -1.0;
}

int bv_player_set_reconnect_patience(bv_player* player, double seconds) {
  if (!player || !player->master || !(seconds >= 0.0)) return BV_ERROR_INVALID_PARAMETER;
  player->master->setReconnectPatience(seconds);
  return BV_OK;
}

double bv_player_get_reconnect_patience(const bv_player* player) {
  return player && player->master ? player->master->reconnectPatience() : -1.0;
}

// ---- loudness normalisation ------------------------------------------------------

int bv_player_set_loudness_normalization(bv_player* player, int normalize) {
  if (!player || !player->master) return BV_ERROR_INVALID_PARAMETER;
  player->master->setLoudnessNormalization(normalize != 0);
  return BV_OK;
}

int bv_player_get_loudness_normalization(const bv_player* player) {
  return player && player->master && player->master->loudnessNormalization() ? 1 : 0;
}

int bv_player_set_loudness_target(bv_player* player, double lufs) {
  if (!player || !player->master || !(lufs >= -70.0 && lufs <= 0.0)) return BV_ERROR_INVALID_PARAMETER;
  player->master->setLoudnessTarget(lufs);
  return BV_OK;
}

double bv_player_get_loudness_target(const bv_player* player) {
  return player && player->master ? player->master->loudnessTarget() : 0.0;
}

// ---- sleep, fades and stopping after the title ----------------------------------

int bv_player_set_inhibit_sleep(bv_player* player, int inhibit) {
  if (!player || !player->master) return BV_ERROR_INVALID_PARAMETER;
  player->master->setInhibitsSleep(inhibit != 0);
  return BV_OK;
}

int bv_player_get_inhibit_sleep(const bv_player* player) {
  return player && player->master && player->master->inhibitsSleep() ? 1 : 0;
}

int bv_player_fade_volume(bv_player* player, double volume, double seconds) {
  if (!player || !player->master || !(volume >= 0.0 && volume <= 1.0) || !(seconds >= 0.0))
    return BV_ERROR_INVALID_PARAMETER;
  player->master->fadeVolumeTo(static_cast<float>(volume), seconds);
  return BV_OK;
}

int bv_player_stop_after_title(bv_player* player, int stop) {
  if (!player || !player->master) return BV_ERROR_INVALID_PARAMETER;
  player->master->setStopsAfterCurrentTitle(stop != 0);
  return BV_OK;
}

int bv_player_get_stop_after_title(const bv_player* player) {
  return player && player->master && player->master->stopsAfterCurrentTitle() ? 1 : 0;
}

int bv_player_set_user_agent(bv_player* player, const char* userAgent) {
  return changeRequestSettings(player,
                               [&](const BVRequestSettings& s) { return s.withUserAgent(userAgent ? userAgent : ""); });
}

char* bv_player_get_user_agent(const bv_player* player) {
  if (!player || !player->master) return nullptr;
  return duplicate(player->master->requestSettings()->userAgent());
}

int bv_player_add_request_header(bv_player* player, const char* name, const char* value) {
  if (!name || !value) return BV_ERROR_INVALID_PARAMETER;
  return changeRequestSettings(player, [&](const BVRequestSettings& s) { return s.withHeader(name, value); });
}

int bv_player_clear_request_headers(bv_player* player) {
  return changeRequestSettings(player, [](const BVRequestSettings& s) { return s.withoutHeaders(); });
}

int bv_player_set_proxy(bv_player* player, const char* proxy) {
  return changeRequestSettings(player, [&](const BVRequestSettings& s) {
    if (!proxy) return s.withProxy(BVRequestSettings::Proxy::Environment);
    if (!*proxy) return s.withProxy(BVRequestSettings::Proxy::None);
    return s.withProxyURL(proxy);
  });
}

char* bv_player_get_proxy(const bv_player* player) {
  if (!player || !player->master) return nullptr;
  const BVRequestSettings& settings = *player->master->requestSettings();
  switch (settings.proxy()) {
    case BVRequestSettings::Proxy::Environment: return nullptr;
    case BVRequestSettings::Proxy::None: return duplicate("");
    case BVRequestSettings::Proxy::URL: return duplicate(settings.proxyURL());
  }
  return nullptr;
}

int bv_player_set_mute(bv_player* player, int muted) {
  if (!player || !player->master) return BV_ERROR_INVALID_PARAMETER;
  player->master->setMuted(muted != 0);
  if (player->publisher) player->publisher->volumeChanged();
  return BV_OK;
}

int bv_player_get_mute(const bv_player* player) { return player && player->master && player->master->isMuted() ? 1 : 0; }

int bv_player_set_audio_output(bv_player* player, const char* setting) {
  if (!player || !player->master) return BV_ERROR_INVALID_PARAMETER;
  std::string reason;
  auto parsed = BVAudioOutputSetting::fromString(setting ? setting : "", &reason);
  if (!parsed) {
    BVLog("Audio output refused: %s", reason.c_str());
    return BV_ERROR_INVALID_AUDIO_OUTPUT;
  }
  player->master->setAudioOutputSetting(*parsed);
  return BV_OK;
}

char* bv_player_get_audio_output_name(const bv_player* player) {
  if (!player) return nullptr;
  return duplicate(player->master ? player->master->audioOutputName() : std::string("none"));
}

char* bv_player_get_audio_output_device(const bv_player* player) {
  if (!player) return nullptr;
  return duplicate(player->master ? player->master->audioOutputDevice() : std::string());
}

void bv_player_set_output_callback(bv_player* player, bv_output_callback callback, void* userdata) {
  if (!player) return;
  player->outputCallback = callback;
  player->outputUserdata = userdata;
}

int bv_audio_outputs(bv_audio_output** outputs, size_t* count) {
  if (!outputs || !count) return BV_ERROR_INVALID_PARAMETER;
  *outputs = nullptr;
  *count = 0;
  std::vector<BVAudioOutput> found = BVAudioOutputs();
  if (found.empty()) return BV_OK;
  auto* list = static_cast<bv_audio_output*>(calloc(found.size(), sizeof(bv_audio_output)));
  if (!list) return BV_ERROR_NOMEM;
  for (size_t i = 0; i < found.size(); ++i)
    list[i] = {duplicate(found[i].name), duplicate(found[i].description), found[i].isDefault ? 1 : 0};
  *outputs = list;
  *count = found.size();
  return BV_OK;
}

void bv_audio_outputs_free(bv_audio_output* outputs, size_t count) {
  if (!outputs) return;
  for (size_t i = 0; i < count; ++i) {
    bv_free(outputs[i].name);
    bv_free(outputs[i].description);
  }
  free(outputs);
}

char* bv_player_get_attribute(const bv_player* player, const char* key) {
  if (!player || !key || !player->master) return nullptr;
  BVDictionary attributes = player->master->attributes();
  auto it = attributes.find(std::string_view(key));
  if (it == attributes.end()) return nullptr;
  auto text = attributeText(it->second);
  return text ? duplicate(*text) : nullptr;
}

void bv_player_set_state_callback(bv_player* player, bv_state_callback callback, void* userdata) {
  if (!player) return;
  player->stateCallback = callback;
  player->stateUserdata = userdata;
}

void bv_player_set_attribute_callback(bv_player* player, bv_attribute_callback callback, void* userdata) {
  if (!player) return;
  player->attributeCallback = callback;
  player->attributeUserdata = userdata;
}

void bv_player_set_position_callback(bv_player* player, bv_position_callback callback, void* userdata) {
  if (!player) return;
  player->positionCallback = callback;
  player->positionUserdata = userdata;
}

void bv_player_set_reception_callback(bv_player* player, bv_reception_callback callback, void* userdata) {
  if (!player) return;
  player->receptionCallback = callback;
  player->receptionUserdata = userdata;
}

int bv_player_get_reception(const bv_player* player, bv_reception* reception) {
  if (!player || !reception || !player->master) return BV_ERROR_INVALID_PARAMETER;
  *reception = bv_player::receptionOf(player->master->reception());
  return BV_OK;
}

// ---- Time-shift ring and recording -----------------------------------------

int bv_player_set_time_shift_minutes(bv_player* player, double minutes) {
  if (!player || !player->master || !(minutes >= 0.0)) return BV_ERROR_INVALID_PARAMETER;
  player->master->setTimeShiftMinutes(minutes);
  return BV_OK;
}

double bv_player_get_time_shift_minutes(const bv_player* player) {
  return player && player->master ? player->master->timeShiftMinutes() : -1.0;
}

int bv_player_set_time_shift_memory(bv_player* player, uint64_t bytes) {
  if (!player || !player->master) return BV_ERROR_INVALID_PARAMETER;
  player->master->setTimeShiftMemoryLimit(bytes);
  return BV_OK;
}

uint64_t bv_player_get_time_shift_memory(const bv_player* player) {
  return player && player->master ? player->master->timeShiftMemoryLimit() : 0;
}

double bv_player_get_time_shift_held(const bv_player* player) {
  return player && player->master ? player->master->timeShiftSecondsHeld() : 0.0;
}

int bv_player_can_time_shift(const bv_player* player) {
  return player && player->master && player->master->canTimeShift() ? 1 : 0;
}

int bv_player_skip(bv_player* player, double seconds) {
  if (!player || !player->master || std::isnan(seconds)) return BV_ERROR_INVALID_PARAMETER;
  return player->master->skipBy(seconds) ? BV_OK : BV_ERROR_NOT_SUPPORTED;
}

int bv_player_go_live(bv_player* player) {
  if (!player || !player->master) return BV_ERROR_INVALID_PARAMETER;
  return player->master->goLive() ? BV_OK : BV_ERROR_NOT_SUPPORTED;
}

double bv_player_get_seconds_behind_live(const bv_player* player) {
  return player && player->master ? player->master->secondsBehindLive() : 0.0;
}


int bv_player_start_recording(bv_player* player, const char* folder, bv_player_error* error) {
  if (!player || !player->master || !folder) return BV_ERROR_INVALID_PARAMETER;
  return recordingResult(player, player->master->startRecording(folder), error);
}

int bv_player_record_current_title_from_start(bv_player* player, const char* folder, bv_player_error* error) {
  if (!player || !player->master || !folder) return BV_ERROR_INVALID_PARAMETER;
  return recordingResult(player, player->master->recordCurrentTitleFromItsStart(folder), error);
}

void bv_player_stop_recording(bv_player* player) {
  if (player && player->master) player->master->stopRecording();
}

int bv_player_is_recording(const bv_player* player) {
  return player && player->master && player->master->isRecording() ? 1 : 0;
}

void bv_player_set_recorded_file_callback(bv_player* player, bv_recorded_file_callback callback, void* userdata) {
  if (!player) return;
  player->recordedFileCallback = callback;
  player->recordedFileUserdata = userdata;
}

void bv_player_set_recording_stopped_callback(bv_player* player, bv_recording_stopped_callback callback,
                                              void* userdata) {
  if (!player) return;
  player->recordingStoppedCallback = callback;
  player->recordingStoppedUserdata = userdata;
}

}  // extern "C"

