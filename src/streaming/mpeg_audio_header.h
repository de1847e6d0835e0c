// MPEG audio and AAC ADTS frame headers, and the sniffer that finds where a
// byte stream's audio frames begin.
//
// A stream is taken to be MPEG audio (or AAC in ADTS framing) only where
// three frame headers of the same kind follow each other at the distances
// their lengths give; a lone matching header is far too common in random
// bytes to mean anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace belvane::detail {

struct MpegFrameHeader {
  int version = 0;  // 10 for MPEG-1, 20 for MPEG-2, 25 for MPEG-2.5
  int layer = 0;    // 1 to 3
  int bitrate = 0;  // bits per second
  int sampleRate = 0;
  int channels = 0;
  int frameBytes = 0;
  int samplesPerFrame = 0;
};

// The header in the first four bytes, if they are one (free-format and
// reserved values are rejected).
std::optional<MpegFrameHeader> parseMpegFrameHeader(std::span<const uint8_t> bytes);

// Whether two headers belong to one stream (version, layer, sample rate).
bool sameMpegStream(const MpegFrameHeader& a, const MpegFrameHeader& b);

struct AdtsFrameHeader {
  int sampleRateIndex = 0;
  int channelConfiguration = 0;
  int frameBytes = 0;
};

// The AAC ADTS header in the first seven bytes, if they are one.
std::optional<AdtsFrameHeader> parseAdtsFrameHeader(std::span<const uint8_t> bytes);

// Ogg: pages rather than frames (found by AudioFrameSplitter, never by
// findAudioSync).
enum class AudioSyncKind { None, Mpeg, Adts, Ogg };

struct AudioSync {
  AudioSyncKind kind = AudioSyncKind::None;
  size_t offset = 0;  // where the first frame of the chain starts
};

// Looks for the first chain of three consistent frames in bytes. Kind None
// means there is none yet; its offset then says how many leading bytes can
// be dropped, since no chain can start in them whatever follows.
AudioSync findAudioSync(std::span<const uint8_t> bytes);

}  // namespace belvane::detail
