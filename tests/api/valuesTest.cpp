#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <vector>

#include "Tavro/arrayReference.h"
#include "Tavro/tvExceptions.h"
#include "Tavro/types.h"
#include "Tavro/values.h"

namespace Tavro {
namespace {

template <typename T>
std::string printed(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

template <typename T>
void expectRefused(const std::vector<std::string>& texts) {
  for (const std::string& text : texts) EXPECT_THROW(T{text}, std::invalid_argument) << text;
}

TEST(Types, NamesAndCodes) {
  for (const TypeRow& row : typeTable) {
    EXPECT_EQ(tavroCppTypeNameToType(row.name), row.code);
    EXPECT_EQ(getTavroTypeName(row.code), row.name);
    EXPECT_EQ(getTavroTypeLength(static_cast<unsigned short>(row.code)), row.width);
  }
  EXPECT_EQ(tavroCppTypeNameToType("Ip6Addr"), 16);
  for (const char* name : {"", "uint8", "Uint8_t", "string", " bool"})
    EXPECT_THROW(tavroCppTypeNameToType(name), std::invalid_argument) << name;
  for (const int code : {-1, 12, 19}) {
    EXPECT_THROW(getTavroTypeName(static_cast<TavroTypes>(code)), TvOutOfRange) << code;
    EXPECT_THROW(getTavroTypeLength(static_cast<unsigned short>(code)), TvOutOfRange) << code;
  }
}

TEST(Values, WidthsOfViews) {
  constexpr std::size_t pointer = sizeof(void*);
  EXPECT_EQ(sizeof(StringValueReference), pointer + 2);
  EXPECT_EQ(sizeof(IpGenAddrReference), pointer + 1);
  EXPECT_EQ(sizeof(IpGenPrefixReference), pointer + 2);
  EXPECT_EQ(sizeof(ArrayReference<StringValueReference>), 2 * pointer + 2);
}

TEST(Values, AddressesPrintInCanonicalForm) {
  const std::vector<std::pair<const char*, const char*>> cases{
      {"::", "::"},
      {"0:0:0:0:0:0:0:1", "::1"},
      {"2001:0DB8:0:0:0:0:2:1", "2001:db8::2:1"},
      {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},
      {"2001:0:0:1:0:0:0:1", "2001:0:0:1::1"},
      {"2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},
      {"1:2:3:4:5:6:7::", "1:2:3:4:5:6:7:0"},
      {"1:2:3:4:5:6::", "1:2:3:4:5:6::"},
      {"::ffff:1.2.3.4", "::ffff:1.2.3.4"},
      {"::ffff:0102:0304", "::ffff:1.2.3.4"},
      {"ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"}};
  for (const auto& [text, canonical] : cases) {
    const Ip6Addr address{std::string(text)};
    EXPECT_EQ(printed(address), canonical);
    EXPECT_EQ(Ip6Addr(printed(address)), address);
    EXPECT_EQ(printed(IpGenPrefix(text)), canonical + std::string("/128"));
  }
  EXPECT_EQ(printed(IpAddr("255.0.10.1")), "255.0.10.1");
  EXPECT_EQ(IpAddr("1.2.3.4").number(), 0x01020304U);
  EXPECT_EQ(IpAddr::fromNumber(0x01020304U), IpAddr("1.2.3.4"));
  EXPECT_EQ(printed(IpGenPrefix("10.1.2.3/8")), "10.1.2.3/8");
  EXPECT_EQ(printed(IpGenPrefix("10.1.2.3")), "10.1.2.3/32");
  EXPECT_EQ(printed(IpGenPrefix("")) + printed(IpGenAddrReference()), "");
}

TEST(Values, BadAddressTexts) {
  using namespace std::string_literals;
  expectRefused<IpAddr>({"", "1.2.3", "1.2.3.256", "1.2.3.4 ", "1.2.3.4/8", "::1", "1.2.3.4\0"s});
  expectRefused<Ip6Addr>({"", "1.2.3.4", "1:2:3:4:5:6:7", "::1::", "12345::", "::1%lo", "fe80::g"});
  expectRefused<IpGenAddr>({" ", "x", "1.2.3", "1.2.3.4/8", std::string(100, ':')});
  expectRefused<IpGenPrefix>({"/8", "10.0.0.0/", "10.0.0.0/33", "::/129", "10.0.0.0/-1", "10.0.0.0/8 ",
                              "10.0.0.0/8/8", "10.0.0.0/4294967304"});
  try {
    IpGenPrefix("10.0.0.0/33\n");
    FAIL();
  } catch (const std::invalid_argument& failure) {
    EXPECT_STREQ(failure.what(), "'10.0.0.0/33\\x0a' is no IpGenPrefix");
  }
}

TEST(Values, PrefixContainment) {
  struct Case {
    const char* outer;
    const char* inner;
    bool contained;
  };
  const std::vector<Case> cases{{"10.0.0.0/8", "10.1.0.0/16", true},
                                {"10.0.0.0/8", "10.0.0.0/8", true},
                                {"10.0.0.0/8", "10.0.0.0/7", false},
                                {"10.0.0.0/8", "11.0.0.0/8", false},
                                {"10.0.0.0/9", "10.127.1.1", true},
                                {"10.0.0.0/9", "10.128.0.0/9", false},
                                {"10.9.9.9/8", "10.0.0.0/8", true},
                                {"0.0.0.0/0", "255.255.255.255", true},
                                {"0.0.0.0/0", "::/0", false},
                                {"::/0", "2001:db8::/32", true},
                                {"2001:db8::/33", "2001:db8::1", true},
                                {"2001:db8::/33", "2001:db8:8000::", false},
                                {"", "10.0.0.0/8", false},
                                {"0.0.0.0/0", "", false},
                                {"", "", false}};
  for (const Case& each : cases)
    EXPECT_EQ(IpGenPrefix(each.outer).contains(IpGenPrefix(each.inner)), each.contained)
        << each.outer << ' ' << each.inner;
  const unsigned char bytes[16] = {};
  const IpGenPrefix strange(7, bytes, 0);
  EXPECT_FALSE(strange.contains(strange));
}

TEST(Values, ClearingLowerAddressBits) {
  struct Case {
    const char* before;
    unsigned short keep;
    const char* after;
  };
  const std::vector<Case> cases{{"255.255.255.255/32", 0, "0.0.0.0/32"},
                                {"255.255.255.255/32", 9, "255.128.0.0/32"},
                                {"255.255.255.255/32", 31, "255.255.255.254/32"},
                                {"255.255.255.255/32", 32, "255.255.255.255/32"},
                                {"255.255.255.255/32", 65535, "255.255.255.255/32"},
                                {"ffff:ffff::1/64", 17, "ffff:8000::/64"},
                                {"::1/128", 128, "::1/128"},
                                {"", 0, ""}};
  for (const Case& each : cases) {
    IpGenPrefix prefix(each.before);
    prefix.clearLowerAddrBits(each.keep);
    EXPECT_EQ(printed(prefix), each.after) << each.before << ' ' << each.keep;
  }
  IpGenPrefix prefix("10.1.0.0/16");
  prefix.maskIs(8);
  EXPECT_EQ(printed(prefix), "10.1.0.0/8");
}

// Every value of `ascending` is less than the ones behind it, and equal to itself alone.
template <typename T>
void expectOrder(const std::vector<T>& ascending) {
  for (std::size_t i = 0; i < ascending.size(); ++i)
    for (std::size_t j = 0; j < ascending.size(); ++j) {
      EXPECT_EQ(ascending[i] < ascending[j], i < j) << i << ' ' << j;
      EXPECT_EQ(ascending[i] == ascending[j], i == j) << i << ' ' << j;
    }
}

TEST(Values, Orders) {
  expectOrder<StringValueReference>(
      {{"", 0}, {"a", 1}, {"a\0", 2}, {"ab", 2}, {"b", 1}, {"\x7F", 1}, {"\x80", 1}});
  expectOrder<IpAddr>({IpAddr("1.2.3.4"), IpAddr("9.0.0.0"), IpAddr("200.0.0.0")});
  expectOrder<Ip6Addr>({Ip6Addr("::1"), Ip6Addr("7f::"), Ip6Addr("8000::")});

  const IpGenAddr low("1.2.3.4"), high("200.0.0.0"), v6("::");
  std::vector<IpGenAddrReference> addresses{{}};
  for (const IpGenAddr* each : {&low, &high, &v6}) addresses.emplace_back(each->bytes(), each->family());
  expectOrder(addresses);

  std::vector<IpGenPrefixReference> prefixes{{},
                                             {low.bytes(), Ipv4Family, 32},
                                             {high.bytes(), Ipv4Family, 8},
                                             {high.bytes(), Ipv4Family, 9},
                                             {v6.bytes(), Ipv6Family, 0}};
  expectOrder(prefixes);
}

TEST(Values, FmtShowsValuesAndNotCharacters) {
  const signed char negative = -65;
  const unsigned char letter = 'A';
  const bool yes = true;
  const StringValueReference text("say \"a\\b\"", 9);
  EXPECT_EQ(
      printed(FMT<signed char>{negative}) + printed(FMT<unsigned char>{letter}) + printed(FMT<bool>{yes}),
      "-6565true");
  EXPECT_EQ(printed(FMT<StringValueReference>{text}), R"("say \"a\\b\"")");
  EXPECT_EQ(printed(text), R"(say "a\b")");
  EXPECT_EQ(printed(StringValueReference()), "");
}

}  // namespace
}  // namespace Tavro
