#include <array>

#include "support.h"

namespace Tavro::TvRT {
namespace {

constexpr std::size_t pointerWidth = sizeof(void*);

// Takes the stack from empty to `bytes`, which are not 1.
void fillTo(Stack& stack, unsigned bytes) {
  stack.clear();
  if (bytes % 2 == 1) stack.push(StackValue<short>(0, false));
  while (stack.depth() < bytes) stack.push(StackValue<bool>(0, false));
}

// Calls `use` with a sample of each type that can stand on the stack, and its slot width.
template <typename Use>
void forEachType(const Use& use) {
  static const std::array<unsigned char, 16> bytes{1, 2, 3, 4};
  use(true, 2U);
  use(static_cast<signed char>(-128), 2U);
  use(static_cast<unsigned short>(65534), 3U);
  use(-3, 5U);
  use(-1234567890123LL, 9U);
  use(1.5F, 5U);
  use(-0.25, 9U);
  use(IpAddr("1.2.3.4"), 5U);
  use(Ip6Addr("2001:db8::1"), 17U);
  use(StringValueReference("abc", 3), 3U + pointerWidth);
  use(IpGenAddrReference(bytes.data(), Ipv4Family), 2U + pointerWidth);
  use(IpGenPrefixReference(bytes.data(), Ipv4Family, 9), 3U + pointerWidth);
  use(ArrayReference<unsigned char>(bytes.data(), 3), 3U + 2 * pointerWidth);
  use(ArrayReference<StringValueReference>(), 3U + 2 * pointerWidth);
}

TEST(StackTest, SlotIsTheFlagAndThenTheValuePacked) {
  forEachType([]<typename T>(const T& sample, std::size_t width) {
    for (const bool isNull : {false, true}) {
      Stack stack;
      stack.push(StackValue<T>(sample, isNull));
      ASSERT_EQ(stack.depth(), width);
      EXPECT_EQ(stack.bottom()[0], isNull ? 1 : 0);
      const T value = sample;
      EXPECT_EQ(std::memcmp(stack.bottom() + 1, static_cast<const void*>(&value), width - 1), 0);
      const StackValue<T> back = stack.pop<T>();
      EXPECT_EQ(std::memcmp(static_cast<const void*>(&back), stack.bottom(), width), 0);
      EXPECT_EQ(back.isNull(), isNull);
      EXPECT_TRUE(stack.isEmpty());
    }
  });
}

TEST(StackTest, PushTestsTheWidthOfTheValueAlone) {
  forEachType([]<typename T>(const T& sample, std::size_t width) {
    Stack stack;
    const auto roomFor = static_cast<unsigned>(width - 1);
    fillTo(stack, 4000 - roomFor);
    stack.push(StackValue<T>(sample, false));
    EXPECT_EQ(stack.depth(), 4001U);
    EXPECT_THROW(stack.push(StackValue<bool>(0, false)), std::out_of_range);

    fillTo(stack, 4000 - roomFor + 1);
    const auto number = [](const unsigned char* at) {
      return std::to_string(reinterpret_cast<std::uintptr_t>(at));
    };
    const unsigned char* const top = stack.topOfStack();
    EXPECT_EQ(thrown<std::out_of_range>([&] { stack.push(StackValue<T>(sample, false)); }),
              "stack overflow " + number(stack.bottom()) + " " + number(top) + " " +
                  number(stack.bottom() + 4000) + " " + std::to_string(roomFor));
    EXPECT_EQ(stack.topOfStack(), top);
  });
}

TEST(StackTest, OnlyAnEmptyStackRefusesAPop) {
  Stack stack;
  EXPECT_EQ(thrown<std::out_of_range>([&] { stack.pop<bool>(); }), "stack underflow");
  EXPECT_EQ(stack.depth(), 0U);
  EXPECT_TRUE(stack.isEmpty());

  stack.push(StackValue<bool>(1, false));
  // Seven zero bytes from below the base, the flag, the value.
  const StackValue<long long> wide = stack.pop<long long>();
  EXPECT_FALSE(wide.isNull());
  EXPECT_EQ(static_cast<long long>(wide.value), 1LL << 56);
  EXPECT_EQ(stack.depth(), 0U - 7U);
  EXPECT_FALSE(stack.isEmpty());
  EXPECT_EQ(thrown<std::out_of_range>([&] { stack.pop<bool>(); }), "stack underflow");

  // A push below the base is in order; it is a pop that has to end above it.
  stack.push(StackValue<short>(5, false));
  EXPECT_EQ(stack.depth(), 0U - 4U);
  EXPECT_THROW(stack.pop<short>(), std::out_of_range);
  stack.clear();
  EXPECT_TRUE(stack.isEmpty());
}

TEST(StackTest, PairIsTakenAsTwoPopsAre) {
  Stack stack;
  stack.push(StackValue<bool>(1, true));
  stack.push(StackValue<short>(-2, false));
  const auto [top, next] = stack.popPair<short, bool>();
  EXPECT_EQ(short{top.value}, -2);
  EXPECT_EQ(next.value, 1);
  EXPECT_TRUE(next.isNull());
  EXPECT_TRUE(stack.isEmpty());

  stack.push(StackValue<short>(5, false));
  EXPECT_EQ(thrown<std::out_of_range>([&] { stack.popPair<short, short>(); }), "stack underflow");
  EXPECT_EQ(stack.depth(), 0U) << "the first of them is gone";
  stack.push(StackValue<short>(5, false));
  EXPECT_THROW((stack.popPair<long long, bool>()), std::out_of_range) << "the first ends below the base";
  EXPECT_EQ(stack.depth(), 0U - 6U);
}

TEST(StackValueTest, OnlyTheLowestBitOfTheFlagMeansNull) {
  StackValue<int> value(7, false);
  for (const unsigned flag : {0U, 1U, 2U, 3U, 0xFEU, 0xFFU}) {
    value.flag = static_cast<unsigned char>(flag);
    EXPECT_EQ(value.isNull(), flag % 2 == 1) << flag;
  }
}

// The rest of a line is what cases show.
TEST(StackTest, TracesWhereTheTopIs) {
  Stack stack;
  const Lines lines = traceOf({{"Stack", 8}}, [&] {
    stack.push(StackValue<unsigned long long>(12, false));
    stack.push(StackValue<signed char>(65, true));
    stack.pop<signed char>();
  });
  const auto base = reinterpret_cast<std::uintptr_t>(stack.bottom());
  const std::pair<unsigned, const char*> ends[] = {{9, " <-- 12"}, {11, " <-- NULL"}, {9, " --> NULL"}};
  ASSERT_EQ(lines.size(), std::size(ends));
  for (std::size_t i = 0; i < lines.size(); ++i)
    EXPECT_TRUE(lines[i].ends_with("]@" + std::to_string(base + ends[i].first) + "/" + std::to_string(base) +
                                   ends[i].second))
        << lines[i];
}

}  // namespace
}  // namespace Tavro::TvRT
