// The time-shift ring's memory and cost: ten minutes of a station fed
// through a StationTap (frame splitting, the ring's index and chunks), for
// a 128 kbit/s MP3 station (417-byte frames) and a 32 kbit/s AAC station
// (93-byte ADTS frames, the smallest frames, where the index weighs most).
// Reported: the ring's memory (chunk buffers, index, titles, by capacity)
// against the compressed bytes it holds in memory (the goal is at most
// 1.1), and with a 2 MiB memory bound the bytes that went to disk. The
// frames are headers and silence: what the ring does not look at.
//
//   bench_station_ring [--benchmark_repetitions=5]
#include "streaming/station_tap.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

using belvane::detail::StationRingSettings;
using belvane::detail::StationTap;

namespace {

struct Station {
  std::vector<uint8_t> frame;
  double framesPerSecond;
};

// MPEG-1 layer III, 128 kbit/s, 44.1 kHz, no padding: 417 bytes, 1152 samples.
Station mp3Station() {
  std::vector<uint8_t> frame(417, 0);
  frame[0] = 0xFF, frame[1] = 0xFB, frame[2] = 0x90, frame[3] = 0x00;
  return {frame, 44100.0 / 1152};
}

// AAC LC in ADTS, 44.1 kHz stereo, 93 bytes a frame of 1024 samples (32 kbit/s).
Station aacStation() {
  const size_t length = 93;
  std::vector<uint8_t> frame(length, 0);
  frame[0] = 0xFF, frame[1] = 0xF1, frame[2] = 0x50, frame[3] = uint8_t(0x80 | ((length >> 11) & 3));
  frame[4] = uint8_t((length >> 3) & 0xFF), frame[5] = uint8_t(((length & 7) << 5) | 0x1F), frame[6] = 0xFC;
  return {frame, 44100.0 / 1024};
}

void feedTenMinutes(benchmark::State& state, const Station& station, size_t memoryBytes) {
  const size_t frames = size_t(station.framesPerSecond * 600);
  // The body arrives in pieces of 4 KiB, as a connection hands it over.
  std::vector<uint8_t> body;
  while (body.size() < 4096) body.insert(body.end(), station.frame.begin(), station.frame.end());
  const size_t framesPerPiece = body.size() / station.frame.size();
  StationTap::Reading reading;
  for (auto _ : state) {
    StationTap tap(StationRingSettings{.minutes = 10, .memoryBytes = memoryBytes, .diskFolder = {}});
    tap.connectionStarted();
    for (size_t fed = 0; fed < frames; fed += framesPerPiece) {
      if (fed % (framesPerPiece * 200) == 0) tap.title({"Artist - Song " + std::to_string(fed), ""});
      tap.audio(body);
    }
    reading = tap.reading();
  }
  state.counters["seconds_held"] = reading.secondsHeld;
  state.counters["MiB_in_memory"] = double(reading.bytesInMemory) / (1 << 20);
  state.counters["MiB_on_disk"] = double(reading.bytesHeld - reading.bytesInMemory) / (1 << 20);
  state.counters["memory_ratio"] = double(reading.memoryUsed) / double(reading.bytesInMemory);
  state.counters["frames_per_s"] = benchmark::Counter(double(frames), benchmark::Counter::kIsIterationInvariantRate);
}

void BM_RingMP3_128k(benchmark::State& state) { feedTenMinutes(state, mp3Station(), 16 << 20); }
void BM_RingAAC_32k(benchmark::State& state) { feedTenMinutes(state, aacStation(), 16 << 20); }
void BM_RingMP3_128k_2MiBThenDisk(benchmark::State& state) { feedTenMinutes(state, mp3Station(), 2 << 20); }

BENCHMARK(BM_RingMP3_128k)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RingAAC_32k)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RingMP3_128k_2MiBThenDisk)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
