#include <specimen/DER.hpp>

#include <algorithm>
#include <string>
#include <vector>

namespace tavlo::specimen {

using foundation::Data;
using foundation::DataView;

Data joined(std::initializer_list<DataView> parts) {
  Data all;
  for (const DataView part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Data bigEndian(std::uint64_t value, std::size_t size) {
  if (size == 0) {
    size = 1;
    while (size < sizeof value && value >> (8 * size) != 0) ++size;
  }
  Data bytes(size);
  for (std::size_t i = size; i-- > 0; value >>= 8) bytes[i] = static_cast<std::uint8_t>(value);
  return bytes;
}

Data element(std::uint32_t tag, DataView value) {
  constexpr std::size_t longForm = 0x80;
  Data length = bigEndian(value.size());
  if (value.size() >= longForm) length.insert(length.begin(), static_cast<std::uint8_t>(longForm | length.size()));
  return joined({bigEndian(tag), length, value});
}

Data element(std::uint32_t tag, std::string_view text) {
  return element(tag, foundation::dataOf(text));
}

Data element(std::uint32_t tag, std::initializer_list<DataView> parts) {
  return element(tag, joined(parts));
}

Data number(std::uint64_t value) {
  Data bytes = bigEndian(value);
  const bool looksNegative = (bytes.front() & 0x80U) != 0;
  if (looksNegative) bytes.insert(bytes.begin(), 0);
  return bytes;
}

Data objectIdentifier(std::string_view dotted) {
  std::vector<unsigned long> arcs;
  for (std::size_t begin = 0; begin <= dotted.size();) {
    const std::size_t end = std::min(dotted.find('.', begin), dotted.size());
    arcs.push_back(std::stoul(std::string(dotted.substr(begin, end - begin))));
    begin = end + 1;
  }
  arcs[1] += 40 * arcs[0];
  Data content;
  for (auto arc = arcs.begin() + 1; arc != arcs.end(); ++arc) {
    Data septets{static_cast<std::uint8_t>(*arc & 0x7FU)};
    for (unsigned long rest = *arc >> 7; rest != 0; rest >>= 7) {
      septets.insert(septets.begin(), static_cast<std::uint8_t>(0x80U | (rest & 0x7FU)));
    }
    content.insert(content.end(), septets.begin(), septets.end());
  }
  return element(0x06, content);
}

}  // namespace tavlo::specimen
