#include <Foundation/Hex.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <Foundation/JSONValue.hpp>
#include <TavloCommon/TavloCommon.hpp>
#include <TavloReader/DocumentSource.hpp>

#include <gtest/gtest.h>
#include <httplib.h>

#include <filesystem>
#include <functional>
#include <optional>
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
using foundation::JSONArray;
using foundation::JSONObject;
using foundation::JSONValue;

const fs::path samples = TAVLO_SAMPLES_DIR;
constexpr auto today = 2026y / 7 / 1;

/// A sound request of the document in samples/`name`.
JSONValue bodyOf(const std::string& name) {
  JSONObject doc;
  const auto document = reader::readDocument(samples / name);
  for (const auto& [id, group] : document.model.dataGroupsRead()) {
    doc.emplace(reader::name(id), foundation::toHexString(group->data()));
  }
  // The public key of RFC 6979, A.2.5.
  const std::string key =
      "0460FED4BA255A9D31C961EB74C6356D68C049B8923B61FA6CE669622E60F29FB6"
      "7903FE1008B8BC99A41AE9E95628BC64F2F1B20C2D7E9F5177A3C294D4462299";
  const auto selfie = common::base64UrlEncodedString(foundation::contentsOf(samples / "selfie.png")).value();
  return JSONObject{{"version", "1.0"},
                    {"doc", doc},
                    {"biometry", JSONObject{{"selfie", selfie}}},
                    {"signing", JSONObject{{"mdlPublicKey", key}}},
                    {"device", JSONObject{{"os", "iOS"}, {"os_version", "12"}}},
                    {"performance", JSONObject{{"dgreadtime", JSONObject{{"DG1", 0.25}, {"SOD", 3}}}}}};
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

Data encoded(const JSONValue& value) {
  return foundation::JSONEncoder().encode(value);
}

/// The results in the order biometry, certificate, integrity, registration, validity, then the whole.
std::string resultsOf(const JSONValue& body, const std::string& anchors, std::chrono::year_month_day day = today) {
  const Answer answer = check(Request::decode(encoded(body)), readAnchors(samples / anchors), day);
  const auto& v = answer.verification;
  std::string digits;
  for (const Result r : {v.biometry, v.certificate, v.integrity, v.registration, v.validity, answer.status}) {
    digits += std::to_string(static_cast<int>(r));
  }
  return digits;
}

TEST(Sandbox, checksDocuments) {
  const JSONValue good = bodyOf("td3-jpeg");
  EXPECT_EQ(resultsOf(good, "trust"), "000000");
  EXPECT_EQ(resultsOf(bodyOf("bad-dg1-flipped"), "trust"), "001001");
  EXPECT_EQ(resultsOf(good, "trust", 2034y / 12 / 31), "000000");
  EXPECT_EQ(resultsOf(good, "trust", 2035y / 1 / 1), "000011");
  EXPECT_EQ(resultsOf(with(good, "doc.DG2", std::nullopt), "trust"), "000000");
  EXPECT_EQ(resultsOf(with(good, "doc.DG1", std::nullopt), "trust"), "000022");
  EXPECT_EQ(resultsOf(with(good, "doc.SOD", std::nullopt), "trust"), "012001");
  EXPECT_EQ(resultsOf(with(good, "doc", JSONObject()), "trust"), "012021");
  EXPECT_EQ(resultsOf(with(good, "signing", JSONObject()), "trust"), "000202");
  EXPECT_EQ(resultsOf(with(good, "biometry", JSONObject()), "trust"), "200002");
  EXPECT_EQ(check(Request::decode(encoded(good)), {}, today).verification.certificate, Result::failed);
}

TEST(Sandbox, readsExpiryDatesInTheNearestCentury) {
  EXPECT_EQ(expiryDate("341231", today), 2034y / 12 / 31);
  EXPECT_EQ(expiryDate("760101", today), 2076y / 1 / 1);
  EXPECT_EQ(expiryDate("770101", today), 1977y / 1 / 1);
  EXPECT_EQ(expiryDate("050101", 2060y / 1 / 1), 2105y / 1 / 1);
  for (const auto* digits : {"", "34123", "341301", "270229", "3412<<", "<<<<<<"}) {
    EXPECT_FALSE(expiryDate(digits, today)) << digits;
  }
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
      {"version", 1, "version: not a text"},
      {"doc", std::nullopt, "doc: missing"},
      {"biometry", std::nullopt, "biometry: missing"},
      {"signing", JSONValue(), "signing: not an object"},
      {"device", JSONArray(), "device: not an object"},
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
      {"device.os", 1, "device.os: not a text"},
      {"device.model", std::string(257, 'x'), "device.model: longer than 256 bytes"},
      {"device.serial", "1", "device: unknown member \"serial\""},
      {"performance.dgreadtime.DG1", "1", "performance.dgreadtime.DG1: not a number"},
      {"performance.dgreadtime.DG1", -0.5, "performance.dgreadtime.DG1: negative"},
      {"performance.instrumentation", JSONObject(), "performance.instrumentation: not a text"},
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
    EXPECT_TRUE(errorOf(encoded(with(good, path, value))).starts_with(error)) << error;
  }
  for (const std::string& text : {std::string(), std::string("[]"), std::string("{\"doc\":{"), std::string("\"1.0\""),
                                  std::string("{\"\xff\":1}"), "[" + std::string(1'000'000, ',')}) {
    EXPECT_TRUE(errorOf(foundation::dataOf(text)).starts_with("the body: ")) << text.substr(0, 20);
  }
}

TEST(Sandbox, trustsOnlyFoldersOfCertificates) {
  const test::TemporaryFolder empty;
  EXPECT_EQ(readAnchors(samples / "trust").size(), 1U);
  for (const fs::path& folder : {samples / "td3-jpeg", empty.path(), empty.path() / "none"}) {
    EXPECT_THROW((void)readAnchors(folder), std::runtime_error) << folder;
  }
}

TEST(Sandbox, keepsItsAuthorityAndRenewsTheServersCertificate) {
  const test::TemporaryFolder temporary;
  const std::time_t start = std::time(nullptr);
  const auto prepare = [&](int days) { return Authority::prepare(temporary.path() / "a", start + days * 86'400L); };
  const Authority files = prepare(0);
  const Data authority = foundation::contentsOf(files.certificate);
  Data server = foundation::contentsOf(files.serverIdentity);
  (void)prepare(300);
  EXPECT_EQ(foundation::contentsOf(files.serverIdentity), server);

  const Authority other = Authority::prepare(temporary.path() / "b");
  const std::function<void()> renewals[] = {
      [&] { (void)prepare(340); },
      [&] { fs::copy_file(other.serverIdentity, files.serverIdentity, fs::copy_options::overwrite_existing); },
      [&] { foundation::writePrivately(files.serverIdentity, Data(100)); },
      [&] { fs::remove(files.serverIdentity); },
  };
  for (const auto& damage : renewals) {
    damage();
    (void)prepare(340);
    EXPECT_NE(std::exchange(server, foundation::contentsOf(files.serverIdentity)), server);
  }
  EXPECT_NE(server, foundation::contentsOf(other.serverIdentity));
  EXPECT_EQ(foundation::contentsOf(files.certificate), authority);
  EXPECT_THROW((void)prepare(3650), std::runtime_error);
  foundation::writePrivately(temporary.path() / "a" / "authority.pem", Data(100));
  EXPECT_THROW((void)prepare(0), std::runtime_error);
}

TEST(Sandbox, servesOverTLS) {
  const test::TemporaryFolder temporary;
  const test::Printed printed;
  const Authority authority = Authority::prepare(temporary.path());
  const Server server(authority, {.port = 0, .anchors = readAnchors(samples / "trust")});
  EXPECT_THROW(Server(authority, {.port = server.port()}), PortError);
  EXPECT_EQ(httplib::SSLClient("localhost", server.port()).Post("/verify").error(),
            httplib::Error::SSLServerVerification);

  const auto sent = [&](const std::string& method, const std::string& path, const std::string& body) {
    httplib::SSLClient client("localhost", server.port());
    client.set_ca_cert_path(authority.certificate.c_str());
    httplib::Request request;
    request.method = method;
    request.path = path;
    request.body = body;
    const auto result = client.send(request);
    if (!result) return std::pair(0, JSONValue());
    EXPECT_EQ(result->get_header_value("Sandbox"), "true");
    return std::pair(result->status, foundation::JSONSerialization::jsonObject(foundation::dataOf(result->body)));
  };
  const std::string good(foundation::textOf(encoded(bodyOf("td3-jpeg"))));
  std::vector<std::jthread> clients;
  for (int i = 0; i < 6; ++i) {
    clients.emplace_back([&] {
      const auto [status, answer] = sent("POST", "/verify", good);
      EXPECT_EQ(status, 200);
      EXPECT_EQ(*answer.member("status"), JSONValue(0));
      EXPECT_EQ(answer.member("error"), nullptr);
    });
  }
  clients.clear();
  const auto [status, answer] = sent("POST", "/verify", "{}");
  EXPECT_EQ(status, 400);
  EXPECT_EQ(*answer.member("error"), JSONValue("version: missing"));
  EXPECT_EQ(*answer.member("verification")->member("validity"), JSONValue(2));
  EXPECT_EQ(sent("GET", "/verify", "").first, 405);
  EXPECT_EQ(sent("POST", "/other", "{}").first, 404);
  EXPECT_EQ(sent("POST", "/verify", std::string(maximumBodySize + 1, ' ')).first, 413);

  for (const std::string& line : printed.lines()) {
    for (const auto* personal : {"SPECIMEN", "SYNTHIA", "TV0000042"}) EXPECT_EQ(line.find(personal), line.npos);
  }
  EXPECT_EQ(printed.lines().size(), 10U);
}

}  // namespace
}  // namespace tavlo::sandbox
