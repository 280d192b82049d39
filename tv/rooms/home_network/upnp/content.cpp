// Lists the content directories of servers by SOAP, reads the answers in DIDL-Lite by gupnp-av, and downloads files.
#include <libgupnp-av/gupnp-av.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "base/text.h"
#include "core/text.h"
#include "rooms/home_network/upnp/fetch.h"
#include "rooms/home_network/upnp/servers.h"
#include "rooms/home_network/upnp/thread.h"
#include "rooms/home_network/upnp/xml.h"

namespace {

// As in tvapi/dlna.h.
constexpr std::int32_t kPhoto = 1, kMusic = 2, kVideo = 3, kContainer = 6;
constexpr std::size_t kLongestType = 64;
constexpr std::uint32_t kLongestDuration = 1000 * 3600;  // s
constexpr int kMostResources = 32;                       // of an object; the others are not looked at
constexpr const char* kNotUnderstood = "the server's answer cannot be understood";

std::string escaped(const std::string& text) {
  gchar* const copy = g_markup_escape_text(text.c_str(), static_cast<gssize>(text.size()));
  std::string result = copy;
  g_free(copy);
  return result;
}

std::string argument(const char* name, const std::string& value) {
  return "<" + std::string(name) + ">" + escaped(value) + "</" + name + ">";
}

// The search criteria of ContentDirectory's action Search for a part of a title.
std::string criteria(const std::string& text) {
  std::string quoted;
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return "dc:title contains \"" + quoted + "\"";
}

std::string envelope(const UpnpListing& listing, const std::string& action) {
  std::string arguments;
  if (action == "Search") {
    arguments = argument("ContainerID", listing.object) + argument("SearchCriteria", criteria(listing.search));
  } else {
    arguments = argument("ObjectID", listing.object) +
                argument("BrowseFlag", listing.itself ? "BrowseMetadata" : "BrowseDirectChildren");
  }
  arguments += argument("Filter", "*") + argument("StartingIndex", std::to_string(listing.first)) +
               argument("RequestedCount", std::to_string(listing.count)) + argument("SortCriteria", listing.sort);
  return R"(<?xml version="1.0" encoding="utf-8"?>)"
         R"(<s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/" )"
         R"(s:encodingStyle="http://schemas.xmlsoap.org/soap/encoding/"><s:Body><u:)" +
         action + " xmlns:u=\"" + listing.service + "\">" + arguments + "</u:" + action + "></s:Body></s:Envelope>";
}

std::string text_of(const char* text, std::size_t longest = kLongestObjectText) {
  return clean_text(text == nullptr ? "" : text, longest);
}

struct Resource {
  std::string url = {};
  std::string type = {};
  std::string profile = {};
  GUPnPDIDLLiteResource* resource = nullptr;
};

// Nothing: the set cannot fetch this resource.
std::optional<Resource> read_resource(GUPnPDIDLLiteResource* resource) {
  GUPnPProtocolInfo* const info = gupnp_didl_lite_resource_get_protocol_info(resource);
  const char* const address = gupnp_didl_lite_resource_get_uri(resource);
  const char* const protocol = info == nullptr ? nullptr : gupnp_protocol_info_get_protocol(info);
  if (protocol == nullptr || std::string_view(protocol) != "http-get") return std::nullopt;
  if (address == nullptr || !upnp_is_near(address)) return std::nullopt;
  return Resource{.url = address,
                  .type = text_of(gupnp_protocol_info_get_mime_type(info), kLongestType),
                  .profile = text_of(gupnp_protocol_info_get_dlna_profile(info), kLongestType),
                  .resource = resource};
}

std::uint32_t bounded(long number, std::uint32_t most) {
  return number <= 0 ? 0 : static_cast<std::uint32_t>(std::min<long>(number, most));
}

// The object's file is the first resource that is no thumbnail. Its thumbnail is the smallest picture among the others.
void read_resources(GUPnPDIDLLiteObject* didl, UpnpObject& object) {
  constexpr std::uint32_t kMostPixels = 65535;
  GList* const list = gupnp_didl_lite_object_get_resources(didl);
  std::string small;
  int left = kMostResources;
  for (GList* each = list; each != nullptr && left > 0; each = each->next, --left) {
    const auto read = read_resource(static_cast<GUPnPDIDLLiteResource*>(each->data));
    if (!read) continue;
    const bool is_thumbnail = read->profile == "JPEG_TN" || read->profile == "PNG_TN";
    if (is_thumbnail && object.thumbnail.empty()) object.thumbnail = read->url;
    if (read->profile == "JPEG_SM" && small.empty()) small = read->url;
    if (is_thumbnail || !object.url.empty()) continue;
    object.url = read->url;
    object.type = read->type;
    object.size = static_cast<std::uint64_t>(std::max<gint64>(gupnp_didl_lite_resource_get_size64(read->resource), 0));
    object.seconds = bounded(gupnp_didl_lite_resource_get_duration(read->resource), kLongestDuration);
    object.width = bounded(gupnp_didl_lite_resource_get_width(read->resource), kMostPixels);
    object.height = bounded(gupnp_didl_lite_resource_get_height(read->resource), kMostPixels);
  }
  g_list_free_full(list, g_object_unref);
  const char* const cover = gupnp_didl_lite_object_get_album_art(didl);
  if (object.thumbnail.empty() && cover != nullptr && upnp_is_near(cover)) object.thumbnail = cover;
  if (object.thumbnail.empty()) object.thumbnail = small;
}

std::int32_t kind_of(std::string_view name, std::string_view type) {
  struct Kind {
    std::string_view name;
    std::string_view type;
    std::int32_t kind;
  };
  constexpr Kind kKinds[] = {{"object.container", "", kContainer},
                             {"object.item.imageItem", "image/", kPhoto},
                             {"object.item.audioItem", "audio/", kMusic},
                             {"object.item.videoItem", "video/", kVideo}};
  for (const Kind& each : kKinds)
    if (name.starts_with(each.name)) return each.kind;
  for (const Kind& each : kKinds)
    if (!each.type.empty() && type.starts_with(each.type)) return each.kind;
  return 0;
}

std::string author_of(GUPnPDIDLLiteObject* didl) {
  const char* const artist = gupnp_didl_lite_object_get_artist(didl);
  return text_of(artist != nullptr ? artist : gupnp_didl_lite_object_get_creator(didl));
}

std::optional<UpnpObject> read_object(GUPnPDIDLLiteObject* didl) {
  const char* const id = gupnp_didl_lite_object_get_id(didl);
  const char* const parent = gupnp_didl_lite_object_get_parent_id(didl);
  UpnpObject object;
  object.id = id == nullptr ? "" : id;
  object.parent = parent == nullptr ? "" : parent;
  if (object.id.empty() || object.id.size() > kLongestObject || object.parent.size() > kLongestObject)
    return std::nullopt;
  object.name = text_of(gupnp_didl_lite_object_get_title(didl));
  object.artist = author_of(didl);
  object.album = text_of(gupnp_didl_lite_object_get_album(didl));
  object.date = text_of(gupnp_didl_lite_object_get_date(didl), kLongestType);
  read_resources(didl, object);
  const char* const name = gupnp_didl_lite_object_get_upnp_class(didl);
  object.kind = kind_of(name == nullptr ? "" : name, object.type);
  if (GUPNP_IS_DIDL_LITE_CONTAINER(didl)) {
    object.kind = kContainer;
    object.children = gupnp_didl_lite_container_get_child_count(GUPNP_DIDL_LITE_CONTAINER(didl));
  }
  return object;
}

struct Reading {
  std::vector<UpnpObject> objects;
  std::size_t most;
};

// A server may send more objects than requested.
void on_object(GUPnPDIDLLiteParser*, GUPnPDIDLLiteObject* didl, gpointer data) {
  auto& reading = *static_cast<Reading*>(data);
  if (reading.objects.size() >= reading.most) return;
  if (auto object = read_object(didl)) reading.objects.push_back(std::move(*object));
}

bool read_didl(const std::string& text, Reading& reading) {
  const XmlDocument document = xml_read(text);
  if (document == nullptr) return false;
  const xmlNode* const root = xmlDocGetRootElement(document.get());
  if (xmlFirstElementChild(const_cast<xmlNode*>(root)) == nullptr)
    return true;  // the parser takes an empty list for an error
  GUPnPDIDLLiteParser* const parser = gupnp_didl_lite_parser_new();
  g_signal_connect(parser, "object-available", G_CALLBACK(on_object), &reading);
  GError* error = nullptr;
  const bool read = gupnp_didl_lite_parser_parse_didl(parser, text.c_str(), &error) != FALSE;
  g_clear_error(&error);
  g_object_unref(parser);
  return read;
}

std::string fault_text(const xmlNode* root) {
  const xmlNode* const fault = xml_below(root, "UPnPError");
  if (fault == nullptr) return {};
  const std::string code = xml_text(xml_child(fault, "errorCode"));
  if (code == "701" || code == "710") return "the server has no such object";
  if (code == "401" || code == "602") return "the server does not offer this";
  if (code == "709") return "the server does not offer this order";
  return "the server refuses: " + clean_text(xml_text(xml_child(fault, "errorDescription")), kLongestObjectText) +
         " (" + clean_text(code, 16) + ")";
}

// ret_returned: how many objects the server has sent, including those that the set leaves out.
std::string read_answer(const std::string& text, const UpnpListing& listing, UpnpPage& ret_page,
                        std::size_t& ret_returned) {
  const XmlDocument document = xml_read(text);
  if (document == nullptr) return kNotUnderstood;
  const xmlNode* const root = xmlDocGetRootElement(document.get());
  std::string fault = fault_text(root);
  if (!fault.empty()) return fault;
  const xmlNode* const answer = xml_below(root, listing.search.empty() ? "BrowseResponse" : "SearchResponse");
  const xmlNode* const result = xml_child(answer, "Result");
  if (result == nullptr) return kNotUnderstood;
  Reading reading{.objects = {}, .most = listing.itself ? 1 : listing.count};
  if (!read_didl(xml_text(result), reading)) return kNotUnderstood;
  const auto total = parse_number<std::uint32_t>(xml_text(xml_child(answer, "TotalMatches"))).value_or(0);
  const auto returned = parse_number<std::uint32_t>(xml_text(xml_child(answer, "NumberReturned"))).value_or(0);
  ret_page.objects = std::move(reading.objects);
  ret_returned = std::max<std::size_t>(std::min(returned, listing.count), ret_page.objects.size());
  ret_page.total = std::max<std::uint64_t>(std::min<std::uint32_t>(total, std::numeric_limits<std::int32_t>::max()),
                                           ret_page.objects.empty() ? 0 : listing.first + ret_page.objects.size());
  return {};
}

// A list that may take several questions, since a server may send fewer objects than requested.
struct List {
  std::uint64_t call = 0;
  UpnpListing listing = {};  // the objects that have not been requested yet
  gint64 end = 0;            // us, as g_get_monotonic_time has it
  UpnpPage page = {};        // what has come
  std::function<void(UpnpPage page, const std::string& why)> done = {};
};

void ask_on(const std::shared_ptr<List>& list);

// What has come counts, even if the server fails later.
void answered(const std::shared_ptr<List>& list, const std::string& text, std::string why) {
  UpnpPage part;
  std::size_t returned = 0;
  UpnpListing& left = list->listing;
  if (why.empty()) why = read_answer(text, left, part, returned);
  std::vector<UpnpObject>& objects = list->page.objects;
  if (!why.empty()) return list->done(std::move(list->page), objects.empty() ? why : "");
  const bool whole = left.itself || returned == 0 || returned >= left.count || left.first + returned >= part.total;
  left.first += static_cast<std::uint32_t>(returned);
  left.count -= std::min(left.count, static_cast<std::uint32_t>(returned));
  objects.insert(objects.end(), std::make_move_iterator(part.objects.begin()),
                 std::make_move_iterator(part.objects.end()));
  list->page.total = std::max(list->page.total, part.total);
  if (whole || g_get_monotonic_time() >= list->end) return list->done(std::move(list->page), "");
  ask_on(list);
}

void ask_on(const std::shared_ptr<List>& list) {
  const UpnpListing& listing = list->listing;
  const std::string action = listing.search.empty() ? "Browse" : "Search";
  const auto text = std::make_shared<std::string>();
  const gint64 left = (list->end - g_get_monotonic_time()) / 1000;
  fetch_start(list->call, {.address = listing.control,
                           .action = "\"" + listing.service + "#" + action + "\"",
                           .body = envelope(listing, action),
                           .most = kLongestAnswer,
                           .millis = static_cast<std::uint32_t>(std::clamp<gint64>(left, 1, listing.millis)),
                           .faults = true,
                           .chunk = [text](std::string_view chunk) { return text->append(chunk), true; },
                           .done = [list, text](const std::string& why) { answered(list, *text, why); }});
}

bool is_picture(const std::string& type) { return type == "image/jpeg" || type == "image/png"; }

}  // namespace

void upnp_list(std::uint64_t call, const UpnpListing& listing,
               std::function<void(UpnpPage page, const std::string& why)> done) {
  const gint64 end = g_get_monotonic_time() + gint64{listing.millis} * 1000;
  ask_on(std::make_shared<List>(List{.call = call, .listing = listing, .end = end, .done = std::move(done)}));
}

void upnp_download(std::uint64_t call, UpnpDownload download) {
  const auto shared = std::make_shared<UpnpDownload>(std::move(download));
  fetch_start(call, {.address = shared->url,
                     .most = shared->most,
                     .millis = shared->millis,
                     .head =
                         [shared](const FetchHead& head) {
                           if (shared->picture && !is_picture(head.type)) return false;
                           if (shared->size) shared->size(head.size);
                           return true;
                         },
                     .chunk = [shared](std::string_view chunk) { return shared->take(chunk.data(), chunk.size()); },
                     .done = [shared](const std::string& why) { shared->done(why); }});
}

void upnp_cancel(std::uint64_t call) { fetch_cancel(call); }
