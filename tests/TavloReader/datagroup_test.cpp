#include <TavloReader/NFCPassportModel.hpp>
#include <gtest/gtest.h>

#include "support/Documents.hpp"

namespace tavlo::reader {
namespace {

using foundation::textOf;
using namespace test;

const Data picture = {0xFF, 0xD8, 0xFF, 0xE0};
const Data names = joined({tlv(0x5C, Data{0x5F, 0x0E}), tlv(0x5F0E, "ERIKSSON<<ANNA<MARIA")});

/// What `DataGroup::parse` says against `file`, meant to be the group `id` if given; empty when it says nothing.
std::string refusal(const Data& file, std::optional<DataGroupId> id = {}) try {
  return (id ? DataGroup::parse(*id, file) : DataGroup::parse(file)) != nullptr ? "" : "no group";
} catch (const ReaderError& error) {
  return error.what();
}

TEST(DataGroup, EachFileIsKeptByteForByteWithoutPaddingOrRefused) {
  std::vector<Data> files = {com(Data{0x61, 0x75}), dataGroup1(), dataGroup2(picture), dataGroup7(picture)};
  const std::pair<Data, Data> others[] = {{{0x65, 0x68, 0x69, 0x6A, 0x70}, tlv(0x02, Data{0})},
                                          {{0x63, 0x76}, tlv(0x7F61, Data{0x02, 1, 0})},
                                          {{0x6B, 0x6C}, names},
                                          {{0x6E}, tlv(0x31, Data{})},
                                          {{0x66, 0x6D, 0x6F, 0x77}, tlv(0x30, Data{0x05, 0x00})}};
  for (const auto& [tags, content] : others) {
    for (const std::uint8_t tag : tags) files.push_back(tlv(tag, content));
  }
  std::string recognised;
  for (const Data& file : files) {
    const auto id = *DataGroup::recognise(file);
    recognised += std::string(name(id)) + " ";
    for (const Data& padding : {Data{}, Data(500), Data(3, 0xFF), Data{0x90, 0x00}, Data{0xFF, 0x90, 0x00}}) {
      const auto group = DataGroup::parse(joined({file, padding}));
      EXPECT_EQ(group->data(), file);
      EXPECT_EQ(group->oddities().size(), padding.empty() ? 0U : 1U);
    }
    for (const Data& trailing : {Data{1}, Data{0x00, 0xFF}, Data{0x90, 0x00, 0x90, 0x00}, Data{0x6A, 0x82}}) {
      EXPECT_NE(refusal(joined({file, trailing}), id), "");
    }
    for (std::size_t size = 0; size < file.size(); ++size) {
      const Data cut(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_NE(refusal(cut), "") << name(id) << " " << size;
      EXPECT_TRUE(refusal(cut, id).starts_with(name(id))) << size;
    }
  }
  EXPECT_EQ(recognised, "COM DG1 DG2 DG7 DG5 DG8 DG9 DG10 DG16 DG3 DG4 DG11 DG12 DG14 DG6 DG13 DG15 SOD ");
}

TEST(DataGroup, RefusalsSayWhereAndWhat) {
  const auto face = [](std::size_t at, std::uint8_t value) {
    Data record = faceRecord({picture});
    record[at] = value;
    return dataGroup2Around(record);
  };
  Data many;
  for (int i = 0; i < 257; ++i) many = joined({many, tlv(0x5F10, "1")});
  const std::pair<Data, std::string_view> cases[] = {
      {tlv(0x61, joined({tlv(0x5F1F, exampleTD3), Data{0x02, 0x00}})), "DG1: 2 bytes too many inside"},
      {{0x61, 3, 0x5F, 0x1F, 0x80}, "DG1: no sound length after tag 5F1F"},
      {com(Data(33, 0x61)), "COM: a list of 33 groups"},
      {face(11, 1), "DG2: a face record of 1 byte"},
      {face(17, 3), "DG2: a face of 3 bytes"},
      {face(19, 2), "DG2: a face record ends 12 bytes too early"},
      {dataGroup2Around(tlv(0xA1, Data{0xA1, 2, 0x30, 1}), 0x7F2E),
       "DG2: length 1 after tag 30 runs past the end, 0 bytes left"},
      {tlv(0x67, joined({tlv(0x02, Data{0, 1}), tlv(0x5F43, picture)})), "DG7: a count of 2 bytes"},
      {tlv(0x67, joined({tlv(0x02, Data{1}), tlv(0x5F40, picture)})), "DG7: tag 5F40 where 5F43 is expected"},
      {tlv(0x6B, joined({names, many})), "DG11: too many items"},
      {tlv(0x6C, joined({names, tlv(0xA0, Data{0x5F})})), "DG12: the file ends where a tag is expected"}};
  for (const auto& [file, expected] : cases) EXPECT_EQ(refusal(file), expected);
}

TEST(DataGroup, ContentIsParsed) {
  std::string zone(exampleTD3);
  zone[43] = zone[53] = '0';
  const std::pair<Data, std::vector<std::string>> odd[] = {
      {com(Data{0x61, 0x75, 0x42, 0x77}), {"lists the unknown tag 42"}},
      {dataGroup1(zone),
       {"the names fill their field and may be cut short", "wrong check digit: number",
        "wrong check digit: composite"}},
      {dataGroup2Around(names), {"a face record of an unknown format"}},
      {dataGroup2Around(tlv(0x82, names), 0x7F2E), {"a face record of an unknown format"}}};
  for (const auto& [file, oddities] : odd) EXPECT_EQ(DataGroup::parse(file)->oddities(), oddities);

  EXPECT_EQ(DataGroup2(dataGroup2Around(faceRecord({names, picture}), 0x7F2E)).faces().size(), 2U);
  const auto representation = [](DataView choice) {
    return tlv(0x30, joined({tlv(0x80, Data{0}), tlv(0xA1, choice)}));
  };
  const Data flat = representation(tlv(0xA0, tlv(0xA0, joined({tlv(0x81, names), tlv(0x80, picture)}))));
  const Data block = joined({tlv(0xA0, Data{}), tlv(0xA1, joined({flat, representation(tlv(0xA1, flat)), flat}))});
  for (const Data& wrapped : {block, tlv(0xA1, block), tlv(0x65, block), tlv(0xA1, tlv(0x65, tlv(0x30, block)))}) {
    const DataGroup2 faces(dataGroup2Around(wrapped, 0x7F2E));
    ASSERT_EQ(faces.faces().size(), 2U);
    EXPECT_EQ(textOf(faces.faces().back()), textOf(picture));
    EXPECT_EQ(faces.oddities(), std::vector<std::string>{"a face without a flat picture"});
  }

  const Data several = joined({tlv(0x02, Data{2}), tlv(0x5F0F, "DOE<<J"), tlv(0x5F0F, "M\xFCLLER")});
  const DataGroup11 eleven(tlv(0x6B, joined({tlv(0x5F0E, "ERIKSSON<<ANNA<MARIA<<<"), tlv(0xA0, several),
                                             tlv(0x5F2B, Data{0x19, 0x74, 0x08, 0x12}), tlv(0x5F2B, "1974"),
                                             tlv(0x5F16, picture), tlv(0x5F63, "?")})));
  std::string text = eleven.description() + "\n";
  for (const auto& item : eleven.items()) text += std::string(item.label) + ": " + item.text + "\n";
  EXPECT_EQ(text,
            "TavloReader.DataGroup11\nFull name: ERIKSSON, ANNA MARIA\nOther name: DOE, J\nOther name: M\uFFFDLLER\n"
            "Full date of birth: 19740812\nFull date of birth: 1974\nProof of citizenship: JPEG, 4 bytes\n");
  EXPECT_EQ(eleven.oddities(), std::vector<std::string>{"an item of the unknown tag 5F63"});
}

/// All that a zone says, with "!" before what is wrong or odd.
std::string summary(const MRZ& mrz) {
  std::string text(name(mrz.format));
  for (const auto& field :
       {mrz.documentCode, mrz.issuingState, mrz.documentNumber, mrz.nationality, mrz.lastName, mrz.firstName,
        mrz.dateOfBirth, mrz.gender, mrz.dateOfExpiry, mrz.optionalData, mrz.optionalData2}) {
    text += "|" + field;
  }
  for (const auto& [field, correct] : mrz.checkDigits) text += correct ? "" : " !" + std::string(field);
  return text + (mrz.namesFillField ? " !names" : "") + (mrz.foreignCharacters ? " !characters" : "");
}

TEST(MRZ, IsTakenApart) {
  // The first is a worked example of ICAO Doc 9303-10.
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"I<NLDXI85935F86999999990<<<<<<7208148F1108268NLD<<<<<<<<<<<4VAN<DER<STEEN<<MARIANNE<LOUISE",
       "TD1|I|NLD|XI85935F8|NLD|VAN DER STEEN|MARIANNE LOUISE|720814|F|110826|999999990| !composite !names"},
      {"I<ATASMITH<<JOHN<T<<<<<<<<<<<<<<<<<<123456789<HMD7406221M10123120122<<<0",
       "TD2|I|ATA|123456789012|HMD|SMITH|JOHN T|740622|M|101231||"},
      {"I<UTOD23145890<7349<AB<C<<<<<<7408122<1204159D<<XY<Z<<<<<<<1ERIKSSON<<<<<<<<<<<<<<<<<<<<<<",
       "TD1|I|UTO|D23145890734|D|ERIKSSON||740812||120415|AB<C|XY<Z"},
      {"PPUTOO<BRIEN<<<ANNA<<MARIA<<<<<<<<<<<<<<<<<<<<<<<<<<<<D<<74<<<<1X<<<<<<0<<<<<<<<<<<<<<<8",
       "TD3|PP|UTO||D|O BRIEN|ANNA MARIA|74<<<<||<<<<<<||"},
      {"P<UTOM\xDCLLER<<Ana<<<<<<<<<<<<<<<<<<<<<<<<<<<<L898902C35UTO7408123F1204158ZE184226B<<<<<01",
       "TD3|P|UTO|L898902C3|UTO|M\uFFFDLLER|Ana|740812|F|120415|ZE184226B| "
       "!number !birth !expiry !optional !composite !characters"}};
  for (const auto& [zone, expected] : cases) EXPECT_EQ(summary(MRZ::parse(zone)), expected);
  for (const auto length : {0U, 71U, 73U, 89U}) EXPECT_THROW((void)MRZ::parse(std::string(length, '<')), ReaderError);
}

}  // namespace
}  // namespace tavlo::reader
