#pragma once

#include <cstddef>
#include <istream>
#include <list>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Tavro/Kelpo.h"
#include "Tavro/TvRTContext.h"
#include "Tavro/TvRTOpCatalogue.h"
#include "Tavro/export.h"
#include "Tavro/tavroDb.h"

namespace Tavro::TvRT {

// Assembles one program, given as a file or as text, into a Context, statement by statement in the order of
// the text. Built for one `load`. Loads must not overlap in a process: the scanner's string buffer is shared.
class TAVRO_EXPORT Loader {
 public:
  class __kelpoDebug : public Kelpo::DebugSupport {
   public:
    __kelpoDebug() : Kelpo::DebugSupport(getHandler()) {}
    static Kelpo::DebugHandler* getHandler();
  };

  // `path` is a file when it ends in ".tva", else the assembly text itself. The parameters are kept and not
  // read.
  Loader(TvPtr<TavroDB> database, const std::string& path,
         const std::unordered_map<std::string, std::string>& params);
  Loader(const Loader&) = delete;
  Loader& operator=(const Loader&) = delete;

  // Assembles the program. The caller owns the context and deletes its binding records before it deletes it.
  // Statements that nothing carries out are reported on standard error and counted, and a syntax error is
  // reported and ends the text there; the context is returned in both cases. Throws
  // - std::invalid_argument for a path that is too short or cannot be opened, and for a bad number;
  // - std::out_of_range for a number that does not fit;
  // - TvAssemblyException for an unrecognized character and for a statement that the catalogue refuses;
  // - std::runtime_error for a type that an operation does not take;
  // and what the platform raises for an unknown type name.
  Context* load();

  // Assembles a stream into a new context, which belongs to the caller.
  Context* processFile(std::istream& in);
  // Assembles a stream into a context, which is Ready afterwards.
  void parse(Context* context, std::istream& in);

  using Texts = std::span<const std::string_view>;
  // Carries out one statement, called by the parser once for each: translates its types, looks it up and
  // generates its code. Throws what `load` throws for a statement.
  void dispatchOp(Context& context, std::string_view name, Texts types, Texts args);
  // The same; `types` and `args` may be null.
  void dispatchOp(Context& context, const std::string* name, const std::vector<std::string>* types,
                  const std::vector<std::string>* args);

  // Number of errors reported so far, and of warnings, of which there are none.
  unsigned int errorCount() const { return errors; }
  unsigned int warningCount() const { return warnings; }

  // The codes of type names, in order; none for null.
  static std::vector<TavroTypes> translateTypes(const std::vector<std::string>* types);
  static std::vector<std::string> processArgs(const std::vector<std::string>* args);
  // The catalogue's row for a statement. Throws TvAssemblyException for a name that it does not have and for
  // a statement that does not fit its row.
  const opCat* fetchOpCat(const std::string& name, bool hasTypes, const std::vector<std::string>& args);
  // Carries out a directive or installs an instruction.
  void genCode(Context& context, const opCat* entry, const std::vector<std::string>& args,
               const std::vector<TavroTypes>& types);
  // A signed decimal number at the start of the text; what follows it is ignored. Throws
  // std::invalid_argument or std::out_of_range, both "stoi".
  static int makeIntValue(const std::string& text);
  // Reports one error on standard error, counts it, and returns the text reported.
  std::string error(const std::string& message);

 private:
  const opCat& rowOf(std::string_view name, bool hasTypes, std::size_t argCount);
  // Throws what is wrong with a statement that does not fit the row of that number, or has none.
  [[noreturn]] void refuse(std::size_t row, const std::string& name, std::size_t argCount);
  void generate(Context& context, const opCat& entry, Texts args, const std::vector<TavroTypes>& types);
  void publishTrace(const Context& context, const opCat& entry, Texts args,
                    const std::vector<TavroTypes>& types) const;

  TvPtr<TavroDB> database;
  std::string path;
  std::unordered_map<std::string, std::string> params;
  std::size_t line = 0;
  std::string note;
  unsigned int errors = 0;
  unsigned int warnings = 0;
  std::list<int> pending;
  // Of the statement that is being assembled.
  std::vector<TavroTypes> typeCodes;
  __kelpoDebug debug;
};

}  // namespace Tavro::TvRT
