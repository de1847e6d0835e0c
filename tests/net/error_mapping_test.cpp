// HTTP and movie-loading codes as errors.
#include <belvane/BVErrorMapping.h>

#include <gtest/gtest.h>

TEST(ErrorMapping, ListedHTTPCodesCarryTheirMessage) {
  for (int code : {301, 400, 403, 404, 418, 451, 500, 503, 511}) {
    BVErrorRef error = BVErrorForHTTPErrorCode(code);
    ASSERT_NE(error, nullptr) << code;
    EXPECT_EQ(error->domain(), "NetHTTPErrorDomain");
    EXPECT_EQ(error->code(), code);
    EXPECT_EQ(error->userInfo().size(), 1u);
    const std::string prefix = std::to_string(code) + "/";
    const std::string description = error->localizedDescription();
    EXPECT_EQ(description.rfind(prefix, 0), 0u) << description;
    EXPECT_GT(description.size(), prefix.size() + 10) << description;
  }
  EXPECT_EQ(BVErrorForHTTPErrorCode(404)->localizedDescription(), "404/The server cannot find this resource.");
}

TEST(ErrorMapping, UnlistedCodes) {
  for (int code : {0, 200, 299, 499, 599, -404}) EXPECT_EQ(BVErrorForHTTPErrorCode(code), nullptr) << code;

  // Movie-loading codes: listed HTTP statuses stay HTTP errors...
  BVErrorRef http = BVErrorForQuickTimeErrorCode(404);
  EXPECT_EQ(http->domain(), "NetHTTPErrorDomain");
  // ...everything else, negative codes included, is an OS status.
  for (int code : {-43, -2048, 0, 200, 999}) {
    BVErrorRef error = BVErrorForQuickTimeErrorCode(code);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), "NSOSStatusErrorDomain");
    EXPECT_EQ(error->code(), code);
    EXPECT_FALSE(error->hasUserInfo());
  }
}
