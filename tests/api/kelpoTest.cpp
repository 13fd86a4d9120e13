#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "Tavro/Kelpo.h"
#include "Tavro/tvExceptions.h"

namespace {

using namespace Tavro;

TEST(Exceptions, TreeAndNames) {
  static_assert(std::is_base_of_v<Kelpo::Exception, TvBaseException>);
  const auto told = [](const TvBaseException& failure) { return failure.name() + ": " + failure.what(); };
  EXPECT_EQ(told(TvNullRow()), "Tavro::TvNullRow: null row");
  EXPECT_EQ(told(TvTableFull("full")), "Tavro::TvTableFull: full");
  EXPECT_EQ(told(TvOutOfRange("out")), "Tavro::OutOfRange: out");
  EXPECT_EQ(told(TvMaxRowsExceeded("max")), "Tavro::TvMaxRowsExceeded: max");
  EXPECT_EQ(told(TvRT::TvAssemblyException("bad")), "Tavro::TvRT::TvAssemblyException: bad");
}

TEST(Debug, ATraceIsComposedOnlyWhileItsLevelIsOn) {
  Kelpo::DebugHandler* const handler = Kelpo::Platform::getDebugHandler("composed");
  EXPECT_EQ(handler, Kelpo::Platform::getDebugHandler("composed"));
  int composed = 0;
  const auto site = [&](int level) {
    Kelpo::trace(handler, level, "unit.cpp", 42, "work", [&](std::ostream& out) {
      ++composed;
      out << "third: " << 1.0 / 3;
    });
  };
  testing::internal::CaptureStderr();
  site(8);
  for (const int level : {0, 8, 31}) handler->levelIs(level, true);
  site(8);
  site(30);
  handler->levelIs(8, false);
  site(8);
  handler->flush();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "composed:8 unit.cpp:42 work: third: 0.333333333333\n");
  EXPECT_EQ(composed, 1);
  EXPECT_TRUE(handler->isOn(0) && handler->isOn(31));
  EXPECT_FALSE(handler->anyOn(0x7FFFFFFE));
}

TEST(Debug, LinesOfSeveralThreadsDoNotMix) {
  testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  for (const char c : {'a', 'b', 'c'})
    threads.emplace_back([c] {
      Kelpo::DebugHandler* const handler = Kelpo::Platform::getDebugHandler(std::string("thread ") + c);
      for (int i = 0; i < 200; ++i) {
        std::stringstream text(std::string(300, c), std::ios::in | std::ios::out | std::ios::ate);
        handler->log(text, 9, "unit.cpp", i, "work");
      }
    });
  for (std::thread& thread : threads) thread.join();
  std::istringstream lines(testing::internal::GetCapturedStderr());
  std::multiset<std::string> seen;
  for (std::string line; std::getline(lines, line);) seen.insert(line);
  std::multiset<std::string> expected;
  for (const char c : {'a', 'b', 'c'})
    for (int i = 0; i < 200; ++i)
      expected.insert(std::string("thread ") + c + ":9 unit.cpp:" + std::to_string(i) +
                      " work: " + std::string(300, c));
  EXPECT_EQ(seen, expected);
}

}  // namespace
