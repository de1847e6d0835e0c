// CPU cost of loudness normalisation per second of audio, against the cost
// of decoding that second: a minute of 128 kbit/s stereo MP3 (the pink noise
// under a sweeping tone of the streaming benchmarks) is decoded by our
// libmpg123 decoder, four MPEG frames at a time, and each block, still warm
// as the player's would be, is handed to the LoudnessControl (normalisation
// on) in pieces of at most 2048 frames, as the MP3 stream's delivery thread
// hands audio to the output. Both sides are timed in the same run, call by
// call, on the wall clock: a repetition in which the machine took the
// processor away shows as an outlier, so the minima are the figures to
// compare.
//
// BM_DecodeThenNormalise: the control as it ships (the meter on a sample of
// the audio, see loudness_meter.h). BM_DecodeThenMeterEverySample: libebur128
// fed every sample, the alternative the sample is measured against; it also
// reports how far the sampled meter's short-term loudness strays from the
// full one (every half second of the programme).
//
//   bench_streaming_loudness --benchmark_repetitions=5
#include "cpu_run_support.h"

#include <ebur128.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <tuple>
#include <vector>

#include "audio_output/loudness_control.h"
#include "audio_output/loudness_meter.h"
#include "streaming/mpeg_decoder.h"

using namespace belvane::bench;
using belvane::detail::LoudnessControl;
using belvane::detail::LoudnessMeter;
using belvane::detail::MpegDecoder;

namespace {

constexpr double kProgrammeSeconds = 60;
constexpr int kFramesPerBlock = 4;  // MPEG frames decoded before a block is handed on
constexpr size_t kMostFramesHandedOn = 2048;

belvane::test::Mp3Data* programme = nullptr;

double now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

// Decodes the programme block by block; `handle(rate, left, right, frames)`
// gets each block. Returns {decode seconds, handling seconds, frames}.
template <class Handle>
std::tuple<double, double, size_t> decodeAndHandle(Handle&& handle) {
  MpegDecoder decoder;
  decoder.feed({reinterpret_cast<const uint8_t*>(programme->bytes.data()), programme->bytes.size()});
  std::vector<float> left, right;
  double decoding = 0, handling = 0;
  size_t total = 0;
  long rate = 44100;
  for (bool more = true; more;) {
    left.clear();
    right.clear();
    for (int i = 0; i < kFramesPerBlock; ++i) {
      MpegDecoder::Frame frame;
      double t0 = now();
      auto status = decoder.next(frame);
      decoding += now() - t0;
      if (status != MpegDecoder::Status::Frame) {
        more = false;
        break;
      }
      // Split into channels as the player's buffer holds them (timed on neither side).
      rate = frame.sampleRate;
      for (size_t f = 0; f < frame.frames; ++f) {
        left.push_back(frame.samples[2 * f]);
        right.push_back(frame.samples[2 * f + 1]);
      }
    }
    // Handed on in pieces of at most 2048 frames, as the MP3 stream's
    // delivery thread hands them to the player.
    for (size_t at = 0; at < left.size(); at += kMostFramesHandedOn) {
      size_t n = std::min(kMostFramesHandedOn, left.size() - at);
      double t1 = now();
      handle(unsigned(rate), left.data() + at, right.data() + at, n);
      handling += now() - t1;
    }
    total += left.size();
  }
  return {decoding, handling, total};
}

void report(benchmark::State& state, double decoding, double handling, size_t frames) {
  double seconds = frames / 44100.0;
  state.SetIterationTime(handling);
  state.counters["decode_us_per_s"] = decoding / seconds * 1e6;
  state.counters["handle_us_per_s"] = handling / seconds * 1e6;
  state.counters["ratio_pct"] = handling / decoding * 100;
}

void BM_DecodeThenNormalise(benchmark::State& state) {
  for (auto _ : state) {
    LoudnessControl control;
    control.setEnabled(true);
    auto [decoding, handling, frames] = decodeAndHandle([&](unsigned rate, float* l, float* r, size_t n) {
      float* channels[2] = {l, r};
      benchmark::DoNotOptimize(control.process(rate, channels, n));
    });
    report(state, decoding, handling, frames);
    state.counters["gain_db"] = control.gainDb();
  }
}
BENCHMARK(BM_DecodeThenNormalise)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_DecodeThenMeterEverySample(benchmark::State& state) {
  for (auto _ : state) {
    ebur128_state* full = ebur128_init(2, 44100, EBUR128_MODE_S);
    LoudnessMeter sampled;
    std::vector<float> interleaved;
    double strayed = 0, most = 0, comparing = 0;
    int compared = 0;
    size_t sinceCompare = 0;
    auto [decoding, handling, frames] = decodeAndHandle([&](unsigned rate, float* l, float* r, size_t n) {
      interleaved.resize(2 * n);
      for (size_t i = 0; i < n; ++i) interleaved[2 * i] = l[i], interleaved[2 * i + 1] = r[i];
      ebur128_add_frames_float(full, interleaved.data(), n);
      // The comparison is not part of the cost measured.
      double t0 = now();
      sampled.add(rate, l, r, n);
      if ((sinceCompare += n) >= rate / 2) {
        sinceCompare = 0;
        double whole;
        auto part = sampled.shortTermLufs();
        if (part && ebur128_loudness_shortterm(full, &whole) == EBUR128_SUCCESS) {
          strayed += std::fabs(*part - whole);
          most = std::max(most, std::fabs(*part - whole));
          ++compared;
        }
      }
      comparing += now() - t0;
    });
    ebur128_destroy(&full);
    report(state, decoding, handling - comparing, frames);
    state.counters["sampled_mean_lu_off"] = compared ? strayed / compared : -1;
    state.counters["sampled_most_lu_off"] = most;
  }
}
BENCHMARK(BM_DecodeThenMeterEverySample)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  auto mp3 = programmeMp3(kProgrammeSeconds);
  if (mp3.frames.empty()) {
    std::fprintf(stderr, "lame is needed for this benchmark\n");
    return 1;
  }
  programme = &mp3;
  runBenchmarks(argc, argv);
  return 0;
}
