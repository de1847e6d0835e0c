// BVStationRecorder: a StreamReader whose client only splits the ICY
// metadata off and feeds a StationTap that records (no ring, no decoder).
// An address that answers with a web playlist (M3U, PLS, ASX, XSPF) is
// followed once: its first station is recorded, its other entries are that
// station's mirrors.
#include <belvane/BVBasePlayer.h>
#include <belvane/BVConstants.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVStationRecorder.h>

#include <belvane/BVURL.h>
#include <belvane/BVURLAdditions.h>

#include "foundation/thread_annotations.h"
#include "foundation/thread_name.h"
#include "playlists/playlist_format.h"
#include "playlists/playlist_text_parser.h"
#include "streaming/icy_metadata.h"
#include "streaming/shoutstreamer.h"
#include "streaming/station_tap.h"
#include "streaming/stream_reader.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <thread>

using namespace belvane::detail;

namespace {

// Audio bytes a connection delivers before a break is worth reconnecting.
constexpr uint64_t kPlayedBytes = 8 * 1024;

// A web playlist is read whole up to this size; a larger answer is no playlist.
constexpr size_t kMaxPlaylistBytes = 256 * 1024;

class RecordingClient final : public StreamReader::Client, private IcyDemuxer::Handler {
 public:
  // acceptPlaylist: an answer that is a web playlist is kept (playlistText())
  // instead of recorded.
  RecordingClient(StationTap& tap, std::atomic<uint64_t>& bytes, bool acceptPlaylist)
      : tap_(tap), bytes_(bytes), acceptPlaylist_(acceptPlaylist) {}

  int32_t head(const StreamReplyHead& head) override {
    uint32_t metaint = 0;
    if (const std::string* value = head.field("icy-metaint"))
      metaint = uint32_t(std::strtoul(value->c_str(), nullptr, 10));
    demuxer_ = std::make_unique<IcyDemuxer>(metaint);
    connectionBytes_ = 0;
    const std::string* type = head.field("content-type");
    contentType_ = type ? *type : std::string();
    const std::string* length = head.field("content-length");
    contentLength_ = length ? std::strtoull(length->c_str(), nullptr, 10) : 0;
    decided_ = !acceptPlaylist_ || metaint > 0 || isHLSMIMEType(contentType_);
    tap_.connectionStarted();
    return 0;
  }
  int32_t body(std::span<const uint8_t> bytes) override {
    if (!decided_) {
      // A playlist by its own type, or by its first bytes where the type is
      // one servers also send for playlists (or none).
      decided_ = true;
      std::string_view head(reinterpret_cast<const char*>(bytes.data()), std::min<size_t>(bytes.size(), 512));
      playlistFormat_ = playlistFormatForMIMEType(contentType_, PlaylistNames::Own);
      if (playlistFormat_ == PlaylistFormat::None) playlistFormat_ = playlistFormatForFirstBytes(head);
      if (playlistFormat_ == PlaylistFormat::M3U && isHLSPlaylistText(head)) playlistFormat_ = PlaylistFormat::None;
    }
    if (playlistFormat_ != PlaylistFormat::None) {
      playlistText_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
      if (playlistText_.size() > kMaxPlaylistBytes) playlistFormat_ = PlaylistFormat::None;
      const bool whole = contentLength_ > 0 && playlistText_.size() >= contentLength_;
      return whole || playlistFormat_ == PlaylistFormat::None ? StreamConnection::kStop : 0;
    }
    return demuxer_->feed(bytes, *this) ? 0 : StreamConnection::kStop;
  }
  // A playlist's end is its whole text, not a break to reconnect after.
  bool hasPlayed() const override { return bytes_ >= kPlayedBytes; }
  bool connectionPlayed() const override { return connectionBytes_ >= kPlayedBytes; }
  int32_t silentEndError() const override { return bytes_ > 0 || isPlaylist() ? 0 : SHOUTSTREAMER_ERROR_NO_AUDIO; }

  bool isPlaylist() const { return playlistFormat_ != PlaylistFormat::None && !playlistText_.empty(); }
  // The stations the playlist names, in order, every entry's addresses.
  std::vector<std::string> playlistStations(const std::string& base) const {
    std::vector<std::string> stations;
    std::optional<BVURL> baseURL = BVURL::URLWithString(base);
    for (const PlaylistTrack& track : parsePlaylistText(playlistFormat_, playlistText_))
      for (const std::string& entry : playlistTrackURLs(track))
        if (auto url = bvURLFromString(entry, baseURL)) stations.push_back(url->absoluteString());
    return stations;
  }

 private:
  bool audio(std::span<const uint8_t> bytes, uint64_t) override {
    tap_.audio(bytes);
    bytes_ += bytes.size();
    connectionBytes_ += bytes.size();
    return true;
  }
  void metadata(std::span<const uint8_t> block, uint64_t) override {
    if (auto title = streamTitleFromMetadata(block)) tap_.title({*title, streamURLFromMetadata(block).value_or("")});
  }

  StationTap& tap_;
  std::atomic<uint64_t>& bytes_;
  const bool acceptPlaylist_;
  std::unique_ptr<IcyDemuxer> demuxer_;
  uint64_t connectionBytes_ = 0;
  std::string contentType_;
  uint64_t contentLength_ = 0;
  bool decided_ = true;
  PlaylistFormat playlistFormat_ = PlaylistFormat::None;
  std::string playlistText_;
};

BVErrorRef belvaneError(int64_t code, const std::string& text) {
  return BVError::withDescription(BVBelvaneErrorDomain, code, text);
}

}  // namespace

// What the reading thread shares with the recorder: the tap, the reader
// and the byte count. The thread holds it, so it outlives the recorder.
struct BVStationRecorder::Reading {
  // No ring: nothing is played back, so nothing needs keeping.
  StationTap tap{StationRingSettings{.minutes = 0}};
  Mutex readerMutex;
  // Replaced when a playlist is followed; the reading thread runs the one it
  // started (startReader's answer) without the lock.
  std::unique_ptr<StreamReader> reader GUARDED_BY(readerMutex);
  bool stopped GUARDED_BY(readerMutex) = false;
  std::atomic<uint64_t> bytes{0};
  std::thread thread;

  // The reader for url, unless the recorder was stopped meanwhile.
  StreamReader* startReader(const std::string& url, StreamReaderPolicy policy) {
    MutexLock lock(readerMutex);
    if (stopped) return nullptr;
    reader = std::make_unique<StreamReader>(url, std::move(policy));
    return reader.get();
  }
  void stop() {
    MutexLock lock(readerMutex);
    stopped = true;
    if (reader) reader->cancel();
  }
};

std::shared_ptr<BVStationRecorder> BVStationRecorder::create() {
  return std::shared_ptr<BVStationRecorder>(new BVStationRecorder());
}

BVStationRecorder::~BVStationRecorder() {
  owner_ = nullptr;
  if (!reading_) return;
  reading_->tap.stopRecording();
  reading_->stop();
  if (reading_->thread.joinable()) reading_->thread.join();
}

BVErrorRef BVStationRecorder::startRecording(const std::string& url, const std::string& folder) {
  if (reading_) return belvaneError(BVRecordingErrorNothing, "This recorder has recorded a station already.");
  const std::string lower = url.substr(0, url.find("://"));
  if (url.find("://") == std::string::npos ||
      (lower != "http" && lower != "https" && lower != "icy" && lower != "shttp"))
    return belvaneError(BVRecordingErrorNothing,
                        "Only a station's stream address (http, https or icy) can be recorded.");
  auto reading = std::make_shared<Reading>();
  const BVRunLoop loop = BVRunLoop::current();
  const std::weak_ptr<BVObject> weak = weak_from_this();
  auto recorder = [weak] { return std::static_pointer_cast<BVStationRecorder>(weak.lock()); };
  reading->tap.setHandlers(
      [loop, weak, recorder](const RecordedFile& file) {
        loop.perform(weak, [recorder, file] {
          if (auto self = recorder(); self && self->owner_)
            self->owner_->recorderRecordedFile(*self, file.path, file.title, file.complete);
        });
      },
      [loop, weak, recorder](RecordingProblem problem, const std::string& text) {
        if (problem == RecordingProblem::None) return;  // the reading's end says why
        const int64_t code = problem == RecordingProblem::DiskFull ? BVRecordingErrorDiskFull : BVRecordingErrorWrite;
        loop.perform(weak, [recorder, code, text] {
          if (auto self = recorder(); self && self->owner_)
            self->owner_->recorderStopped(*self, belvaneError(code, text));
        });
      });
  std::string why;
  if (reading->tap.startRecording(folder, false, &why) != RecordingProblem::None)
    return belvaneError(BVRecordingErrorFolder, why);
  StreamReaderPolicy policy;
  policy.refuseAAC = false;
  policy.reconnectWindow = reconnectWindowForPatience(300.0);
  StreamReader* const firstReader = reading->startReader(url, policy);
  reading_ = reading;
  reading->thread = std::thread([reading, firstReader, loop, weak, recorder, url, policy] {
    nameThisThread("bv-record-net");
    RecordingClient client(reading->tap, reading->bytes, true);
    StreamReader::Outcome outcome = firstReader->run(client);
    std::optional<RecordingClient> stationClient;
    BVErrorRef error;
    if (client.isPlaylist()) {
      // A web playlist: its first station is recorded, the rest are mirrors.
      std::vector<std::string> stations = client.playlistStations(url);
      StreamReaderPolicy stationPolicy = policy;
      StreamReader* reader = nullptr;
      if (!stations.empty()) {
        stationPolicy.alternates.assign(stations.begin() + 1, stations.end());
        reader = reading->startReader(stations.front(), stationPolicy);
      }
      if (reader) {
        stationClient.emplace(reading->tap, reading->bytes, false);
        outcome = reader->run(*stationClient);
      } else if (stations.empty()) {
        outcome = {};
        error = belvaneError(BVRecordingErrorNothing, "The playlist at " + url + " names no station to record.");
      } else {
        outcome.cancelled = true;
      }
    }
    const bool wasRecording = reading->tap.isRecording();
    reading->tap.stopRecording();
    if (outcome.cancelled || !wasRecording) return;
    if (outcome.error) {
      char* text = shoutstreamer_error_as_string(outcome.error);
      error = BVError::withDescription(BVShoutstreamerErrorDomain, outcome.error,
                                       text ? text : "The station could not be read.");
      std::free(text);
    }
    loop.perform(weak, [recorder, error] {
      if (auto self = recorder(); self && self->owner_) self->owner_->recorderStopped(*self, error);
    });
  });
  return nullptr;
}

void BVStationRecorder::stop() {
  if (!reading_) return;
  reading_->tap.stopRecording();
  reading_->stop();
}

bool BVStationRecorder::isRecording() const { return reading_ && reading_->tap.isRecording(); }

uint64_t BVStationRecorder::bytesReceived() const { return reading_ ? reading_->bytes.load() : 0; }
