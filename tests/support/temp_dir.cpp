#include "support/temp_dir.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <glib.h>

namespace belvane::test {

TempDir::TempDir() {
  GError* error = nullptr;
  gchar* dir = g_dir_make_tmp("belvane-test-XXXXXX", &error);
  if (!dir) {
    std::string message = error ? error->message : "unknown error";
    g_clear_error(&error);
    throw std::runtime_error("cannot make a temporary directory: " + message);
  }
  path_ = dir;
  g_free(dir);
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

std::string TempDir::write(const std::string& relativePath, const std::string& contents) const {
  std::filesystem::path p = std::filesystem::path(path_) / relativePath;
  std::filesystem::create_directories(p.parent_path());
  std::ofstream out(p, std::ios::binary);
  out << contents;
  return p.string();
}

}  // namespace belvane::test
