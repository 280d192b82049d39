#include <algorithm>
#include <iterator>

#include "wire_script.h"
#include "wire_stack.h"

namespace {

enum Opcode : unsigned { kContinuation = 0, kText = 1, kBinary = 2, kClose = 8, kPing = 9, kPong = 10 };

constexpr unsigned kFinal = 0x80;
constexpr unsigned kMasked = 0x80;

// A frame, whose header can be wrong.
struct Frame {
  unsigned first = kFinal | kText;  // the first byte
  std::string payload = {};
  bool masked = true;
  std::size_t length_bytes = 0;  // 2 or 8: more than the length needs
  std::uint64_t length = 0;      // announced in the payload's place; 0: the payload's own
};

std::string text_of(const Frame& frame) {
  static constexpr unsigned char kMask[] = {0x5A, 0x00, 0xFF, 0x81};
  std::string bytes(1, static_cast<char>(frame.first));
  const std::uint64_t length = frame.length > 0 ? frame.length : frame.payload.size();
  const std::size_t needed = length < 126 ? 0 : length < 65536 ? 2 : 8;
  const std::size_t length_bytes = std::max(frame.length_bytes, needed);
  const std::uint64_t short_length = length_bytes == 0 ? length : length_bytes == 2 ? 126 : 127;
  bytes += static_cast<char>((frame.masked ? kMasked : 0) | short_length);
  for (std::size_t i = length_bytes; i-- > 0;) bytes += static_cast<char>(length >> 8 * i & 0xFF);
  if (!frame.masked) return bytes + frame.payload;
  bytes.append(reinterpret_cast<const char*>(kMask), sizeof kMask);
  for (std::size_t i = 0; i < frame.payload.size(); ++i) bytes += static_cast<char>(frame.payload[i] ^ kMask[i % 4]);
  return bytes;
}

std::string code_text(unsigned code) { return {static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)}; }

std::string set_text(Maker& maker) {
  return std::string(R"({"jsonrpc":"2.0","method":"set","params":{"uri":")") + kWireUri + R"(","parameter":)" +
         wire_parameter(new_set_mark(maker, false), Act::kPlain) + "}}";
}

void end(Script& script, std::vector<unsigned> close_codes) {
  if (script.ended) return;
  script.ended = true;
  script.close_codes = std::move(close_codes);
}

void add_ping(Maker& maker) {
  std::string payload = take_chance(maker.bytes, 2) ? std::string(take_below(maker.bytes, 126), 'p') : "";
  maker.script.bytes += text_of({.first = kFinal | kPing, .payload = payload});
  if (!maker.script.ended) maker.script.pings.push_back(std::move(payload));
}

// A message in one frame, or in several with control frames between them. The last gets at least `kept` bytes.
void add_message(Maker& maker, std::string_view message, std::size_t kept = 0) {
  Script& script = maker.script;
  unsigned opcode = kText;
  for (std::size_t more = take_chance(maker.bytes, 3) ? 1 + take_below(maker.bytes, 4) : 0; more > 0; --more) {
    const std::size_t length = take_below(maker.bytes, message.size() - kept + 1);
    script.bytes += text_of({.first = opcode, .payload = std::string(message.substr(0, length))});
    message.remove_prefix(length);
    opcode = kContinuation;
    if (take_chance(maker.bytes, 2)) add_ping(maker);
    if (take_chance(maker.bytes, 4)) script.bytes += text_of({.first = kFinal | kPong, .payload = "unasked"});
  }
  script.bytes += text_of({.first = kFinal | opcode, .payload = std::string(message)});
}

// Whether the text is UTF-8, computed without the host's code.
bool is_utf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t more = lead < 0x80 ? 0 : lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    if ((lead >= 0x80 && lead < 0xC2) || lead > 0xF4 || text.size() - i <= more) return false;
    for (std::size_t k = 1; k <= more; ++k)
      if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
    const auto second = static_cast<unsigned char>(more > 0 ? text[i + 1] : 0);
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) || (lead == 0xF0 && second < 0x90) ||
        (lead == 0xF4 && second > 0x8F))
      return false;
    i += more + 1;
  }
  return true;
}

void add_rpc(Maker& maker) {
  Script& script = maker.script;
  Script aside = script;
  Maker other{.bytes = maker.bytes, .target = maker.target, .script = aside};
  bool replies = false;
  const std::string message = take_wire_message(other, replies);
  const bool too_long = message.size() > maker.target.message_bytes;
  if (too_long || !is_utf8(message)) {
    // The last frame must not be empty: before an empty one the server does not notice a cut-off UTF-8 sequence, and
    // refuses the text as JSON, in a reply, instead of closing.
    constexpr std::size_t kLastByte = 1;
    add_message(maker, message, kLastByte);
    // 1007 for a text that is too long: the server may reject an early fragment as not UTF-8 before the length shows.
    return end(script, too_long ? std::vector<unsigned>{1009, 1007} : std::vector<unsigned>{1007});
  }
  if (script.ended)
    script.forbidden = std::move(aside.forbidden);
  else
    script = std::move(aside);
  add_message(maker, message);
}

void add_close(Maker& maker) {
  static constexpr unsigned kCodes[] = {1000, 1001, 1003, 1011, 3000, 4999};
  if (take_chance(maker.bytes, 3)) {
    maker.script.bytes += text_of({.first = kFinal | kClose});
    return end(maker.script, {0, 1000});
  }
  const unsigned code = kCodes[take_below(maker.bytes, std::size(kCodes))];
  const std::string reason = take_chance(maker.bytes, 2) ? "done" : "";
  maker.script.bytes += text_of({.first = kFinal | kClose, .payload = code_text(code) + reason});
  end(maker.script, {code});
}

// A frame for which the server closes the connection, whatever came before.
void add_fault(Maker& maker) {
  Bytes& bytes = maker.bytes;
  Script& script = maker.script;
  const auto add = [&](const Frame& frame) { script.bytes += text_of(frame); };
  const std::size_t long_length = maker.target.message_bytes + 1;
  unsigned code = 1002;
  switch (take_below(bytes, 16)) {
    case 0:
      add({.payload = set_text(maker), .masked = false});
      break;
    case 1:  // reserved bits
      add({.first = kFinal | kText | 0x10u << take_below(bytes, 3), .payload = set_text(maker)});
      break;
    case 2: {  // reserved opcodes
      static constexpr unsigned kOpcodes[] = {3, 4, 5, 6, 7, 11, 12, 13, 14, 15};
      add({.first = kFinal | kOpcodes[take_below(bytes, std::size(kOpcodes))], .payload = set_text(maker)});
      break;
    }
    case 3:
      add({.first = kPing, .payload = "in parts"});
      break;
    case 4:
      add({.first = kFinal | kPing, .payload = std::string(126, 'p')});
      break;
    case 5:
      add({.first = kFinal | kContinuation, .payload = set_text(maker)});
      break;
    case 6:
      add({.first = kText, .payload = set_text(maker)});
      add({.payload = set_text(maker)});
      break;
    case 7:
      add({.payload = "{}", .length_bytes = 2});
      break;
    case 8:
      add({.payload = set_text(maker), .length_bytes = 8});
      break;
    case 9:
      add({.payload = set_text(maker), .length = long_length});
      code = 1009;
      break;
    case 10:
      add({.payload = set_text(maker), .length = 70000});
      code = 1009;
      break;
    case 11:
      add({.first = kText, .payload = std::string(long_length / 2, ' ')});
      add({.first = kContinuation, .payload = std::string(long_length / 2, ' ')});
      add({.first = kFinal | kContinuation, .payload = set_text(maker)});
      code = 1009;
      break;
    case 12:
      add({.payload = set_text(maker) + "\xFF"});
      code = 1007;
      break;
    case 13:
      add({.payload = set_text(maker) + "\xE2\x82"});
      code = 1007;
      break;
    case 14:
      add({.first = kFinal | kClose, .payload = "x"});
      break;
    default: {
      static constexpr unsigned kCodes[] = {0, 1, 999, 1004, 1005, 1006, 1015, 1100, 2999};
      add({.first = kFinal | kClose, .payload = code_text(kCodes[take_below(bytes, std::size(kCodes))])});
      break;
    }
  }
  end(script, {code});
}

}  // namespace

void add_frames(Maker& maker) {
  Script& script = maker.script;
  switch (take_below(maker.bytes, 16)) {
    case 0:
    case 1:
      return add_fault(maker);
    case 2:
      return add_close(maker);
    case 3:
      return add_ping(maker);
    case 4:
      script.bytes += text_of({.first = kFinal | kBinary, .payload = set_text(maker)});
      if (!script.ended) ++script.other_replies;
      return;
    case 5: {  // the beginning of a frame
      std::string frame = text_of({.payload = set_text(maker)});
      frame.resize(1 + take_below(maker.bytes, frame.size() - 1));
      script.bytes += frame;
      script.cut = true;
      return end(script, {});
    }
    case 6: {  // more requests than may wait in the server
      if (!take_chance(maker.bytes, 8)) return add_rpc(maker);
      for (std::size_t times = take_below(maker.bytes, 64); times > 0; --times) {
        const std::string id = wire_new_mark();
        if (!script.ended) script.replies[id] = {};
        script.bytes += wire_text_frame(R"({"jsonrpc":"2.0","id":")" + id + R"(","method":"list"})");
      }
      return;
    }
    default:
      return add_rpc(maker);
  }
}

std::string wire_text_frame(std::string_view message) { return text_of({.payload = std::string(message)}); }
