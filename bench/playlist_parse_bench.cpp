// Parse throughput of the playlist readers (generateTracksFromString on
// generated 10 MB M3U, PLS and ASX texts of many short entries), measured in
// the same run against GNOME's totem-pl-parser reading the same texts from
// files. Prints a summary of MB/s (10^6 bytes) and the ratio to totem.
#include <belvane/BVASXWebPlaylist.h>
#include <belvane/BVM3UWebPlaylist.h>
#include <belvane/BVPLSWebPlaylist.h>

#include <benchmark/benchmark.h>
#include <glib.h>
#include <totem-pl-parser.h>

#include <malloc.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <string>

namespace {

constexpr size_t kTargetSize = 10'000'000;

std::string makeM3U() {
  std::string s = "#EXTM3U\n";
  for (int i = 1; s.size() < kTargetSize; ++i) {
    auto n = std::to_string(i);
    s += "#EXTINF:" + std::to_string(120 + i % 300) + ",Artist " + n + " - Title " + n + "\n";
    s += "http://stream.example.com:8000/live/" + n + ".mp3\n";
  }
  return s;
}

std::string makePLS() {
  std::string body;
  int count = 0;
  while (body.size() < kTargetSize) {
    auto n = std::to_string(++count);
    body += "File" + n + "=http://stream.example.com:8000/live/" + n + "\n";
    body += "Title" + n + "=Station " + n + "\n";
    body += "Length" + n + "=-1\n";
  }
  return "[playlist]\nNumberOfEntries=" + std::to_string(count) + "\n" + body + "Version=2\n";
}

std::string makeASX() {
  std::string s = "<asx version=\"3.0\">\n<title>Generated</title>\n";
  for (int i = 1; s.size() < kTargetSize; ++i) {
    auto n = std::to_string(i);
    s += "<entry><title>Station " + n + "</title><ref href=\"http://stream.example.com/live/" + n +
         "\"/><ref href=\"mms://stream.example.com/live/" + n + "\"/></entry>\n";
  }
  return s + "</asx>\n";
}

struct Sample {
  std::string text;
  std::string uri;  // the same text in a file, for totem
};

// The generated texts, each written once to a temporary folder.
const Sample& sample(const std::string& kind) {
  static std::map<std::string, Sample> samples;
  static std::string dir;
  auto it = samples.find(kind);
  if (it != samples.end()) return it->second;
  if (dir.empty()) {
    gchar* made = g_dir_make_tmp("belvane-bench-XXXXXX", nullptr);
    dir = made ? made : "/tmp";
    g_free(made);
  }
  Sample s;
  s.text = kind == "m3u" ? makeM3U() : kind == "pls" ? makePLS() : makeASX();
  std::string path = dir + "/bench." + kind;
  std::ofstream(path, std::ios::binary) << s.text;
  gchar* uri = g_filename_to_uri(path.c_str(), nullptr, nullptr);
  s.uri = uri;
  g_free(uri);
  return samples.emplace(kind, std::move(s)).first->second;
}

// The heap between two timed parses. Warm: memory freed by the previous
// parse stays mapped, as in a long-running player that reads playlists now
// and then. Cold: it goes back to the system, so the parse pays for fresh
// pages, as the first parse in a new process does.
enum class Heap { warm, cold };

void prepareHeap(Heap heap) {
  if (heap == Heap::warm) {
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    mallopt(M_MMAP_THRESHOLD, 64 << 20);
  } else {
    mallopt(M_TRIM_THRESHOLD, 128 << 10);
    mallopt(M_MMAP_THRESHOLD, 128 << 10);
  }
}

// Runs between two timed parses, untimed: merges the freed chunks (which the
// next large request would otherwise do) and, for a cold heap, returns them.
void settleHeap(Heap heap) {
  if (heap == Heap::cold) {
    malloc_trim(0);
  } else {
    void* p = malloc(4096);
    benchmark::DoNotOptimize(p);
    free(p);
  }
}

template <class Reader>
void BM_Belvane(benchmark::State& state, const char* kind, Heap heap) {
  const Sample& s = sample(kind);
  prepareHeap(heap);
  size_t tracks = 0;
  for (auto _ : state) {
    auto reader = Reader::create();
    reader->generateTracksFromString(s.text);
    // Only the parse is timed, not freeing the tracks afterwards.
    state.PauseTiming();
    tracks = reader->countOfTracks();
    reader.reset();
    settleHeap(heap);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(s.text.size()));
  state.counters["entries"] = double(tracks);
}

void countEntry(TotemPlParser*, const char*, GHashTable*, gpointer count) { ++*static_cast<size_t*>(count); }

void BM_Totem(benchmark::State& state, const char* kind, Heap heap) {
  const Sample& s = sample(kind);
  prepareHeap(heap);
  size_t entries = 0;
  for (auto _ : state) {
    TotemPlParser* parser = totem_pl_parser_new();
    g_object_set(parser, "recurse", FALSE, "disable-unsafe", TRUE, nullptr);
    size_t count = 0;
    g_signal_connect(parser, "entry-parsed", G_CALLBACK(countEntry), &count);
    TotemPlParserResult result = totem_pl_parser_parse(parser, s.uri.c_str(), FALSE);
    state.PauseTiming();
    g_object_unref(parser);
    settleHeap(heap);
    state.ResumeTiming();
    if (result != TOTEM_PL_PARSER_RESULT_SUCCESS) {
      state.SkipWithError("totem-pl-parser did not parse the file");
      break;
    }
    entries = count;
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(s.text.size()));
  state.counters["entries"] = double(entries);
}

void registerBenchmarks() {
  auto add = [](const std::string& name, auto fn) {
    benchmark::RegisterBenchmark(name.c_str(), fn)->Unit(benchmark::kMillisecond)->MinTime(2.0);
  };
  for (Heap heap : {Heap::warm, Heap::cold}) {
    std::string suffix = heap == Heap::warm ? "/warm" : "/cold";
    add("Belvane/m3u" + suffix, [heap](benchmark::State& s) { BM_Belvane<BVM3UWebPlaylist>(s, "m3u", heap); });
    add("totem/m3u" + suffix, [heap](benchmark::State& s) { BM_Totem(s, "m3u", heap); });
    add("Belvane/pls" + suffix, [heap](benchmark::State& s) { BM_Belvane<BVPLSWebPlaylist>(s, "pls", heap); });
    add("totem/pls" + suffix, [heap](benchmark::State& s) { BM_Totem(s, "pls", heap); });
    add("Belvane/asx" + suffix, [heap](benchmark::State& s) { BM_Belvane<BVASXWebPlaylist>(s, "asx", heap); });
    add("totem/asx" + suffix, [heap](benchmark::State& s) { BM_Totem(s, "asx", heap); });
  }
}

// Keeps each run's throughput so that main() can print the comparison.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
      if (run.error_occurred) continue;
      // With --benchmark_repetitions the median stands for the benchmark.
      bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (!median && run.run_type != Run::RT_Iteration) continue;
      auto bytes = run.counters.find("bytes_per_second");
      if (bytes == run.counters.end()) continue;
      std::string name = run.run_name.function_name;
      if (median || !medians.count(name)) throughput[name] = double(bytes->second) / 1e6;
      if (median) medians.insert(name);
    }
  }
  std::map<std::string, double> throughput;  // MB/s by benchmark name
  std::set<std::string> medians;
};

}  // namespace

int main(int argc, char** argv) {
  registerBenchmarks();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\n%-6s %-5s %13s %11s %7s\n", "format", "heap", "Belvane MB/s", "totem MB/s", "ratio");
  for (const char* heap : {"warm", "cold"}) {
    for (const char* kind : {"m3u", "pls", "asx"}) {
      std::string tail = std::string("/") + kind + "/" + heap;
      double ours = reporter.throughput["Belvane" + tail];
      double theirs = reporter.throughput["totem" + tail];
      std::printf("%-6s %-5s %13.1f %11.1f %6.1fx\n", kind, heap, ours, theirs, theirs > 0 ? ours / theirs : 0.0);
    }
  }
  benchmark::Shutdown();
  return 0;
}
