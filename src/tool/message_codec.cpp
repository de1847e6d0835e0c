#include "tool/message_codec.h"

#include <cstring>

namespace belvane::detail {

bool isScalarTypeCode(char code) {
  switch (code) {
    case 'f': case 'd': case 'c': case 'C': case 'i': case 'I': case 'l': case 'L': return true;
    default: return false;
  }
}

BVValue packArgument(char typeCode, const BVValue& argument) {
  switch (typeCode) {
    case 'f': return BVValue(double(float(argument.doubleValue())));
    case 'd': return BVValue(argument.doubleValue());
    case 'c': return BVValue(int64_t(int8_t(argument.integerValue())));
    case 'C': return BVValue(int64_t(uint8_t(argument.integerValue())));
    case 'i': return BVValue(int64_t(int32_t(argument.integerValue())));
    case 'I': return BVValue(int64_t(uint32_t(argument.integerValue())));
    case 'l': return BVValue(int64_t(argument.integerValue()));
    case 'L': return BVValue(int64_t(argument.integerValue()));
    case '@': return argument;
    default: return BVValue(BVNull{});
  }
}

BVValue unpackArgument(char typeCode, const BVValue& element) {
  switch (typeCode) {
    case 'f': return BVValue(double(float(element.doubleValue())));
    case 'd': return BVValue(element.doubleValue());
    case 'c': case 'C': return BVValue(int64_t(int8_t(element.integerValue())));
    case 'i': case 'l': case 'I': case 'L': return BVValue(int64_t(element.integerValue()));
    default: return element;
  }
}

void storeScalarResult(char typeCode, const BVValue& result, bv_player_tool_msg_header_s& header) {
  auto& slot = header.values[0];
  switch (typeCode) {
    case 'f': slot.f = float(result.doubleValue()); break;
    case 'd': slot.d = result.doubleValue(); break;
    case 'c': case 'C': slot.c[0] = char(result.integerValue()); break;
    case 'i': case 'l': slot.i = int32_t(result.integerValue()); break;
    case 'I': case 'L': {
      uint32_t u = uint32_t(result.integerValue());
      std::memcpy(&slot.i, &u, 4);
      break;
    }
    default: break;
  }
}

BVValue loadScalarResult(const bv_player_tool_msg_header_s& header) {
  const auto& slot = header.values[0];
  switch (header.returnType) {
    case 'f': return BVValue(double(slot.f));
    case 'd': return BVValue(slot.d);
    case 'c': return BVValue(int64_t(int8_t(slot.c[0])));
    case 'C': return BVValue(int64_t(uint8_t(slot.c[0])));
    case 'i': case 'l': return BVValue(int64_t(slot.i));
    case 'I': case 'L': {
      uint32_t u;
      std::memcpy(&u, &slot.i, 4);
      return BVValue(int64_t(u));
    }
    default: return BVValue();
  }
}

}  // namespace belvane::detail
