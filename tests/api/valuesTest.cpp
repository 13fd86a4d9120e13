#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "../thrown.h"
#include "Tavro/tvExceptions.h"
#include "Tavro/types.h"
#include "Tavro/values.h"

namespace Tavro {
namespace {

template <typename T>
void expectRefused(const std::vector<std::string>& texts) {
  for (const std::string& text : texts) EXPECT_THROW(T{text}, std::invalid_argument) << text;
}

TEST(Types, OfOtherNamesAndCodesThereAreNone) {
  EXPECT_EQ(tavroCppTypeNameToType("Ip6Addr"), 16);
  for (const char* name : {"", "uint8", "Uint8_t", "string", " bool"})
    EXPECT_THROW(tavroCppTypeNameToType(name), std::invalid_argument) << name;
  for (const int code : {-1, 12, 19}) {
    EXPECT_THROW(getTavroTypeName(static_cast<TavroTypes>(code)), TvOutOfRange) << code;
    EXPECT_THROW(getTavroTypeLength(static_cast<unsigned short>(code)), TvOutOfRange) << code;
  }
}

TEST(Values, NumbersOfAddresses) {
  EXPECT_EQ(IpAddr("1.2.3.4").number(), 0x01020304U);
  EXPECT_EQ(IpAddr::fromNumber(0x01020304U), IpAddr("1.2.3.4"));
}

TEST(Values, BadAddressTexts) {
  using namespace std::string_literals;
  expectRefused<IpAddr>({"", "1.2.3", "1.2.3.256", "1.2.3.4 ", "1.2.3.4/8", "::1", "1.2.3.4\0"s});
  expectRefused<Ip6Addr>({"", "1.2.3.4", "1:2:3:4:5:6:7", "::1::", "12345::", "::1%lo", "fe80::g"});
  expectRefused<IpGenAddr>({" ", "x", "1.2.3", "1.2.3.4/8", std::string(100, ':')});
  expectRefused<IpGenPrefix>({"/8", "10.0.0.0/", "10.0.0.0/33", "::/129", "10.0.0.0/-1", "10.0.0.0/8 ",
                              "10.0.0.0/8/8", "10.0.0.0/4294967304"});
  EXPECT_EQ(thrown<std::invalid_argument>([] { IpGenPrefix("10.0.0.0/33\n"); }),
            "'10.0.0.0/33\\x0a' is no IpGenPrefix");
}

TEST(Values, APrefixContainsNoShorterOneAndNothingOfAStrangeFamily) {
  EXPECT_FALSE(IpGenPrefix("10.0.0.0/8").contains(IpGenPrefix("10.0.0.0/7")));
  EXPECT_TRUE(IpGenPrefix("10.0.0.0/8").contains(IpGenPrefix("10.0.0.0/9")));
  const unsigned char bytes[16] = {};
  const IpGenPrefix strange(7, bytes, 0);
  EXPECT_FALSE(strange.contains(strange));
}

}  // namespace
}  // namespace Tavro
