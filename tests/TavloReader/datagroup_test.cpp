#include <TavloReader/DataGroups.hpp>
#include <TavloReader/NFCPassportModel.hpp>
#include <gtest/gtest.h>

#include <set>

#include "support/Documents.hpp"

namespace tavlo::reader {
namespace {

using test::Data;
using test::DataView;
using test::joined;
using test::tlv;

const Data picture = {0xFF, 0xD8, 0xFF, 0xE0};
const Data names = joined({tlv(0x5C, Data{0x5F, 0x0E}), tlv(0x5F0E, "ERIKSSON<<ANNA<MARIA")});

/// A sound file of each group.
std::vector<Data> soundFiles() {
  std::vector<Data> files = {test::com(Data{0x61, 0x75}), test::dataGroup1(), test::dataGroup2(picture),
                             test::dataGroup7(picture), tlv(0x6E, tlv(0x31, Data{}))};
  const auto add = [&files](std::initializer_list<std::uint32_t> tags, const Data& content) {
    for (const std::uint32_t tag : tags) files.push_back(tlv(tag, content));
  };
  const Data counted = tlv(0x02, Data{0});
  add({0x65, 0x68, 0x69, 0x6A, 0x70}, counted);
  add({0x63, 0x76}, tlv(0x7F61, counted));
  add({0x6B, 0x6C}, names);
  add({0x66, 0x6D, 0x6F, 0x77}, tlv(0x30, Data{0x05, 0x00}));
  return files;
}

/// What `DataGroup::parse` says against `file`, meant to be the group `id` if given; empty when it says nothing.
std::string refusal(const Data& file, std::optional<DataGroupId> id = {}) {
  try {
    static_cast<void>(id ? DataGroup::parse(*id, file) : DataGroup::parse(file));
    return {};
  } catch (const ReaderError& error) {
    return error.what();
  }
}

TEST(DataGroup, EachFileIsRecognisedByContentAndKeptByteForByte) {
  std::set<std::string> descriptions;
  for (const Data& file : soundFiles()) {
    const auto group = DataGroup::parse(file);
    EXPECT_EQ(group->data(), file);
    EXPECT_TRUE(group->oddities().empty());
    EXPECT_TRUE(group->description().starts_with("TavloReader.")) << group->description();
    descriptions.insert(group->description().substr(12));
  }
  EXPECT_EQ(descriptions,
            (std::set<std::string>{"COM", "DataGroup1", "DataGroup2", "DataGroup3", "DataGroup4", "DataGroup5",
                                   "DataGroup6", "DataGroup7", "DataGroup8", "DataGroup9", "DataGroup10", "DataGroup11",
                                   "DataGroup12", "DataGroup13", "DataGroup14", "DataGroup15", "DataGroup16", "SOD"}));
}

TEST(DataGroup, PaddingIsCutAndAnythingElseRefused) {
  for (const Data& file : soundFiles()) {
    for (const Data& padding : {Data{0}, Data(500, 0x00), Data(3, 0xFF), Data{0x90, 0x00}, Data{0xFF, 0x90, 0x00}}) {
      const auto group = DataGroup::parse(joined({file, padding}));
      EXPECT_EQ(group->data(), file);
      EXPECT_EQ(group->oddities().size(), 1U);
    }
    for (const Data& trailing : {Data{1}, Data{0x00, 0xFF}, Data{0x90, 0x00, 0x90, 0x00}, Data{0x6A, 0x82}}) {
      EXPECT_NE(refusal(joined({file, trailing}), DataGroup::recognise(file)), "");
    }
  }
}

TEST(DataGroup, TruncatedOrAlteredFilesAreRefusedOrReadNeverMore) {
  for (const Data& file : soundFiles()) {
    const auto id = *DataGroup::recognise(file);
    for (std::size_t size = 0; size < file.size(); ++size) {
      const Data truncated(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_NE(refusal(truncated), "") << name(id) << " " << size;
      EXPECT_EQ(refusal(truncated, id).substr(0, name(id).size()), name(id)) << size;
    }
    for (std::size_t i = 0; i < file.size(); ++i) {
      for (const int value : {0x00, 0x01, 0x5F, 0x7F, 0x80, 0x84, 0xFF}) {
        Data altered = file;
        altered[i] = static_cast<std::uint8_t>(value);
        if (refusal(altered).empty()) altered.resize(DataGroup::parse(altered)->data().size());
      }
    }
  }
}

TEST(DataGroup, RefusalsSayWhereAndWhat) {
  const auto with = [](Data bytes, std::size_t at, std::uint8_t value) {
    bytes[at] = value;
    return bytes;
  };
  const auto face = [&](std::size_t at, std::uint8_t value) {
    return test::dataGroup2Around(with(test::faceRecord({picture}), at, value));
  };
  const std::pair<Data, std::string_view> cases[] = {
      {test::dataGroup1("P<UTO"), "DG1: a machine readable zone of 5 characters; 90, 72 or 88 are expected"},
      {tlv(0x61, joined({tlv(0x5F1F, test::exampleTD3), Data{0x02, 0x00}})), "DG1: 2 bytes too many inside"},
      {with(test::dataGroup1(), 1, 92), "DG1: length 92 after tag 61 runs past the end, 91 bytes left"},
      {with(test::dataGroup1(), 4, 0x80), "DG1: no sound length after tag 5F1F"},
      {test::com(Data(33, 0x61)), "COM: a list of 33 groups"},
      {face(11, 1), "DG2: a face record of 1 byte"},
      {face(10, 1), "DG2: a face record ends 256 bytes too early"},
      {face(17, 3), "DG2: a face of 3 bytes"},
      {face(19, 2), "DG2: a face record ends 12 bytes too early"},
      {tlv(0x67, tlv(0x02, Data{1})), "DG7: the file ends where a tag is expected"},
      {tlv(0x67, joined({tlv(0x02, Data{0, 1}), tlv(0x5F43, picture)})), "DG7: a count of 2 bytes"},
      {tlv(0x67, joined({tlv(0x02, Data{1}), tlv(0x5F40, picture)})), "DG7: tag 5F40 where 5F43 is expected"},
      {tlv(0x6C, joined({names, tlv(0xA0, Data{0x5F})})), "DG12: the file ends where a tag is expected"},
  };
  for (const auto& [file, expected] : cases) EXPECT_EQ(refusal(file), expected);

  Data many = tlv(0x5C, Data{});
  for (int i = 0; i < 257; ++i) many = joined({many, tlv(0x5F10, "1")});
  EXPECT_EQ(refusal(tlv(0x6B, many)), "DG11: too many items");
}

TEST(DataGroup, ContentIsParsed) {
  const COM com(test::com(Data{0x61, 0x75, 0x42, 0x77}));
  EXPECT_EQ(com.ldsVersion() + " " + com.unicodeVersion(), "1.7 4.0.0");
  EXPECT_EQ(com.groups(), (std::vector{DataGroupId::DG1, DataGroupId::DG2, DataGroupId::SOD}));
  EXPECT_EQ(com.oddities(), std::vector<std::string>{"lists the unknown tag 42"});

  std::string zone(test::exampleTD3);
  zone[53] = '0';
  EXPECT_EQ(DataGroup1(test::dataGroup1(zone)).oddities(),
            (std::vector<std::string>{"wrong check digit: number", "wrong check digit: composite"}));

  const Data other = {0x89, 'P', 'N', 'G'};
  const auto bytes = [](DataView view) { return Data(view.begin(), view.end()); };
  const DataGroup2 two(test::dataGroup2Around(test::faceRecord({other, picture})));
  EXPECT_EQ(bytes(two.faces().at(0)), other);
  EXPECT_EQ(bytes(two.faces().at(1)), picture);
  EXPECT_EQ(DataGroup2(test::dataGroup2Around(test::faceRecord({picture}), 0x7F2E)).faces().size(), 1U);
  const DataGroup2 none(test::dataGroup2Around(foundation::dataOf("a record of another standard")));
  EXPECT_TRUE(none.faces().empty());
  EXPECT_EQ(none.oddities().size(), 1U);
  EXPECT_EQ(bytes(DataGroup7(test::dataGroup7(picture)).images().at(0)), picture);
}

TEST(TextDataGroup, GivesItemsForPeople) {
  const Data several = joined({tlv(0x02, Data{2}), tlv(0x5F0F, "DOE<<J"), tlv(0x5F0F, "M\xFCLLER")});
  const DataGroup11 group(tlv(0x6B, joined({tlv(0x5F0E, "ERIKSSON<<ANNA<MARIA<<<"), tlv(0xA0, several),
                                            tlv(0x5F2B, Data{0x19, 0x74, 0x08, 0x12}), tlv(0x5F2B, "19740812"),
                                            tlv(0x5F2B, "1974"), tlv(0x5F16, picture), tlv(0x5F63, "?"),
                                            tlv(0x5F55, Data{0x20, 0x24, 0x01, 0x01, 0x12, 0x30, 0x59})})));
  std::string text;
  for (const auto& item : group.items()) text += std::string(item.label) + ": " + item.text + "\n";
  EXPECT_EQ(text,
            "Full name: ERIKSSON, ANNA MARIA\nOther name: DOE, J\nOther name: M\uFFFDLLER\n"
            "Full date of birth: 19740812\nFull date of birth: 19740812\nFull date of birth: 1974\n"
            "Proof of citizenship: JPEG, 4 bytes\nTime of personalisation: 20240101123059\n");
  EXPECT_EQ(group.oddities(), std::vector<std::string>{"an item of the unknown tag 5F63"});
}

TEST(NFCPassportModel, ShowsWhatWasRead) {
  NFCPassportModel model;
  EXPECT_EQ(model.documentType() + model.documentNumber() + model.gender(), "");
  EXPECT_FALSE(model.passportImage() || model.signatureImage());

  model.add(DataGroup::parse(test::dataGroup1()));
  model.add(DataGroup::parse(test::dataGroup2(picture)));
  EXPECT_THROW(model.add(DataGroup::parse(test::dataGroup1(test::exampleTD1))), ReaderError);
  EXPECT_EQ(model.documentType() + " " + model.documentNumber() + " " + model.nationality() + " " + model.lastName() +
                " " + model.firstName() + " " + model.dateOfBirth() + " " + model.gender() + " " +
                model.documentExpiryDate(),
            "P L898902C3 UTO ERIKSSON ANNA MARIA 740812 F 120415");
  EXPECT_FALSE(model.passportImage()) << "four bytes are no picture";
  EXPECT_EQ(model.find<DataGroup7>(), nullptr);
}

}  // namespace
}  // namespace tavlo::reader
