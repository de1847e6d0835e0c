// BVError: an immutable error record (domain, signed code, user-info
// dictionary), shared by reference. Errors travel inside attribute
// dictionaries and archives, so they are objects.
//
// Thread: any; an error is made on whichever thread fails and handed on
// unchanged.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVValue.h>

#include <cstdint>
#include <memory>
#include <string>

class BVError;
using BVErrorRef = std::shared_ptr<const BVError>;

// User-info keys and a domain hosts know from the original platform.
BV_EXPORT extern const char* const BVLocalizedDescriptionKey;        // "NSLocalizedDescription"
BV_EXPORT extern const char* const BVLocalizedFailureReasonErrorKey;  // "NSLocalizedFailureReason"
BV_EXPORT extern const char* const BVFilePathErrorKey;                // "NSFilePath"
BV_EXPORT extern const char* const BVUnderlyingErrorKey;              // "NSUnderlyingError"
BV_EXPORT extern const char* const BVOSStatusErrorDomain;             // "NSOSStatusErrorDomain"

class BV_EXPORT BVError final : public BVObject {
 public:
  static BVErrorRef create(std::string domain, int64_t code, BVDictionary userInfo = {});
  // An error whose user info holds only a localized description.
  static BVErrorRef withDescription(std::string domain, int64_t code, std::string description);

  const std::string& domain() const { return domain_; }
  int64_t code() const { return code_; }
  const BVDictionary& userInfo() const { return userInfo_; }
  bool hasUserInfo() const { return hasUserInfo_; }

  // The localized description: the user-info entry when present, else a
  // generic sentence naming the domain and code.
  std::string localizedDescription() const;

  std::string className() const override { return "NSError"; }
  std::string description() const override;
  bool isEqual(const BVObject& other) const override;
  bool supportsCoding() const override { return true; }
  void encodeWithCoder(belvane::BVArchiveEncoder& coder) const override;

  BVError(std::string domain, int64_t code, BVDictionary userInfo, bool hasUserInfo);

 private:
  std::string domain_;
  int64_t code_;
  BVDictionary userInfo_;
  bool hasUserInfo_;
};
