// Reads an XMLTV file. The file is not trusted: declarations of entities are refused, nothing is loaded from elsewhere,
// and texts, names and counts have bounds. No thread, no lock.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::size_t kLongestXmltvName = 255;  // bytes of a channel's identifier or name
inline constexpr std::size_t kMostXmltvNames = 16;     // of a channel; the others are ignored

struct XmltvChannel {
  std::string id = {};
  std::vector<std::string> names = {};
};

struct XmltvProgramme {
  int line = 0;
  std::string channel = {};  // an XmltvChannel's id
  std::string start = {};    // as xmltv_time reads it
  std::string stop = {};     // empty: not given
  std::string title = {};
  std::string summary = {};  // the sub-title
  std::string details = {};
  std::string series = {};  // the part before the dot of an episode's number "dd_progid"; empty: not given
  std::vector<std::uint8_t> categories = {};
  std::uint8_t age = 0;
  bool captions = false;
};

// What the reader reports, on its thread. programme and read return false to end the reading.
struct XmltvUser {
  std::function<void(const XmltvChannel& channel)> channel;
  std::function<bool(const XmltvProgramme& programme)> programme;
  std::function<bool(std::uint64_t bytes)> read;  // so many bytes of the file were read in all
};

enum class XmltvEnd { kWhole, kStopped, kFailed };

// Texts in the preferred language (three letters) are chosen, else the first. kStopped: a function of the user returned
// false. kFailed with ret_error, which names the line: the file cannot be read or is not XMLTV.
XmltvEnd xmltv_read(int file, const std::string& language, const XmltvUser& user, std::string& ret_error);

// "20261123183000 +0100": year, month, day, hour, minute, perhaps second, and perhaps an offset, "Z", "UTC" or "GMT";
// without them UTC. Seconds since 1970; nothing for another text or a date that does not exist.
std::optional<std::int64_t> xmltv_time(std::string_view text);
