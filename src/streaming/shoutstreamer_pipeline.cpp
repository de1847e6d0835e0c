// StreamPipeline: demultiplex, find the frames, decode, place the titles.
#include "streaming/shoutstreamer_pipeline.h"

#include "streaming/mpeg_audio_header.h"
#include "streaming/shoutstreamer.h"

namespace belvane::detail {

StreamPipeline::StreamPipeline(uint32_t metaint, PipelineSink& sink, size_t syncSearchBytes)
    : demuxer_(metaint), sink_(sink), syncSearchBytes_(syncSearchBytes) {}

StreamPipeline::Status StreamPipeline::feed(std::span<const uint8_t> bytes) {
  if (error_) return Status::Failed;
  if (stopped_) return Status::Stopped;
  demuxer_.feed(bytes, *this);
  if (error_) return Status::Failed;
  return stopped_ ? Status::Stopped : Status::Ok;
}

void StreamPipeline::finish() {
  while (!titles_.empty()) {
    sink_.title(std::move(titles_.front().title));
    titles_.pop_front();
  }
}

bool StreamPipeline::fail(int32_t error) {
  error_ = error;
  return false;
}

void StreamPipeline::handOverNow() {
  if (timeShift_ && timeShift_->wantsDecoder()) handOver(demuxer_.audioBytes());
}

// Between two chunks the decoder has had every audio byte before offset.
void StreamPipeline::handOver(uint64_t offset) {
  std::deque<TimeShift::PendingTitle> titles;
  for (auto& title : titles_)
    titles.push_back({title.offset > decoderBase_ ? title.offset - decoderBase_ : 0, std::move(title.title)});
  titles_.clear();
  const uint64_t fed = decoding_ && offset >= decoderBase_ ? offset - decoderBase_ : 0;
  timeShift_->handOver(decoding_ ? std::move(decoder_) : nullptr, fed, std::move(titles), format_);
  decoding_ = false;
  searchBuffer_.clear();
}

bool StreamPipeline::audio(std::span<const uint8_t> bytes, uint64_t offset) {
  if (timeShift_) {
    if (timeShift_->wantsDecoder()) handOver(offset);
    if (timeShift_->hasDecoder()) {
      if (tap_) tap_->audio(bytes);
      return true;
    }
  }
  if (tap_) tap_->audio(bytes);
  if (!decoding_) {
    if (searchBuffer_.empty()) searchBufferOffset_ = offset;
    return search(bytes);
  }
  if (!decoder_->feed(bytes)) return fail(SHOUTSTREAMER_ERROR_INTERNAL);
  bytesWithoutFrame_ += bytes.size();
  return decodeAvailable();
}

void StreamPipeline::metadata(std::span<const uint8_t> block, uint64_t audioOffset) {
  auto title = streamTitleFromMetadata(block);
  if (!title) return;
  if (tap_) tap_->title({*title, streamURLFromMetadata(block).value_or("")});
  if (timeShift_ && timeShift_->hasDecoder()) return;  // the ring places it
  if (titles_.size() == kMaxPendingTitles) titles_.pop_front();
  titles_.push_back({audioOffset, {std::move(*title), streamURLFromMetadata(block).value_or("")}});
}

bool StreamPipeline::search(std::span<const uint8_t> bytes) {
  searchBuffer_.insert(searchBuffer_.end(), bytes.begin(), bytes.end());
  AudioSync sync = findAudioSync(searchBuffer_);
  if (sync.kind == AudioSyncKind::Adts) return fail(SHOUTSTREAMER_ERROR_AAC);
  if (sync.kind == AudioSyncKind::None) {
    searchBuffer_.erase(searchBuffer_.begin(), searchBuffer_.begin() + ptrdiff_t(sync.offset));
    searchBufferOffset_ += sync.offset;
    if (searchBufferOffset_ + searchBuffer_.size() - searchStart_ > syncSearchBytes_)
      return fail(framesDecoded_ > 0 ? SHOUTSTREAMER_ERROR_LOST_SYNC : SHOUTSTREAMER_ERROR_NOT_MPEG);
    return true;
  }
  if (!decoder_) decoder_ = std::make_unique<MpegDecoder>();
  if (!decoder_->valid() || !decoder_->reset()) return fail(SHOUTSTREAMER_ERROR_INTERNAL);
  decoderBase_ = searchBufferOffset_ + sync.offset;
  std::span<const uint8_t> audio(searchBuffer_);
  audio = audio.subspan(sync.offset);
  decoding_ = true;
  bytesWithoutFrame_ = audio.size();
  bool fed = decoder_->feed(audio);
  searchBuffer_.clear();
  if (!fed) return fail(SHOUTSTREAMER_ERROR_INTERNAL);
  return decodeAvailable();
}

bool StreamPipeline::decodeAvailable() {
  MpegDecoder::Frame frame;
  while (true) {
    switch (decoder_->next(frame)) {
      case MpegDecoder::Status::NeedMore:
        if (bytesWithoutFrame_ > syncSearchBytes_) return fail(SHOUTSTREAMER_ERROR_LOST_SYNC);
        return true;
      case MpegDecoder::Status::Error:
        // Start over at the next chain of frames after what was fed.
        decoding_ = false;
        searchStart_ = demuxer_.audioBytes();
        searchBufferOffset_ = searchStart_;
        return true;
      case MpegDecoder::Status::Frame: {
        uint64_t position = decoderBase_ + frame.inputOffset;
        while (!titles_.empty() && titles_.front().offset <= position) {
          sink_.title(std::move(titles_.front().title));
          titles_.pop_front();
        }
        if (decoder_->format() != format_) {
          format_ = decoder_->format();
          sink_.format(format_);
        }
        bytesWithoutFrame_ = 0;
        framesDecoded_ += frame.frames;
        if (!sink_.audio(frame.samples, frame.frames, frame.sampleRate)) {
          stopped_ = true;
          return false;
        }
        break;
      }
    }
  }
}

}  // namespace belvane::detail
