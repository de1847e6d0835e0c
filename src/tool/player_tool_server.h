// The player the tool process vends: a BVMasterPlayer driven by forwarded
// calls, answering with its volume, elapsed time, attributes, last error and
// state, and loading patch libraries on request.
#pragma once

#include <belvane/BVBasePlayer.h>
#include <belvane/BVToolConnection.h>

#include <memory>
#include <vector>

class BVMasterPlayer;

namespace belvane::detail {

class PlayerToolServer final : public BVVendable, public BVPlayerOwner {
 public:
  explicit PlayerToolServer(BVToolConnection& connection);
  ~PlayerToolServer() override;

  const BVRemoteInterface& remoteInterface() override { return interface_; }

  void playerStateChanged(BVBasePlayer& player, BVPlayerState from, BVPlayerState to, const BVErrorRef& error) override;

  // A patch library exports this factory; it returns a new object of the
  // named principal class, or nullptr.
  using PatchFactory = BVObject* (*)(const char* principalClass);
  static constexpr const char* kPatchFactorySymbol = "BVCreatePrincipalInstance";

 private:
  BVValue loadPatchLibrary(const BVValue& library, const BVValue& principalClass);

  BVToolConnection& connection_;
  std::shared_ptr<BVMasterPlayer> player_;
  BVErrorRef lastError_;
  std::vector<std::shared_ptr<BVObject>> patches_;
  BVRemoteInterface interface_;
};

}  // namespace belvane::detail
