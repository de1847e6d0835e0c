// BVMPRISPublisher: the org.mpris.MediaPlayer2 and
// org.mpris.MediaPlayer2.Player interfaces over a master player, on a
// connection of its own to the session bus.
#include <belvane/BVConstants.h>
#include <belvane/BVMPRISPublisher.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVURL.h>

#include <gio/gio.h>
#include <unistd.h>

#include "foundation/title_parts.h"
#include "players/file_tags.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace {

const char* const kObjectPath = "/org/mpris/MediaPlayer2";
const char* const kRootInterface = "org.mpris.MediaPlayer2";
const char* const kPlayerInterface = "org.mpris.MediaPlayer2.Player";
const char* const kBaseName = "org.mpris.MediaPlayer2.belvane";
const char* const kNoTrack = "/org/mpris/MediaPlayer2/TrackList/NoTrack";

const char* const kIntrospection = R"(<node>
  <interface name="org.mpris.MediaPlayer2">
    <method name="Raise"/>
    <method name="Quit"/>
    <property name="CanQuit" type="b" access="read"/>
    <property name="CanRaise" type="b" access="read"/>
    <property name="HasTrackList" type="b" access="read"/>
    <property name="Identity" type="s" access="read"/>
    <property name="SupportedUriSchemes" type="as" access="read"/>
    <property name="SupportedMimeTypes" type="as" access="read"/>
  </interface>
  <interface name="org.mpris.MediaPlayer2.Player">
    <method name="Next"/>
    <method name="Previous"/>
    <method name="Pause"/>
    <method name="PlayPause"/>
    <method name="Stop"/>
    <method name="Play"/>
    <method name="Seek"><arg direction="in" name="Offset" type="x"/></method>
    <method name="SetPosition">
      <arg direction="in" name="TrackId" type="o"/>
      <arg direction="in" name="Position" type="x"/>
    </method>
    <method name="OpenUri"><arg direction="in" name="Uri" type="s"/></method>
    <signal name="Seeked"><arg name="Position" type="x"/></signal>
    <property name="PlaybackStatus" type="s" access="read"/>
    <property name="Rate" type="d" access="readwrite"/>
    <property name="Metadata" type="a{sv}" access="read"/>
    <property name="Volume" type="d" access="readwrite"/>
    <property name="Position" type="x" access="read"/>
    <property name="MinimumRate" type="d" access="read"/>
    <property name="MaximumRate" type="d" access="read"/>
    <property name="CanGoNext" type="b" access="read"/>
    <property name="CanGoPrevious" type="b" access="read"/>
    <property name="CanPlay" type="b" access="read"/>
    <property name="CanPause" type="b" access="read"/>
    <property name="CanSeek" type="b" access="read"/>
    <property name="CanControl" type="b" access="read"/>
  </interface>
</node>)";

std::string attributeString(const BVDictionary& attributes, const char* key) {
  auto it = attributes.find(key);
  return it == attributes.end() ? std::string() : it->second.stringOr();
}

// What the listener hears, while something plays.
void addReception(GVariantBuilder& metadata, const BVPlayerReception& reception) {
  if (reception.state == BVPlayerReceptionNone) return;
  g_variant_builder_add(&metadata, "{sv}", "belvane:reception",
                        g_variant_new_string(BVPlayerReceptionStateName(reception.state)));
  if (reception.state != BVPlayerReceptionBuffering && reception.state != BVPlayerReceptionReconnecting) return;
  g_variant_builder_add(&metadata, "{sv}", "belvane:secondsWithoutAudio",
                        g_variant_new_int32(gint32(reception.secondsWithoutAudio)));
  g_variant_builder_add(&metadata, "{sv}", "belvane:reconnectTries", g_variant_new_int32(reception.tries));
}

// Whether an address names a picture by its path's extension: a station's
// StreamUrl is cover art as often as a web page.
bool looksLikePicture(const std::string& url) {
  std::string path = url.substr(0, url.find_first_of("?#"));
  for (const char* extension : {".jpg", ".jpeg", ".png", ".gif", ".webp"})
    if (path.size() > std::strlen(extension) &&
        g_ascii_strcasecmp(path.c_str() + path.size() - std::strlen(extension), extension) == 0)
      return true;
  return false;
}

// What the player knows of the station and of what it decodes, where xesam
// has a key for it (genre), else under belvane: keys.
void addStationFacts(GVariantBuilder& metadata, const BVDictionary& attributes) {
  std::string genre = attributeString(attributes, BVPlayerAttributeGenreKey);
  if (genre.empty()) genre = attributeString(attributes, BVPlayerAttributeStationGenreKey);
  if (!genre.empty()) {
    const char* genres[] = {genre.c_str()};
    g_variant_builder_add(&metadata, "{sv}", "xesam:genre", g_variant_new_strv(genres, 1));
  }
  static const struct {
    const char* attribute;
    const char* key;
  } kTexts[] = {{BVPlayerAttributeStationNameKey, "belvane:stationName"},
                {BVPlayerAttributeStationHomePageKey, "belvane:homePage"},
                {BVPlayerAttributeCodecKey, "belvane:codec"},
                {BVPlayerAttributeStreamURLKey, "belvane:streamURL"}};
  for (const auto& text : kTexts) {
    std::string value = attributeString(attributes, text.attribute);
    if (!value.empty()) g_variant_builder_add(&metadata, "{sv}", text.key, g_variant_new_string(value.c_str()));
  }
  if (auto rate = attributes.find(BVPlayerAttributeStationBitRateKey);
      rate != attributes.end() && rate->second.isNumber() && rate->second.integerValue() > 0)
    g_variant_builder_add(&metadata, "{sv}", "belvane:bitRate",
                          g_variant_new_int32(gint32(rate->second.integerValue())));
}

std::string fileURI(const std::string& path) {
  gchar* uri = g_filename_to_uri(path.c_str(), nullptr, nullptr);
  std::string result = uri ? uri : "";
  g_free(uri);
  return result;
}

// The picture of a local file for the desktop: the cover in its tags, kept
// in the user's cache under the picture's checksum (desktops want a URL),
// else a cover, folder or front picture beside it. Empty when none.
std::string coverArtURL(const std::string& path) {
  if (auto cover = belvane::detail::readFileCover(path)) {
    gchar* sum = g_compute_checksum_for_data(G_CHECKSUM_SHA1, reinterpret_cast<const guchar*>(cover->bytes.data()),
                                             cover->bytes.size());
    std::string folder = std::string(g_get_user_cache_dir()) + "/belvane/covers";
    std::string file = folder + "/" + sum + "." + cover->extension;
    g_free(sum);
    if (g_file_test(file.c_str(), G_FILE_TEST_EXISTS) ||
        (g_mkdir_with_parents(folder.c_str(), 0700) == 0 &&
         g_file_set_contents(file.c_str(), cover->bytes.data(), gssize(cover->bytes.size()), nullptr)))
      return fileURI(file);
  }
  gchar* folder = g_path_get_dirname(path.c_str());
  std::string found;
  if (GDir* dir = g_dir_open(folder, 0, nullptr)) {
    while (const char* name = g_dir_read_name(dir)) {
      gchar* lower = g_ascii_strdown(name, -1);
      for (const char* stem : {"cover.", "folder.", "front."})
        for (const char* extension : {"jpg", "jpeg", "png"})
          if (found.empty() && std::string(lower) == std::string(stem) + extension)
            found = std::string(folder) + "/" + name;
      g_free(lower);
    }
    g_dir_close(dir);
  }
  g_free(folder);
  return found.empty() ? found : fileURI(found);
}

}  // namespace

// The bus side of a publisher: its connection, registrations and the
// translation between D-Bus calls and the player. Hidden: the library's
// own, though its class is exported.
struct __attribute__((visibility("hidden"))) BVMPRISPublisher::Connection {
  explicit Connection(BVMPRISPublisher& publisher) : publisher(publisher) {}
  ~Connection();

  bool open();
  bool requestName(const std::string& name);
  void emitChanged(std::initializer_list<const char*> names);

  std::shared_ptr<BVMasterPlayer> player() const { return publisher.player_.lock(); }
  std::string trackID() const;
  GVariant* property(const char* interface, const char* name);
  bool setProperty(const char* name, GVariant* value);
  void call(const char* interface, const char* method, GVariant* parameters);
  double lengthSeconds(const BVMasterPlayer& player) const;
  void play();
  void stop();
  void pause();
  double positionSeconds();
  void seekTo(double seconds);

  BVMPRISPublisher& publisher;
  GDBusConnection* connection = nullptr;
  GDBusNodeInfo* node = nullptr;
  std::vector<guint> registrations;

  // GDBus's calls for the registered objects; data is the Connection.
  static void onMethodCall(GDBusConnection*, const char*, const char*, const char* interface, const char* method,
                           GVariant* parameters, GDBusMethodInvocation* invocation, gpointer data);
  static GVariant* onGetProperty(GDBusConnection*, const char*, const char*, const char* interface, const char* name,
                                 GError** error, gpointer data);
  static gboolean onSetProperty(GDBusConnection*, const char*, const char*, const char*, const char* name,
                                GVariant* value, GError** error, gpointer data);
  static const GDBusInterfaceVTable kVTable;
};

BVMPRISPublisher::Connection::~Connection() {
  if (connection) {
    for (guint id : registrations) g_dbus_connection_unregister_object(connection, id);
    g_dbus_connection_close_sync(connection, nullptr, nullptr);
    g_object_unref(connection);
  }
  if (node) g_dbus_node_info_unref(node);
}

void BVMPRISPublisher::Connection::onMethodCall(GDBusConnection*, const char*, const char*, const char* interface,
                                               const char* method, GVariant* parameters,
                                               GDBusMethodInvocation* invocation, gpointer data) {
  static_cast<Connection*>(data)->call(interface, method, parameters);
  g_dbus_method_invocation_return_value(invocation, nullptr);
}

GVariant* BVMPRISPublisher::Connection::onGetProperty(GDBusConnection*, const char*, const char*,
                                                      const char* interface, const char* name, GError** error,
                                                      gpointer data) {
  GVariant* value = static_cast<Connection*>(data)->property(interface, name);
  if (!value) g_set_error(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_PROPERTY, "No property %s", name);
  return value;
}

gboolean BVMPRISPublisher::Connection::onSetProperty(GDBusConnection*, const char*, const char*, const char*,
                                                     const char* name, GVariant* value, GError** error,
                                                     gpointer data) {
  if (static_cast<Connection*>(data)->setProperty(name, value)) return TRUE;
  g_set_error(error, G_DBUS_ERROR, G_DBUS_ERROR_PROPERTY_READ_ONLY, "Property %s cannot be set", name);
  return FALSE;
}

const GDBusInterfaceVTable BVMPRISPublisher::Connection::kVTable = {onMethodCall, onGetProperty, onSetProperty, {}};

// A private connection rather than GIO's shared one: the host's own use of
// the session bus is left alone, and the connection closes with the
// publisher (the shared one would end the process if the bus went away).
bool BVMPRISPublisher::Connection::open() {
  gchar* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  if (!address) return false;
  connection = g_dbus_connection_new_for_address_sync(
      address,
      GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                           G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr);
  g_free(address);
  if (!connection) return false;
  g_dbus_connection_set_exit_on_close(connection, FALSE);
  node = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
  if (!node) return false;
  for (auto* interface : {kRootInterface, kPlayerInterface}) {
    guint id = g_dbus_connection_register_object(connection, kObjectPath,
                                                 g_dbus_node_info_lookup_interface(node, interface), &kVTable, this,
                                                 nullptr, nullptr);
    if (!id) return false;
    registrations.push_back(id);
  }
  if (requestName(kBaseName)) return true;
  return requestName(std::string(kBaseName) + ".instance" + std::to_string(getpid()));
}

bool BVMPRISPublisher::Connection::requestName(const std::string& name) {
  const guint32 doNotQueue = 4;
  GVariant* reply = g_dbus_connection_call_sync(
      connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
      g_variant_new("(su)", name.c_str(), doNotQueue), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
      nullptr);
  if (!reply) return false;
  guint32 result = 0;
  g_variant_get(reply, "(u)", &result);
  g_variant_unref(reply);
  const guint32 primaryOwner = 1, alreadyOwner = 4;
  if (result != primaryOwner && result != alreadyOwner) return false;
  publisher.busName_ = name;
  return true;
}

void BVMPRISPublisher::Connection::emitChanged(std::initializer_list<const char*> names) {
  if (!connection) return;
  GVariantBuilder changed;
  g_variant_builder_init(&changed, G_VARIANT_TYPE("a{sv}"));
  for (const char* name : names)
    if (GVariant* value = property(kPlayerInterface, name)) g_variant_builder_add(&changed, "{sv}", name, value);
  g_dbus_connection_emit_signal(connection, nullptr, kObjectPath, "org.freedesktop.DBus.Properties",
                                "PropertiesChanged",
                                g_variant_new("(sa{sv}as)", kPlayerInterface, &changed, nullptr), nullptr);
}

std::string BVMPRISPublisher::Connection::trackID() const {
  if (publisher.track_ == 0) return kNoTrack;
  return "/org/belvane/Track/" + std::to_string(publisher.track_);
}

// The length of what plays: the duration the player reports, else worked out
// from the time played and the fraction it is of the whole; 0 when unknown.
double BVMPRISPublisher::Connection::lengthSeconds(const BVMasterPlayer& player) const {
  if (!player.hasPosition()) return 0;
  auto it = publisher.attributes_.find(BVPlayerAttributeDurationKey);
  if (it != publisher.attributes_.end() && it->second.isNumber() && it->second.doubleValue() > 0)
    return it->second.doubleValue();
  float fraction = player.position();
  float elapsed = player.elapsedTime();
  if (fraction > 0.001f && elapsed > 0) return elapsed / fraction;
  return 0;
}

GVariant* BVMPRISPublisher::Connection::property(const char* interface, const char* name) {
  const std::string n = name;
  if (std::string(interface) == kRootInterface) {
    if (n == "CanQuit" || n == "CanRaise" || n == "HasTrackList") return g_variant_new_boolean(FALSE);
    if (n == "Identity") return g_variant_new_string("Belvane");
    if (n == "SupportedUriSchemes" || n == "SupportedMimeTypes") return g_variant_new_strv(nullptr, 0);
    return nullptr;
  }
  auto player = this->player();
  if (n == "PlaybackStatus") {
    auto state = player ? player->state() : BVPlayerStateIdle;
    bool playing = state == BVPlayerStateConnecting || state == BVPlayerStatePlaying;
    if (playing && player->isPaused()) return g_variant_new_string("Paused");
    return g_variant_new_string(playing ? "Playing" : "Stopped");
  }
  if (n == "Rate" || n == "MinimumRate" || n == "MaximumRate") return g_variant_new_double(1.0);
  if (n == "Volume") {
    double volume = player && !player->isMuted() ? std::max(0.0f, player->volume()) : 0.0;
    return g_variant_new_double(volume);
  }
  if (n == "Position") return g_variant_new_int64(gint64(positionSeconds() * 1e6));
  if (n == "CanGoNext" || n == "CanGoPrevious") return g_variant_new_boolean(FALSE);
  if (n == "CanPlay" || n == "CanPause" || n == "CanControl") return g_variant_new_boolean(TRUE);
  if (n == "CanSeek") return g_variant_new_boolean(player && (player->hasPosition() || player->canTimeShift()));
  if (n == "Metadata") {
    GVariantBuilder metadata;
    g_variant_builder_init(&metadata, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&metadata, "{sv}", "mpris:trackid", g_variant_new_object_path(trackID().c_str()));
    auto link = player ? player->link() : nullptr;
    if (link && publisher.track_ > 0) {
      std::string whole = attributeString(publisher.attributes_, BVPlayerAttributeStreamTitleKey);
      if (whole.empty()) whole = attributeString(publisher.attributes_, BVPlayerAttributeTrackTitleKey);
      auto [artist, title] = belvane::detail::splitStreamTitle(whole);
      if (artist.empty()) artist = attributeString(publisher.attributes_, BVPlayerAttributeArtistKey);
      if (!title.empty()) g_variant_builder_add(&metadata, "{sv}", "xesam:title", g_variant_new_string(title.c_str()));
      if (!artist.empty()) {
        const char* artists[] = {artist.c_str()};
        g_variant_builder_add(&metadata, "{sv}", "xesam:artist", g_variant_new_strv(artists, 1));
      }
      const std::string url = link->url().absoluteString();
      if (!url.empty()) g_variant_builder_add(&metadata, "{sv}", "xesam:url", g_variant_new_string(url.c_str()));
      std::string album = attributeString(publisher.attributes_, BVPlayerAttributeAlbumKey);
      if (album.empty() && link->title()) album = *link->title();
      if (album.empty()) album = attributeString(publisher.attributes_, BVPlayerAttributeStationNameKey);
      if (!album.empty()) g_variant_builder_add(&metadata, "{sv}", "xesam:album", g_variant_new_string(album.c_str()));
      if (double length = lengthSeconds(*player); length > 0)
        g_variant_builder_add(&metadata, "{sv}", "mpris:length", g_variant_new_int64(gint64(length * 1e6)));
      // A file's cover, else a picture the station sent with its title.
      std::string art = publisher.artURL_;
      if (std::string sent = attributeString(publisher.attributes_, BVPlayerAttributeStreamURLKey);
          art.empty() && looksLikePicture(sent))
        art = sent;
      if (!art.empty()) g_variant_builder_add(&metadata, "{sv}", "mpris:artUrl", g_variant_new_string(art.c_str()));
      addStationFacts(metadata, publisher.attributes_);
      addReception(metadata, publisher.reception_);
    }
    return g_variant_builder_end(&metadata);
  }
  return nullptr;
}

bool BVMPRISPublisher::Connection::setProperty(const char* name, GVariant* value) {
  const std::string n = name;
  if (n == "Rate") return true;  // only 1.0 is played; other rates are ignored
  if (n != "Volume") return false;
  double volume = g_variant_get_double(value);
  if (std::isnan(volume)) return true;
  volume = std::clamp(volume, 0.0, 1.0);
  if (auto player = this->player()) {
    player->setVolume(float(volume));
    if (volume > 0 && player->isMuted()) player->setMuted(false);
  }
  emitChanged({"Volume"});
  return true;
}

void BVMPRISPublisher::Connection::play() {
  auto player = this->player();
  if (!player) return;
  if (player->isPaused()) {
    player->resume();
    emitChanged({"PlaybackStatus"});
    return;
  }
  auto state = player->state();
  if (state == BVPlayerStateConnecting || state == BVPlayerStatePlaying) return;
  if (auto link = player->link()) player->playLink(link);
}

// A file waits paused, and so does a live station with a ring (it goes on
// into the ring); one without stops.
void BVMPRISPublisher::Connection::pause() {
  auto player = this->player();
  if (!player) return;
  if (player->pause())
    emitChanged({"PlaybackStatus"});
  else
    player->stop();
}

void BVMPRISPublisher::Connection::stop() {
  if (auto player = this->player()) player->stop();
}

// A file's seconds played; a live station's place in its ring, counted
// from the oldest second it holds.
double BVMPRISPublisher::Connection::positionSeconds() {
  auto player = this->player();
  if (!player) return 0;
  if (player->hasPosition()) return std::max(0.0f, player->elapsedTime());
  if (player->canTimeShift()) return std::max(0.0, player->timeShiftSecondsHeld() - player->secondsBehindLive());
  return 0;
}

void BVMPRISPublisher::Connection::seekTo(double seconds) {
  auto player = this->player();
  if (player && !player->hasPosition() && player->canTimeShift()) {
    if (player->skipBy(seconds - positionSeconds()))
      g_dbus_connection_emit_signal(connection, nullptr, kObjectPath, kPlayerInterface, "Seeked",
                                    g_variant_new("(x)", gint64(positionSeconds() * 1e6)), nullptr);
    return;
  }
  if (!player || !player->hasPosition()) return;
  double length = lengthSeconds(*player);
  if (length <= 0) return;
  seconds = std::clamp(seconds, 0.0, length);
  player->setPosition(float(seconds / length));
  g_dbus_connection_emit_signal(connection, nullptr, kObjectPath, kPlayerInterface, "Seeked",
                                g_variant_new("(x)", gint64(seconds * 1e6)), nullptr);
}

void BVMPRISPublisher::Connection::call(const char* interface, const char* method, GVariant* parameters) {
  if (std::string(interface) != kPlayerInterface) return;  // Raise and Quit: not supported
  // The publisher may go inside a host callback that a call leads to.
  auto keep = publisher.shared_from_this();
  const std::string m = method;
  auto player = this->player();
  bool playing = player && (player->state() == BVPlayerStateConnecting || player->state() == BVPlayerStatePlaying);
  if (m == "Play") {
    play();
  } else if (m == "Pause") {
    pause();
  } else if (m == "Stop") {
    stop();
  } else if (m == "PlayPause") {
    playing && !player->isPaused() ? pause() : play();
  } else if (m == "Seek") {
    gint64 offset = 0;
    g_variant_get(parameters, "(x)", &offset);
    if (player && (player->hasPosition() || player->canTimeShift())) seekTo(positionSeconds() + offset / 1e6);
  } else if (m == "SetPosition") {
    const char* track = nullptr;
    gint64 position = 0;
    g_variant_get(parameters, "(&ox)", &track, &position);
    if (trackID() == track && position >= 0) seekTo(position / 1e6);
  }
}

std::shared_ptr<BVMPRISPublisher> BVMPRISPublisher::create(const std::shared_ptr<BVMasterPlayer>& player) {
  if (!player) return nullptr;
  std::shared_ptr<BVMPRISPublisher> publisher(new BVMPRISPublisher());
  publisher->connection_ = std::make_unique<Connection>(*publisher);
  if (!publisher->connection_->open()) return nullptr;
  publisher->player_ = player;
  publisher->hostOwner_ = player->owner();
  if (player->link() && player->state() != BVPlayerStateIdle) publisher->track_ = 1;
  publisher->attributes_ = player->attributes();
  player->setOwner(publisher.get());
  return publisher;
}

BVMPRISPublisher::~BVMPRISPublisher() {
  if (auto player = player_.lock(); player && player->owner() == this) player->setOwner(hostOwner_);
  connection_.reset();
}

void BVMPRISPublisher::volumeChanged() { connection_->emitChanged({"Volume"}); }

void BVMPRISPublisher::playerStateChanged(BVBasePlayer& player, BVPlayerState from, BVPlayerState to,
                                          const BVErrorRef& error) {
  auto self = shared_from_this();
  if (to == BVPlayerStateConnecting) {
    ++track_;
    attributes_.clear();
    auto link = player.link();
    artURL_ = link && link->url().isFileURL() ? coverArtURL(link->url().fileSystemPath()) : std::string();
  }
  connection_->emitChanged({"PlaybackStatus", "Metadata", "CanSeek"});
  if (hostOwner_) hostOwner_->playerStateChanged(player, from, to, error);
}

void BVMPRISPublisher::playerPositionChanged(BVBasePlayer& player, float position) {
  if (hostOwner_) hostOwner_->playerPositionChanged(player, position);
}

void BVMPRISPublisher::playerReceptionChanged(BVBasePlayer& player, const BVPlayerReception& reception) {
  auto self = shared_from_this();
  reception_ = reception;
  connection_->emitChanged({"Metadata"});
  if (hostOwner_) hostOwner_->playerReceptionChanged(player, reception);
}

void BVMPRISPublisher::playerRecordedFile(BVBasePlayer& player, const std::string& path, const std::string& title,
                                          bool complete) {
  auto self = shared_from_this();
  if (hostOwner_) hostOwner_->playerRecordedFile(player, path, title, complete);
}

void BVMPRISPublisher::playerRecordingStopped(BVBasePlayer& player, const BVErrorRef& error) {
  auto self = shared_from_this();
  if (hostOwner_) hostOwner_->playerRecordingStopped(player, error);
}

void BVMPRISPublisher::playerOutputChanged(BVBasePlayer& player, const std::string& output) {
  auto self = shared_from_this();
  if (hostOwner_) hostOwner_->playerOutputChanged(player, output);
}

void BVMPRISPublisher::playerAttributeChanged(BVBasePlayer& player, const BVDictionary& attributes) {
  auto self = shared_from_this();
  attributes_ = attributes;
  connection_->emitChanged({"Metadata", "CanSeek"});
  if (hostOwner_) hostOwner_->playerAttributeChanged(player, attributes);
}
