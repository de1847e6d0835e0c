// The audio path's waits: how soon a writer blocked on a paced output comes
// back when the delivery is interrupted, and the CPU that paced streams cost.
//
// Stop latency: a writer thread writes silence to the paced "null" output
// (which takes frames at their real rate) and then plays out; the main
// thread interrupts it at a varying moment while it is blocked writing
// (flow control) or playing out, and times the interrupt to the writer's
// return. Reported per phase: mean (the manual time), median and worst, in
// microseconds, over `BELVANE_BENCH_STOPS` interrupts (default 40).
//
// Paced streams: `BELVANE_BENCH_STREAMS` (default 20) writer threads each
// write `BELVANE_BENCH_AUDIO_SECONDS` (default 10) of audio in 1152-frame
// blocks to its own paced output, with a title due every second (its
// audio is waited for, then the title is announced on the main loop), and
// play out. Reported: the process CPU time (user + system) per second of
// audio delivered.
//
//   bench_audio_delivery [--benchmark_filter=...]
#include "players/audio_delivery.h"

#include <belvane/BVAudioOutputSetting.h>
#include <belvane/BVRunLoop.h>
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using belvane::detail::AudioDelivery;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kRate = 44100;
constexpr int kBlock = 1152;

int envInt(const char* name, int fallback) {
  const char* v = std::getenv(name);
  return v ? std::max(1, std::atoi(v)) : fallback;
}

std::shared_ptr<AudioDelivery> pacedDelivery() {
  auto delivery = AudioDelivery::create();
  delivery->setOutput(*BVAudioOutputSetting::fromString("null"));
  if (delivery->start() != 0) std::abort();
  return delivery;
}

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

enum class Phase { Writing, PlayingOut };

// One interrupt: the writer writes `seconds` of audio (the device buffer
// fills after a fraction of a second, then each write waits for room) and
// plays out; the main thread interrupts it `after` the phase began.
double stopLatencyMicros(Phase phase, Clock::duration after) {
  auto delivery = pacedDelivery();
  std::vector<float> silence(kBlock, 0.0f);
  std::atomic<bool> inPhase{false}, stopping{false};
  std::atomic<int64_t> returnedAt{0};
  std::thread writer([&] {
    float* channels[2] = {silence.data(), silence.data()};
    const int blocks = phase == Phase::Writing ? 10 * kRate / kBlock : kRate / (10 * kBlock);
    for (int i = 0; i < blocks; ++i) {
      if (phase == Phase::Writing && i == kRate / kBlock) inPhase = true;  // a second in: the buffer is full
      delivery->write(kRate, channels, kBlock);
      if (stopping) break;
    }
    if (phase == Phase::PlayingOut) {
      inPhase = true;
      delivery->playOut();
    }
    returnedAt = Clock::now().time_since_epoch().count();
  });
  while (!inPhase) std::this_thread::sleep_for(std::chrono::microseconds(200));
  std::this_thread::sleep_for(after);
  stopping = true;
  auto interruptedAt = Clock::now();
  delivery->interrupt();
  writer.join();
  auto returned = Clock::time_point(Clock::duration(returnedAt.load()));
  return std::chrono::duration<double, std::micro>(returned - interruptedAt).count();
}

void stopLatency(benchmark::State& state, Phase phase) {
  const int stops = envInt("BELVANE_BENCH_STOPS", 40);
  std::vector<double> micros;
  for (auto _ : state) {
    micros.clear();
    for (int i = 0; i < stops; ++i) {
      // Spread over the phase: 3 to 40 ms in (a playout lasts about 150 ms).
      auto after = std::chrono::microseconds(3000 + (i * 37000) / stops);
      micros.push_back(stopLatencyMicros(phase, after));
    }
    double sum = 0;
    for (double m : micros) sum += m;
    state.SetIterationTime(sum / micros.size() / 1e6);
  }
  std::sort(micros.begin(), micros.end());
  state.counters["median_us"] = micros[micros.size() / 2];
  state.counters["worst_us"] = micros.back();
  state.counters["mean_us"] = [&] {
    double sum = 0;
    for (double m : micros) sum += m;
    return sum / micros.size();
  }();
}

void BM_StopLatencyWriting(benchmark::State& state) { stopLatency(state, Phase::Writing); }
void BM_StopLatencyPlayingOut(benchmark::State& state) { stopLatency(state, Phase::PlayingOut); }

void BM_PacedStreamsCpu(benchmark::State& state) {
  const int streams = envInt("BELVANE_BENCH_STREAMS", 20);
  const int seconds = envInt("BELVANE_BENCH_AUDIO_SECONDS", 10);
  BVRunLoop loop = BVRunLoop::current();
  double cpuPerAudioSecond = 0;
  for (auto _ : state) {
    std::vector<std::shared_ptr<AudioDelivery>> deliveries;
    for (int i = 0; i < streams; ++i) deliveries.push_back(pacedDelivery());
    std::atomic<int> finished{0};
    const double cpuBefore = cpuSeconds();
    const auto wallBefore = Clock::now();
    std::vector<std::thread> writers;
    for (auto& delivery : deliveries) {
      writers.emplace_back([&, delivery] {
        std::vector<float> silence(kBlock, 0.0f);
        float* channels[2] = {silence.data(), silence.data()};
        const int blocks = seconds * kRate / kBlock;
        for (int i = 0; i < blocks; ++i) {
          // A title whose audio starts half a block into the next block.
          if (i % (kRate / kBlock) == 0) delivery->title({"Song " + std::to_string(i), ""}, kBlock + kBlock / 2);
          delivery->write(kRate, channels, kBlock);
        }
        delivery->playOut();
        ++finished;
        loop.perform([] {});  // wakes the loop to look at `finished`
      });
    }
    loop.runUntil([&] { return finished == streams; }, 10.0 * seconds + 30);
    for (auto& writer : writers) writer.join();
    const double cpu = cpuSeconds() - cpuBefore;
    const double wall = std::chrono::duration<double>(Clock::now() - wallBefore).count();
    cpuPerAudioSecond = cpu / (double(streams) * seconds);
    state.SetIterationTime(wall);
    for (auto& delivery : deliveries) delivery->stop();
  }
  state.counters["cpu_ms_per_audio_s"] = cpuPerAudioSecond * 1000;
  state.counters["streams"] = streams;
}

}  // namespace

BENCHMARK(BM_StopLatencyWriting)->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StopLatencyPlayingOut)->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PacedStreamsCpu)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
