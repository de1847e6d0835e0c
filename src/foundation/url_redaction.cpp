#include "foundation/url_redaction.h"

namespace belvane::detail {

namespace {

// Characters that end a URL's authority in running text.
bool endsAuthority(char c) {
  switch (c) {
    case '/': case '?': case '#': case ' ': case '\t': case '\r': case '\n':
    case '"': case '\'': case '<': case '>': case '(': case ')': case '[': case ']':
      return true;
    default:
      return false;
  }
}

}  // namespace

std::string withoutURLPasswords(std::string_view text) {
  std::string out;
  size_t copied = 0;
  for (size_t at = text.find("://"); at != std::string_view::npos; at = text.find("://", at + 3)) {
    size_t start = at + 3;
    size_t end = start;
    while (end < text.size() && !endsAuthority(text[end])) ++end;
    std::string_view authority = text.substr(start, end - start);
    size_t atSign = authority.rfind('@');
    if (atSign == std::string_view::npos) continue;
    size_t colon = authority.substr(0, atSign).find(':');
    if (colon == std::string_view::npos) continue;
    // Keep the user name, drop ":password".
    out.append(text.substr(copied, start + colon - copied));
    copied = start + atSign;
  }
  if (copied == 0) return std::string(text);
  out.append(text.substr(copied));
  return out;
}

}  // namespace belvane::detail
