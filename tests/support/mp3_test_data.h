// MP3 test audio made here, not taken from anywhere: a sine tone written as
// a WAV file and encoded by the `lame` command (CBR, no encoder tag frame),
// split into its frames so that a test server knows where every frame
// starts and how many samples it holds. Also AAC ADTS frames and bytes that
// are no audio at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace belvane::test {

struct Mp3Frame {
  size_t offset = 0;  // in Mp3Data::bytes
  size_t size = 0;
  int samples = 0;    // per channel
};

struct Mp3Data {
  std::string bytes;  // whole frames only
  std::vector<Mp3Frame> frames;
  int sampleRate = 0;
  int channels = 0;
  uint64_t totalSamples() const;
};

// Whether the lame encoder is installed (tests that need MP3 skip without it).
bool lameAvailable();

// Four seconds of 44.1 kHz stereo at 128 kbit/s and of 22.05 kHz mono at
// 64 kbit/s (MPEG-2, 576 samples per frame); encoded once per process, null
// without lame.
const Mp3Data* stereoTone44k();
const Mp3Data* monoTone22k();

// Encodes `seconds` of a sine tone (at `level` times the usual amplitude of
// 8000 in 16 bits); empty data when lame is missing or fails.
Mp3Data encodeTone(int sampleRate, int channels, int kbps, double seconds, double frequency, double level = 1.0);

// Splits MPEG-1/2 layer III bytes into frames (stops at the first byte that
// does not start a frame).
Mp3Data splitMp3Frames(const std::string& bytes);

// Splits AAC ADTS bytes into frames of 1024 samples each (stops at the first
// byte that does not start a frame), so a server can serve real AAC with its
// titles placed like MP3's.
Mp3Data splitAdtsFrames(const std::string& bytes);
// `count` AAC ADTS frames (44.1 kHz stereo headers, filler payload).
std::string adtsFrames(int count);
// Bytes that hold no frame sync at all (no 0xFF byte), from a fixed seed.
std::string noiseBytes(size_t count, uint32_t seed = 1);
// ID3 tags written byte by byte, to put before (v2.2, v2.3, v2.4: frame id
// and text) or after (v1) MP3 frames.
std::string id3v2Tag(int version, const std::vector<std::pair<std::string, std::string>>& frames);
std::string id3v1Tag(const std::string& title, const std::string& artist, const std::string& album,
                     const std::string& year, uint8_t genre);

}  // namespace belvane::test

#define BELVANE_SKIP_WITHOUT_LAME()                                              \
  do {                                                                          \
    if (!::belvane::test::lameAvailable()) GTEST_SKIP() << "lame is not installed"; \
  } while (0)
