#include <Foundation/Hex.hpp>
#include <TavloCommon/FileImageStore.hpp>
#include <TavloStore/FileKeyStore.hpp>

#include <random>
#include <regex>
#include <set>
#include <sstream>

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

/// `tavlo docs` with a folder of its own.
class Docs : public ProgramTest {
 protected:
  /// Runs a command to its end.
  int docs(Words words) {
    words.insert(words.begin(), {TAVLO_PROGRAM, "docs", "--folder", documents_});
    return run(words);
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

/// A record with these members added, and these children.
std::string recordWith(const std::string& members, const std::string& children = "") {
  return "{" + members + R"("documentNumber":"1","nationality":"","lastName":"","firstName":"","dateOfBirth":"",)" +
         R"("gender":"","documentExpiryDate":"","children":[)" + children + "]}";
}

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
  write("in/text.png", "no picture"s);

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
  write("documents/.0123456789abcdef.tmp", "left behind"s);
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

  documents_ = folder_.path();
  expect(8, {"demo"});  // it has other files
}

std::string keyOf(const fs::path& keys, const std::string& alias) {
  const auto pair = store::FileKeyStore(keys).createKeypair(alias, security::SecKeyType::ellipticCurve, false);
  return foundation::toHexString(pair.value().publicKey->data());
}

/// Does `run`, which writes to the file `out`, in a process of its own.
template <class Run>
pid_t start(const fs::path& out, Run run) {
  const pid_t process = ::fork();
  if (process != 0) return process;
  [&]() noexcept { std::freopen(out.c_str(), "w", stdout) != nullptr ? run() : void(); }();
  ::_exit(1);
}

/// Kills processes that keep keys, pictures and documents side by side, as many as the variable TAVLO_KILLS says.
TEST_F(Docs, losesNothingToKills) {
  const int kills = std::stoi(std::getenv("TAVLO_KILLS") == nullptr ? "50" : std::getenv("TAVLO_KILLS"));
  const fs::path keys = folder_ / "keys", images = folder_ / "images";
  const auto picture = uikit::UIImage::decode(foundation::contentsOf(samples / "pictures/signature.jpg"));
  std::map<std::string, std::string> reported;  // public keys by alias
  const auto out = [&](std::size_t process) { return folder_ / std::to_string(process); };
  std::mt19937 random{std::random_device{}()};
  for (int i = 0; i < 4; ++i) (void)kept({"demo"});
  double seconds = 0.3;  // what the commands of a round take
  int killed = 0;
  for (int round = 0; killed < kills && !HasFailure(); ++round) {
    const Files before = files(".json");
    std::vector<std::string> ids;
    for (const auto& [file, json] : before) ids.push_back(file.substr(0, 12));
    std::shuffle(ids.begin(), ids.end(), random);
    std::vector<pid_t> processes;
    for (const auto* name : {"demo", "certify", "certify", "remove", "demo"}) {
      processes.push_back(start(out(processes.size()), [&] {
        const char* const id = *name == 'd' ? nullptr : ids[*name == 'c' ? 0 : 1].c_str();
        const char* const yes = *name == 'r' ? "--yes" : nullptr;
        ::execl(TAVLO_PROGRAM, "tavlo", "docs", "--folder", documents_.c_str(), name, id, yes, nullptr);
      }));
    }
    while (processes.size() < 8) {  // these compete for the same keys
      processes.push_back(start(out(processes.size()), [&] {
        for (int i = 0;; ++i) {
          const std::string alias = std::to_string(round) + "." + std::to_string(i), key = keyOf(keys, alias);
          std::cout << alias + " " + key + " " + common::FileImageStore(images).persist(picture).value() << std::endl;
        }
      }));
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(std::uniform_real_distribution(0.0, seconds)(random)));
    std::vector<int> isDone;
    for (const pid_t process : processes) {
      int status = 0;
      ::kill(process, SIGKILL);
      ::waitpid(process, &status, 0);
      isDone.push_back(status == 0 ? 1 : 0);
      killed += WIFSIGNALED(status) ? 1 : 0;
      EXPECT_TRUE(WIFSIGNALED(status) || status == 0) << status;
    }

    (void)strayFiles();  // whatever was left behind, no picture may be broken
    Files after = files(".json");
    for (const std::size_t demo : {0U, 4U}) {
      const std::string id = contentsOf(out(demo)).substr(0, 12);
      EXPECT_TRUE(id.empty() ? isDone[demo] == 0 : after.contains(id + ".json"));
    }
    const std::string certified = ids[0] + ".json", removed = ids[1] + ".json";
    const auto certificates = static_cast<int>(childrenIn(after[certified]) - childrenIn(before.at(certified)));
    EXPECT_TRUE(certificates >= isDone[1] + isDone[2] && certificates <= 2) << certificates;
    EXPECT_TRUE(isDone[3] == 0 || !after.contains(removed));
    for (const auto& [file, json] : before) {
      const bool mayDiffer = file == certified || (file == removed && !after.contains(file));
      EXPECT_TRUE(mayDiffer || after[file] == json) << file;
    }
    for (std::size_t i = 5; i < processes.size(); ++i) {
      std::istringstream lines(contentsOf(out(i)));
      for (std::string alias, key, name; lines >> alias >> key >> name && !lines.eof();) {
        EXPECT_EQ(reported.emplace(alias, key).first->second, key);
        EXPECT_TRUE(std::ranges::equal(common::FileImageStore(images).load(name).value().pixels(), picture.pixels()));
      }
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(docs(before.size() < 6 ? Words{"demo"} : Words{"remove", "--yes", ids[2]}), 0);
    seconds = 4 * std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    EXPECT_EQ(err_, "");
    EXPECT_EQ(strayFiles(), 0U);
    (void)keyOf(keys, std::to_string(round));
    for (const auto& entry : fs::directory_iterator(keys)) EXPECT_EQ(entry.path().extension(), ".p8");
  }
  for (const auto& [alias, key] : reported) EXPECT_EQ(keyOf(keys, alias), key);
  std::cout << killed << " killed, " << reported.size() << " keys and " << files(".json").size() << " documents kept\n";
}

/// What a command did to its files, as FileFaults.cpp logs it.
struct Calls {
  /// Of `folder` nobody knows whether it is on disk: what made it may have been killed.
  Calls(const fs::path& log, const fs::path& folder) {
    std::ifstream lines(log);
    std::set<std::string> unflushed = {folder};
    for (std::string call, path; lines >> call >> path;) {
      if (call == "failed") lines >> failed, std::swap(failed, path);
      const bool isPicture = path.ends_with(".png"), renames = call.starts_with("rename");
      const bool removes = call == "unlink" || call == "remove";
      // A power cut keeps what was flushed: so a file goes before its name, a name before the next, and a record before
      // the pictures that it no longer needs.
      isInOrder = isInOrder && call != "inheritable" && (unflushed.empty() || !(renames || (removes && isPicture)));
      if (call == "fsync") unflushed.erase(path);
      if (call == "write") unflushed.insert(path);
      if (renames || call == "mkdir" || (removes && !isPicture)) unflushed.insert(fs::path(path).parent_path());
    }
    isInOrder = isInOrder && unflushed.empty();
  }
  std::string failed;  ///< the call that was made to fail
  bool isInOrder = true;
};

/// Lets each call that commands make on their files fail in turn; with each error if the variable TAVLO_FAULTS is set.
TEST_F(Docs, keepsOrTellsWhateverFails) {
#ifdef TAVLO_SANITIZED
  GTEST_SKIP() << "A sanitizer wants to be loaded before all else.";
#endif
  const fs::path data = folder_ / "data";
  documents_ = folder_ / "prepared" / "documents";
  (void)kept({"demo"});
  const std::string id = kept({"demo"});
  documents_ = data / "documents";
  environment_[0] = "XDG_DATA_HOME=" + (data / "home").string();
  const fs::path keys = data / "home/tavlo/keys", record = documents_ / (id + ".json"), body = folder_ / "body",
                 log = folder_ / "log";
  const std::pair<Words, std::function<bool()>> rows[] = {
      {{"docs", "--folder", documents_, "demo"}, [&] { return files(".json").size() == 3; }},
      {{"docs", "--folder", documents_, "certify", id}, [&] { return childrenIn(contentsOf(record)) == 1; }},
      {{"docs", "--folder", documents_, "remove", id, "--yes"}, [&] { return !fs::exists(record); }},
      {{"request", "--passport", "%td3-jpeg", "--selfie", "%selfie.png", "--out", body},
       [&] { return fs::exists(body) && contentsOf(body).find(keyOf(keys, "TV0000042")) != std::string::npos; }}};
  int faults = 0;
  for (const auto& [command, isDone] : rows) {
    bool isOver = false;
    for (int at = 1; !isOver && !HasFailure(); ++at) {
      const std::array errors = {EINTR, ENOSPC, EIO, EROFS, EMFILE};
      for (std::size_t i = 0; i < errors.size() && !isOver; ++i) {
        if (i != static_cast<std::size_t>(at) % errors.size() && std::getenv("TAVLO_FAULTS") == nullptr) continue;
        const int error = errors.at(i);
        for (const auto& path : {data, body, log}) fs::remove_all(path);
        fs::copy(folder_ / "prepared", data, fs::copy_options::recursive);
        const auto fault = std::to_string(at) + " " + std::to_string(error) + " " + data.string() + " " + log.string();
        Words words = {"LD_PRELOAD=" FILE_FAULTS, "FILE_FAULTS=" + fault, TAVLO_PROGRAM};
        words.insert(words.end(), command.begin(), command.end());
        const int status = run(words);
        const Calls calls(log, data);
        const std::string reason = std::generic_category().message(error);
        SCOPED_TRACE(command[0] + " " + command[3] + ", " + calls.failed + " " + std::to_string(at) + ": " + reason);
        isOver = calls.failed.empty();
        EXPECT_TRUE(!isOver || (status == 0 && calls.isInOrder)) << err_ << contentsOf(log);
        if (isOver) break;
        ++faults;
        const bool isRetried = error == EINTR && std::set<std::string>{"open", "write", "fsync"}.contains(calls.failed);
        const bool isTold = status >= 3 && err_.find(reason) != std::string::npos;  // neither wrong use nor our fault
        EXPECT_TRUE(status == 0 ? isDone() : isTold && !isRetried) << status << err_;
        EXPECT_TRUE(isDone() || (run({words.begin() + 2, words.end()}) == 0 && isDone())) << err_;
        EXPECT_TRUE(strayFiles() == 0 || (docs({"demo"}) == 0 && strayFiles() == 0)) << err_;
        for (const auto& entry : fs::recursive_directory_iterator(data)) EXPECT_NE(entry.path().extension(), ".tmp");
      }
    }
  }
  std::cout << faults << " faults\n";
}

}  // namespace
}  // namespace tavlo::test
