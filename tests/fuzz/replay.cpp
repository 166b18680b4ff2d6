// Tries a fuzzer's target with the files given, and with all in the folders given.
#include <Foundation/Data.hpp>

#include <iostream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

namespace fs = std::filesystem;

int main(int count, char** arguments) {
  bool tried = false;
  const auto replay = [&tried](const fs::path& file) {
    std::cout << file.string() << std::endl;  // the last one named is the culprit
    const auto input = tavlo::foundation::contentsOf(file);
    tried = LLVMFuzzerTestOneInput(input.data(), input.size()) == 0;
  };
  for (int i = 1; i < count; ++i) {
    if (fs::is_regular_file(arguments[i])) replay(arguments[i]);
    if (!fs::is_directory(arguments[i])) continue;
    for (const auto& entry : fs::recursive_directory_iterator(arguments[i])) {
      if (entry.is_regular_file()) replay(entry.path());
    }
  }
  return tried ? 0 : 1;
}
