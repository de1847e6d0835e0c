// HTTP and movie-loading error codes as errors a user can read.
#include <belvane/BVErrorMapping.h>
#include <belvane/BVPropertyList.h>
#include <belvane/BVResources.h>

#include <string>

namespace {
constexpr const char* kNetHTTPErrorDomain = "NetHTTPErrorDomain";
}

BVErrorRef BVErrorForHTTPErrorCode(int code) {
  // The table is read afresh on every call; nothing is cached.
  auto path = BVResources::frameworkPathForResource("HTTPErrors", "plist");
  if (!path) return nullptr;
  auto table = BVPropertyList::readFile(*path);
  if (!table || !table->isDictionary()) return nullptr;
  const std::string key = std::to_string(code);
  const std::string* message = BVDictionaryString(*table->dictionary(), key);
  if (!message) return nullptr;
  return BVError::withDescription(kNetHTTPErrorDomain, code, key + "/" + *message);
}

BVErrorRef BVErrorForQuickTimeErrorCode(int code) {
  // Movie loading passes HTTP statuses through; everything else is an OS status.
  if (auto error = BVErrorForHTTPErrorCode(code)) return error;
  return BVError::create(BVOSStatusErrorDomain, code);
}
