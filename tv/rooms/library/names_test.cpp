// Names: their kinds, their keys, and which are hidden.
#include "rooms/library/names.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

TEST(MediaNames, KindsFollowFromTheExtensionInAnyCase) {
  EXPECT_EQ(media_kind_of_name("a.JPG"), MEDIA_TYPE_PHOTO);
  EXPECT_EQ(media_kind_of_name("a.b.Mp3"), MEDIA_TYPE_MUSIC);
  EXPECT_EQ(media_kind_of_name("film.m2ts"), MEDIA_TYPE_VIDEO);
  EXPECT_EQ(media_kind_of_name("list.M3U8"), MEDIA_TYPE_PLAYLIST);
  for (const char* const name : {"", "jpg", "a.txt", "a.", "a.jpgx", "a.jpg "})
    EXPECT_EQ(media_kind_of_name(name), MEDIA_TYPE_NULL) << name;
}

TEST(MediaNames, KeysPutTextsInTheOrderPeopleExpect) {
  std::vector<std::string> names = {"img10", "IMG2",   "Zoë",     "zoe2",       "Ärger",
                                    "apfel", "Banane", "img002b", "\xC3\xA9lan"};
  std::ranges::sort(names, {}, [](const std::string& each) { return media_key(each); });
  EXPECT_EQ(names, (std::vector<std::string>{"apfel", "Ärger", "Banane", "\xC3\xA9lan", "IMG2", "img002b", "img10",
                                             "Zoë", "zoe2"}));
  EXPECT_EQ(media_key("ANNA"), media_key("anna"));
  EXPECT_EQ(media_key("Beyonc\xC3\xA9"), media_key("Beyonce\xCC\x81")) << "composed and decomposed";
  EXPECT_EQ(media_key(""), "");
}

TEST(MediaNames, KeysHaveALimitAndTakeAnyBytes) {
  EXPECT_LE(media_key(std::string(10'000, '9')).size(), kLongestKey);
  EXPECT_LE(media_key(std::string(1000, 'x')).size(), kLongestKey);
  EXPECT_LE(media_key("\xEF\xB7\xBA" + std::string(200, 'y')).size(), kLongestKey) << "one character becomes many";
  EXPECT_FALSE(media_key("\xFF\xFE").empty());
}

TEST(MediaNames, NamesAreHiddenOrRefused) {
  for (const char* const name :
       {".x", "._a.jpg", ".DS_Store", "$Recycle.Bin", "LOST+FOUND", "System Volume Information"})
    EXPECT_TRUE(media_is_hidden(name)) << name;
  EXPECT_FALSE(media_is_hidden("a.b"));
  EXPECT_EQ(media_name_problem("ok \xC3\xA9.jpg"), nullptr);
  EXPECT_STREQ(media_name_problem("a\xFF.jpg"), "its name is not in UTF-8");
  EXPECT_STREQ(media_name_problem("a\n.jpg"), "its name contains control characters");
  EXPECT_EQ(media_stem("a.b.jpg"), "a.b");
  EXPECT_EQ(media_stem(".jpg"), ".jpg");
  EXPECT_EQ(media_stem("none"), "none");
}

}  // namespace
