// Expected texts are those of the tables in EN 300 468 annex A and of the character sets' own standards.
#include "broadcast/text.h"

#include <gtest/gtest.h>

static std::string read(std::string_view bytes, std::size_t longest = 4096) {
  return text_from_broadcast({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, longest);
}

static std::string emphasized(std::string_view bytes) {
  return text_emphasized({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

static std::string_view raw(const char* bytes, std::size_t size) { return {bytes, size}; }

TEST(BroadcastText, IsIso6937WithoutLeadByte) {
  EXPECT_EQ(read("BBC One"), "BBC One");
  EXPECT_EQ(read("M\xC8"
                 "unchen"),
            "München");
  EXPECT_EQ(read("Fran\xCB"
                 "cais \xC2\x65t\xC2\x65, \xC1\x65, \xC3o, \xC4n, \xCA"
                 "a, \xCF"
                 "c"),
            "Français été, è, ô, ñ, å, č");
  EXPECT_EQ(read("\xE1 \xF1 \xE9 \xF9 \xFB"), "Æ æ Ø ø ß");
}

TEST(BroadcastText, HasTheEuroOfDvb) { EXPECT_EQ(read("5 \xA4"), "5 €"); }

TEST(BroadcastText, ReplacesAnAccentWithoutLetter) {
  EXPECT_EQ(read("a\xC8"), "a\xEF\xBF\xBD");
  EXPECT_EQ(read("a\xC8\xA4"), "a\xEF\xBF\xBD€");
}

TEST(BroadcastText, ReadsEveryCharacterSet) {
  struct Row {
    std::string_view bytes;
    const char* text;
  };
  static const Row kRows[] = {
      {"\x01\xC0\xDE\xE1\xE1\xD8\xEF", "Россия"},       // 8859-5
      {"\x02\xC7\xE4\xCC\xD2\xEA\xD1\xC9", "الجزيرة"},  // 8859-6
      {"\x03\xC5\xF1\xF4", "Ερτ"},                      // 8859-7
      {"\x04\xF9\xE9\xE5\xED", "שיום"},                 // 8859-8
      {"\x05T\xFCrk\xE7"
       "e \xDD\xFE",
       "Türkçe İş"},                                           // 8859-9
      {"\x06\xDE\xE6", "Þæ"},                                  // 8859-10
      {"\x07\xA1\xD2", "กา"},                                  // 8859-11
      {"\x09\xFE\xE8", "žč"},                                  // 8859-13
      {"\x0A\xF0", "ŵ"},                                       // 8859-14
      {"\x0B\xA4\xE9", "€é"},                                  // 8859-15
      {{"\x10\x00\x01\xE9", 4}, "é"},                          // 8859-1
      {{"\x10\x00\x02\xE8t\xB1", 6}, "čtą"},                   // 8859-2
      {{"\x10\x00\x03\xA6", 4}, "Ĥ"},                          // 8859-3
      {{"\x10\x00\x04\xBF", 4}, "ŋ"},                          // 8859-4
      {{"\x10\x00\x05\xBC\xD8\xE0", 6}, "Мир"},                // 8859-5 by number
      {{"\x11\x04\x1C\x04\x38\x04\x40\x4E\x2D", 9}, "Мир中"},  // UCS-2
      {"\x12\xC7\xD1\xB1\xB9"
       "A",
       "한국A"},  // EUC-KR
      {"\x13\xD6\xD0\xB9\xFA"
       "B",
       "中国B"},                              // GB2312
      {{"\x14\x4E\x2D\x65\x87", 5}, "中文"},  // a subset of ISO 10646
      {"\x15"
       "Ελλάδα 😀",
       "Ελλάδα 😀"},  // UTF-8
  };
  for (const Row& row : kRows) EXPECT_EQ(read(row.bytes), row.text);
}

TEST(BroadcastText, DropsControlCodesAndKeepsLineBreaks) {
  EXPECT_EQ(read("a\x8A"
                 "b\x80"
                 "c\x9F"
                 "d\x7F\n\re\t"),
            "a\nbcde");
  EXPECT_EQ(read(raw("\x05\xFE\x8A\xFE\x86\xFE\x87\xFE\0\xFE", 10)), "ş\nşşşş");
  EXPECT_EQ(read(raw("\x11\0a\xE0\x8A\0b\xE0\x86\0c\xE0\x87\0\x8A\0\x01", 17)), "a\nbc\n");
  EXPECT_EQ(read("\x15"
                 "a\xEE\x82\x8A"
                 "b\xC2\x8A"
                 "c\xEE\x82\x86\xC2\x90"
                 "d\x01"),
            "a\nb\ncd");
}

TEST(BroadcastText, ReplacesWhatTheSetDoesNotHave) {
  EXPECT_EQ(read("\x03\xD2"
                 "a"),
            "\xEF\xBF\xBD"
            "a");
  EXPECT_EQ(read("\x15"
                 "a\xFF"
                 "b\xC3"),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD");
  // A half character, a surrogate, and the last half character.
  EXPECT_EQ(read(raw("\x11\xD8\x00\0a\0", 6)),
            "\xEF\xBF\xBD"
            "a\xEF\xBF\xBD");
  // Forms of UTF-8 for codes beyond Unicode.
  EXPECT_EQ(read("\x15\xF6\x86\x86\x86x").find('\xF6'), std::string::npos);
  EXPECT_EQ(read("\x15\xF9\x86\x86\x86\x86x").find('\xF9'), std::string::npos);
  EXPECT_EQ(read("\x15\xED\xA0\x80x").find('\xED'), std::string::npos);
}

TEST(BroadcastText, AcceptsEveryLeadByte) {
  EXPECT_EQ(read(""), "");
  EXPECT_EQ(read(raw("\x1F\x01"
                     "abc",
                     5)),
            "");
  EXPECT_EQ(read("\x0C"
                 "abc"),
            "abc");
  EXPECT_EQ(read("\x10"), "");
  EXPECT_EQ(read(raw("\x10\0", 2)), "");
  for (int lead = 0; lead < 256; ++lead) {
    const std::string bytes(1, static_cast<char>(lead));
    EXPECT_LE(read(bytes).size(), 3u) << lead;
  }
}

TEST(BroadcastText, IsCutBetweenCharacters) {
  EXPECT_EQ(read("\x05\xFE\xFE\xFE", 5), "şş");
  EXPECT_EQ(read("\x05\xFE\xFE\xFE", 6), "şşş");
  // Nothing shorter slips in behind a character that was cut off.
  EXPECT_EQ(read("\x05\xFE\xFE"
                 "a",
                 3),
            "ş");
  EXPECT_EQ(read("abc", 0), "");
  EXPECT_EQ(read(std::string(5000, 'a')).size(), 4096u);
}

TEST(BroadcastText, HasTheEmphasizedPart) {
  EXPECT_EQ(emphasized("\x86"
                       "BBC\x87 One"),
            "BBC");
  EXPECT_EQ(read("\x86"
                 "BBC\x87 One"),
            "BBC One");
  EXPECT_EQ(emphasized("\x05\x86\xFE\x87"
                       "a\x86z\x87"),
            "şz");
  EXPECT_EQ(emphasized("\x15\xEE\x82\x86Éire\xEE\x82\x87 X"), "Éire");
  EXPECT_EQ(emphasized("BBC One"), "");
}

static std::string said(std::string_view utf8, std::string_view set) { return text_for_broadcast(utf8, set); }

TEST(BroadcastText, IsWrittenWithItsLeadBytes) {
  EXPECT_EQ(said("Käse €\n", "ISO6937"),
            "K\xC8"
            "ase \xA4\x8A");
  EXPECT_EQ(said("Мир", "ISO-8859-5"), "\x01\xBC\xD8\xE0");
  EXPECT_EQ(said("č", "ISO-8859-2"), raw("\x10\0\x02\xE8", 4));
  EXPECT_EQ(said("é", "ISO-8859-15"), "\x0B\xE9");
  EXPECT_EQ(said("a\n", "UCS-2BE"), raw("\x11\0a\xE0\x8A", 5));
  EXPECT_EQ(said("한국", "EUC-KR"), "\x12\xC7\xD1\xB1\xB9");
  EXPECT_EQ(said("中国", "GB2312"), "\x13\xD6\xD0\xB9\xFA");
  EXPECT_EQ(said("é\n", "UTF-8"), "\x15\xC3\xA9\xEE\x82\x8A");
}

TEST(BroadcastText, IsNotWrittenInASetThatCannotSayIt) {
  EXPECT_EQ(said("Мир", "ISO6937"), "");
  EXPECT_EQ(said("Мир €", "ISO-8859-5"), "");
  EXPECT_EQ(said("😀", "UCS-2BE"), "");
  EXPECT_EQ(said("a\nb", "EUC-KR"), "");
  EXPECT_EQ(said("a", "KOI8-R"), "");
  for (const char* const set : {"ISO6937", "ISO-8859-9", "UCS-2BE", "UTF-8"}) {
    EXPECT_EQ(said("a\x01", set), "") << set;
    EXPECT_EQ(said("a\xC2\x86", set), "") << set;
    EXPECT_EQ(said("a\xFF", set), "") << set;
    EXPECT_EQ(said("a\xC3", set), "") << set;
  }
}

TEST(BroadcastText, IsReadAsItWasWritten) {
  static constexpr const char* kTexts[][2] = {
      {"ISO6937", "Çà et là: ñandú, Żółw, ő 10 €\nzwei"}, {"ISO-8859-7", "Καλημέρα"},   {"ISO-8859-8", "ערוץ"},
      {"ISO-8859-9", "İstanbul'da gün\nbatımı"},          {"UCS-2BE", "Привет 世界 €"}, {"UTF-8", "ok 😀\nü"}};
  for (const auto& [set, text] : kTexts) EXPECT_EQ(read(said(text, set)), text) << set;
}
