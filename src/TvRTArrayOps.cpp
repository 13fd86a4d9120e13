// The dispatchers of arrays and value iterators.

#include "Tavro/TvRTStackOps.h"
#include "Tavro/TvRTValueIter.h"

namespace Tavro::TvRT {

void StackOps::installPushAryParamOp(Context& context, TavroTypes type, len_t offset) {
  const bool known = withColumnType(type, [&]<typename T>() { PushAryParamOp<T>{offset}.install(context); });
  requireMember(known, "StackOps::installPushAryParamOp", "Tavro::TavroTypes, Tavro::len_t");
}

void StackOps::installPushAryColumnOp(Context& context, TavroTypes type, len_t row, len_t column) {
  const bool known = withColumnType(type, [&]<typename T>() {
    PushAryColumnOp<T>{row, column}.install(context);
  });
  requireMember(known, "StackOps::installPushAryColumnOp", "Tavro::TavroTypes, Tavro::len_t, Tavro::len_t");
}

void StackOps::installPopAryColumnOp(Context& context, TavroTypes type, len_t row, len_t column) {
  const bool known = withColumnType(type, [&]<typename T>() {
    PopAryColumnOp<T>{row, column}.install(context);
  });
  requireMember(known, "StackOps::installPopAryColumnOp", "Tavro::TavroTypes, Tavro::len_t, Tavro::len_t");
}

void StackOps::installIterInitOp(Context& context, TavroTypes type, len_t slot, len_t row, len_t column) {
  const bool known = withColumnType(type, [&]<typename T>() {
    IterInitOp<T>{slot, row, column}.install(context);
  });
  requireMember(known, "StackOps::installIterInitOp",
                "Tavro::TavroTypes, Tavro::len_t, Tavro::len_t, Tavro::len_t");
}

void StackOps::installNextValueOp(Context& context, TavroTypes type, len_t slot, len_t row, len_t column) {
  const bool known = withColumnType(type, [&]<typename T>() {
    NextValueOp<T>{slot, row, column}.install(context);
  });
  requireMember(known, "StackOps::installNextValueOp",
                "Tavro::TavroTypes, Tavro::len_t, Tavro::len_t, Tavro::len_t");
}

void StackOps::installCurValueOp(Context& context, TavroTypes type, len_t slot) {
  const bool known =
      withColumnType(type, [&]<typename CT>() { CurValueOp<CT, StackTypeOf<CT>>{slot}.install(context); });
  requireMember(known, "StackOps::installCurValueOp", "Tavro::TavroTypes, Tavro::len_t");
}

}  // namespace Tavro::TvRT
