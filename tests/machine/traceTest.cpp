#include "Tavro/TvRTBinOp.h"
#include "support.h"

namespace Tavro::TvRT {
namespace {

const std::string includes = "../src-includes/runtimeOperators/Tavro/";

// The lines of the text, each with the category, level, source and function before it.
Lines all(const std::string& place, std::initializer_list<std::string> texts) {
  Lines lines;
  for (const std::string& text : texts) lines.push_back(place + ": " + text);
  return lines;
}

// The op lines of one run of a program from offset 0.
Lines runLines(const std::string& program, const char* source) {
  const OwnedContext context = assemble("bindTable 0, 32, 0, o, o, o\nend\n" + program + "halt\n");
  Lines lines = traceOf({{"TvRtOp", 8}}, [&] { context->execute(); });
  for (std::string& line : lines) {
    const std::string place = "TvRtOp:8 " + includes + source + ".h op: ";
    if (line.find(place) == 0) line.erase(0, place.size());
  }
  return lines;
}

TEST(TraceTest, StackInstructions) {
  EXPECT_EQ(
      runLines("pushCnst<int16_t> \"-5\"\npopColumn<int16_t> 0, 8\npushColumn<uint16_t> 0, 8\n"
               "pushCnst<bool> T\nswap<bool>\nnswap<int64_t,bool>\ndiscard<uint64_t>\ndiscard<bool>\n"
               "pushCnst<string_t> \"a\\\"b\"\npopColumn<string_t> 0, 12\npushColumn<string_t> 0, 12\n"
               "pushCnst<uint8_t> 65\npushCnst<float> \"0.1\"\npushCnst<double> \"1234567890.125\"\n"
               "pushCnst<IpGenPrefix> \"10.0.0.0/8\"\npushCnst<IpGenAddr> \"\"\npushParam<int8_t> 8\n",
               "TvRTStackOps"),
      (Lines{"PushCnstOp<int16_t,int64_t>( -5 )", "PopColumnOp<int16_t,int64_t>( 0, 8 ) -->  -5",
             "PushColumnOp<uint16_t,uint64_t>( 0, 8 ) = 65531", "PushCnstOp<bool,bool>( true )",
             // The number's two high bytes count as a bool here.
             "SwapOp<bool>( true, false )",
             "NSwapOp<bool>( false, " + std::to_string(0x0100'0000'0000'FFFBULL) + " )",
             "DiscardOp<uint64_t> = " + std::to_string(0x0100'0000'0000'FFFBULL), "DiscardOp<bool> = false",
             R"(PushCnstOp<StringValueReference,StringValueReference>( "a\"b" ))",
             R"(PopColumnOp<StringValueReference,StringValueReference>( 0, 12 ) -->  "a\"b")",
             R"(PushColumnOp<StringValueReference,StringValueReference>( 0, 12 ) = "a\"b")",
             "PushCnstOp<uint8_t,uint64_t>( 65 )", "PushCnstOp<float,double>( 0.10000000149 )",
             "PushCnstOp<double,double>( 1234567890.12 )",
             "PushCnstOp<IpGenPrefixReference,IpGenPrefixReference>( 10.0.0.0/8 )",
             "PushCnstOp<IpGenAddrReference,IpGenAddrReference>(  )",
             "PushParamOp<int8_t,int64_t>( 8 ) = 0"}));
}

TEST(TraceTest, BinaryOperators) {
  const OwnedContext context = newContext();
  const unsigned char bytes[] = {2, 0, 7, 9};
  const auto trace = [&](int opcode, int type) {
    const Lines lines =
        traceOf({{"TvRtOp", 8}}, [&] { BinOpDispatch::dispatchBinOp(opcode, type, *context); });
    const std::string place = "TvRtOp:8 " + includes + "TvRTBinOp.h op: ";
    EXPECT_EQ(lines.at(0).substr(0, place.size()), place);
    return lines.at(0).substr(place.size());
  };
  push(*context, 7LL);
  push(*context, -2LL);
  EXPECT_EQ(trace(2, TypeInt8), "tv_minusOperation<int64_t> ( 7, -2 ) = 9");
  push(*context, 1ULL, true);
  EXPECT_EQ(trace(9, TypeUint8), "tv_bitOrOperation<uint64_t> ( 9, NULL ) = NULL");
  push(*context, 0.5);
  push(*context, 0.5);
  EXPECT_EQ(trace(6, TypeFloat), "tv_ltOperation<double> ( 0.5, 0.5 ) = false");
  push(*context, true);
  EXPECT_EQ(trace(0, TypeBool), "tv_noOperation<bool> ( false, true )");
  push(*context, StringValueReference("a", 1));
  push(*context, StringValueReference("a", 1));
  EXPECT_EQ(trace(5, TypeString), R"(tv_eqOperation<StringValueReference> ( "a", "a" ) = true)");
  push(*context, ArrayReference<unsigned char>(bytes, 4));
  push(*context, 263ULL);
  EXPECT_EQ(trace(17, TypeUint8).substr(0, 35), "tv_containsElementOperation<uint8_t");
  EXPECT_EQ(popText<bool>(*context), "true");
}

TEST(TraceTest, RunLoopAndLabels) {
  const OwnedContext context = assemble("entry main\nbranch on\nlabel on\npushCnst<bool> T\nhalt\n");
  const Lines lines = traceOf({{"Context", 8}, {"Context", 9}, {"IStream", 9}}, [&] { context->execute(1); });
  const std::string go = "IStream:9 " + includes +
                         "TvRTIStream.h gotoOp: bool Tavro::TvRT::IStream::gotoOp("
                         "Tavro::len_t) successfully goto label ";
  const std::string at = "IStream:9 " + includes +
                         "TvRTIStream.h executeAtPC: Tavro::TvRT::OpResult "
                         "Tavro::TvRT::IStream::executeAtPC(Tavro::TvRT::Context&) executing instruction at ";
  const std::string context9 = "Context:9 TvRTContext ";
  const std::string done =
      context9 + "execute: Tavro::TvRT::Context::ContextState Tavro::TvRT::Context::execute() ppc: ";
  EXPECT_EQ(
      lines,
      (Lines{"Context:8 TvRTContext execute: Entry -> main", go + "1 at 0", at + "0",
             context9 +
                 "translateEntry: Tavro::len_t Tavro::TvRT::Context::translateEntry(const string&)on at 2",
             go + "2 at 12", done + "0", at + "12", done + "12", at + "17", done + "17"}));

  EXPECT_EQ(traceOf({{"Context", 8}, {"Context", 9}},
                    [&] {
                      context->toEntry("gone");
                      context->execute(3);
                    })
                .at(1),
            "Context:8 TvRTContext execute: Entry -> ???");
  EXPECT_EQ(traceOf({{"Context", 9}}, [&] { context->toEntry("main"); }),
            all("Context:9 TvRTContext toEntry", {"void Tavro::TvRT::Context::toEntry(const string&)main"}));
  EXPECT_EQ(traceOf({{"IStream", 9}}, [&] { context->setEntryPoint("new"); }),
            all("IStream:9 " + includes + "TvRTIStream.h setLabel",
                {"void Tavro::TvRT::IStream::setLabel(size_t) creating label 3 at 25"}));
}

TEST(TraceTest, FailuresAndResumes) {
  const OwnedContext context = assemble("entry main\n");
  Probe::install(*context);
  Probe::install(*context);
  const auto run = [&](int result) {
    Probe::work = [result](Context&) { return static_cast<OpResult>(result); };
    return traceOf({{"Context", 6}}, [&] {
      try {
        context->runState() == Context::Ready ? context->execute(1) : context->resume();
      } catch (const TvOutOfRange&) {
      }
    });
  };
  const std::string failed =
      "Context:6 TvRTContext execute: Tavro::TvRT::Context::ContextState "
      "Tavro::TvRT::Context::execute() instruction failed at ";
  EXPECT_EQ(run(2), Lines{failed + "0:2"});
  EXPECT_EQ(run(1), (Lines{"Context:6 TvRTContext resume: Resuming @ 0", failed + "0:1"}));
  EXPECT_EQ(run(9), (Lines{"Context:6 TvRTContext resume: Resuming @ 4", failed + "4:9"}));
}

TEST(TraceTest, Installation) {
  const Lines lines = traceOf({{"TvRtOp", 9}, {"Context", 9}}, [] {
    assemble(
        "bindTable 3, 16, 0, \"ns::t\", \"a\", \"s\"\nhalt\npushCnst<int16_t> 1\npushColumn<time_t> 1, 8\n"
        "nswap<bool,int8_t>\nswap<Ip6Addr>\nfetchRowIndexed 1, 2\nadd<port_t>\neq<string_t>\n");
  });
  const auto at = [](const std::string& source, const std::string& text) {
    return "TvRtOp:9 " + includes + source + ".h " + text;
  };
  const std::string length = "Tavro::len_t = short unsigned int] installing at ";
  EXPECT_EQ(
      lines,
      (Lines{
          "Context:9 TvRTContext bindTable: void Tavro::TvRT::Context::bindTable(Tavro::len_t, Tavro::len_t, "
          "Tavro::len_t, const string&, const string&, const string&) registering ns::t table = 3 alias = a "
          "sig = s",
          at("TvRTCtrlOps",
             "install: Tavro::len_t Tavro::TvRT::haltOp::install(Tavro::TvRT::Context&) installing at    4"),
          at("TvRTStackOps",
             "install: Tavro::len_t Tavro::TvRT::PushCnstOp<CT, ST>::install(Tavro::TvRT::Context&) "
             "[with CT = short int; ST = long long int; " +
                 length + "  12"),
          at("TvRTStackOps",
             "install: Tavro::len_t Tavro::TvRT::PushColumnOp<CT, ST>::install("
             "Tavro::TvRT::Context&) [with CT = unsigned int; ST = long long unsigned int; " +
                 length + "  18"),
          at("TvRTStackOps",
             "install: Tavro::len_t Tavro::TvRT::NSwapOp<T, U>::install(Tavro::TvRT::Context&) "
             "[with T = long long unsigned int; U = bool; " +
                 length + "65535"),
          at("TvRTStackOps",
             "install: Tavro::len_t Tavro::TvRT::SwapOp<T>::install(Tavro::TvRT::Context&) "
             "[with T = Tavro::Ip6Addr; " +
                 length + "65535"),
          at("TvRTRowOps",
             "install: Tavro::len_t Tavro::TvRT::FetchRowIndexedOp::install(Tavro::TvRT::Context&) "
             "installing at   34"),
          at("TvRTBinOp",
             "installBinOp: static void Tavro::TvRT::BinOpDispatch::installBinOp(Tavro::TvRT::Context&, "
             "int, int) installing bindOp add<port_t>"),
          at("TvRTBinOp",
             "installBinOp: static void Tavro::TvRT::BinOpDispatch::installBinOp(Tavro::TvRT::Context&, "
             "int, int) installing bindOp eq<string_t>")}));
}

// What changes rows is in the log before it fails; what reports a result is not.
TEST(TraceTest, FailingRowInstructions) {
  const auto run = [](const std::string& statement) {
    const OwnedContext context = assemble(statement + "\nhalt\n");
    return traceOf({{"TvRtOp", 8}}, [&] { EXPECT_THROW(context->execute(), std::out_of_range); });
  };
  const auto line = [](const char* text) { return all("TvRtOp:8 " + includes + "TvRTRowOps.h op", {text}); };
  EXPECT_EQ(run("clearRow 9"), line("ClearRowOp( 9 )"));
  EXPECT_EQ(run("begin 9"), line("BeginOp( 9 )"));
  EXPECT_EQ(run("lowerBoundIndexed 9, 1"), line("LowerBoundIndexedOp( 9, 1 )"));
  EXPECT_EQ(run("deleteRowIndexed 9, 1"), line("DeleteRowIndexedOp( 9, 1 )"));
  EXPECT_EQ(run("insertRow 9"), line("InsertRowOp( 9 )"));
  for (const char* statement : {"fetchRow 9", "fetchRowIndexed 9, 1", "nextRow 9", "isNullRow 9"})
    EXPECT_EQ(run(statement), Lines{}) << statement;
}

}  // namespace
}  // namespace Tavro::TvRT
