// Reads back the WAV files the audio output writes (32-bit float with a fact
// chunk: RIFF, fmt, fact, data), checking that the sizes in its header agree
// with the file's length. Called on the test's thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace belvane::test {

struct WavFile {
  uint16_t format = 0, channels = 0, bits = 0;
  uint32_t rate = 0;
  uint64_t fileBytes = 0;
  std::vector<float> samples;  // interleaved; empty when the file is no such WAV
};

// Adds a test failure for every header size that disagrees with the file.
WavFile readWav(const std::string& path);

}  // namespace belvane::test
