// The archive classes of the media model: the records' decoders are
// registered with the archive layer, and the class names the model can
// rebuild are listed for decoders that accept records (the player tool).
#pragma once

#include <set>
#include <string>

namespace belvane::detail {

// Registers the records' decoders (once) and returns the class names the
// model can decode: the six record classes and "NSError".
const std::set<std::string, std::less<>>& BVModelArchivableClasses();

}  // namespace belvane::detail
