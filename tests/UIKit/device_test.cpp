#include "support/TemporaryFolder.hpp"
#include <Foundation/StandIn.hpp>
#include <UIKit/LinuxDevice.hpp>

#include <gtest/gtest.h>

#include <fstream>

namespace tavlo::uikit {
namespace {

TEST(DeviceTest, readsTheFilesOfTheSystem) {
  const test::TemporaryFolder root;
  const auto write = [&](const std::filesystem::path& file, std::string_view text) {
    create_directories((root.path() / file).parent_path());
    std::ofstream(root.path() / file) << text;
  };
  const LinuxDevice device(root.path());
  EXPECT_FALSE(device.systemVersion().empty());  // of the kernel
  EXPECT_EQ(device.model(), std::nullopt);

  const std::pair<std::string_view, std::string_view> releases[] = {
      {"NAME=x\nVERSION_ID=\"12\"\nX=1\n", "12"}, {"VERSION_ID='18.1'", "18.1"}, {"VERSION_ID=7\r\n", "7"}};
  for (const auto& [text, version] : releases) {
    write("usr/lib/os-release", text);
    EXPECT_EQ(device.systemVersion(), version);
  }
  write("etc/os-release", "VERSION_ID=13\n");
  EXPECT_EQ(device.systemVersion(), "13");

  write("proc/device-tree/model", std::string_view("Board 4\0", 8));
  EXPECT_EQ(device.model(), "Board 4");
  std::string manyAccents;
  while (manyAccents.size() < 400) manyAccents += "\xC3\xA9";
  const std::pair<std::string, std::string> models[] = {{" A \tB\n", "A B"},
                                                        {"A\xFF", "A\xEF\xBF\xBD"},
                                                        {manyAccents, manyAccents.substr(0, 256)},
                                                        {"x" + manyAccents, "x" + manyAccents.substr(0, 254)},
                                                        {"\n", "Board 4"}};
  for (const auto& [text, model] : models) {
    write("sys/class/dmi/id/product_name", text);
    EXPECT_EQ(device.model(), model);
  }
}

TEST(DeviceTest, isTheMachineUnlessReplaced) {
  const foundation::StandIn<UIDevice> byDefault(nullptr);
  EXPECT_EQ(UIDevice::current()->systemVersion(), LinuxDevice().systemVersion());
  const auto other = std::make_shared<LinuxDevice>();
  const foundation::StandIn<UIDevice> standIn(other);
  EXPECT_EQ(UIDevice::current(), other);
}

}  // namespace
}  // namespace tavlo::uikit
