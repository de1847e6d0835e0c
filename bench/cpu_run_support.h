// Running the streaming and player benchmarks and recording their figures:
// settings read from the environment, the run of the benchmarks named on
// the command line, a programme looped into an hour-long stream (and the
// same bytes in a file for a peer program), one iteration's CPU time
// recorded as its manual time, and the summary lines comparing two samples.
#pragma once

#include "streaming_bench_support.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace belvane::bench {

// A setting from the environment variable `name` when set, never below
// `least`; `fallback` when unset.
inline int envInt(const char* name, int fallback, int least) {
  const char* v = std::getenv(name);
  return v ? std::max(least, std::atoi(v)) : fallback;
}
inline double envDouble(const char* name, double fallback, double least) {
  const char* v = std::getenv(name);
  return v ? std::max(least, std::atof(v)) : fallback;
}

// Appends printf-formatted text to `to` (a benchmark's summary).
__attribute__((format(printf, 2, 3))) inline void appendf(std::string& to, const char* format, ...) {
  va_list args;
  va_start(args, format);
  gchar* text = g_strdup_vprintf(format, args);
  va_end(args);
  to += text;
  g_free(text);
}

// Registers fn as one manually timed iteration, reported in milliseconds:
// the benchmarks here time a whole run themselves.
#define BELVANE_BENCH_ONCE(fn) BENCHMARK(fn)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond)

// Runs the benchmarks the command line selects.
inline void runBenchmarks(int& argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}

// The same, then prints the summary the benchmarks wrote; the exit status.
inline int runBenchmarks(int& argc, char** argv, const std::string& summary) {
  runBenchmarks(argc, argv);
  std::printf("\n%s", summary.c_str());
  return 0;
}

// A programme of `programmeSeconds` looped to about `streamSeconds`, and the
// same bytes (without metadata blocks) in a file of a fresh temporary folder
// for a peer program to read; the folder goes with this object.
struct LoopedProgramme {
  std::shared_ptr<const test::Mp3Data> programme;
  uint64_t loops = 0;   // programme loops in the stream
  uint64_t frames = 0;  // decoded frames in the stream
  std::string file;

  LoopedProgramme(test::Mp3Data data, double programmeSeconds, double streamSeconds, const char* fileName)
      : programme(std::make_shared<const test::Mp3Data>(std::move(data))) {
    loops = uint64_t(streamSeconds / programmeSeconds + 0.5);
    frames = loops * programme->totalSamples();
    dir_ = g_dir_make_tmp("belvane-bench-XXXXXX", nullptr);
    file = std::string(dir_) + "/" + fileName;
    std::ofstream out(file, std::ios::binary);
    for (uint64_t i = 0; i < loops; ++i) out << programme->bytes;
  }
  ~LoopedProgramme() {
    std::remove(file.c_str());
    g_rmdir(dir_);
    g_free(dir_);
  }
  LoopedProgramme(const LoopedProgramme&) = delete;
  LoopedProgramme& operator=(const LoopedProgramme&) = delete;

 private:
  gchar* dir_ = nullptr;
};

// Records `cpu` seconds as the iteration's time (counter cpu_s) and in
// `into`; an error instead when the run was not `complete`.
inline bool recordCPU(benchmark::State& state, bool complete, double cpu, std::vector<double>& into) {
  if (!complete) {
    state.SkipWithError("the stream did not play to its end");
    return false;
  }
  state.SetIterationTime(cpu);
  state.counters["cpu_s"] = cpu;
  into.push_back(cpu);
  return true;
}

// Each iteration runs argv as a child process and records its CPU seconds.
inline void recordChildCPU(benchmark::State& state, const std::vector<std::string>& argv, std::vector<double>& into) {
  for (auto _ : state) {
    double cpu = childCPUSeconds(argv);
    if (cpu < 0) {
      state.SkipWithError((argv[0] + " failed").c_str());
      return;
    }
    state.SetIterationTime(cpu);
    state.counters["cpu_s"] = cpu;
    into.push_back(cpu);
  }
}

// "  <label> min / median / max  (n runs)" of CPU seconds; `label` carries
// its own padding.
inline void printCPUSpread(const char* label, const Spread& s) {
  std::printf("  %s %.2f / %.2f / %.2f  (%zu runs)\n", label, s.min, s.median, s.max, s.count);
}

// main() of a benchmark measuring on one loopback programme station at
// /live (startProgrammeStation): starts it into s.server, runs the
// benchmarks, prints s.summary.
template <class Setup>
int runOnProgrammeStation(int& argc, char** argv, Setup& s, double programmeSeconds, const IcyStreamShape& shape) {
  s.server = startProgrammeStation(programmeSeconds, "/live", shape);
  if (!s.server) return 1;
  return runBenchmarks(argc, argv, s.summary);
}

// A heading, then one printSpread line a sample.
struct SpreadRow {
  const char* what;
  const std::vector<double>& sample;
};
inline void printSpreads(const std::string& heading, std::initializer_list<SpreadRow> rows) {
  std::printf("\n%s\n", heading.c_str());
  for (const auto& row : rows) printSpread(row.what, row.sample);
}

// The ratios of the medians and minima of `ours` to `peer`, when both ran.
inline void printRatios(const Spread& ours, const Spread& peer) {
  if (ours.count && peer.count && peer.median > 0)
    std::printf("  ratio of medians %.2f, of minima %.2f (goal <= 1.15)\n", ours.median / peer.median,
                ours.min / peer.min);
}

}  // namespace belvane::bench
