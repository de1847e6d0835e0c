// Registers the media records with the archive layer, so that archives
// holding formats, links and link sources decode into the same classes.
#include <belvane/BVArchive.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVMediaLinkSource.h>

#include "model/model_archiving.h"

#include <mutex>

namespace belvane::detail {
namespace {

// Wraps a record's createWithCoder as a factory; a refused record gives an
// absent value, which fails the whole decode.
template <class T>
BVArchiveFactory factoryFor() {
  return [](BVArchiveDecoder& coder) -> BVValue { return BVValue(T::createWithCoder(coder)); };
}

void registerRecords() {
  BVArchiveRegisterClass("BVMediaFormat", factoryFor<BVMediaFormat>());
  BVArchiveRegisterClass("BVMediaMutableFormat", factoryFor<BVMediaMutableFormat>());
  BVArchiveRegisterClass("BVMediaLink", factoryFor<BVMediaLink>());
  BVArchiveRegisterClass("BVMediaMutableLink", factoryFor<BVMediaMutableLink>());
  BVArchiveRegisterClass("BVMediaLinkSource", factoryFor<BVMediaLinkSource>());
  BVArchiveRegisterClass("BVMediaMutableLinkSource", factoryFor<BVMediaMutableLinkSource>());
}

// Registered when the library loads, so that any decode finds the records.
[[maybe_unused]] const bool kRegistered = (BVModelArchivableClasses(), true);

}  // namespace

const std::set<std::string, std::less<>>& BVModelArchivableClasses() {
  static std::once_flag once;
  std::call_once(once, registerRecords);
  static const std::set<std::string, std::less<>> classes = {
      "BVMediaFormat",     "BVMediaMutableFormat",     "BVMediaLink", "BVMediaMutableLink",
      "BVMediaLinkSource", "BVMediaMutableLinkSource", "NSError"};
  return classes;
}

}  // namespace belvane::detail
