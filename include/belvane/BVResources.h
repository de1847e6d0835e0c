// Resource lookup: the framework's own resource folder and the host's.
//
// The framework folder is found from the loaded library (its install prefix's
// share/belvane, or the build tree), or from $BELVANE_RESOURCE_DIR when set.
// The host may register its own folder (its "main bundle") for resources it
// overrides or adds, and a string table for localized texts.
//
// Thread: any, for every function (the host's folder is kept under a lock).
#pragma once

#include <belvane/BVExport.h>

#include <optional>
#include <string>

namespace BVResources {
BV_EXPORT std::string frameworkResourceDirectory();
// "<dir>/<name>.<type>" in the framework folder, when that file exists.
BV_EXPORT std::optional<std::string> frameworkPathForResource(const std::string& name, const std::string& type);

BV_EXPORT void setMainBundleDirectory(const std::string& directory);
BV_EXPORT std::optional<std::string> mainBundleDirectory();
BV_EXPORT std::optional<std::string> mainBundlePathForResource(const std::string& name, const std::string& type);

// The host's translation of key from "Localizable.strings.plist" (a
// dictionary of key to text) in its folder; the key itself when none.
BV_EXPORT std::string localizedString(const std::string& key);
}  // namespace BVResources
