#include <Foundation/URL.hpp>
#include <Foundation/URLError.hpp>
#include <gtest/gtest.h>

#include <sstream>

namespace tavlo::foundation {
namespace {

using namespace std::string_literals;

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
  std::istringstream rows(
      "https://localhost:8443/verify https|localhost|8443|/verify|-|localhost:8443 //host/x:y -|host|-|/x:y|-|host "
      "HTTP://u:p@Host.Example?a=/b?c#d/?e http|Host.Example|-||a=/b?c|Host.Example http://h:/ http|h|-|/|-|h: "
      "http://[::1]:99999/a%2d%4a%7b http|::1|65536|/a-J{|-|[::1]:99999 file:///etc/passwd file|-|-|/etc/passwd|-| "
      "http://h:99999999999999999999 http|h|65536||-|h:99999999999999999999 localhost:80/x localhost|-|-|80/x|-|- "
      "example.com/verify -|-|-|example.com/verify|-|-");
  for (std::string text, expected; rows >> text >> expected;) EXPECT_EQ(parts(text), expected);
  std::istringstream refused(
      "\t \tnot a url\thttp://exa mple.com\thttp://h:port\thttp://h:1:2/\thttp://[::1\thttp://::1]/\thttp://[::1]x/\t"
      "http://[1::2::3]/\thttp://[v1.a]/\thttp://[fe80::1%25eth0]/\thttp://a[b]c/\t1http://h\tht tp://h\t://\t"
      ":memory:\t127.0.0.1:80/x\thttp://h/%zz\thttp://h/%4\thttp://h/%\thttp://h/a\r\nb:c\thttp://h/a|b\t"
      "http://h/\"<>\thttp://h/a\\b\thttp://u@v@h/\thttp://h/#a#b\thttp://h/[x]\t/caf\xc3\xa9\thttp://h/\0\t"
      "http://[::1\0]/"s);
  for (std::string text; std::getline(refused, text, '\t');) EXPECT_EQ(parts(text), "refused") << text;
}

// RFC 3986, section 5.4.
TEST(URL, ResolvesAReference) {
  const auto base = URL::parse("http://a/b/c/d;p?q").value();
  std::istringstream rows(
      "g:h g:h  g http://a/b/c/g  ./g/ http://a/b/c/g/  /g http://a/g  //g http://g  ?y http://a/b/c/d;p?y  "
      "g?y#s http://a/b/c/g?y#s  #s http://a/b/c/d;p?q#s  . http://a/b/c/  .. http://a/b/  ../../g http://a/g  "
      "../../../g http://a/g  /./g http://a/g  /../g http://a/g  ..g http://a/b/c/..g  ./g/. http://a/b/c/g/  "
      "g;x=1/../y http://a/b/c/y  g?y/../x http://a/b/c/g?y/../x");
  for (std::string reference, result; rows >> reference >> result;) {
    EXPECT_EQ(URL::parse(reference, base).value().absoluteString(), result) << reference;
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
  EXPECT_EQ(describe(std::runtime_error("no such key")), "no such key");
  EXPECT_FALSE(describe(7).empty() || !localizedDescription(nullptr).empty());
}

}  // namespace
}  // namespace tavlo::foundation
