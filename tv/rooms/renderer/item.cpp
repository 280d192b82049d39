#include "rooms/renderer/item.h"

#include <array>
#include <cctype>
#include <cmath>
#include <vector>

#include "core/contract.h"
#include "core/text.h"
#include "rooms/renderer/types.h"
#include "rooms/renderer/xml.h"

namespace {

constexpr unsigned kMostHours = 999;
constexpr std::size_t kMostResources = 32;  // of a description that are read

struct Resource {
  std::string address, protocol_info, duration, size, resolution;
};

struct Description {
  std::vector<Resource> resources;
  std::string type;  // "object.item.videoItem.movie"
};

// Elements whose text is a fact of the item. The first element of a name is used.
struct Fact {
  std::string_view name;
  std::string Item::*place;
};

constexpr Fact kFacts[] = {{"title", &Item::title},   {"artist", &Item::artist}, {"creator", &Item::author},
                           {"author", &Item::author}, {"album", &Item::album},   {"date", &Item::date}};

constexpr int kItemDepth = 2;

void take_text(Item& ret_item, Description& ret_description, std::string_view name, const std::string& text) {
  if (name == "class") ret_description.type = text;
  for (const Fact& fact : kFacts) {
    std::string& place = ret_item.*fact.place;
    if (fact.name == name && place.empty()) place = clean_text(text, kLongestItemText);
  }
}

// The last part of the address's path, percent-decoded.
std::string file_name(std::string_view address) {
  std::string_view path = address.substr(0, address.find_first_of("?#"));
  path = path.substr(path.rfind('/') + 1);
  std::string name;
  for (std::size_t i = 0; i < path.size(); ++i) {
    const auto byte =
        path[i] == '%' && i + 2 < path.size() ? parse_number<unsigned char>(path.substr(i + 1, 2), 16) : std::nullopt;
    name += byte ? static_cast<char>(*byte) : path[i];
    if (byte) i += 2;
  }
  return clean_text(name, kLongestItemText);
}

std::int32_t kind_of(std::string_view type, std::string_view media_type) {
  if (type.starts_with("object.item.imageItem") || media_type.starts_with("image/")) return DLNA_MEDIA_PHOTO;
  if (type.starts_with("object.item.audioItem") || media_type.starts_with("audio/")) return DLNA_MEDIA_MUSIC;
  if (type.starts_with("object.item.videoItem") || media_type.starts_with("video/")) return DLNA_MEDIA_VIDEO;
  return 0;
}

// The extension in the address if it looks like one, or else the media type's.
std::string extension_of(std::string_view name, std::string_view media_type) {
  const std::size_t dot = name.rfind('.');
  if (dot != std::string_view::npos) {
    const std::string_view end = name.substr(dot + 1);
    const auto plain = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
    if (!end.empty() && end.size() <= 4 && std::ranges::all_of(end, plain)) return std::string(end);
  }
  const MediaType* const known = media_type_row(media_type);
  return known == nullptr ? "" : std::string(known->extension);
}

}  // namespace

Item item_read(std::string_view address, std::string_view metadata) {
  Item item{.address = std::string(address)};
  Description description;
  Resource resource;
  const XmlUser user{.begin =
                         [&](int depth, std::string_view name, const XmlAttributes& attributes) {
                           if (depth == kItemDepth + 1 && name == "res") {
                             resource = {.address = "",
                                         .protocol_info = attributes("protocolInfo"),
                                         .duration = attributes("duration"),
                                         .size = attributes("size"),
                                         .resolution = attributes("resolution")};
                           }
                         },
                     .end =
                         [&](int depth, std::string_view name, const std::string& text) {
                           if (depth != kItemDepth + 1) return;
                           take_text(item, description, name, text);
                           if (name == "res" && description.resources.size() < kMostResources) {
                             resource.address = text;
                             description.resources.push_back(std::move(resource));
                           }
                         }};
  if (metadata.size() <= kLongestMetadata && xml_read(metadata, user)) item.metadata = metadata;
  if (!description.resources.empty()) {
    const auto named = std::ranges::find(description.resources, address, &Resource::address);
    const Resource& chosen = named == description.resources.end() ? description.resources.front() : *named;
    item.protocol_info = clean_text(chosen.protocol_info, kLongestItemText);
    item.resolution = clean_text(chosen.resolution, kLongestItemText);
    item.duration = read_clock(chosen.duration).value_or(0);
    item.bytes = parse_number_within<std::int64_t>(chosen.size, 0, INT64_MAX).value_or(0);
  }
  const std::string name = file_name(address);
  const std::string media_type = item_media_type(item.protocol_info);
  if (item.title.empty()) item.title = name;
  item.kind = kind_of(description.type, media_type);
  item.extension = extension_of(name, media_type);
  return item;
}

std::string item_media_type(std::string_view protocol_info) {
  std::array<std::string_view, 4> fields;  // protocol, network, media type, the rest
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::size_t colon = i + 1 == fields.size() ? std::string_view::npos : protocol_info.find(':');
    if (colon == std::string_view::npos && i + 1 < fields.size()) return "";
    fields[i] = protocol_info.substr(0, colon);
    if (colon != std::string_view::npos) protocol_info.remove_prefix(colon + 1);
  }
  std::string type(fields[2].substr(0, fields[2].find_first_of("; ")));
  std::ranges::transform(type, type.begin(), ascii_lower);
  return type == "*" ? "" : type;
}

std::optional<double> read_clock(std::string_view text) {
  const std::size_t first = text.find(':');
  const std::size_t second = first == std::string_view::npos ? first : text.find(':', first + 1);
  if (second == std::string_view::npos) return std::nullopt;
  const std::string_view rest = text.substr(second + 1);
  const auto hours = parse_number_within<unsigned>(text.substr(0, first), 0, kMostHours);
  const auto minutes = parse_number_within<unsigned>(text.substr(first + 1, second - first - 1), 0, 59);
  const auto seconds = parse_number_within<unsigned>(rest.substr(0, rest.find('.')), 0, 59);
  if (!hours || !minutes || !seconds) return std::nullopt;
  double value = *hours * 3600 + *minutes * 60 + *seconds;
  if (const std::size_t dot = rest.find('.'); dot != std::string_view::npos) {
    const std::string_view digits = rest.substr(dot + 1);
    const auto part = parse_number_within<unsigned>(digits.substr(0, 6), 0, 999999);
    if (!part || digits.size() > 6) return std::nullopt;
    value += *part / std::pow(10, digits.size());
  }
  return value;
}

std::string write_clock(double seconds) {
  const auto whole = static_cast<std::int64_t>(std::clamp(seconds, 0.0, kMostHours * 3600.0));
  const auto two = [](std::int64_t number) { return (number < 10 ? ":0" : ":") + std::to_string(number); };
  return std::to_string(whole / 3600) + two(whole / 60 % 60) + two(whole % 60);
}
