// Playing a link in the player tool process (belvane play --tool).
#pragma once

#include "commands.h"

#include <belvane/BVURL.h>

namespace belvane::tool {

// Plays url through the tool at toolPath until it stops or the duration
// passes; the exit status of belvane play. The announcement (when not
// empty) is printed once the tool has started.
int playThroughTool(const std::string& toolPath, const BVURL& url, const std::string& output, double duration,
                    double volume, bool mute, bool json, const std::string& announcement);

}  // namespace belvane::tool
