// The menu of media, operated by keys, on a set with a stick that was scanned.
#include "rooms/library/library_test.h"
#include "rooms/menus/menu_test.h"

namespace {

struct TvMediaMenu : LibrarySet, ShownMenu {
  using LibrarySet::run;
  void open_stick() const {
    write_file("Album/inner/c.bmp", bmp_bytes(8, 8));
    write_file("Zoo/d.bmp", bmp_bytes(8, 8));
    write_file("a.bmp", bmp_bytes(8, 8));
    write_file("song.wav", wav_bytes({.title = "Morning", .artist = "Larks"}));
    insert();
    ASSERT_EQ(word(run({"menu", "media"}), "menu"), "media");
    EXPECT_EQ(rows(), "[Holiday]");
    EXPECT_FALSE(menu().contains("folder"));
    press("ENTER");
  }
};

TEST_F(TvMediaMenu, TheMainMenuHasIt) {
  press("MENU");
  const json::object shown = run({"menu"});
  std::string names;
  for (const json::value& row : shown.at("rows").as_array()) names += word(row.as_object(), "menu") + " ";
  press("UP");
  press("UP");  // to the last but one
  press("ENTER");
  EXPECT_EQ(word(menu(), "menu"), "media") << names;
  EXPECT_EQ(rows(), "") << "no stick is inserted";
  press("ENTER");
  EXPECT_EQ(word(menu(), "menu"), "media") << "there is nothing to open";
  press("EXIT");
  EXPECT_TRUE(menu().empty());
}

TEST_F(TvMediaMenu, FoldersOpenAndCloseAgain) {
  open_stick();
  EXPECT_EQ(word(menu(), "folder"), "Holiday");
  EXPECT_EQ(rows(), "[Album:folder] Zoo:folder a.bmp:photo Morning:music");
  press("ENTER");
  EXPECT_EQ(word(menu(), "folder"), "Album");
  EXPECT_EQ(rows(), "[inner:folder]");
  press("RIGHT");
  EXPECT_EQ(rows(), "[c.bmp:photo]");
  press("LEFT");
  EXPECT_EQ(rows(), "[inner:folder]");
  press("LEFT");
  EXPECT_EQ(rows(), "[Album:folder] Zoo:folder a.bmp:photo Morning:music");
  press("DOWN");
  press("ENTER");
  EXPECT_EQ(word(menu(), "folder"), "Zoo");
  press("LEFT");
  EXPECT_EQ(rows(), "Album:folder [Zoo:folder] a.bmp:photo Morning:music") << "the folder that was left is chosen";
  press("LEFT");
  EXPECT_EQ(rows(), "[Holiday]");
  press("LEFT");
  EXPECT_TRUE(menu().empty()) << "behind the sticks there is nothing";
}

TEST_F(TvMediaMenu, APhotoIsShown) {
  open_stick();
  press("DOWN");
  press("DOWN");
  press("ENTER");
  EXPECT_TRUE(menu().empty());
  EXPECT_EQ(word(run({"photo"}), "path"), at("a.bmp"));
}

TEST_F(TvMediaMenu, MusicIsPlayed) {
  open_stick();
  press("UP");
  press("ENTER");
  EXPECT_EQ(word(run({"player"}), "path"), at("song.wav"));
}

TEST_F(TvMediaMenu, AStickThatIsPulledClosesItsFolders) {
  open_stick();
  press("ENTER");
  EXPECT_EQ(word(menu(), "folder"), "Album");
  ASSERT_FALSE(run({"stick", "remove", "Holiday"}).contains("error"));
  EXPECT_EQ(word(menu(), "menu"), "media");
  EXPECT_FALSE(menu().contains("folder"));
  EXPECT_EQ(rows(), "");
  insert();
  EXPECT_EQ(rows(), "[Holiday]");
}

}  // namespace
