// LogSink: library log lines kept, and shown only when asked for.
#include "log_sink.h"

#include <belvane/BVQLDebug.h>

#include <glib.h>

#include <cstdio>

namespace belvane::tool {

namespace {

// The streaming library's "information" level: the audio output logs there
// why a sound server or card could not be opened. Asked for, everything down
// to "debugging" (ALSA's own messages among them).
constexpr int kInformationLevel = 3;
constexpr int kDebuggingLevel = 4;

bool gVerbose = false;

// Errors and criticals are faults worth seeing; warnings and messages from
// GLib, GStreamer and their plug-ins are chatter to a listener.
GLogWriterOutput quietWriter(GLogLevelFlags level, const GLogField* fields, gsize count, gpointer data) {
  if (gVerbose || (level & (G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL)))
    return g_log_writer_default(level, fields, count, data);
  return G_LOG_WRITER_HANDLED;
}

}  // namespace

LogSink& LogSink::shared() {
  static LogSink* sink = new LogSink;  // library threads may log during exit
  return *sink;
}

void LogSink::install(bool verbose) {
  const char* debug = g_getenv("G_MESSAGES_DEBUG");
  verbose_ = verbose || (debug && *debug);
  gVerbose = verbose_;
  g_log_set_writer_func(quietWriter, nullptr, nullptr);
  // The player tool process inherits the choice: its log lines are kept
  // off the terminal too (G_MESSAGES_DEBUG still shows them).
  if (verbose_) g_unsetenv("BELVANE_QUIET_LOG");
  else g_setenv("BELVANE_QUIET_LOG", "1", TRUE);
  int level = verbose_ ? kDebuggingLevel : kInformationLevel;
  if (BVQLDebugLogLevel() < level) BVQLDebugSetLogLevel(level);
  BVKitOwner::sharedOwner().setDelegate(this);
}

void LogSink::belvaneOwnerDebugLog(const std::string& message) {
  std::lock_guard lock(mutex_);
  if (verbose_) {
    std::fflush(stdout);
    std::fprintf(stderr, "Belvane: %s\n", message.c_str());
  }
}

}  // namespace belvane::tool
