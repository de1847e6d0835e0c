// The archivable form of a BVToolException ("NSException": name, reason),
// carried as the payload of a type-2 reply.
#pragma once

#include <belvane/BVToolConnection.h>

namespace belvane::detail {

class ToolExceptionObject final : public BVObject {
 public:
  ToolExceptionObject(std::string name, std::string reason) : name_(std::move(name)), reason_(std::move(reason)) {}
  const std::string& name() const { return name_; }
  const std::string& reason() const { return reason_; }
  std::string className() const override { return "NSException"; }
  std::string description() const override { return name_ + ": " + reason_; }
  bool supportsCoding() const override { return true; }
  void encodeWithCoder(BVArchiveEncoder& coder) const override;

 private:
  std::string name_, reason_;
};

// Registers the decoder (once).
void registerToolExceptionClass();

}  // namespace belvane::detail
