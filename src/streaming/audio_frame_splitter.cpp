// AudioFrameSplitter: whole MPEG or ADTS frames, or Ogg pages, out of audio bytes.
#include "streaming/audio_frame_splitter.h"

#include <algorithm>
#include <cstring>

namespace belvane::detail {

namespace {
constexpr uint32_t kAdtsRates[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                     16000, 12000, 11025, 8000,  7350,  0,     0,     0};
}  // namespace

bool AudioFrameSplitter::nextFrame(size_t at, AudioFrame* frame, bool* needMore) const {
  std::span<const uint8_t> rest = std::span<const uint8_t>(pending_).subspan(at);
  *needMore = false;
  size_t length = 0;
  if (kind_ == AudioSyncKind::Mpeg) {
    if (rest.size() < 4) return *needMore = true, false;
    auto header = parseMpegFrameHeader(rest);
    if (!header) return false;
    length = size_t(header->frameBytes);
    frame->samples = uint32_t(header->samplesPerFrame);
    frame->sampleRate = uint32_t(header->sampleRate);
  } else {
    if (rest.size() < 7) return *needMore = true, false;
    auto header = parseAdtsFrameHeader(rest);
    if (!header || kAdtsRates[header->sampleRateIndex & 15] == 0) return false;
    length = size_t(header->frameBytes);
    frame->samples = 1024u * ((rest[6] & 0x03u) + 1u);  // raw data blocks in the frame
    frame->sampleRate = kAdtsRates[header->sampleRateIndex & 15];
  }
  if (rest.size() < length) return *needMore = true, false;
  frame->bytes = rest.first(length);
  frame->streamOffset = pendingOffset_ + at;
  return true;
}

bool AudioFrameSplitter::findOgg(size_t from, size_t before, size_t* at) const {
  static constexpr uint8_t kCapture[] = {'O', 'g', 'g', 'S', 0};  // capture pattern and version 0
  auto end = pending_.begin() + ptrdiff_t(std::min(before + sizeof kCapture, pending_.size()));
  auto found = std::search(pending_.begin() + ptrdiff_t(from), end, std::begin(kCapture), std::end(kCapture));
  if (found == end) return false;
  *at = size_t(found - pending_.begin());
  return true;
}

void AudioFrameSplitter::feed(std::span<const uint8_t> bytes, const FrameHandler& onFrame) {
  fed_ += bytes.size();
  if (kind_ == AudioSyncKind::Ogg) {
    ogg_.feed(bytes, [&](const OggPage& page) {
      onFrame({page.bytes, pendingOffset_ + page.streamOffset, page.samples, page.sampleRate, page.chainStart,
               page.header});
    });
    return;
  }
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
  size_t at = 0;
  for (;;) {
    if (!synced_) {
      AudioSync sync = findAudioSync(std::span<const uint8_t>(pending_).subspan(at));
      size_t ogg = 0;
      if (findOgg(at, sync.kind == AudioSyncKind::None ? pending_.size() : at + sync.offset, &ogg)) {
        // Pages from here on; their offsets count from the capture pattern.
        kind_ = AudioSyncKind::Ogg;
        std::vector<uint8_t> rest(pending_.begin() + ptrdiff_t(ogg), pending_.end());
        pendingOffset_ += ogg;
        pending_.clear();
        fed_ -= rest.size();
        feed(rest, onFrame);
        return;
      }
      if (sync.kind == AudioSyncKind::None) {
        at += sync.offset;
        // A search that can find nothing keeps only its tail.
        if (pending_.size() - at > kSearchLimit) at = pending_.size() - kSearchLimit;
        break;
      }
      at += sync.offset;
      kind_ = sync.kind;
      synced_ = true;
    }
    AudioFrame frame;
    bool needMore = false;
    if (!nextFrame(at, &frame, &needMore)) {
      if (needMore) break;
      synced_ = false;  // not a frame where the last one ended: look for the next chain
      ++at;
      continue;
    }
    onFrame(frame);
    at += frame.bytes.size();
  }
  pending_.erase(pending_.begin(), pending_.begin() + ptrdiff_t(at));
  pendingOffset_ += at;
}

void AudioFrameSplitter::restart() {
  if (kind_ == AudioSyncKind::Ogg) {
    ogg_.restart();
    return;
  }
  pendingOffset_ += pending_.size();
  pending_.clear();
  synced_ = false;
}

}  // namespace belvane::detail
