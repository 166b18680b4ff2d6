#include <Foundation/URL.hpp>
#include <Foundation/URLError.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

namespace tavlo::foundation {
namespace {

TEST(URL, SplitsATextIntoItsParts) {
  struct Row {
    const char *text, *scheme, *host;
    int port;
    const char *path, *query, *hostAndPort;
  };
  const std::string absent = "-";
  for (const auto& row : std::initializer_list<Row>{
           {"https://localhost:8443/verify", "https", "localhost", 8443, "/verify", "-", "localhost:8443"},
           {"HTTP://u:p@Host.Example?a=/b?c#d/?e", "http", "Host.Example", -1, "", "a=/b?c", "Host.Example"},
           {"http://[::1]:99999/a%20%4a%7b", "http", "::1", 65536, "/a J{", "-", "[::1]:99999"},
           {"http://h:/", "http", "h", -1, "/", "-", "h:"},
           {"http://h:99999999999999999999", "http", "h", 65536, "", "-", "h:99999999999999999999"},
           {"file:///etc/passwd", "file", "-", -1, "/etc/passwd", "-", ""},
           {"localhost:80/x", "localhost", "-", -1, "80/x", "-", "-"},
           {"example.com/verify", "-", "-", -1, "example.com/verify", "-", "-"},
           {"//host/x:y", "-", "host", -1, "/x:y", "-", "host"},
           {"?q", "-", "-", -1, "", "q", "-"},
       }) {
    const auto url = URL::parse(row.text);
    ASSERT_TRUE(url) << row.text;
    EXPECT_EQ(url->absoluteString(), row.text);
    EXPECT_EQ(url->scheme().value_or(absent), row.scheme) << row.text;
    EXPECT_EQ(url->host().value_or(absent), row.host) << row.text;
    EXPECT_EQ(url->port() ? static_cast<int>(*url->port()) : -1, row.port) << row.text;
    EXPECT_EQ(url->path(), row.path) << row.text;
    EXPECT_EQ(url->query().value_or(absent), row.query) << row.text;
    EXPECT_EQ(url->hostAndPort().value_or(absent), row.hostAndPort) << row.text;
  }
}

TEST(URL, RefusesWhatTheGrammarDoesNotAllow) {
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
    EXPECT_FALSE(URL::parse(text)) << text;
  }
}

TEST(URL, ResolvesAReference) {
  const auto base = URL::parse("http://a/b/c/d;p?q").value();
  struct Row {
    const char *reference, *result;
  };
  // RFC 3986, sections 5.4.1 and 5.4.2.
  for (const auto& [reference, result] : std::initializer_list<Row>{
           {"g:h", "g:h"},
           {"g", "http://a/b/c/g"},
           {"./g/", "http://a/b/c/g/"},
           {"/g", "http://a/g"},
           {"//g", "http://g"},
           {"?y", "http://a/b/c/d;p?y"},
           {"g?y#s", "http://a/b/c/g?y#s"},
           {"#s", "http://a/b/c/d;p?q#s"},
           {".", "http://a/b/c/"},
           {"..", "http://a/b/"},
           {"../../g", "http://a/g"},
           {"../../../g", "http://a/g"},
           {"/./g", "http://a/g"},
           {"/../g", "http://a/g"},
           {"..g", "http://a/b/c/..g"},
           {"./g/.", "http://a/b/c/g/"},
           {"g;x=1/../y", "http://a/b/c/y"},
           {"g?y/../x", "http://a/b/c/g?y/../x"},
       }) {
    EXPECT_EQ(URL::parse(reference, base).value().absoluteString(), result) << reference;
  }
  EXPECT_EQ(URL::parse("x", URL::parse("http://a").value())->absoluteString(), "http://a/x");
  EXPECT_EQ(URL::parse("../x", URL::parse("s:a/b").value())->absoluteString(), "s:/x");
  EXPECT_FALSE(URL::parse("", base));
  EXPECT_FALSE(URL::parse("a b", base));
}

TEST(URL, NamesAFile) {
  const auto url = URL::fileURLWithPath("/tmp/a b%/\xc3\xa9?#[x].png");
  EXPECT_EQ(url.absoluteString(), "file:///tmp/a%20b%25/%C3%A9%3F%23%5Bx%5D.png");
  EXPECT_EQ(url.path(), "/tmp/a b%/\xc3\xa9?#[x].png");
  EXPECT_EQ(URL::fileURLWithPath("x").path(), std::filesystem::current_path() / "x");
}

TEST(URLError, DescribesAnyError) {
  const auto describe = [](const auto& error) { return localizedDescription(std::make_exception_ptr(error)); };
  EXPECT_EQ(describe(URLError(URLError::Code::timedOut)), "The request timed out.");
  EXPECT_NE(describe(URLError(URLError::Code::serverCertificateUntrusted, "id.example")).find("\"id.example\""),
            std::string::npos);
  EXPECT_EQ(describe(std::runtime_error("no such key")), "no such key");
  EXPECT_FALSE(describe(7).empty());
  EXPECT_EQ(localizedDescription(nullptr), "");
}

}  // namespace
}  // namespace tavlo::foundation
