#include <Foundation/Hex.hpp>
#include <Security/SecCertificate.hpp>
#include <TavloReader/DocumentSource.hpp>

#include <numeric>

#include "support/Documents.hpp"
#include "support/Program.hpp"
#include "support/RawServer.hpp"
#include "support/TestCertificate.hpp"

namespace tavlo::test {
namespace {

using namespace foundation;
using Arguments = std::vector<std::string>;

const std::string samples = TAVLO_SAMPLES_DIR;
const std::string selfie = samples + "/selfie.png";

/// The command line program in a folder of its own. In it "passport" is a specimen with DG3 and an odd text beside.
class Tavlo : public ProgramTest {
 protected:
  void SetUp() override {
    std::filesystem::copy(samples + "/td3-jpeg", folder_ / "passport");
    write("passport/DG3.bin", opaqueGroup(0x63));
    write("passport/DG11.bin", tlv(0x6B, tlv(0x5F0E, "A\x1B[2JB")));
    write("bare/DG14.bin", opaqueGroup(0x6E));
    write("cut/DG14.bin", opaqueGroup(0x6E));
    write("cut/DG1.bin", DataView(dataGroup1()).first(40));
    write("some/DG1.bin", dataGroup1());
    write("some/DG7.bin", DataView(opaqueGroup(0x67)).first(3));
    write("notes.txt", dataOf("notes"));
  }

  int tavlo(Arguments arguments) {
    arguments.insert(arguments.begin(), TAVLO_PROGRAM);
    return run(arguments);
  }

  /// Whether `text` is as the JSON Schema `name` in docs/ says.
  bool fits(const std::string& text, const std::string& name) {
    write("instance.json", dataOf(text));
    return run({JSONSCHEMA_PROGRAM, "-i", "@instance.json", samples + "/../docs/" + name + ".schema.json"}) == 0;
  }
  /// Expects that `text` fits, and that it does not once the first of each two words is put in place of the second.
  void expectFits(const std::string& text, const std::string& name, const std::string& faults) {
    EXPECT_TRUE(fits(text, name)) << err_;
    std::istringstream words(faults);
    for (std::string fault, sound; words >> fault >> sound;) {
      ASSERT_NE(text.find(sound), text.npos) << sound;
      EXPECT_FALSE(fits(std::string(text).replace(text.find(sound), sound.size(), fault), name)) << fault;
    }
  }
};

TEST_F(Tavlo, tellsOutcomesApartAndNothingPersonal) {
  expectOutcomes("outcomes.txt", [this](const Arguments& arguments) {
    const int status = tavlo(arguments);
    for (const auto* personal : {"SPECIMEN", "TV0000042", "545630303030303432"}) {
      EXPECT_EQ((out_ + err_).find(personal), std::string::npos) << personal;
    }
    return status;
  });
}

TEST_F(Tavlo, showsWhatADocumentHolds) {
  ASSERT_EQ(tavlo({"inspect", "@passport", "--portrait", "@portrait.png", "--signature", "@signature.png"}), 0);
  EXPECT_EQ(err_, "");
  for (const auto* part : {"\n  document number         TV0000042\n", "\n  check digit, composite  correct\n",
                           "\n  DG1.bin     DG1, 93 bytes\n", "\n  groups           DG1, DG2, DG7, DG11, DG12",
                           "\n  Full name  A\\x1b[2JB\n", "\n  EF_CardAccess.bin  EF.CardAccess\n"}) {
    expectPart(out_, part);
  }
  const auto model = reader::readDocument(folder_ / "passport").model;
  for (const auto& [name, picture] :
       {std::pair{"portrait.png", model.passportImage()}, {"signature.png", model.signatureImage()}}) {
    const auto written = uikit::UIImage::decode(contentsOf(folder_ / name));
    EXPECT_TRUE(std::ranges::equal(written.pixels(), picture.value().pixels()));
  }

  ASSERT_EQ(tavlo({"inspect", "%td3-jpeg", "--csca", "%trust"}), 0);
  expectPart(out_, "\n  verdict         trusted: ");
}

TEST_F(Tavlo, writesTheRequestWithoutSendingIt) {
  const Arguments request = {"request", "--passport", "@passport", "--selfie", selfie};
  ASSERT_EQ(tavlo(request), 0);
  EXPECT_EQ(err_, "TavloReader error: DataGroup not supported\n") << "once, for DG3";
  const std::string body = out_;
  for (const std::string name : {"DG1", "DG11"}) {
    expectPart(body, "\"" + name + "\":\"" + toHexString(contentsOf(folder_ / ("passport/" + name + ".bin"))) + "\"");
  }

  ASSERT_EQ(tavlo({"request", "--passport", "@passport", "--selfie", selfie, "--out", "@body.json"}), 0);
  EXPECT_EQ(out_, "");
  EXPECT_EQ(textOf(contentsOf(folder_ / "body.json")), body) << "the key pair is the same";
  EXPECT_EQ(modeOf(folder_ / "body.json"), 0600);

  // Named after the hash of the document number.
  const std::string keyFile = "home/tavlo/keys/c83487da061cfee2f663c53a7bd6ca7c9210619fa531d9f0aab3cfd324403d7e.p8";
  ASSERT_TRUE(std::filesystem::exists(folder_ / keyFile));
  write(keyFile, dataOf("damaged"));
  EXPECT_EQ(tavlo(request), 5);
  expectPart(err_, "is damaged");
}

TEST_F(Tavlo, postsTheBytesOfAFile) {
  Data body(300);
  std::iota(body.begin(), body.end(), std::uint8_t{0});
  write("body", body);
  const TestCertificate authority("DNS:authority");
  const TestCertificate certificate("IP:127.0.0.1", &authority);
  authority.writePEM(folder_ / "ca.pem");
  const auto tls = certificate.serverContext();
  // Where OpenSSL looks for a certificate of this name, which --trust must leave out.
  std::filesystem::create_symlink("ca.pem", folder_ / "a80af6cc.0");
  environment_.push_back("SSL_CERT_DIR=" + folder_.path().string());

  const std::string content("\0\xFF{\r\n", 5);
  const std::string answer = "HTTP/1.1 500 Broken\r\nContent-Length: 5\r\n\r\n" + content;
  const std::tuple<std::string, SSL_CTX*, std::string, int, std::string> rows[] = {
      {answer, nullptr, "@ca.pem", 0, ""},
      {answer, tls.get(), "@ca.pem", 0, ""},
      {answer, tls.get(), "%trust/csca.pem", 12, "name it with --trust"},
      {"", nullptr, "@ca.pem", 13, "(-1005)"},
      {"no HTTP\r\n\r\n", nullptr, "@ca.pem", 13, "(-1017)"}};
  for (const auto& [sent, context, trust, status, err] : rows) {
    SCOPED_TRACE(err + sent);
    RawServer server([&text = sent](auto& connection) { connection.read() && connection.send(text); }, context);
    EXPECT_EQ(tavlo({"post", "--body", "@body", "--url", server.url(), "--trust", trust}), status);
    EXPECT_EQ(out_, status == 0 ? content : "");
    expectPart(err_, err);
    EXPECT_EQ(server.requests().size(), status == 12 ? 0U : 1U);
    for (const auto& request : server.requests()) EXPECT_EQ(request.body, textOf(body));
  }
}

TEST_F(Tavlo, verifiesWithTheSandbox) {
  if (std::string(TAVLO_SERVICE_URL) != "https://localhost:8443") GTEST_SKIP() << "this build is for another service";
  const bool isFree = tavlo({"post", "--body", "@notes.txt", "--url", TAVLO_SERVICE_URL}) == 10;
  if (!isFree) GTEST_SKIP() << "port 8443 is in use";
  environment_.push_back("SSL_CERT_FILE=" + (folder_ / "sandbox/ca.pem").string());
  const Arguments example = {EXAMPLE_PROGRAM, "@passport", selfie};

  ASSERT_EQ(tavlo({"request", "--passport", "@passport", "--selfie", selfie}), 0);
  const std::string request = "\n" + out_ + "\n";
  EXPECT_EQ(tavlo({"verify", "--passport", "@passport", "--selfie", selfie, "--show-lines"}), 10);
  expectPart(err_, request);  // which is what verify sends
  EXPECT_FALSE(std::filesystem::exists(folder_ / "home/tavlo/images"));
  EXPECT_EQ(run(example), 1);
  expectPart(err_, "Could not connect to the server.\n");

  Program sandbox;
  sandbox.start({SANDBOX_PROGRAM, "--csca", samples + "/trust", "--state", folder_ / "sandbox"});
  ASSERT_TRUE(sandbox.waitForOut("Ctrl-C")) << sandbox.err();
  const auto verifyAndSave = [&](const std::string& document) {
    return tavlo({"verify", "--save", "--selfie", selfie, "--trust", "@sandbox/ca.pem", "--passport", document});
  };
  EXPECT_EQ(verifyAndSave(samples + "/td3-jpeg"), 0);
  expectPart(out_, R"("status":0,)");
  const std::string green = out_;
  ASSERT_TRUE(err_.starts_with("Kept as document ")) << err_;
  ASSERT_EQ(tavlo({"docs", "show", err_.substr(17, 12)}), 0);
  const auto path = out_.substr(out_.find((folder_ / "home").string()));
  const auto credential = contentsOf(path.substr(0, path.find('\n')));
  const auto key = security::publicKeyOfCertificate(textOf(credential));
  EXPECT_NE(request.find("\"mdlPublicKey\":\"" + foundation::toHexString(key)), request.npos);
  EXPECT_EQ(verifyAndSave(samples + "/bad-dg1-flipped"), 9);
  expectPart(out_, R"({"status":1,)");
  EXPECT_EQ(err_, "tavlo: The answer holds no certificate, so nothing was kept\n");
  const std::string red = out_;
  EXPECT_EQ(run(example), 0);
  expectPart(out_, R"({"status":1,)");  // its DG11 is not the one that was signed
#ifndef TAVLO_SANITIZED                 // Python itself is not
  EXPECT_EQ(run({PYTHON_PROGRAM, PYTHON_EXAMPLE, samples + "/td3-jpeg", selfie, C_LIBRARY}), 0) << err_;
  expectPart(out_, R"("status":0,)");
#endif

  ASSERT_EQ(tavlo({"post", "--body", "@notes.txt", "--url", std::string(TAVLO_SERVICE_URL) + "/verify"}), 0);
  const std::string refusal = out_;
  expectFits(refusal, "answer", R"("errors" "error")");
  expectFits(red, "answer", R"("status":3 "status":1 "Reason-1" "hash_mismatch")");
  expectFits(green, "answer", R"("cert":"x "cert":"- "other": "validity":)");
  expectFits(request, "request",
             R"("1.1" "1.0" "DG17" "DG1" "DG1":"6 "DG1":" "DG1":"G "DG1":"6 "selfie":"= "selfie":"i )"
             R"("os":null "os":"iOS" "biometrics" "biometry")");
}

}  // namespace
}  // namespace tavlo::test
