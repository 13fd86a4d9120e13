#include <gtest/gtest.h>

#include <sstream>

#include "Tavro/tvMetadata.h"

namespace Tavro {
namespace {

// A row with one array column, filled from its text form.
template <typename T>
class ArrayColumn {
 public:
  ArrayColumn(TavroTypes type, const std::string& text) {
    storeColumnFromString(row_, offset, static_cast<unsigned short>(type), 0, true, text, fixedLength);
  }

  ArrayReference<T> view() const {
    ArrayReference<T> array;
    row_.getColumn(offset, array);
    return array;
  }
  unsigned char* payload() { return row_.rwRowBuf() + (view().payload() - row_.rowBuf()); }

 private:
  static constexpr len_t offset = 8, fixedLength = 12;
  BaseRow row_{fixedLength};
};

struct SetCase {
  const char* left;
  const char* right;
  bool equal, contains, intersects;
};

template <typename T>
void checkSets(TavroTypes type, const std::vector<SetCase>& cases) {
  for (const SetCase& each : cases) {
    SCOPED_TRACE(getTavroTypeName(type) + " " + each.left + " " + each.right);
    const ArrayColumn<T> left(type, each.left), right(type, each.right);
    EXPECT_EQ(left.view() == right.view(), each.equal);
    EXPECT_EQ(left.view().contains(right.view()), each.contains);
    EXPECT_EQ(left.view().intersects(right.view()), each.intersects);
    EXPECT_EQ(right.view().intersects(left.view()), each.intersects);
  }
}

TEST(Array, EqualsContainsIntersects) {
  checkSets<unsigned int>(TypeUint32, {{"[1,2,2]", "[2,2]", false, true, true},
                                       {"[1,2]", "[2,2]", false, false, true},
                                       {"[1,2]", "[2,9]", false, false, true},
                                       {"[1,2]", "[2,1]", false, true, true},
                                       {"[1,2]", "[1,2]", true, true, true},
                                       {"[1,2]", "[3]", false, false, false},
                                       {"[1,2,3]", "[]", false, false, false},
                                       {"[]", "[1]", false, false, false},
                                       {"[]", "[]", true, false, false}});
  checkSets<bool>(
      TypeBool, {{"[true,false]", "[false]", false, true, true}, {"[true]", "[false]", false, false, false}});
  checkSets<StringValueReference>(TypeString, {{R"(["a","b","b"])", R"(["b","a"])", false, true, true},
                                               {R"(["a",""])", R"([""])", false, true, true},
                                               {R"(["ab"])", R"(["a","b"])", false, false, false}});
  checkSets<IpGenPrefixReference>(TypeIpGenPrefix, {{"[10.0.0.0/8,::/8]", "[10.0.0.0/8]", false, true, true},
                                                    {"[10.0.0.0/8]", "[10.0.0.0/9]", false, false, false},
                                                    {"[,10.0.0.0/8]", "[\"\"]", false, true, true}});
}

TEST(Array, PayloadOfVariableElementsBeginsWithTheirEnds) {
  ArrayColumn<StringValueReference> column(TypeString, R"(["a","","bcd"])");
  const std::string expected("\3\0\1\0\1\0\4\0abcd", 12);
  ASSERT_EQ(column.view().length(), expected.size());
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(column.view().payload()), expected.size()), expected);
}

TEST(Array, IndexingLetsTheCountThrough) {
  const ArrayColumn<unsigned short> numbers(TypeUint16, "[7,8]");
  EXPECT_EQ(numbers.view()[1], 8);
  EXPECT_NO_THROW(numbers.view()[2]);
  const ArrayColumn<Ip6Addr> addresses(TypeIp6Addr, "[::1]");
  EXPECT_NO_THROW(addresses.view()[1]);
  const ArrayColumn<StringValueReference> strings(TypeString, R"(["a"])");
  EXPECT_EQ(strings.view()[0].view(), "a");
  EXPECT_EQ(strings.view()[1].length(), 0);
  try {
    numbers.view()[3];
    FAIL();
  } catch (const TvOutOfRange& failure) {
    EXPECT_STREQ(failure.what(), "Invalid Index");
  }
}

TEST(Array, HighBitsOfTheCountWordMeanNothing) {
  ArrayColumn<unsigned char> column(TypeUint8, "[44,45]");
  column.payload()[1] |= 0xF0;
  EXPECT_EQ(column.view().count(), 2U);
  const ArrayColumn<unsigned char> plain(TypeUint8, "[44,45]");
  EXPECT_EQ(column.view(), plain.view());
  column.payload()[0] = 0;
  EXPECT_EQ(column.view(), ArrayReference<unsigned char>());
}

TEST(Array, PrebuiltIndexIsUsed) {
  const ArrayColumn<int> one(TypeInt32, "[1,2,3]"), other(TypeInt32, "[8,9]");
  const std::multimap<int, unsigned short> index{{1, 0}, {3, 1}};
  const ArrayReference<int> indexed(other.view().payload(), other.view().length(), &index);
  EXPECT_TRUE(one.view().contains(indexed));
  EXPECT_TRUE(one.view().intersects(indexed));
  EXPECT_TRUE(indexed.intersects(one.view()));
}

TEST(Array, PrintsEveryElement) {
  std::string expected = "[0";
  for (int i = 1; i < 4095; ++i) expected += "," + std::to_string(i % 256);
  expected += "]";
  std::ostringstream out;
  out << ArrayColumn<unsigned char>(TypeUint8, expected).view();
  EXPECT_EQ(out.str(), expected);

  out.str("");
  out << ArrayReference<int>() << ArrayColumn<signed char>(TypeInt8, "[-1]").view()
      << ArrayColumn<bool>(TypeBool, "[true,false]").view()
      << ArrayColumn<StringValueReference>(TypeString, R"(["a\"b\\",""])").view()
      << ArrayColumn<IpGenPrefixReference>(TypeIpGenPrefix, "[10.0.0.0/8]").view();
  EXPECT_EQ(out.str(), R"([][-1][true,false]["a\"b\\",""][10.0.0.0/8])");
}

}  // namespace
}  // namespace Tavro
