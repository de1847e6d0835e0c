// MPEG audio and ADTS header parsing and the three-frame sync search.
#include "streaming/mpeg_audio_header.h"

namespace belvane::detail {

namespace {

// Kilobits per second by [version is MPEG-1 ? 0 : 1][layer - 1][index].
constexpr int kBitrates[2][3][16] = {
    {{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0},
     {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0},
     {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0}},
    {{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0}},
};
constexpr int kMpeg1Rates[3] = {44100, 48000, 32000};

constexpr int kChainLength = 3;

bool mpegChainAt(std::span<const uint8_t> bytes, size_t offset, bool& needMore) {
  auto first = parseMpegFrameHeader(bytes.subspan(offset));
  if (!first) return false;
  size_t at = offset + size_t(first->frameBytes);
  for (int i = 1; i < kChainLength; ++i) {
    if (at + 4 > bytes.size()) {
      needMore = true;
      return false;
    }
    auto next = parseMpegFrameHeader(bytes.subspan(at));
    if (!next || !sameMpegStream(*first, *next)) return false;
    at += size_t(next->frameBytes);
  }
  return true;
}

bool adtsChainAt(std::span<const uint8_t> bytes, size_t offset, bool& needMore) {
  auto first = parseAdtsFrameHeader(bytes.subspan(offset));
  if (!first) return false;
  size_t at = offset + size_t(first->frameBytes);
  for (int i = 1; i < kChainLength; ++i) {
    if (at + 7 > bytes.size()) {
      needMore = true;
      return false;
    }
    auto next = parseAdtsFrameHeader(bytes.subspan(at));
    if (!next || next->sampleRateIndex != first->sampleRateIndex) return false;
    at += size_t(next->frameBytes);
  }
  return true;
}

}  // namespace

std::optional<MpegFrameHeader> parseMpegFrameHeader(std::span<const uint8_t> b) {
  if (b.size() < 4) return std::nullopt;
  if (b[0] != 0xFF || (b[1] & 0xE0) != 0xE0) return std::nullopt;
  int versionBits = (b[1] >> 3) & 3;
  int layerBits = (b[1] >> 1) & 3;
  int bitrateIndex = (b[2] >> 4) & 15;
  int rateIndex = (b[2] >> 2) & 3;
  int padding = (b[2] >> 1) & 1;
  int emphasis = b[3] & 3;
  if (versionBits == 1 || layerBits == 0 || bitrateIndex == 0 || bitrateIndex == 15 || rateIndex == 3 ||
      emphasis == 2)
    return std::nullopt;
  MpegFrameHeader h;
  h.version = versionBits == 3 ? 10 : versionBits == 2 ? 20 : 25;
  h.layer = 4 - layerBits;
  bool mpeg1 = h.version == 10;
  h.bitrate = kBitrates[mpeg1 ? 0 : 1][h.layer - 1][bitrateIndex] * 1000;
  h.sampleRate = kMpeg1Rates[rateIndex] / (mpeg1 ? 1 : h.version == 20 ? 2 : 4);
  h.channels = ((b[3] >> 6) & 3) == 3 ? 1 : 2;
  if (h.layer == 1) {
    h.samplesPerFrame = 384;
    h.frameBytes = (12 * h.bitrate / h.sampleRate + padding) * 4;
  } else if (h.layer == 2 || mpeg1) {
    h.samplesPerFrame = 1152;
    h.frameBytes = 144 * h.bitrate / h.sampleRate + padding;
  } else {
    h.samplesPerFrame = 576;
    h.frameBytes = 72 * h.bitrate / h.sampleRate + padding;
  }
  if (h.frameBytes < 4) return std::nullopt;
  return h;
}

bool sameMpegStream(const MpegFrameHeader& a, const MpegFrameHeader& b) {
  return a.version == b.version && a.layer == b.layer && a.sampleRate == b.sampleRate;
}

std::optional<AdtsFrameHeader> parseAdtsFrameHeader(std::span<const uint8_t> b) {
  if (b.size() < 7) return std::nullopt;
  // Twelve sync bits, then the ID bit, then a layer of 00 (reserved in MPEG
  // audio headers, which is what tells the two apart).
  if (b[0] != 0xFF || (b[1] & 0xF6) != 0xF0) return std::nullopt;
  AdtsFrameHeader h;
  h.sampleRateIndex = (b[2] >> 2) & 15;
  h.channelConfiguration = ((b[2] & 1) << 2) | (b[3] >> 6);
  h.frameBytes = ((b[3] & 3) << 11) | (b[4] << 3) | (b[5] >> 5);
  if (h.sampleRateIndex > 12 || h.frameBytes < 7) return std::nullopt;
  return h;
}

AudioSync findAudioSync(std::span<const uint8_t> bytes) {
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] != 0xFF) continue;
    // Too close to the end to judge, or a chain that might complete with
    // more bytes: stop here rather than skip it.
    if (bytes.size() - i < 7) return {AudioSyncKind::None, i};
    bool needMore = false;
    if (mpegChainAt(bytes, i, needMore)) return {AudioSyncKind::Mpeg, i};
    if (adtsChainAt(bytes, i, needMore)) return {AudioSyncKind::Adts, i};
    if (needMore) return {AudioSyncKind::None, i};
  }
  return {AudioSyncKind::None, bytes.size()};
}

}  // namespace belvane::detail
