#include "Output.hpp"

#include <Foundation/Hex.hpp>
#include <Foundation/UTF8.hpp>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "Failure.hpp"

namespace tavlo::app {

void deliver(foundation::DataView bytes, const std::optional<std::string>& file) {
  try {
    if (file) {
      foundation::writePrivately(*file, bytes);
    } else if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() || std::fflush(stdout) != 0) {
      throw std::system_error(errno, std::generic_category(), "cannot write to standard output");
    }
  } catch (const std::system_error& error) {
    throw Failure(ExitCode::output, error.what());
  }
}

void tell(std::string_view line) {
  const std::string text = printable(line) + "\n";
  std::fwrite(text.data(), 1, text.size(), stderr);
}

std::string printable(std::string_view text) {
  std::string result;
  const std::string valid = foundation::makeValidUTF8(text);
  for (std::size_t i = 0; i < valid.size(); ++i) {
    auto byte = static_cast<unsigned char>(valid[i]);
    const bool isC1 = byte == 0xC2 && static_cast<unsigned char>(valid[i + 1]) < 0xA0;  // U+0080 to U+009F
    if (isC1) byte = static_cast<unsigned char>(valid[++i]);
    if (isC1 || byte < 0x20 || byte == 0x7F) {
      result.append("\\x").append(foundation::toHexString({&byte, 1}));
    } else {
      result += valid[i];
    }
  }
  return result;
}

}  // namespace tavlo::app
