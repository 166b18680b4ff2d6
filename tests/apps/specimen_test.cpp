#include <Foundation/JSONValue.hpp>
#include <specimen/Zone.hpp>

#include <algorithm>

#include "Checks.hpp"
#include "support/Program.hpp"
#include "support/Requests.hpp"

namespace tavlo::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace foundation;
using Arguments = std::vector<std::string>;

const fs::path samples = TAVLO_SAMPLES_DIR;

/// Whether all that `expected` says is in `report`, where it may stand among more members, but not among more elements.
bool saysAll(const JSONValue& report, const JSONValue& expected) {
  if (const auto* members = expected.getIf<JSONObject>()) {
    return std::ranges::all_of(*members, [&report](const auto& member) {
      const JSONValue* const found = report.member(member.first);
      return found != nullptr && saysAll(*found, member.second);
    });
  }
  const auto *found = report.getIf<JSONArray>(), *elements = expected.getIf<JSONArray>();
  return found == nullptr || elements == nullptr ? report == expected : std::ranges::equal(*found, *elements, saysAll);
}

/// The steps as the sandbox reports them of a request that the library makes, without their names.
JSONArray sandboxSteps(const std::string& sample) {
  const auto request = sandbox::Request::decode(requestOf(reader::readDocument(samples / sample).model));
  JSONArray steps;
  for (const auto& [check, result, reason, text] :
       sandbox::check(request, reader::trustAnchorsIn(samples / "trust"), 2026y / 7 / 1).reasons) {
    static constexpr const char* results[] = {"passed", "failed", "not checked"};
    if (check != "certificate" && check != "integrity") continue;
    JSONObject& step = *steps.emplace_back(JSONObject()).getIf<JSONObject>();
    // Nothing is expected of today's validity, and the service does not take DG3.
    if (steps.size() == 6 || text == "DG3 was not sent.") continue;
    step = {{"result", results[static_cast<int>(result)]}, {"reason", reason}};
  }
  return steps;
}

TEST(Samples, areWhatIsExpectedOfThem) {
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(samples)) {
    const fs::path& folder = entry.path();
    if (!fs::exists(folder / "expected.json")) continue;
    SCOPED_TRACE(folder.filename());
    ++count;
    const JSONValue expected = JSONSerialization::jsonObject(contentsOf(folder / "expected.json"));
    const JSONValue& steps = *expected.member("authentication")->member("steps");
    EXPECT_TRUE(saysAll(steps, sandboxSteps(folder.filename())));

    Program tavlo;
    const int status = tavlo.run({TAVLO_PROGRAM, "inspect", folder, "--csca", samples / "trust", "--json"});
    EXPECT_TRUE(saysAll(JSONSerialization::jsonObject(dataOf(tavlo.out())), expected)) << tavlo.out();
    const bool isTrusted = *expected.member("authentication")->member("trusted")->getIf<bool>();
    const bool isSound = isTrusted && expected.member("malformed")->getIf<JSONArray>()->empty();
    EXPECT_EQ(status == 0, isSound) << tavlo.err();
  }
  EXPECT_EQ(count, 31U);
}

TEST(Zone, hasNamesInLatinLetters) {
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
    (void)run({TAVLO_PROGRAM, "inspect", entry.path(), "--csca", "@trust", "--json"});
    const auto expected = JSONSerialization::jsonObject(contentsOf(original / "expected.json"));
    EXPECT_TRUE(saysAll(JSONSerialization::jsonObject(dataOf(out_)), expected)) << out_;
  }
  EXPECT_EQ(count, 29U);
}

TEST_F(MakePassport, makesMoreUnderOneAuthority) {
  const Arguments table[] = {{"--key", "RSA-3072", "--hash", "SHA-224", "--pss", "--key-identifier"},
                             {"--key", "P-224", "--hash", "SHA-512", "--explicit"},
                             {"--format", "TD2", "--code", "I", "--number", "D23145890734"},
                             {"--key", "brainpoolP512r1", "--explicit", "--expires", "2049-12-31"},
                             {"--tamper", "indefinite", "--key-identifier", "--tamper", "drop=COM"}};
  for (const Arguments& options : table) {
    SCOPED_TRACE(testing::PrintToString(options));
    ASSERT_EQ(make(options[1], options), 0) << err_;
    EXPECT_EQ(filesOf(options[1]).contains("EF_COM.bin"), options.back() != "drop=COM");
    EXPECT_TRUE(reader::authenticate(read(options[1]), {filesOf("csca").at("csca.pem")}).isTrusted());
  }
  EXPECT_EQ(read("TD2").documentNumber(), "D23145890734") << "which goes on in the optional data";
  EXPECT_EQ(read("TD2").find<reader::DataGroup1>()->oddities(), std::vector<std::string>());
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
