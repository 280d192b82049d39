// What the set tells the viewer: one message at a time, for a few seconds.
#include <algorithm>
#include <boost/json.hpp>
#include <iterator>
#include <mutex>

#include "core/text.h"
#include "core/timers.h"
#include "rooms/menus/menus.h"
#include "rooms/menus/parts.h"

namespace {

constexpr std::chrono::seconds kMessageTime{3};
constexpr std::size_t kLongestAbout = 300;  // bytes

struct Message {
  std::string_view word;  // for the page
  const char* text;       // in English; what it is about follows
};

constexpr Message kMessages[] = {
    {"not_available", "Not available"},
    {"refused", "Not possible"},
    {"no_channel", "No channel with this number"},
    {"no_channels", "No channels: search for them first"},
    {"will_record", "Will be recorded"},
    {"records", "Is being recorded"},
    {"not_recorded", "Not recorded"},
    {"reminder", "Reminder set"},
    {"no_reminder", "Reminder deleted"},
    {"deleted", "Deleted"},
    {"press_red", "Press RED again to delete"},
    {"favourite", "Added to the favourites"},
    {"no_favourite", "Removed from the favourites"},
    {"sleep", "Sleep timer"},
    {"sleep_off", "Sleep timer: off"},
    {"subtitles_on", "Subtitles: on"},
    {"subtitles_off", "Subtitles: off"},
    {"sound", "Sound"},
    {"subtitles", "Subtitles"},
    {"repeat", "Repeat"},
    {"playing", "Playing"},
    {"picture_mode", "Picture mode"},
    {"sound_mode", "Sound mode"},
    {"aspect_ratio", "Picture format"},
    {"standby", "No effect in standby"},
    {"wrong_pin", "The PIN is wrong"},
};

struct State {
  std::mutex lock;  // guards all members below
  const Message* message = nullptr;
  std::string about;
  TimerTime until{};
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

}  // namespace

void menus_say(std::string_view word, std::string_view about) {
  const auto* const found = std::ranges::find(kMessages, word, &Message::word);
  if (found == std::end(kMessages)) return;
  const std::lock_guard guard(state.lock);
  state.message = found;
  state.about = cut_text(about, kLongestAbout);
  state.until = timer_now() + kMessageTime;
}

void menus_forget_message() {
  const std::lock_guard guard(state.lock);
  state.message = nullptr;
  state.about.clear();
}

void menus_report_message(boost::json::object& reply) {
  const std::lock_guard guard(state.lock);
  if (state.message == nullptr || timer_now() >= state.until) return;
  const std::string text = state.message->text + (state.about.empty() ? std::string() : ": " + state.about);
  reply["message"] = {{"word", state.message->word}, {"about", state.about}, {"text", text}};
}
