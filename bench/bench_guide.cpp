// Measures the virtual television's guide: an import of a large guide, and the TV API's questions about it, each beside
// its floor, a prepared statement of SQLite that reads the same events. Prints one JSON line per figure.
//
//   bench_guide FOLDER
//     an existing, empty folder for the set's state and the files
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "dtv_tv.h"
#include "tvapi/all.h"

static constexpr int kChannels = 2000, kEventsPerChannel = 150;
static constexpr INT64 kNow = 1'800'000'000, kLength = 3600;  // of an event
static constexpr int kRounds = 2001, kRoundsOfAll = 101;

[[noreturn]] static void fail(const std::string& why) {
  fprintf(stderr, "bench_guide: %s\n", why.c_str());
  exit(1);
}

static double seconds_of(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

static std::string control(const std::string& command) {
  char* const answer = dtv_tv_control(command.c_str());
  std::string text = answer == nullptr ? "" : answer;
  free(answer);
  if (text.find("\"error\"") != std::string::npos) fail(command + ": " + text);
  return text;
}

static std::string time_text(INT64 time) {
  const time_t seconds = time;
  struct tm utc;
  gmtime_r(&seconds, &utc);
  char text[32];
  strftime(text, sizeof text, "%Y%m%d%H%M%S +0000", &utc);
  return text;
}

static void write_channels(const std::string& path) {
  FILE* const file = fopen(path.c_str(), "w");
  if (file == nullptr) fail("cannot write " + path);
  for (int i = 1; i <= kChannels; ++i) {
    fprintf(file,
            "[Channel %d]\n\tSERVICE_ID = %d\n\tNETWORK_ID = 1\n\tTRANSPORT_ID = %d\n\tVCHANNEL = %d\n\tVIDEO_PID = 1\n"
            "\tAUDIO_PID = 2\n\tFREQUENCY = 474000000\n\tDELIVERY_SYSTEM = DVBT\n",
            i, i, i / 20 + 1, i);
  }
  fclose(file);
}

static void write_guide(const std::string& path) {
  static constexpr const char* kCategories[] = {"news", "movie", "football", "children", "music", "documentary"};
  FILE* const file = fopen(path.c_str(), "w");
  if (file == nullptr) fail("cannot write " + path);
  fputs("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE tv SYSTEM \"xmltv.dtd\">\n<tv>\n", file);
  for (int i = 1; i <= kChannels; ++i)
    fprintf(file, "<channel id=\"c%d.tv\"><display-name>Channel %d</display-name></channel>\n", i, i);
  const std::string details(300, 'x');
  for (int i = 1; i <= kChannels; ++i) {
    for (int k = 0; k < kEventsPerChannel; ++k) {
      const INT64 start = kNow + (k - 1) * kLength - i % 60 * 60;
      fprintf(file,
              "<programme start=\"%s\" stop=\"%s\" channel=\"c%d.tv\"><title lang=\"en\">Event %d of channel %d</title>"
              "<sub-title>Sub-title of the event</sub-title><desc>%s</desc><category>%s</category></programme>\n",
              time_text(start).c_str(), time_text(start + kLength).c_str(), i, k, i, details.c_str(),
              kCategories[(i + k) % 6]);
    }
  }
  fputs("</tv>\n", file);
  fclose(file);
}

// The process's largest memory until now, in MiB.
static double peak_memory() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

static void import_guide(const std::string& path) {
  const double begin = seconds_of(CLOCK_MONOTONIC);
  const double cpu_begin = seconds_of(CLOCK_PROCESS_CPUTIME_ID);
  control(R"(["guide","import",")" + path + "\"]");
  std::string answer = control(R"(["guide"])");
  while (answer.find(R"("state":"running")") != std::string::npos) {
    usleep(20'000);
    answer = control(R"(["guide"])");
  }
  const std::string expected = "\"events\":" + std::to_string(kChannels * kEventsPerChannel) + ",";
  if (answer.find(expected) == std::string::npos || answer.find(R"("state":"done")") == std::string::npos)
    fail("the import ended with " + answer);
  printf("{\"name\":\"guide_import\",\"unit\":\"s\",\"value\":%.2f}\n", seconds_of(CLOCK_MONOTONIC) - begin);
  printf("{\"name\":\"guide_import_cpu\",\"unit\":\"s\",\"value\":%.2f}\n",
         seconds_of(CLOCK_PROCESS_CPUTIME_ID) - cpu_begin);
  printf("{\"name\":\"guide_import_peak_memory\",\"unit\":\"MiB\",\"value\":%.1f}\n", peak_memory());
}

struct Floor {
  sqlite3_stmt* statement;
  // Binds the numbers, reads all rows, and returns how many there were.
  int run(std::initializer_list<sqlite3_int64> numbers) const {
    int place = 0, rows = 0;
    for (const sqlite3_int64 number : numbers) sqlite3_bind_int64(statement, ++place, number);
    while (sqlite3_step(statement) == SQLITE_ROW) rows += sqlite3_column_int64(statement, 0) >= 0 ? 1 : 0;
    sqlite3_reset(statement);
    return rows;
  }
};

static Floor prepare(sqlite3* database, const char* sql) {
  Floor floor{nullptr};
  if (sqlite3_prepare_v2(database, sql, -1, &floor.statement, nullptr) != SQLITE_OK) fail(sqlite3_errmsg(database));
  return floor;
}

static INT64 key_of(int number) { return INT64{1} << 32 | INT64{number / 20 + 1} << 16 | number; }

// Runs both in turn and prints the medians of their CPU time in microseconds: neither waits for anything. Both get a
// channel's number, and return how many events they found.
static void measure(const char* name, int rounds, const std::function<int(int)>& call,
                    const std::function<int(int)>& floor) {
  std::vector<double> times, floors;
  for (int i = 0; i < rounds; ++i) {
    const int number = i * 37 % kChannels + 1;
    const double begin = seconds_of(CLOCK_THREAD_CPUTIME_ID);
    const int found = call(number);
    const double middle = seconds_of(CLOCK_THREAD_CPUTIME_ID);
    const int expected = floor(number);
    floors.push_back(seconds_of(CLOCK_THREAD_CPUTIME_ID) - middle);
    times.push_back(middle - begin);
    if (found != expected || found == 0)
      fail(std::string(name) + ": " + std::to_string(found) + " events, the floor finds " + std::to_string(expected));
  }
  const auto median = [](std::vector<double>& all) {
    std::nth_element(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(all.size() / 2), all.end());
    return all[all.size() / 2] * 1e6;
  };
  printf("{\"name\":\"%s\",\"unit\":\"us\",\"value\":%.1f,\"floor\":%.1f}\n", name, median(times), median(floors));
}

static void measure_queries(sqlite3* database) {
  const auto channel = [](int number) { return static_cast<UINT32>(number) << 18 | 1; };
  const auto now = [] { return static_cast<UINT32>(kNow); };
  static UINT16 ids[UINT16_MAX];
  static UINT32 channels[UINT16_MAX];

  const Floor present = prepare(
      database,
      "SELECT id FROM event WHERE channel = ? AND start <= ? AND start > ? AND stop > ? ORDER BY start DESC LIMIT 1");
  measure(
      "guide_present", kRounds,
      [&](int number) {
        UINT16 id = 0;
        return a_vextvapi_event_get_pf_event_id(channel(number), &id, VEXTVAPI_EVENT_PRESENT) == 0 ? 1 : 0;
      },
      [&](int number) {
        return present.run({key_of(number), kNow, kNow - 86400, kNow});
      });

  const Floor whole = prepare(database,
                              "SELECT e.id, e.title, t.summary, t.details FROM event e JOIN text t ON t.channel = "
                              "e.channel AND t.start = e.start WHERE e.channel = ? AND e.id = ?");
  measure(
      "guide_event", kRounds,
      [&](int number) {
        UINT16 id = 0;
        VEXTVAPI_EVENT_GENERAL_INFO_T info;
        a_vextvapi_event_get_pf_event_id(channel(number), &id, VEXTVAPI_EVENT_PRESENT);
        return a_vextvapi_event_get_general_info(channel(number), id, &info) == 0 ? 1 : 0;
      },
      [&](int number) {
        UINT16 id = 0;
        a_vextvapi_event_get_pf_event_id(channel(number), &id, VEXTVAPI_EVENT_PRESENT);
        return whole.run({key_of(number), id});
      });

  const Floor range = prepare(
      database, "SELECT id FROM event WHERE channel = ? AND start < ? AND start > ? AND stop > ? ORDER BY start");
  measure(
      "guide_range_3_hours", kRounds,
      [&](int number) {
        UINT16 count = 64;
        return a_vextvapi_event_query_event_id_by_range(channel(number), now(), 3 * 3600, &count, ids) == 0 ? count
                                                                                                            : -1;
      },
      [&](int number) {
        return range.run({key_of(number), kNow + 3 * 3600, kNow - 86400, kNow});
      });

  VEXTVAPI_EVENT_FILTER_T filter{};
  filter.start_time = now();
  filter.end_time = now() + 86400;
  filter.eventCategoryNum = 1;
  filter.eventCategory[0] = 0x10;
  const Floor day = prepare(database,
                            "SELECT id FROM event WHERE channel = ? AND start < ? AND start > ? AND stop > ? AND "
                            "+categories = 16 ORDER BY start");
  measure(
      "guide_filter_channel_day", kRounds,
      [&](int number) {
        UINT16 count = 1024;
        return a_vextvapi_event_query_event_id_by_filter(channel(number), &filter, &count, ids, channels) == 0 ? count
                                                                                                               : -1;
      },
      [&](int number) {
        return day.run({key_of(number), kNow + 86400, kNow - 86400, kNow});
      });

  filter.end_time = now() + 3 * 3600;
  const Floor all =
      prepare(database,
              "SELECT id, channel FROM event INDEXED BY by_kind WHERE kind = 1 AND start < ? AND start > ? AND stop > ?"
              " ORDER BY start");
  measure(
      "guide_filter_all_3_hours", kRoundsOfAll,
      [&](int) {
        UINT16 count = UINT16_MAX;
        return a_vextvapi_event_query_event_id_by_filter(0, &filter, &count, ids, channels) == 0 ? count : -1;
      },
      [&](int) {
        return all.run({kNow + 3 * 3600, kNow - 86400, kNow});
      });

  // Without a category, as many as an application's record holds. The floor merges the kinds by SQLite's own means.
  filter.eventCategoryNum = 0;
  std::string kinds;
  for (int kind = 0; kind <= 16; ++kind)
    kinds += (kind == 0 ? "" : " UNION ALL ") +
             ("SELECT id, start, stop, channel FROM event INDEXED BY by_kind WHERE kind = " + std::to_string(kind) +
              " AND start < ?1 AND start > ?2 AND stop > ?3");
  kinds += " ORDER BY start, stop, channel, id LIMIT 1024";
  const Floor first = prepare(database, kinds.c_str());
  measure(
      "guide_filter_all_first_1024", kRoundsOfAll,
      [&](int) {
        UINT16 count = 1024;
        return a_vextvapi_event_query_event_id_by_filter(0, &filter, &count, ids, channels) == 0 ? count : -1;
      },
      [&](int) {
        return first.run({kNow + 3 * 3600, kNow - 86400, kNow});
      });
  for (const Floor& floor : {present, whole, range, day, all, first}) sqlite3_finalize(floor.statement);
}

int main(int count, char** arguments) {
  if (count != 2) fail("usage: bench_guide FOLDER");
  const std::string folder = arguments[1];
  char* error = nullptr;
  dtv_tv_stick_root(folder.c_str());
  if (dtv_tv_start(folder.c_str(), &error) != 0) fail(error == nullptr ? "the set does not start" : error);
  if (a_vextvapi_time_set_utc_time(kNow) != 0) fail("the clock cannot be set");
  write_channels(folder + "/channels.conf");
  write_guide(folder + "/guide.xml");
  control(R"(["channels","import",")" + folder + "/channels.conf\"]");
  import_guide(folder + "/guide.xml");
  a_vextvapi_time_set_utc_time(kNow);  // the import took some seconds

  sqlite3* database = nullptr;
  if (sqlite3_open_v2((folder + "/guide.sqlite").c_str(), &database, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK)
    fail("cannot read the guide's database");
  measure_queries(database);
  sqlite3_close(database);
  dtv_tv_stop();
  const double begin = seconds_of(CLOCK_MONOTONIC);
  if (dtv_tv_start(folder.c_str(), &error) != 0) fail("the set does not start again");
  printf("{\"name\":\"guide_start_with_300000_events\",\"unit\":\"s\",\"value\":%.2f}\n",
         seconds_of(CLOCK_MONOTONIC) - begin);
  dtv_tv_stop();
  return 0;
}
