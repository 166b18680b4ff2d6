#include <gtest/gtest.h>

#include "Authority.hpp"
#include "Server.hpp"
#include "support/Arrivals.hpp"
#include "support/Browser.hpp"
#include "support/Printed.hpp"

namespace tavlo::sandbox {
namespace {

TEST(SandboxPageInBrowser, showsArrivalsLiveAndRunsNothingOfThem) {
  if (!test::Browser::isInstalled()) GTEST_SKIP() << "chromium and chromedriver (chromium-driver) are not installed";
  const test::Printed silent;
  const test::TemporaryFolder folder;
  Server server(Authority::prepare(folder.path()), {.port = 0, .state = folder.path()});
  const std::string url = "https://localhost:" + std::to_string(server.port()) + "/";
  test::Browser browser;
  const auto expect = [&](const std::string& expression, const std::string& value = "true") {
    EXPECT_EQ(browser.run("return " + expression), value) << expression;
  };
  const auto await = [&](const std::string& expression) {
    EXPECT_TRUE(browser.waitFor("return " + expression)) << expression;
  };
  const std::string topmost = "document.querySelector('#arrivals > :first-child h2')?.textContent == ";
  const auto hasConsole = [&](const std::string& part) { return browser.console().find(part) != std::string::npos; };

  browser.open(url);
  await("document.getElementById('live').textContent == 'Live'");
  expect("(window.isSamePage = true) && document.querySelector('.empty').checkVisibility()");
  server.arrivals().add(test::arrivalOf(1, test::sample("td3-jpeg")));
  await(topmost + "'Request 1 Passed'");
  await("[...document.querySelectorAll('figure img')].filter(image => image.naturalWidth > 100).length == 2");
  expect("document.querySelector('.empty').checkVisibility()", "false");
  server.arrivals().add(test::arrivalOf(2, test::sample("bad-dg1-flipped")));
  await(topmost + "'Request 2 Failed'");
  await("document.getElementById('news').textContent == 'Request 2 Failed'");
  expect("document.querySelector('.checks > .failed').textContent.includes('DG1 is not as it was signed.')");
  expect("window.isSamePage");
  EXPECT_EQ(browser.console(), "[]");

  // A hostile document, once put in by the script and once as the page brings it.
  const std::string body = "</pre></details><script>hit=4</script><img src=x onerror='hit=5'>";
  server.arrivals().add(test::arrivalOf(3, test::hostileDocument(), body));
  for (int i = 0; i < 2; ++i) {
    await(topmost + "'Request 3 Failed'");
    expect("document.querySelector('.raw pre').textContent", '"' + body + '"');
    expect("document.querySelector('.printed .wide:nth-child(3) dd').textContent",
           R"("&lt;script&gt;hit=1&lt;/script&gt; \"'> img src=x onerror=\"hit=2\">U+202EgpjU+0007")");
    expect("document.querySelectorAll('main script, main img:not([src^=\"/arrivals/\"])').length", "0");
    expect("typeof hit", "\"undefined\"");
    EXPECT_FALSE(hasConsole("Content Security Policy")) << "nothing may even have tried";
    browser.open(url);
  }
  // Were markup to slip through, the policy would still stop it.
  (void)browser.run("document.body.insertAdjacentHTML('beforeend', '<img src=x onerror=\"hit=6\">')");
  bool isStopped = false;
  for (int i = 0; i < 100 && !isStopped; ++i) isStopped = hasConsole("Content Security Policy");
  EXPECT_TRUE(isStopped);
  expect("typeof hit", "\"undefined\"");

  constexpr auto tab = "\uE004", enter = "\uE007";
  const std::string isAtBody = "return document.activeElement.matches('#arrival-3 .raw summary')";
  for (int i = 0; i < 20 && browser.run(isAtBody) != "true"; ++i) browser.press(tab);
  expect("getComputedStyle(document.activeElement).outlineStyle", "\"solid\"");
  browser.press(enter);
  browser.press(tab);
  expect("document.activeElement.matches('#arrival-3 pre') && document.activeElement.checkVisibility()");

  browser.setWidth(320);
  expect("document.documentElement.scrollWidth", "320");
}

}  // namespace
}  // namespace tavlo::sandbox
