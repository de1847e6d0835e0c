// mimeTypeWithoutParameters over the shared trimming and lower-casing.
#include "foundation/mime_type.h"

#include "foundation/text_encoding.h"

namespace belvane::detail {

std::string mimeTypeWithoutParameters(std::string_view contentType, MIMETypeCase letterCase) {
  std::string type = trimWhitespaceAndNewlines(contentType.substr(0, contentType.find(';')));
  return letterCase == MIMETypeCase::Lower ? asciiLower(type) : type;
}

}  // namespace belvane::detail
