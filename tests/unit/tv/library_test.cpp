// The virtual television as applications link it: what the library exports, and a set that works through that alone.
#include <dlfcn.h>

#include <algorithm>

#include "support.h"

namespace {

std::vector<std::string>& contract() {
  static std::vector<std::string> names;
  return names;
}

// The names of all functions of the contract, from its statements.
#define TVAPI_FN(ret, name, ...) [[maybe_unused]] const auto& listed_##name = contract().emplace_back(#name);
#define TVAPI_CALLBACK(...)
#include "tvapi/all.h"

TEST(TvLibrary, ExportsEveryFunctionOfTheContract) {
  EXPECT_NE(std::ranges::find(contract(), "a_vextvapi_volctrl_setVolume"), contract().end());
  for (const std::string& name : contract()) EXPECT_NE(dlsym(RTLD_DEFAULT, name.c_str()), nullptr) << name;
}

TEST(TvLibrary, IsASetThatCanBeSwitchedOnAgain) {
  const TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(a_vextvapi_volctrl_setVolume(37), 0);
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 37);
}

}  // namespace
