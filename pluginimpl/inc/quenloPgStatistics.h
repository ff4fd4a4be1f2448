// Server-side reading of column statistics shared by the estimators of the
// range operators (quenloPgSelectivity.cpp) and of int4set
// (quenloPgInt4SetStats.cpp): whether a column's statistics may be used, an
// int4 or packed-range column's statistics as plain arrays, and a column's
// sampled values.
#pragma once

#include "qnPgSelectivity.h"
#include "quenloPgUtils.h"

// The planner's headers reach the spinlock code, whose `register` C++17 refuses.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wregister"
extern "C" {
#include "utils/selfuncs.h"
}
#pragma GCC diagnostic pop

namespace qn::pg {

using PackedModel = qn::selectivity::PackedRangeModel<palloc, pfree>;

// Checks for a cancel: the poll the estimates' long walks call.
void pollInterrupts();

// Whether the column's statistics may be used: there are some, of the expected
// type or a domain over it, and the user may read them (or the operator is
// leakproof).
bool statisticsUsable(VariableStatData* vd, Oid type, Oid opfunc);

// An int4 (type INT4OID) or packed-range (INT8OID) column's statistics; a
// packed-range column's histogram also builds its model. Without usable
// statistics `c` is left empty, which the estimates read as "use the defaults",
// and the result is false.
bool loadColumn(VariableStatData* vd, Oid type, Oid opfunc, qn::selectivity::ColumnStats& c, PackedModel& model,
                bool& haveModel);

// Sampled values of a column with their shares of the rows: the most common
// values (the 100 most frequent) at their frequencies, and up to 100 histogram
// bounds sharing the rest evenly. The values are copied out of the statistics.
struct Samples {
    int n = 0;
    int nmcv = 0;  // the first nmcv values are most common values
    Datum* values = nullptr;
    double* weights = nullptr;
};
bool sampleColumn(VariableStatData* vd, Oid type, Oid opfunc, Samples& out);

}  // namespace qn::pg
