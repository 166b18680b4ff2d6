#include <TavloReader/DocumentSource.hpp>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>

#include "support/Documents.hpp"
#include "support/TemporaryFolder.hpp"

namespace tavlo::reader {
namespace {

using test::Data;

/// A finding in one line: its kind, its group, what it is, its oddities.
std::string summary(const FileFinding& finding) {
  static constexpr const char* kinds[] = {"group", "aside", "malformed"};
  std::string text = kinds[static_cast<std::size_t>(finding.kind)];
  text += "|" + std::string(finding.group ? name(*finding.group) : "") + "|" + finding.text;
  for (const auto& oddity : finding.oddities) text += "|" + oddity;
  return text;
}

std::string findingOf(const std::string& name, const Data& bytes) {
  const DocumentReading reading = readDocument({NamedFile{name, bytes}});
  EXPECT_EQ(reading.findings.at(0).name, name);
  EXPECT_EQ(reading.model.dataGroupsRead().size(), reading.findings[0].kind == FileFinding::Kind::group ? 1U : 0U);
  return summary(reading.findings[0]);
}

TEST(Document, NamesOnlyServeReports) {
  const std::map<std::string, std::vector<std::string>> namesByGroup = {
      {"DG1", {"EF_DG1.bin", "DG1.BIN", "Datagroup1.bin", "EF.DG1", "0101", "SYNTH-DG1.bin", "efdg01"}},
      {"DG16", {"dg16_A6.bin", "0110.bin"}},
      {"SOD", {"EF.SOD", "011D"}},
      {"COM", {"ef_com.bin", "011e"}},
      {"", {"DG17.bin", "DG0", "0111", "common.bin", "MYDG1.bin", "EF.DG1111111111111", ""}}};
  for (const auto& [group, names] : namesByGroup) {
    const std::string expected = group.empty() ? "aside||no data group" : std::string("malformed|").append(group);
    for (const auto& name : names) {
      EXPECT_EQ(findingOf(name, {0x99, 0x01, 0x02}).substr(0, expected.size()), expected) << name;
      EXPECT_EQ(findingOf(name, test::opaqueGroup(0x6F)).substr(0, 10), "group|DG15") << name;
    }
  }
}

TEST(Document, EachFileIsAccountedFor) {
  const struct {
    const char* name;
    Data bytes;
    std::string_view finding;
  } cases[] = {
      {"DG2.bin", test::dataGroup1(), "group|DG1|DG1, 93 bytes|the name says DG2"},
      {"x", test::joined({test::dataGroup1(), Data{0}}), "group|DG1|DG1, 93 bytes|1 byte of padding cut"},
      {"DG7", Data(maximumElementaryFileSize + 1, 0x67), "malformed|DG7|larger than any data group"},
      {"DG1", {}, "malformed|DG1|DG1: the file ends where a tag is expected"},
      {"DG1.json", foundation::dataOf("{}\n"), "aside||text|the name says DG1"},
      {"notes", foundation::dataOf("a text that begins like DG1"), "aside||text"},
      {"blank", Data(1000, 0xFF), "aside||no data group"},
      {"csca", test::opaqueGroup(0x30), "aside||a certificate, EF.CardSecurity or other signed data"},
      {"EF.CardAccess", test::tlv(0x31, test::opaqueGroup(0x30)), "aside||EF.CardAccess"},
      {"EF.DIR", test::tlv(0x61, test::tlv(0x4F, Data{0xA0, 0x00})), "aside||EF.DIR"},
      {"face", {0xFF, 0xD8, 0xFF, 0xE0}, "aside||a picture, JPEG"},
  };
  for (const auto& [name, bytes, finding] : cases) EXPECT_EQ(findingOf(name, bytes), finding) << name;
}

TEST(Document, AGroupIsThereOnce) {
  const NamedFile one{"one", test::dataGroup1()};
  const NamedFile broken{"broken", test::dataGroup1("?")};
  EXPECT_EQ(readDocument({broken, one}).model.documentType(), "P");
  try {
    static_cast<void>(readDocument({one, broken, {"two", test::dataGroup1(test::exampleTD1)}}));
    FAIL();
  } catch (const ReaderError& error) {
    EXPECT_STREQ(error.what(), "DG1 is there twice: as \"one\" and as \"two\"");
  }
  EXPECT_NO_THROW(static_cast<void>(readDocument(std::vector<NamedFile>(maximumFileCount))));
  EXPECT_THROW(static_cast<void>(readDocument(std::vector<NamedFile>(maximumFileCount + 1))), ReaderError);
}

TEST(Document, AFolderIsReadWithoutFollowingOddThings) {
  const test::TemporaryFolder folder;
  EXPECT_THROW(static_cast<void>(readDocument(folder / "missing")), std::system_error);
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_THROW(static_cast<void>(readDocument(folder.path())), ReaderError);
  std::filesystem::create_directory(folder / "DG7");
  EXPECT_TRUE(readDocument(folder.path()).model.dataGroupsRead().empty()) << "a group that is malformed is told";

  foundation::writePrivately(folder / "b", test::dataGroup1());
  foundation::writePrivately(folder / "a\xFF", test::com(Data{0x61}));
  foundation::writePrivately(folder / "huge", Data(maximumElementaryFileSize + 1));
  const DocumentReading reading = readDocument(folder.path());
  std::string text;
  for (const auto& finding : reading.findings) text += finding.name + ": " + summary(finding) + "\n";
  EXPECT_EQ(text,
            "DG7: malformed|DG7|no regular file\na\uFFFD: group|COM|COM, 21 bytes\nb: group|DG1|DG1, 93 bytes\n"
            "huge: aside||File too large\npipe: aside||no regular file\n");

  const DocumentReading sample = readDocument(std::filesystem::path(TAVLO_SAMPLES_DIR) / "td3-jpeg");
  EXPECT_EQ(sample.model.passportImage()->height(), 531U);
  EXPECT_EQ(sample.model.signatureImage()->height(), 100U);
}

}  // namespace
}  // namespace tavlo::reader
