// The media type of a Content-Type value: what the library compares when it
// asks whether a server sent a given type ("audio/mpeg; charset=x" is
// "audio/mpeg").
#pragma once

#include <string>
#include <string_view>

namespace belvane::detail {

enum class MIMETypeCase { Lower, AsWritten };

// The text before the first ';', white space (Unicode white space and line
// ends) trimmed at both ends; ASCII lower-cased unless the caller keeps the
// case as written (where a type is shown or compared as the server wrote it).
std::string mimeTypeWithoutParameters(std::string_view contentType, MIMETypeCase letterCase = MIMETypeCase::Lower);

}  // namespace belvane::detail
