// The "wav:PATH" output: writes 32-bit float stereo WAV files, as fast as the
// frames come (unpaced), for tests and for recording. The header's sizes are
// filled in when a file is finished (stop, destroy, change of rate). A WAV
// file holds one sample rate, so a change of rate mid-stream finishes the
// file and goes on in a new one beside it: "rec.wav", then "rec.2.wav",
// "rec.3.wav"; the same happens before a file would outgrow the format's
// 4 GiB limit. A change of rate before any frame was written only rewrites
// the rate.
//
// A write that fails (a full disk, a file larger than the system allows)
// ends the recording: nothing more is written, the file is cut back to its
// last whole frame and its header gives the size of what it holds, so it
// stays a valid WAV file; the player then fails with the reason
// (failureEndsPlayback). Writes go straight to the file, unbuffered, so that
// what a write reported written is what the file holds.
//
// Within one playback (see OutputPlayback) a WAV output opened again, by the
// engine that took the playback over, continues the file the last one
// completed (at the same rate; else in the next file beside it) instead of
// rewriting it.
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "audio_output/output_backend.h"
#include "audio_output/output_log.h"
#include "audio_output/orplayer.h"
#include "audio_output/output_playback.h"

namespace belvane::detail {
namespace {

constexpr uint32_t kHeaderBytes = 58;  // RIFF + fmt (18) + fact + data headers
constexpr uint32_t kBytesPerFrame = 8;
constexpr uint64_t kMaxDataBytes = 0xFFFFFFFFull - kHeaderBytes - 8;

void putLE16(uint8_t* p, uint16_t v) {
  p[0] = v & 0xFF;
  p[1] = v >> 8;
}
void putLE32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = (v >> (8 * i)) & 0xFF;
}

class WavOutput final : public OutputBackend {
 public:
  WavOutput(std::string path, std::shared_ptr<OutputPlayback> playback)
      : path_(std::move(path)), playback_(std::move(playback)) {}
  ~WavOutput() override { finish(); }

  const char* name() const override { return "wav"; }
  bool paced() const override { return false; }
  bool failureEndsPlayback() const override { return true; }

  int open(unsigned rate) override {
    finish();
    rate_ = rate;
    if (auto earlier = playback_ ? playback_->wavFile(path_) : std::nullopt) {
      // The playback recorded here already: go on where it stopped.
      segment_ = earlier->segment;
      if (earlier->rate == rate && resume(earlier->path)) return 0;
      return nextSegment() ? 0 : ORPLAYER_ERROR_WAV_FILE;
    }
    return begin(path_) ? 0 : ORPLAYER_ERROR_WAV_FILE;
  }

  bool write(const float* interleaved, size_t frames) override {
    if (!file_ || writeFailed_) return false;
    if (dataBytes_ + frames * kBytesPerFrame > kMaxDataBytes) {
      finish();
      if (!nextSegment()) return false;
    }
    size_t samples = frames * 2;
    size_t done;
    if constexpr (std::endian::native == std::endian::little) {
      done = fwrite(interleaved, sizeof(float), samples, file_);
    } else {
      swapped_.resize(samples);
      for (size_t i = 0; i < samples; ++i)
        swapped_[i] = __builtin_bswap32(std::bit_cast<uint32_t>(interleaved[i]));
      done = fwrite(swapped_.data(), sizeof(uint32_t), samples, file_);
    }
    dataBytes_ += done / 2 * kBytesPerFrame;  // whole frames; finish() cuts off a part
    if (done != samples) {
      const std::string why = strerror(errno);
      outputLog(QL_LOG_ERROR, "cannot write to \"%s\": %s", currentPath_.c_str(), why.c_str());
      failureReason_ = "the WAV file " + currentPath_ + " could not be written (" + why + ")";
      writeFailed_ = true;
      return false;
    }
    return true;
  }

  void drain() override {
    if (file_) fflush(file_);
  }

  int changeRate(unsigned rate) override {
    if (!file_) return open(rate);
    if (dataBytes_ == 0) {  // nothing at the old rate: the header takes the new one
      rate_ = rate;
      return 0;
    }
    finish();
    rate_ = rate;
    return nextSegment() ? 0 : ORPLAYER_ERROR_WAV_FILE;
  }

 private:
  bool begin(const std::string& path) {
    currentPath_ = path;
    file_ = fopen(path.c_str(), "wb");
    if (file_) setvbuf(file_, nullptr, _IONBF, 0);
    if (!file_) {
      // Read once: the log line may set errno again on its way out.
      const std::string why = strerror(errno);
      outputLog(QL_LOG_ERROR, "cannot open \"%s\": %s", path.c_str(), why.c_str());
      failureReason_ = "the WAV file " + path + " cannot be written (" + why + ")";
      return false;
    }
    dataBytes_ = 0;
    return writeHeader();
  }

  // Reopens a file this playback completed, to append to it; false (and
  // nothing opened) when it is not the WAV file we wrote.
  bool resume(const std::string& path) {
    FILE* file = fopen(path.c_str(), "r+b");
    if (!file) return false;
    uint8_t h[kHeaderBytes];
    auto le32 = [&](size_t at) { return uint32_t(h[at]) | uint32_t(h[at + 1]) << 8 | uint32_t(h[at + 2]) << 16 | uint32_t(h[at + 3]) << 24; };
    const bool ours = fread(h, 1, sizeof h, file) == sizeof h && memcmp(h, "RIFF", 4) == 0 &&
                      memcmp(h + 8, "WAVEfmt ", 8) == 0 && le32(24) == rate_ && memcmp(h + 50, "data", 4) == 0 &&
                      fseek(file, static_cast<long>(kHeaderBytes + le32(54)), SEEK_SET) == 0;
    if (!ours) {
      fclose(file);
      return false;
    }
    setvbuf(file, nullptr, _IONBF, 0);
    file_ = file;
    currentPath_ = path;
    dataBytes_ = le32(54);
    outputLog(QL_LOG_INFO, "recording goes on in \"%s\"", path.c_str());
    return true;
  }

  // Opens the next file beside the first, after finish().
  bool nextSegment() {
    ++segment_;
    std::string path = path_;
    size_t slash = path.rfind('/');
    size_t dot = path.rfind('.');
    std::string suffix = "." + std::to_string(segment_);
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash + 1))
      path.insert(dot, suffix);
    else
      path += suffix;
    outputLog(QL_LOG_INFO, "recording goes on in \"%s\" at %u Hz", path.c_str(), rate_);
    return begin(path);
  }

  bool writeHeader() {
    uint8_t h[kHeaderBytes];
    memcpy(h, "RIFF", 4);
    putLE32(h + 4, static_cast<uint32_t>(kHeaderBytes - 8 + dataBytes_));
    memcpy(h + 8, "WAVEfmt ", 8);
    putLE32(h + 16, 18);
    putLE16(h + 20, 3);  // IEEE float
    putLE16(h + 22, 2);
    putLE32(h + 24, rate_);
    putLE32(h + 28, rate_ * kBytesPerFrame);
    putLE16(h + 32, kBytesPerFrame);
    putLE16(h + 34, 32);
    putLE16(h + 36, 0);
    memcpy(h + 38, "fact", 4);
    putLE32(h + 42, 4);
    putLE32(h + 46, static_cast<uint32_t>(dataBytes_ / kBytesPerFrame));
    memcpy(h + 50, "data", 4);
    putLE32(h + 54, static_cast<uint32_t>(dataBytes_));
    return fwrite(h, 1, sizeof h, file_) == sizeof h;
  }

  // Completes the current file: its sizes and rate go into the header.
  void finish() {
    if (!file_) return;
    // After a failed write the file may end in part of a frame.
    if (writeFailed_ && ftruncate(fileno(file_), static_cast<off_t>(kHeaderBytes + dataBytes_)) != 0)
      outputLog(QL_LOG_ERROR, "cannot cut \"%s\" to its last frame: %s", currentPath_.c_str(), strerror(errno));
    if (fseek(file_, 0, SEEK_SET) != 0 || !writeHeader())
      outputLog(QL_LOG_ERROR, "cannot complete \"%s\": %s", currentPath_.c_str(), strerror(errno));
    if (fclose(file_) != 0)
      outputLog(QL_LOG_ERROR, "cannot close \"%s\": %s", currentPath_.c_str(), strerror(errno));
    file_ = nullptr;
    if (playback_ && !writeFailed_) playback_->noteWavFile(path_, {currentPath_, segment_, rate_});
  }

  std::string path_;         // as given; the first file
  std::string currentPath_;  // the file being written
  FILE* file_ = nullptr;
  uint64_t dataBytes_ = 0;
  bool writeFailed_ = false;  // nothing more is written
  int segment_ = 1;
  std::vector<uint32_t> swapped_;
  std::shared_ptr<OutputPlayback> playback_;  // may be null
};

}  // namespace

std::unique_ptr<OutputBackend> makeWavOutput(const std::string& path, std::shared_ptr<OutputPlayback> playback) {
  return std::make_unique<WavOutput>(path, std::move(playback));
}

}  // namespace belvane::detail
