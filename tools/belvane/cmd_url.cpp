// belvane url | mime | head | probe: the URL services from the command line.
#include "commands.h"
#include "url_problems.h"

#include <belvane/BVURLAdditions.h>
#include <belvane/BVURLProbe.h>

#include <chrono>
#include <cmath>
#include <cstdio>

namespace belvane::tool {

namespace {

// How long a command without a time-out of its own waits to learn why.
constexpr double kProblemSeconds = 10.0;

int runURL(const Arguments& args) {
  const std::string& text = args.onePositional("STRING");
  std::optional<BVURL> url;
  if (auto base = args.option("base")) {
    url = bvURLFromString(text, bvURLFromString(*base));
  } else {
    url = bvURLFromString(text);
  }
  if (!url) {
    std::fprintf(stderr, "belvane url: Belvane makes no URL of '%s'\n", text.c_str());
    return 1;
  }
  std::printf("%s\n", url->absoluteString().c_str());
  return 0;
}

// One line on stderr: what the command could not do, and why when known.
int fail(const char* command, const std::string& what, const std::string& why) {
  std::fprintf(stderr, "belvane %s: %s%s%s\n", command, what.c_str(), why.empty() ? "" : ": ", why.c_str());
  return 1;
}

int runMIME(const Arguments& args) {
  BVURL url = requireURL(args.onePositional("URL"));
  double timeout = args.positiveNumber("timeout", 2.0);
  auto started = std::chrono::steady_clock::now();
  auto type = bvRequestMIMETypeWithTimeout(url, timeout);
  if (!type) {
    // The time-out bounds the whole command: asking why gets what is left.
    std::chrono::duration<double> spent = std::chrono::steady_clock::now() - started;
    std::string why = reachProblem(url, timeout - spent.count());
    if (why.empty())
      why = url.isFileURL() ? "the file's content type is not known"
                            : "the server named none within " + std::to_string(int(std::ceil(timeout))) + " s";
    return fail("mime", "no MIME type for " + url.absoluteString(), why);
  }
  std::printf("%s\n", type->c_str());
  return 0;
}

int runHead(const Arguments& args) {
  BVURL url = requireURL(args.onePositional("URL"));
  BVErrorRef error;
  int status = HTTPStatusCodeFromSynchronousHEADReturningError(url, &error);
  std::printf("%d\n", status);
  if (error) return fail("head", "no answer from " + url.absoluteString(), describeError(error));
  return 0;
}

int runProbe(const Arguments& args) {
  BVURL url = requireURL(args.onePositional("URL"));
  auto type = BVURLProbe::create(url)->contentType();
  if (!type) {
    std::string why = reachProblem(url, kProblemSeconds);
    if (why.empty()) why = "its first bytes name none";
    return fail("probe", "no content type for " + url.absoluteString(), why);
  }
  std::printf("%s\n", type->c_str());
  return 0;
}

}  // namespace

std::vector<Command> urlCommands() {
  return {
      {"url", "STRING [--base URL]",
       "Prints the absolute string of the URL made from STRING (resolved against --base when given).\n"
       "Unlike the other commands, STRING is not taken as a file path. Exit status 1 when the\n"
       "string is refused.",
       runURL, {"base"}, {}},
      {"mime", "URL [--timeout S]",
       "Prints the MIME type of URL: from the file for a file URL or path, from the server's answer to\n"
       "a HEAD request for http(s) URLs (waiting at most S seconds, 2.0 by default). Exit status 1 and the\n"
       "reason on stderr when none.",
       runMIME, {"timeout"}, {}},
      {"head", "URL",
       "Prints the HTTP status of a HEAD request for URL (0 when no response came). Any status is an\n"
       "answer (exit status 0); when none came, the error goes to stderr and the exit status is 1.",
       runHead, {}, {}},
      {"probe", "URL",
       "Reads the first bytes URL serves and prints their content type (from the HTTP header, or from a\n"
       "Shoutcast ICY header block). Exit status 1 and the reason on stderr when none.",
       runProbe, {}, {}},
  };
}

}  // namespace belvane::tool
