#include <gtest/gtest.h>

#include <string>

#include "Authority.hpp"
#include "Server.hpp"
#include "support/Arrivals.hpp"
#include "support/Browser.hpp"
#include "support/Printed.hpp"
#include "support/TemporaryFolder.hpp"

namespace tavlo::sandbox {
namespace {

constexpr auto tab = "\uE004", enter = "\uE007";

std::string heading(int id) {
  return "return document.querySelector('#arrivals > :first-child h2')?.textContent.startsWith('Request " +
         std::to_string(id) + " ')";
}

TEST(SandboxPageInBrowser, showsArrivalsLiveAndRunsNothingOfThem) {
  if (!test::Browser::isInstalled()) GTEST_SKIP() << "chromium and chromedriver (chromium-driver) are not installed";
  const test::Printed silent;
  const test::TemporaryFolder folder;
  Server server(Authority::prepare(folder.path()), {.port = 0, .state = folder.path()});
  test::Browser browser;
  browser.open("https://localhost:" + std::to_string(server.port()) + "/");
  EXPECT_TRUE(browser.waitFor("return document.getElementById('live').textContent == 'Live'"));
  EXPECT_EQ(browser.run("return document.querySelector('.empty').checkVisibility()"), "true");
  (void)browser.run("window.isSamePage = true");

  const auto add = [&](Arrival arrival) {
    const auto id = static_cast<int>(arrival.id);
    server.arrivals().add(std::move(arrival));
    EXPECT_TRUE(browser.waitFor(heading(id))) << id;
  };
  const auto verdict = [&] { return browser.run("return document.querySelector('.arrival h2 .result').textContent"); };
  add(test::arrivalOfSample(1, "td3-jpeg"));
  EXPECT_EQ(verdict(), "\"Passed\"");
  EXPECT_TRUE(
      browser.waitFor("return [...document.querySelectorAll('figure img')].filter(i => i.naturalWidth > 100)"
                      ".length == 2"));
  EXPECT_EQ(browser.run("return document.querySelector('.empty').checkVisibility()"), "false");
  EXPECT_EQ(browser.run("return document.getElementById('news').textContent"), "\"Request 1 Passed\"");
  add(test::arrivalOfSample(2, "bad-dg1-flipped"));
  EXPECT_EQ(verdict(), "\"Failed\"");
  EXPECT_EQ(browser.run("return document.querySelector('.checks > .failed').textContent.includes('DG1 is not as')"),
            "true");
  EXPECT_EQ(browser.run("return window.isSamePage"), "true");
  EXPECT_EQ(browser.console(), "[]");

  const std::string body = "</pre></details><script>hit=4</script><img src=x onerror='hit=5'>";
  add(test::arrivalOf(3, test::hostileDocument(), body));
  browser.open("https://localhost:" + std::to_string(server.port()) + "/");  // as the server renders it at once
  EXPECT_TRUE(browser.waitFor(heading(3)));
  EXPECT_EQ(browser.run("return document.querySelector('.raw pre').textContent"), '"' + body + '"');
  EXPECT_EQ(browser.run("return document.querySelector('.printed .wide:nth-child(3) dd').textContent"),
            R"("&lt;script&gt;hit=1&lt;/script&gt; \"'> img src=x onerror=\"hit=2\">U+202EgpjU+0007")");
  EXPECT_EQ(browser.run("return document.querySelectorAll('main script, main img:not([src^=\"/arrivals/\"])').length"),
            "0");
  EXPECT_EQ(browser.run("return typeof hit"), "\"undefined\"");
  const std::string missingPortrait = browser.console();  // a portrait that is none leaves its one line there
  EXPECT_EQ(missingPortrait.find("Content Security Policy"), missingPortrait.npos) << missingPortrait;

  // Were markup to slip through, the policy would still stop it.
  (void)browser.run("document.body.insertAdjacentHTML('beforeend', '<img src=\"/x\" onerror=\"hit=6\">')");
  std::string console;
  for (int i = 0; i < 100 && console.find("Content Security Policy") == console.npos; ++i) console += browser.console();
  EXPECT_NE(console.find("Content Security Policy"), console.npos) << console;
  EXPECT_EQ(browser.run("return typeof hit"), "\"undefined\"");

  for (int i = 0; i < 20 && browser.run("return document.activeElement.matches('.raw summary')") != "true"; ++i) {
    browser.press(tab);
  }
  EXPECT_EQ(browser.run("return getComputedStyle(document.activeElement).outlineStyle"), "\"solid\"");
  browser.press(enter);
  browser.press(tab);
  EXPECT_EQ(browser.run("const pre = document.activeElement; return pre.matches('#arrival-3 pre') && "
                        "pre.checkVisibility()"),
            "true");

  browser.setWidth(320);
  EXPECT_EQ(browser.run("return document.documentElement.scrollWidth"), "320");
}

}  // namespace
}  // namespace tavlo::sandbox
