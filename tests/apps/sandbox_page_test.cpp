#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "Markup.hpp"
#include "Page.hpp"
#include "support/Arrivals.hpp"

namespace tavlo::sandbox {
namespace {

using uikit::UIImage;

std::string unseen(const std::string& number) {
  return "<span class=\"code\">U+" + number + "</span>";
}

TEST(SandboxPage, writesStrangersTextsAsText) {
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

TEST(SandboxPage, showsArrivalsToBrowsersOnThisMachine) {
  Arrival red = test::arrivalOf(2, test::sample("bad-dg1-flipped"));
  const auto wide = UIImage::fromPixels(foundation::Data(12'000'000, 77), 3000, 1000, 12'000, uikit::PixelFormat::rgba);
  red.request->selfie->png = UIImagePNGRepresentation(wide).value();
  Arrival partial = test::arrivalOf(4, test::sample("dg2-missing"));
  partial.request->selfie.reset();
  partial.answer.verification.biometry = partial.answer.status = Result::notChecked;
  Arrival refused;
  refused.id = 5;
  refused.answer = refusal("doc.<b>: missing");
  refused.status = 400;
  refused.scenario = "status=503";
  refused.body = foundation::dataOf("<img src=x onerror=hit()>");
  refused.bodySize = 2'500'000;

  Arrivals arrivals;
  const auto routes = pageRoutes(arrivals);
  const auto get = [&](const std::string& path) {
    HTTPRequest request;
    request.path = path;
    const auto route = std::ranges::find(routes, path.starts_with("/arrivals/") ? "/arrivals/" : path, &Route::path);
    EXPECT_TRUE(route->onlyLoopback && route->method == "GET");
    return route->handle(request);
  };
  EXPECT_NE(get("/").body.find(" data-most=\"20\"></div>"), std::string::npos);
  for (const Arrival& arrival : {test::arrivalOf(1, test::sample("p384-sha384-jp2")), red,
                                 test::arrivalOf(3, test::hostileDocument()), partial, refused}) {
    arrivals.add(arrival);
  }
  const std::string signature = "\x89PNG\r\n", nothing = "There is nothing here";
  const std::pair<std::string, std::vector<std::string>> rows[] = {
      {"/", {"No faces are compared", "id=\"arrival-1\""}},
      {"/arrivals/1",
       {"arrival passed", "Every check passed.", "/arrivals/1/portrait.png", "/arrivals/1/selfie.png", "2 bytes",
        "<bdi>SPECIMEN</bdi>", "<bdi>UT0000001</bdi>", "<bdi>34-12-31</bdi>",
        "Passed: </span>DG2 is as it was signed. <code>hash_match</code>"}},
      {"/arrivals/2", {"arrival failed", "Did not pass: integrity.", "<bdi>SPECILEN</bdi>", "hash_mismatch"}},
      {"/arrivals/3",
       {"arrival failed", "<bdi>&amp;lt;script&amp;gt;hit=1&amp;lt;/script&amp;gt; &quot;&#39;&gt;", unseen("202E"),
        "<bdi>&quot;&lt;u&gt;&amp;&#39;&lt;i&gt;</bdi>", "<bdi>IMG ONERROR=&quot;&amp;#104;IT=3&quot;&gt;;</bdi>"}},
      {"/arrivals/4", {"arrival not-checked", "not everything was checked: biometry.", "<p class=\"none\">not sent"}},
      {"/arrivals/5",
       {"arrival failed", "Refused", "doc.&lt;b&gt;: missing", "HTTP 400", "<code>status=503</code>",
        "2.5 MB of which the first 25 bytes were kept", "&lt;img src=x onerror=hit()&gt;"}},
      {"/arrivals/1/portrait.png", {signature}},
      {"/arrivals/2/selfie.png", {signature}},
      {"/arrivals/3/portrait.png", {nothing}},
      {"/arrivals/4/selfie.png", {nothing}},
      {"/arrivals/1x", {nothing}},
      {"/arrivals/18446744073709551617", {nothing}}};
  for (const auto& [path, parts] : rows) {
    SCOPED_TRACE(path);
    const HTTPAnswer answer = get(path);
    EXPECT_TRUE(answer.headers.at(0).second.starts_with("default-src 'none'; script-src 'self';"));
    for (const auto& part : parts) EXPECT_NE(answer.body.find(part), std::string::npos) << part << answer.body;
    EXPECT_EQ(answer.type == "image/png", parts.front() == signature);
    EXPECT_EQ(answer.status == 404, parts.front() == nothing);
    for (const auto* runs : {"<script(?! src=\"/assets/page.js\" defer>)", "<[^>]* (on[a-z]+|style)=", "<u>"}) {
      EXPECT_FALSE(parts.size() > 1 && std::regex_search(answer.body, std::regex(runs))) << runs << answer.body;
    }
    if (path != "/arrivals/2/selfie.png") continue;
    const auto image = UIImage::decode(foundation::dataOf(answer.body));
    EXPECT_EQ(image.pixels().size(), 512U * 170 * 4);
    EXPECT_EQ(image.pixels().back(), 77);
  }
  EXPECT_LT(get("/").body.find("Request 5 "), get("/").body.find("Request 4 ")) << "the newest comes first";
}

}  // namespace
}  // namespace tavlo::sandbox
