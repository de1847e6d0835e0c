// KitPlayer: one player of the client kit. It plays a RealMedia URL (file,
// HTTP, RTSP with RDT, PNM) or the streams of a RAM metafile one after
// another through a GStreamer playbin, and reports content states, length,
// statistics and errors to its observer.
//
// Threads: the player lives on the thread that made it and reports on that
// thread's main context (its thread-default context then, else the global
// default). GStreamer's streaming threads reach it only through the bus
// watch attached to that context, the metafile fetch through an idle source
// there. After release() nothing is reported any more.
#pragma once

#include "kit_errors.h"
#include "kit_statistics.h"
#include "audio_sink.h"
#include "metafile_fetch.h"

#include <belvane/HXClientKitABI.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

typedef struct _GMainContext GMainContext;
typedef struct _GSource GSource;
typedef struct _GstElement GstElement;
typedef struct _GstMessage GstMessage;
typedef struct _GstBus GstBus;

namespace belvane::detail {

// Content states between the three the host knows (0, 3, 4).
enum KitContentState : int32_t {
  kKitContentContacting = 1,
  kKitContentBuffering = 2,
  kKitContentPaused = 5,
};

class KitPlayer : public std::enable_shared_from_this<KitPlayer> {
 public:
  // Null when GStreamer cannot start. observer may be null.
  static std::shared_ptr<KitPlayer> create(const HXClientObserver* observer);
  ~KitPlayer();
  KitPlayer(const KitPlayer&) = delete;
  KitPlayer& operator=(const KitPlayer&) = delete;

  // Starts loading a URL (or absolute path); false for one that cannot be
  // played at all (no URL, an unknown scheme). Later failures are reported.
  bool open(const std::string& url, const std::string& mimeType);
  int32_t contentState() const { return state_; }
  void play();
  void pause();
  void stop();

  bool startSeeking();
  void stopSeeking();
  void setPosition(uint32_t milliseconds);
  uint32_t position();
  uint32_t length() const { return lengthMs_; }
  bool isLive() const { return live_ || lengthMs_ == 0; }

  uint16_t volume() const { return volume_; }
  void setVolume(uint16_t volume);
  bool isMuted() const { return muted_; }
  void mute(bool muted);

  // Where the audio of the next open goes (the sink is made then).
  void setAudioOutput(KitAudioOutput output) { audioOutput_ = std::move(output); }

  char* copyStatistic(const std::string& name) const;
  void addObserver(const HXClientObserver* observer, const std::string& name, void* userInfo);
  void removeObserver(const HXClientObserver* observer, const std::string& name, void* userInfo);

  // Stops everything: the pipeline goes to NULL, every source is removed.
  void release();

  explicit KitPlayer(const HXClientObserver* observer);  // use create()

 private:
  static int onBusMessage(GstBus* bus, GstMessage* message, void* self);
  void handle(GstMessage* message);
  bool ensurePipeline();
  void resetPipeline();
  void beginEntries(std::vector<std::string> entries);
  void startEntry(size_t index);
  void entryFailed(const KitFailure& failure);
  void entryEnded();
  void onFetched(MetafileFetchResult result);
  void followRedirect(const std::string& location);
  void startWatchdog();
  void stopWatchdog();
  void updateLength();
  void updateTags(GstMessage* message);
  void applySeek(uint32_t milliseconds);
  bool pipelineReady() const;

  // Reporting; each returns false once the observer released the player.
  bool alive() const { return !released_; }
  bool setState(int32_t state);
  bool reportError(const KitFailure& failure);

  GMainContext* context_ = nullptr;
  HXClientObserver observer_{};
  KitStatistics statistics_;

  GstElement* pipeline_ = nullptr;
  KitAudioOutput audioOutput_;
  GSource* busWatch_ = nullptr;
  GSource* watchdog_ = nullptr;  // gives up on a stream that never loads
  std::shared_ptr<MetafileFetch> fetch_;

  std::string url_;
  std::string mimeType_;
  std::vector<std::string> entries_;
  size_t entry_ = 0;
  int redirects_ = 0;

  int32_t state_ = HXContentStateNotLoaded;
  bool wantPlaying_ = false;
  bool pausedByUser_ = false;
  bool concluded_ = false;
  bool live_ = false;
  bool released_ = false;
  int bufferingPercent_ = 100;
  uint32_t lengthMs_ = 0;
  uint32_t lastPositionMs_ = 0;
  bool seeking_ = false;
  bool unseekable_ = false;  // the demuxer could not seek in this entry
  std::optional<uint32_t> heldSeek_;      // asked for between start and stop of seeking
  std::optional<uint32_t> deferredSeek_;  // waits for the pipeline to preroll

  uint16_t volume_ = 100;
  bool muted_ = false;
};

}  // namespace belvane::detail
