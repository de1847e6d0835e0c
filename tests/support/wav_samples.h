// The samples of a WAV file the "wav:PATH" output wrote (32-bit float,
// interleaved), for tests that compare what two playbacks wrote.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace belvane::test {

// The data chunk's floats; empty when the file is missing or has none.
inline std::vector<float> wavSamples(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  for (size_t at = 12; at + 8 <= bytes.size();) {
    uint32_t size = 0;
    std::memcpy(&size, bytes.data() + at + 4, 4);
    if (bytes.compare(at, 4, "data") == 0) {
      const size_t held = bytes.size() - at - 8;  // a file still open may not give its size yet
      const size_t length = (size == 0 || size > held ? held : size) / sizeof(float);
      std::vector<float> samples(length);
      if (length > 0) std::memcpy(samples.data(), bytes.data() + at + 8, length * sizeof(float));
      return samples;
    }
    at += 8 + size + (size & 1);
  }
  return {};
}

}  // namespace belvane::test
