// The antenna's row: its commands, and the parts that it consists of. folder.h has the folder with its index,
// receptions.h the tuners, scan.h the scan for services, visits.h the visits for the guide.
#include "rooms/antenna/antenna.h"

#include <boost/json.hpp>

#include "core/reply.h"
#include "core/room.h"
#include "rooms/antenna/folder.h"
#include "rooms/antenna/receptions.h"
#include "rooms/antenna/scan.h"
#include "rooms/antenna/visits.h"
#include "rooms/guide/guide.h"

namespace {

void start() {
  receptions_open(guide_take, guide_round);
  scan_open();
  folder_start();
  visits_open(guide_take);
}

void stop() {
  visits_close();
  scan_close();
  folder_stop();
  receptions_close();
}

bool reset() {
  scan_cancel();
  visits_cancel();
  return folder_reset();
}

void report(boost::json::object& answer) {
  folder_report(answer);
  scan_report(answer);
}

boost::json::object antenna_command(Arguments arguments) {
  const std::string_view word = arguments.empty() ? "" : arguments[0];
  if (word == "none") return folder_choose("");
  if (word == "rescan") return folder_read_again();
  if (!arguments.empty() && !word.starts_with('/')) {
    return reply_takes("antenna", "the absolute path of a folder, none or rescan", word);
  }
  if (!arguments.empty()) return folder_choose(word);
  folder_look();
  return folder_shown();
}

constexpr Command kCommands[] = {
    {"antenna", "[DIR|none|rescan]", 1,
     "Shows the antenna and its tuners; DIR: connects it to a folder of transport streams; rescan: reads all files "
     "again",
     antenna_command},
    {"scan", "[cancel | update | all|air|cable|satellite [update]]", 2,
     "Shows the scan for services; all, air, cable, satellite: starts one, which replaces the channel lists of what it "
     "searches; update: keeps them, with what the viewer changed, and adds",
     scan_command},
};

}  // namespace

const Room room_antenna = {
    .commands = kCommands, .load = folder_load, .reset = reset, .report = report, .start = start, .stop = stop};
