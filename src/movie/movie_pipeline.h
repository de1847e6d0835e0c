// MoviePipeline: one GStreamer pipeline playing one URI for a movie.
//
// With an audio sink (our own audio output), it is a uridecodebin whose
// decoded audio goes through an appsink to that sink, with stream titles
// in-band; video and subtitle streams are left undecoded and dropped. There
// is no playsink between the decoder and our output: no second queue
// thread, no volume element (our output applies the gain) and no
// conversions beyond the one to the output's format. Without an audio sink
// it is a playbin that renders the audio silently in real time. It never
// opens a video or subtitle window. Its bus is watched on the run loop
// (GMainContext) given at creation, so every listener call arrives on that
// loop's thread. It remembers what the source element told it (the HTTP
// response's content type) and collects tags. Destroying it stops the
// pipeline, joins its threads and detaches its bus watch; a listener may
// destroy the pipeline from inside any of its calls.
#pragma once

#include <belvane/BVValue.h>

#include "movie/movie_stream_source.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "streaming/stream_reader.h"

typedef struct _GMainContext GMainContext;
typedef struct _GstElement GstElement;
typedef struct _GstPad GstPad;
typedef struct _GstMessage GstMessage;
typedef struct _GstBus GstBus;
typedef struct _GstBin GstBin;
typedef struct _GstTagList GstTagList;
typedef struct _GSource GSource;
typedef struct _GError GError;

namespace belvane::detail {

class MovieAudioSink;
class MovieAudioTap;
class MovieRingFeed;

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

class MoviePipeline : public std::enable_shared_from_this<MoviePipeline> {
 public:
  // Builds the pipeline and starts prerolling; nullptr when GStreamer cannot
  // build it. With ownConnection (and an audio sink), a network stream is
  // read by Belvane's own connection (MovieStreamSource) instead of
  // GStreamer's HTTP source: the tuner's open reply is taken over, and the
  // live policy (stalls, drops, reconnection for the reading's patience) is
  // the reader's. Either way the requests go out with the reading's
  // request settings (GStreamer's HTTP source is given its user agent,
  // extra header fields and proxy as it starts).
  static std::shared_ptr<MoviePipeline> create(const std::string& uri, GMainContext* context,
                                               MoviePipelineListener* listener,
                                               std::shared_ptr<MovieAudioSink> audio = nullptr,
                                               const MovieReading& reading = {}, bool ownConnection = false);
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

  // Only for the silent playbin: with an audio sink, the sink's owner
  // applies volume and mute itself.
  void setVolume(double volume);
  void setMuted(bool muted);

  // The merged tags of every TAG message so far (new reference or null).
  GstTagList* copyTags() const;
  // Streams of each kind and their tags (new reference or null).
  int streamCount(const char* kind) const;  // "audio", "video", "text"
  GstTagList* copyStreamTags(const char* kind, int index) const;

  // The Content-Type of the HTTP response, once the source has it.
  std::optional<std::string> httpContentType() const;
  // Whether the HTTP response declared its length: a file, not a live stream
  // (an HLS playlist's reply never counts).
  bool httpDeclaredLength() const;
  // Whether Belvane's own connection feeds the pipeline (it reconnects a
  // live stream itself), and whether it took over the tuner's open reply.
  bool readsOwnConnection() const { return stream_ != nullptr; }
  // What the station's reply announced of it (Belvane's connection only).
  BVDictionary stationFacts() const;
  // Our own connection's reconnections (none for a source GStreamer reads).
  StreamReaderProgress connectionProgress() const;
  // What the audio decoder decodes (codec, sample rate, channels); empty
  // until it has negotiated. On the loop's thread.
  BVDictionary decodedFormat() const;
  bool tookHeldReply() const;
  // Time-shift of a station read by Belvane's connection (null otherwise).
  MovieRingFeed* ringFeed() const { return stream_ ? stream_->ringFeed() : nullptr; }

 private:
  struct DecodedStream {
    std::string kind;  // "audio", "video", "text"
    GstPad* pad;       // uridecodebin's source pad (reference)
  };

  MoviePipeline(GMainContext* context, MoviePipelineListener* listener);
  bool buildPlaybin(const std::string& uri);
  bool buildDecoding(const std::string& uri, GstElement* tapBin);
  bool buildStreamDecoding(const std::string& uri, GstElement* tapBin, const MovieReading& reading,
                           std::shared_ptr<MovieAudioSink> audio);
  void connectDecoderSignals();
  static int busWatchCallback(GstBus* bus, GstMessage* message, void* data);
  static void onSourceSetup(GstElement* element, GstElement* source, void* data);
  static void onDeepElementAdded(GstBin* bin, GstBin* subBin, GstElement* element, void* data);
  static void onPadAdded(GstElement* decoder, GstPad* pad, void* data);
  static void onPadRemoved(GstElement* decoder, GstPad* pad, void* data);
  static void onNoMorePads(GstElement* decoder, void* data);
  void handle(GstMessage* message);
  void handleError(GstMessage* message);

  GMainContext* context_;
  MoviePipelineListener* listener_;
  GstElement* pipeline_ = nullptr;  // playbin, or the pipeline holding decoder_ and tapBin_
  GstElement* decoder_ = nullptr;   // uridecodebin or decodebin (owned by pipeline_), or null
  GstElement* tapBin_ = nullptr;    // the tap's bin (owned by pipeline_), or null; guarded by mutex_
  std::vector<DecodedStream> streams_;  // decoder_'s exposed streams, guarded by mutex_
  GstElement* source_ = nullptr;  // the source element the pipeline made (reference), guarded by mutex_
  GSource* busWatch_ = nullptr;
  GstTagList* tags_ = nullptr;
  std::unique_ptr<MovieAudioTap> tap_;
  std::unique_ptr<MovieStreamSource> stream_;  // Belvane's connection, or null
  BVRequestSettingsRef requestSettings_;       // for GStreamer's HTTP source
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
