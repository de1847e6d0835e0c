// The operations the player tool's player answers, with their argument and
// return type codes: the one table both ends of the connection read, the
// host to pack arguments and read results, the tool to check what it serves.
#pragma once

#include "tool/tool_connection.h"

namespace belvane::detail {

const BVRemoteInterface& playerToolInterface();

}  // namespace belvane::detail
