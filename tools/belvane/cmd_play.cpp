// belvane play: plays a link (or the built-in demo station) through a
// master player on the run loop, reporting the owner callbacks as JSON
// lines, as plain lines, or as a live status line on a terminal.
#include "cmd_play_terminal.h"
#include "cmd_play_tool.h"
#include "commands.h"
#include "demo_station.h"
#include "log_sink.h"
#include "play_failure.h"
#include "url_problems.h"

#include <belvane/BVConstants.h>
#include <belvane/BVMPRISPublisher.h>
#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerEngineCenter.h>
#include <belvane/BVRequestSettings.h>
#include <belvane/BVURLAdditions.h>

#include <glib-unix.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace belvane::tool {

namespace {

// The --output value as the library reads it; a usage error that says why
// when it names no output.
BVAudioOutputSetting outputSetting(const std::string& text) {
  std::string reason;
  auto setting = BVAudioOutputSetting::fromString(text, &reason);
  if (!setting) throw UsageError(reason);
  return *setting;
}

// The owner that hears the master player and reports what it hears.
class PlayReporter : public BVPlayerOwner {
 public:
  PlayReporter(BVMasterPlayer& master, bool json) : master_(master), json_(json) {}

  void begin() { start_ = std::chrono::steady_clock::now(); }
  void setTerminal(PlayTerminal* terminal) { terminal_ = terminal; }
  BVPlayerState finalState() const { return master_.state(); }
  BVErrorRef lastError() const { return lastError_; }

  // The engine whose player class the current sub-player is. Windows Media
  // plays through the general engine's player class, so where several engines
  // share a class, the one that claims the sub-player's link is named (after
  // a fallback, that link carries the type the stream was served with).
  // Worked out once per sub-player.
  std::string engineID() const {
    auto sub = master_.subPlayer();
    if (!sub) return {};
    if (engineOwner_.lock() == sub) return engineName_;
    std::vector<std::shared_ptr<BVBasePlayerEngine>> sharing;
    for (auto& engine : BVPlayerEngineCenter::sharedCenter()->allEngines())
      if (engine->playerClass() == sub->className()) sharing.push_back(engine);
    std::shared_ptr<BVBasePlayerEngine> chosen = sharing.empty() ? nullptr : sharing.front();
    auto link = sub->link() ? sub->link() : master_.link();
    if (sharing.size() > 1 && link && link->format()) {
      for (auto& engine : sharing)
        if (engine->canPlayFormat(*link->format())) {
          chosen = engine;
          break;
        }
    }
    engineOwner_ = sub;
    engineName_ = chosen ? chosen->engineID().value_or("") : std::string();
    return engineName_;
  }

  void playerStateChanged(BVBasePlayer&, BVPlayerState from, BVPlayerState to, const BVErrorRef& error) override {
    if (json_) {
      auto line = common("state");
      line["from"] = int(from);
      line["to"] = int(to);
      line["error"] = errorToJSON(error);
      emit(line);
    } else {
      static const char* names[] = {"Idle", "Connecting", "Playing", "Stopped", "Error"};
      say(std::string("State: ") + names[std::clamp(int(to), 0, 4)]);
    }
    // The error is said once, on stderr, when playback has ended.
    if (error) lastError_ = error;
    if (to == BVPlayerStateStopped || to == BVPlayerStateError) BVRunLoop::current().stop();
  }

  void playerPositionChanged(BVBasePlayer&, float position) override {
    if (!json_) return;
    auto line = common("position");
    line["position"] = position;
    emit(line);
  }

  void playerAttributeChanged(BVBasePlayer&, const BVDictionary& attributes) override {
    if (json_) {
      auto line = common("attribute");
      line["attributes"] = valueToJSON(BVValue(attributes));
      emit(line);
      return;
    }
    // Every call carries the whole set: the title is news only when it changed.
    auto it = attributes.find(BVPlayerAttributeStreamTitleKey);
    if (it == attributes.end() || !it->second.string() || *it->second.string() == shownTitle_) return;
    shownTitle_ = *it->second.string();
    say("Now playing: " + shownTitle_);
  }

  // Said when what the listener hears changes kind; with --json, every
  // change (the seconds and tries while audio is missing too).
  void playerRecordedFile(BVBasePlayer&, const std::string& path, const std::string& title, bool complete) override {
    if (json_) {
      auto line = common("recorded");
      line["path"] = path;
      line["title"] = title;
      line["complete"] = complete;
      return emit(line);
    }
    say(std::string("Recorded") + (complete ? "" : " (incomplete)") + ": " + path);
  }

  void playerRecordingStopped(BVBasePlayer&, const BVErrorRef& error) override {
    if (json_) {
      auto line = common("recording-stopped");
      line["error"] = errorToJSON(error);
      return emit(line);
    }
    say(error ? "The recording stopped: " + error->localizedDescription() : "The recording ended with the station.");
  }

  void playerOutputChanged(BVBasePlayer&, const std::string& output) override {
    if (json_) {
      auto line = common("output");
      line["output"] = output;
      return emit(line);
    }
    say("Audio output: " + output);
  }

  void playerReceptionChanged(BVBasePlayer&, const BVPlayerReception& reception) override {
    if (json_) {
      auto line = common("reception");
      line["reception"] = BVPlayerReceptionStateName(reception.state);
      line["secondsWithoutAudio"] = reception.secondsWithoutAudio;
      line["tries"] = reception.tries;
      line["prebufferProgress"] = reception.prebufferProgress;
      emit(line);
      return;
    }
    const bool silent =
        reception.state == BVPlayerReceptionBuffering || reception.state == BVPlayerReceptionReconnecting;
    if (silent && reception.state != saidReception_)
      say(std::string("The audio stopped: ") + BVPlayerReceptionStateName(reception.state));
    else if (reception.state == BVPlayerReceptionReceiving && saidReception_ != BVPlayerReceptionReceiving &&
             saidReception_ != BVPlayerReceptionPrebuffering && saidReception_ != BVPlayerReceptionNone)
      say("The audio is back.");
    saidReception_ = reception.state;
  }

  void end() {
    if (json_) emit({{"t", seconds()}, {"event", "end"}, {"state", int(finalState())}});
  }

 private:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }
  nlohmann::ordered_json common(const char* event) const {
    nlohmann::ordered_json line;
    line["t"] = seconds();
    line["event"] = event;
    return line;
  }
  // Writes the line with the engine and the output's frame count last.
  void emit(nlohmann::ordered_json line) {
    if (line["event"] != "end") {
      line["engine"] = engineID();
      line["outputFrames"] = master_.outputFramesWritten();
    }
    std::fprintf(stdout, "%s\n", line.dump().c_str());
    std::fflush(stdout);
  }
  void say(const std::string& text) {
    if (terminal_) {
      terminal_->print(text);
    } else {
      std::fprintf(stdout, "%s\n", text.c_str());
      std::fflush(stdout);
    }
  }

  BVMasterPlayer& master_;
  mutable std::weak_ptr<BVBasePlayer> engineOwner_;
  mutable std::string engineName_;
  bool json_;
  PlayTerminal* terminal_ = nullptr;
  BVErrorRef lastError_;
  std::string shownTitle_;
  BVPlayerReceptionState saidReception_ = BVPlayerReceptionNone;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// belvane-player-tool beside this executable.
std::string defaultPlayerToolPath() {
  gchar* self = g_file_read_link("/proc/self/exe", nullptr);
  std::string dir = ".";
  if (self) {
    gchar* d = g_path_get_dirname(self);
    dir = d;
    g_free(d);
    g_free(self);
  }
  return dir + "/belvane-player-tool";
}

// The request settings and title encoding the options ask for; a usage
// error names what the library refused.
struct RequestOptions {
  BVRequestSettingsRef settings = BVRequestSettings::defaultSettings();
  std::optional<std::string> titleEncoding;
  bool given = false;
};

RequestOptions requestOptions(const Arguments& args) {
  RequestOptions options;
  auto apply = [&](BVRequestSettingsRef changed, const std::string& why) {
    if (!changed) throw UsageError(why);
    options.settings = std::move(changed);
    options.given = true;
  };
  std::string why;
  if (auto agent = args.option("user-agent")) apply(options.settings->withUserAgent(*agent, &why), why);
  for (const std::string& line : args.allValues("header")) apply(options.settings->withHeaderLine(line, &why), why);
  if (auto proxy = args.option("proxy")) {
    if (*proxy == "none")
      apply(options.settings->withProxy(BVRequestSettings::Proxy::None), why);
    else
      apply(options.settings->withProxyURL(*proxy, &why), why);
  }
  if (auto encoding = args.option("title-encoding")) {
    if (!BVMediaLink::isUsableTitleEncoding(*encoding))
      throw UsageError("option --title-encoding takes a character set iconv knows, not '" + *encoding + "'");
    options.titleEncoding = *encoding;
    options.given = true;
  }
  return options;
}

gboolean stopOnSignal(gpointer) {
  BVRunLoop::main().stop();
  return G_SOURCE_CONTINUE;
}

int runPlay(const Arguments& args) {
  if (args.positional().size() > 1) throw UsageError("play takes at most one URL");
  std::string output = args.option("output").value_or("auto");
  const BVAudioOutputSetting setting = outputSetting(output);
  double duration = args.positiveNumber("duration", 0);
  double volume = args.number("volume", -1);
  if (args.option("volume") && !(volume >= 0 && volume <= 1))
    throw UsageError("option --volume takes a gain from 0 to 1, not '" + *args.option("volume") + "'");
  double patience = args.number("patience", -1);
  if (args.option("patience") && !(patience >= 0))
    throw UsageError("option --patience takes seconds (0 or more), not '" + *args.option("patience") + "'");
  bool json = args.flag("json");
  // The sleep timer: a fade over the last half minute, then the end.
  double sleepMinutes = args.positiveNumber("sleep", 0);
  RequestOptions requests = requestOptions(args);

  std::unique_ptr<DemoStation> demo;
  std::optional<BVURL> url;
  std::string announcement;
  if (args.positional().empty()) {
    demo = std::make_unique<DemoStation>();
    if (!demo->start()) {
      std::fprintf(stderr, "belvane play: %s\n", demo->error().c_str());
      return 1;
    }
    url = bvURLFromString(std::string_view(demo->url()));
    if (!json)
      announcement = "Playing the built-in demo station (" + demo->url() + ") on output '" + output + "'.";
  } else {
    url = requireURL(args.positional()[0]);
    // A folder, an empty or a missing file: say so rather than let the
    // player find no audio in it.
    if (auto problem = fileProblem(*url); !problem.empty()) {
      std::fprintf(stderr, "belvane play: %s\n", problem.c_str());
      return 1;
    }
  }

  if (args.flag("tool") || args.option("tool-path")) {
    if (requests.given)
      throw UsageError("--user-agent, --header, --proxy and --title-encoding do not reach a separate player tool");
    if (sleepMinutes > 0 || args.flag("stop-after-title") || args.flag("no-inhibit") || args.flag("normalize"))
      throw UsageError(
          "--sleep, --stop-after-title, --no-inhibit and --normalize do not reach a separate player tool");
    int status = playThroughTool(args.option("tool-path").value_or(defaultPlayerToolPath()), *url, output, duration,
                                 volume, args.flag("mute"), json, announcement);
    demo.reset();
    return status;
  }

  auto master = BVMasterPlayer::create();
  master->setAudioOutputSetting(setting);
  PlayReporter reporter(*master, json);
  master->setOwner(&reporter);
  // In the desktop's media controls when there is a session bus (quietly
  // not otherwise); their Pause or Stop ends the play as q does.
  auto mpris = BVMPRISPublisher::create(master);
  if (volume >= 0) master->setVolume(float(volume));
  if (patience >= 0) master->setReconnectPatience(patience);
  master->setRequestSettings(requests.settings);
  if (args.flag("mute")) master->setMuted(true);
  if (args.flag("no-inhibit")) master->setInhibitsSleep(false);
  if (args.flag("normalize")) master->setLoudnessNormalization(true);
  if (!announcement.empty()) std::fprintf(stdout, "%s\n", announcement.c_str());

  std::unique_ptr<PlayTerminal> terminal;
  if (!json && isatty(STDIN_FILENO) && isatty(STDOUT_FILENO)) {
    terminal = std::make_unique<PlayTerminal>(
        master.get(), [&reporter] { return reporter.engineID(); }, [] { BVRunLoop::main().stop(); },
        args.option("record-dir").value_or("."));
    reporter.setTerminal(terminal.get());
  }
  guint sigint = g_unix_signal_add(SIGINT, stopOnSignal, nullptr);
  guint sigterm = g_unix_signal_add(SIGTERM, stopOnSignal, nullptr);
  BVDelayedPerform timeLimit;
  if (duration > 0) timeLimit = BVRunLoop::main().performAfterDelay(duration, [] { BVRunLoop::main().stop(); });
  BVDelayedPerform sleepFade, sleepEnd;
  if (sleepMinutes > 0) {
    double end = sleepMinutes * 60, fade = std::min(30.0, end);
    sleepFade = BVRunLoop::main().performAfterDelay(end - fade, [&master, fade] { master->fadeVolumeTo(0, fade); });
    sleepEnd = BVRunLoop::main().performAfterDelay(end, [] { BVRunLoop::main().stop(); });
  }

  reporter.begin();
  // Played as it is: a copy would ask the server for the link's type
  // before the player's request settings are in force.
  auto link = BVMediaMutableLink::linkWithURL(*url);
  link->setTitleEncoding(requests.titleEncoding);
  master->playLink(link);
  // After playLink, which ends any earlier request: the first title to
  // change after this one ends the play.
  if (args.flag("stop-after-title")) master->stopAfterCurrentTitle();
  if (!json && master->state() != BVPlayerStateError) {
    // The device where there is one ("pulse:SINK"), else the output's name.
    std::string device = master->audioOutputDevice();
    const bool named = device.rfind("pulse:", 0) == 0 || device.rfind("alsa:", 0) == 0;
    std::string note = "Audio output: " + (named ? device : master->audioOutputName());
    if (terminal) terminal->print(note); else std::fprintf(stdout, "%s\n", note.c_str());
  }
  BVPlayerState state = master->state();
  if (state != BVPlayerStateStopped && state != BVPlayerStateError) BVRunLoop::main().run();

  timeLimit.cancel();
  sleepFade.cancel();
  sleepEnd.cancel();
  g_source_remove(sigint);
  g_source_remove(sigterm);
  reporter.setTerminal(nullptr);
  terminal.reset();
  state = master->state();
  BVErrorRef error = reporter.lastError();
  reporter.end();
  mpris.reset();
  master->setOwner(nullptr);
  master.reset();
  demo.reset();
  if (!json) std::fprintf(stdout, "\n");
  if (state != BVPlayerStateError) return 0;
  std::fprintf(stderr, "belvane play: %s\n", playbackFailureLine(error, *url, output).c_str());
  if (LogSink::shared().verbose()) std::fprintf(stderr, "%s\n", playbackFailureDetails(error).c_str());
  return 1;
}

}  // namespace

std::vector<Command> playCommands() {
  return {{"play",
           "[URL] [--output O] [--duration S] [--volume V] [--mute] [--patience S] [--user-agent S] [--header H]"
           " [--proxy URL] [--title-encoding NAME] [--sleep MINUTES] [--stop-after-title] [--no-inhibit]"
           " [--normalize]"
           " [--record-dir DIR] [--json] [--tool] [--tool-path PATH]",
           "Plays URL through the master player until it stops, the duration passes or q is pressed.\n"
           "Without a URL it plays the built-in demo station, a loopback Shoutcast server with a\n"
           "synthesised clip whose titles change with each piece.\n"
           "  --output auto|pulse[:SINK]|alsa[:DEVICE]|null|null:fast|wav:PATH   where the audio goes (default\n"
           "      auto); `belvane outputs` lists the sinks and devices\n"
           "  --duration S   stop after S seconds (S above 0)\n"
           "  --volume V     linear gain from 0 to 1\n"
           "  --mute         start muted\n"
           "  --patience S   seconds a station that breaks off is tried again before the play fails\n"
           "                 (default 300; 0: 10 s)\n"
           "  --user-agent S the User-Agent of every request (default Belvane/0.1)\n"
           "  --header 'Name: value'   an extra header field for every request (may be repeated)\n"
           "  --proxy URL    the proxy every request goes through (\"none\": none; default: the\n"
           "                 environment's http_proxy, https_proxy, all_proxy and no_proxy)\n"
           "  --title-encoding NAME    read the station's titles in this character set (WINDOWS-1251,\n"
           "                 KOI8-R, ...) instead of detecting it\n"
           "  --sleep M      a sleep timer: fade out over the last 30 s of M minutes, then stop\n"
           "  --stop-after-title   stop where the station's next title begins\n"
           "  --no-inhibit   let the machine sleep while playing (by default it is kept awake)\n"
           "  --normalize    play stations at matched loudness (EBU R128, toward -18 LUFS); each\n"
           "                 station starts at the gain it last settled on\n"
           "  --record-dir DIR  where the r key records the station, one file per title (default: .)\n"
           "  --json         one JSON object a line for every player callback, then {\"event\":\"end\"}\n"
           "  --tool         play in a separate player-tool process (state followed by polling)\n"
           "  --tool-path P  the player-tool executable (default: belvane-player-tool beside belvane)\n"
           "Exit status 0 when playback stopped or the duration passed, 1 when it ended in an error\n"
           "(said in one line on stderr), 2 for bad arguments.",
           runPlay,
           {"output", "duration", "volume", "patience", "tool-path", "user-agent", "header", "proxy",
            "title-encoding", "sleep", "record-dir"},
           {"mute", "json", "tool", "no-inhibit", "stop-after-title", "normalize"}}};
}

}  // namespace belvane::tool
