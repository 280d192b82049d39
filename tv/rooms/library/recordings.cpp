// The set's own recordings as entries of the library's lists.
#include <algorithm>

#include "rooms/clock/clock.h"
#include "rooms/library/names.h"
#include "rooms/library/parts.h"
#include "rooms/recorder/recorder.h"

std::vector<MediaItem> media_recordings(INT32 sort, std::string_view title) {
  const std::string wanted = media_key(title);
  std::vector<MediaItem> found;
  for (const std::int64_t id : recorder_recordings()) {
    std::string why;
    auto recording = recorder_playable(static_cast<int>(id), why);
    if (!recording || media_key(recording->title).find(wanted) == std::string::npos) continue;
    MediaItem item{.path = std::move(recording->path)};
    item.row.id = id;
    item.row.kind = MEDIA_TYPE_VIDEO;
    item.row.title = std::move(recording->title);
    item.row.date = media_local_date(recording->start);
    item.row.year = std::to_string(item.row.date / 10'000'000'000);
    item.row.size = recording->bytes;
    item.row.duration_ms = std::uint64_t{recording->duration} * 1000;
    found.push_back(std::move(item));
  }
  const INT32 by = sort % VEXTVAPI_CB_SORT_DESCENDING;
  std::ranges::stable_sort(found, [&](const MediaItem& left, const MediaItem& right) {
    if (by == VEXTVAPI_CB_SORT_DATE) return left.row.date < right.row.date;
    if (by == VEXTVAPI_CB_SORT_SIZE) return left.row.size < right.row.size;
    if (by == VEXTVAPI_CB_SORT_DURATION) return left.row.duration_ms < right.row.duration_ms;
    return media_key(left.row.title) < media_key(right.row.title);
  });
  if (sort > VEXTVAPI_CB_SORT_DESCENDING) std::ranges::reverse(found);
  return found;
}
