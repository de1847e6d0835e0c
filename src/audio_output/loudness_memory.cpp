// LoudnessMemory: a GKeyFile of gains by station (see loudness_memory.h).
#include "audio_output/loudness_memory.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <cmath>
#include <map>
#include <memory>
#include <mutex>

#include "audio_output/output_log.h"
#include "foundation/thread_annotations.h"

namespace belvane::detail {
namespace {
constexpr const char* kGroup = "gains";

std::mutex& memoryMutex() {
  static std::mutex mutex;
  return mutex;
}

// The gains noted in this process, by station URL.
struct NotedGains {
  Mutex mutex;
  std::map<std::string, double> byStation GUARDED_BY(mutex);
};
NotedGains& notedGains() {
  static NotedGains gains;
  return gains;
}

// The cache folder from the environment of the moment ($XDG_CACHE_HOME, else
// ~/.cache), not GLib's value cached at its first use, so that a host (or a
// test) that sets it later is followed.
std::string memoryFolder() {
  const char* cache = g_getenv("XDG_CACHE_HOME");
  std::string base = cache && *cache ? cache : std::string(g_get_home_dir()) + "/.cache";
  return base + "/com.brambleside.ettd";
}
std::string memoryPath() { return memoryFolder() + "/loudness.ini"; }

std::string stationKey(const std::string& station) {
  std::unique_ptr<gchar, decltype(&g_free)> hex(g_compute_checksum_for_string(G_CHECKSUM_SHA256, station.c_str(), -1),
                                                 g_free);
  return hex.get();
}

using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_free)>;

KeyFile loadMemory() {
  KeyFile file(g_key_file_new(), g_key_file_free);
  // A missing or unreadable file is an empty memory.
  g_key_file_load_from_file(file.get(), memoryPath().c_str(), G_KEY_FILE_NONE, nullptr);
  return file;
}
}  // namespace

std::optional<double> recalledLoudnessGain(const std::string& station) {
  if (station.empty()) return std::nullopt;
  {
    NotedGains& noted = notedGains();
    MutexLock lock(noted.mutex);
    auto found = noted.byStation.find(station);
    if (found != noted.byStation.end()) return found->second;
  }
  std::lock_guard lock(memoryMutex());
  KeyFile file = loadMemory();
  GError* error = nullptr;
  double gain = g_key_file_get_double(file.get(), kGroup, stationKey(station).c_str(), &error);
  if (error) {
    g_error_free(error);
    return std::nullopt;
  }
  if (!std::isfinite(gain)) return std::nullopt;
  return gain;
}

void noteLoudnessGain(const std::string& station, double gainDb) {
  if (station.empty() || !std::isfinite(gainDb)) return;
  NotedGains& noted = notedGains();
  MutexLock lock(noted.mutex);
  noted.byStation[station] = gainDb;
}

void rememberLoudnessGain(const std::string& station, double gainDb) {
  if (station.empty() || !std::isfinite(gainDb)) return;
  noteLoudnessGain(station, gainDb);
  std::lock_guard lock(memoryMutex());
  if (g_mkdir_with_parents(memoryFolder().c_str(), 0700) != 0) {
    outputLog(QL_LOG_WARNING, "loudness: cannot make %s; the station's gain is not remembered.", memoryFolder().c_str());
    return;
  }
  KeyFile file = loadMemory();
  // Tenths of a dB are finer than anyone hears.
  g_key_file_set_double(file.get(), kGroup, stationKey(station).c_str(), std::round(gainDb * 10) / 10);
  GError* error = nullptr;
  if (!g_key_file_save_to_file(file.get(), memoryPath().c_str(), &error)) {
    outputLog(QL_LOG_WARNING, "loudness: cannot write %s (%s).", memoryPath().c_str(), error->message);
    g_error_free(error);
  }
}

}  // namespace belvane::detail
