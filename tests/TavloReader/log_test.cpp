#include <TavloReader/Log.hpp>

#include <gtest/gtest.h>

#include <string>

namespace tavlo::reader {
namespace {

TEST(Log, WritesWholeLinesToStandardErrorUnlessToldOtherwise) {
  testing::internal::CaptureStderr();
  Log::debug("dropped");
  Log::info("first");
  const Log::Level previousLevel = Log::setThreshold(Log::Level::error);
  Log::warning("dropped");
  Log::error("second");
  EXPECT_EQ(Log::setThreshold(previousLevel), Log::Level::error);

  std::string handled;
  const auto previous = Log::setHandler([&handled](Log::Level, std::string_view message) { handled += message; });
  Log::warning("third");
  Log::setHandler(previous);
  Log::warning("fourth");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "TavloReader info: first\nTavloReader error: second\nTavloReader warning: fourth\n");
  EXPECT_EQ(handled, "third");
}

}  // namespace
}  // namespace tavlo::reader
