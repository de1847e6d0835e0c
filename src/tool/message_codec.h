// Packing of forwarded calls: arguments by their type codes into the
// request's argument array, results into and out of the reply header, and
// the payload length bound both ends enforce.
#pragma once

#include <belvane/BVToolConnection.h>
#include "tool/message_format.h"

#include <cstdint>

namespace belvane::detail {

// Larger payloads (or negative lengths) are refused without being read.
constexpr int32_t kMaxToolPayloadBytes = 16 * 1024 * 1024;

bool isScalarTypeCode(char code);
// Client side: the array element for an argument of that type code.
BVValue packArgument(char typeCode, const BVValue& argument);
// Server side: the argument as the invoked operation receives it.
BVValue unpackArgument(char typeCode, const BVValue& element);
// Server side: stores a scalar result raw in value slot 0.
void storeScalarResult(char typeCode, const BVValue& result, bv_player_tool_msg_header_s& header);
// Client side: reads value slot 0 by the reply's type code as a number.
BVValue loadScalarResult(const bv_player_tool_msg_header_s& header);

}  // namespace belvane::detail
