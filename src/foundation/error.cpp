// BVError: the error record.
#include <belvane/BVArchive.h>
#include <belvane/BVError.h>

#include "foundation/url_redaction.h"

const char* const BVLocalizedDescriptionKey = "NSLocalizedDescription";
const char* const BVLocalizedFailureReasonErrorKey = "NSLocalizedFailureReason";
const char* const BVFilePathErrorKey = "NSFilePath";
const char* const BVUnderlyingErrorKey = "NSUnderlyingError";
const char* const BVOSStatusErrorDomain = "NSOSStatusErrorDomain";

BVError::BVError(std::string domain, int64_t code, BVDictionary userInfo, bool hasUserInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)), hasUserInfo_(hasUserInfo) {}

BVErrorRef BVError::create(std::string domain, int64_t code, BVDictionary userInfo) {
  bool has = !userInfo.empty();
  // Errors are shown to listeners and logged: the texts they carry (the
  // description, the failing URL, the player's details) keep no password.
  for (auto& [key, value] : userInfo)
    if (auto text = value.string(); text && text->find("://") != std::string::npos)
      value = BVValue(belvane::detail::withoutURLPasswords(*text));
  return std::make_shared<const BVError>(std::move(domain), code, std::move(userInfo), has);
}

BVErrorRef BVError::withDescription(std::string domain, int64_t code, std::string description) {
  return create(std::move(domain), code, BVDictionary{{BVLocalizedDescriptionKey, BVValue(std::move(description))}});
}

std::string BVError::localizedDescription() const {
  if (auto s = BVDictionaryString(userInfo_, BVLocalizedDescriptionKey)) return *s;
  return "The operation couldn't be completed. (" + domain_ + " error " + std::to_string(code_) + ".)";
}

std::string BVError::description() const {
  std::string s = "Error Domain=" + domain_ + " Code=" + std::to_string(code_);
  if (hasUserInfo_) s += " UserInfo=" + BVValue(userInfo_).description();
  return s;
}

bool BVError::isEqual(const BVObject& other) const {
  auto o = dynamic_cast<const BVError*>(&other);
  return o && o->domain_ == domain_ && o->code_ == code_ && o->userInfo_ == userInfo_;
}

void BVError::encodeWithCoder(belvane::BVArchiveEncoder& coder) const {
  coder.encodeObject(BVValue(domain_));
  coder.encodeObject(BVValue(code_));
  coder.encodeObject(hasUserInfo_ ? BVValue(userInfo_) : BVValue());
}
