// Choosing the reader for a playlist URL: the handler classes are asked in a
// fixed order (PLS, M3U, ASX), by the URL's extension first and only then by
// the content type that a probe of the URL finds. What each class accepts is
// the format registry's knowledge (playlist_format.h).
#include <belvane/BVASXWebPlaylist.h>
#include <belvane/BVM3UWebPlaylist.h>
#include <belvane/BVPLSWebPlaylist.h>
#include <belvane/BVURLProbe.h>
#include <belvane/BVWebPlaylist.h>

#include <vector>

namespace {

struct HandlerClass {
  bool (*canInitWithURL)(const BVURL&);
  bool (*canInitWithMIMEType)(const std::optional<std::string>&);
  BVWebPlaylistRef (*make)();
};

template <class Reader>
HandlerClass handlerClass() {
  return {&Reader::canInitWithURL, &Reader::canInitWithMIMEType, [] { return BVWebPlaylistRef(Reader::create()); }};
}

const std::vector<HandlerClass>& handlerClasses() {
  static const std::vector<HandlerClass> classes = {
      handlerClass<BVPLSWebPlaylist>(),
      handlerClass<BVM3UWebPlaylist>(),
      handlerClass<BVASXWebPlaylist>(),
  };
  return classes;
}

}  // namespace

BVWebPlaylistRef BVWebPlaylist::initWithURL(const BVURL& url) {
  const HandlerClass* chosen = nullptr;
  for (const auto& handler : handlerClasses()) {
    if (handler.canInitWithURL(url)) {
      chosen = &handler;
      break;
    }
  }
  if (!chosen) {
    // No extension matched: ask the server what it serves (blocking).
    std::optional<std::string> contentType = BVURLProbe(url).contentType();
    for (const auto& handler : handlerClasses()) {
      if (handler.canInitWithMIMEType(contentType)) {
        chosen = &handler;
        break;
      }
    }
  }
  if (!chosen) return nullptr;
  auto playlist = chosen->make();
  playlist->setURL(url);
  return playlist;
}
