// The tool connection's wire format: each message is this fixed 44-byte
// header, then an archived payload (a dictionary under the two keys below
// for a request, the result for a reply). Both ends of the pipes read it;
// nothing outside the library does.
#pragma once

#include <cstdint>

// The message header, in the machine's byte order: value slots start at
// byte 12, so the record is packed to 4-byte alignment.
#pragma pack(push, 4)
union bv_player_tool_value_slot {
  double d;
  float f;
  int32_t i;
  char c[2];
  uint8_t bytes[8];
};
struct bv_player_tool_msg_header_s {
  int32_t type;  // 0 normal; 2 in a reply: the payload is a server exception
  char returnType;  // in a reply: the invoked method's return type code
  char padding[3];
  int32_t length;  // payload bytes that follow
  bv_player_tool_value_slot values[4];
};
#pragma pack(pop)
static_assert(sizeof(bv_player_tool_msg_header_s) == 44, "the message header is 44 bytes");

extern const char* const kBVPlayerToolMsgSelector;  // "kBVPlayerToolMsgSelector"
extern const char* const kBVPlayerToolMsgArgs;      // "kBVPlayerToolMsgArgs"
