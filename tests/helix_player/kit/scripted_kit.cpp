// A scripted Helix client kit for the player tests. It offers the complete
// class tables, records every command a player sends, answers queries from
// values the test sets, and reports to the observer only when the test asks
// it to (through the scripted_kit_* functions, found with dlsym). Reports
// are queued on the calling thread's GLib main context, as a real kit's
// would arrive on the run loop; releasing a player drops its queued reports.
// On request, releasing a player also reports synchronously while it goes,
// as a kit stopping its playback might. Built with
// SCRIPTED_KIT_WITHOUT_IS_LIVE it lacks isLive (a kit the engine refuses).
#include <belvane/HXClientKitABI.h>

#include <glib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct HXClientViewInstance {};
struct HXClientPlayerInstance {
  HXClientObserver observer;
  std::map<std::string, HXClientObserver> statisticObservers;
};

namespace {

struct Pending {
  HXClientPlayerInstance* player;
  std::function<void(HXClientPlayerInstance*)> report;
};

struct Script {
  bool failView = false, failPlayer = false, failOpen = false;
  bool reportOnRelease = false;
  bool startSeekingResult = true;
  bool live = false;
  uint32_t position = 0, length = 0;
  std::map<std::string, std::string> statistics;

  std::vector<std::string> calls;
  std::string callsText;
  std::vector<HXClientPlayerInstance*> players;  // made and not yet released
  int views = 0;
  std::deque<Pending> pending;
  GSource* dispatcher = nullptr;
};

Script& script() {
  static Script s;
  return s;
}

void record(std::string call) { script().calls.push_back(std::move(call)); }

HXClientPlayerInstance* currentPlayer() { return script().players.empty() ? nullptr : script().players.back(); }

gboolean dispatchPending(gpointer) {
  Script& s = script();
  // One at a time: a report may release players and so drop later entries.
  while (!s.pending.empty()) {
    Pending next = std::move(s.pending.front());
    s.pending.pop_front();
    next.report(next.player);
  }
  g_source_unref(s.dispatcher);
  s.dispatcher = nullptr;
  return G_SOURCE_REMOVE;
}

// Queues a report to the current player on this thread's main context.
void queue(std::function<void(HXClientPlayerInstance*)> report) {
  Script& s = script();
  HXClientPlayerInstance* player = currentPlayer();
  if (!player) return;
  s.pending.push_back({player, std::move(report)});
  if (!s.dispatcher) {
    s.dispatcher = g_idle_source_new();
    g_source_set_callback(s.dispatcher, dispatchPending, nullptr, nullptr);
    GMainContext* context = g_main_context_ref_thread_default();
    g_source_attach(s.dispatcher, context);
    g_main_context_unref(context);
  }
}

const char* orNull(const char* s) { return s ? s : "(null)"; }

void reportStatistic(HXClientPlayerInstance* p, char kind, const std::string& name, const std::string& value) {
  auto it = p->statisticObservers.find(name);
  if (it == p->statisticObservers.end()) return;
  const HXClientObserver& o = it->second;
  if (kind == 'd') {
    if (o.onDeletedStatistic) o.onDeletedStatistic(o.context, name.c_str(), nullptr);
  } else if (kind == 'a') {
    if (o.onAddedStatistic) o.onAddedStatistic(o.context, name.c_str(), value.c_str(), nullptr);
  } else if (o.onModifiedStatistic) {
    o.onModifiedStatistic(o.context, name.c_str(), value.c_str(), nullptr);
  }
}

// What a kit might say while its playback is torn down.
void reportWhileReleasing(HXClientPlayerInstance* p) {
  const HXClientObserver& o = p->observer;
  if (o.onContentStateChanged) o.onContentStateChanged(o.context, HXContentStatePlaying, HXContentStateStopped);
  if (o.onContentConcluded) o.onContentConcluded(o.context);
  const char* keys[] = {"ID"};
  const char* values[] = {"7"};
  if (o.onErrorOccurred) o.onErrorOccurred(o.context, "torn down", "released", keys, values, 1);
  if (o.onLengthChanged) o.onLengthChanged(o.context, 0);
  for (const auto& [name, observer] : p->statisticObservers)
    if (observer.onDeletedStatistic) observer.onDeletedStatistic(observer.context, name.c_str(), nullptr);
}

void releasePlayer(HXClientPlayerRef p) {
  Script& s = script();
  record("release player");
  if (s.reportOnRelease) reportWhileReleasing(p);
  std::erase_if(s.pending, [p](const Pending& e) { return e.player == p; });
  std::erase(s.players, p);
  delete p;
}

HXClientPlayerRef initInView(HXClientViewRef view, const HXClientObserver* observer) {
  record("initInView");
  if (script().failPlayer || !view || !observer) return nullptr;
  auto* p = new HXClientPlayerInstance{*observer, {}};
  script().players.push_back(p);
  return p;
}

bool openWithURL(HXClientPlayerRef, const char* url, const char* mimeType) {
  record(std::string("openWithURL ") + orNull(url) + " " + orNull(mimeType));
  return !script().failOpen;
}

void addObserver(HXClientPlayerRef p, const HXClientObserver* observer, const char* name, void*) {
  record(std::string("addObserver ") + name);
  p->statisticObservers[name] = *observer;
}

void removeObserver(HXClientPlayerRef p, const HXClientObserver*, const char* name, void*) {
  record(std::string("removeObserver ") + name);
  p->statisticObservers.erase(name);
}

char* copyStatisticsFor(HXClientPlayerRef, const char* name) {
  auto it = script().statistics.find(name);
  return it == script().statistics.end() ? nullptr : strdup(it->second.c_str());
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const HXClientPlayerClass HXClientPlayer = {
    HX_CLIENT_KIT_ABI_VERSION,
    sizeof(HXClientPlayerClass),
    releasePlayer,
    initInView,
    openWithURL,
    [](HXClientPlayerRef) -> int32_t { return HXContentStateNotLoaded; },
    [](HXClientPlayerRef) { record("play"); },
    [](HXClientPlayerRef) { record("pause"); },
    [](HXClientPlayerRef) { record("stop"); },
    [](HXClientPlayerRef) {
      record("startSeeking");
      return script().startSeekingResult;
    },
    [](HXClientPlayerRef) { record("stopSeeking"); },
    [](HXClientPlayerRef, uint32_t ms) { record("setPosition " + std::to_string(ms)); },
    [](HXClientPlayerRef) { return script().position; },
    [](HXClientPlayerRef) -> uint16_t { return 100; },
    [](HXClientPlayerRef, uint16_t volume) { record("setVolume " + std::to_string(volume)); },
    [](HXClientPlayerRef) { return false; },
    [](HXClientPlayerRef, bool muted) { record(std::string("mute ") + (muted ? "1" : "0")); },
    [](HXClientPlayerRef) { return script().length; },
#ifdef SCRIPTED_KIT_WITHOUT_IS_LIVE
    nullptr,  // an incompatible kit: isLive missing
#else
    [](HXClientPlayerRef) { return script().live; },
#endif
    copyStatisticsFor,
    addObserver,
    removeObserver,
    nullptr,  // setAudioOutput: an older kit's table ends before it
};

extern "C" __attribute__((visibility("default"))) const HXClientViewClass HXClientView = {
    HX_CLIENT_KIT_ABI_VERSION,
    sizeof(HXClientViewClass),
    true,
    [](HXClientViewRef v) {
      record("release view");
      --script().views;
      delete v;
    },
    [](double x, double y, double w, double h) -> HXClientViewRef {
      record("initWithFrame " + std::to_string(int(x)) + " " + std::to_string(int(y)) + " " + std::to_string(int(w)) +
             " " + std::to_string(int(h)));
      if (script().failView) return nullptr;
      ++script().views;
      return new HXClientViewInstance;
    },
};

// ---- Driving the kit from a test -------------------------------------------
#define SCRIPTED_KIT_API extern "C" __attribute__((visibility("default")))

// Forgets the script and the recorded calls (players and reports stay).
SCRIPTED_KIT_API void scripted_kit_reset() {
  Script& s = script();
  s.failView = s.failPlayer = s.failOpen = s.reportOnRelease = s.live = false;
  s.startSeekingResult = true;
  s.position = s.length = 0;
  s.statistics.clear();
  s.calls.clear();
}

// Makes "initWithFrame", "initInView" or "openWithURL" fail from now on.
SCRIPTED_KIT_API void scripted_kit_fail(const char* operation) {
  Script& s = script();
  if (!std::strcmp(operation, "initWithFrame")) s.failView = true;
  if (!std::strcmp(operation, "initInView")) s.failPlayer = true;
  if (!std::strcmp(operation, "openWithURL")) s.failOpen = true;
}

SCRIPTED_KIT_API void scripted_kit_set_position(uint32_t ms) { script().position = ms; }
SCRIPTED_KIT_API void scripted_kit_set_length(uint32_t ms) { script().length = ms; }
SCRIPTED_KIT_API void scripted_kit_set_live(bool live) { script().live = live; }
SCRIPTED_KIT_API void scripted_kit_set_start_seeking_result(bool ok) { script().startSeekingResult = ok; }
SCRIPTED_KIT_API void scripted_kit_report_on_release(bool on) { script().reportOnRelease = on; }

// The value copyStatisticsFor answers for a name; null removes it.
SCRIPTED_KIT_API void scripted_kit_set_statistic(const char* name, const char* value) {
  if (value)
    script().statistics[name] = value;
  else
    script().statistics.erase(name);
}

// The recorded commands, one a line, oldest first (valid until the next call).
SCRIPTED_KIT_API const char* scripted_kit_calls() {
  Script& s = script();
  s.callsText.clear();
  for (const std::string& call : s.calls) s.callsText += call + "\n";
  return s.callsText.c_str();
}

// Kit players and views made and not yet released.
SCRIPTED_KIT_API int scripted_kit_live_objects() { return int(script().players.size()) + script().views; }
SCRIPTED_KIT_API size_t scripted_kit_pending_reports() { return script().pending.size(); }

// Queued reports to the most recently made player that is still alive.
SCRIPTED_KIT_API void scripted_kit_emit_content_state(int32_t from, int32_t to) {
  queue([from, to](HXClientPlayerInstance* p) {
    if (p->observer.onContentStateChanged) p->observer.onContentStateChanged(p->observer.context, from, to);
  });
}

SCRIPTED_KIT_API void scripted_kit_emit_concluded() {
  queue([](HXClientPlayerInstance* p) {
    if (p->observer.onContentConcluded) p->observer.onContentConcluded(p->observer.context);
  });
}

// An error report; failure and message may be null, params are count pairs.
SCRIPTED_KIT_API void scripted_kit_emit_error(const char* failure, const char* message, const char* const* keys,
                                             const char* const* values, size_t count) {
  std::vector<std::string> k(keys, keys + count), v(values, values + count);
  bool hasFailure = failure, hasMessage = message;
  std::string f = failure ? failure : "", m = message ? message : "";
  queue([=](HXClientPlayerInstance* p) {
    std::vector<const char*> kp, vp;
    for (size_t i = 0; i < k.size(); ++i) {
      kp.push_back(k[i].c_str());
      vp.push_back(v[i].c_str());
    }
    if (p->observer.onErrorOccurred)
      p->observer.onErrorOccurred(p->observer.context, hasFailure ? f.c_str() : nullptr,
                                  hasMessage ? m.c_str() : nullptr, kp.data(), vp.data(), kp.size());
  });
}

// Sets the length and reports it.
SCRIPTED_KIT_API void scripted_kit_emit_length(uint32_t ms) {
  script().length = ms;
  queue([ms](HXClientPlayerInstance* p) {
    if (p->observer.onLengthChanged) p->observer.onLengthChanged(p->observer.context, ms);
  });
}

// kind 'a' added, 'm' modified, 'd' deleted: when delivered, updates the
// statistic's value and reports it to the observers registered for that name.
SCRIPTED_KIT_API void scripted_kit_emit_statistic(char kind, const char* name, const char* value) {
  std::string n = name, v = value ? value : "";
  queue([=](HXClientPlayerInstance* p) {
    scripted_kit_set_statistic(n.c_str(), kind == 'd' ? nullptr : v.c_str());
    reportStatistic(p, kind, n, v);
  });
}
