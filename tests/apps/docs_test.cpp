#include <UIKit/UIImage.hpp>

#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <set>

#include "support/Program.hpp"

namespace tavlo::test {
namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;
using Files = std::map<std::string, std::string>;
using namespace std::string_literals;

const fs::path samples = TAVLO_SAMPLES_DIR;

std::string contentsOf(const fs::path& file) {
  return std::string(foundation::textOf(foundation::contentsOf(file)));
}

std::size_t childrenIn(const std::string& record) {
  const std::regex list("\"children\":");
  return static_cast<std::size_t>(std::distance(std::sregex_iterator(record.begin(), record.end(), list), {})) - 1;
}

/// A record with these members added, and these children.
std::string recordWith(const std::string& members, const std::string& children = "") {
  return "{" + members + R"("documentNumber":"1","nationality":"","lastName":"","firstName":"","dateOfBirth":"",)" +
         R"("gender":"","documentExpiryDate":"","children":[)" + children + "]}";
}

/// `tavlo docs` with a folder of its own.
class Docs : public ProgramTest {
 protected:
  /// Runs a command to its end, through `runner` if any.
  int docs(const Words& words, Words runner = {}) {
    runner.insert(runner.end(), {TAVLO_PROGRAM, "docs", "--folder", documents_});
    runner.insert(runner.end(), words.begin(), words.end());
    return run(runner);
  }
  /// Runs a command that ends with `status` and has `err` in what it says.
  void expect(int status, const Words& words, const std::string& err = "") {
    EXPECT_EQ(docs(words), status) << err_;
    EXPECT_NE(err_.find(err), std::string::npos) << err_;
  }
  /// The ID that a command writes.
  std::string kept(const Words& words) {
    expect(0, words);
    return out_.substr(0, out_.find('\n'));
  }
  void write(const std::string& name, const std::string& text) const {
    foundation::writePrivately(folder_ / name, foundation::dataOf(text));
  }
  [[nodiscard]] std::string stored(const std::string& id) const { return contentsOf(documents_ / (id + ".json")); }

  /// All files but the lock, by their path in the folder; those alone whose path has this ending.
  [[nodiscard]] Files files(const std::string& ending = "") const {
    Files all;
    for (const auto& entry : fs::recursive_directory_iterator(documents_)) {
      const std::string name = entry.path().lexically_relative(documents_);
      if (entry.is_regular_file() && name.ends_with(ending)) all[name] = contentsOf(entry.path());
    }
    all.erase("documents.lock");
    return all;
  }
  /// Checks that the pictures of all records are whole; gives how many files are there that no record names.
  [[nodiscard]] std::size_t strayFiles() const {
    Files others = files();
    std::set<std::string> named;
    const std::regex pattern(R"re("(?:portrait|signature)Filename":"([^"]*)")re");
    for (const auto& [file, json] : files(".json")) {
      named.insert(file);
      for (std::sregex_iterator i(json.begin(), json.end(), pattern), end; i != end; ++i) {
        const std::string& picture = *named.insert("images/" + (*i)[1].str()).first;
        EXPECT_NO_THROW((void)uikit::UIImage::decode(foundation::dataOf(others[picture]))) << picture;
      }
    }
    return others.size() - named.size();
  }

  fs::path documents_ = folder_ / "documents";
};

TEST_F(Docs, keepsADocumentAllItsLife) {
  const std::string id = kept({"add", "--passport", "%td3-jpeg"});
  const std::string unknown = R"("x":[18446744073709551615,{"y":null}])";  // of a later version, say
  write("documents/" + id + ".json", "{" + unknown + "," + stored(id).substr(1));
  expect(0, {"certify", id, "--images", "@seen"});
  expect(0, {"certify", id});
  expectPart(stored(id), unknown);
  EXPECT_EQ(strayFiles(), 0U) << "the logo is kept nowhere";
  expect(0, {"list"});
  EXPECT_EQ(out_, id + "  Passport TV0000042, SPECIMEN, SYNTHIA ALMA; children: 2\n");
  expect(0, {"show", id, "--images", "@seen"});
  for (const auto* part : {"\nChild 2\n  kind             Corona Certificate\n", ".png, 413 x 531 pixels\n",
                           "  SYNTHIA ALMA\n", "never the result of a check\n  isExpired  false\n"}) {
    expectPart(out_, part);
  }
  for (const auto* name : {"logo.png", "portrait.png", "signature-2.png"}) {
    EXPECT_NO_THROW((void)uikit::UIImage::decode(foundation::contentsOf(folder_ / "seen" / name))) << name;
  }
  expect(0, {"show", id, "--json"});
  expectPart(out_, "\"document\":" + stored(id));

  expect(0, {"export", id, "--out", "@out.json", "--images", "@out"});
  const std::string exported = contentsOf(folder_ / "out.json");
  EXPECT_EQ(exported, stored(id));
  const std::string copy = kept({"import", "@out.json"});
  expect(2, {"remove", id});  // there is nobody to ask
  expect(0, {"remove", id, "--yes"});
  expect(8, {"show", id});
  EXPECT_EQ(strayFiles(), 0U) << "the copy has its pictures";
  expect(0, {"remove", copy, "--yes"});
  EXPECT_TRUE(files().empty());
  expect(3, {"import", "@out.json"});  // its pictures are gone
  EXPECT_EQ(stored(kept({"import", "@out.json", "--images", "@out"})), exported);
  EXPECT_EQ(strayFiles(), 0U);
}

TEST_F(Docs, refusesUnfitRecordsAndKeepsNothingOfThem) {
  (void)kept({"demo"});
  const Files before = files();
  const std::string taken = before.rbegin()->first.substr("images/"s.size());
  for (const auto* name : {"in", "in/sub.png", "documents/images/folder.png"}) fs::create_directory(folder_ / name);
  for (const auto& name : {"fine.png"s, "folder.png"s, taken}) {
    fs::copy(samples / "selfie.png", folder_ / "in" / name);
  }
  write("in/text.png", "no picture");

  std::string many = recordWith("");
  for (int i = 1; i < 1000; ++i) many += "," + recordWith("");
  std::vector<std::pair<std::string, std::string>> rows = {
      {"", "malformed JSON"},
      {R"({"children":[]})", "documentNumber: the member is missing"},
      {recordWith(R"("documentType":"X",)"), "documentType"},
      {recordWith(R"("signatureFilename":"gone.png",)"), "gone.png, which is not there"},
      {recordWith(R"("portraitFilename":"fine.png","signatureFilename":"text.png",)"), "text.png: "},
      {recordWith(R"("portraitFilename":"sub.png",)"), "sub.png: Is a directory"},
      {recordWith(R"("portraitFilename":"folder.png",)"), "Something else"},
      {recordWith(R"("signatureFilename":")" + taken + R"(",)"), "Something else"},
      {recordWith("") + std::string(1 << 20, ' '), "larger than 1 MiB"},
      {recordWith(R"("x":)" + std::string(600, '[') + std::string(600, ']') + ","), "more than 512"},
      {recordWith("", many), "more than 1000 documents"}};
  for (const std::string name : {"../documents.lock", "/etc/hostname", "", "..", ".a.tmp", "a\\u0000", "a\\n"}) {
    const std::string bad = recordWith(R"("portraitFilename":")" + name + R"(",)");
    rows.emplace_back(bad, "no plain file name");
    rows.emplace_back(recordWith(R"("signatureFilename":"fine.png",)", recordWith("", bad)), "no plain file name");
  }
  for (const auto& [json, error] : rows) {
    SCOPED_TRACE(json.substr(0, 300));
    write("in.json", json);
    expect(3, {"import", "@in.json", "--images", "@in"}, error);
    EXPECT_TRUE(files() == before);
  }
  for (const auto* id : {"", "../documents", "ABCDEFABCDEF", "0123456789ab0"}) EXPECT_EQ(docs({"show", id}), 2) << id;
}

TEST_F(Docs, keepsDamagedRecordsAndTheirPictures) {
  const std::string id = kept({"demo"});
  const std::string broken = kept({"demo"});
  const std::size_t sound = files().size();
  write("documents/" + broken + ".json", stored(broken).substr(0, 100));
  write("documents/0123456789ab.json", recordWith(R"("portraitFilename":"../x.png",)"));
  write("documents/notes.json", stored(id));
  write("documents/.0123456789abcdef.tmp", "left behind");
  for (const auto* name : {"list", "show", "certify", "export"}) {
    expect(8, *name == 'l' ? Words{name} : Words{name, broken}, broken + ".json cannot be used: malformed JSON");
    EXPECT_EQ(out_.starts_with(id), *name == 'l') << out_;
  }
  expect(0, {"certify", id}, "notes.json cannot be used: its name");
  EXPECT_EQ(files().size(), sound + 3) << "two records and the certificate's portrait";
  for (const auto& name : {"0123456789ab"s, broken}) expect(0, {"remove", name, "--yes"});
  fs::remove(documents_ / "notes.json");
  expect(0, {"certify", id});
  EXPECT_EQ(err_, "");
  EXPECT_EQ(strayFiles(), 0U);

  fs::rename(documents_ / "images", folder_ / "images");
  expect(0, {"show", id}, "portrait, ");
  write("documents/images", "no folder, so no picture can be kept");
  const Files before = files();
  for (const Words& words : {Words{"certify", id}, Words{"demo"}}) EXPECT_EQ(docs(words), 8);
  EXPECT_EQ(files(), before);

  documents_ = folder_.path();
  expect(8, {"demo"});  // it has other files
}

TEST_F(Docs, losesNothingToOtherProcesses) {
  const std::string shared = kept({"demo"});
  const std::string docs = TAVLO_PROGRAM " docs --folder " + documents_.string();
  run({"sh", "-c",
       "for i in 1 2 3 4 5 6 7 8; do (id=$(" + docs + " demo); " + docs + " certify " + shared + "; " + docs +
           " certify $id; [ $i -gt 4 ] || " + docs + " remove --yes $id) & done; wait"});
  EXPECT_EQ(err_, "");
  EXPECT_EQ(files(".json").size(), 5U);
  for (const auto& [file, json] : files(".json")) EXPECT_EQ(childrenIn(json), file.starts_with(shared) ? 8U : 1U);
  EXPECT_EQ(strayFiles(), 0U);
}

/// Kills as many commands at random moments as the variable TAVLO_KILLS says.
TEST_F(Docs, survivesBeingKilled) {
  const char* variable = std::getenv("TAVLO_KILLS");
  const int kills = variable == nullptr ? 50 : std::stoi(variable);
  std::mt19937 random{std::random_device{}()};
  const auto anyOf = [&](const Files& all) {
    return std::next(all.begin(), static_cast<std::ptrdiff_t>(random() % all.size()))->first.substr(0, 12);
  };
  const auto wordsOf = [](const std::string& name, const std::string& id) {
    return name == "demo" ? Words{name} : name == "certify" ? Words{name, id} : Words{name, id, "--yes"};
  };
  const std::string names[] = {"demo", "certify", "remove"};
  double seconds[] = {1, 1, 1};  // what each took when it was last not killed
  (void)kept({"demo"});
  int killed = 0;
  while (killed < kills && !HasFailure()) {
    const Files before = files(".json");
    const std::string target = anyOf(before);
    const std::size_t which = before.size() < 2 ? 0 : random() % 3;
    const std::string& name = names[which];
    SCOPED_TRACE(name + " " + target);
    const double delay = seconds[which] * std::uniform_real_distribution(0.01, 1.2)(random);
    const auto begin = std::chrono::steady_clock::now();
    const int status = docs(wordsOf(name, target), {"timeout", "--foreground", "-s", "KILL", std::to_string(delay)});
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
    const bool isKilled = status == 128 + SIGKILL;
    EXPECT_TRUE(status == 0 || status == 124 || isKilled) << "124: it ended by itself just then";
    killed += isKilled ? 1 : 0;
    if (!isKilled) seconds[which] = passed.count();
    (void)strayFiles();  // whatever was left behind, no picture may be broken

    Files after = files(".json");
    EXPECT_TRUE(out_.empty() || after.contains(out_.substr(0, 12) + ".json"));
    EXPECT_LE(after.size(), before.size() + 1);
    for (const auto& [file, json] : before) {
      const bool isSame = after.contains(file) && after[file] == json;
      if (!file.starts_with(target) || name == "demo" || (isSame && isKilled)) {
        EXPECT_TRUE(isSame);
      } else if (name == "certify") {
        EXPECT_EQ(childrenIn(after[file]), childrenIn(json) + 1);
      } else {
        EXPECT_FALSE(after.contains(file));
      }
    }
    EXPECT_EQ(docs({"list"}), 0);
    EXPECT_EQ(docs(wordsOf(names[after.size() < 4 ? 0 : 2], anyOf(after))), 0);
    EXPECT_EQ(err_, "");
    EXPECT_EQ(strayFiles(), 0U);
  }
}

}  // namespace
}  // namespace tavlo::test
