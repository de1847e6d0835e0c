// belvane format | link: media formats and links and their property lists.
#include "commands.h"

#include <belvane/BVArchive.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVMediaLinkSource.h>
#include <belvane/BVPropertyList.h>
#include <belvane/BVURLAdditions.h>

#include <cstdio>

namespace belvane::tool {

namespace {

const std::set<std::string> kFormatOptions = {"mime", "engine-id", "radiotime"};

// The format inferred from the URL (with the MIME type when given), then the
// other clues through the mutable setters.
std::shared_ptr<BVMediaFormat> formatFromArguments(const BVURL& url, const Arguments& args) {
  auto mime = args.option("mime");
  auto format = mime ? BVMediaMutableFormat::formatByInferringFromURL(url, *mime)
                     : BVMediaMutableFormat::formatByInferringFromURL(url);
  if (auto id = args.option("engine-id")) format->setEngineID(*id);
  if (auto rt = args.option("radiotime")) format->setRadioTimeMediaType(*rt);
  return format;
}

// The format's property list with the stored MIME type: the same keys and
// values plistRepresentation() writes, but without asking the server.
BVDictionary formatPlistWithoutQuery(const BVMediaFormat& format) {
  BVArchiveEncoder coder;
  format.encodeWithCoder(coder);
  const auto& items = coder.items();
  static const char* const keys[] = {"urlScheme", "fileExtension", "engineID", "mimeType", "radioTimeMediaType"};
  BVDictionary plist;
  for (size_t i = 0; i < items.size() && i < 5; ++i) {
    if (!items[i].isNone()) plist[keys[i]] = items[i];
  }
  return plist;
}

int printPlist(const BVDictionary& plist) {
  auto xml = BVPropertyList::serialize(BVValue(plist), BVPropertyListFormat::XML);
  if (!xml) {
    std::fprintf(stderr, "belvane: the property list could not be written\n");
    return 1;
  }
  std::fwrite(xml->data(), 1, xml->size(), stdout);
  return 0;
}

int runFormat(const Arguments& args) {
  BVURL url = requireURL(args.onePositional("URL"));
  auto format = formatFromArguments(url, args);
  return printPlist(args.flag("no-query") ? formatPlistWithoutQuery(*format) : format->plistRepresentation());
}

int runLink(const Arguments& args) {
  std::shared_ptr<BVMediaLink> link;
  if (auto file = args.option("from-plist")) {
    if (!args.positional().empty()) throw UsageError("--from-plist takes no URL");
    auto plist = BVPropertyList::readFile(*file);
    if (!plist || !plist->dictionary()) {
      std::fprintf(stderr, "belvane link: '%s' is not a property-list dictionary\n", file->c_str());
      return 1;
    }
    link = BVMediaLink::createWithPlistRepresentation(*plist->dictionary());
  } else {
    BVURL url = requireURL(args.onePositional("URL"));
    auto format = formatFromArguments(url, args);
    link = BVMediaLink::create(url, args.option("title"), format, nullptr);
  }
  if (args.flag("plist")) return printPlist(link->plistRepresentation());
  std::printf("%s\n", link->description().c_str());
  return 0;
}

}  // namespace

std::vector<Command> modelCommands() {
  std::set<std::string> linkOptions = kFormatOptions;
  linkOptions.insert("title");
  linkOptions.insert("from-plist");
  return {
      {"format", "URL [--mime M] [--engine-id ID] [--radiotime T] [--no-query]",
       "Infers a media format from URL (scheme and path extension), sets the given clues and prints its\n"
       "XML property list. Writing it reads the MIME type, which asks the server (HEAD, 2 s) when none was\n"
       "given; --no-query prints the stored clues without asking.",
       runFormat, kFormatOptions, {"no-query"}},
      {"link", "URL [--title T] [--mime M] [--engine-id ID] [--radiotime T] [--plist] | --from-plist FILE",
       "Makes a media link for URL and prints its description, or with --plist its XML property list.\n"
       "--from-plist FILE reads a link's property list back and prints its description.",
       runLink, linkOptions, {"plist"}},
  };
}

}  // namespace belvane::tool
