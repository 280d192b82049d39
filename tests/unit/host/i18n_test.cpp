// The language libraries, as the plugin opens them.
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"

namespace {

struct Message {
  const char* id;
  const char* texts[5];  // in the order of the columns
};

constexpr Message catalogue[] = {
#define DTV_TEXT(id, en, de, fr, es, tr) {#id, {en, de, fr, es, tr}},
#include "i18n/catalogue.def"
#undef DTV_TEXT
};

struct Language {
  const char* code;
  int column;
  const char* volume;  // its text for IDS_VOLUME
};

constexpr Language languages[] = {{.code = "ENG", .column = 0, .volume = "Volume"},
                                  {.code = "DEU", .column = 1, .volume = "Lautstärke"},
                                  {.code = "FRA", .column = 2, .volume = "Volume"},
                                  {.code = "SPA", .column = 3, .volume = "Volumen"},
                                  {.code = "TUR", .column = 4, .volume = "Ses düzeyi"}};

std::string path_of(const char* code) { return std::string(LANGUAGES "/") + code + ".so"; }

class Library : public testing::TestWithParam<Language> {
 protected:
  void SetUp() override {
    ASSERT_NE(library, nullptr) << dlerror();
    get = reinterpret_cast<const char* (*)(const char*)>(dlsym(library.get(), "vexuiGetLangStr"));
    ASSERT_NE(get, nullptr) << dlerror();
  }

  std::unique_ptr<void, int (*)(void*)> library{dlopen(path_of(GetParam().code).c_str(), RTLD_LAZY), dlclose};
  const char* (*get)(const char*) = nullptr;
};

TEST_P(Library, HasEveryText) {
  EXPECT_GE(std::size(catalogue), 80U);
  for (const Message& message : catalogue) {
    const char* const text = get(message.id);
    ASSERT_NE(text, nullptr) << message.id;
    EXPECT_STREQ(text, message.texts[GetParam().column]) << message.id;
    EXPECT_NE(*text, '\0') << message.id;
    EXPECT_TRUE(is_utf8(text)) << message.id << " is not UTF-8: " << text;
    EXPECT_EQ(get(message.id), text) << "a text stays where it is";
  }
  EXPECT_STREQ(get("IDS_VOLUME"), GetParam().volume);
}

TEST_P(Library, KnowsNoOtherId) {
  // Before the first, after the last, between two, and names that only begin or end like one.
  for (const char* id : {"", "A", "IDS_", "IDS_ZZ", "zz", "IDS_VOLUM", "IDS_VOLUME_", "ids_volume", " IDS_VOLUME"})
    EXPECT_EQ(get(id), nullptr) << id;
  EXPECT_EQ(get(nullptr), nullptr);
}

TEST_P(Library, ExportsNothingElse) {
  std::ifstream file(path_of(GetParam().code), std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  ASSERT_GT(bytes.size(), sizeof(ElfW(Ehdr)));
  const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(bytes.data());
  const auto* sections = reinterpret_cast<const ElfW(Shdr)*>(bytes.data() + header->e_shoff);
  std::vector<std::string> exported;
  for (int i = 0; i < header->e_shnum; ++i) {
    if (sections[i].sh_type != SHT_DYNSYM) continue;
    const auto* symbols = reinterpret_cast<const ElfW(Sym)*>(bytes.data() + sections[i].sh_offset);
    const char* names = bytes.data() + sections[sections[i].sh_link].sh_offset;
    for (std::size_t symbol = 1; symbol < sections[i].sh_size / sizeof *symbols; ++symbol)
      if (symbols[symbol].st_shndx != SHN_UNDEF) exported.emplace_back(names + symbols[symbol].st_name);
  }
  EXPECT_EQ(exported, std::vector<std::string>{"vexuiGetLangStr"});
}

INSTANTIATE_TEST_SUITE_P(Languages, Library, testing::ValuesIn(languages),
                         [](const auto& instance) { return std::string(instance.param.code); });

}  // namespace
