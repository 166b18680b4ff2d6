#include <Foundation/JSONEncoder.hpp>
#include <Foundation/JSONValue.hpp>
#include <Security/SecKey.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloCommon/TavloCommon.hpp>
#include <TavloReader/DocumentSource.hpp>

#include <gtest/gtest.h>
#include <httplib.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Authority.hpp"
#include "Checks.hpp"
#include "Server.hpp"
#include "support/Printed.hpp"
#include "support/TemporaryFolder.hpp"

namespace tavlo::sandbox {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using foundation::Data;
using foundation::JSONObject;
using foundation::JSONValue;

const fs::path samples = TAVLO_SAMPLES_DIR;
constexpr auto today = 2026y / 7 / 1;

/// The request that an app makes of the document in samples/`name`.
JSONValue bodyOf(const std::string& name) {
  const test::Printed silent;
  const auto document = reader::readDocument(samples / name);
  std::vector<std::shared_ptr<const reader::DataGroup>> groups;
  for (const auto& [id, group] : document.model.dataGroupsRead()) groups.push_back(group);
  const auto selfie = uikit::UIImage::decode(foundation::contentsOf(samples / "selfie.png"));
  const auto keys = security::generateKeyPair(security::SecKeyType::ellipticCurve);
  return foundation::JSONSerialization::jsonObject(
      TavloCA::verificationObject(groups, selfie, *keys.publicKey).value());
}

/// `body` with the member at `path`, such as "doc.DG1", set to `value` or, if absent, taken out.
JSONValue with(JSONValue body, const std::string& path, const std::optional<JSONValue>& value) {
  auto* object = body.getIf<JSONObject>();
  const auto dot = path.find('.');
  if (dot != std::string::npos) {
    JSONValue& inner = (*object)[path.substr(0, dot)];
    inner = with(inner, path.substr(dot + 1), value);
  } else if (value) {
    (*object)[path] = *value;
  } else {
    object->erase(path);
  }
  return body;
}

/// The results in the order biometry, certificate, integrity, registration, validity, then the whole.
std::string resultsOf(const JSONValue& body, std::chrono::year_month_day day = today) {
  const Answer answer =
      check(Request::decode(foundation::JSONEncoder().encode(body)), reader::trustAnchorsIn(samples / "trust"), day);
  const auto& v = answer.verification;
  std::string digits;
  for (const Result r : {v.biometry, v.certificate, v.integrity, v.registration, v.validity, answer.status}) {
    digits += std::to_string(static_cast<int>(r));
  }
  return digits;
}

TEST(Sandbox, checksDocuments) {
  const JSONValue good = bodyOf("td3-jpeg");
  EXPECT_EQ(resultsOf(good), "000000");
  EXPECT_EQ(resultsOf(bodyOf("bad-dg1-flipped")), "001001");
  EXPECT_EQ(resultsOf(good, 2034y / 12 / 31), "000000");
  EXPECT_EQ(resultsOf(good, 2035y / 1 / 1), "000011");
  EXPECT_EQ(resultsOf(with(good, "doc.DG2", std::nullopt)), "000000");
  EXPECT_EQ(resultsOf(with(good, "doc.DG1", std::nullopt)), "000022");
  EXPECT_EQ(resultsOf(with(good, "doc.SOD", std::nullopt)), "012001");
  EXPECT_EQ(resultsOf(with(good, "doc", JSONObject())), "012021");
  EXPECT_EQ(resultsOf(with(good, "performance.dgreadtime", JSONObject{{"DG1", 0.25}, {"SOD", 3}})), "000000");
  EXPECT_EQ(resultsOf(with(good, "signing", JSONObject())), "000202");
  EXPECT_EQ(resultsOf(with(good, "biometry", JSONObject())), "200002");
  EXPECT_EQ(check(Request::decode(foundation::JSONEncoder().encode(good)), {}, today).verification.certificate,
            Result::failed);
}

TEST(Sandbox, readsExpiryDatesInTheNearestCentury) {
  EXPECT_EQ(expiryDate("760101", today), 2076y / 1 / 1);
  EXPECT_EQ(expiryDate("770101", today), 1977y / 1 / 1);
  EXPECT_EQ(expiryDate("050101", 2060y / 1 / 1), 2105y / 1 / 1);
  for (const auto* none : {"", "34123", "341301", "270229", "3412<<"}) EXPECT_FALSE(expiryDate(none, today)) << none;
}

TEST(Sandbox, refusesBodiesAndNamesTheMember) {
  const JSONValue good = bodyOf("td3-jpeg");
  const std::string dg1 = *good.member("doc")->member("DG1")->getIf<std::string>();
  const Data png = foundation::contentsOf(samples / "selfie.png");
  const auto base64 = [](foundation::DataView bytes) { return common::base64UrlEncodedString(bytes).value(); };
  struct {
    std::string path;
    std::optional<JSONValue> value;
    std::string error;
  } const table[] = {
      {"version", std::nullopt, "version: missing"},
      {"version", "1.1", "version: not \"1.0\""},
      {"doc", std::nullopt, "doc: missing"},
      {"signing", JSONValue(), "signing: not an object"},
      {"performance", "", "performance: not an object"},
      {"extra", 1, "the body: unknown member \"extra\""},
      {"a\x1b[31m", 1, "the body: unknown member of an unusual name"},
      {"doc.DG17", "6100", "doc: unknown member \"DG17\""},
      {"doc.DG1", JSONValue(), "doc.DG1: not a text"},
      {"doc.DG1", "", "doc.DG1: empty"},
      {"doc.DG1", dg1 + "0", "doc.DG1: odd number of hexadecimal digits"},
      {"doc.DG1", "0x61", "doc.DG1: not hexadecimal"},
      {"doc.DG1", dg1 + "0000", "doc.DG1: padding follows the group"},
      {"doc.DG1", dg1.substr(2), "doc.DG1: "},
      {"doc.DG2", dg1, "doc.DG2: holds DG1"},
      {"doc.DG2", std::string(std::size_t{10} << 20, '0'), "doc.DG2: more than 4194304 bytes"},
      {"biometry.selfie", "+/+/", "biometry.selfie: not base64url"},
      {"biometry.selfie", base64(foundation::contentsOf(samples / "selfie.jpg")), "biometry.selfie: not a PNG"},
      {"biometry.selfie", base64(foundation::DataView(png).first(png.size() / 2)), "biometry.selfie: "},
      {"signing.mdlPublicKey", "04" + std::string(128, '1'),
       "signing.mdlPublicKey: not an uncompressed point on P-256"},
      {"signing.mdlPublicKey", std::string(132, '0'), "signing.mdlPublicKey: more than 65 bytes"},
      {"device.model", std::string(257, 'x'), "device.model: longer than 256 bytes"},
      {"device.serial", "1", "device: unknown member \"serial\""},
      {"performance.dgreadtime", JSONObject{{"DG1", "1"}}, "performance.dgreadtime.DG1: not a number"},
      {"performance.dgreadtime", JSONObject{{"DG1", -0.5}}, "performance.dgreadtime.DG1: negative"},
  };
  const auto errorOf = [](const Data& body) -> std::string {
    try {
      (void)Request::decode(body);
      return "none";
    } catch (const RefusedBody& refused) {
      return refused.what();
    }
  };
  for (const auto& [path, value, error] : table) {
    EXPECT_TRUE(errorOf(foundation::JSONEncoder().encode(with(good, path, value))).starts_with(error)) << error;
  }
  for (const auto* text : {"", "[]", "{\"doc\":{", "\"1.0\"", "{\"\xff\":1}"}) {
    EXPECT_TRUE(errorOf(foundation::dataOf(text)).starts_with("the body: ")) << text;
  }
  EXPECT_EQ(errorOf(Data(200'000, '[')), "the body: more values than a request has");
}

TEST(Sandbox, keepsItsAuthorityAndRenewsTheServersCertificate) {
  const test::TemporaryFolder temporary;
  const auto prepare = [&, start = std::time(nullptr)](const char* folder, long days) {
    return Authority::prepare(temporary.path() / folder, start + days * 86'400);
  };
  const Authority files = prepare("a", 0);
  const Data authority = foundation::contentsOf(files.certificate);
  Data server = foundation::contentsOf(files.serverIdentity);
  (void)prepare("a", 300);
  EXPECT_EQ(foundation::contentsOf(files.serverIdentity), server);

  // Too old, damaged, of another authority.
  const Data ofOther = foundation::contentsOf(prepare("b", 340).serverIdentity);
  for (const Data& unfit : {server, Data(100), ofOther}) {
    foundation::writePrivately(files.serverIdentity, unfit);
    (void)prepare("a", 340);
    const Data renewed = foundation::contentsOf(files.serverIdentity);
    EXPECT_TRUE(renewed != server && renewed != unfit);
    server = renewed;
  }
  EXPECT_EQ(foundation::contentsOf(files.certificate), authority);
  EXPECT_THROW((void)prepare("a", 3650), std::runtime_error);
  foundation::writePrivately(temporary.path() / "a" / "authority.pem", Data(100));
  EXPECT_THROW((void)prepare("a", 0), std::runtime_error);
}

TEST(Sandbox, servesOverTLS) {
  const test::TemporaryFolder temporary;
  const test::Printed printed;
  const Authority authority = Authority::prepare(temporary.path());
  const Server server(authority, {.port = 0, .anchors = reader::trustAnchorsIn(samples / "trust")});
  EXPECT_THROW(Server(authority, {.port = server.port()}), PortError);
  EXPECT_EQ(httplib::SSLClient("localhost", server.port()).Post("/verify").error(),
            httplib::Error::SSLServerVerification);

  const auto clientOf = [&](const std::string& host) {
    auto client = std::make_unique<httplib::SSLClient>(host, server.port());
    client->set_ca_cert_path(authority.certificate.c_str());
    client->set_read_timeout(60);
    return client;
  };
  const auto answerIn = [](const httplib::Result& result, int status) {
    if (!result) throw std::runtime_error(to_string(result.error()));
    EXPECT_EQ(result->status, status);
    EXPECT_EQ(result->get_header_value("Sandbox"), "true");
    return foundation::JSONSerialization::jsonObject(foundation::dataOf(result->body));
  };
  const std::string good(foundation::textOf(foundation::JSONEncoder().encode(bodyOf("td3-jpeg"))));
  std::vector<std::jthread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&, host = i % 2 == 0 ? "localhost" : "127.0.0.1"] {
      const JSONValue answer = answerIn(clientOf(host)->Post("/verify", good, ""), 200);
      EXPECT_EQ(*answer.member("status"), JSONValue(0));
      EXPECT_EQ(answer.member("error"), nullptr);
    });
  }
  threads.clear();

  const auto client = clientOf("localhost");
  const JSONValue refused = answerIn(client->Post("/verify", "{}", ""), 400);
  EXPECT_EQ(*refused.member("error"), JSONValue("version: missing"));
  EXPECT_EQ(*refused.member("verification")->member("validity"), JSONValue(2));
  (void)answerIn(client->Get("/verify"), 405);
  (void)answerIn(client->Post("/other", "{}", ""), 404);
  client->set_compress(true);  // a small body that grows over the limit
  (void)answerIn(client->Post("/verify", std::string(maximumBodySize + 1, ' '), "application/json"), 413);

  for (const std::string& line : printed.lines()) {
    for (const auto* personal : {"SPECIMEN", "SYNTHIA", "TV0000042"}) EXPECT_EQ(line.find(personal), line.npos);
  }
  EXPECT_EQ(printed.lines().size(), 10U);
}

}  // namespace
}  // namespace tavlo::sandbox
