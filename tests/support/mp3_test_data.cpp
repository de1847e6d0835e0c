// Test audio: sine tones through lame, frame splitting, ADTS and noise.
#include "support/mp3_test_data.h"

#include "support/temp_dir.h"

#include <glib.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>

namespace belvane::test {

namespace {

void putLE(std::string& out, uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out += char((value >> (8 * i)) & 0xFF);
}

std::string sineWAV(int sampleRate, int channels, double seconds, double frequency, double level) {
  auto frames = uint32_t(sampleRate * seconds);
  uint32_t dataBytes = frames * uint32_t(channels) * 2;
  std::string wav = "RIFF";
  putLE(wav, 36 + dataBytes, 4);
  wav += "WAVEfmt ";
  putLE(wav, 16, 4);
  putLE(wav, 1, 2);  // PCM
  putLE(wav, uint32_t(channels), 2);
  putLE(wav, uint32_t(sampleRate), 4);
  putLE(wav, uint32_t(sampleRate * channels * 2), 4);
  putLE(wav, uint32_t(channels * 2), 2);
  putLE(wav, 16, 2);
  wav += "data";
  putLE(wav, dataBytes, 4);
  for (uint32_t i = 0; i < frames; ++i) {
    auto sample = int16_t(8000 * level * std::sin(2 * M_PI * frequency * i / sampleRate));
    for (int c = 0; c < channels; ++c) putLE(wav, uint16_t(sample), 2);
  }
  return wav;
}

// Layer III bitrates in kbit/s: MPEG-1, then MPEG-2 and 2.5.
constexpr int kLayer3Kbps[2][15] = {{0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
                                    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}};
constexpr int kRates[3][3] = {{44100, 48000, 32000}, {22050, 24000, 16000}, {11025, 12000, 8000}};

}  // namespace

uint64_t Mp3Data::totalSamples() const {
  uint64_t total = 0;
  for (auto& f : frames) total += uint64_t(f.samples);
  return total;
}

bool lameAvailable() {
  static bool available = [] {
    char* path = g_find_program_in_path("lame");
    g_free(path);
    return path != nullptr;
  }();
  return available;
}

Mp3Data splitMp3Frames(const std::string& bytes) {
  Mp3Data data;
  auto b = reinterpret_cast<const uint8_t*>(bytes.data());
  size_t at = 0;
  while (at + 4 <= bytes.size()) {
    if (b[at] != 0xFF || (b[at + 1] & 0xE6) != 0xE2) break;  // sync, layer III
    int versionBits = (b[at + 1] >> 3) & 3;
    int bitrateIndex = b[at + 2] >> 4, rateIndex = (b[at + 2] >> 2) & 3, padding = (b[at + 2] >> 1) & 1;
    if (versionBits == 1 || bitrateIndex == 0 || bitrateIndex == 15 || rateIndex == 3) break;
    bool mpeg1 = versionBits == 3;
    int rate = kRates[mpeg1 ? 0 : versionBits == 2 ? 1 : 2][rateIndex];
    int bitrate = kLayer3Kbps[mpeg1 ? 0 : 1][bitrateIndex] * 1000;
    size_t size = size_t((mpeg1 ? 144 : 72) * bitrate / rate + padding);
    if (at + size > bytes.size()) break;
    data.frames.push_back({data.bytes.size(), size, mpeg1 ? 1152 : 576});
    data.bytes.append(bytes, at, size);
    data.sampleRate = rate;
    data.channels = ((b[at + 3] >> 6) & 3) == 3 ? 1 : 2;
    at += size;
  }
  return data;
}

Mp3Data encodeTone(int sampleRate, int channels, int kbps, double seconds, double frequency, double level) {
  if (!lameAvailable()) return {};
  TempDir dir;
  std::string wav = dir.write("tone.wav", sineWAV(sampleRate, channels, seconds, frequency, level));
  std::string mp3 = dir.path() + "/tone.mp3";
  std::string bitrate = std::to_string(kbps);
  // -t: no Xing/LAME tag frame, whose silent frame would shift positions.
  const char* argv[] = {"lame", "--quiet", "-t", "--cbr", "-b", bitrate.c_str(), "-m", channels == 1 ? "m" : "j",
                        wav.c_str(), mp3.c_str(), nullptr};
  int status = 0;
  if (!g_spawn_sync(nullptr, const_cast<char**>(argv), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, nullptr,
                    nullptr, &status, nullptr) ||
      !g_spawn_check_wait_status(status, nullptr))
    return {};
  std::ifstream in(mp3, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return splitMp3Frames(bytes);
}

const Mp3Data* stereoTone44k() {
  static const std::optional<Mp3Data> data = [] {
    Mp3Data d = encodeTone(44100, 2, 128, 4.0, 440.0);
    return d.frames.empty() ? std::nullopt : std::optional<Mp3Data>(std::move(d));
  }();
  return data ? &*data : nullptr;
}

const Mp3Data* monoTone22k() {
  static const std::optional<Mp3Data> data = [] {
    Mp3Data d = encodeTone(22050, 1, 64, 4.0, 660.0);
    return d.frames.empty() ? std::nullopt : std::optional<Mp3Data>(std::move(d));
  }();
  return data ? &*data : nullptr;
}

Mp3Data splitAdtsFrames(const std::string& bytes) {
  static const int kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000};
  Mp3Data data;
  size_t at = 0;
  while (at + 7 <= bytes.size()) {
    auto b = [&](size_t i) { return unsigned(uint8_t(bytes[at + i])); };
    if (b(0) != 0xFF || (b(1) & 0xF6) != 0xF0) break;
    size_t length = ((b(3) & 3) << 11) | (b(4) << 3) | (b(5) >> 5);
    if (length < 7 || at + length > bytes.size()) break;
    if (data.frames.empty()) {
      unsigned rateIndex = (b(2) >> 2) & 0xF;
      data.sampleRate = rateIndex < 12 ? kRates[rateIndex] : 0;
      data.channels = int(((b(2) & 1) << 2) | (b(3) >> 6));
    }
    data.frames.push_back({at, length, 1024});
    at += length;
  }
  data.bytes = bytes.substr(0, at);
  return data;
}

std::string adtsFrames(int count) {
  constexpr unsigned kLength = 371;
  std::string out;
  for (int i = 0; i < count; ++i) {
    // MPEG-4 AAC LC, 44.1 kHz, two channels, no CRC.
    const unsigned char header[7] = {0xFF, 0xF1, 0x50, static_cast<unsigned char>(0x80 | (kLength >> 11)),
                                     static_cast<unsigned char>((kLength >> 3) & 0xFF),
                                     static_cast<unsigned char>(((kLength & 7) << 5) | 0x1F), 0xFC};
    out.append(reinterpret_cast<const char*>(header), 7);
    for (unsigned k = 7; k < kLength; ++k) out += char(0x21 + (k + unsigned(i)) % 90);
  }
  return out;
}

std::string noiseBytes(size_t count, uint32_t seed) {
  std::string out(count, '\0');
  uint32_t x = seed ? seed : 1;
  for (auto& c : out) {
    x = x * 1664525u + 1013904223u;
    auto byte = uint8_t(x >> 24);
    c = char(byte == 0xFF ? 0xFE : byte);
  }
  return out;
}

std::string id3v2Tag(int version, const std::vector<std::pair<std::string, std::string>>& frames) {
  auto bigEndian = [](uint32_t n, int bytes) {
    std::string out;
    for (int i = bytes - 1; i >= 0; --i) out += char((n >> (8 * i)) & 0xFF);
    return out;
  };
  std::string body;
  for (const auto& [id, text] : frames) {
    std::string payload = (version == 4 ? '\3' : '\0') + text;  // UTF-8 in v2.4, else ISO-8859-1
    // Short frames: their size reads the same in v2.4's synchsafe form.
    body += id + bigEndian(uint32_t(payload.size()), version == 2 ? 3 : 4) +
            (version == 2 ? "" : std::string(2, '\0')) + payload;
  }
  uint32_t n = uint32_t(body.size());
  std::string size{char((n >> 21) & 0x7F), char((n >> 14) & 0x7F), char((n >> 7) & 0x7F), char(n & 0x7F)};
  return std::string("ID3") + char(version) + '\0' + '\0' + size + body;
}

std::string id3v1Tag(const std::string& title, const std::string& artist, const std::string& album,
                     const std::string& year, uint8_t genre) {
  auto field = [](std::string s, size_t n) { return s.append(n - s.size(), '\0'); };
  return "TAG" + field(title, 30) + field(artist, 30) + field(album, 30) + field(year, 4) + field("", 30) +
         char(genre);
}

}  // namespace belvane::test
