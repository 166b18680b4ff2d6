#include <Foundation/Hex.hpp>
#include <Foundation/JSONValue.hpp>
#include <UIKit/UIImage.hpp>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <numeric>
#include <string>
#include <vector>

#include "support/Documents.hpp"
#include "support/Program.hpp"
#include "support/RawServer.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestCertificate.hpp"

namespace tavlo::test {
namespace {

using foundation::JSONArray;
using foundation::JSONObject;
using foundation::JSONSerialization;
using foundation::JSONValue;
using testing::Test;

const std::string selfie = TAVLO_SAMPLES_DIR "/selfie.png";

Data bytesOf(const std::filesystem::path& file) {
  return foundation::contentsOf(file);
}

JSONValue parsed(const std::string& text) {
  return JSONSerialization::jsonObject(foundation::dataOf(text));
}

const std::string* text(const JSONValue* value) {
  return value == nullptr ? nullptr : value->getIf<std::string>();
}

mode_t modeOf(const std::filesystem::path& file) {
  struct stat status {};
  return ::stat(file.c_str(), &status) == 0 ? status.st_mode & 0777U : 0;
}

/// The command line program, run in a folder of its own with documents in it.
class Tavlo : public Test {
 protected:
  void SetUp() override {
    const Data picture = bytesOf(selfie);
    passport_ = {
        {"EF_COM.bin", com(Data{0x61, 0x75, 0x63, 0x67, 0x6B, 0x6E})},
        {"DG1.bin", dataGroup1()},
        {"DG2.bin", dataGroup2(picture)},
        {"DG3.bin", opaqueGroup(0x63)},
        {"DG7.bin", dataGroup7(picture)},
        {"DG11.bin", tlv(0x6B, tlv(0x5F0E, "A\x1B[2JB"))},
        {"DG14.bin", opaqueGroup(0x6E)},
        {"EF_SOD.bin", opaqueGroup(0x77)},
    };
    for (const auto& [name, bytes] : passport_) write("passport/" + name, bytes);
    write("passport/ca.pem", foundation::dataOf("-----BEGIN CERTIFICATE-----\n"));
    write("cut/DG1.bin", DataView(passport_.at("DG1.bin")).first(40));
    write("cut/DG14.bin", passport_.at("DG14.bin"));
    write("nameless/DG14.bin", passport_.at("DG14.bin"));
    write("notes.txt", foundation::dataOf("notes"));
  }

  void write(const std::string& name, DataView bytes) {
    std::filesystem::create_directories((folder_ / name).parent_path());
    foundation::writePrivately(folder_ / name, bytes);
  }

  /// Runs tavlo to its end. Each "@name" in `arguments` becomes the path of that file.
  int run(std::vector<std::string> arguments) {
    for (std::string& argument : arguments) {
      if (argument.starts_with('@')) argument = folder_ / argument.substr(1);
    }
    arguments.insert(arguments.begin(), TAVLO_PROGRAM);
    Program program(arguments, {"XDG_DATA_HOME=" + (folder_ / "home").string()});
    const int status = program.wait();
    out_ = program.out();
    err_ = program.err();
    return status;
  }

  TemporaryFolder folder_;
  std::map<std::string, Data> passport_;
  std::string out_;
  std::string err_;
};

TEST_F(Tavlo, tellsOutcomesApartAndNothingPersonal) {
  const std::vector<std::string> document = {"--passport", "@passport", "--selfie", selfie};
  const auto with = [](std::vector<std::string> first, const std::vector<std::string>& rest) {
    first.insert(first.end(), rest.begin(), rest.end());
    return first;
  };
  struct Row {
    std::vector<std::string> arguments;
    int status;
    std::string out;
    std::string err;
  };
  const std::vector<Row> rows = {
      {{"--version"}, 0, "tavlo ", ""},
      {{"verify", "--help"}, 0, "--show-lines", ""},
      {{"post", "--help"}, 0, "  12  no secure connection", ""},
      {{}, 2, "", "subcommand is required"},
      {{"inspect"}, 2, "", "paths is required"},
      {{"inspect", "@passport", "--jsn"}, 2, "", "--jsn"},
      {{"inspect", "@passport", "@notes.txt"}, 2, "", "give one folder"},
      {{"inspect", "@nowhere"}, 3, "", "nowhere: cannot open"},
      {{"inspect", "@notes.txt"}, 3, "Left aside\n", "None of the files is a data group"},
      {{"inspect", "@cut"}, 3, "Malformed\n", "Malformed files: 1"},
      {{"inspect", "@nameless", "--portrait", "@p.png"}, 3, "DG14", "no portrait"},
      {{"request", "--passport", "@cut", "--selfie", selfie}, 3, "", "DG1.bin is malformed: DG1"},
      {{"request", "--passport", "@passport", "--selfie", "@notes.txt"}, 3, "", "notes.txt: "},
      {{"request", "--passport", "@nameless", "--selfie", selfie}, 5, "", "none without DG1"},
      {with({"request", "--out", "@no/such/folder"}, document), 4, "", "cannot create a file in"},
      {with({"verify", "--trust", "@notes.txt"}, document), 3, "", "no certificate in PEM form"},
      {{"post", "--body", "@nowhere", "--url", "http://localhost/"}, 3, "", "nowhere: "},
      {{"post", "--body", "@notes.txt", "--url", "not a url"}, 2, "", "Empty URL. Give a whole address"},
      {{"post", "--body", "@notes.txt", "--url", "ftp://localhost/"}, 14, "", "unsupported URL (-1002)"},
      {{"post", "--body", "@notes.txt", "--url", "http://name.invalid/"}, 10, "", "(-1003) Check the name"},
      {{"post", "--body", "@notes.txt", "--url", "http://127.0.0.1:1/"}, 10, "", "start that first"},
  };
  for (const auto& [arguments, status, out, err] : rows) {
    SCOPED_TRACE(arguments.empty() ? "no arguments" : arguments.front() + " " + arguments.back());
    EXPECT_EQ(run(arguments), status);
    EXPECT_NE(out_.find(out), std::string::npos) << out_;
    EXPECT_EQ(out_.empty(), out.empty()) << out_;
    EXPECT_NE(err_.find(err), std::string::npos) << err_;
    EXPECT_EQ(err_.empty(), err.empty()) << err_;
    for (const auto* personal : {"ERIKSSON", "L898902C3", "4c3839383930324333"}) {
      EXPECT_EQ((out_ + err_).find(personal), std::string::npos) << personal;
    }
  }
  EXPECT_FALSE(std::filesystem::exists(folder_ / "home/tavlo/images"));
}

TEST_F(Tavlo, showsWhatADocumentHolds) {
  ASSERT_EQ(run({"inspect", "@passport", "--portrait", "@portrait.png", "--signature", "@signature.png"}), 0) << err_;
  for (const auto* line :
       {"\n  document number         L898902C3\n", "\n  first name              ANNA MARIA\n",
        "\n  check digit, composite  correct\n", "\n  groups           DG1, DG2, DG3, DG7, DG11, DG14\n",
        "\n  Full name  A\\x1b[2JB\n", "\n  ca.pem  PEM text\n", "\n  DG7  PNG, "}) {
    EXPECT_NE(out_.find(line), std::string::npos) << line << " is not in\n" << out_;
  }
  EXPECT_EQ(err_, "");
  const auto original = uikit::UIImage::decode(bytesOf(selfie));
  for (const auto* name : {"portrait.png", "signature.png"}) {
    const auto written = uikit::UIImage::decode(bytesOf(folder_ / name));
    EXPECT_TRUE(std::ranges::equal(written.pixels(), original.pixels()));
    EXPECT_EQ(modeOf(folder_ / name), 0600U);
  }

  ASSERT_EQ(run({"inspect", "@passport", "--json"}), 0) << err_;
  const JSONValue report = parsed(out_);
  ASSERT_EQ(report.member("groups")->getIf<JSONArray>()->size(), passport_.size());
  for (const JSONValue& group : *report.member("groups")->getIf<JSONArray>()) {
    EXPECT_EQ(*group.member("bytes"), JSONValue(passport_.at(*text(group.member("file"))).size()));
  }
  EXPECT_EQ(*report.member("printedData")->member("lastName"), JSONValue("ERIKSSON"));
  EXPECT_EQ(*report.member("printedData")->member("checkDigits")->member("number"), JSONValue(true));
  EXPECT_EQ(*report.member("pictures")->getIf<JSONArray>()->at(0).member("width"), JSONValue(original.width()));
  EXPECT_EQ(*report.member("texts")->getIf<JSONArray>()->at(0).member("text"), JSONValue("A\x1B[2JB"));
  EXPECT_EQ(*report.member("leftAside")->getIf<JSONArray>()->at(0).member("file"), JSONValue("ca.pem"));
}

TEST_F(Tavlo, writesTheRequestWithoutSendingIt) {
  ASSERT_EQ(run({"request", "--passport", "@passport", "--selfie", selfie}), 0) << err_;
  const std::string body = out_;
  EXPECT_EQ(err_, "TavloReader error: DataGroup not supported\n");

  const std::map<std::string, std::string> keys = {{"COM", "EF_COM.bin"}, {"DG1", "DG1.bin"},   {"DG2", "DG2.bin"},
                                                   {"DG7", "DG7.bin"},    {"DG11", "DG11.bin"}, {"DG14", "DG14.bin"},
                                                   {"SOD", "EF_SOD.bin"}};
  JSONObject expected;
  for (const auto& [key, file] : keys) expected[key] = foundation::toHexString(passport_.at(file));
  const JSONValue request = parsed(body);
  EXPECT_EQ(*request.member("doc"), JSONValue(expected));

  ASSERT_EQ(run({"request", "--passport", "@passport", "--selfie", selfie, "--out", "@body.json"}), 0) << err_;
  EXPECT_EQ(out_, "");
  EXPECT_EQ(foundation::textOf(bytesOf(folder_ / "body.json")), body) << "the key pair is the same";
  EXPECT_EQ(modeOf(folder_ / "body.json"), 0600U);

  // The documented name of the key file: the SHA-256 hash of the number, here of L898902C3.
  const std::string keyFile = "home/tavlo/keys/5dd405f718715ff5114948365fe91b68435796955de80bfa70cb5b25d5378af3.p8";
  ASSERT_TRUE(std::filesystem::exists(folder_ / keyFile));
  write(keyFile, foundation::dataOf("damaged"));
  EXPECT_EQ(run({"request", "--passport", "@passport", "--selfie", selfie}), 5);
  EXPECT_NE(err_.find("is damaged"), std::string::npos) << err_;
}

TEST_F(Tavlo, postsTheBytesOfAFile) {
  using namespace std::string_literals;
  Data body(300);
  std::iota(body.begin(), body.end(), std::uint8_t{0});
  write("body", body);
  const TestCertificate authority("DNS:authority");
  const TestCertificate certificate("IP:127.0.0.1", &authority);
  authority.writePEM(folder_ / "ca.pem");
  const auto tls = certificate.serverContext();

  const std::string content = "\0\xFF{\r\n"s;
  const std::string answer = "HTTP/1.1 500 Broken\r\nContent-Length: 5\r\n\r\n" + content;
  struct Row {
    std::string answer;
    bool secure;
    std::vector<std::string> options;
    int status;
    std::string err;
  };
  const std::vector<Row> rows = {
      {answer, false, {}, 0, ""},
      {answer, true, {"--trust", "@ca.pem"}, 0, ""},
      {answer, true, {}, 12, "name it with --trust"},
      {"", false, {}, 13, "(-1005)"},
      {"no HTTP\r\n\r\n", false, {}, 13, "(-1017)"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.err + row.answer);
    RawServer server(
        [&row](RawServer::Connection& connection) {
          if (connection.read()) connection.send(row.answer);
        },
        row.secure ? tls.get() : nullptr);
    std::vector<std::string> arguments = {"post", "--body", "@body", "--url", server.url()};
    arguments.insert(arguments.end(), row.options.begin(), row.options.end());
    EXPECT_EQ(run(arguments), row.status);
    EXPECT_EQ(out_, row.status == 0 ? content : "");
    EXPECT_NE(err_.find(row.err), std::string::npos) << err_;
    EXPECT_EQ(err_.empty(), row.err.empty()) << err_;
    for (const auto& request : server.requests()) EXPECT_EQ(request.body, foundation::textOf(body));
    EXPECT_EQ(server.requests().empty(), row.status == 12);
  }
}

}  // namespace
}  // namespace tavlo::test
