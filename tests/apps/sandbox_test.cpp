#include <Foundation/Hex.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <Foundation/Owned.hpp>
#include <Foundation/URLError.hpp>
#include <Security/SecCertificate.hpp>
#include <TavloCommon/TavloCommon.hpp>

#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <future>

#include "Checks.hpp"
#include "Issuer.hpp"
#include "Markup.hpp"
#include "Server.hpp"
#include "support/Errors.hpp"
#include "support/Program.hpp"
#include "support/Requests.hpp"

namespace tavlo::sandbox {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using foundation::Data;
using foundation::JSONObject;
using foundation::JSONValue;
using foundation::Owned;

const fs::path samples = TAVLO_SAMPLES_DIR;
constexpr auto today = 2026y / 7 / 1;

JSONValue bodyOf(const std::string& sample) {
  return foundation::JSONSerialization::jsonObject(test::requestOf(reader::readDocument(samples / sample).model));
}

/// `body` with the member at `path`, such as "doc.DG1", set to `value` or, if absent, taken out.
JSONValue with(JSONValue body, const std::string& path, const std::optional<JSONValue>& value) {
  auto* object = body.getIf<JSONObject>();
  const auto dot = path.find('.');
  if (dot != path.npos) object = (*object)[path.substr(0, dot)].getIf<JSONObject>();
  object->erase(path.substr(dot + 1));
  if (value) (*object)[path.substr(dot + 1)] = *value;
  return body;
}

Data encoded(const JSONValue& body) {
  return foundation::JSONEncoder().encode(body);
}

/// The results in the order biometry, certificate, integrity, registration, validity, then the whole.
std::string resultsOf(const Answer& answer) {
  const std::string checks(foundation::textOf(foundation::JSONEncoder().encode(answer.verification)));
  return std::regex_replace(checks, std::regex("[^0-9]+"), "") + std::to_string(static_cast<int>(answer.status));
}
Answer checked(const JSONValue& body, std::chrono::year_month_day day = today, History* history = nullptr) {
  return check(Request::decode(encoded(body)), reader::trustAnchorsIn(samples / "trust"), day, history);
}

/// A picture as a selfie is sent: all black and transparent, but for the last pixel.
std::string selfieOf(std::size_t width, std::size_t height, std::uint8_t lastAlpha = 0) {
  Data pixels(width * height * 4);
  pixels.back() = lastAlpha;
  const auto image = uikit::UIImage::fromPixels(pixels, width, height, width * 4, uikit::PixelFormat::rgba);
  return common::base64UrlEncodedString(UIImagePNGRepresentation(image).value()).value();
}

TEST(Sandbox, checksDocuments) {
  const JSONValue good = bodyOf("td3-jpeg");
  const std::string rsa = foundation::toHexString(generateKeyPair(security::SecKeyType::rsa).publicKey->data());
  const std::tuple<const char*, std::optional<JSONValue>, const char*> table[] = {
      {"doc.DG2", std::nullopt, "000000"},
      {"doc.DG1", std::nullopt, "000022"},
      {"doc.SOD", std::nullopt, "012001"},
      {"doc", JSONObject(), "012021"},
      {"performance.dgreadtime", JSONObject{{"DG1", 0.25}, {"SOD", 3}}, "000000"},
      {"signing", JSONObject(), "000202"},
      {"signing.mdlPublicKey", rsa, "000000"},
      {"signing.mdlPublicKey", rsa.substr(2), "000101"},
      {"signing.mdlPublicKey", "04" + std::string(128, '1'), "000101"},
      {"biometry", JSONObject(), "200002"},
      {"biometry.selfie", selfieOf(100, 300, 200), "000000"},
      {"biometry.selfie", selfieOf(100, 301, 200), "100001"},
      {"biometry.selfie", selfieOf(99, 99, 200), "100001"},
      {"biometry.selfie", selfieOf(200, 200), "100001"}};
  for (const auto& [path, value, results] : table) {
    EXPECT_EQ(resultsOf(checked(with(good, path, value))), results) << path << results;
  }
  EXPECT_EQ(resultsOf(checked(good, 2034y / 12 / 31)), "000000");
  EXPECT_EQ(resultsOf(checked(good, 2035y / 1 / 1)), "000011");
  EXPECT_EQ(check(Request::decode(encoded(good)), {}, today).verification.certificate, Result::failed);

  EXPECT_EQ(expiryDate("760101", today), 2076y / 1 / 1);
  EXPECT_EQ(expiryDate("770101", today), 1977y / 1 / 1);
  EXPECT_EQ(expiryDate("050101", 2060y / 1 / 1), 2105y / 1 / 1);
  for (const auto* none : {"", "34123", "341301", "270229", "3412<<"}) EXPECT_FALSE(expiryDate(none, today)) << none;
}

TEST(Sandbox, remembersTheKeysOfGenuineDocuments) {
  const test::TemporaryFolder folder;
  const JSONValue first = bodyOf("td3-jpeg"), second = bodyOf("td3-jpeg");  // the same document, keys of their own
  std::optional<History> history(folder.path());
  const auto reasonOf = [&](const JSONValue& body) { return checked(body, today, &*history).reasons.back().reason; };
  EXPECT_EQ(reasonOf(bodyOf("bad-dg1-flipped")), "key") << "not genuine, so it takes nobody's place";
  EXPECT_EQ(reasonOf(first), "first_key");
  EXPECT_EQ(reasonOf(first), "same_key");
  EXPECT_EQ(resultsOf(checked(second, today, &*history)), "000101");
  history.emplace(folder.path());
  EXPECT_EQ(reasonOf(second), "other_key");

  const Data full(32 + 64 * History::maximumDocuments);
  foundation::writePrivately(folder / "history", full);
  history.emplace(folder.path());
  EXPECT_EQ(reasonOf(first), "first_key");
  EXPECT_EQ(reasonOf(first), "same_key");
  EXPECT_EQ(foundation::contentsOf(folder / "history").size(), full.size());
  foundation::writePrivately(folder / "history", Data(95));
  EXPECT_THROW(History(folder.path()), std::runtime_error);
}

TEST(Sandbox, refusesBodiesAndNamesTheMember) {
  const JSONValue good = bodyOf("td3-jpeg");
  const std::string dg1 = *good.member("doc")->member("DG1")->getIf<std::string>();
  const std::tuple<const char*, std::optional<JSONValue>, const char*> table[] = {
      {"version", "1.1", "version: not \"1.0\""},
      {"doc", std::nullopt, "doc: missing"},
      {"signing", JSONValue(), "signing: not an object"},
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
      {"biometry.selfie", "_9j_4AAQSkZJRgAB", "biometry.selfie: not a PNG"},
      {"biometry.selfie", selfieOf(200, 200).substr(0, 100), "biometry.selfie: "},
      {"signing.mdlPublicKey", std::string(2050, '0'), "signing.mdlPublicKey: more than 1024 bytes"},
      {"device.model", std::string(257, 'x'), "device.model: longer than 256 bytes"},
      {"device.serial", "1", "device: unknown member \"serial\""},
      {"performance.dgreadtime", JSONObject{{"DG1", "1"}}, "performance.dgreadtime.DG1: not a number"},
      {"performance.dgreadtime", JSONObject{{"DG1", -0.5}}, "performance.dgreadtime.DG1: negative"}};
  const auto errorOf = [](const Data& body) -> std::string {
    return test::errorOf<RefusedBody>([&] { return Request::decode(body); }).value().what();
  };
  for (const auto& [path, value, error] : table) {
    EXPECT_TRUE(errorOf(encoded(with(good, path, value))).starts_with(error)) << error;
  }
  for (const auto* text : {"", "[]", "{\"doc\":{", "\"1.0\"", "{\"\xff\":1}"}) {
    EXPECT_TRUE(errorOf(foundation::dataOf(text)).starts_with("the body: ")) << text;
  }
  EXPECT_EQ(errorOf(Data(200'000, '[')), "the body: more values than a request has");
}

TEST(Sandbox, keepsItsAuthorityAndRenewsTheServersCertificate) {
  const test::TemporaryFolder temporary;
  const auto prepare = [&, start = std::time(nullptr)](const char* folder, long days,
                                                       std::vector<std::string> addresses = {}) {
    return Authority::prepare(temporary.path() / folder, {.addresses = addresses, .now = start + days * 86'400});
  };
  const Authority files = prepare("a", 0);
  const Data authority = foundation::contentsOf(files.certificate);
  Data server = foundation::contentsOf(files.serverIdentity);
  (void)prepare("a", 300);
  EXPECT_EQ(foundation::contentsOf(files.serverIdentity), server);

  // Too old, damaged, of another authority.
  const Data ofOther = foundation::contentsOf(prepare("b", 340, {"192.0.2.1"}).serverIdentity);
  for (const Data& unfit : {server, Data(100), ofOther}) {
    foundation::writePrivately(files.serverIdentity, unfit);
    (void)prepare("a", 340);
    const Data renewed = foundation::contentsOf(files.serverIdentity);
    EXPECT_TRUE(renewed != server && renewed != unfit);
    server = renewed;
  }
  EXPECT_EQ(foundation::contentsOf(files.certificate), authority);
  EXPECT_NO_THROW((void)prepare("b", 340, {"192.0.2.1"}));
  EXPECT_THROW((void)prepare("b", 340, {"192.0.2.2"}), std::runtime_error) << "the authority may not sign for it";
  EXPECT_THROW((void)prepare("a", 3650), std::runtime_error);
  foundation::writePrivately(temporary.path() / "a" / "authority.pem", Data(100));
  EXPECT_THROW((void)prepare("a", 0), std::runtime_error);
  EXPECT_EQ(fs::status(temporary.path() / "a").permissions(), fs::perms::owner_all);
}

TEST(Sandbox, issuesCertificatesOverTheKeyThatWasSent) {
  const test::TemporaryFolder folder;
  (void)Issuer(folder.path());
  const Issuer issuer(folder.path());
  const auto certificateIn = [](std::string_view pem) {
    const Owned<BIO, BIO_free> text(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    return Owned<X509, X509_free>(PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr));
  };
  const auto authority = certificateIn(foundation::textOf(foundation::contentsOf(folder / "issuer-ca.pem")));
  for (const auto type : {security::SecKeyType::ellipticCurve, security::SecKeyType::rsa}) {
    const Data key = generateKeyPair(type).publicKey->data();
    const std::string pem = issuer.issue(key);
    const auto certificate = certificateIn(pem);
    EXPECT_EQ(X509_check_issued(authority.get(), certificate.get()), X509_V_OK);
    EXPECT_EQ(X509_verify(certificate.get(), X509_get0_pubkey(authority.get())), 1);
    EXPECT_EQ(security::publicKeyOfCertificate(pem), key);
    std::time_t later = std::time(nullptr) + 2 * oneDay;
    EXPECT_LT(X509_cmp_time(X509_get0_notAfter(certificate.get()), &later), 0);
  }
  EXPECT_THROW((void)issuer.issue(Data(65)), std::runtime_error);
}

std::string unseen(const std::string& number) {
  return "<span class=\"code\">U+" + number + "</span>";
}

TEST(Sandbox, writesStrangersTextsAsText) {
  const std::tuple<std::string, std::string, std::size_t> texts[] = {
      {"Zo\u00EB, \u041C\U0001F600", "Zo\u00EB, \u041C\U0001F600", 300},
      {"<b a=\"x\" b='y'>&lt;", "&lt;b a=&quot;x&quot; b=&#39;y&#39;&gt;&amp;lt;", 300},
      {std::string("\0\n\u0085abc", 7), unseen("0000") + unseen("000A") + unseen("0085") + "abc", 7},
      {"\u200B\u202E\u202C\U000E0041", unseen("200B") + unseen("202E") + unseen("202C") + unseen("E0041"), 300},
      {"a\xFFz\xE2\x80", "a\uFFFDz\uFFFD", 300},
      {"\u00EB\u00EB", "\u00EB…", 3}};
  for (const auto& [text, markup, limit] : texts) EXPECT_EQ(markupOf(text, limit), markup);

  const std::string value(160, 'A');
  const std::pair<std::string, std::string> bodies[] = {
      {"{\n\t\"</pre>\x1b\xFF", "{\n\t&quot;&lt;/pre&gt;" + unseen("001B") + "\uFFFD"},
      {"\"" + value + "\"", "&quot;" + value + "&quot;"},
      {"\"" + value + "-_\",\"b", "&quot;" + value.substr(0, 64) + "<i>… 98 more …</i>&quot;,&quot;b"}};
  for (const auto& [body, markup] : bodies) EXPECT_EQ(markupOfBody(body), markup);
  std::string body = "a";
  while (body.size() < 1'000'000) body += "\u20AC";
  EXPECT_LT(markupOfBody(body).size(), 20'100U);
  EXPECT_EQ(markupOfBody(body).find("\uFFFD"), body.npos) << "no character may be cut in two";

  EXPECT_EQ(filled("{{a}}-{{b}}", {{"a", "{{b}}"}, {"b", "1"}}), "{{b}}-1") << "what was filled in is left alone";
  EXPECT_THROW((void)filled("{{a}}", {{"b", ""}}), std::out_of_range);
}

/// A sandbox that runs at a free port and is trusted by this process, which asks only once whom to trust.
class RunningSandbox : public testing::Test {
 protected:
  void start(Server::Settings settings = {}) {
    server_.reset();
    static const test::TemporaryFolder folder;
    folder_ = folder.path();
    const Authority authority = Authority::prepare(folder_, {.flaw = settings.scenario.flaw});
    ::setenv("SSL_CERT_FILE", authority.certificate.c_str(), 1);
    settings.port = 0;
    settings.state = folder_;
    settings.anchors = reader::trustAnchorsIn(samples / "trust");
    server_.emplace(authority, std::move(settings));
  }

  /// What an app gets: a body, or the code of an error.
  [[nodiscard]] std::string post(const Data& body, const std::string& host = "localhost") const {
    std::promise<std::string> outcome;
    TavloCA::post(body, "https://" + host + ":" + std::to_string(server_->port()) + "/verify",
                  [&](const std::optional<Data>& answer, const std::exception_ptr& error) {
                    const auto failure =
                        test::errorOf<foundation::URLError>([&] { error ? std::rethrow_exception(error) : void(); });
                    outcome.set_value(failure ? std::to_string(static_cast<int>(failure->code()))
                                              : std::string(foundation::textOf(answer.value())));
                  });
    return outcome.get_future().get();
  }

  /// A connection byte by byte.
  class Client {
   public:
    explicit Client(std::uint16_t port) {
      BIO_set_conn_hostname(stream_.get(), ("127.0.0.1:" + std::to_string(port)).c_str());
      BIO_do_connect(stream_.get());
    }
    Client& send(const std::string& bytes) {
      BIO_write(stream_.get(), bytes.data(), static_cast<int>(bytes.size()));
      return *this;
    }
    /// What comes until `end` has come, or else until the connection ends.
    std::string receive(const std::string& end = "\n\n\n") {
      std::string all;
      for (char byte = 0; !all.ends_with(end) && BIO_read(stream_.get(), &byte, 1) == 1;) all += byte;
      return all;
    }

   private:
    Owned<SSL_CTX, SSL_CTX_free> context_{SSL_CTX_new(TLS_client_method())};
    Owned<BIO, BIO_free_all> stream_{BIO_new_ssl_connect(context_.get())};
  };
  [[nodiscard]] Client connect() const { return Client(server_->port()); }

  fs::path folder_;
  test::Printed printed_;
  std::optional<Server> server_;
};

std::string requestOf(const std::string& firstLine, const std::string& body = "", const std::string& fields = "") {
  return firstLine + " HTTP/1.1\r\nHost: localhost\r\n" + fields + "Content-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

using test::expectPart;

TEST_F(RunningSandbox, playsScenarios) {
  start();
  const JSONValue empty = with(with(bodyOf("td3-jpeg"), "doc", JSONObject()), "biometry", JSONObject());
  const auto bodyOfDocument = [&](const std::string& number) {
    const std::string zone = std::string(test::exampleTD3).replace(44, 9, number);
    return encoded(with(empty, "doc.DG1", foundation::toHexString(test::dataGroup1(zone))));
  };
  const std::string refused = R"({"status":1,"verification":{"biometry":2,"certificate":1,)";
  const std::pair<std::string, std::vector<std::string>> ofDocuments[] = {
      {refused, {"SCEN00000", "SCEN00503", "SCEN03001", "SCEN03101", "SCEN00307"}},
      {R"("biometry":0,"certificate":1)", {"SCEN00011"}},
      {R"("biometry":1,"certificate":1)", {"SCEN00012"}},
      {R"({"check":"certificate","result":0,"reason":"scenario",)", {"SCEN00021"}},
      {R"("integrity":0,)", {"SCEN00031"}},
      {R"("registration":1,)", {"SCEN00042"}},
      {R"("validity":2},)", {"SCEN00053"}},
      {"", {"SCEN01200"}},
      {"-1005", {"SCEN02000", "SCEN02001", "SCEN02002", "SCEN02010", "SCEN02011"}},
      {"-1017", {"SCEN02020"}},
      {"-1007", {"SCEN00308"}},
      {"-1022", {"SCEN00309"}},
      {"-1010", {"SCEN00310"}}};
  for (const auto& [expected, numbers] : ofDocuments) {
    for (const auto& number : numbers) {
      SCOPED_TRACE(number);
      const auto begun = std::chrono::steady_clock::now();
      expectPart(post(bodyOfDocument(number)), expected);
      EXPECT_EQ(std::chrono::steady_clock::now() - begun > 900ms, number.starts_with("SCEN03"));
    }
  }
  EXPECT_EQ(server_->arrivals().all().size(), Arrivals::maximumCount);

  const std::tuple<const char*, std::string, std::string> ofOptions[] = {
      {"status=404", "HTTP/1.1 404 Not Found\r\n", refused},
      {"empty=200", "Content-Length: 0\r\n", ""},
      {"server-certificate=expired", "", "-1202"},
      {"server-certificate=wrong-name", "", "-1202"},
      {"server-certificate=self-signed", "", "-1202"}};
  for (const auto& [scenario, head, outcome] : ofOptions) {
    SCOPED_TRACE(scenario);
    start({.scenario = Scenario::named(scenario)});
    if (!head.empty()) expectPart(connect().send(requestOf("POST /verify", "{}")).receive("\r\n\r\n"), head);
    expectPart(post(bodyOfDocument("L898902C3")), outcome);
    EXPECT_EQ(server_->arrivals().all().empty(), outcome == "-1202");
  }
  for (const auto* wrong : {"", "nothing", "status", "status=42", "drop=-1", "delay=1s", "garbage=1"}) {
    EXPECT_THROW((void)Scenario::named(wrong), ScenarioError) << wrong;
  }
  const Data page = foundation::contentsOf(samples / "../docs/sandbox.md");
  expectPart(std::string(foundation::textOf(page)),
             "<!-- scenarios -->\n" + scenarioTable() + "<!-- end of scenarios -->");
}

TEST_F(RunningSandbox, setsLimitsToHostileClients) {
  start({.limits = {.head = 600ms, .body = 1s, .bodyMemory = 500'000}});
  const std::string line = "POST /verify", chunked = line + " HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n";
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"PO", "", ""},  // cut off
      {"no HTTP\r\n\r\n", " 400 ", "not a request that can be served"},
      {line + " HTTP/1.1\r\nX: " + std::string(20'000, 'x'), " 431 ", "the head"},
      {requestOf("GET /nothing"), " 404 ", "at this path"},
      {requestOf("GET /verify"), " 405 ", "only POST"},
      {requestOf("GET /", std::string(70'000, ' ')), " 413 ", "too large"},
      {line + " HTTP/1.1\r\nContent-Length: 67108865\r\n\r\n", " 413 ", "too large"},
      {line + " HTTP/1.1\r\nContent-Length: 99999999999999999999\r\n\r\n", " 400 ", "not a request"},
      {line + " HTTP/1.1\r\nContent-Length: 9\r\nExpect: 100-continue\r\n\r\n", " 100 Continue", " 408 "},
      {line + " HTTP/1.1\r\nContent-Length: 9\r\n\r\n{}", " 408 ", "took too long"},
      {chunked + "7a121\r\n" + std::string(500'001, ' '), " 503 ", "too many large bodies"},
      {chunked + "x\r\n", " 400 ", "broken"},
      {requestOf(line, "{}", "Content-Encoding: gzip\r\n"), " 415 ", "neither compressed"},
      {requestOf(line, "{}", "Content-Type: multipart/form-data; boundary=x\r\n"), " 415 ", "nor as a form"},
      {requestOf("GET /") + requestOf(line, "{}"), "<!doctype html>", "version: missing"}};  // on one connection
  for (const auto& [request, status, text] : rows) {
    SCOPED_TRACE(request.substr(0, 60) + text);
    const std::string answer = connect().send(request).receive();
    for (const auto& part : {status, text}) expectPart(answer, part);
  }
}

TEST_F(RunningSandbox, answersAppsAndShowsWhatArrivedToBrowsersOnThisMachine) {
  start({.scenario = Scenario::named("registration=passed")});
  const Data good = encoded(bodyOf("p384-sha384-jp2"));
  std::vector<std::jthread> apps;
  for (int i = 0; i < 6; ++i) {
    apps.emplace_back([&, host = i % 2 == 0 ? "localhost" : "127.0.0.1"] {
      expectPart(post(good, host), R"({"signing":{"cert":"-----BEGIN CERTIFICATE-----\n)");
    });
  }
  apps.clear();
  const auto wide = with(bodyOf("bad-dg1-flipped"), "biometry.selfie", selfieOf(1536, 512, 240));
  const auto partial = with(bodyOf("dg2-missing"), "biometry", JSONObject());
  for (const Data& body : {encoded(wide), test::hostileRequest(), encoded(partial)}) (void)post(body);
  expectPart(post(foundation::dataOf(R"({"extra":"<img src=x onerror=hit()>"})" + std::string(2'500'000, ' '))),
             R"({"error":"the body: unknown member \"extra\"","status":1,"verification":{"biometry":2,)");
  EXPECT_EQ(printed_.lines().size(), 10U);
  for (const std::string& line : printed_.lines()) {
    for (const auto* personal : {"SPECI", "ALMA", "UT0000001"}) EXPECT_EQ(line.find(personal), line.npos);
    expectPart(line, " method=POST path=/verify status=");
  }
  EXPECT_THROW(Server(Authority::prepare(folder_), {.port = server_->port(), .state = folder_}), PortError);

  const auto get = [&](const std::string& path, const std::string& host = "[::1]:8443") {
    return connect().send("GET " + path + " HTTP/1.1\r\nConnection: close\r\nHost: " + host + "\r\n\r\n").receive();
  };
  const std::string signature = "\x89PNG\r\n", nothing = "There is nothing here";
  const std::pair<std::string, std::vector<std::string>> rows[] = {
      {"/", {"text/html; charset=utf-8", "No faces are compared", " data-most=\"20\">", "id=\"arrival-1\""}},
      {"/arrivals/1",
       {"arrival passed", "Every check passed, and a certificate", "/arrivals/1/portrait.png", "/arrivals/1/selfie.png",
        "<bdi>SPECIMEN</bdi>", "<bdi>UT0000001</bdi>", "<bdi>34-12-31</bdi>",
        "Passed: </span>DG2 is as it was signed. <code>hash_match</code>"}},
      {"/arrivals/7", {"arrival failed", "Did not pass: integrity.", "<bdi>SPECILEN</bdi>", "hash_mismatch"}},
      {"/arrivals/8",
       {"arrival failed", "<bdi>&amp;lt;script&amp;gt;hit=1&amp;lt;/script&amp;gt; &quot;&#39;&gt;", unseen("202E"),
        "&lt;/pre&gt;&lt;/details&gt;&lt;script&gt;hit=4", "<bdi>&quot;&lt;u&gt;&amp;&#39;&lt;i&gt;</bdi>",
        "<bdi>IMG ONERROR=&quot;&amp;#104;IT=3&quot;&gt;;</bdi>"}},
      {"/arrivals/9", {"arrival not-checked", "not everything was checked: biometry.", "<p class=\"none\">not sent"}},
      {"/arrivals/10",
       {"arrival failed", "Refused", "unknown member &quot;extra&quot;", "HTTP 400", "<code>registration=passed</code>",
        "2.5 MB of which the first 1.0 MB were kept", "&lt;img src=x onerror=hit()&gt;"}},
      {"/arrivals/1/portrait.png", {"image/png", signature}},
      {"/arrivals/8/portrait.png", {" 404 ", nothing}},
      {"/arrivals/9/selfie.png", {" 404 ", nothing}},
      {"/arrivals/1x", {" 404 ", nothing}},
      {"/arrivals/18446744073709551617", {" 404 ", nothing}}};
  for (const auto& [path, parts] : rows) {
    SCOPED_TRACE(path);
    expectPart(get(path, "rebound.example"), " 404 ");
    const std::string answer = get(path);
    expectPart(answer, "Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self';");
    for (const auto& part : parts) expectPart(answer, part);
    for (const auto* runs : {"<script(?! src=\"/assets/page.js\" defer>)", "<[^>]* (on[a-z]+|style)=", "<u>"}) {
      EXPECT_FALSE(!path.ends_with(".png") && std::regex_search(answer, std::regex(runs))) << runs << answer;
    }
  }
  const std::string picture = get("/arrivals/7/selfie.png");
  const auto image = uikit::UIImage::decode(foundation::dataOf(picture.substr(picture.find(signature))));
  EXPECT_EQ(image.pixels().size(), 512U * 170 * 4);
  EXPECT_EQ(image.pixels().back(), 240 / 12) << "the average of the pixels in its place";
  EXPECT_LT(get("/").find("Request 10 "), get("/").find("Request 9 ")) << "the newest comes first";
}

TEST_F(RunningSandbox, streamsArrivalsAndFinishesWhatIsUnderWayWhenItStops) {
  start({.scenario = Scenario::named("delay=1"), .limits = {.heartbeat = 50ms, .connections = 3, .streams = 1}});
  Client page = connect(), idle = connect();
  expectPart(page.send(requestOf("GET /events")).receive(":\n\n"), "Content-Type: text/event-stream\r\n");
  expectPart(idle.send(requestOf("GET /events")).receive("\r\n\r\n"), " 503 ");
  auto answer = std::async(std::launch::async, [&] { return post(encoded(JSONObject())); });
  while (printed_.lines().size() < 3) std::this_thread::sleep_for(10ms);
  expectPart(connect().send(requestOf("GET /")).receive(), " 503 ");
  const auto begun = std::chrono::steady_clock::now();
  server_.reset();
  expectPart(answer.get(), "version: missing");
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 2500ms);
  EXPECT_TRUE(idle.receive().ends_with("\"reasons\":[]}"));
  expectPart(page.receive(), "event: arrival\ndata: 3\n");

  test::Program program;
  EXPECT_EQ(program.run({"timeout", "--preserve-status", "1", SANDBOX_PROGRAM, "--port", "0", "--state", folder_}), 0);
  expectPart(program.out(), "\nStopped.\n");
}

}  // namespace
}  // namespace tavlo::sandbox
