#include <Foundation/Coding.hpp>
#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>

#include <gtest/gtest.h>

#include "support/Errors.hpp"

namespace tavlo::foundation {
namespace {

struct Leaf {
  std::string name;
  std::optional<double> size;
  static constexpr auto members() { return std::tuple{member("name", &Leaf::name), member("size", &Leaf::size)}; }
};

struct Tree {
  Leaf first;
  std::vector<Leaf> others;
  std::optional<Leaf> last;
  static constexpr auto members() {
    return std::tuple{member("first", &Tree::first), member("others", &Tree::others), member("last", &Tree::last)};
  }
};

TEST(Coding, TakesMembersInAnyOrderAndWritesThoseThatAreThereInThatOfTheirTable) {
  const auto tree = JSONDecoder().decode<Tree>(dataOf(
      R"({"x":[{}],"others":[{"Name":1,"size":2,"name":"b"},{"name":"c","size":null}],"first":{"name":"a"},"last":null})"));
  EXPECT_EQ(textOf(JSONEncoder().encode(tree)),
            R"({"first":{"name":"a"},"others":[{"name":"b","size":2},{"name":"c"}]})");
}

TEST(Coding, TellsWhatIsWrongAndWhere) {
  using Kind = DecodingError::Kind;
  const std::tuple<std::string, Kind, std::string> rows[] = {
      {R"({"others":[]})", Kind::keyNotFound, "first"},
      {R"({"first":{"name":"a"},"others":[{"name":"b"},{}]})", Kind::keyNotFound, "others[1].name"},
      {R"({"first":{"name":1},"others":[]})", Kind::typeMismatch, "first.name"},
      {R"({"first":{"name":null},"others":[]})", Kind::valueNotFound, "first.name"},
      {R"({"first":{"name":"a","size":"b"},"others":[]})", Kind::typeMismatch, "first.size"},
      {R"({"first":{"name":"a"},"others":{}})", Kind::typeMismatch, "others"},
      {R"([])", Kind::typeMismatch, ""},
      {R"({"first")", Kind::dataCorrupted, ""}};
  for (const auto& [text, kind, path] : rows) {
    const auto error =
        test::errorOf<DecodingError>([&json = text] { return JSONDecoder().decode<Tree>(dataOf(json)); });
    ASSERT_TRUE(error) << text;
    EXPECT_EQ(error->kind(), kind) << text;
    EXPECT_EQ(describe(error->codingPath()), path);
  }
  const Tree malformed{{"a", 0}, {{"b", 0}, {"\xFF", 0}}, std::nullopt};
  const auto error = test::errorOf<EncodingError>([&] { return JSONEncoder().encode(malformed); });
  EXPECT_EQ(describe(error.value().codingPath()), "others[1].name");
}

/// Adds members to those of its base, as an app's subclass does, and writes some again.
struct Extended {
  std::vector<std::string> again;
  void encode(Encoder& encoder) const {
    encodeMembers(Leaf{"a", 1}, Leaf::members(), encoder);
    for (const std::string& key : again) encoder.container().encode(key, std::string("new"));
  }
};

TEST(Coding, SameContainerTakesFurtherMembersAndTheLastOfOneKeyCounts) {
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"extra"}, R"({"name":"a","size":1,"extra":"new"})"},
      {{"name"}, R"({"size":1,"name":"new"})"},
      {{"size"}, R"({"name":"a","size":"new"})"},
      {{"name", "size", "name"}, R"({"size":"new","name":"new"})"},
      {{"extra", "name", "extra", "size"}, R"({"name":"new","extra":"new","size":"new"})"}};
  for (const auto& [again, text] : rows) EXPECT_EQ(textOf(JSONEncoder().encode(Extended{again})), text);
  struct Nothing {
    void encode(Encoder& /*encoder*/) const {}
  };
  EXPECT_THROW((void)JSONEncoder().encode(Nothing{}), EncodingError);
}

}  // namespace
}  // namespace tavlo::foundation
