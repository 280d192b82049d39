#include "rooms/photos/commands.h"

#include <algorithm>
#include <boost/json.hpp>

#include "base/text.h"
#include "core/reply.h"
#include "rooms/library/library.h"
#include "rooms/photos/state.h"

namespace json = boost::json;

namespace {

constexpr std::size_t kMostCounted = 2000;  // photos of a folder among which the displayed one is counted

// The photo's number in its folder, from 1, and the number of photos there; 0: the library does not have it.
struct Place {
  std::size_t index = 0;
  std::size_t of = 0;
};

Place place_of(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/'));
  const std::vector<LibraryEntry> entries = library_folder(folder, MEDIA_TYPE_PHOTO, 0, kMostCounted);
  const auto found = std::ranges::find(entries, path, &LibraryEntry::path);
  if (found == entries.end()) return {};
  return {.index = static_cast<std::size_t>(found - entries.begin()) + 1, .of = entries.size()};
}

json::object report() {
  const auto shown = photo_shown();
  if (!shown) return {{"state", "none"}};
  const Place place = place_of(shown->path);
  const PhotoView& view = shown->view;
  return {{"state", "shown"},
          {"path", shown->path},
          {"width", shown->decoded.width},
          {"height", shown->decoded.height},
          {"orientation", shown->decoded.orientation},
          {"rotation", view.rotation},
          {"zoom", view.zoom},
          {"pan", {{"x", view.pan_x}, {"y", view.pan_y}}},
          {"mode", shown->mode},
          {"slide_show", photo_slides()},
          {"application", shown->application},
          {"index", place.index},
          {"of", place.of}};
}

json::object answer(const std::string& why) { return why.empty() ? report() : reply_error(why); }

json::object nothing_shown() { return reply_error("no photo is displayed; show one with photo show PATH"); }

json::object step(int by) {
  if (!photo_shown()) return nothing_shown();
  const auto path = photo_neighbour(by);
  if (!path) return reply_error(by > 0 ? "the folder has no other photo" : "this is the folder's first photo");
  return answer(photo_show(*path));
}

json::object change(void (*how)(PhotoView& view, int number), int number) {
  return photo_change_view(how, number) ? report() : nothing_shown();
}

json::object zoom(Arguments arguments) {
  const auto percent = parse_number_within(arguments[0], kLeastZoom, kMostZoom);
  if (!percent)
    return reply_takes("photo zoom", "percent from " + std::to_string(kLeastZoom) + " to " + std::to_string(kMostZoom),
                       arguments[0]);
  return change([](PhotoView& view, int number) { view.zoom = number; }, *percent);
}

json::object pan(Arguments arguments) {
  const auto x = parse_number_within(arguments[0], -100, 100), y = parse_number_within(arguments[1], -100, 100);
  if (!x || !y)
    return reply_takes("photo pan", "two numbers from -100 (left, top) to 100 (right, bottom)", joined(arguments));
  // Both values are set at once, as one number, so that no frame is drawn between them.
  constexpr int kRow = 1000;
  return change(
      [](PhotoView& view, int number) {
        view.pan_x = number % kRow - 100;
        view.pan_y = number / kRow - 100;
      },
      (*y + 100) * kRow + *x + 100);
}

json::object slide_show(Arguments arguments) {
  const std::string_view word = arguments[0];
  if (word != "on" && word != "off") return reply_takes("photo slideshow", "on or off", word);
  int seconds = kUsualSlide;
  if (arguments.size() > 1) {
    const auto given = parse_number_within(arguments[1], kLeastSlide, kMostSlide);
    if (!given)
      return reply_takes("photo slideshow",
                         "seconds from " + std::to_string(kLeastSlide) + " to " + std::to_string(kMostSlide),
                         arguments[1]);
    seconds = *given;
  }
  return answer(photo_slide_show(word == "on", seconds));
}

struct Word {
  std::string_view name;
  std::size_t least, most;  // number of words after it
  json::object (*run)(Arguments arguments);
};

constexpr Word kWords[] = {
    {"show", 1, 1, [](Arguments words) { return answer(photo_show(std::string(words[0]))); }},
    {"next", 0, 0, [](Arguments) { return step(1); }},
    {"previous", 0, 0, [](Arguments) { return step(-1); }},
    {"rotate", 0, 0,
     [](Arguments) { return change([](PhotoView& view, int) { view.rotation = (view.rotation + 90) % 360; }, 0); }},
    {"zoom", 1, 1, zoom},
    {"pan", 2, 2, pan},
    {"slideshow", 1, 2, slide_show},
    {"close", 0, 0,
     [](Arguments) {
       photo_close();
       return report();
     }},
};

json::object photo_command(Arguments arguments) {
  if (arguments.empty()) return report();
  const Arguments behind = arguments.subspan(1);
  for (const Word& word : kWords)
    if (word.name == arguments[0] && behind.size() >= word.least && behind.size() <= word.most) return word.run(behind);
  return reply_takes("photo", "show PATH, next, previous, rotate, zoom PERCENT, pan X Y, slideshow on|off or close",
                     joined(arguments));
}

constexpr Command kCommands[] = {
    {"photo", "[show PATH | next | previous | rotate | zoom PERCENT | pan X Y | slideshow on|off [SECONDS] | close]", 3,
     "Shows a photo of a stick in place of the picture, turns and zooms it, and goes through its folder",
     photo_command},
};

}  // namespace

const std::span<const Command> kPhotoCommands = kCommands;
