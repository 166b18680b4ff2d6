#include <TavloReader/DataGroup.hpp>
#include <TavloReader/DataGroups.hpp>
#include <TavloReader/TLV.internal.hpp>

#include <algorithm>
#include <array>
#include <utility>

namespace tavlo::reader {

using foundation::Data;
using foundation::DataView;

namespace {

template <class Group>
std::shared_ptr<const DataGroup> make(Data file) {
  return std::make_shared<const Group>(std::move(file));
}

/// What tells a group from other files, and its class.
struct Kind {
  DataGroupId id;
  std::string_view name;
  std::uint8_t tag;
  std::uint32_t innerTag;  ///< the first tag inside; 0 where several are possible
  std::shared_ptr<const DataGroup> (*parse)(Data file);
};

constexpr std::array kinds = {
    Kind{DataGroupId::COM, "COM", 0x60, 0x5F01, make<COM>},
    Kind{DataGroupId::DG1, "DG1", 0x61, 0x5F1F, make<DataGroup1>},
    Kind{DataGroupId::DG2, "DG2", 0x75, 0x7F61, make<DataGroup2>},
    Kind{DataGroupId::DG3, "DG3", 0x63, 0x7F61, make<DataGroup3>},
    Kind{DataGroupId::DG4, "DG4", 0x76, 0x7F61, make<DataGroup4>},
    Kind{DataGroupId::DG5, "DG5", 0x65, 0x02, make<DataGroup5>},
    Kind{DataGroupId::DG6, "DG6", 0x66, 0, make<DataGroup6>},
    Kind{DataGroupId::DG7, "DG7", 0x67, 0x02, make<DataGroup7>},
    Kind{DataGroupId::DG8, "DG8", 0x68, 0x02, make<DataGroup8>},
    Kind{DataGroupId::DG9, "DG9", 0x69, 0x02, make<DataGroup9>},
    Kind{DataGroupId::DG10, "DG10", 0x6A, 0x02, make<DataGroup10>},
    Kind{DataGroupId::DG11, "DG11", 0x6B, 0x5C, make<DataGroup11>},
    Kind{DataGroupId::DG12, "DG12", 0x6C, 0x5C, make<DataGroup12>},
    Kind{DataGroupId::DG13, "DG13", 0x6D, 0, make<DataGroup13>},
    Kind{DataGroupId::DG14, "DG14", 0x6E, 0x31, make<DataGroup14>},
    Kind{DataGroupId::DG15, "DG15", 0x6F, 0x30, make<DataGroup15>},
    Kind{DataGroupId::DG16, "DG16", 0x70, 0x02, make<DataGroup16>},
    Kind{DataGroupId::SOD, "SOD", 0x77, 0x30, make<SOD>},
};

constexpr bool inOrderOfIds() {
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    if (static_cast<std::size_t>(kinds[i].id) != i) return false;
  }
  return true;
}
static_assert(inOrderOfIds());

const Kind& kindOf(DataGroupId id) {
  return kinds.at(static_cast<std::size_t>(id));
}

/// Whether `bytes` are what readers leave after a file: blanks of the chip's memory, then perhaps a status word.
bool isPadding(DataView bytes) {
  constexpr std::array<std::uint8_t, 2> statusWord = {0x90, 0x00};
  if (bytes.size() >= 2 && std::ranges::equal(bytes.last(2), statusWord)) bytes = bytes.first(bytes.size() - 2);
  const auto all = [bytes](std::uint8_t blank) { return std::ranges::count(bytes, blank) == std::ssize(bytes); };
  return all(0x00) || all(0xFF);
}

}  // namespace

std::string_view name(DataGroupId id) {
  return kindOf(id).name;
}

std::optional<DataGroupId> dataGroupWithTag(std::uint32_t tag) {
  const auto found = std::ranges::find(kinds, tag, &Kind::tag);
  return found == kinds.end() ? std::nullopt : std::optional(found->id);
}

std::optional<DataGroupId> DataGroup::recognise(DataView file) {
  const auto tag = takeTag(file);
  const auto id = tag ? dataGroupWithTag(*tag) : std::nullopt;
  const auto length = takeLength(file);
  if (!id || !length) return std::nullopt;

  const bool fits = *length <= file.size() && isPadding(file.subspan(*length));
  const auto innerTag = takeTag(file);
  constexpr std::uint32_t applicationIdentifier = 0x4F;
  if (innerTag == applicationIdentifier) return std::nullopt;
  // What is cut short or followed by more is told by its inner tag, what has an unusual one by a length that fits.
  return fits || innerTag == kindOf(*id).innerTag ? id : std::nullopt;
}

std::shared_ptr<const DataGroup> DataGroup::parse(Data file) {
  const auto id = recognise(file);
  if (!id) throw ReaderError("The file is no data group");
  return parse(*id, std::move(file));
}

std::shared_ptr<const DataGroup> DataGroup::parse(DataGroupId id, Data file) {
  return kindOf(id).parse(std::move(file));
}

DataGroup::DataGroup(DataGroupId id, Data file) : id_(id), data_(std::move(file)) {
  TLVReader reader(data_, name(id));
  const DataView value = reader.next(kindOf(id).tag);
  valueOffset_ = static_cast<std::size_t>(value.data() - data_.data());

  const DataView trailing = reader.rest();
  if (trailing.empty()) return;
  if (!isPadding(trailing)) reader.fail(byteCount(trailing.size()) + " after the end of the file");
  addOddity(byteCount(trailing.size()) + " of padding cut");
  data_.resize(data_.size() - trailing.size());
}

DataView DataGroup::value() const noexcept {
  return DataView(data_).subspan(valueOffset_);
}

void DataGroup::addOddity(std::string text) {
  constexpr std::size_t maximumOddities = 100;
  if (oddities_.size() < maximumOddities) oddities_.push_back(std::move(text));
}

std::string DataGroup::description() const {
  const std::string_view group = name(id_);
  const bool numbered = group.starts_with("DG");
  return "TavloReader." + (numbered ? "DataGroup" + std::string(group.substr(2)) : std::string(group));
}

}  // namespace tavlo::reader
