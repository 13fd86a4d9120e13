#include <algorithm>
#include <memory>
#include <string>

#include "Tavro/TvRTLoader.h"
#include "lua.h"
#include "tables.h"
#include "workloads.h"

namespace Tavro::Bench {

namespace {

// Both texts consist of ten lines around groups of nine, in which GROUP and NUMBER stand for numbers. Line
// for line the groups say the same: add the price to the sum if the quantity is above NUMBER.
constexpr std::size_t linesAround = 10;
constexpr std::size_t linesPerGroup = 9;

struct Text {
  const char* head;
  const char* group;
  const char* foot;
};

constexpr Text tvopText{
    R"(queryName "load"
properties "isOneShot=true"
bindTable 0, 16, 0, "bench::sums", "o", ""
bindTable 1, 20, 0, "bench::item", "i", ""
bindTemporaries 16, ""
end
entry init
halt
entry t1rdy.wc
)",
    R"(pushColumn<uint32_t> 1, 16
pushCnst<uint8_t> NUMBER
gt<uint64_t>
invCondBranch nextGROUP
pushColumn<double> 6, 8
pushColumn<double> 1, 8
add<double>
popColumn<double> 6, 8
label nextGROUP
)",
    "halt\n"};

// As in the text above.
constexpr len_t priceColumn = 8;
constexpr len_t quantityColumn = 16;
constexpr len_t itemLength = 20;
constexpr len_t sumColumn = 8;
constexpr unsigned int quantity = 100;
constexpr double price = 2.75;

constexpr Text luaText{
    R"(local item = {
  quantity = 100,
  price = 2.75
}
local temp = {
  sum = 0.0
}
local left, right
local result
)",
    R"(left = item.quantity
right = NUMBER
result = left > right
if result then
  left = temp.sum
  right = item.price
  result = left + right
  temp.sum = result
end
)",
    "return temp.sum\n"};

void replaceAll(std::string& text, const std::string& word, const std::string& by) {
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + by.size()))
    text.replace(at, word.size(), by);
}

// The program of as many lines as the scale has items.
std::string newProgram(const Scale& scale, const Text& text) {
  std::string program = text.head;
  for (std::size_t i = 0; i < (scale.items - linesAround) / linesPerGroup; ++i) {
    std::string group = text.group;
    replaceAll(group, "GROUP", std::to_string(i));
    replaceAll(group, "NUMBER", std::to_string(i * 31 % 251));
    program += group;
  }
  return program + text.foot;
}

// A short program of the kind. It is loaded ahead of the run, so that the first touch of a library's pages,
// whose price varies widely between machines, does not stand in the figures.
std::string foretaste(const Scale& scale, const Text& text) {
  return newProgram({.items = linesAround + linesPerGroup, .seed = scale.seed}, text);
}

Answer answerOfRun(const std::string& program, double sum) {
  const auto lines = static_cast<std::uint64_t>(std::count(program.begin(), program.end(), '\n'));
  Answer answer;
  answer.add(lines, sum);
  answer.count = lines;
  return answer;
}

class TvopAssembler : public Contestant {
 public:
  explicit TvopAssembler(const Scale& scale) : program_(newProgram(scale, tvopText)) {
    load(foretaste(scale, tvopText));
  }
  void run() override { load(program_); }
  Answer answer() override {
    BaseRow& item = context_->getRow(1);
    item.setColumn(priceColumn, price, itemLength);
    item.setColumn(quantityColumn, quantity, itemLength);
    context_->execute(context_->onReadyWC(1));
    double sum = 0;
    context_->getRow(context_->tempRowIndex()).getColumn(sumColumn, sum);
    return answerOfRun(program_, sum);
  }

 private:
  struct Delete {
    void operator()(TvRT::Context* context) const {
      context->deleteBindings();
      delete context;
    }
  };
  void load(const std::string& text) { context_.reset(TvRT::Loader(getTavroDb(), text, {}).load()); }

  std::string program_;
  std::unique_ptr<TvRT::Context, Delete> context_;
};

class LuaCompiler : public Contestant {
 public:
  explicit LuaCompiler(const Scale& scale) : program_(newProgram(scale, luaText)) {
    Lua().loadText(foretaste(scale, luaText));
  }
  void run() override { lua_.loadText(program_); }
  Answer answer() override {
    lua_.call(1);
    return answerOfRun(program_, lua_.real(0));
  }

 private:
  std::string program_;
  Lua lua_;
};

}  // namespace

std::vector<Entrant> loadEntrants() {
  return {{"tvop", "load", make<TvopAssembler>}, {"Lua", "load", make<LuaCompiler>}};
}

}  // namespace Tavro::Bench
