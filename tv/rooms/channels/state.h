// The room's state: the lists that everybody reads, and the one way to change them.
//
// The lists are immutable once they are published. A reader takes a share of the present ones and reads them without a
// lock, as long as it likes; so no read waits for the disk, and each reader sees the lists of one moment. A change
// edits a copy, saves what differs in one transaction, and publishes the copy. The channels are shared between the
// copies.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "core/contract.h"
#include "rooms/channels/lists.h"

std::shared_ptr<const Lists> lists_now();

enum class ChangeKind {
  kEdit,
  kReset,  // the callbacks say so
  kWrite,  // a client writes a channel; `edit` itself sees to an unfinished swap
};

// Edits a copy of the lists, saves it, publishes it, and posts a callback for each service list that differs. `edit`
// returns why the change is refused, or an empty text; it runs under the lock for changes, so it must not call this
// room's other functions. An unfinished swap is undone before. Returns why nothing has changed, or an empty text. Any
// thread.
std::string change_lists(const std::function<std::string(Lists& lists)>& edit, ChangeKind kind = ChangeKind::kEdit);

// Where the channels' logos are (logos.h). Any thread.
std::string logo_folder();

void state_load();
void state_stop();  // closes the database: until the next load every change fails
bool state_reset();

// ---- Handles. Those of different kinds differ, so that one is not taken for another ----

inline constexpr UINT32 kServiceHandles = 0x53560000, kStreamHandles = 0x54530000;  // plus the list
inline constexpr UINT32 kSatelliteHandle = 0x53410001, kCategoryHandle = 0x4C4F0001;

// The list of a handle of that kind; 0: it is none.
inline std::uint16_t list_of_handle(UINT32 handle, UINT32 kind) {
  return is_list(handle - kind) ? static_cast<std::uint16_t>(handle - kind) : std::uint16_t{0};
}

// ---- Records of the TV API ----

SVL_REC_T service_record(const Entry& entry);
TSL_REC_T stream_record(const Entry& entry);
