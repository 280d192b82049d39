// The common interface without a module.
#include "tests/unit/tv/support.h"

namespace {

TEST(TvCi, NoModuleHasTunedTheSet) {
  for (const INT32 type : {VEXTVAPI_CI_HOST_TUNE_STATUS, VEXTVAPI_CI_HOST_TUNE_BROADCAST_STATUS}) {
    INT32 values[] = {-7, -7};
    UINT32 size = 2;
    EXPECT_EQ(a_vextvapi_ci_get(type, nullptr, values, &size), 0);
    EXPECT_EQ(values[0], 0);
    EXPECT_EQ(values[1], -7);
    EXPECT_EQ(size, 1u);
  }
}

TEST(TvCi, OtherQueriesFail) {
  for (const INT32 type : {0, 25, 28, -1}) {
    INT32 value = -7;
    UINT32 size = 1;
    testing::internal::CaptureStderr();
    EXPECT_LT(a_vextvapi_ci_get(type, nullptr, &value, &size), 0);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("query " + std::to_string(type) + " has no answer\n"),
              std::string::npos);
    EXPECT_EQ(value, -7);
    EXPECT_EQ(size, 1u);
  }
}

TEST(TvCi, AnswerNeedsABuffer) {
  INT32 value = -7;
  UINT32 none = 0, one = 1;
  EXPECT_LT(a_vextvapi_ci_get(VEXTVAPI_CI_HOST_TUNE_STATUS, nullptr, &value, &none), 0);
  EXPECT_LT(a_vextvapi_ci_get(VEXTVAPI_CI_HOST_TUNE_STATUS, nullptr, &value, nullptr), 0);
  EXPECT_LT(a_vextvapi_ci_get(VEXTVAPI_CI_HOST_TUNE_STATUS, nullptr, nullptr, &one), 0);
  EXPECT_EQ(value, -7);
}

}  // namespace
