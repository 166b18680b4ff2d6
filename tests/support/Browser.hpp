#pragma once

#include <Foundation/JSONEncoder.hpp>
#include <Foundation/JSONValue.hpp>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "support/Program.hpp"

namespace tavlo::test {

/// Chromium without a window, steered through chromedriver (W3C WebDriver). Takes any server certificate.
class Browser {
 public:
  [[nodiscard]] static bool isInstalled() {
    return Program().run({"sh", "-c", "command -v chromium && command -v chromedriver"}) == 0;
  }

  Browser() {
    driver_.start({"chromedriver", "--port=0"});
    const std::string sign = "started successfully on port ";
    if (!driver_.waitForOut(sign) || !driver_.waitForOut(".\n")) throw std::runtime_error("no chromedriver");
    const int port = std::stoi(driver_.out().substr(driver_.out().find(sign) + sign.size()));
    base_ = "http://127.0.0.1:" + std::to_string(port) + "/session";
    const auto session = send("", R"({"capabilities": {"alwaysMatch": {
      "acceptInsecureCerts": true, "goog:loggingPrefs": {"browser": "ALL"}, "goog:chromeOptions": {
      "args": ["--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--window-size=1280,1000"]}}}})");
    base_ += "/" + *session.member("sessionId")->getIf<std::string>();
  }
  ~Browser() {
    try {
      (void)send("", "", "DELETE");
    } catch (const std::exception& error) {
      ADD_FAILURE() << "the browser still runs: " << error.what();
    }
  }
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;

  void open(const std::string& url) { (void)send("/url", R"({"url": ")" + url + "\"}"); }
  /// What the body of a JavaScript function returns, as JSON text.
  std::string run(const std::string& script) {
    return text(send("/execute/sync", R"({"args": [], "script": )" + text(script) + "}"));
  }
  /// Runs `script` again and again until it returns true; false when that takes too long.
  [[nodiscard]] bool waitFor(const std::string& script) {
    int attempts = 500;
    while (run(script) != "true" && --attempts > 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return attempts > 0;
  }
  /// Presses one key; those without a letter are in WebDriver's private characters.
  void press(const std::string& key) {
    (void)send("/actions", R"({"actions": [{"type": "key", "id": "k", "actions": [{"type": "keyDown", "value": ")" +
                               key + R"("}, {"type": "keyUp", "value": ")" + key + "\"}]}]}");
  }
  void setWidth(int pixels) {
    (void)send("/goog/cdp/execute", R"({"cmd": "Emulation.setDeviceMetricsOverride", "params": {"mobile": true,
      "height": 800, "deviceScaleFactor": 1, "width": )" +
                                        std::to_string(pixels) + "}}");
  }
  /// The messages of the console since the last call, as JSON text.
  std::string console() { return text(send("/se/log", R"({"type": "browser"})")); }

 private:
  static std::string text(const foundation::JSONValue& value) {
    return std::string(foundation::textOf(foundation::JSONEncoder().encode(value)));
  }
  static std::size_t append(const char* bytes, std::size_t, std::size_t count, void* answer) {
    static_cast<std::string*>(answer)->append(bytes, count);
    return count;
  }
  foundation::JSONValue send(const std::string& path, const std::string& body, const char* method = "POST") {
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), curl_easy_cleanup);
    std::string answer;
    curl_easy_setopt(curl.get(), CURLOPT_URL, (base_ + path).c_str());
    curl_easy_setopt(curl.get(), CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, method);
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &append);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &answer);
    const bool isAnswered = curl_easy_perform(curl.get()) == CURLE_OK;
    const auto json = foundation::JSONSerialization::jsonObject(foundation::dataOf(isAnswered ? answer : "{}"));
    const auto* value = json.member("value");
    if (value == nullptr || value->member("error") != nullptr) throw std::runtime_error("chromedriver: " + answer);
    return *value;
  }

  Program driver_;
  std::string base_;
};

}  // namespace tavlo::test
