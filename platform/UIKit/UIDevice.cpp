#include <Foundation/Data.hpp>
#include <Foundation/SharedService.hpp>
#include <Foundation/UTF8.hpp>
#include <UIKit/LinuxDevice.hpp>
#include <UIKit/UIDevice.hpp>

#include <sys/utsname.h>

#include <algorithm>
#include <string_view>
#include <system_error>
#include <utility>

namespace tavlo::uikit {

namespace {

constexpr std::size_t maximumFileSize = 65'536;  ///< bytes
constexpr std::size_t maximumTextSize = 256;     ///< bytes

constinit foundation::SharedService<UIDevice> deviceInForce([]() -> std::shared_ptr<UIDevice> {
  return std::make_shared<LinuxDevice>();
});

/// The text of a small system file; empty when it cannot be read.
std::string textFile(const std::filesystem::path& path) {
  try {
    return std::string(foundation::textOf(foundation::contentsOf(path, maximumFileSize)));
  } catch (const std::system_error&) {
    return {};
  }
}

/// `text` as valid UTF-8 in one line, without blanks around it and at most `maximumTextSize` bytes long.
std::string tidy(std::string_view text) {
  std::string line;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte >= ' ' && byte != 0x7F) line += character;
  }
  line = foundation::makeValidUTF8(line);
  line.erase(0, line.find_first_not_of(' '));
  if (line.size() > maximumTextSize) {
    std::size_t end = maximumTextSize;
    while ((static_cast<unsigned char>(line[end]) & 0xC0U) == 0x80U) --end;  // not within a character
    line.resize(end);
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

/// The value of VERSION_ID in an os-release file (os-release(5)); empty when there is none.
std::string versionIn(std::string_view osRelease) {
  constexpr std::string_view key = "VERSION_ID=";
  while (!osRelease.empty()) {
    std::string_view line = osRelease.substr(0, osRelease.find('\n'));
    osRelease.remove_prefix(std::min(line.size() + 1, osRelease.size()));
    if (!line.starts_with(key)) continue;
    line.remove_prefix(key.size());
    if (line.size() >= 2 && line.front() == line.back() && (line.front() == '"' || line.front() == '\'')) {
      line = line.substr(1, line.size() - 2);
    }
    return tidy(line);
  }
  return {};
}

}  // namespace

std::shared_ptr<UIDevice> UIDevice::current() {
  return deviceInForce.get();
}

std::shared_ptr<UIDevice> UIDevice::install(std::shared_ptr<UIDevice> device) {
  return deviceInForce.exchange(std::move(device));
}

std::string LinuxDevice::systemVersion() const {
  for (const char* file : {"etc/os-release", "usr/lib/os-release"}) {
    if (std::string version = versionIn(textFile(root_ / file)); !version.empty()) return version;
  }
  utsname kernel{};
  return ::uname(&kernel) == 0 ? tidy(kernel.release) : std::string();
}

std::optional<std::string> LinuxDevice::model() const {
  for (const char* file : {"sys/class/dmi/id/product_name", "proc/device-tree/model"}) {
    if (std::string model = tidy(textFile(root_ / file)); !model.empty()) return model;
  }
  return std::nullopt;
}

}  // namespace tavlo::uikit
