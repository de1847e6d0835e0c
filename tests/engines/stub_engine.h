// An engine for tests: fixed availability and identifier, and a formats
// file name that no resource has.
#pragma once

#include <belvane/BVBasePlayerEngine.h>

namespace belvane::test {

class StubEngine final : public BVBasePlayerEngine {
 public:
  explicit StubEngine(bool available, std::optional<std::string> id = std::nullopt)
      : available_(available), id_(std::move(id)) {}
  bool isAvailable() override { return available_; }
  std::optional<std::string> engineID() const override { return id_; }
  std::string formatsFileName() const override { return "Formats-DoesNotExist"; }
  std::optional<BVURL> installerDownloadURL() const override { return std::nullopt; }
  std::string className() const override { return "StubEngine"; }

 private:
  bool available_;
  std::optional<std::string> id_;
};

}  // namespace belvane::test
