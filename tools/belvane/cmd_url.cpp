// belvane url | mime | head | probe: the URL services from the command line.
#include "commands.h"

#include <belvane/BVURLAdditions.h>
#include <belvane/BVURLProbe.h>

#include <cstdio>

namespace belvane::tool {

namespace {

int runURL(const Arguments& args) {
  const std::string& text = args.onePositional("STRING");
  std::optional<BVURL> url;
  if (auto base = args.option("base")) {
    url = bvURLFromString(text, bvURLFromString(*base));
  } else {
    url = bvURLFromString(text);
  }
  if (!url) return 1;
  std::printf("%s\n", url->absoluteString().c_str());
  return 0;
}

int runMIME(const Arguments& args) {
  BVURL url = requireURL(args.onePositional("URL"));
  double timeout = args.number("timeout", 2.0);
  if (timeout <= 0) throw UsageError("--timeout must be positive");
  auto type = bvRequestMIMETypeWithTimeout(url, timeout);
  if (!type) return 1;
  std::printf("%s\n", type->c_str());
  return 0;
}

int runHead(const Arguments& args) {
  BVURL url = requireURL(args.onePositional("URL"));
  BVErrorRef error;
  int status = HTTPStatusCodeFromSynchronousHEADReturningError(url, &error);
  std::printf("%d\n", status);
  if (error) {
    std::printf("error: %s %lld %s\n", error->domain().c_str(), static_cast<long long>(error->code()),
                error->localizedDescription().c_str());
  }
  return 0;
}

int runProbe(const Arguments& args) {
  BVURL url = requireURL(args.onePositional("URL"));
  auto type = BVURLProbe::create(url)->contentType();
  if (!type) return 1;
  std::printf("%s\n", type->c_str());
  return 0;
}

}  // namespace

std::vector<Command> urlCommands() {
  return {
      {"url", "STRING [--base URL]",
       "Prints the absolute string of the URL made from STRING (resolved against --base when given).\n"
       "Exit status 1 and no output when the string is refused.",
       runURL, {"base"}, {}},
      {"mime", "URL [--timeout S]",
       "Prints the MIME type of URL: from the file for file URLs, from the server's answer to a HEAD\n"
       "request for http(s) URLs (waiting at most S seconds, 2.0 by default). Exit status 1 when none.",
       runMIME, {"timeout"}, {}},
      {"head", "URL",
       "Prints the HTTP status of a HEAD request for URL (0 when no response came), and when an error\n"
       "came back a second line: error: DOMAIN CODE DESCRIPTION.",
       runHead, {}, {}},
      {"probe", "URL",
       "Reads the first bytes URL serves and prints their content type (from the HTTP header, or from a\n"
       "Shoutcast ICY header block). Exit status 1 when none.",
       runProbe, {}, {}},
  };
}

}  // namespace belvane::tool
