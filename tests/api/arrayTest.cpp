#include <gtest/gtest.h>

#include <sstream>

#include "../thrown.h"
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
  EXPECT_EQ(thrown<TvOutOfRange>([&] { numbers.view()[3]; }), "Invalid Index");
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

TEST(Array, PrintsValuesAndNotCharacters) {
  std::ostringstream out;
  out << ArrayReference<int>() << ArrayColumn<signed char>(TypeInt8, "[-65]").view()
      << ArrayColumn<bool>(TypeBool, "[true,false]").view()
      << ArrayColumn<StringValueReference>(TypeString, R"(["a\"b\\",""])").view()
      << ArrayColumn<IpGenPrefixReference>(TypeIpGenPrefix, "[10.0.0.0/8]").view()
      << StringValueReference(R"(a "b")", 5) << StringValueReference();
  EXPECT_EQ(out.str(), R"([][-65][true,false]["a\"b\\",""][10.0.0.0/8]a "b")");
}

}  // namespace
}  // namespace Tavro
