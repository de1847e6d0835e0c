// Hand-built ISO/QuickTime boxes for the metadata tests.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace belvane::test {

inline std::string u32(uint32_t v) {
  return {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
}
inline std::string u16(uint16_t v) { return {char(v >> 8), char(v)}; }

// A box of a 4-byte type ("\xA9nam" for ©nam) around its payload.
inline std::string box(const std::string& type, const std::string& payload) {
  return u32(uint32_t(payload.size() + 8)) + type + payload;
}
inline std::string fullBox(const std::string& type, const std::string& payload) {
  return box(type, u32(0) + payload);
}
// An item's data box: well-known type, locale, value.
inline std::string dataBox(uint32_t type, const std::string& value) { return box("data", u32(type) + u32(0) + value); }
// One text record of a classic user-data entry.
inline std::string textRecord(const std::string& text, uint16_t language) {
  return u16(uint16_t(text.size())) + u16(language) + text;
}
inline std::string hdlr(const std::string& handler) { return fullBox("hdlr", u32(0) + handler + std::string(12, '\0') + '\0'); }
inline std::string movieFile(const std::string& moovPayload) {
  return box("ftyp", "qt  " + u32(0x200) + "qt  ") + box("moov", moovPayload);
}
inline std::span<const uint8_t> bytes(const std::string& s) {
  return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}

}  // namespace belvane::test
