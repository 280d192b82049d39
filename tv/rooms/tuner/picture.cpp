#include "rooms/tuner/picture.h"

#include <algorithm>
#include <array>
#include <utility>
#include <variant>

#include "rooms/clock/clock.h"
#include "rooms/config/config.h"
#include "rooms/guide/guide.h"

namespace {

using std::chrono::milliseconds;

bool is_same(const std::optional<Channel>& left, const Channel& right) {
  return left && left->key == right.key && left->list == right.list;
}

bool is_seen(std::optional<ChangeResult> result) {
  return result == ChangeResult::kPicture || result == ChangeResult::kAudioOnly;
}

bool has_stream(const Pmt& pmt, StreamKind kind) {
  return std::ranges::any_of(pmt.streams, [&](const Pmt::Stream& each) { return each.kind == kind; });
}

// What comes over the antenna.
ChangeResult received(const ReceiverFacts& facts) {
  if (facts.refusal == ReceptionRefusal::kNoTuner) return ChangeResult::kNoTuner;
  if (!facts.pmt || !facts.lost.empty()) return ChangeResult::kNoSignal;
  if (facts.scrambled) return ChangeResult::kScrambled;
  if (has_stream(*facts.pmt, StreamKind::kVideo)) return ChangeResult::kPicture;
  return has_stream(*facts.pmt, StreamKind::kAudio) ? ChangeResult::kAudioOnly : ChangeResult::kNoSignal;
}

ChangeResult judge(const Channel& channel, const ReceiverFacts& facts, bool unlocked) {
  if (!unlocked && channel.blocked && config_number("g_rating__channel_lock") != 0)
    return ChangeResult::kBlockedChannel;
  if (!unlocked) {
    const auto event = guide_event_at(channel.key, clock_utc());
    if (event && guide_blocks(*event)) return ChangeResult::kBlockedEvent;
  }
  return received(facts);
}

// The time until the picture has to be judged again: an event begins or ends, or the next check.
milliseconds next_check(const Channel& channel) {
  const std::int64_t now = clock_utc();
  std::int64_t border = now + kPictureCheck / std::chrono::seconds(1);
  if (const auto event = guide_event_at(channel.key, now)) border = std::min(border, event->start + event->duration);
  if (const auto event = guide_event_after(channel.key, now)) border = std::min(border, event->start);
  return std::chrono::seconds(std::max<std::int64_t>(border - now, 1));
}

void take_packets(void* context, std::span<const std::uint8_t> packets) {
  Picture& picture = *static_cast<Picture*>(context);
  const std::lock_guard guard(picture.player_lock);
  if (picture.player.packets != nullptr) picture.player.packets(picture.player.context, packets);
}

bool has_player(Picture& picture) {
  const std::lock_guard guard(picture.player_lock);
  return picture.player.packets != nullptr;
}

bool is_broken(const ReceiverFacts& facts) { return facts.refusal != ReceptionRefusal::kNone || !facts.lost.empty(); }

void take_news(void* context) { picture_update(*static_cast<Picture*>(context), false); }

// The caller of the functions below holds `working`.

// Receives the channel. The tuner stays locked, or goes on locking, to the multiplex that it receives already.
void receive(Picture& picture, const Channel& channel) {
  ReceiverHandle old = std::move(picture.receiver);
  const bool within =
      old != nullptr && same_multiplex(receiver_key(*old), channel.key) && !is_broken(receiver_facts(*old));
  if (!within) old.reset();  // frees the tuner; of the same multiplex, the old receiver keeps the tuner for the new one
  picture.receiver = receiver_start(channel.key, {.news = take_news, .packets = take_packets, .context = &picture},
                                    has_player(picture) ? ReceiverOutput::kHold : ReceiverOutput::kOff);
  if (!within) picture.locked = timer_now() + (kChangeOther - kChangeWithin);
  picture.retry = timer_now() + kPictureCheck;
}

// There is nothing to show. Returns the channel that does not exist any more.
std::optional<Channel> go_dark(Picture& picture) {
  picture.receiver.reset();
  std::optional<Channel> before;
  {
    const std::lock_guard guard(picture.lock);
    before = std::exchange(picture.shown, {}).channel;
    picture.unlocked = picture.restart = false;
  }
  return before && !channels_by_key(before->key) ? before : std::nullopt;
}

// Begins a change if there is a choice, and starts a receiver again that receives nothing.
void follow(Picture& picture, const Channel& channel) {
  bool same = false;
  bool restart = false;
  {
    const std::lock_guard guard(picture.lock);
    restart = std::exchange(picture.restart, false);
    same = is_same(picture.shown.channel, channel);
    if (!same || restart) picture.shown = {.channel = channel, .result = std::nullopt, .facts = {}, .changing = true};
    if (!same) picture.unlocked = false;
  }
  if (same && !restart) {
    if (is_broken(receiver_facts(*picture.receiver)) && timer_now() >= picture.retry) receive(picture, channel);
    return;
  }
  receive(picture, channel);
  picture.due = std::max(timer_now(), picture.locked) + kChangeWithin;
}

// The result of the change, or the time at which to look for it again.
std::variant<ChangeResult, TimerTime> find_result(const Picture& picture, const Channel& channel,
                                                  const ReceiverFacts& facts, bool unlocked, bool ended) {
  if (!ended && timer_now() < picture.due) return picture.due;
  const ChangeResult result = judge(channel, facts, unlocked);
  const TimerTime last = picture.due + kChangePatience;
  const bool waits = result == ChangeResult::kNoSignal && !is_broken(facts) && !facts.pmt;
  if (!ended && waits && timer_now() < last) return last;
  return result;
}

// Makes the result known if it is new, and lets the player have the packets of a picture that is seen.
void take_result(Picture& picture, const Channel& channel, ChangeResult result) {
  bool is_new = false;
  {
    const std::lock_guard guard(picture.lock);
    is_new = std::exchange(picture.shown.result, result) != result;
  }
  if (is_new) {
    {
      const std::lock_guard guard(picture.player_lock);
      if (picture.player.changed != nullptr) picture.player.changed(picture.player.context, result);
    }
    if (picture.ended != nullptr) picture.ended(channel, result);
  }
  const bool passes = is_seen(result) && has_player(picture);
  receiver_set_output(*picture.receiver, passes ? ReceiverOutput::kPass : ReceiverOutput::kOff);
}

// The time of the next work. Follows, judges and reports.
TimerTime watch(Picture& picture, const Channel& channel) {
  follow(picture, channel);
  const ReceiverFacts facts = receiver_facts(*picture.receiver);
  bool unlocked = false;
  bool ended = false;
  {
    const std::lock_guard guard(picture.lock);
    // The PIN was not given for a block that came after it.
    if (channel.blocked && picture.shown.channel && !picture.shown.channel->blocked) picture.unlocked = false;
    picture.shown.channel = channel;
    picture.shown.facts = facts;
    unlocked = picture.unlocked;
    ended = picture.shown.result.has_value();
  }
  const auto found = find_result(picture, channel, facts, unlocked, ended);
  if (const auto* const later = std::get_if<TimerTime>(&found)) return *later;
  take_result(picture, channel, std::get<ChangeResult>(found));
  return timer_now() + next_check(channel);
}

}  // namespace

void picture_work(Picture& picture) {
  const std::lock_guard working(picture.working);
  {
    const std::lock_guard guard(picture.lock);
    picture.pending = false;
  }
  TimerTime next = timer_now() + kPictureCheck;
  if (const auto channel = picture.wanted()) {
    next = watch(picture, *channel);
  } else if (const auto gone = go_dark(picture); gone && picture.ended != nullptr) {
    picture.ended(*gone, ChangeResult::kNotFound);
  }
  const std::lock_guard guard(picture.lock);
  timer_set(picture.timer, picture.pending ? timer_now() : next, picture.work);
}

void picture_update(Picture& picture, bool restart) {
  const std::lock_guard guard(picture.lock);
  picture.pending = true;
  picture.restart = picture.restart || restart;
  timer_set(picture.timer, timer_now(), picture.work);
}

void picture_set_player(Picture& picture, const TunerPlayer* player) {
  {
    const std::lock_guard guard(picture.player_lock);
    picture.player = player == nullptr ? TunerPlayer{} : *player;
  }
  picture_update(picture, false);
}

void picture_unlock(Picture& picture) {
  {
    const std::lock_guard guard(picture.lock);
    picture.unlocked = true;
    picture.shown.result.reset();  // the PMT may not have come yet: a block is known without it
  }
  picture_update(picture, false);
}

PictureFacts picture_facts(Picture& picture) {
  const std::lock_guard guard(picture.lock);
  if (picture.restart) return {.channel = picture.shown.channel, .result = std::nullopt, .facts = {}, .changing = true};
  PictureFacts facts = picture.shown;
  facts.changing = facts.channel && !facts.result;
  return facts;
}

void picture_clear(Picture& picture) {
  const std::lock_guard working(picture.working);
  picture.receiver.reset();
  const std::lock_guard guard(picture.lock);
  picture.pending = picture.restart = picture.unlocked = false;
  picture.shown = {};
}

const char* result_word(ChangeResult result) {
  constexpr std::array kWords = {"picture",       "no signal",  "scrambled", "blocked channel",
                                 "blocked event", "audio only", "no tuner",  "not found"};
  return kWords[static_cast<std::size_t>(result)];
}
