#include "tool/tool_exception.h"

#include <belvane/BVArchive.h>

#include <mutex>

namespace belvane::detail {

void ToolExceptionObject::encodeWithCoder(BVArchiveEncoder& coder) const {
  coder.encodeObject(BVValue(name_));
  coder.encodeObject(BVValue(reason_));
}

void registerToolExceptionClass() {
  static std::once_flag once;
  std::call_once(once, [] {
    BVArchiveRegisterClass("NSException", [](BVArchiveDecoder& coder) -> BVValue {
      BVValue name = coder.decodeObject();
      BVValue reason = coder.decodeObject();
      if (!name.string() || !reason.string()) return BVValue();
      return BVValue(std::make_shared<ToolExceptionObject>(*name.string(), *reason.string()));
    });
  });
}

}  // namespace belvane::detail
