// Measures look-ups in the virtual television's channel lists with 2,000 channels, each beside its floor: the same walk
// over plain arrays, without a lock, and one copy of a record. Prints one JSON line per operation.
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "dtv_tv.h"
#include "tvapi/channel.h"

static constexpr UINT16 kList = 1;
static constexpr int kChannels = 2000, kMiddle = kChannels / 2;
static constexpr UINT32 kMask = SVL_NW_MASK_ACTIVE | SVL_NW_MASK_VISIBLE;

static UINT32 svl, tsl, middle_id;
static std::vector<UINT32> floor_ids, floor_masks;
static std::vector<SVL_REC_T> floor_records;

static SVL_REC_T record;
static TSL_REC_T stream;
static INT32 result;

static void keep() { asm volatile("" : : "r"(&record), "r"(&stream), "r"(&result) : "memory"); }

// --- What is measured ---

static void ours_next() {
  result = a_vextvapi_channellist_get_svl_tsl_recs_by_mask(
      svl, tsl, kMask, kMask, 0, 0, 0, VEXTVAPI_CHANNEL_ITERATE_NEXT, middle_id, 1, &record, &stream);
}
static void ours_by_index() {
  result = a_vextvapi_channellist_get_svl_rec_by_index(svl, kMask, kMask, kMiddle, &record);
}
static void ours_index_of() { a_vextvapi_channellist_get_index_by_channel(svl, kMask, kMask, middle_id, &result); }
static void ours_count() { result = a_vextvapi_channellist_get_number_by_mask(svl, kMask, kMask, 0, 0, 0); }

static std::size_t floor_place() {
  return static_cast<std::size_t>(std::find(floor_ids.begin(), floor_ids.end(), middle_id) - floor_ids.begin());
}
static bool fits(std::size_t at) { return (floor_masks[at] & kMask) == kMask; }

static void floor_next() {
  std::size_t at = floor_place() + 1;
  while (!fits(at)) ++at;
  record = floor_records[at];
  result = 1;
}
static void floor_by_index() {
  std::size_t at = 0;
  for (int left = kMiddle; left > 0 || !fits(at); ++at)
    if (fits(at)) --left;
  record = floor_records[at];
  result = 0;
}
static void floor_index_of() {
  const std::size_t place = floor_place();
  INT32 index = 0;
  for (std::size_t at = 0; at < place; ++at) index += fits(at) ? 1 : 0;
  result = index;
}
static void floor_count() {
  INT32 count = 0;
  for (std::size_t at = 0; at < floor_masks.size(); ++at) count += fits(at) ? 1 : 0;
  result = count;
}

struct Operation {
  const char* name;
  void (*ours)();
  void (*floor)();
};

static constexpr Operation kOperations[] = {
    {"channels_next", ours_next, floor_next},
    {"channels_by_index", ours_by_index, floor_by_index},
    {"channels_index_of", ours_index_of, floor_index_of},
    {"channels_count", ours_count, floor_count},
};

// Both must find the same, or else the comparison is worthless.
static bool same_result(const Operation& operation) {
  record = {};
  operation.ours();
  const INT32 ours = result;
  const UINT32 found = record.t_rec_hdr.ui4_channel_id;
  record = {};
  operation.floor();
  if (ours == result && found == record.t_rec_hdr.ui4_channel_id && ours >= 0) return true;
  fprintf(stderr, "bench_channels: %s: the set gives %d and channel %u, the floor %d and channel %u\n", operation.name,
          ours, found, result, record.t_rec_hdr.ui4_channel_id);
  return false;
}

static constexpr int kRepetitions = 301, kCount = 50;

// Nanoseconds of one operation.
static double time_once(void (*operate)()) {
  timespec start, end;
  clock_gettime(CLOCK_MONOTONIC, &start);
  for (int i = 0; i < kCount; ++i) operate(), keep();
  clock_gettime(CLOCK_MONOTONIC, &end);
  return (static_cast<double>(end.tv_sec - start.tv_sec) * 1e9 + static_cast<double>(end.tv_nsec - start.tv_nsec)) /
         kCount;
}

static double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

static std::string control(const std::string& command) {
  char* const answer = dtv_tv_control(command.c_str());
  std::string text = answer ? answer : "";
  free(answer);
  return text;
}

static bool fill(const std::string& folder) {
  {
    std::ofstream list(folder + "/list");
    for (int i = 1; i <= kChannels; ++i)
      list << "[Channel " << i << "]\nSERVICE_ID = " << i << "\nNETWORK_ID = 1\nTRANSPORT_ID = 1\nVCHANNEL = " << i
           << "\nFREQUENCY = 498000000\nDELIVERY_SYSTEM = DVBT\nVIDEO_PID = 1\n";
  }
  control(R"(["channels","import",")" + folder + R"(/list"])");
  control(R"(["channel","7","skip"])");  // so that not all fit
  svl = a_vextvapi_channellist_get_svl_handle_by_svl_id(kList);
  tsl = a_vextvapi_channellist_get_tsl_handle_by_svl_id(kList);
  for (INT32 i = 0; a_vextvapi_channellist_get_number_by_mask(svl, 0, 0, 0, 0, 0) > i; ++i) {
    if (a_vextvapi_channellist_get_svl_rec_by_index(svl, 0, 0, i, &record) != 0) return false;
    floor_records.push_back(record);
    floor_ids.push_back(record.t_rec_hdr.ui4_channel_id);
    floor_masks.push_back(record.t_rec_hdr.ui4_nw_mask);
  }
  if (floor_records.size() != kChannels) return false;
  middle_id = floor_ids[kMiddle];
  return true;
}

int main() {
  std::string folder = (std::filesystem::temp_directory_path() / "bench_channels_XXXXXX").string();
  if (!mkdtemp(folder.data())) return 1;
  dtv_tv_stick_root(folder.c_str());
  const bool ready = dtv_tv_start(folder.c_str(), nullptr) == 0 && fill(folder) &&
                     std::all_of(std::begin(kOperations), std::end(kOperations), same_result);
  if (!ready) fprintf(stderr, "bench_channels: the set has not its %d channels\n", kChannels);
  for (const Operation& operation : kOperations) {
    std::vector<double> ours, floor;
    for (int i = 0; ready && i < kRepetitions; ++i) {
      floor.push_back(time_once(operation.floor));
      ours.push_back(time_once(operation.ours));
    }
    if (!ready) break;
    printf("{\"name\":\"%s\",\"unit\":\"ns\",\"value\":%.1f,\"floor\":%.1f}\n", operation.name, median(ours),
           median(floor));
  }
  dtv_tv_stop();
  std::filesystem::remove_all(folder);
  return ready ? 0 : 1;
}
