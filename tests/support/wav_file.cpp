#include "support/wav_file.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>

namespace belvane::test {

namespace {

uint32_t le32(const std::vector<char>& b, size_t at) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<uint8_t>(b[at + i]);
  return v;
}

}  // namespace

WavFile readWav(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<char> b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  WavFile wav;
  wav.fileBytes = b.size();
  if (b.size() < 58 || memcmp(b.data(), "RIFF", 4) != 0 || memcmp(b.data() + 8, "WAVEfmt ", 8) != 0) return wav;
  EXPECT_EQ(le32(b, 4), b.size() - 8) << path;
  wav.format = le32(b, 20) & 0xFFFF;
  wav.channels = le32(b, 20) >> 16;
  wav.rate = le32(b, 24);
  wav.bits = le32(b, 34) & 0xFFFF;
  EXPECT_EQ(0, memcmp(b.data() + 50, "data", 4)) << path;
  uint32_t dataBytes = le32(b, 54);
  EXPECT_EQ(dataBytes, b.size() - 58) << path;
  EXPECT_EQ(le32(b, 46), dataBytes / 8) << path;  // fact: frames
  EXPECT_EQ(dataBytes % 8, 0u) << path << ": whole stereo float frames";
  wav.samples.resize(dataBytes / 4);
  memcpy(wav.samples.data(), b.data() + 58, wav.samples.size() * 4);
  return wav;
}

}  // namespace belvane::test
