// A temporary directory for one test, removed with its contents at the end.
#pragma once

#include <string>

namespace belvane::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // Writes a file below the directory (creating parent folders) and returns its path.
  std::string write(const std::string& relativePath, const std::string& contents) const;

 private:
  std::string path_;
};

}  // namespace belvane::test
