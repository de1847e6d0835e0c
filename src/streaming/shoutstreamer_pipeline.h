// StreamPipeline: the bytes of one connection, after the reply head, in;
// decoded audio and placed titles out. No sockets and no threads: the
// network side feeds it whatever arrives, and a fuzz target can feed it
// anything.
//
// The ICY demultiplexer takes the metadata blocks out; the audio bytes are
// searched for a chain of MPEG frames (an ADTS chain instead means AAC, no
// chain within the search window means this is not MPEG audio), then
// decoded frame by frame. Each title is handed to the sink just before the
// first decoded frame whose header lies at or after the metadata block, so
// the sink knows its position in the decoded audio exactly. When the decoder
// fails it is restarted at the next chain of frames; when none follows, or
// when too much input goes by without a frame, the decoder has lost sync.
// Once a time-shift asks for it, the decoder (with what it was fed and the
// titles not yet placed) is handed over at the next audio bytes, and from
// then on the pipeline only feeds the tap.
#pragma once

#include "streaming/icy_metadata.h"
#include "streaming/mpeg_decoder.h"
#include "streaming/stream_title.h"
#include "streaming/station_tap.h"
#include "streaming/time_shift.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace belvane::detail {

class PipelineSink {
 public:
  virtual ~PipelineSink() = default;
  // A title (bytes as sent, and the StreamUrl sent with it) that belongs
  // before the next audio handed over.
  virtual void title(StreamTitle title) = 0;
  // What the stream decodes as, before the first audio of a new format.
  virtual void format(const MpegDecoder::Format&) {}
  // Decoded frames, interleaved left and right. False stops the pipeline.
  virtual bool audio(const float* interleaved, size_t frames, long sampleRate) = 0;
};

class StreamPipeline : private IcyDemuxer::Handler {
 public:
  enum class Status { Ok, Stopped, Failed };

  // metaint: the reply's icy-metaint (0 for none); syncSearchBytes: how much
  // audio may go by without MPEG frames.
  StreamPipeline(uint32_t metaint, PipelineSink& sink, size_t syncSearchBytes = 64 * 1024);

  // Body bytes as they arrive.
  Status feed(std::span<const uint8_t> bytes);
  // Also hands the audio bytes and the titles, as sent, to tap (null: none).
  void setTap(StationTap* tap) { tap_ = tap; }
  // Where the decoder goes when a pause asks for it (null: nowhere).
  void setTimeShift(TimeShift* timeShift) { timeShift_ = timeShift; }
  // The input ended: hands the decoder over now if it was asked for.
  void handOverNow();
  // The input has ended: titles still waiting for audio are handed over.
  void finish();

  // When feed() returned Failed: SHOUTSTREAMER_ERROR_AAC, _NOT_MPEG or
  // _LOST_SYNC.
  int32_t error() const { return error_; }
  uint64_t framesDecoded() const { return framesDecoded_; }
  uint64_t audioBytes() const { return demuxer_.audioBytes(); }

 private:
  bool audio(std::span<const uint8_t> bytes, uint64_t offset) override;
  void metadata(std::span<const uint8_t> block, uint64_t audioOffset) override;
  bool search(std::span<const uint8_t> bytes);
  bool decodeAvailable();
  bool fail(int32_t error);
  void handOver(uint64_t offset);

  struct PendingTitle {
    uint64_t offset;
    StreamTitle title;
  };
  static constexpr size_t kMaxPendingTitles = 32;

  IcyDemuxer demuxer_;
  PipelineSink& sink_;
  size_t syncSearchBytes_;
  std::unique_ptr<MpegDecoder> decoder_;
  bool decoding_ = false;
  std::vector<uint8_t> searchBuffer_;
  uint64_t searchBufferOffset_ = 0;  // audio offset of searchBuffer_[0]
  uint64_t searchStart_ = 0;         // audio offset where this search began
  uint64_t decoderBase_ = 0;         // audio offset of the decoder's byte 0
  uint64_t bytesWithoutFrame_ = 0;
  uint64_t framesDecoded_ = 0;
  MpegDecoder::Format format_;  // the last one handed to the sink
  std::deque<PendingTitle> titles_;
  bool stopped_ = false;
  int32_t error_ = 0;
  StationTap* tap_ = nullptr;
  TimeShift* timeShift_ = nullptr;
};

}  // namespace belvane::detail
