// `belvane record`: records a station without playing it, one file per
// title, until the duration passes, Ctrl-C, or the station ends.
#include "commands.h"

#include <belvane/BVRunLoop.h>
#include <belvane/BVStationRecorder.h>

#include <glib-unix.h>

#include <csignal>
#include <cstdio>

namespace belvane::tool {

namespace {

class RecordReporter : public BVStationRecorderOwner {
 public:
  BVErrorRef error;
  bool ended = false;
  void recorderRecordedFile(BVStationRecorder&, const std::string& path, const std::string& title,
                            bool complete) override {
    std::fprintf(stdout, "recorded%s: %s (%s)\n", complete ? "" : " (incomplete)", path.c_str(), title.c_str());
  }
  void recorderStopped(BVStationRecorder&, const BVErrorRef& stopError) override {
    error = stopError;
    ended = true;
    BVRunLoop::main().stop();
  }
};

gboolean stopOnSignal(gpointer) {
  BVRunLoop::main().stop();
  return G_SOURCE_CONTINUE;
}

int runRecord(const Arguments& args) {
  const std::string& url = args.onePositional("URL");
  auto folder = args.option("dir");
  if (!folder) throw UsageError("record needs --dir DIR, the folder the files go into");
  const double duration = args.positiveNumber("duration", 0);

  auto recorder = BVStationRecorder::create();
  RecordReporter reporter;
  recorder->setOwner(&reporter);
  if (BVErrorRef error = recorder->startRecording(url, *folder)) {
    std::fprintf(stderr, "belvane record: %s\n", error->localizedDescription().c_str());
    return 1;
  }
  std::fprintf(stdout, "Recording %s into %s%s.\n", url.c_str(), folder->c_str(),
               duration > 0 ? (" for " + std::to_string(int(duration)) + " s").c_str() : " (Ctrl-C ends it)");
  guint sigint = g_unix_signal_add(SIGINT, stopOnSignal, nullptr);
  guint sigterm = g_unix_signal_add(SIGTERM, stopOnSignal, nullptr);
  BVDelayedPerform timeLimit;
  if (duration > 0) timeLimit = BVRunLoop::main().performAfterDelay(duration, [] { BVRunLoop::main().stop(); });
  BVRunLoop::main().run();
  timeLimit.cancel();
  g_source_remove(sigint);
  g_source_remove(sigterm);
  if (!reporter.ended) {
    // The last file is announced on the run loop: let it through.
    recorder->stop();
    BVRunLoop::main().runUntil([] { return false; }, 0.2);
  }
  recorder->setOwner(nullptr);
  if (reporter.error) {
    std::fprintf(stderr, "belvane record: %s\n", reporter.error->localizedDescription().c_str());
    return 1;
  }
  return 0;
}

}  // namespace

std::vector<Command> recordCommands() {
  return {{"record", "URL --dir DIR [--duration S]",
           "Records the station at URL (its stream address) without playing it: one file per title,\n"
           "the station's own bytes (MP3 as .mp3, AAC as .aac), tagged with the title and artist and\n"
           "named from the title; the first and last files end their names in \" (incomplete)\".\n"
           "  --dir DIR      the folder the files go into (it must exist)\n"
           "  --duration S   stop after S seconds (default: until Ctrl-C or the station ends)\n"
           "Exit status 0 when stopped or the station ended, 1 when the recording failed (said on\n"
           "stderr), 2 for bad arguments.",
           runRecord,
           {"dir", "duration"},
           {}}};
}

}  // namespace belvane::tool
