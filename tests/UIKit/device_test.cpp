#include <UIKit/LinuxDevice.hpp>

#include <gtest/gtest.h>

#include <fstream>

#include "support/TemporaryFolder.hpp"

namespace tavlo::uikit {

TEST(DeviceTest, readsTheFilesOfTheSystem) {
  const test::TemporaryFolder root;
  const LinuxDevice device(root.path());
  EXPECT_FALSE(device.systemVersion().empty());  // of the kernel
  EXPECT_EQ(device.model(), std::nullopt);

  std::string accents;
  while (accents.size() < 400) accents += "\xC3\xA9";
  const std::tuple<std::string, std::string, std::string> files[] = {
      {"usr/lib/os-release", "NAME=x\nVERSION_ID=\"12\"\nX=1\n", "12"},
      {"usr/lib/os-release", "VERSION_ID='18.1'", "18.1"},
      {"etc/os-release", "VERSION_ID=13\r\n", "13"},
      {"proc/device-tree/model", std::string("Board 4\0", 8), "Board 4"},
      {"sys/class/dmi/id/product_name", " A \tB\xFF\n", "A B\xEF\xBF\xBD"},
      {"sys/class/dmi/id/product_name", accents, accents.substr(0, 256)},
      {"sys/class/dmi/id/product_name", "x" + accents, "x" + accents.substr(0, 254)},
      {"sys/class/dmi/id/product_name", "\n", "Board 4"}};
  for (const auto& [name, text, expected] : files) {
    create_directories((root / name).parent_path());
    std::ofstream(root / name) << text;
    EXPECT_EQ(name.ends_with("os-release") ? device.systemVersion() : device.model(), expected);
  }

  EXPECT_EQ(UIDevice::current()->systemVersion(), LinuxDevice().systemVersion());
}

}  // namespace tavlo::uikit
