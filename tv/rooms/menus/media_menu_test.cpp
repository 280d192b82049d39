// The menu of media, operated by keys, on a set with a stick that was scanned.
#include "rooms/library/library_test.h"

namespace {

struct TvMediaMenu : LibrarySet {
  static json::object menu() {
    const json::object shown = run({"screen"});
    const json::value* const found = shown.if_contains("menu");
    return found == nullptr ? json::object{} : found->as_object();
  }
  static std::string word(const json::object& of, const char* name) {
    const json::value* const found = of.if_contains(name);
    return found == nullptr ? "" : std::string(found->as_string());
  }
  static void press(const char* key) {
    const json::object reply = run({"key", key});
    EXPECT_FALSE(reply.contains("error")) << key << " " << reply;
  }
  // The rows with their first marks, "Album:folder a.bmp:photo"; the chosen one in brackets.
  static std::string rows() {
    std::string text;
    const json::object shown = menu();
    const json::value* const chosen = shown.if_contains("selected");
    for (std::size_t i = 0; i < shown.at("rows").as_array().size(); ++i) {
      const json::object& row = shown.at("rows").at(i).as_object();
      std::string name = word(row, "name");
      if (const json::value* const marks = row.if_contains("marks"))
        name += ":" + std::string(marks->at(0).as_string());
      const bool is_chosen = chosen != nullptr && chosen->at("row").to_number<std::size_t>() == i;
      text += (text.empty() ? "" : " ") + (is_chosen ? "[" + name + "]" : name);
    }
    return text;
  }
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
  press("UP");  // to the last one
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
