// belvane outputs: the machine's audio outputs, as `belvane play --output`
// takes them.
#include "commands.h"

#include <belvane/BVAudioOutputs.h>

#include <cstdio>

namespace belvane::tool {

namespace {

int runOutputs(const Arguments& args) {
  std::vector<BVAudioOutput> outputs = BVAudioOutputs();
  if (args.flag("json")) {
    auto out = nlohmann::ordered_json::array();
    for (const auto& o : outputs) out.push_back({{"name", o.name}, {"description", o.description}, {"default", o.isDefault}});
    std::printf("%s\n", out.dump(2).c_str());
    return 0;
  }
  if (outputs.empty()) std::printf("No sound server sinks or ALSA devices found.\n");
  for (const auto& o : outputs)
    std::printf("%s %s\n    %s\n", o.isDefault ? "*" : " ", o.name.c_str(), o.description.c_str());
  return 0;
}

}  // namespace

std::vector<Command> outputCommands() {
  return {
      {"outputs", "[--json]",
       "The machine's audio outputs: the sound server's sinks (\"pulse:NAME\"), then ALSA's playback\n"
       "devices (\"alsa:NAME\"), each with its description; '*' marks the system default. Any name\n"
       "is a value for `belvane play --output`.",
       runOutputs, {}, {"json"}},
  };
}

}  // namespace belvane::tool
