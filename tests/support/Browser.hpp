#pragma once

#include <Foundation/JSONEncoder.hpp>
#include <Foundation/JSONValue.hpp>

#include <curl/curl.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/Program.hpp"

namespace tavlo::test {

/// Chromium without a window, steered through chromedriver (W3C WebDriver). Takes any server certificate.
class Browser {
 public:
  using JSON = foundation::JSONValue;
  using Object = foundation::JSONObject;
  using Array = foundation::JSONArray;

  [[nodiscard]] static bool isInstalled() {
    return Program().run({"sh", "-c", "command -v chromium && command -v chromedriver"}) == 0;
  }

  Browser() {
    driver_.start({"chromedriver", "--port=0"});
    const std::string sign = "started successfully on port ";
    if (!driver_.waitForOut(".\n") || !driver_.waitForOut(sign)) throw std::runtime_error("no chromedriver");
    base_ =
        "http://127.0.0.1:" + std::to_string(std::stoi(driver_.out().substr(driver_.out().find(sign) + sign.size())));
    const Object options{
        {"args", Array{"--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--window-size=1280,1000"}}};
    const Object wanted{{"acceptInsecureCerts", true},
                        {"goog:loggingPrefs", Object{{"browser", "ALL"}}},
                        {"goog:chromeOptions", options}};
    const JSON session = post("/session", Object{{"capabilities", Object{{"alwaysMatch", wanted}}}});
    base_ += "/session/" + *session.member("sessionId")->getIf<std::string>();
  }
  ~Browser() {
    try {
      (void)send("DELETE", "", "");
    } catch (const std::exception&) {  // it goes with its driver
    }
  }
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;

  void open(const std::string& url) { (void)post("/url", Object{{"url", url}}); }
  /// What the body of a JavaScript function returns, as JSON text.
  std::string run(const std::string& script) {
    const JSON value = post("/execute/sync", Object{{"script", script}, {"args", Array()}});
    return std::string(foundation::textOf(foundation::JSONEncoder().encode(value)));
  }
  /// Runs `script` again and again until it returns true; false when that takes too long.
  [[nodiscard]] bool waitFor(const std::string& script) {
    for (int i = 0; i < 500; ++i) {
      if (run(script) == "true") return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }
  /// Presses and releases one key; those without a letter are in WebDriver's private characters.
  void press(const std::string& key) {
    const auto action = [&](const char* type) { return Object{{"type", type}, {"value", key}}; };
    const Object keyboard{{"type", "key"}, {"id", "keyboard"}, {"actions", Array{action("keyDown"), action("keyUp")}}};
    (void)post("/actions", Object{{"actions", Array{keyboard}}});
  }
  void setWidth(int pixels) {
    const Object size{{"width", pixels}, {"height", 800}, {"deviceScaleFactor", 1}, {"mobile", true}};
    (void)post("/goog/cdp/execute", Object{{"cmd", "Emulation.setDeviceMetricsOverride"}, {"params", size}});
  }
  /// The messages of the console since the last call, as JSON text.
  std::string console() {
    const JSON log = post("/se/log", Object{{"type", "browser"}});
    return std::string(foundation::textOf(foundation::JSONEncoder().encode(log)));
  }

 private:
  static std::size_t append(const char* bytes, std::size_t, std::size_t count, void* text) {
    static_cast<std::string*>(text)->append(bytes, count);
    return count;
  }

  JSON post(const std::string& path, const JSON& body) {
    return send("POST", path, std::string(foundation::textOf(foundation::JSONEncoder().encode(body))));
  }
  JSON send(const char* method, const std::string& path, const std::string& body) {
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), curl_easy_cleanup);
    std::string text;
    curl_easy_setopt(curl.get(), CURLOPT_URL, (base_ + path).c_str());
    curl_easy_setopt(curl.get(), CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, method);
    if (!body.empty()) curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &append);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &text);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, 60L);
    if (curl_easy_perform(curl.get()) != CURLE_OK) throw std::runtime_error("no answer of chromedriver");
    const JSON answer = foundation::JSONSerialization::jsonObject(foundation::dataOf(text));
    const JSON* value = answer.member("value");
    if (value == nullptr || value->member("error") != nullptr) throw std::runtime_error(text);
    return *value;
  }

  Program driver_;
  std::string base_;
};

}  // namespace tavlo::test
