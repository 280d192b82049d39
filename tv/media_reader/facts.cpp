#include "facts.h"

extern "C" {
#include <libavutil/dict.h>
}

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "exif.h"
#include "kinds.h"

namespace {

// A longer duration is an error in the file.
constexpr std::int64_t kLongest = std::int64_t{1000} * 3600 * AV_TIME_BASE;
constexpr std::uint32_t kMostSide = 1U << 20;  // pixels

struct TextKeys {
  WireText text;
  const char* keys[3];  // the first one that the file has is used
};

constexpr TextKeys kTexts[] = {
    {WireText::kTitle, {"title", nullptr, nullptr}},       {WireText::kArtist, {"artist", "album_artist", nullptr}},
    {WireText::kAlbum, {"album", nullptr, nullptr}},       {WireText::kGenre, {"genre", nullptr, nullptr}},
    {WireText::kTrack, {"track", "tracknumber", nullptr}},
};
constexpr const char* kDateKeys[] = {"date", "year", "creation_time"};

// The text of the file's tag, else of a stream's, where Ogg has its tags. Null: there is none.
const char* text_of(const AVFormatContext& format, const char* key) {
  const AVDictionaryEntry* entry = av_dict_get(format.metadata, key, nullptr, 0);
  for (unsigned i = 0; entry == nullptr && i < format.nb_streams; ++i)
    if ((format.streams[i]->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0)
      entry = av_dict_get(format.streams[i]->metadata, key, nullptr, 0);
  return entry != nullptr && *entry->value != '\0' ? entry->value : nullptr;
}

void put(WireReply& ret_reply, WireText which, std::string_view text) {
  char(&field)[kWireTextSize] = ret_reply.texts[static_cast<std::size_t>(which)];
  const std::size_t size = std::min(text.size(), sizeof field - 1);
  std::memcpy(field, text.data(), size);
  field[size] = '\0';
}

void put_date(WireReply& ret_reply, const char* text) {
  std::array<std::uint32_t, 6> date{};
  if (date_read(text, date)) std::ranges::copy(date, ret_reply.date);
}

void put_texts(const AVFormatContext& format, WireReply& ret_reply) {
  for (const TextKeys& each : kTexts)
    for (const char* const key : each.keys)
      if (const char* const text = key != nullptr ? text_of(format, key) : nullptr; text != nullptr) {
        put(ret_reply, each.text, text);
        break;
      }
  for (const char* const key : kDateKeys) {
    const char* const text = text_of(format, key);
    if (text == nullptr) continue;
    if (ret_reply.date[0] == 0) put_date(ret_reply, text);
    const std::string_view year(text, std::min<std::size_t>(std::strlen(text), 4));
    const bool is_year =
        year.size() == 4 && std::ranges::all_of(year, [](char c) { return c >= '0' && c <= '9'; }) && year != "0000";
    char& first = ret_reply.texts[static_cast<std::size_t>(WireText::kYear)][0];
    if (is_year && first == '\0') put(ret_reply, WireText::kYear, year);
  }
}

std::uint32_t side(int pixels) {
  return pixels > 0 && static_cast<std::uint32_t>(pixels) <= kMostSide ? static_cast<std::uint32_t>(pixels) : 0;
}

bool photo_facts(const Source& source, WireReply& ret_reply) {
  const std::optional<JpegHeader> header = jpeg_header(source);
  if (!header) return false;
  const Exif exif = exif_read(header->exif);
  ret_reply.kind = MEDIA_TYPE_PHOTO;
  ret_reply.width = header->width;
  ret_reply.height = header->height;
  ret_reply.orientation = exif.orientation;
  std::ranges::copy(exif.date, ret_reply.date);
  if (exif.date[0] != 0) put(ret_reply, WireText::kYear, std::to_string(exif.date[0]));
  return true;
}

}  // namespace

void read_facts(int file, const std::string& extension, Deadline deadline, WireReply& ret_reply) {
  Source source;
  source_probe(source, file, extension, deadline);
  if (source.kind == nullptr) return;
  if (std::strcmp(source.kind->name, "jpeg_pipe") == 0 && photo_facts(source, ret_reply)) return;
  source_open(source, extension);
  const E_MEDIA_TYPE kind = kind_of(source);
  ret_reply.kind = kind;
  if (kind == MEDIA_TYPE_NULL) return;
  put_texts(*source.format, ret_reply);
  if (const AVStream* const video = kind_video(source); video != nullptr) {
    ret_reply.width = side(video->codecpar->width);
    ret_reply.height = side(video->codecpar->height);
    ret_reply.orientation = kind_turn(*video);
  }
  if (kind == MEDIA_TYPE_VIDEO && (ret_reply.width == 0 || ret_reply.height == 0))
    throw Refusal("the video is broken: none of its pictures can be decoded");
  if (kind == MEDIA_TYPE_PHOTO && (ret_reply.width == 0 || ret_reply.height == 0))
    throw Refusal("the photo is broken, or has more than " + std::to_string(kMostPixels >> 20) + " million pixels");
  if (kind != MEDIA_TYPE_PHOTO && source.format->duration > 0 && source.format->duration <= kLongest)
    ret_reply.duration_ms = static_cast<std::uint64_t>(source.format->duration) / 1000;
  ret_reply.has_cover = kind_cover(source) != nullptr ? 1 : 0;
}
