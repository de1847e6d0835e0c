// Local file MIME types through GIO.
#include "foundation/local_mime_type.h"

#include <gio/gio.h>

namespace belvane::detail {

std::optional<std::string> mimeTypeOfLocalFile(const std::string& path) {
  if (path.empty()) return std::nullopt;
  GFile* file = g_file_new_for_path(path.c_str());
  GFileInfo* info = g_file_query_info(file, G_FILE_ATTRIBUTE_STANDARD_TYPE "," G_FILE_ATTRIBUTE_STANDARD_CONTENT_TYPE,
                                      G_FILE_QUERY_INFO_NONE, nullptr, nullptr);
  g_object_unref(file);
  if (!info) return std::nullopt;

  std::optional<std::string> result;
  const char* contentType = g_file_info_get_content_type(info);
  if (g_file_info_get_file_type(info) != G_FILE_TYPE_DIRECTORY && contentType && *contentType &&
      !g_content_type_is_unknown(contentType)) {
    if (gchar* mime = g_content_type_get_mime_type(contentType)) {
      if (*mime) result = std::string(mime);
      g_free(mime);
    }
  }
  g_object_unref(info);
  return result;
}

}  // namespace belvane::detail
