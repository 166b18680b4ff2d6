#include <TavloReader/DocumentSource.hpp>
#include <TavloReader/Log.hpp>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/Documents.hpp"
#include "support/TemporaryFolder.hpp"

namespace tavlo::reader {
namespace {

using namespace test;

/// A line for each finding: the file's name, its kind, its group, what it is, its oddities. Or why there is none.
template <class Source = std::vector<NamedFile>>
std::string summary(const Source& source) try {
  std::string text;
  for (const auto reading = readDocument(source); const auto& finding : reading.findings) {
    static constexpr const char* kinds[] = {": group|", ": aside|", ": malformed|"};
    text += finding.name + kinds[static_cast<std::size_t>(finding.kind)];
    text.append(finding.group ? name(*finding.group) : "").append("|" + finding.text);
    for (const auto& oddity : finding.oddities) text += "|" + oddity;
    text += "\n";
  }
  return text;
} catch (const ReaderError& error) {
  return error.what();
}

TEST(Document, NamesOnlyServeReports) {
  const std::pair<std::string, std::vector<std::string>> namesOfGroups[] = {
      {": malformed|DG1|", {"EF_DG1.bin", "DG1.BIN", "Datagroup1.bin", "0101", "SYNTH-DG1.bin", "efdg01"}},
      {": malformed|DG16|", {"dg16_A6.bin", "0110.bin"}},
      {": malformed|SOD|", {"EF.SOD", "011D"}},
      {": malformed|COM|", {"ef_com.bin", "011e"}},
      {": aside||no data group",
       {"DG17.bin", "DG0", "0111", "DG30", "photo.com", "DG1/x", "common.bin", "MYDG1.bin", "EF.DG1111111111111", ""}}};
  for (const auto& [expected, names] : namesOfGroups) {
    for (const auto& name : names) {
      EXPECT_TRUE(summary({{name, {0x99, 0x01, 0x02}}}).starts_with(name + expected)) << name;
      EXPECT_TRUE(summary({{name, opaqueGroup(0x6F)}}).starts_with(name + ": group|DG15|")) << name;
    }
  }
}

TEST(Document, EachFileIsAccountedForAndEachGroupThereOnce) {
  const NamedFile broken{"DG1", {}};
  const NamedFile misnamed{"DG2.bin", dataGroup1()};
  const std::pair<std::vector<NamedFile>, std::string> cases[] = {
      {{broken, misnamed},
       "DG1: malformed|DG1|DG1: the file ends where a tag is expected\n"
       "DG2.bin: group|DG1|DG1, 93 bytes|the name says DG2\n"},
      {{misnamed, broken, {"two", dataGroup1(exampleTD1)}}, "DG1 is there twice: as \"DG2.bin\" and as \"two\""},
      {{{"x", joined({dataGroup1(), Data{0}})}}, "x: group|DG1|DG1, 93 bytes|1 byte of padding cut\n"},
      {{{"DG7", Data(maximumElementaryFileSize + 1, 0x67)}}, "DG7: malformed|DG7|larger than any data group\n"},
      {{{"DG1", foundation::dataOf("{}\n")}}, "DG1: aside||text|the name says DG1\n"},
      {{{"x", foundation::dataOf("a text that begins like DG1")}}, "x: aside||text\n"},
      {{{"x", opaqueGroup(0x30)}}, "x: aside||a certificate, EF.CardSecurity or other signed data\n"},
      {{{"x", tlv(0x61, tlv(0x4F, Data{0xA0, 0x00}))}}, "x: aside||EF.DIR\n"},
      {{{"x", {0xFF, 0xD8, 0xFF, 0xE0}}}, "x: aside||a picture, JPEG\n"},
      {std::vector<NamedFile>(maximumFileCount + 1), "More than 64 files are no document"}};
  for (const auto& [files, expected] : cases) EXPECT_EQ(summary(files), expected);
  EXPECT_EQ(readDocument(std::vector<NamedFile>(maximumFileCount)).findings.size(), maximumFileCount);
}

TEST(Document, AFolderIsReadWithoutFollowingOddThings) {
  const TemporaryFolder folder;
  EXPECT_THROW(summary(folder / "missing"), std::system_error);
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_TRUE(summary(folder.path()).starts_with("There is no data group in"));
  std::filesystem::create_directory(folder / "DG7");
  EXPECT_EQ(summary(folder.path()), "DG7: malformed|DG7|no regular file\npipe: aside||no regular file\n");
  foundation::writePrivately(folder / "a\xFF", com(Data{0x61}));
  foundation::writePrivately(folder / "huge", Data(maximumElementaryFileSize + 1));
  std::filesystem::remove(folder / "DG7");
  EXPECT_EQ(summary(folder.path()),
            "a\uFFFD: group|COM|COM, 21 bytes\nhuge: aside||File too large\npipe: aside||no regular file\n");
}

TEST(NFCPassportModel, TakesEachGroupOnceAndHasNothingWithoutIt) {
  NFCPassportModel model;
  EXPECT_TRUE(model.documentNumber().empty() && !model.passportImage() && !model.signatureImage());
  const auto group = DataGroup::parse(dataGroup2(Data{0xFF, 0xD8, 0xFF, 0xE0}));
  model.add(group);
  EXPECT_FALSE(model.passportImage()) << "four bytes are no picture";
  EXPECT_THROW(model.add(group), ReaderError);
}

TEST(Log, WritesWholeLinesToStandardErrorFromItsThresholdOn) {
  testing::internal::CaptureStderr();
  Log::debug("dropped");
  Log::info("first");
  const Log::Level previousLevel = Log::setThreshold(Log::Level::error);
  Log::warning("dropped");
  EXPECT_EQ(Log::setThreshold(previousLevel), Log::Level::error);
  Log::warning("second");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "TavloReader info: first\nTavloReader warning: second\n");
}

}  // namespace
}  // namespace tavlo::reader
