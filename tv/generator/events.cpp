#include "generator/events.h"

#include <bitstream/dvb/si.h>

#include <algorithm>
#include <array>

#include "generator/si_parts.h"

namespace {

// Of one extended descriptor's text. Less than it may have, so that most descriptions take two, as long ones do.
constexpr std::size_t kLongestPart = 120;

// "Folge 12", in the services' languages.
constexpr struct {
  std::string_view language, before, after;
} kEpisodes[] = {
    {"deu", "Folge ", ""},     {"eng", "Episode ", ""}, {"fra", "Épisode ", ""}, {"rus", "Серия ", ""},
    {"ell", "Επεισόδιο ", ""}, {"jpn", "第", "回"},     {"kor", "제", "회"},     {"ara", "الحلقة ", ""},
    {"tur", "Bölüm ", ""},     {"zho", "第", "回"},
};

std::string with_episode(std::string_view summary, std::string_view language, int episode) {
  if (episode == 0) return std::string(summary);
  const auto* const row = std::ranges::find_if(kEpisodes, [&](const auto& each) { return each.language == language; });
  return std::string(row->before) + std::to_string(episode) + std::string(row->after) + ": " + std::string(summary);
}

void append_short(std::vector<std::uint8_t>& loop, std::string_view language, std::string_view character_set,
                  std::string_view title, std::string_view summary) {
  const std::string name = encoded(title, character_set);
  const std::string text = encoded(summary, character_set);
  append_descriptor(loop, [&](std::uint8_t* descriptor) {
    desc4d_init(descriptor);
    desc4d_set_lang(descriptor, bytes_of(language));
    desc4d_set_event_name(descriptor, bytes_of(name), length_of(name));
    desc4d_set_text(descriptor, bytes_of(text), length_of(text));
    desc4d_set_length(descriptor);
  });
}

// The text in pieces, each in the character set with its own lead bytes, cut between characters.
std::vector<std::string> parts_of(std::string_view text, std::string_view character_set) {
  std::vector<std::string> parts;
  while (!text.empty()) {
    std::string part;
    std::size_t taken = 0;
    for (std::size_t end = 1; end <= text.size(); ++end) {
      if (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) continue;
      std::string longer = encoded(text.substr(0, end), character_set);
      if (longer.size() > kLongestPart) break;
      part = std::move(longer);
      taken = end;
    }
    parts.push_back(std::move(part));
    text.remove_prefix(taken);
  }
  return parts;
}

void append_extended(std::vector<std::uint8_t>& loop, std::string_view language, std::string_view character_set,
                     const Show& show) {
  const std::vector<std::string> parts = parts_of(show.details, character_set);
  std::string items;  // of the first part: who did what
  if (const std::size_t equals = show.credit.find('='); equals != std::string_view::npos)
    for (const std::string_view side : {show.credit.substr(0, equals), show.credit.substr(equals + 1)}) {
      const std::string text = encoded(side, character_set);
      items += static_cast<char>(length_of(text)) + text;
    }
  for (std::size_t number = 0; number < parts.size(); ++number) {
    append_descriptor(loop, [&](std::uint8_t* descriptor) {
      desc4e_init(descriptor);
      desc4e_set_desc_number(descriptor, static_cast<std::uint8_t>(number));
      desc4e_set_last_desc_number(descriptor, static_cast<std::uint8_t>(parts.size() - 1));
      desc4e_set_lang(descriptor, bytes_of(language));
      desc4e_set_items_length(descriptor, length_of(items));
      std::ranges::copy(items, descriptor + DESC4E_HEADER_SIZE + 1);
      std::string text = parts[number];
      desc4e_set_text(descriptor, reinterpret_cast<std::uint8_t*>(text.data()), length_of(text));
      desc4e_set_length(descriptor);
    });
    items.clear();
  }
}

void append_component(std::vector<std::uint8_t>& loop, int content, int type, std::string_view language) {
  append_descriptor(loop, [&](std::uint8_t* descriptor) {
    desc50_init(descriptor);
    desc50_set_stream_content(descriptor, static_cast<std::uint8_t>(content));
    desc50_set_component_type(descriptor, static_cast<std::uint8_t>(type));
    desc50_set_language(descriptor, bytes_of(language));
    desc50_set_text(descriptor, bytes_of(""), 0);
  });
}

void append_components(std::vector<std::uint8_t>& loop, const ServiceRow& service) {
  if (service.codec == Codec::kMpeg2) append_component(loop, 1, 0x01, service.language);  // 4:3, 25 Hz
  if (service.codec == Codec::kH264) append_component(loop, 5, 0x0B, service.language);   // 16:9, HD, 25 Hz
  for (const Sound& sound : service.sounds)
    if (!sound.language.empty()) append_component(loop, 2, 0x01, sound.language);  // mono
  if (service.subtitles) append_component(loop, 3, 0x10, service.language);
}

}  // namespace

std::vector<std::uint8_t> event_bytes(const ServiceRow& service, const Programme& programme,
                                      std::uint8_t running_status) {
  const Show& show = *programme.show;
  std::vector<std::uint8_t> loop;
  append_short(loop, service.language, service.character_set, show.title,
               with_episode(show.summary, service.language, programme.episode));
  if (!service.second_language.empty())
    append_short(loop, service.second_language, service.character_set, show.second_title,
                 with_episode(show.second_summary, service.second_language, programme.episode));
  append_extended(loop, service.language, service.character_set, show);
  append_components(loop, service);
  append_descriptor(loop, [&](std::uint8_t* descriptor) {
    desc54_init(descriptor);
    desc_set_length(descriptor, DESC54_CONTENT_SIZE);
    std::uint8_t* entry = desc54_get_content(descriptor, 0);
    desc54n_set_content_l1(entry, show.content >> 4);
    desc54n_set_content_l2(entry, show.content & 0x0F);
    desc54n_set_user(entry, 0);
  });
  if (show.age > 0)
    append_descriptor(loop, [&](std::uint8_t* descriptor) {
      desc55_init(descriptor);
      desc_set_length(descriptor, DESC55_RATING_SIZE);
      std::uint8_t* entry = desc55_get_rating(descriptor, 0);
      std::ranges::copy(kCountry, entry);
      desc55n_set_rating(entry, show.age - 3);  // ages are stated less three years
    });
  std::vector<std::uint8_t> event(EIT_EVENT_SIZE);
  eitn_init(event.data());
  eitn_set_event_id(event.data(), programme.id);
  eitn_set_start_time(event.data(), dvb_time_encode_UTC(programme.start));
  eitn_set_duration_bcd(event.data(), dvb_time_encode_duration(programme.duration));
  eitn_set_running(event.data(), running_status);
  if (service.scrambled) eitn_set_ca(event.data());
  eitn_set_desclength(event.data(), static_cast<std::uint16_t>(loop.size()));
  event.insert(event.end(), loop.begin(), loop.end());
  return event;
}
