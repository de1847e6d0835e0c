// belvane playlist: loads a web playlist and prints its reader, flags,
// delegate calls and tracks; or runs one reader on a local file's text.
#include "commands.h"
#include "url_problems.h"

#include <belvane/BVASXWebPlaylist.h>
#include <belvane/BVM3UWebPlaylist.h>
#include <belvane/BVPLSWebPlaylist.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURLAdditions.h>
#include <belvane/BVWebPlaylist.h>

#include <glib.h>

#include <cstdio>

namespace belvane::tool {

namespace {

// Records the delegate calls in the order they arrive.
class EventRecorder : public BVWebPlaylistDelegate {
 public:
  void playlistDidFinishLoading(BVWebPlaylist&) override {
    events.push_back({{"call", "playlistDidFinishLoading:"}});
    finished = true;
  }
  void playlistDidFailWithError(BVWebPlaylist&, const BVErrorRef& error) override {
    events.push_back({{"call", "playlist:didFailWithError:"}, {"error", errorToJSON(error)}});
    failed = true;
    if (!failure) failure = error;
    // An error status leaves the body coming; a connection failure ends the load.
    bodyMayFollow = error && error->domain() == "BVWebPlaylist" && error->code() == -1;
  }
  nlohmann::ordered_json events = nlohmann::ordered_json::array();
  bool finished = false;
  bool failed = false;
  bool bodyMayFollow = false;
  BVErrorRef failure;  // the first failure reported
};

void printTracks(const BVArray& tracks, bool json, nlohmann::ordered_json* out) {
  if (json) {
    (*out)["tracks"] = nlohmann::ordered_json::array();
    for (auto& t : tracks) (*out)["tracks"].push_back(valueToJSON(t));
    return;
  }
  std::printf("tracks: %zu\n", tracks.size());
  size_t i = 0;
  for (auto& t : tracks) {
    std::printf("  %zu:", ++i);
    if (auto d = t.dictionary())
      for (auto& [k, v] : *d) std::printf(" %s=%s", k.c_str(), v.description().c_str());
    std::printf("\n");
  }
}

// The reader for a file's extension, as the playlist registry would choose it
// for a URL; empty when the extension names none.
std::string readerForExtension(const std::string& path) {
  auto dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return {};
  gchar* lower = g_ascii_strdown(path.c_str() + dot + 1, -1);
  std::string ext = lower;
  g_free(lower);
  if (ext == "m3u" || ext == "m3u8") return "m3u";
  if (ext == "pls") return "pls";
  if (ext == "asx" || ext == "wax" || ext == "wvx") return "asx";
  return {};
}

int runOnFile(const std::string& path, const std::string& as, bool json) {
  BVWebPlaylistRef reader;
  if (as == "m3u") reader = BVM3UWebPlaylist::create();
  else if (as == "pls") reader = BVPLSWebPlaylist::create();
  else if (as == "asx") reader = BVASXWebPlaylist::create();
  else throw UsageError("--as takes m3u, pls or asx");
  gchar* bytes = nullptr;
  gsize length = 0;
  GError* error = nullptr;
  if (!g_file_get_contents(path.c_str(), &bytes, &length, &error)) {
    std::fprintf(stderr, "belvane playlist: %s\n", error->message);
    g_error_free(error);
    return 1;
  }
  auto text = BVWebPlaylist::stringFromData({reinterpret_cast<const uint8_t*>(bytes), length});
  g_free(bytes);
  if (!text) {
    std::fprintf(stderr, "belvane playlist: '%s' is neither UTF-8 nor Windows-1252 text\n", path.c_str());
    return 1;
  }
  reader->generateTracksFromString(*text);
  nlohmann::ordered_json out;
  if (json) out["class"] = reader->className();
  else std::printf("class: %s\n", reader->className().c_str());
  printTracks(reader->tracks(), json, &out);
  if (json) std::printf("%s\n", out.dump().c_str());
  return 0;
}

int runPlaylist(const Arguments& args) {
  bool json = args.flag("json");
  if (auto file = args.option("file")) {
    if (!args.positional().empty()) throw UsageError("--file takes no URL");
    std::string as = args.option("as").value_or(readerForExtension(*file));
    if (as.empty()) throw UsageError("the extension of '" + *file + "' names no reader: give --as m3u|pls|asx");
    return runOnFile(*file, as, json);
  }
  const std::string& text = args.onePositional("URL");
  auto url = std::optional<BVURL>(requireURL(text));

  auto playlist = BVWebPlaylist::initWithURL(*url);
  if (!playlist) {
    if (json) std::printf("%s\n", nlohmann::ordered_json({{"class", nullptr}}).dump().c_str());
    std::fprintf(stderr, "belvane playlist: no playlist reader accepts %s\n", text.c_str());
    return 1;
  }
  EventRecorder recorder;
  playlist->setDelegate(&recorder);
  bool timedOut = false;
  if (args.flag("sync")) {
    playlist->load();
  } else {
    playlist->loadAsynchronously();
    // Runs until the playlist has finished or failed; after a failure (an
    // error page) the body may still arrive and finish the playlist.
    BVRunLoop loop = BVRunLoop::current();
    loop.runUntil([&] { return recorder.finished || recorder.failed; }, 120);
    if (!recorder.finished && recorder.bodyMayFollow) loop.runUntil([&] { return recorder.finished; }, 30);
    timedOut = !recorder.finished && !recorder.failed;
  }
  playlist->setDelegate(nullptr);

  nlohmann::ordered_json out;
  if (json) {
    out["class"] = playlist->className();
    out["loadSucceeded"] = playlist->loadSucceeded();
    out["finishedLoading"] = playlist->isFinishedLoading();
    out["events"] = recorder.events;
  } else {
    std::printf("class: %s\nloadSucceeded: %s\nfinishedLoading: %s\n", playlist->className().c_str(),
                playlist->loadSucceeded() ? "yes" : "no", playlist->isFinishedLoading() ? "yes" : "no");
    for (auto& e : recorder.events) std::printf("event: %s\n", e.dump().c_str());
  }
  printTracks(playlist->tracks(), json, &out);
  if (json) std::printf("%s\n", out.dump().c_str());

  // The report above is the playlist's own account (an error page still
  // "loads"); the exit status says whether the playlist was really had. The
  // blocking load hears of no error status: an empty playlist may be an
  // error page, which a HEAD request tells.
  std::string why;
  if (recorder.failure) {
    why = describeError(recorder.failure);
  } else if (timedOut) {
    why = "no answer within two minutes";
  } else if (!playlist->loadSucceeded() || playlist->tracks().empty()) {
    why = reachProblem(*url, 10.0);
    if (why.empty() && !playlist->loadSucceeded()) why = "nothing could be read";
  }
  if (why.empty()) return 0;
  std::fprintf(stderr, "belvane playlist: %s: %s\n", url->absoluteString().c_str(), why.c_str());
  return 1;
}

constexpr const char* kPlaylistHelp =
    R"(Loads the web playlist at URL (asynchronously on the run loop, or with --sync in one blocking
fetch) and prints the reader chosen, loadSucceeded, finishedLoading, every delegate call in
order and the tracks. Exit status 1, with the reason on stderr, when the download failed or
the server answered with an error page (whose report is still printed).
--file runs one reader on a local file's decoded text (no network); without --as the file's
extension chooses it (.m3u, .m3u8, .pls, .asx, .wax, .wvx).)";

}  // namespace

std::vector<Command> playlistCommands() {
  return {{"playlist", "URL [--json] [--sync] | --file PATH [--as m3u|pls|asx] [--json]", kPlaylistHelp, runPlaylist,
           {"file", "as"}, {"json", "sync"}}};
}

}  // namespace belvane::tool
