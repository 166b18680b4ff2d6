#include <UIKit/UIImage.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "Markup.hpp"
#include "Page.hpp"
#include "support/Arrivals.hpp"

namespace tavlo::sandbox {
namespace {

using foundation::Data;
using uikit::UIImage;

std::string unseen(const std::string& number) {
  return "<span class=\"code\">U+" + number + "</span>";
}

/// It has these parts, and nothing of a stranger's: no element but those of the page, and nothing that runs.
void expectHarmless(const std::string& html, const std::vector<std::string>& parts) {
  for (const auto& part : parts) EXPECT_NE(html.find(part), html.npos) << part << "\nin: " << html;
  for (const auto* pattern : {"<script(?! src=\"/assets/page.js\" defer>)", "<[^>]* (on[a-z]+|style)=", "<u>",
                              "<img(?! src=\"/(arrivals|assets)/)", "\x07", "\u202E"}) {
    EXPECT_FALSE(std::regex_search(html, std::regex(pattern))) << pattern << "\nin: " << html;
  }
}

TEST(SandboxPage, writesStrangersTextsAsText) {
  const std::tuple<std::string, std::string, std::size_t> texts[] = {
      {"Zo\u00EB, \u041C\U0001F600", "Zo\u00EB, \u041C\U0001F600", 300},
      {"<b a=\"x\" b='y'>&lt;", "&lt;b a=&quot;x&quot; b=&#39;y&#39;&gt;&amp;lt;", 300},
      {std::string("\0\n\u0085", 4), unseen("0000") + unseen("000A") + unseen("0085"), 300},
      {"\u200B\u202E\U000E0041", unseen("200B") + unseen("202E") + unseen("E0041"), 300},
      {"a\xFFz\xE2\x80", "a\uFFFDz\uFFFD", 300},
      {"\u00EB\u00EB", "\u00EB…", 3},
      {"abc", "abc", 3},
  };
  for (const auto& [text, markup, limit] : texts) EXPECT_EQ(markupOf(text, limit), markup);

  const std::string value(160, 'A');
  const std::pair<std::string, std::string> bodies[] = {
      {"{\n\t\"</pre>\x1b\xFF", "{\n\t&quot;&lt;/pre&gt;" + unseen("001B") + "\uFFFD"},
      {"\"" + value + "\"", "&quot;" + value + "&quot;"},
      {"\"" + value + "-_\",\"b", "&quot;" + value.substr(0, 64) + "<i>… 98 more …</i>&quot;,&quot;b"},
  };
  for (const auto& [body, markup] : bodies) EXPECT_EQ(markupOfBody(body), markup);
  for (const std::string piece : {"ab ", "\u20AC", "\xFF"}) {
    std::string body;
    while (body.size() < 1'000'000) body += piece;
    const std::string markup = markupOfBody(body);
    EXPECT_TRUE(markup.size() < 3 * 20'100 && markup.ends_with("<i>… the rest is not shown</i>"));
    EXPECT_EQ(markup.find("\uFFFD") != markup.npos, piece == "\xFF") << "no character may be cut in two";
  }

  EXPECT_EQ(filled("{{a}}-{{b}}", {{"a", "{{b}}"}, {"b", "1"}}), "{{b}}-1") << "what was filled in is left alone";
  EXPECT_THROW((void)filled("{{a}}", {{"b", ""}}), std::out_of_range);
}

TEST(SandboxPage, showsEachArrivalWithItsVerdict) {
  Arrival refused;
  refused.answer = refusal("doc.<b>: missing");
  refused.status = 400;
  refused.scenario = "status=503";
  refused.body = foundation::dataOf("<img src=x onerror=hit()>");
  refused.bodySize = 2'500'000;
  Arrival partial = test::arrivalOf(4, test::sample("dg2-missing"));
  partial.request->selfie.reset();
  partial.answer.verification.biometry = partial.answer.status = Result::notChecked;
  const std::pair<Arrival, std::vector<std::string>> rows[] = {
      {test::arrivalOf(1, test::sample("td3-jpeg")),
       {"arrival passed", "Every check passed.", "/arrivals/1/portrait.png", "/arrivals/1/selfie.png", "2 bytes",
        "<bdi>SPECIMEN, SYNTHIA ALMA</bdi>", "<bdi>TV0000042</bdi>", "<bdi>34-12-31</bdi>",
        "Passed: </span>DG2 is as it was signed. <code>hash_match</code>"}},
      {test::arrivalOf(2, test::sample("bad-dg1-flipped")),
       {"arrival failed", "Did not pass: integrity.", "<bdi>SPECILEN</bdi>", "<code>hash_mismatch</code>"}},
      {test::arrivalOf(3, test::hostileDocument()),
       {"arrival failed", "<bdi>&amp;lt;script&amp;gt;hit=1&amp;lt;/script&amp;gt; &quot;&#39;&gt;", unseen("202E"),
        "<bdi>&quot;&lt;u&gt;&amp;&#39;&lt;i&gt;</bdi>", "<bdi>IMG ONERROR=&quot;&amp;#104;IT=3&quot;&gt;;</bdi>"}},
      {partial, {"arrival not-checked", "not everything was checked: biometry.", "<p class=\"none\">not sent</p>"}},
      {refused,
       {"arrival failed", "Refused", "doc.&lt;b&gt;: missing", "HTTP 400", "<code>status=503</code>",
        "2.5 MB of which the first 25 bytes were kept", "&lt;img src=x onerror=hit()&gt;"}},
  };
  std::vector<Arrivals::Pointer> all;
  for (const auto& [arrival, parts] : rows) {
    expectHarmless(articleOf(arrival), parts);
    all.push_back(std::make_shared<const Arrival>(arrival));
  }
  const std::string page = pageOf(all);
  expectHarmless(page, {"No faces are compared"});
  EXPECT_LT(page.find("Request 4 "), page.find("Request 1 ")) << "the newest comes first";
  expectHarmless(pageOf({}), {"<div id=\"arrivals\" data-most=\"20\"></div>"});
}

TEST(SandboxPage, answersBrowsersOnThisMachine) {
  Arrivals arrivals;
  arrivals.add(test::arrivalOf(1, test::sample("p384-sha384-jp2")));
  arrivals.add(test::arrivalOf(2, test::hostileDocument()));
  Arrival camera = test::arrivalOf(3, test::sample("dg2-missing"));
  const auto wide = UIImage::fromPixels(Data(3000 * 1000 * 4, 77), 3000, 1000, 3000 * 4, uikit::PixelFormat::rgba);
  camera.request->selfie->png = UIImagePNGRepresentation(wide).value();
  arrivals.add(camera);

  const auto routes = pageRoutes(arrivals);
  for (const Route& route : routes) EXPECT_TRUE(route.onlyLoopback && route.method == "GET") << route.path;
  const std::string html = "text/html; charset=utf-8", png = "image/png", none;
  const std::pair<std::string, std::string> rows[] = {
      {"/", html},
      {"/assets/icon.svg", "image/svg+xml"},
      {"/arrivals/2", html},
      {"/arrivals/1/portrait.png", png},
      {"/arrivals/1/selfie.png", png},
      {"/arrivals/2/portrait.png", none},
      {"/arrivals/3/portrait.png", none},
      {"/arrivals/3/selfie.png", png},
      {"/arrivals/", none},
      {"/arrivals/4", none},
      {"/arrivals/1x", none},
      {"/arrivals/18446744073709551617", none},
  };
  for (const auto& [path, type] : rows) {
    SCOPED_TRACE(path);
    const std::string way = path.starts_with("/arrivals/") ? "/arrivals/" : path;
    HTTPRequest request;
    request.path = path;
    const HTTPAnswer answer = std::ranges::find(routes, way, &Route::path)->handle(request);
    EXPECT_EQ(answer.status == 200 ? answer.type : none, type);
    EXPECT_TRUE(answer.headers.at(0).second.starts_with("default-src 'none'; script-src 'self';"));
    if (type != png) continue;
    const auto image = UIImage::decode(foundation::dataOf(answer.body));
    EXPECT_LE(std::max(image.width(), image.height()), 512U);
    if (image.channels() == 4) {
      EXPECT_EQ(image.pixels()[4 * 512 * 170 - 1], 77) << "the last of 512 by 170 pixels";
    }
  }
}

}  // namespace
}  // namespace tavlo::sandbox
