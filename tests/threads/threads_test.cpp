#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>

#include "Tavro/TvRTProxy.h"
#include "Tavro/database.h"

namespace Tavro {
namespace {

// Passes on the rows whose number is above a limit, with their text; and counts them in a temporary.
std::string programOf(const std::string& input, const std::string& output, int limit) {
  return "bindTable 0, 20, 0, \"" + output + "\", \"o\", \"\"\nbindTable 1, 20, 0, \"" + input +
         "\", \"i\", \"\"\nend\nentry init\nhalt\n"
         "entry t1row.wc\npushColumn<int32_t> 1, 12\npushCnst<int32_t> " +
         std::to_string(limit) +
         "\ngt<int64_t>\ninvCondBranch skip\ncopyColumn<int32_t> 1, 8, 0, 8\ncopyColumn<int32_t> 1, 12, 0, "
         "12\n"
         "copyColumn<string_t> 1, 16, 0, 16\ninsertRow 0\nlabel skip\nhalt\n";
}

// The scanner gathers strings in one buffer for the process: programs are loaded one at a time.
std::mutex loading;

TvPtr<TvRT::Proxy> hosted(const std::string& path, const std::string& program) {
  const std::lock_guard lock(loading);
  std::ofstream(path) << program;
  TvPtr<TvRT::Proxy> proxy = TvRT::Proxy::factory(path, true);
  std::remove(path.c_str());
  proxy->enable();
  return proxy;
}

// Two stages over a database of the thread's own, with back-pressure between them. Returns the sum of the
// numbers that come out.
long long sumOfPipeline(int thread) {
  const auto database = std::make_shared<TavroDB>();
  const ThreadDatabase own(database);
  Database& tables = database->database();
  const std::vector<ColumnDefinition> columns{
      {"id", TypeInt32, false, true}, {"number", TypeInt32}, {"text", TypeString}};
  Table& in = tables.createTable("in", columns);
  tables.createTable("middle", columns).capacityIs(3);
  Table& out = tables.createTable("out", columns);

  const std::string path =
      testing::TempDir() + "threads." + std::to_string(getpid()) + "." + std::to_string(thread) + ".tva";
  const TvPtr<TvRT::Proxy> first = hosted(path, programOf("in", "middle", 10));
  const TvPtr<TvRT::Proxy> second = hosted(path, programOf("middle", "out", 20));
  TvTableInterface writer("events", "", TvTableInterface::writeMode, {}, {}, {}, {});
  tables.bindInterface(writer, "in");
  tables.scheduler().runUntilIdle();
  for (int i = 0; i < 2000; ++i) {
    BaseRow row = in.newRow();
    row.setColumn(8, i % 700, in.fixedLength());
    row.setColumn(12, i % 40, in.fixedLength());
    row.setColumn(16, std::string(static_cast<std::size_t>(i % 50), 'x'), in.fixedLength());
    writer.rowIs(row);
    if (i % 5 == 0) writer.rowDel(row);
    if (i % 7 == 0) tables.scheduler().runUntilIdle();
  }
  tables.scheduler().runUntilIdle();

  long long sum = 0;
  TvTableInterface reader("sum", "", TvTableInterface::readMode, {}, {}, {}, {});
  tables.bindInterface(reader, out.name());
  for (TvRowIterator row = reader.begin(0); row != reader.end(0); ++row) {
    int number = 0;
    (*row).getColumn(12, number);
    sum += number;
  }
  return sum;
}

// Operators of different databases share nothing that they write to; a thread sanitizer has nothing to say.
TEST(ThreadsTest, IndependentDatabasesRunOnThreadsOfTheirOwn) {
  const long long expected = sumOfPipeline(0);
  EXPECT_GT(expected, 0);
  std::array<long long, 3> sums{};
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < sums.size(); ++i)
    threads.emplace_back([&sums, i] { sums[i] = sumOfPipeline(static_cast<int>(i) + 1); });
  for (std::thread& thread : threads) thread.join();
  for (const long long sum : sums) EXPECT_EQ(sum, expected);
}

}  // namespace
}  // namespace Tavro
