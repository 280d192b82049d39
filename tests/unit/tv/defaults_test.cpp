// Functions that no room defines: they exist, fail, and report that once on stderr. A room's definition replaces them.
#include "defaults_contract.h"
#include "support.h"

INT16 tv_test_built(INT16 number) { return static_cast<INT16>(number + 1); }

namespace {

template <typename Call>
std::string stderr_of(Call call) {
  testing::internal::CaptureStderr();
  call();
  return testing::internal::GetCapturedStderr();
}

TEST(TvDefaults, FailAndReportItOnce) {
  EXPECT_EQ(stderr_of([] { EXPECT_EQ(tv_test_plain(), -1); }), "dtv_tv: tv_test_plain is not implemented; it fails\n");
  EXPECT_EQ(stderr_of([] { EXPECT_EQ(tv_test_plain(), -1); }), "");
  EXPECT_EQ(stderr_of([] { EXPECT_EQ(tv_test_handle(7), 0u); }),
            "dtv_tv: tv_test_handle is not implemented; it fails\n");
  EXPECT_EQ(stderr_of([] { EXPECT_EQ(tv_test_pointer(), nullptr); }),
            "dtv_tv: tv_test_pointer is not implemented; it fails\n");
  EXPECT_EQ(stderr_of([] { tv_test_nothing(1); }), "dtv_tv: tv_test_nothing is not implemented; it fails\n");
}

TEST(TvDefaults, DoNotChangeOutputs) {
  INT32 result = 5;
  UINT32 count = 6;
  char name[32] = "untouched";
  UINT16 list[1] = {7};
  const UINT64 record = 0;
  stderr_of([&] {
    EXPECT_EQ(tv_test_every_kind(1, "text", &record, nullptr, 0, &result, &count, name, list, nullptr, nullptr), -1);
  });
  EXPECT_EQ(result, 5);
  EXPECT_EQ(count, 6u);
  EXPECT_STREQ(name, "untouched");
  EXPECT_EQ(list[0], 7);
}

TEST(TvDefaults, RoomReplacesItsDefault) {
  EXPECT_EQ(stderr_of([] { EXPECT_EQ(tv_test_built(41), 42); }), "");
}

}  // namespace
