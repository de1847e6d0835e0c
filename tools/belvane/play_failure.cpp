// Explanations for playback errors, from the error, the URL and the log.
#include "play_failure.h"

#include "log_sink.h"
#include "url_problems.h"

#include <belvane/BVConstants.h>

#include <cctype>
#include <cstdint>

namespace belvane::tool {

namespace {

constexpr int32_t fourCC(const char (&c)[5]) {
  return int32_t(uint32_t(uint8_t(c[0])) << 24 | uint32_t(uint8_t(c[1])) << 16 | uint32_t(uint8_t(c[2])) << 8 |
                 uint32_t(uint8_t(c[3])));
}

// The audio output's start codes (four characters beginning with 'O').
bool isOutputStartCode(int64_t code) { return code > 0 && (uint64_t(code) >> 24) == 'O'; }

// The last output log line that begins with prefix, the rest of it; empty
// when there is none.
std::string outputLogDetail(const std::string& prefix) {
  std::string found;
  for (auto& line : LogSink::shared().recentLines("Audio output: " + prefix)) found = line;
  return found;
}

std::string outputFailure(int32_t code, const std::string& output) {
  std::string name = output == "auto" ? "the automatic choice" : "'" + output + "'";
  std::string why, detail;
  if (code == fourCC("Opul")) {
    why = "no PulseAudio (or PipeWire) server answered";
    detail = outputLogDetail("PulseAudio unavailable: ");
  } else if (code == fourCC("Oals")) {
    why = "no ALSA sound device could be opened";
    detail = outputLogDetail("ALSA unavailable: ");
    if (detail.empty()) detail = outputLogDetail("ALSA cannot play ");
  } else if (code == fourCC("Owav")) {
    std::string path = output.rfind("wav:", 0) == 0 ? output.substr(4) : std::string("the WAV file");
    why = "the WAV file " + path + " cannot be written";
    detail = outputLogDetail("cannot open \"" + path + "\": ");
  } else if (code == fourCC("Onop")) {
    why = "no sound server, sound card or silent output could be opened";
  } else if (code == fourCC("Ospc")) {
    why = "the output setting is not understood";
  } else if (code == fourCC("Othr")) {
    why = "its thread could not start";
  } else {
    why = "it reported code " + std::to_string(code);
  }
  return "the audio output " + name + " could not start: " + why + (detail.empty() ? "" : " (" + detail + ")");
}

}  // namespace

std::string explainPlaybackError(const BVErrorRef& error, const BVURL& url, const std::string& output) {
  if (!error) return {};
  if (error->domain() == BVShoutstreamerErrorDomain && isOutputStartCode(error->code()))
    return outputFailure(int32_t(error->code()), output);
  if (url.isFileURL()) {
    if (auto problem = fileProblem(url); !problem.empty()) return problem;
    if (error->domain() == BVOSStatusErrorDomain || error->domain() == BVShoutstreamerErrorDomain)
      return url.fileSystemPath() + " is damaged or is not a sound file";
    return {};
  }
  // Whatever the engines made of it (no stream found, not available), an
  // address of another kind was never going to play.
  std::string scheme = url.scheme();
  for (auto& c : scheme) c = char(std::tolower(static_cast<unsigned char>(c)));
  if (scheme != "http" && scheme != "https" && scheme != "icy")
    return "addresses beginning '" + scheme + ":' are not supported; use http:, https: or a file path";
  return {};
}

std::string playbackFailureLine(const BVErrorRef& error, const BVURL& url, const std::string& output) {
  std::string line = error ? error->localizedDescription() : std::string("Playback failed.");
  std::string why = explainPlaybackError(error, url, output);
  if (!why.empty()) line += " (" + why + ")";
  return line;
}

std::string playbackFailureDetails(const BVErrorRef& error) {
  if (!error) return {};
  auto it = error->userInfo().find(BVBasePlayerErrorKey);
  return it != error->userInfo().end() && it->second.string() ? *it->second.string() : std::string();
}

}  // namespace belvane::tool
