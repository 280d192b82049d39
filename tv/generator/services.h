// What the generator broadcasts: three multiplexes and their services, a row each. Every name is invented.
#pragma once

#include <cstdint>
#include <string_view>

#include "broadcast/tables.h"

struct MultiplexRow {
  std::string_view name;  // of its file, without .ts
  std::uint16_t network_id;
  std::string_view network_name;
  std::uint16_t network;  // original network id
  std::uint16_t stream;
  Medium medium;
  std::uint32_t frequency;    // as in Nit::Multiplex
  std::uint32_t symbol_rate;  // of a satellite, like the next
  std::int16_t orbit;
};

// Network ids above 0xFF00 are for private use.
inline constexpr MultiplexRow kMultiplexes[] = {
    {"air-506", 0xFF01, "Dachantenne", 0xFF01, 1001, Medium::kAir, 506'000'000, 0, 0},
    {"air-578", 0xFF01, "Dachantenne", 0xFF01, 1002, Medium::kAir, 578'000'000, 0, 0},
    {"satellite-11494", 0xFF02, "Schüssel 21° Ost", 0xFF02, 2001, Medium::kSatellite, 11'494, 22'000'000, 210},
};

struct Sound {
  std::string_view language;  // empty: there is no second track
  std::string_view source;    // a source filter of ffmpeg
};

enum class Codec : std::uint8_t { kNone, kMpeg2, kH264 };

struct ServiceRow {
  std::uint16_t stream;  // of its multiplex
  std::uint16_t id;
  std::uint8_t type;  // service_type
  std::uint16_t number;
  bool visible;
  bool scrambled;
  bool subtitles;
  std::string_view character_set;
  std::string_view language;
  std::string_view second_language;  // of its guide; empty: none
  std::string_view short_name;       // what the name begins with, set in emphasis marks; empty: none
  std::string_view name;
  std::string_view provider;
  std::string_view label;  // in its pictures: capital letters and digits
  Codec codec;             // kNone: radio
  int width, height;
  std::string_view picture;  // a source filter of ffmpeg
  Sound sounds[2];
};

inline constexpr std::uint8_t kTelevision = 0x01;
inline constexpr std::uint8_t kRadio = 0x02;
inline constexpr std::uint8_t kHdTelevision = 0x19;

// clang-format off
inline constexpr ServiceRow kServices[] = {
    {1001, 101, kTelevision, 1, true, false, true, "ISO6937", "deu", "", "Fernblick", "Fernblick Eins", "Dachfunk", "FERNBLICK EINS",
     Codec::kMpeg2, 352, 288, "testsrc2=size=352x288:rate=25", {{"deu", "sine=frequency=440:beep_factor=4"}, {}}},
    {1001, 102, kTelevision, 2, true, false, false, "ISO6937", "fra", "eng", "", "Ciné Forêt", "Dachfunk", "CINE FORET",
     Codec::kMpeg2, 352, 288, "mandelbrot=size=352x288:rate=25:maxiter=300:end_scale=0.02:end_pts=1500", {{"fra", "sine=frequency=330"}, {"eng", "sine=frequency=660"}}},
    {1001, 103, kTelevision, 4, true, false, false, "ISO-8859-5", "rus", "", "", "Вечерний берег", "Dachfunk", "VECHERNIY BEREG",
     Codec::kMpeg2, 352, 288, "smptebars=size=352x288:rate=25,scroll=vertical=0.005", {{"rus", "sine=frequency=392"}, {}}},
    {1001, 104, kRadio, 201, true, false, false, "ISO6937", "deu", "", "", "Radio Windrad", "Dachfunk", "",
     Codec::kNone, 0, 0, "", {{"deu", "aevalsrc=0.15*sin(2*PI*220*t)+0.15*sin(2*PI*277*t)+0.15*sin(2*PI*330*t):sample_rate=48000"}, {}}},
    {1001, 105, kTelevision, 90, false, false, false, "ISO6937", "deu", "", "", "Prüfbild", "Dachfunk", "PRUEFBILD",
     Codec::kMpeg2, 352, 288, "pal75bars=size=352x288:rate=25,scroll=horizontal=0.005", {{"deu", "sine=frequency=1000"}, {}}},

    {1002, 201, kTelevision, 5, true, false, true, "ISO-8859-7", "ell", "", "", "Γαλάζιος Κόλπος", "Kammweg Medien", "GALAZIOS KOLPOS",
     Codec::kMpeg2, 352, 288, "gradients=size=352x288:rate=25:speed=0.02:c0=0x002060:c1=0x40C0FF:nb_colors=2", {{"ell", "sine=frequency=349"}, {}}},
    {1002, 202, kTelevision, 7, true, false, false, "ISO-8859-1", "deu", "", "", "Kükenkiste", "Kammweg Medien", "KUEKENKISTE",
     Codec::kMpeg2, 352, 288, "testsrc=size=352x288:rate=25", {{"deu", "sine=frequency=523:beep_factor=2"}, {}}},
    {1002, 203, kTelevision, 4, true, false, false, "UTF-8", "jpn", "", "", "朝霧ひろば", "Kammweg Medien", "ASAGIRI HIROBA",
     Codec::kMpeg2, 352, 288, "life=size=88x72:rate=25:ratio=0.2:seed=7:mold=20:life_color=0xFFC0D0:death_color=0x602040,scale=352:288:flags=neighbor", {{"jpn", "sine=frequency=294"}, {}}},
    {1002, 204, kTelevision, 12, true, true, false, "ISO6937", "deu", "", "", "Schlüsselkino", "Kammweg Medien", "SCHLUESSELKINO",
     Codec::kMpeg2, 352, 288, "smptehdbars=size=352x288:rate=25,scroll=horizontal=-0.004", {{"deu", "sine=frequency=247"}, {}}},
    {1002, 205, kRadio, 202, true, false, false, "ISO-8859-15", "deu", "", "", "Klangwiese", "Kammweg Medien", "",
     Codec::kNone, 0, 0, "", {{"deu", "aevalsrc=0.15*sin(2*PI*196*t)+0.15*sin(2*PI*247*t)+0.15*sin(2*PI*294*t):sample_rate=48000"}, {}}},

    {2001, 301, kTelevision, 21, true, false, false, "EUC-KR", "kor", "", "", "푸른 마당", "Orbit Garten", "PUREUN MADANG",
     Codec::kMpeg2, 352, 288, "cellauto=size=44x36:rate=25:rule=30:seed=9:scroll=1,scale=352:288:flags=neighbor", {{"kor", "sine=frequency=311"}, {}}},
    {2001, 302, kTelevision, 22, true, false, false, "UCS-2BE", "ara", "", "", "شرفة الضوء", "Orbit Garten", "SHURFAT ALDAW",
     Codec::kMpeg2, 352, 288, "yuvtestsrc=size=352x288:rate=25,scroll=vertical=0.01", {{"ara", "sine=frequency=277"}, {}}},
    {2001, 303, kHdTelevision, 25, true, false, false, "ISO-8859-9", "tur", "", "", "Gökkuşağı Saz", "Orbit Garten", "GOKKUSAGI SAZ HD",
     Codec::kH264, 640, 360, "rgbtestsrc=size=640x360:rate=25,format=yuv420p,scroll=horizontal=0.004", {{"tur", "aevalsrc=0.3*sin(2*PI*(220+110*floor(mod(t*2\\,4)))*t):sample_rate=48000"}, {}}},
    {2001, 304, kRadio, 210, true, false, false, "GB2312", "zho", "", "", "竹影之声", "Orbit Garten", "",
     Codec::kNone, 0, 0, "", {{"zho", "aevalsrc=0.15*sin(2*PI*262*t)+0.15*sin(2*PI*392*t):sample_rate=48000"}, {}}},
    {2001, 305, kTelevision, 30, true, false, true, "ISO6937", "eng", "", "", "Lakeside Sport", "Orbit Garten", "LAKESIDE SPORT",
     Codec::kMpeg2, 352, 288, "gradients=size=352x288:rate=25:speed=0.05:c0=0x004000:c1=0xE0FF60:nb_colors=2:type=radial", {{"eng", "sine=frequency=587:beep_factor=3"}, {}}},
};
// clang-format on
