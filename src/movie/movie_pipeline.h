// MoviePipeline: one GStreamer playbin playing one URI for a movie.
//
// Its decoded audio goes to the movie's audio sink (our own audio output,
// through an appsink, with stream titles in-band); without one it is
// rendered silently in real time. It never opens a video or subtitle window. Its bus is watched on the run loop
// (GMainContext) given at creation, so every listener call arrives on that
// loop's thread. It remembers what the source element told it (the HTTP
// response's content type) and collects tags. Destroying it stops the
// pipeline, joins its threads and detaches its bus watch; a listener may
// destroy the pipeline from inside any of its calls.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

typedef struct _GMainContext GMainContext;
typedef struct _GstElement GstElement;
typedef struct _GstMessage GstMessage;
typedef struct _GstBus GstBus;
typedef struct _GstTagList GstTagList;
typedef struct _GSource GSource;
typedef struct _GError GError;

namespace belvane::detail {

class MovieAudioSink;
class MovieAudioTap;

struct MoviePipelineError {
  const GError* error = nullptr;
  unsigned httpStatus = 0;  // the "http-status-code" detail, 0 when none
  bool fromSource = false;  // posted by the source element or an element inside it
};

class MoviePipelineListener {
 public:
  virtual ~MoviePipelineListener() = default;
  virtual void pipelinePrerolled() = 0;          // first preroll done (paused, data at the sinks)
  virtual void pipelineBuffering(int percent) = 0;
  virtual void pipelinePlayingChanged(bool playing) = 0;
  virtual void pipelineEnded() = 0;
  virtual void pipelineFailed(const MoviePipelineError& error) = 0;  // once
  virtual void pipelineTagsChanged() = 0;
  virtual void pipelineDurationChanged() = 0;
  virtual void pipelineSeekDone() = 0;
};

class MoviePipeline {
 public:
  // Builds the playbin and starts prerolling; nullptr when GStreamer cannot
  // build it.
  static std::unique_ptr<MoviePipeline> create(const std::string& uri, GMainContext* context,
                                               MoviePipelineListener* listener,
                                               std::shared_ptr<MovieAudioSink> audio = nullptr);
  ~MoviePipeline();
  MoviePipeline(const MoviePipeline&) = delete;
  MoviePipeline& operator=(const MoviePipeline&) = delete;

  void setPlaying(bool playing);
  bool isPlaying() const { return playing_; }
  bool isSeeking() const { return seeking_; }
  bool isLive() const { return live_; }
  bool hasPrerolled() const { return prerolled_; }
  bool hasFailed() const { return failed_; }

  // Nanoseconds; nothing when unknown.
  std::optional<int64_t> position() const;
  std::optional<int64_t> duration() const;
  bool isSeekable() const;
  // A flushing seek; done when pipelineSeekDone() arrives.
  bool seek(int64_t nanoseconds, bool accurate);

  void setVolume(double volume);
  void setMuted(bool muted);

  // The merged tags of every TAG message so far (new reference or null).
  GstTagList* copyTags() const;
  // Streams of each kind and their tags (new reference or null).
  int streamCount(const char* kind) const;  // "audio", "video", "text"
  GstTagList* copyStreamTags(const char* kind, int index) const;

  // The Content-Type of the HTTP response, once the source has it.
  std::optional<std::string> httpContentType() const;
  // Whether the HTTP response declared its length: a file, not a live stream.
  bool httpDeclaredLength() const;

 private:
  MoviePipeline(GMainContext* context, MoviePipelineListener* listener);
  static int busWatchCallback(GstBus* bus, GstMessage* message, void* data);
  static void onSourceSetup(GstElement* playbin, GstElement* source, void* data);
  void handle(GstMessage* message);
  void handleError(GstMessage* message);

  GMainContext* context_;
  MoviePipelineListener* listener_;
  GstElement* playbin_ = nullptr;
  GstElement* source_ = nullptr;  // the source element playbin made (reference), guarded by mutex_
  GSource* busWatch_ = nullptr;
  GstTagList* tags_ = nullptr;
  std::unique_ptr<MovieAudioTap> tap_;
  std::shared_ptr<bool> alive_;
  bool playing_ = false;
  bool live_ = false;
  bool prerolled_ = false;
  bool failed_ = false;
  bool seeking_ = false;
  mutable std::mutex mutex_;
  std::optional<std::string> contentType_;  // guarded by mutex_
  bool declaredLength_ = false;             // guarded by mutex_
};

}  // namespace belvane::detail
