#include <UIKit/UIImage.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "Markup.hpp"
#include "Page.hpp"
#include "support/Arrivals.hpp"

namespace tavlo::sandbox {
namespace {

using foundation::Data;
using uikit::UIImage;

std::string span(const std::string& number) {
  return "<span class=\"code\">U+" + number + "</span>";
}

void expectParts(const std::string& html, const std::vector<std::string>& parts) {
  for (const std::string& part : parts) EXPECT_NE(html.find(part), std::string::npos) << part << "\nin: " << html;
}

/// Nothing in it may come from a stranger: no element but those of the page, and nothing that runs.
void expectHarmless(const std::string& html) {
  for (const auto* pattern : {"<script(?! src=\"/assets/page.js\" defer>)", "<[^>]* (on[a-z]+|style)=", "javascript:",
                              "<img(?! src=\"/(arrivals|assets)/)", "\x07", "\xE2\x80\xAE"}) {
    EXPECT_FALSE(std::regex_search(html, std::regex(pattern))) << pattern << "\nin: " << html;
  }
}

TEST(SandboxPage, writesStrangersTextsAsText) {
  const std::tuple<std::string, std::string, std::size_t> rows[] = {
      {"Zo\u00EB M\u00FCller, \u041C \u202F\U0001F600", "Zo\u00EB M\u00FCller, \u041C \u202F\U0001F600", 300},
      {"<b a=\"x\" b='y'>&lt;", "&lt;b a=&quot;x&quot; b=&#39;y&#39;&gt;&amp;lt;", 300},
      {"a\u202Eb\u2066", "a" + span("202E") + "b" + span("2066"), 300},
      {std::string("\0\x1b\n\x7f\u0085", 6), span("0000") + span("001B") + span("000A") + span("007F") + span("0085"),
       300},
      {"\u200B\uFEFF\U000E0041\u00AD", span("200B") + span("FEFF") + span("E0041") + span("00AD"), 300},
      {"a\xFFz\xE2\x80", "a\uFFFDz\uFFFD", 300},
      {"\u00EB\u00EB\u00EB", "\u00EB…", 3},
      {"abc", "abc", 3},
  };
  for (const auto& [text, markup, limit] : rows) EXPECT_EQ(markupOf(text, limit), markup);
  EXPECT_EQ(filled("{{a}}-{{b}}", {{"a", "{{b}}"}, {"b", "1"}}), "{{b}}-1") << "what was filled in is left alone";
  EXPECT_THROW((void)filled("{{a}}", {{"b", ""}}), std::out_of_range);
}

TEST(SandboxPage, shortensBodies) {
  const std::string value(160, 'A');
  const std::pair<std::string, std::string> rows[] = {
      {"{\"a\":\n\t\"</pre>\x1b\xFF", "{&quot;a&quot;:\n\t&quot;&lt;/pre&gt;" + span("001B") + "\uFFFD"},
      {"\"" + value + "\"", "&quot;" + value + "&quot;"},
      {"\"" + value + "-_\",\"b\"", "&quot;" + value.substr(0, 64) + "<i>… 98 more …</i>&quot;,&quot;b&quot;"},
      {"", ""},
  };
  for (const auto& [body, markup] : rows) EXPECT_EQ(markupOfBody(body), markup);
  for (const auto* piece : {"ab ", "\u20AC", "\xFF"}) {
    std::string body;
    while (body.size() < 1'000'000) body += piece;
    const std::string markup = markupOfBody(body);
    EXPECT_LT(markup.size(), 3 * 20'000U + 100);
    expectParts(markup, {"<i>… the rest is not shown</i>"});
    EXPECT_EQ(markup.find("\uFFFD") != markup.npos, body[0] == '\xFF') << "no character may be cut in two";
  }
}

TEST(SandboxPage, showsEachArrivalWithItsVerdict) {
  Arrival refused;
  refused.id = 5;
  refused.answer = refusal("doc.<b>: missing");
  refused.status = 400;
  refused.bodySize = 2'500'000;
  refused.body = foundation::dataOf("<img src=x onerror=hit()>");
  refused.scenario = "status=503";
  Arrival partial = test::arrivalOfSample(4, "dg2-missing");
  partial.request->selfie.reset();
  partial.answer.verification.biometry = partial.answer.status = Result::notChecked;
  const std::pair<Arrival, std::vector<std::string>> rows[] = {
      {test::arrivalOfSample(1, "td3-jpeg"),
       {"arrival passed", "Every check passed.", "/arrivals/1/portrait.png", "/arrivals/1/selfie.png",
        "<bdi>SYNTHIA ALMA</bdi>", "<bdi>SPECIMEN, SYNTHIA ALMA</bdi>", "<bdi>TV0000042</bdi>", "<bdi>34-12-31</bdi>",
        "Passed: </span>DG2 is as it was signed. <code>hash_match</code>", "2 bytes"}},
      {test::arrivalOfSample(2, "bad-dg1-flipped"),
       {"arrival failed", "Did not pass: integrity.", "<bdi>SPECILEN</bdi>", "<code>hash_mismatch</code>"}},
      {test::arrivalOf(3, test::hostileDocument()),
       {"arrival failed", "&amp;lt;script&amp;gt;hit=1&amp;lt;/script&amp;gt; &quot;&#39;&gt;", span("202E") + "gpj",
        "<bdi>&quot;&lt;u&gt;&amp;&#39;&lt;i&gt;</bdi>", "<bdi>&quot;&gt;</bdi>",
        "<bdi>IMG ONERROR=&quot;&amp;#104;IT=3&quot;&gt;;</bdi>"}},
      {std::move(partial),
       {"arrival not-checked", "not everything was checked: biometry.", "<p class=\"none\">not sent</p>"}},
      {std::move(refused),
       {"arrival failed", "Refused", "doc.&lt;b&gt;: missing", "HTTP 400", "<code>status=503</code>",
        "2.5 MB of which the first 25 bytes were kept", "&lt;img src=x onerror=hit()&gt;"}},
  };
  std::vector<Arrivals::Pointer> all;
  for (const auto& [arrival, parts] : rows) {
    const std::string html = articleOf(arrival);
    expectParts(html, parts);
    expectHarmless(html);
    all.push_back(std::make_shared<const Arrival>(arrival));
  }
  const std::string page = pageOf(all);
  expectHarmless(page);
  EXPECT_LT(page.find("Request 5 "), page.find("Request 1 ")) << "the newest comes first";
  expectParts(pageOf({}), {"<div id=\"arrivals\" data-most=\"20\"></div>", "No faces are compared"});
}

TEST(SandboxPage, answersBrowsersOnThisMachine) {
  Arrivals arrivals;
  arrivals.add(test::arrivalOfSample(1, "p384-sha384-jp2"));
  arrivals.add(test::arrivalOf(2, test::hostileDocument()));
  Arrival camera = test::arrivalOfSample(3, "dg2-missing");
  const auto noise = UIImage::fromPixels(Data(3000 * 1000 * 4, 77), 3000, 1000, 3000 * 4, uikit::PixelFormat::rgba);
  camera.request->selfie->png = UIImagePNGRepresentation(noise).value();
  arrivals.add(camera);

  const auto routes = pageRoutes(arrivals);
  const auto get = [&](const std::string& path) {
    const auto fits = [&](const Route& route) {
      return route.path == path || (route.path == "/arrivals/" && path.starts_with(route.path));
    };
    HTTPRequest request;
    request.path = path;
    return std::ranges::find_if(routes, fits)->handle(request);
  };
  for (const Route& route : routes) EXPECT_TRUE(route.onlyLoopback && route.method == "GET") << route.path;
  const std::pair<std::string, std::string> rows[] = {
      {"/", "text/html; charset=utf-8"},
      {"/assets/page.css", "text/css; charset=utf-8"},
      {"/assets/page.js", "text/javascript; charset=utf-8"},
      {"/assets/icon.svg", "image/svg+xml"},
      {"/events", "text/event-stream"},
      {"/arrivals/1", "text/html; charset=utf-8"},
      {"/arrivals/1/portrait.png", "image/png"},
      {"/arrivals/1/selfie.png", "image/png"},
      {"/arrivals/2", "text/html; charset=utf-8"},
      {"/arrivals/2/portrait.png", ""},
      {"/arrivals/3/portrait.png", ""},
      {"/arrivals/3/selfie.png", "image/png"},
      {"/arrivals/", ""},
      {"/arrivals/4", ""},
      {"/arrivals/-1", ""},
      {"/arrivals/1x", ""},
      {"/arrivals/1/", ""},
      {"/arrivals/18446744073709551617", ""},
  };
  for (const auto& [path, type] : rows) {
    SCOPED_TRACE(path);
    const HTTPAnswer answer = get(path);
    EXPECT_EQ(answer.status == 200 ? answer.type : "", type);
    const auto& [name, policy] = answer.headers.at(0);
    EXPECT_TRUE(name == "Content-Security-Policy" && policy.starts_with("default-src 'none'"));
    EXPECT_EQ(policy.find("unsafe"), policy.npos);
    if (type != "image/png") continue;
    const auto image = UIImage::decode(foundation::dataOf(answer.body));
    EXPECT_LE(std::max(image.width(), image.height()), 512U);
    if (path.starts_with("/arrivals/3")) {
      EXPECT_EQ(image.width() / image.height(), 3U);
      EXPECT_TRUE(std::ranges::all_of(image.pixels(), [](int sample) { return sample == 77; }));
    }
  }
}

}  // namespace
}  // namespace tavlo::sandbox
