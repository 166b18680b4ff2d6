#include <Foundation/JSONValue.hpp>
#include <specimen/Zone.hpp>

#include "Checks.hpp"
#include "support/Documents.hpp"
#include "support/Program.hpp"
#include "support/Requests.hpp"

namespace tavlo::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace foundation;
using Arguments = std::vector<std::string>;

const fs::path samples = TAVLO_SAMPLES_DIR;

std::string textOf(const JSONValue& object, const char* key) {
  return *object.member(key)->getIf<std::string>();
}

/// The steps that must be as expected, of which the sandbox does not tell the names. Of today's validity no sample
/// expects anything.
std::string linesOf(const JSONValue& steps, bool isOfSandbox = false) {
  std::string lines;
  for (const JSONValue& step : *steps.getIf<JSONArray>()) {
    const std::string name = textOf(step, "name"), how = textOf(step, "result") + " " + textOf(step, "reason") + "\n";
    const bool isWithheld = isOfSandbox && name == "DG3";  // the service does not take it
    if (name != "validity_today") lines += isWithheld ? "not checked not_sent\n" : isOfSandbox ? how : name + " " + how;
  }
  return lines;
}

/// The names of files in a list of findings that have a member `key` with anything in it.
JSONValue filesWith(const JSONValue& findings, const char* key) {
  JSONArray names;
  for (const JSONValue& finding : *findings.getIf<JSONArray>()) {
    const auto* list = finding.member(key)->getIf<JSONArray>();
    if (list == nullptr || !list->empty()) names.push_back(*finding.member("file"));
  }
  return names;
}

/// A report of the command line in the form of what is expected.
JSONValue summaryOf(const JSONValue& report) {
  JSONObject texts;
  for (const JSONValue& item : *report.member("texts")->getIf<JSONArray>()) {
    texts[textOf(item, "label")] = *item.member("text");
  }
  std::size_t faces = 0;
  for (const JSONValue& picture : *report.member("pictures")->getIf<JSONArray>()) {
    EXPECT_EQ(picture.member("problem"), nullptr);
    if (textOf(picture, "group") == "DG2") ++faces;
  }
  JSONObject summary{
      {"verdict", *report.member("authentication")->member("trusted") == JSONValue(true) ? "trusted" : "untrusted"},
      {"steps", linesOf(*report.member("authentication")->member("steps"))},
      {"texts", texts},
      {"faces", faces},
      {"malformed", filesWith(*report.member("malformed"), "file")},
      {"oddities", filesWith(*report.member("groups"), "oddities")}};
  if (const auto* printed = report.member("printedData")) {
    summary["printedData"] = *printed;
    summary["printedData"].getIf<JSONObject>()->erase("checkDigits");
  }
  return summary;
}

/// The steps as the sandbox reports them of a request that the library makes.
std::string sandboxLines(const std::string& sample) {
  const auto request = sandbox::Request::decode(requestOf(reader::readDocument(samples / sample).model));
  const auto answer = sandbox::check(request, reader::trustAnchorsIn(samples / "trust"), 2026y / 7 / 1);
  constexpr std::size_t validityToday = 5;
  std::string lines;
  for (std::size_t i = 0; i < answer.reasons.size(); ++i) {
    static constexpr const char* results[] = {"passed", "failed", "not checked"};
    const auto& [check, result, reason, text] = answer.reasons[i];
    const bool isOfDocument = check == "certificate" || check == "integrity";
    if (isOfDocument && i != validityToday) lines.append(results[static_cast<int>(result)]).append(" " + reason + "\n");
  }
  return lines;
}

TEST(Samples, areWhatIsExpectedOfThem) {
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(samples)) {
    const fs::path& folder = entry.path();
    if (!fs::exists(folder / "expected.json")) continue;
    SCOPED_TRACE(folder.filename());
    ++count;
    JSONValue expected = JSONSerialization::jsonObject(contentsOf(folder / "expected.json"));
    EXPECT_EQ(sandboxLines(folder.filename()), linesOf(*expected.member("steps"), true));

    auto& members = *expected.getIf<JSONObject>();
    members["steps"] = linesOf(members["steps"]);
    Program tavlo;
    const int status = tavlo.run({TAVLO_PROGRAM, "inspect", folder, "--csca", samples / "trust", "--json"});
    EXPECT_EQ(summaryOf(JSONSerialization::jsonObject(dataOf(tavlo.out()))), expected) << tavlo.out();
    const bool isSound = members["verdict"] == JSONValue("trusted") && members["malformed"] == JSONValue(JSONArray());
    EXPECT_EQ(status == 0, isSound) << tavlo.err();
  }
  EXPECT_EQ(count, 31U);
}

TEST(Zone, isThatOfTheStandardsExamples) {
  using reader::MRZ;
  specimen::PrintedData data{.documentNumber = "L898902C3",
                             .lastName = "Eriksson",
                             .firstName = "Anna Maria",
                             .dateOfBirth = "19740812",
                             .gender = 'F',
                             .dateOfExpiry = 2012y / 4 / 15,
                             .optionalData = "ZE184226B"};
  EXPECT_EQ(specimen::zone(data), exampleTD3);
  data.format = MRZ::Format::TD1;
  data.documentCode = "I";
  data.documentNumber = "D23145890";
  data.optionalData.clear();
  EXPECT_EQ(specimen::zone(data), exampleTD1);
  data.format = MRZ::Format::TD2;
  EXPECT_EQ(specimen::zone(data), "I<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<D231458907UTO7408122F1204159<<<<<<<6");

  data.documentNumber = "D23145890734";  // goes on
  data.lastName = "Stevenson";
  data.firstName = "Peter John";
  data.dateOfBirth = "19340712";
  data.gender = 'M';
  data.dateOfExpiry = std::chrono::year(1995) / 7 / 12;
  EXPECT_EQ(specimen::zone(data), "I<UTOSTEVENSON<<PETER<JOHN<<<<<<<<<<D23145890<UTO3407127M95071227349<<<8");
  for (const auto& [name, text] : {std::pair{"Ægir Åse-Þórðar", "AEGIR<AASE<THORDAR"},
                                   {"d'Ünaÿ, ßtraße.", "DUENAY<SSTRASSE"},
                                   {" Łódź  Ňĳ Œ ", "LODZ<NIJ<OE"}}) {
    EXPECT_EQ(specimen::transliterated(name), text);
  }
  for (const auto* name : {"A1", "a×b", "ĸ", "Zoë\xC3", "Мюллер", "😀"}) {
    EXPECT_THROW((void)specimen::transliterated(name), std::invalid_argument) << name;
  }
}

/// The command that makes documents, in a folder of its own.
class MakePassport : public ProgramTest {
 protected:
  /// Runs it with an authority and, unless there are others, a portrait.
  int make(const std::string& out, const Arguments& options) {
    Arguments command{TAVLO_PROGRAM, "make-passport", "--out", "@" + out};
    if (options.empty() || options.front() != "--authority") command.insert(command.end(), {"--authority", "@csca"});
    if (options.empty() || options.front() != "--portrait") command.insert(command.end(), {"--portrait", portrait_});
    command.insert(command.end(), options.begin(), options.end());
    return run(command);
  }
  [[nodiscard]] reader::NFCPassportModel read(const std::string& out) const {
    return reader::readDocument(folder_ / out).model;
  }
  [[nodiscard]] std::map<std::string, Data> filesOf(const std::string& folder) const {
    std::map<std::string, Data> files;
    for (const auto& entry : fs::directory_iterator(folder_ / folder)) {
      EXPECT_EQ(modeOf(entry), 0600) << entry.path();
      files[entry.path().filename()] = contentsOf(entry.path());
    }
    return files;
  }

  const std::string portrait_ = samples / "pictures/portrait.jpg";
};

TEST_F(MakePassport, makesTheSamplesAgain) {
  for (const auto* name : {"make", "pictures"}) fs::copy(samples / name, folder_ / name, fs::copy_options::recursive);
  fs::create_directory(folder_ / "trust");
  ASSERT_EQ(run({"@make", TAVLO_PROGRAM}), 0) << err_;
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(folder_.path())) {
    const fs::path original = samples / entry.path().filename();
    if (!fs::exists(original / "expected.json")) continue;
    SCOPED_TRACE(original);
    ++count;
    for (const auto& file : fs::directory_iterator(original)) {
      const auto name = file.path().filename();
      if (name == "expected.json" || name == "EF_SOD.bin") continue;  // signatures differ each time
      EXPECT_EQ(contentsOf(entry.path() / name), contentsOf(file)) << name;
    }
    const auto report =
        reader::authenticate(reader::readDocument(entry).model, reader::trustAnchorsIn(folder_ / "trust"));
    const auto expected = JSONSerialization::jsonObject(contentsOf(original / "expected.json"));
    EXPECT_EQ(report.isTrusted(), textOf(expected, "verdict") == "trusted");
  }
  EXPECT_EQ(count, 29U);
}

TEST_F(MakePassport, signsInMoreWaysUnderOneAuthority) {
  const Arguments table[] = {{"--key", "RSA-3072", "--hash", "SHA-224", "--pss", "--key-identifier"},
                             {"--key", "P-224", "--hash", "SHA-512", "--explicit"},
                             {"--key", "brainpoolP512r1", "--explicit", "--expires", "2049-12-31"},
                             {"--tamper", "indefinite", "--key-identifier", "--tamper", "drop=COM"}};
  for (const Arguments& options : table) {
    SCOPED_TRACE(testing::PrintToString(options));
    ASSERT_EQ(make(options[1], options), 0) << err_;
    EXPECT_EQ(filesOf(options[1]).contains("EF_COM.bin"), options.back() != "drop=COM");
    EXPECT_TRUE(reader::authenticate(read(options[1]), {filesOf("csca").at("csca.pem")}).isTrusted());
  }
}

TEST_F(MakePassport, refusesWhatMakesNoDocumentAndOverwritesNothing) {
  for (const auto* name : {"notes", "full/csca.pem"}) write(name, dataOf("notes"));
  expectOutcomes("make-passport.txt", [this](const Arguments& options) {
    const int status = make("out", options);
    EXPECT_FALSE(fs::exists(folder_ / "out"));
    return status;
  });
  EXPECT_EQ(make("full", {}), 4);
  EXPECT_EQ(make("notes", {}), 4);
  EXPECT_EQ(filesOf("full").size(), 1U);
  write("csca/csca-key.pem", dataOf("notes"));
  EXPECT_EQ(make("out", {}), 3);
}

}  // namespace
}  // namespace tavlo::test
