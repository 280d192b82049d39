#include "generator/label.h"
#include "generator/pictures.h"
#include "generator/stamp.h"

namespace {

constexpr int kMpeg2Rate = 400;  // kbit/s, like all of these
constexpr int kH264Rate = 500;
constexpr int kSoundRate = 64;
constexpr int kSubtitleRate = 30;
constexpr int kTableRate = 500;  // PAT, PMT, present and following events, time, and the unevenness of the rest
// The schedule is sent once in a file, however short that is: at most so many bytes.
constexpr int kScheduleKilobytes = 700;

using Words = std::vector<std::string>;

struct Command {
  Words inputs;
  int input_count = 0;
  std::string filters;
  Words maps;
  Words outputs;  // options of the output's streams
  int stream_count = 0;
};

int add_input(Command& command, const Words& words) {
  command.inputs.insert(command.inputs.end(), words.begin(), words.end());
  return command.input_count++;
}

// Adds a stream of the output; returns its index.
int add_stream(Command& command, const std::string& map, int pid, const Words& options) {
  command.maps.insert(command.maps.end(), {"-map", map});
  const std::string index = std::to_string(command.stream_count);
  command.outputs.insert(command.outputs.end(), {"-streamid", index + ":" + std::to_string(pid)});
  // Options are pairs of a name, to which the stream's index is appended, and a value.
  for (std::size_t option = 0; option + 1 < options.size(); option += 2)
    command.outputs.insert(command.outputs.end(), {options[option] + ":" + index, options[option + 1]});
  return command.stream_count++;
}

Words codec_options(Codec codec) {
  if (codec == Codec::kMpeg2)
    return {"-c",       "mpeg2video", "-b",       std::to_string(kMpeg2Rate) + "k",
            "-maxrate", "600k",       "-bufsize", "900k",
            "-g",       "12",         "-bf",      "2",
            "-threads", "1"};
  return {"-c",       "libx264", "-preset",  "superfast", "-b", std::to_string(kH264Rate) + "k",
          "-maxrate", "600k",    "-bufsize", "600k",      "-g", "25",
          "-threads", "1"};
}

void add_service(Command& command, const ServiceRow& service, const std::string& strip, const std::string& subtitles) {
  int pid = first_stream_pid_of(service);
  std::vector<int> streams;
  if (service.codec != Codec::kNone) {
    const int picture = add_input(command, {"-f", "lavfi", "-i", std::string(service.picture)});
    const std::string size = std::to_string(kStripWidth) + "x" + std::to_string(kStripHeight);
    const int label = add_input(command, {"-f", "rawvideo", "-pixel_format", "gray", "-video_size", size, "-framerate",
                                          "1", "-i", "file:" + strip});
    const std::string pad = "[v" + std::to_string(service.id) + "]";
    command.filters += (command.filters.empty() ? "[" : ";[") + std::to_string(picture) + ":v][" +
                       std::to_string(label) + ":v]overlay=x=(W-w)/2:y=H-h-12,format=yuv420p" + pad;
    streams.push_back(add_stream(command, pad, pid++, codec_options(service.codec)));
  }
  for (const Sound& sound : service.sounds) {
    if (sound.language.empty()) continue;
    const int input = add_input(command, {"-f", "lavfi", "-i", std::string(sound.source)});
    streams.push_back(add_stream(command, std::to_string(input) + ":a", pid++,
                                 {"-c", "mp2", "-b", std::to_string(kSoundRate) + "k", "-ar", "48000", "-metadata:s",
                                  "language=" + std::string(sound.language)}));
  }
  if (service.subtitles) {
    // Each subtitle ends when the next one begins.
    const int input = add_input(command, {"-fix_sub_duration", "-f", "sup", "-i", "file:" + subtitles});
    streams.push_back(add_stream(command, std::to_string(input) + ":s", pid++,
                                 {"-c", "dvbsub", "-metadata:s", "language=" + std::string(service.language)}));
  }
  std::string program = "title=S" + std::to_string(service.id) + ":program_num=" + std::to_string(service.id);
  for (const int stream : streams) program += ":st=" + std::to_string(stream);
  command.outputs.insert(command.outputs.end(), {"-program", program});
}

void append(Words& words, const Words& more) { words.insert(words.end(), more.begin(), more.end()); }

}  // namespace

std::string pictures_path(const std::string& folder, const MultiplexRow& multiplex, int seconds) {
  return folder + "/" + std::string(multiplex.name) + "-v" + std::to_string(kPicturesVersion) + "-" +
         std::to_string(seconds) + "s.ts";
}

int pictures_rate(const MultiplexRow& multiplex, int seconds) {
  int rate = kTableRate + kScheduleKilobytes * 8 / seconds;
  for (const ServiceRow& service : kServices) {
    if (service.stream != multiplex.stream) continue;
    if (service.codec != Codec::kNone) rate += service.codec == Codec::kH264 ? kH264Rate : kMpeg2Rate;
    for (const Sound& sound : service.sounds) rate += sound.language.empty() ? 0 : kSoundRate;
    if (service.subtitles) rate += kSubtitleRate;
  }
  return rate * 9 / 8;  // the packets' headers
}

std::vector<std::string> pictures_command(const MultiplexRow& multiplex, int seconds,
                                          std::span<const std::string> strips, std::span<const std::string> subtitles) {
  Command command;
  std::size_t index = 0;
  for (const ServiceRow& service : kServices) {
    if (service.stream != multiplex.stream) continue;
    add_service(command, service, strips[index], subtitles[index]);
    ++index;
  }
  Words words = {"ffmpeg", "-nostdin", "-hide_banner", "-loglevel", "error"};
  append(words, command.inputs);
  append(words, {"-filter_complex_threads", "1", "-filter_complex", command.filters});
  append(words, command.maps);
  append(words, command.outputs);
  append(words, {"-t", std::to_string(seconds), "-fflags", "+bitexact", "-flags", "+bitexact", "-f", "mpegts"});
  append(words, {"-mpegts_transport_stream_id", std::to_string(multiplex.stream)});
  append(words, {"-mpegts_original_network_id", std::to_string(multiplex.network)});
  append(words, {"-mpegts_pmt_start_pid", std::to_string(kFirstPmtPid)});
  append(words, {"-mpegts_flags", "+nit+system_b"});
  append(words, {"-muxrate", std::to_string(pictures_rate(multiplex, seconds)) + "k", "pipe:1"});
  return words;
}
