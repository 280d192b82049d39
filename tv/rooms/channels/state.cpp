#include "rooms/channels/state.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

#include "core/events.h"
#include "core/reply.h"
#include "core/set.h"
#include "rooms/channels/storage.h"
#include "rooms/tuner/tuner.h"

namespace {

struct State {
  std::mutex changing;  // serializes changes, with the disk; guards the database; taken first
  Database database;
  std::mutex lock;  // guards the members below; held for moments
  std::shared_ptr<const Lists> lists = std::make_shared<const Lists>();
  a_vextvapi_channellist_nfy_fct callback = nullptr;
  void* callback_tag = nullptr;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// ---- Callbacks ----

struct Notice {
  UINT32 reason = 0;
  UINT32 channel_id = 0;  // of the only channel that it is about; 0: several
};
using Notices = std::map<std::uint16_t, Notice>;  // by service list

void note(Notices& notices, const Entry& entry, UINT32 reason) {
  if (reason == 0) return;
  const UINT32 id = entry.channel.id;
  auto [found, is_new] = notices.try_emplace(entry.channel.list, Notice{.reason = reason, .channel_id = id});
  found->second.reason |= reason;
  if (!is_new && found->second.channel_id != id) found->second.channel_id = 0;
}

// 0: nothing that the TV API shows.
UINT32 reason_of(const Entry& before, const Entry& after) {
  const bool moved = before.channel.id != after.channel.id;
  Entry same_place = before;
  set_id(same_place, after.channel.id);
  same_place.former = after.former;
  if (moved) same_place.options = after.options;  // the bit for the number comes with it
  return (moved ? UINT32{VEXTVAPI_CHANNEL_REASON_ORDER} : 0) |
         (same_place != after ? UINT32{VEXTVAPI_CHANNEL_REASON_CHANGED} : 0);
}

// The favourites that were added or removed; if there are none, those whose place has changed.
void note_favourites(Notices& notices, const Lists& before, const Lists& after, std::size_t which) {
  const std::vector<std::uint32_t>&was = before.favourites[which], &is = after.favourites[which];
  std::vector<std::uint32_t> old = was, now = is, differing;
  std::ranges::sort(old);
  std::ranges::sort(now);
  std::ranges::set_symmetric_difference(old, now, std::back_inserter(differing));
  if (differing.empty())
    for (std::size_t i = 0; i < is.size(); ++i)
      if (was[i] != is[i]) differing.push_back(is[i]);
  for (const std::uint32_t reference : differing)
    if (const Entry* const entry = find_reference(after, reference); entry != nullptr)
      note(notices, *entry, VEXTVAPI_CHANNEL_REASON_FAVOURITES);
}

Notices notices_of(const Lists& before, const Lists& after, const std::vector<Difference>& changed) {
  Notices notices;
  for (const auto& [was, is] : changed) {
    if (was == nullptr)
      note(notices, *is, VEXTVAPI_CHANNEL_REASON_ADDED);
    else if (is == nullptr)
      note(notices, *was, VEXTVAPI_CHANNEL_REASON_REMOVED);
    else
      note(notices, *is, reason_of(*was, *is));
  }
  for (std::size_t i = 0; i < kFavourites; ++i)
    if (before.favourites[i] != after.favourites[i]) note_favourites(notices, before, after, i);
  return notices;
}

void* as_pointer(UINT32 number) { return reinterpret_cast<void*>(static_cast<std::uintptr_t>(number)); }

// The caller holds the lock.
void post(const Notices& notices, ChangeKind kind) {
  if (state.callback == nullptr) return;
  const UINT32 condition =
      kind == ChangeKind::kReset ? UINT32{VEXTVAPI_CHANNEL_LIST_RESET} : UINT32{VEXTVAPI_CHANNEL_LIST_CHANGED};
  for (const auto& [list, notice] : notices) {
    events_post([callback = state.callback, tag = state.callback_tag, handle = kServiceHandles + list, condition,
                 each = notice] {
      callback(0, tag, as_pointer(handle), as_pointer(condition), as_pointer(each.reason), as_pointer(each.channel_id));
    });
  }
}

template <std::size_t Size>
void copy_text(char (&ret_text)[Size], const std::string& text) {
  std::memcpy(ret_text, text.data(), std::min(Size - 1, text.size()));
}

}  // namespace

std::shared_ptr<const Lists> lists_now() {
  const std::lock_guard guard(state.lock);
  return state.lists;
}

std::string change_lists(const std::function<std::string(Lists& lists)>& edit, ChangeKind kind) {
  const std::lock_guard changing(state.changing);
  const std::shared_ptr<const Lists> before = lists_now();
  const auto after = std::make_shared<Lists>(*before);
  if (kind != ChangeKind::kWrite) undo_half_swap(*after);
  if (std::string why = edit(*after); !why.empty()) return why;
  index_lists(*after);
  const std::vector<Difference> changed = differences(*before, *after);
  const bool satellites = before->satellites != after->satellites;
  const bool categories = before->categories != after->categories;
  if (changed.empty() && before->favourites == after->favourites && !satellites && !categories &&
      before->multiplexes == after->multiplexes) {
    return "";
  }
  if (!storage_write(state.database, *before, *after, changed)) return kNotSaved;
  after->changes = before->changes + 1;
  after->satellites_version = before->satellites_version + (satellites ? 1 : 0);
  after->categories_version = before->categories_version + (categories ? 1 : 0);
  const Notices notices = notices_of(*before, *after, changed);
  {
    const std::lock_guard guard(state.lock);
    state.lists = after;
    post(notices, kind);
  }
  tuner_look();
  return "";
}

void state_load() {
  std::unique_lock changing(state.changing);
  database_close(state.database);
  auto lists = std::make_shared<Lists>();
  std::string error;
  if (!storage_open(set_folder() + "/channels.sqlite", state.database, *lists, error))
    std::fprintf(stderr, "dtv_tv: there are no channels, and none can be saved: %s\n", error.c_str());
  index_lists(*lists);
  std::unique_lock guard(state.lock);
  lists->changes = state.lists->changes + 1;  // what another room remembers of the last run is stale
  state.lists = std::move(lists);
  state.callback = nullptr;
  state.callback_tag = nullptr;
  guard.unlock();
  changing.unlock();
  change_lists([](Lists&) { return std::string(); });  // undoes half a swap, after which the process ended
}

void state_stop() {
  const std::lock_guard changing(state.changing);
  database_close(state.database);
}

bool state_reset() {
  const std::string why = change_lists(
      [](Lists& lists) {
        lists.entries.clear();
        lists.favourites = {};
        lists.satellites.clear();
        lists.categories.clear();
        lists.multiplexes.clear();
        return std::string();
      },
      ChangeKind::kReset);
  return why.empty();
}

SVL_REC_T service_record(const Entry& entry) {
  const Channel& channel = entry.channel;
  SVL_REC_T record = {};
  record.ui2_svl_rec_id = channel.record;
  SVL_REC_HDR_T& header = record.t_rec_hdr;
  header.ui4_channel_id = channel.id;
  header.ui4_nw_mask = entry.mask;
  header.ui4_option_mask = entry.options;
  header.e_brdcst_type = entry.broadcast;
  header.e_serv_type = static_cast<UINT8>(service_type(channel.type));
  copy_text(header.ac_name, channel.name);
  header.aui1_custom_data[0] = static_cast<UINT8>(entry.logo & 0xFF);
  header.aui1_custom_data[1] = static_cast<UINT8>(entry.logo >> 8);
  copy_text(record.t_dvb.s_svc_name, channel.short_name);
  record.t_dvb.ui4_category_mask = entry.categories;
  return record;
}

TSL_REC_T stream_record(const Entry& entry) {
  return {.brdcst_medium = static_cast<UINT8>(entry.channel.medium), .frequency = entry.channel.frequency};
}

INT32 a_vextvapi_channellist_register_callback(a_vextvapi_channellist_nfy_fct callback, void* tag) {
  if (callback == nullptr) return refuse_call(__func__, "the callback is null");
  const std::lock_guard guard(state.lock);
  state.callback = callback;
  state.callback_tag = tag;
  return 0;
}
