// Dispatch, argument parsing and JSON helpers of the belvane tool.
#include "commands.h"

#include "log_sink.h"
#include <belvane/BVURLAdditions.h>

#include <belvane/BVURL.h>
#include <belvane/belvane.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace belvane::tool {

Arguments::Arguments(const std::vector<std::string>& args, const std::set<std::string>& valueOptions,
                     const std::set<std::string>& flags) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a.size() > 2 && a.rfind("--", 0) == 0) {
      std::string name = a.substr(2), value;
      bool inlineValue = false;
      if (auto eq = name.find('='); eq != std::string::npos) {
        value = name.substr(eq + 1);
        name = name.substr(0, eq);
        inlineValue = true;
      }
      if (valueOptions.count(name)) {
        if (!inlineValue) {
          if (i + 1 >= args.size()) throw UsageError("option --" + name + " needs a value");
          value = args[++i];
        }
        options_[name] = value;
        givenOptions_.emplace_back(name, value);
      } else if (flags.count(name) && !inlineValue) {
        flags_.insert(name);
      } else {
        throw UsageError("unknown option --" + name);
      }
    } else {
      positional_.push_back(a);
    }
  }
}

std::optional<std::string> Arguments::option(const std::string& name) const {
  auto it = options_.find(name);
  if (it == options_.end()) return std::nullopt;
  return it->second;
}

std::vector<std::string> Arguments::allValues(const std::string& name) const {
  std::vector<std::string> values;
  for (const auto& [given, value] : givenOptions_)
    if (given == name) values.push_back(value);
  return values;
}

const std::string& Arguments::onePositional(const char* what) const {
  if (positional_.empty()) throw UsageError(std::string("missing ") + what);
  if (positional_.size() > 1) throw UsageError("unexpected argument '" + positional_[1] + "'");
  return positional_[0];
}

double Arguments::number(const std::string& name, double fallback) const {
  auto v = option(name);
  if (!v) return fallback;
  char* end = nullptr;
  double d = std::strtod(v->c_str(), &end);
  if (v->empty() || *end || std::isnan(d)) throw UsageError("option --" + name + " needs a number, not '" + *v + "'");
  return d;
}

double Arguments::positiveNumber(const std::string& name, double fallback) const {
  double d = number(name, fallback);
  if (option(name) && !(d > 0 && std::isfinite(d)))
    throw UsageError("option --" + name + " needs a number above 0, not '" + *option(name) + "'");
  return d;
}

BVURL requireURL(const std::string& text) {
  auto url = bvURLFromArgument(text);
  if (!url) throw UsageError("'" + text + "' is neither a URL nor a file path");
  return *url;
}

nlohmann::ordered_json valueToJSON(const BVValue& value) {
  switch (value.kind()) {
    case BVValue::Kind::None:
    case BVValue::Kind::Null: return nullptr;
    case BVValue::Kind::String: return *value.string();
    case BVValue::Kind::Integer: return value.integerValue();
    case BVValue::Kind::Real: return value.doubleValue();
    case BVValue::Kind::Boolean: return value.boolValue();
    case BVValue::Kind::Date: return value.date()->secondsSinceReferenceDate;
    case BVValue::Kind::Data: return value.description();
    case BVValue::Kind::Array: {
      auto out = nlohmann::ordered_json::array();
      for (auto& v : *value.array()) out.push_back(valueToJSON(v));
      return out;
    }
    case BVValue::Kind::Dictionary: {
      auto out = nlohmann::ordered_json::object();
      for (auto& [k, v] : *value.dictionary()) out[k] = valueToJSON(v);
      return out;
    }
    case BVValue::Kind::Object:
      if (auto e = value.objectAs<const BVError>()) return errorToJSON(e);
      return value.object()->description();
  }
  return nullptr;
}

nlohmann::ordered_json errorToJSON(const BVErrorRef& error) {
  if (!error) return nullptr;
  return {{"domain", error->domain()}, {"code", error->code()}, {"userInfo", valueToJSON(BVValue(error->userInfo()))}};
}

const std::vector<Command>& allCommands() {
  static const std::vector<Command> commands = [] {
    std::vector<Command> all;
    for (auto group :
         {urlCommands, modelCommands, engineCommands, playlistCommands, errorCommands, playCommands, recordCommands,
          outputCommands, demoStationCommands})
      for (auto& c : group()) all.push_back(c);
    return all;
  }();
  return commands;
}

namespace {

void printUsage(FILE* out) {
  std::fprintf(out, "usage: belvane COMMAND [ARGS...]\n\nCommands:\n");
  for (auto& c : allCommands()) std::fprintf(out, "  %-10s %s\n", c.name, c.synopsis);
  std::fprintf(out,
               "\nWherever a command takes a URL, a file path will do: it becomes a file: URL.\n"
               "\nOptions for every command:\n"
               "  --verbose  show the library's log lines and GLib/GStreamer warnings on stderr\n"
               "             (G_MESSAGES_DEBUG set does the same)\n"
               "\nRun 'belvane COMMAND --help' for a command's options.\n");
}

}  // namespace

int dispatch(int argc, char** argv) {
  // Lines reach a pipe in the order they were written, stdout beside stderr.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  // --verbose may stand anywhere; every command takes it.
  bool verbose = false;
  std::vector<char*> kept;
  for (int i = 0; i < argc; ++i) {
    if (i > 0 && std::string_view(argv[i]) == "--verbose") verbose = true;
    else kept.push_back(argv[i]);
  }
  argc = int(kept.size());
  kept.push_back(nullptr);
  argv = kept.data();
  LogSink::shared().install(verbose);

  if (argc < 2) {
    printUsage(stderr);
    return 2;
  }
  std::string name = argv[1];
  if (name == "--help" || name == "-h" || name == "help") {
    printUsage(stdout);
    return 0;
  }
  if (name == "--version" || name == "version") {
    // The library that is loaded, which may be newer than these headers.
    unsigned long v = bv_version();
    std::printf("belvane %lu.%lu.%lu\n", (v >> 16) & 0xff, (v >> 8) & 0xff, v & 0xff);
    return 0;
  }
  for (auto& c : allCommands()) {
    if (name != c.name) continue;
    std::vector<std::string> rest(argv + 2, argv + argc);
    for (auto& a : rest) {
      if (a == "--help" || a == "-h") {
        std::printf("usage: belvane %s %s\n\n%s\n", c.name, c.synopsis, c.help);
        if (std::string_view(c.synopsis).find("URL") != std::string_view::npos && name != "url")
          std::printf("A file path may stand for URL (it becomes a file: URL).\n");
        return 0;
      }
    }
    try {
      Arguments args(rest, c.valueOptions, c.flags);
      return c.run(args);
    } catch (const UsageError& e) {
      std::fprintf(stderr, "belvane %s: %s (see 'belvane %s --help')\n", c.name, e.what(), c.name);
      return 2;
    }
  }
  std::fprintf(stderr, "belvane: unknown command '%s' (see 'belvane --help')\n", name.c_str());
  return 2;
}

}  // namespace belvane::tool
