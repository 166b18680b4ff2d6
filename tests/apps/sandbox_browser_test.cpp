#include <Foundation/JSONEncoder.hpp>
#include <Foundation/JSONValue.hpp>

#include "Authority.hpp"
#include "Server.hpp"
#include "support/Program.hpp"
#include "support/Requests.hpp"

namespace tavlo::sandbox {
namespace {

/// Chromium without a window, steered through chromedriver (W3C WebDriver). Takes any server certificate.
class Browser {
 public:
  Browser() {
    driver_.start({"chromedriver", "--port=0"});
    const std::string sign = "started successfully on port ";
    EXPECT_TRUE(driver_.waitForOut(sign) && driver_.waitForOut(".\n"));
    const int port = std::stoi(driver_.out().substr(driver_.out().find(sign) + sign.size()));
    base_ = "http://127.0.0.1:" + std::to_string(port) + "/session";
    const auto session = send("", R"({"capabilities": {"alwaysMatch": {
      "acceptInsecureCerts": true, "goog:loggingPrefs": {"browser": "ALL"}, "goog:chromeOptions": {
      "args": ["--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--window-size=1280,1000"]}}}})");
    if (const auto* id = session.member("sessionId")) base_ += "/" + *id->getIf<std::string>();
  }

  /// What comes of a command to the driver.
  foundation::JSONValue send(const std::string& path, const std::string& body, const char* method = "POST") {
    foundation::writePrivately(folder_ / "body", foundation::dataOf(body));
    const std::string file = "@" + (folder_ / "body").string();
    test::Program curl;
    const int status = curl.run({"curl", "-s", "--noproxy", "*", "-X", method, "--data-binary", file, base_ + path});
    const auto json = foundation::JSONSerialization::jsonObject(foundation::dataOf(status == 0 ? curl.out() : "{}"));
    const auto* value = json.member("value");
    EXPECT_TRUE(value != nullptr && value->member("error") == nullptr) << path << body << curl.out();
    return value == nullptr ? json : *value;
  }
  /// What the body of a JavaScript function returns, as JSON text.
  std::string run(const std::string& script) {
    return text(send("/execute/sync", R"({"args": [], "script": )" + text(script) + "}"));
  }
  /// Presses one key; those without a letter are in WebDriver's private characters.
  void press(const std::string& key) {
    (void)send("/actions", R"({"actions": [{"type": "key", "id": "k", "actions": [{"type": "keyDown", "value": ")" +
                               key + R"("}, {"type": "keyUp", "value": ")" + key + "\"}]}]}");
  }
  /// The messages of the console since the last call, as JSON text.
  std::string console() { return text(send("/se/log", R"({"type": "browser"})")); }

 private:
  static std::string text(const foundation::JSONValue& value) {
    return std::string(foundation::textOf(foundation::JSONEncoder().encode(value)));
  }

  test::TemporaryFolder folder_;
  test::Program driver_;
  std::string base_;
};

TEST(SandboxPageInBrowser, showsArrivalsLiveAndRunsNothingOfThem) {
  if (test::Program().run({"sh", "-c", "command -v chromium && command -v chromedriver && command -v curl"}) != 0) {
    GTEST_SKIP() << "chromium, chromedriver (chromium-driver) and curl are not installed";
  }
  const test::Printed silent;
  const test::TemporaryFolder folder;
  const std::filesystem::path samples = TAVLO_SAMPLES_DIR;
  const Authority authority = Authority::prepare(folder.path());
  ::setenv("SSL_CERT_FILE", authority.certificate.c_str(), 1);
  Server server(authority, {.port = 0, .state = folder.path(), .anchors = reader::trustAnchorsIn(samples / "trust")});
  const std::string url = "https://localhost:" + std::to_string(server.port()) + "/";
  Browser browser;
  const auto open = [&] { (void)browser.send("/url", R"({"url": ")" + url + "\"}"); };
  // Waits for it: what arrives and what is decoded takes a moment.
  const auto expect = [&](const std::string& expression, const std::string& value = "true") {
    std::string result;
    for (int i = 0; i < 1000 && (result = browser.run("return " + expression)) != value; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(result, value) << expression;
  };
  const auto post = [&](const foundation::Data& body) { TavloCA::post(body, url + "verify", [](auto...) {}); };
  const std::string topmost = "document.querySelector('#arrivals > :first-child')?.";

  open();
  expect("document.getElementById('live').textContent", "\"Live\"");
  expect("window.isSamePage = document.querySelector('.empty').checkVisibility()");
  for (const auto& [name, verdict] : {std::pair("td3-jpeg", std::string("Passed")), {"bad-dg1-flipped", "Failed"}}) {
    post(test::requestOf(reader::readDocument(samples / name).model));
    expect(topmost + "querySelector('h2').textContent.endsWith('" + verdict + "')");
    expect("document.getElementById('news').textContent.endsWith('" + verdict + "')");
  }
  expect("[...document.querySelectorAll('figure img')].filter(image => image.naturalWidth > 100).length >= 2");
  expect("window.isSamePage");
  EXPECT_EQ(browser.console(), "[]");

  // A hostile document, once put in by the script and once as the page brings it.
  post(test::hostileRequest());
  for (int i = 0; i < 2; ++i) {
    expect(topmost + "querySelector('.raw pre').textContent.includes(\"<img src=x onerror='hit=5'>\")");
    expect("typeof hit", "\"undefined\"");
    EXPECT_EQ(browser.console().find("Content Security Policy"), std::string::npos) << "nothing may even have tried";
    open();
  }

  constexpr auto tab = "\uE004", enter = "\uE007";
  const std::string isAtBody = "return document.activeElement.matches('#arrivals > :first-child .raw summary')";
  for (int i = 0; i < 20 && browser.run(isAtBody) != "true"; ++i) browser.press(tab);
  expect("getComputedStyle(document.activeElement).outlineStyle", "\"solid\"");
  browser.press(enter);
  browser.press(tab);
  expect("document.activeElement.matches('.raw pre') && document.activeElement.checkVisibility()");

  (void)browser.send("/goog/cdp/execute", R"({"cmd": "Emulation.setDeviceMetricsOverride",
      "params": {"mobile": true, "width": 320, "height": 640, "deviceScaleFactor": 1}})");
  expect("document.documentElement.scrollWidth", "320");
  (void)browser.send("", "", "DELETE");
}

}  // namespace
}  // namespace tavlo::sandbox
