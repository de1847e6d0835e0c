// The belvane tool's subcommands and the helpers they share: argument
// parsing, usage errors, and the JSON form of errors and values.
#pragma once

#include <belvane/BVError.h>
#include <belvane/BVURL.h>
#include <belvane/BVValue.h>

#include <nlohmann/json.hpp>

#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace belvane::tool {

int dispatch(int argc, char** argv);

// Bad usage: reported on stderr in one line, exit status 2.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Options of one subcommand: "--name value" options, "--flag" switches and
// positional arguments. Unknown options are usage errors.
class Arguments {
 public:
  Arguments(const std::vector<std::string>& args, const std::set<std::string>& valueOptions,
            const std::set<std::string>& flags);
  // The option's value (the last one when given more than once).
  std::optional<std::string> option(const std::string& name) const;
  // Every value of an option given more than once, in order.
  std::vector<std::string> allValues(const std::string& name) const;
  bool flag(const std::string& name) const { return flags_.count(name) > 0; }
  const std::vector<std::string>& positional() const { return positional_; }
  // The single positional argument; a usage error when missing or extra.
  const std::string& onePositional(const char* what) const;
  double number(const std::string& name, double fallback) const;
  // A number above 0 (and finite) when given; a usage error otherwise.
  double positiveNumber(const std::string& name, double fallback) const;

 private:
  std::map<std::string, std::string> options_;
  std::vector<std::pair<std::string, std::string>> givenOptions_;  // every one, in order
  std::set<std::string> flags_;
  std::vector<std::string> positional_;
};

struct Command {
  const char* name;
  const char* synopsis;
  const char* help;
  int (*run)(const Arguments& args);
  std::set<std::string> valueOptions;
  std::set<std::string> flags;
};

const std::vector<Command>& allCommands();

// The URL made of a command-line argument (a file path becomes a file URL);
// a usage error when refused.
BVURL requireURL(const std::string& text);

nlohmann::ordered_json valueToJSON(const BVValue& value);
nlohmann::ordered_json errorToJSON(const BVErrorRef& error);

// Each subcommand group registers its commands here.
std::vector<Command> urlCommands();
std::vector<Command> modelCommands();
std::vector<Command> errorCommands();
std::vector<Command> engineCommands();
std::vector<Command> playlistCommands();
std::vector<Command> playCommands();
std::vector<Command> recordCommands();
std::vector<Command> outputCommands();
std::vector<Command> demoStationCommands();

}  // namespace belvane::tool
