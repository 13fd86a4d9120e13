// Prints the vocabulary of the assembly language as the library knows it, for checkLanguage.py: a line for
// each statement, of its name, the words for its arguments, and what it takes for a type, separated by tabs.
// The last is "untyped", the accepted type names, or "none" when nothing carries the statement out.

#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "Tavro/TvRTBinOp.h"
#include "Tavro/TvRTLoader.h"
#include "Tavro/TvRTOpCatalogue.h"
#include "Tavro/database.h"
#include "Tavro/types.h"

namespace {

using namespace Tavro;
using namespace Tavro::TvRT;

// What stands for an argument, by the catalogue's word for it: a constant of the type, or a number, which is
// also taken for a label and for a text.
std::string argumentFor(const std::string& word, const std::string& type) {
  if (word != "constant") return "8";
  if (type == "Ip6Addr") return "::";
  if (type == "IpGenPrefix") return "10.0.0.0/8";
  return type.starts_with("Ip") ? "10.0.0.1" : "8";
}

std::vector<std::string> argumentsFor(const OpCatalogueRow& row, const std::string& type) {
  std::vector<std::string> arguments;
  std::istringstream words{std::string(row.arguments)};
  for (std::string word; words >> word;) arguments.push_back(argumentFor(word, type));
  return arguments;
}

// Whether the library assembles the statement with these types without a complaint.
bool isCarriedOut(const OpCatalogueRow& row, const std::vector<std::string>& types) {
  const std::string name(row.name);
  const std::vector<std::string> arguments = argumentsFor(row, types.empty() ? "" : types[0]);
  const OwnedContext context(new Context(getTavroDb()));
  context->bindTable(0, tv_contentOffset + variableSlotWidth, 0, "out", "out", "");
  context->setIterCount(8);
  Loader loader(getTavroDb(), "vocabulary", {});
  try {
    loader.dispatchOp(*context, &name, types.empty() ? nullptr : &types, &arguments);
  } catch (const std::exception&) {
    return false;
  }
  return loader.errorCount() == 0;
}

// Whether the statement takes the type, alone or with some second one.
bool takesType(const OpCatalogueRow& row, const TypeRow& type) {
  // The dispatcher of binary operators ends the process on a type that it does not have.
  if (row.cat.category == BinaryOps && row.name != "dummy" &&
      BinOpDispatch::fetchBinOp(row.cat.opCode, type.code) == nullptr)
    return false;
  for (const TypeRow& second : typeTable)
    if (isCarriedOut(row, {std::string(type.name), std::string(second.name)})) return true;
  return false;
}

std::string typesOf(const OpCatalogueRow& row) {
  if (!row.cat.typed) return isCarriedOut(row, {}) ? "untyped" : "none";
  std::string names;
  for (const TypeRow& type : typeTable)
    if (takesType(row, type)) names.append(names.empty() ? "" : " ").append(type.name);
  return names.empty() ? "none" : names;
}

}  // namespace

int main() {
  for (const OpCatalogueRow& row : opCatalogue)
    std::cout << row.name << '\t' << row.arguments << '\t' << typesOf(row) << '\n';
}
