// AudioFrameSplitter: a station's audio bytes (after the ICY split) in, its
// codec frames out whole, each with its length in samples. MPEG audio and
// AAC in ADTS framing are recognised by the three-frame chain that the
// decoders also look for; bytes before the chain, and bytes after a frame
// that does not start another, are skipped until the next chain. An Ogg
// stream (its capture pattern found before any such chain) is split into
// pages instead, chain by chain (OggPageSplitter). Other codecs (raw AAC)
// give no frames. Plain data: one thread feeds it.
#pragma once

#include "streaming/mpeg_audio_header.h"
#include "streaming/ogg_page_splitter.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace belvane::detail {

struct AudioFrame {
  std::span<const uint8_t> bytes;
  uint64_t streamOffset = 0;  // the first byte's place among all audio bytes fed
  uint32_t samples = 0;       // per channel
  uint32_t sampleRate = 0;
  bool chainStart = false;  // Ogg: the first page of a chain (a song of its own)
  bool header = false;      // Ogg: a page of the chain's codec headers
};

class AudioFrameSplitter {
 public:
  using FrameHandler = std::function<void(const AudioFrame&)>;

  // Audio bytes in order; each whole frame goes to onFrame before feed returns.
  void feed(std::span<const uint8_t> bytes, const FrameHandler& onFrame);
  // The stream broke off (a new connection): a frame cut short is dropped
  // and the next chain is looked for.
  void restart();

  AudioSyncKind kind() const { return kind_; }  // of the last chain found
  uint64_t bytesFed() const { return fed_; }
  // While in step with the frames: the bytes of the next frame fed so far
  // (its start lies that many bytes before bytesFed()); nullopt when not.
  std::optional<size_t> partialFrameBytes() const {
    if (kind_ == AudioSyncKind::Ogg) return ogg_.partialPageBytes();
    return synced_ ? std::optional<size_t>(pending_.size()) : std::nullopt;
  }
  // The Ogg chain being split (when kind() is Ogg): its title, headers and
  // file extension.
  const OggPageSplitter& ogg() const { return ogg_; }

 private:
  // Bytes that may hold no chain before they are dropped unsearched.
  static constexpr size_t kSearchLimit = 64 * 1024;

  bool nextFrame(size_t at, AudioFrame* frame, bool* needMore) const;
  // Whether an Ogg page starts in the pending bytes before `before`; where.
  bool findOgg(size_t from, size_t before, size_t* at) const;

  std::vector<uint8_t> pending_;
  uint64_t pendingOffset_ = 0;  // stream offset of pending_[0]
  uint64_t fed_ = 0;
  bool synced_ = false;
  AudioSyncKind kind_ = AudioSyncKind::None;
  OggPageSplitter ogg_;
};

}  // namespace belvane::detail
