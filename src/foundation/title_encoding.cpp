// Station title decoding: UTF-8, an override, or uchardet's guess narrowed
// to the character sets stations use, with two corrections where short
// titles mislead the detector.
#include "foundation/title_encoding.h"

#include <uchardet/uchardet.h>

#include <memory>
#include <optional>

#include "foundation/text_encoding.h"

namespace belvane::detail {
namespace {

// uchardet's name for what it found; empty when it found nothing.
std::string detectedCharset(std::span<const uint8_t> bytes) {
  std::unique_ptr<std::remove_pointer_t<uchardet_t>, decltype(&uchardet_delete)> detector(uchardet_new(),
                                                                                           &uchardet_delete);
  if (!detector) return {};
  if (uchardet_handle_data(detector.get(), reinterpret_cast<const char*>(bytes.data()), bytes.size()) != 0) return {};
  uchardet_data_end(detector.get());
  const char* name = uchardet_get_charset(detector.get());
  return name ? asciiLower(name) : std::string();
}

// Windows-1251 and KOI8-R hold the same letters with the cases swapped:
// lower case is 0xE0-0xFF in Windows-1251 and 0xC0-0xDF in KOI8-R. Titles
// are mostly lower case, so the busier half tells them apart.
const char* cyrillicCharset(std::span<const uint8_t> bytes) {
  int upperHalf = 0, lowerHalf = 0;
  for (uint8_t b : bytes) {
    if (b >= 0xE0) ++upperHalf;
    else if (b >= 0xC0) ++lowerHalf;
  }
  return upperHalf >= lowerHalf ? "WINDOWS-1251" : "KOI8-R";
}

bool isASCIILetter(uint8_t b) { return (b | 0x20) >= 'a' && (b | 0x20) <= 'z'; }

// Bytes that are letters in ISO-8859-2 (Ą Ł Ś Š Ź Ž Ż ą ł ś š ź ž ż ...)
// but signs in Windows-1252 (¡ £ ¦ © ± ³ ¶ ¼ ¿ ...).
bool isLatin2OnlyLetter(uint8_t b) {
  switch (b) {
    case 0xA1: case 0xA3: case 0xA5: case 0xA6: case 0xA9: case 0xAA: case 0xAB: case 0xAC: case 0xAE:
    case 0xAF: case 0xB1: case 0xB3: case 0xB5: case 0xB6: case 0xB9: case 0xBA: case 0xBB: case 0xBC:
    case 0xBE: case 0xBF: return true;
    default: return false;
  }
}

// A Central European title that the detector, on a few words, takes for
// Western: such a sign inside a word, and none of Windows-1252's own
// 0x80-0x9F characters (which ISO-8859-2 lacks).
bool looksLatin2(std::span<const uint8_t> bytes) {
  bool signInWord = false;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] >= 0x80 && bytes[i] <= 0x9F) return false;
    if (!isLatin2OnlyLetter(bytes[i])) continue;
    bool before = i > 0 && (isASCIILetter(bytes[i - 1]) || bytes[i - 1] >= 0xC0);
    bool after = i + 1 < bytes.size() && (isASCIILetter(bytes[i + 1]) || bytes[i + 1] >= 0xC0);
    if (before || after) signInWord = true;
  }
  return signInWord;
}

// The character set to read the title in, among those stations use.
const char* stationCharset(std::span<const uint8_t> bytes) {
  const std::string found = detectedCharset(bytes);
  if (found == "windows-1251" || found == "koi8-r" || found == "ibm866" || found == "ibm855" ||
      found == "iso-8859-5" || found == "mac-cyrillic")
    return cyrillicCharset(bytes);
  if (found == "shift_jis" || found == "euc-jp" || found == "iso-2022-jp") return "SHIFT_JIS";
  if (found == "gb18030" || found == "gb2312" || found == "gbk" || found == "big5" || found == "euc-tw")
    return "GB18030";
  if (found == "iso-8859-2" || found == "windows-1250") return "ISO-8859-2";
  if (found.empty()) {
    // Too little text for the detector: a run of double-byte characters is
    // most likely Chinese.
    if (decodeText(bytes, "GB18030")) return "GB18030";
  }
  return looksLatin2(bytes) ? "ISO-8859-2" : "WINDOWS-1252";
}

}  // namespace

std::string stationTitleToUTF8(std::span<const uint8_t> bytes, std::string_view encodingOverride) {
  if (bytes.empty()) return {};
  if (!encodingOverride.empty())
    if (auto text = decodeText(bytes, std::string(encodingOverride).c_str())) return *text;
  if (isValidUTF8(bytes)) return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (auto text = decodeText(bytes, stationCharset(bytes))) return *text;
  if (auto text = decodeText(bytes, "WINDOWS-1252")) return *text;
  return latin1ToUTF8(bytes);
}

}  // namespace belvane::detail
