#include <Foundation/URL.hpp>
#include <Foundation/URLError.hpp>
#include <gtest/gtest.h>

#include <stdexcept>

namespace tavlo::foundation {
namespace {

// "scheme|host|port|path|query|host and port", with "-" for what is absent.
std::string parts(std::string_view text) {
  const auto url = URL::parse(text);
  if (!url) return "refused";
  EXPECT_EQ(url->absoluteString(), text);
  return url->scheme().value_or("-") + "|" + url->host().value_or("-") + "|" +
         (url->port() ? std::to_string(*url->port()) : "-") + "|" + url->path() + "|" + url->query().value_or("-") +
         "|" + url->hostAndPort().value_or("-");
}

TEST(URL, FollowsTheGrammarStrictly) {
  const std::pair<std::string_view, std::string> rows[] = {
      {"https://localhost:8443/verify", "https|localhost|8443|/verify|-|localhost:8443"},
      {"HTTP://u:p@Host.Example?a=/b?c#d/?e", "http|Host.Example|-||a=/b?c|Host.Example"},
      {"http://[::1]:99999/a%20%4a%7b", "http|::1|65536|/a J{|-|[::1]:99999"},
      {"http://h:99999999999999999999", "http|h|65536||-|h:99999999999999999999"},
      {"http://h:/", "http|h|-|/|-|h:"},
      {"file:///etc/passwd", "file|-|-|/etc/passwd|-|"},
      {"localhost:80/x", "localhost|-|-|80/x|-|-"},
      {"example.com/verify", "-|-|-|example.com/verify|-|-"},
      {"//host/x:y", "-|host|-|/x:y|-|host"}};
  for (const auto& [text, expected] : rows) EXPECT_EQ(parts(text), expected);
  for (const auto text : std::initializer_list<std::string_view>{"",
                                                                 " ",
                                                                 "not a url",
                                                                 "http://exa mple.com",
                                                                 "http://h:port",
                                                                 "http://h:1:2/",
                                                                 "http://[::1",
                                                                 "http://::1]/",
                                                                 "http://[::1]x/",
                                                                 "http://[1::2::3]/",
                                                                 "http://[v1.a]/",
                                                                 "http://[fe80::1%25eth0]/",
                                                                 "http://a[b]c/",
                                                                 "1http://h",
                                                                 "ht tp://h",
                                                                 "://",
                                                                 ":memory:",
                                                                 "127.0.0.1:80/x",
                                                                 "http://h/%zz",
                                                                 "http://h/%4",
                                                                 "http://h/%",
                                                                 "http://h/a\r\nb:c",
                                                                 "http://h/a|b",
                                                                 "http://h/\"<>",
                                                                 "http://h/a\\b",
                                                                 "http://u@v@h/",
                                                                 "http://h/#a#b",
                                                                 "http://h/[x]",
                                                                 "/caf\xc3\xa9",
                                                                 std::string_view("http://h/\0", 10),
                                                                 std::string_view("http://[::1\0]/", 14)}) {
    EXPECT_EQ(parts(text), "refused") << text;
  }
}

// RFC 3986, section 5.4.
TEST(URL, ResolvesAReference) {
  const auto base = URL::parse("http://a/b/c/d;p?q").value();
  for (const std::string_view row :
       {"g:h g:h", "g http://a/b/c/g", "./g/ http://a/b/c/g/", "/g http://a/g", "//g http://g", "?y http://a/b/c/d;p?y",
        "g?y#s http://a/b/c/g?y#s", "#s http://a/b/c/d;p?q#s", ". http://a/b/c/", ".. http://a/b/",
        "../../../g http://a/g", "/./g http://a/g", "/../g http://a/g", "..g http://a/b/c/..g", "./g/. http://a/b/c/g/",
        "g;x=1/../y http://a/b/c/y", "g?y/../x http://a/b/c/g?y/../x"}) {
    const auto blank = row.find(' ');
    EXPECT_EQ(URL::parse(row.substr(0, blank), base).value().absoluteString(), row.substr(blank + 1));
  }
  EXPECT_EQ(URL::parse("x", URL::parse("http://a").value())->absoluteString(), "http://a/x");
  EXPECT_EQ(URL::parse("../x", URL::parse("s:a/b").value())->absoluteString(), "s:/x");
  EXPECT_FALSE(URL::parse("", base) || URL::parse("a b", base));
}

TEST(URL, NamesAFile) {
  const auto url = URL::fileURLWithPath("/tmp/a b%/\xc3\xa9?#[x].png");
  EXPECT_EQ(url.absoluteString(), "file:///tmp/a%20b%25/%C3%A9%3F%23%5Bx%5D.png");
  EXPECT_EQ(url.path(), "/tmp/a b%/\xc3\xa9?#[x].png");
  EXPECT_TRUE(URL::fileURLWithPath("x").path().starts_with("/"));
}

TEST(URLError, DescribesAnyError) {
  const auto describe = [](const auto& error) { return localizedDescription(std::make_exception_ptr(error)); };
  EXPECT_EQ(describe(URLError(URLError::Code::timedOut)), "The request timed out.");
  EXPECT_NE(describe(URLError(URLError::Code::serverCertificateUntrusted, "id.example")).find("id.example"),
            std::string::npos);
  EXPECT_EQ(describe(std::runtime_error("no such key")), "no such key");
  EXPECT_FALSE(describe(7).empty() || !localizedDescription(nullptr).empty());
}

}  // namespace
}  // namespace tavlo::foundation
