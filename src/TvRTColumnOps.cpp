#include "Tavro/TvRTColumnOps.h"

namespace Tavro::TvRT {

namespace {

template <template <typename> typename Op>
void installMember(const char* dispatcher, Context& context, TavroTypes type, len_t row, len_t column,
                   len_t otherRow, len_t otherColumn) {
  const bool known = withColumnType(type, [&]<typename T>() {
    Op<T>{row, column, otherRow, otherColumn}.install(context);
  });
  requireMember(known, dispatcher,
                "Tavro::TavroTypes, Tavro::len_t, Tavro::len_t, Tavro::len_t, Tavro::len_t");
}

}  // namespace

void ColumnOps::installCopyColumnOp(Context& context, TavroTypes type, len_t row, len_t column, len_t toRow,
                                    len_t toColumn) {
  installMember<CopyColumnOp>("ColumnOps::installCopyColumnOp", context, type, row, column, toRow, toColumn);
}

void ColumnOps::installCopyAryColumnOp(Context& context, TavroTypes type, len_t row, len_t column,
                                       len_t toRow, len_t toColumn) {
  installMember<CopyAryColumnOp>("ColumnOps::installCopyAryColumnOp", context, type, row, column, toRow,
                                 toColumn);
}

void ColumnOps::installEqualColumnOp(Context& context, TavroTypes type, len_t row, len_t column,
                                     len_t otherRow, len_t otherColumn) {
  installMember<EqualColumnOp>("ColumnOps::installEqualColumnOp", context, type, row, column, otherRow,
                               otherColumn);
}

void ColumnOps::installEqualAryColumnOp(Context& context, TavroTypes type, len_t row, len_t column,
                                        len_t otherRow, len_t otherColumn) {
  installMember<EqualAryColumnOp>("ColumnOps::installEqualAryColumnOp", context, type, row, column, otherRow,
                                  otherColumn);
}

void ColumnOps::installCompareColumnOp(Context& context, TavroTypes type, len_t row, len_t column,
                                       len_t otherRow, len_t otherColumn) {
  installMember<CompareColumnOp>("ColumnOps::installCompareColumnOp", context, type, row, column, otherRow,
                                 otherColumn);
}

}  // namespace Tavro::TvRT
