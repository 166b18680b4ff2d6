#include <Foundation/Data.hpp>
#include <Foundation/JSONValue.hpp>
#include <UIKit/UIImage.hpp>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/Program.hpp"
#include "support/TemporaryFolder.hpp"

namespace tavlo::test {
namespace {

namespace fs = std::filesystem;
using foundation::JSONArray;
using foundation::JSONSerialization;
using foundation::JSONValue;
using Words = std::vector<std::string>;
/// Files of a folder, by their name or ID.
using Files = std::map<std::string, std::string>;

const std::string samples = TAVLO_SAMPLES_DIR;

std::string contentsOf(const fs::path& file) {
  return std::string(foundation::textOf(foundation::contentsOf(file)));
}

JSONValue parsed(const std::string& json) {
  return JSONSerialization::jsonObject(foundation::dataOf(json));
}

const JSONArray& childrenOf(const JSONValue& record) {
  return *record.member("children")->getIf<JSONArray>();
}

/// The names of the pictures of a record and its children.
std::set<std::string> picturesOf(const JSONValue& record) {
  std::set<std::string> names;
  for (const auto* key : {"portraitFilename", "signatureFilename"}) {
    if (const auto* name = record.member(key)) names.insert(*name->getIf<std::string>());
  }
  for (const JSONValue& child : childrenOf(record)) names.merge(picturesOf(child));
  return names;
}

/// A record with these members added, and these children.
std::string record(const std::string& members = "", const std::string& children = "") {
  return R"({"documentNumber":"1","nationality":"","lastName":"","firstName":"","dateOfBirth":"","gender":"",)"
         R"("documentExpiryDate":"",)" +
         members + R"("children":[)" + children + "]}";
}

/// `tavlo docs` with a folder of its own.
class Docs : public testing::Test {
 protected:
  [[nodiscard]] Words command(Words words) const {
    for (std::string& word : words) {
      if (word.starts_with('@')) word = folder_ / word.substr(1);
    }
    words.insert(words.begin(), {TAVLO_PROGRAM, "docs", "--folder", documents_});
    return words;
  }
  /// Runs a command to its end; each "@name" becomes the path of that file.
  int docs(const Words& words) {
    Program program;
    const int status = program.run(command(words));
    out_ = program.out();
    err_ = program.err();
    return status;
  }
  /// The ID that a command writes.
  std::string kept(const Words& words) {
    EXPECT_EQ(docs(words), 0) << err_;
    EXPECT_EQ(out_.size(), 13U) << out_;
    return out_.substr(0, 12);
  }
  void write(const std::string& name, const std::string& text) const {
    fs::create_directories((folder_ / name).parent_path());
    foundation::writePrivately(folder_ / name, foundation::dataOf(text));
  }
  [[nodiscard]] std::string stored(const std::string& id) const { return contentsOf(documents_ / (id + ".json")); }
  [[nodiscard]] Files records() const {
    Files all;
    for (const auto& entry : fs::directory_iterator(documents_)) {
      if (entry.path().extension() == ".json") all[entry.path().stem()] = contentsOf(entry.path());
    }
    return all;
  }
  /// The files in "images" and the temporary ones beside the records.
  [[nodiscard]] std::set<std::string> pictures() const {
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(documents_)) {
      const bool isRecord = entry.path().extension() == ".json" || entry.path().filename() == "documents.lock";
      if (!isRecord && entry.is_regular_file()) names.insert(entry.path().filename());
    }
    return names;
  }
  /// Checks that all records are whole with their pictures; gives how many files are there that none of them names.
  [[nodiscard]] std::size_t strayFiles() const {
    std::set<std::string> named;
    for (const auto& [id, json] : records()) named.merge(picturesOf(parsed(json)));
    for (const std::string& name : named) {
      EXPECT_NO_THROW((void)uikit::UIImage::decode(foundation::contentsOf(documents_ / "images" / name)));
    }
    return pictures().size() - named.size();
  }

  TemporaryFolder folder_;
  fs::path documents_ = folder_ / "documents";
  std::string out_;
  std::string err_;
};

TEST_F(Docs, keepsADocumentAllItsLife) {
  const std::string id = kept({"add", "--passport", samples + "/td3-jpeg"});
  std::string json = stored(id);
  json.insert(1, R"("x":[18446744073709551615,{"y":null}],)");  // of a later version, say
  write("documents/" + id + ".json", json);
  EXPECT_EQ(docs({"certify", id, "--images", "@seen"}), 0);
  EXPECT_EQ(docs({"certify", id}), 0);
  EXPECT_GT(uikit::UIImage::decode(foundation::contentsOf(folder_ / "seen/logo.png")).width(), 0U);
  const JSONValue original = parsed(json);
  const JSONValue certified = parsed(stored(id));
  for (const auto& [key, value] : *original.getIf<foundation::JSONObject>()) {
    EXPECT_TRUE(key == "children" || *certified.member(key) == value) << key;
  }
  ASSERT_EQ(childrenOf(certified).size(), 2U);
  EXPECT_EQ(*childrenOf(certified)[1].member("signatureFilename"), *certified.member("signatureFilename"));
  EXPECT_EQ(pictures().size(), 4U) << "two of the passport, a portrait of each certificate, no logo";
  EXPECT_EQ(strayFiles(), 0U);

  EXPECT_EQ(docs({"list"}), 0);
  EXPECT_EQ(out_, id + "  Passport TV0000042, SPECIMEN, SYNTHIA ALMA; children: 2\n");
  EXPECT_EQ(docs({"show", id, "--images", "@seen"}), 0);
  for (const auto* part : {"\n  last name        SPECIMEN\n", "\nChild 2\n  kind             Corona Certificate\n",
                           "never the result of a check\n  isExpired  false\n", "413 x 531 pixels\n"}) {
    EXPECT_NE(out_.find(part), std::string::npos) << part << out_;
  }
  EXPECT_EQ(uikit::UIImage::decode(foundation::contentsOf(folder_ / "seen/signature-2.png")).width(), 360U);
  EXPECT_EQ(docs({"show", id, "--json"}), 0);
  EXPECT_EQ(*parsed(out_).member("document"), certified);
  EXPECT_EQ(*parsed(out_).member("constants")->member("isValid"), JSONValue(true));

  EXPECT_EQ(docs({"export", id, "--out", "@out.json", "--images", "@out"}), 0);
  EXPECT_EQ(contentsOf(folder_ / "out.json"), stored(id));
  const std::string copy = kept({"import", "@out.json"});
  EXPECT_EQ(stored(copy), stored(id));
  EXPECT_EQ(docs({"remove", id}), 2) << "there is nobody to ask";
  EXPECT_EQ(docs({"remove", id, "--yes"}), 0);
  EXPECT_EQ(docs({"show", id}), 8);
  EXPECT_EQ(strayFiles(), 0U) << "the copy has its pictures";
  EXPECT_EQ(docs({"certify", copy}), 0);
  EXPECT_EQ(docs({"remove", copy, "--yes"}), 0);
  EXPECT_TRUE(pictures().empty());
  EXPECT_EQ(docs({"import", "@out.json"}), 3);
  EXPECT_TRUE(records().empty());
  (void)kept({"import", "@out.json", "--images", "@out"});
  EXPECT_EQ(strayFiles(), 0U);
  EXPECT_EQ(fs::status(documents_).permissions(), fs::perms::owner_all);
}

TEST_F(Docs, refusesUnfitRecordsAndKeepsNothingOfThem) {
  const std::string id = kept({"demo"});
  const std::string taken = *picturesOf(parsed(stored(id))).begin();
  fs::create_directory(folder_ / "brought");
  fs::copy(samples + "/selfie.png", folder_ / "brought/fine.png");
  fs::copy(samples + "/selfie.png", folder_ / "brought" / taken);
  write("brought/text.png", "no picture");
  const auto before = std::pair(records(), pictures());

  std::vector<std::pair<std::string, std::string>> rows = {
      {"", "malformed JSON"},
      {"[]", "an object is required"},
      {R"({"children":[]})", "documentNumber: the member is missing"},
      {record(R"("documentType":"X",)"), "documentType"},
      {record(R"("signatureFilename":"missing.png",)"), "missing.png, which is not there"},
      {record(R"("signatureFilename":"fine.png","portraitFilename":"text.png",)"), "text.png: "},
      {record(R"("signatureFilename":"fine.png","portraitFilename":")" + taken + R"(",)"), "Another picture"},
      {record() + std::string(1 << 20, ' '), "larger than 1 MiB"},
      {record(R"("x":)" + std::string(600, '[') + std::string(600, ']') + ","), "more than 512"},
  };
  std::string many = record();
  for (int i = 1; i < 1000; ++i) many += "," + record();
  rows.emplace_back(record("", many), "more than 1000 documents");
  for (const std::string name :
       {"../documents.lock", "/etc/hostname", "", "..", ".a.tmp", "a\\u0000.png", "a\\n.png"}) {
    const std::string bad = record(R"("portraitFilename":")" + name + R"(",)");
    rows.emplace_back(bad, "no plain file name");
    rows.emplace_back(record(R"("signatureFilename":"fine.png",)", record("", bad)), "no plain file name");
  }
  for (const auto& [json, error] : rows) {
    SCOPED_TRACE(json.substr(0, 300));
    write("in.json", json);
    EXPECT_EQ(docs({"import", "@in.json", "--images", "@brought"}), 3);
    EXPECT_NE(err_.find(error), std::string::npos) << err_;
    EXPECT_EQ(std::pair(records(), pictures()), before);
  }
  for (const auto* bad : {"", "../documents", "ABCDEFABCDEF", "0123456789ab0"})
    EXPECT_EQ(docs({"show", bad}), 2) << bad;
  EXPECT_EQ(docs({"show", "0123456789ab"}), 8);
}

TEST_F(Docs, keepsDamagedRecordsAndTheirPictures) {
  const std::string id = kept({"demo"});
  const std::string broken = kept({"demo"});
  const std::string sound = stored(broken);
  const auto allPictures = pictures();
  write("documents/" + broken + ".json", sound.substr(0, 100));
  write("documents/0123456789ab.json", record(R"("portraitFilename":"../x.png",)"));
  fs::create_directory(documents_ / "aaaaaaaaaaaa.json");
  write("documents/.0123456789abcdef.tmp", "left behind");
  write("documents/notes.json", sound);
  for (const Words& words : {Words{"list"}, Words{"show", broken}, Words{"certify", broken}, Words{"export", broken}}) {
    EXPECT_EQ(docs(words), 8);
    EXPECT_NE(err_.find(broken + ".json cannot be used: malformed JSON"), std::string::npos) << err_;
    EXPECT_EQ(out_.find(id) == 0, words.front() == "list") << out_;
  }
  EXPECT_EQ(docs({"certify", id}), 0);
  for (const auto* name : {"0123456789ab.json", "aaaaaaaaaaaa.json", "notes.json"}) {
    EXPECT_NE(err_.find(name), std::string::npos) << err_;
    EXPECT_TRUE(fs::exists(documents_ / name));
  }
  EXPECT_EQ(pictures().size(), allPictures.size() + 1) << "those of the damaged one are still there, no other remains";

  for (const auto* name : {"0123456789ab", "aaaaaaaaaaaa", broken.c_str()})
    EXPECT_EQ(docs({"remove", name, "--yes"}), 0);
  fs::remove(documents_ / "notes.json");
  EXPECT_EQ(docs({"certify", id}), 0);
  EXPECT_EQ(err_, "");
  EXPECT_EQ(strayFiles(), 0U);

  const std::string before = stored(id);
  for (const std::string& name : picturesOf(parsed(before))) write("documents/images/" + name, "damaged");
  EXPECT_EQ(docs({"show", id}), 0);
  EXPECT_NE(err_.find("portrait, "), std::string::npos) << err_;
  fs::rename(documents_ / "images", folder_ / "images");
  write("documents/images", "no folder, so no picture can be kept");
  for (const Words& words : {Words{"certify", id}, Words{"demo"}}) EXPECT_EQ(docs(words), 8);
  EXPECT_EQ(records(), (Files{{id, before}}));

  write("other/letter.txt", "somebody's");
  fs::permissions(folder_ / "other", fs::perms(0755));
  documents_ = folder_ / "other";
  EXPECT_EQ(docs({"demo"}), 8);
  EXPECT_EQ(fs::status(documents_).permissions(), fs::perms(0755));
}

TEST_F(Docs, losesNothingToOtherProcesses) {
  const std::string shared = kept({"demo"});
  std::vector<std::jthread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      Program program;
      EXPECT_EQ(program.run(command({"demo"})), 0) << program.err();
      const std::string id = program.out().substr(0, 12);
      EXPECT_EQ(program.run(command({"certify", shared})), 0) << program.err();
      EXPECT_EQ(program.run(command({"certify", id})), 0) << program.err();
      EXPECT_TRUE(i % 2 == 0 || program.run(command({"remove", id, "--yes"})) == 0) << program.err();
    });
  }
  threads.clear();
  const Files all = records();
  EXPECT_EQ(all.size(), 5U);
  for (const auto& [id, json] : all) EXPECT_EQ(childrenOf(parsed(json)).size(), id == shared ? 8U : 1U);
  EXPECT_EQ(strayFiles(), 0U);
}

/// Kills as many commands at random moments as the variable TAVLO_KILLS says.
TEST_F(Docs, survivesBeingKilled) {
  using Clock = std::chrono::steady_clock;
  const char* variable = std::getenv("TAVLO_KILLS");
  const int kills = variable == nullptr ? 50 : std::stoi(variable);
  std::mt19937 random{std::random_device{}()};
  const auto anyOf = [&](const Files& all) { return std::next(all.begin(), random() % all.size())->first; };
  const auto start = [&](const Words& words) {
    Words line = command(words);
    std::vector<char*> arguments;
    for (std::string& word : line) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    write("out", "");
    const pid_t process = ::fork();
    if (process == 0) {
      ::dup2(::open((folder_ / "out").c_str(), O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
      ::execv(arguments.front(), arguments.data());
      ::_exit(127);
    }
    return process;
  };

  const std::string names[] = {"demo", "certify", "remove"};
  const auto wordsOf = [](const std::string& name, const std::string& id) {
    return name == "demo" ? Words{name} : name == "certify" ? Words{name, id} : Words{name, id, "--yes"};
  };
  (void)kept({"demo"});
  std::map<std::string, Clock::duration> durations;  // of three runs together
  for (int i = 0; i < 9; ++i) {
    const auto begin = Clock::now();
    ::waitpid(start(wordsOf(names[i % 3], anyOf(records()))), nullptr, 0);
    durations[names[i % 3]] += Clock::now() - begin;
  }

  int killed = 0;
  int leaving = 0;
  for (int i = 0; i < kills && !HasFailure(); ++i) {
    const Files before = records();
    const std::string target = anyOf(before);
    const std::string& name = names[before.size() < 2 ? 0 : random() % 3];
    SCOPED_TRACE(name + " " + target);
    const pid_t process = start(wordsOf(name, target));
    std::this_thread::sleep_for(durations[name] / 3 * (random() % 1200) / 1000);
    ::kill(process, SIGKILL);
    int status = 0;
    ::waitpid(process, &status, 0);
    const bool isDone = WIFEXITED(status);
    killed += isDone ? 0 : 1;
    leaving += strayFiles() > 0 ? 1 : 0;

    EXPECT_TRUE(!isDone || WEXITSTATUS(status) == 0);
    EXPECT_EQ(docs({"list"}), 0);
    EXPECT_EQ(err_, "");
    Files after = records();
    const std::string reported = contentsOf(folder_ / "out");
    EXPECT_TRUE(reported.empty() || after.contains(reported.substr(0, 12)));
    EXPECT_LE(after.size(), before.size() + 1);
    for (const auto& [id, json] : before) {
      if (name == "demo" || id != target) {
        EXPECT_EQ(after[id], json);
      } else if (name == "remove") {
        EXPECT_TRUE(!after.contains(id) || (!isDone && after[id] == json));
      } else if (isDone || after[id] != json) {
        EXPECT_EQ(childrenOf(parsed(after[id])).size(), childrenOf(parsed(json)).size() + 1);
      }
    }
    EXPECT_EQ(docs(after.size() < 4 ? Words{"demo"} : Words{"remove", anyOf(after), "--yes"}), 0);
    EXPECT_EQ(strayFiles(), 0U);
  }
  std::cout << killed << " of " << kills << " commands were killed, " << leaving << " left files for the next one\n";
  EXPECT_GT(killed, kills / 2);
}

}  // namespace
}  // namespace tavlo::test
