// belvane http-error | qt-error: the error mapping as JSON.
#include "commands.h"

#include <belvane/BVErrorMapping.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace belvane::tool {

namespace {

int parseCode(const Arguments& args) {
  const std::string& text = args.onePositional("CODE");
  char* end = nullptr;
  errno = 0;
  long code = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end || errno == ERANGE || code < INT32_MIN || code > INT32_MAX)
    throw UsageError("CODE must be a whole number, not '" + text + "'");
  return int(code);
}

int runHTTPError(const Arguments& args) {
  std::printf("%s\n", errorToJSON(BVErrorForHTTPErrorCode(parseCode(args))).dump().c_str());
  return 0;
}

int runQTError(const Arguments& args) {
  std::printf("%s\n", errorToJSON(BVErrorForQuickTimeErrorCode(parseCode(args))).dump().c_str());
  return 0;
}

}  // namespace

std::vector<Command> errorCommands() {
  return {
      {"http-error", "CODE",
       "Prints the error for HTTP status CODE as JSON {\"domain\",\"code\",\"userInfo\"}, or null when the\n"
       "HTTP error table has no message for it.",
       runHTTPError, {}, {}},
      {"qt-error", "CODE",
       "Prints the error for a movie-loading failure CODE as JSON: the HTTP error when the table lists\n"
       "the code, otherwise an NSOSStatusErrorDomain error.",
       runQTError, {}, {}},
  };
}

}  // namespace belvane::tool
