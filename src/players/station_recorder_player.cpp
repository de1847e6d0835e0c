// BVStationRecorder: a StreamReader whose client only splits the ICY
// metadata off and feeds a StationTap that records (no ring, no decoder).
#include <belvane/BVBasePlayer.h>
#include <belvane/BVConstants.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVStationRecorder.h>

#include "foundation/thread_name.h"
#include "streaming/icy_metadata.h"
#include "streaming/shoutstreamer.h"
#include "streaming/station_tap.h"
#include "streaming/stream_reader.h"

#include <atomic>
#include <cstdlib>
#include <thread>

using namespace belvane::detail;

namespace {

// Audio bytes a connection delivers before a break is worth reconnecting.
constexpr uint64_t kPlayedBytes = 8 * 1024;

class RecordingClient final : public StreamReader::Client, private IcyDemuxer::Handler {
 public:
  RecordingClient(StationTap& tap, std::atomic<uint64_t>& bytes) : tap_(tap), bytes_(bytes) {}

  int32_t head(const StreamReplyHead& head) override {
    uint32_t metaint = 0;
    if (const std::string* value = head.field("icy-metaint"))
      metaint = uint32_t(std::strtoul(value->c_str(), nullptr, 10));
    demuxer_ = std::make_unique<IcyDemuxer>(metaint);
    connectionBytes_ = 0;
    tap_.connectionStarted();
    return 0;
  }
  int32_t body(std::span<const uint8_t> bytes) override {
    return demuxer_->feed(bytes, *this) ? 0 : StreamConnection::kStop;
  }
  bool hasPlayed() const override { return bytes_ >= kPlayedBytes; }
  bool connectionPlayed() const override { return connectionBytes_ >= kPlayedBytes; }
  int32_t silentEndError() const override { return bytes_ > 0 ? 0 : SHOUTSTREAMER_ERROR_NO_AUDIO; }

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
  std::unique_ptr<IcyDemuxer> demuxer_;
  uint64_t connectionBytes_ = 0;
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
  std::unique_ptr<StreamReader> reader;
  std::atomic<uint64_t> bytes{0};
  std::thread thread;
};

std::shared_ptr<BVStationRecorder> BVStationRecorder::create() {
  return std::shared_ptr<BVStationRecorder>(new BVStationRecorder());
}

BVStationRecorder::~BVStationRecorder() {
  owner_ = nullptr;
  if (!reading_) return;
  reading_->tap.stopRecording();
  reading_->reader->cancel();
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
  reading->reader = std::make_unique<StreamReader>(url, policy);
  reading_ = reading;
  reading->thread = std::thread([reading, loop, weak, recorder] {
    nameThisThread("bv-record-net");
    RecordingClient client(reading->tap, reading->bytes);
    StreamReader::Outcome outcome = reading->reader->run(client);
    const bool wasRecording = reading->tap.isRecording();
    reading->tap.stopRecording();
    if (outcome.cancelled || !wasRecording) return;
    BVErrorRef error;
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
  reading_->reader->cancel();
}

bool BVStationRecorder::isRecording() const { return reading_ && reading_->tap.isRecording(); }

uint64_t BVStationRecorder::bytesReceived() const { return reading_ ? reading_->bytes.load() : 0; }
