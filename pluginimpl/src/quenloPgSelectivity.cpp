// The planner's view of the operators: restriction and join selectivity from
// the columns' statistics (the arithmetic is in qnPgSelectivity.h), and the
// support function through which the test functions are answered by the GiST
// operator classes and estimated as their operators are.
//
// What is estimated how:
// - a column on one side, a constant on the other: the column's statistics
//   against the constant (int4 columns by their histogram, packed-range columns
//   by the model of qnPgSelectivity.h); a column of range arrays or bitfields
//   (`5 <@ column`) by testing its most common values and histogram bounds,
//   sampled values of the column, against the constant;
// - a column against a value that varies (a parameter, an outer reference): a
//   packed-range column containing a value by the average over values typical
//   of the column, anything else by the server's defaults;
// - two columns (a join): the estimate with one side's statistics, averaged over
//   the other side's sampled values (most common values and histogram bounds),
//   for semi and anti joins the share of outer rows with at least one match;
// - no statistics: the server's defaults for comparable clauses.
#include "qnPgGistRange.h"
#include "qnPgSelectivity.h"
#include "quenloPgStatistics.h"
#include "quenloPgUtils.h"

// The planner's headers reach the spinlock code, whose `register` C++17 refuses.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wregister"
extern "C" {
#include "access/htup_details.h"
#include "catalog/namespace.h"
#include "catalog/pg_operator.h"
#include "catalog/pg_statistic.h"
#include "nodes/makefuncs.h"
#include "nodes/nodeFuncs.h"
#include "nodes/supportnodes.h"
#include "optimizer/cost.h"
#include "optimizer/optimizer.h"
#include "parser/parsetree.h"
#include "access/relation.h"
#include "catalog/pg_proc.h"
#include "storage/bufmgr.h"
#include "utils/rel.h"
#include "utils/syscache.h"
#include "optimizer/plancat.h"
#include "utils/datum.h"
#include "utils/lsyscache.h"
}
#pragma GCC diagnostic pop

using qn::gist::Strategy;
using qn::selectivity::ColumnStats;
using qn::selectivity::PackedTest;
using qn::selectivity::RangeInt;
using Model = qn::pg::PackedModel;
using qn::pg::loadColumn;
using qn::pg::Samples;
using qn::pg::sampleColumn;

namespace {

// Tests between two range arrays have no GiST strategy: numbers of their own.
constexpr Strategy kSetsMeet = static_cast<Strategy>(101);        // int4[] ~&& int4[]
constexpr Strategy kSetContains = static_cast<Strategy>(102);     // int4[] ~@> int4[]
constexpr Strategy kSetContainedIn = static_cast<Strategy>(103);  // int4[] ~<@ int4[]

// The operators of the extension, by name and operand types, with the
// strategy numbers the GiST operator classes give them. A commuted operator
// is the commutator of the strategy's operator: its operands swapped, and its
// left and right here are those of the strategy's operator.
struct OperatorSignature {
    const char* name;
    Oid left;
    Oid right;
    Strategy strategy;
    bool commuted;
};
const OperatorSignature kOperators[] = {
    {"<@", INT4OID, INT4ARRAYOID, qn::gist::ValueInRangeArray, false},
    {"<@", INT4OID, BYTEAOID, qn::gist::ValueInBitField, false},
    {"<@", INT4OID, INT8OID, qn::gist::ValueInPackedRange, false},
    {"&&", INT8OID, INT4ARRAYOID, qn::gist::RangeOverlapsRangeArray, false},
    {"&&", INT8OID, INT8OID, qn::gist::RangeOverlapsRange, false},
    {"<@", INT8OID, INT8OID, qn::gist::RangeIncludedInRange, false},
    {"@>", INT8OID, INT8OID, qn::gist::RangeContainsRange, false},
    {"@>", INT8OID, INT4OID, qn::gist::RangeContainsValue, false},
    {"~@>", INT4OID, INT4ARRAYOID, qn::gist::ValueInRangeArray, true},
    {"~&&", INT8OID, INT4ARRAYOID, qn::gist::RangeOverlapsRangeArray, true},
    {"~&&", INT4ARRAYOID, INT4ARRAYOID, kSetsMeet, false},
    {"&&~", INT4ARRAYOID, INT4ARRAYOID, kSetsMeet, true},
    {"~@>", INT4ARRAYOID, INT4ARRAYOID, kSetContains, false},
    {"~<@", INT4ARRAYOID, INT4ARRAYOID, kSetContainedIn, false},
};

const OperatorSignature* signatureOf(Strategy s, bool commuted) {
    for (const OperatorSignature& o : kOperators)
        if (o.strategy == s && o.commuted == commuted) return &o;
    return nullptr;
}

// Which of the extension's operators opno is; null for any other.
const OperatorSignature* operatorSignature(Oid opno) {
    const char* name = get_opname(opno);
    if (name == nullptr) return nullptr;
    Oid left = InvalidOid, right = InvalidOid;
    op_input_types(opno, &left, &right);
    for (const OperatorSignature& o : kOperators)
        if (strcmp(o.name, name) == 0 && (o.commuted ? o.right == left && o.left == right
                                                     : o.left == left && o.right == right))
            return &o;
    return nullptr;
}

bool isSetTest(Strategy s) { return s == kSetsMeet || s == kSetContains || s == kSetContainedIn; }

// How a clause `column <op> operand` (or `operand <op> column`) is read.
enum class Reading {
    Int4InRangeArray,       // int4 column <@ range array
    Int4InBitField,         // int4 column <@ bitfield
    Int4InPackedRange,      // int4 column <@ packed range
    PackedContainsValue,    // packed-range column @> int4
    PackedMeetsRangeArray,  // packed-range column && range array
    PackedMeetsRange,       // packed-range column && packed range
    PackedLiesIn,           // packed-range column <@ packed range
    PackedContains,         // packed-range column @> packed range
    OperandInColumn,        // an operand <op> a column of range arrays or bitfields, or the reverse
};

Reading readingOf(Strategy s, bool columnOnLeft) {
    switch (s) {
        case qn::gist::ValueInRangeArray: return columnOnLeft ? Reading::Int4InRangeArray : Reading::OperandInColumn;
        case qn::gist::ValueInBitField: return columnOnLeft ? Reading::Int4InBitField : Reading::OperandInColumn;
        case qn::gist::ValueInPackedRange:
            return columnOnLeft ? Reading::Int4InPackedRange : Reading::PackedContainsValue;
        case qn::gist::RangeContainsValue:
            return columnOnLeft ? Reading::PackedContainsValue : Reading::Int4InPackedRange;
        case qn::gist::RangeOverlapsRangeArray:
            return columnOnLeft ? Reading::PackedMeetsRangeArray : Reading::OperandInColumn;
        case qn::gist::RangeOverlapsRange: return Reading::PackedMeetsRange;
        case qn::gist::RangeIncludedInRange: return columnOnLeft ? Reading::PackedLiesIn : Reading::PackedContains;
        case qn::gist::RangeContainsRange: return columnOnLeft ? Reading::PackedContains : Reading::PackedLiesIn;
        default: return Reading::OperandInColumn;
    }
}

// The server's defaults for comparable clauses, for an operand that varies or
// a column without statistics.
double defaultSelectivity(Reading r) {
    return r == Reading::PackedMeetsRange || r == Reading::PackedMeetsRangeArray
               ? qn::selectivity::kDefaultOverlapSelectivity
               : qn::selectivity::kDefaultPieceSelectivity;
}

// The join selectivities the operators had before statistics were read,
// kept for columns without statistics.
double defaultJoinSelectivity(Strategy s) {
    return s == qn::gist::RangeOverlapsRange || s == qn::gist::RangeOverlapsRangeArray || s == kSetsMeet ? 0.005
                                                                                                         : 0.001;
}

RangeInt unpack(int64 packed) { return {qn::pgRangeArray::packedLower(packed), qn::pgRangeArray::packedUpper(packed)}; }

// The selectivity of the reading for one constant operand (not NULL).
double estimateConstant(Reading r, const ColumnStats& c, const Model* model, Datum operand) {
    using namespace qn::selectivity;
    switch (r) {
        case Reading::Int4InRangeArray: {
            const qn::pg::Int4Elements e = qn::pg::readInt4Elements(DatumGetArrayTypeP(operand));
            return int4Selectivity(c, RangeListSet{e.rangesBegin(), e.rangesEnd()});
        }
        case Reading::Int4InBitField: {
            const bytea* value = DatumGetByteaP(operand);
            qn::bitfield::BitFieldView view;
            switch (qn::bitfield::readBitField(reinterpret_cast<const uint8*>(value), VARSIZE(value), view)) {
                case qn::bitfield::BitFieldRead::Ok: return int4Selectivity(c, BitFieldSet{view});
                case qn::bitfield::BitFieldRead::Empty: return 0.0;
                case qn::bitfield::BitFieldRead::Invalid: break;  // refused when the clause runs
            }
            return kDefaultPieceSelectivity;
        }
        case Reading::Int4InPackedRange: {
            const RangeInt q = unpack(DatumGetInt64(operand));
            return int4Selectivity(c, RangeListSet{&q, &q + 1});
        }
        case Reading::PackedContainsValue: {
            const int32 v = DatumGetInt32(operand);
            const RangeInt q{v, v};
            return packedSelectivity(c, model, PackedTest::Contains, &q, &q + 1);
        }
        case Reading::PackedMeetsRangeArray: {
            const qn::pg::Int4Elements e = qn::pg::readInt4Elements(DatumGetArrayTypeP(operand));
            return packedSelectivity(c, model, PackedTest::Meets, e.rangesBegin(), e.rangesEnd());
        }
        case Reading::PackedMeetsRange:
        case Reading::PackedLiesIn:
        case Reading::PackedContains: {
            const RangeInt q = unpack(DatumGetInt64(operand));
            const PackedTest test = r == Reading::PackedMeetsRange ? PackedTest::Meets
                                    : r == Reading::PackedLiesIn   ? PackedTest::LiesIn
                                                                   : PackedTest::Contains;
            return packedSelectivity(c, model, test, &q, &q + 1);
        }
        case Reading::OperandInColumn: break;
    }
    return kDefaultPieceSelectivity;
}

// Test between two range arrays, the column's value on the left when
// columnOnLeft. An odd last element is left out rather than refused.
bool setTest(Strategy s, bool columnOnLeft, Datum operand, Datum value) {
    const qn::pg::Int4Elements v = qn::pg::readInt4Elements(DatumGetArrayTypeP(value));
    const qn::pg::Int4Elements o = qn::pg::readInt4Elements(DatumGetArrayTypeP(operand));
    const qn::pg::Int4Elements& left = columnOnLeft ? v : o;
    const qn::pg::Int4Elements& right = columnOnLeft ? o : v;
    if (s == kSetsMeet)
        return qn::pgRangeArray::rangeListsOverlap(right.rangesBegin(), right.rangesEnd(), left.rangesBegin(),
                                                   left.rangesEnd());
    const qn::pg::Int4Elements& inner = s == kSetContainedIn ? left : right;
    const qn::pg::Int4Elements& outer = s == kSetContainedIn ? right : left;
    return qn::pgRangeArray::rangeListIncluded(inner.rangesBegin(), inner.rangesEnd(), outer.rangesBegin(),
                                               outer.rangesEnd());
}

// The operator's test of the constant operand against one value of a column of
// range arrays or bitfields, without raising errors (a malformed value fails).
bool operandInValue(Strategy s, bool columnOnLeft, Datum operand, Datum value) {
    if (isSetTest(s)) return setTest(s, columnOnLeft, operand, value);
    if (s == qn::gist::ValueInBitField) {
        const bytea* b = DatumGetByteaP(value);
        qn::bitfield::BitFieldView view;
        return qn::bitfield::readBitField(reinterpret_cast<const uint8*>(b), VARSIZE(b), view) ==
                   qn::bitfield::BitFieldRead::Ok &&
               qn::selectivity::BitFieldSet{view}.contains(DatumGetInt32(operand));
    }
    const qn::pg::Int4Elements e = qn::pg::readInt4Elements(DatumGetArrayTypeP(value));
    if (s == qn::gist::ValueInRangeArray)
        return qn::pgRangeArray::inRangeArray(e.rangesBegin(), e.rangesEnd(), DatumGetInt32(operand));
    const RangeInt q = unpack(DatumGetInt64(operand));
    return qn::pgRangeArray::rangeOverlapsList(q.lower, q.upper, e.rangesBegin(), e.rangesEnd());
}

// `constant <op> column` over a column of range arrays or bitfields: the share
// of its sampled values that pass.
double operandInColumn(Strategy s, bool columnOnLeft, VariableStatData* vd, Oid type, Oid opfunc, Datum operand) {
    Samples samples;
    if (!sampleColumn(vd, type, opfunc, samples)) return qn::selectivity::kDefaultPieceSelectivity;
    double sel = 0;
    for (int j = 0; j < samples.n; ++j) {
        CHECK_FOR_INTERRUPTS();  // each test may walk the whole constant
        if (operandInValue(s, columnOnLeft, operand, samples.values[j])) sel += samples.weights[j];
    }
    return qn::selectivity::clampProbability(sel);
}

// A packed-range column containing a value that varies: the average over the
// middles of the column's sampled ranges, each counted once as a value a query
// could ask for (as an equality with a varying value assumes any distinct value
// of the column equally likely): the histogram's ranges, or the most common
// ones when there is no histogram.
double typicalContainsValue(VariableStatData* vd, Oid opfunc, const ColumnStats& c, const Model* model) {
    Samples samples;
    if (!sampleColumn(vd, INT8OID, opfunc, samples)) return qn::selectivity::kDefaultPieceSelectivity;
    const int first = samples.n > samples.nmcv ? samples.nmcv : 0;
    double sum = 0;
    for (int j = first; j < samples.n; ++j) {
        const Datum v = Int32GetDatum(qn::selectivity::packedMiddle(DatumGetInt64(samples.values[j])));
        sum += estimateConstant(Reading::PackedContainsValue, c, model, v);
    }
    return sum / (samples.n - first);
}

// The argument of `qn_range_pack(e, e)`, the packed range of one varying value,
// or null for any other expression.
Node* packedPointArgument(Node* expr) {
    if (!IsA(expr, FuncExpr)) return nullptr;
    const auto* call = reinterpret_cast<const FuncExpr*>(expr);
    if (list_length(call->args) != 2 || !equal(linitial(call->args), lsecond(call->args))) return nullptr;
    const char* name = get_func_name(call->funcid);
    Node* value = static_cast<Node*>(linitial(call->args));
    return name != nullptr && strcmp(name, "qn_range_pack") == 0 && exprType(value) == INT4OID ? value : nullptr;
}

// Restriction selectivity of `column <op> other` or `other <op> column`.
double restrictionSelectivity(const OperatorSignature& op, Oid opfunc, VariableStatData* vd, Node* other,
                              bool columnOnLeft) {
    const Reading r = readingOf(op.strategy, columnOnLeft);
    const Oid type = columnOnLeft ? op.left : op.right;
    const bool constant = IsA(other, Const);
    if (constant && reinterpret_cast<Const*>(other)->constisnull) return 0.0;  // the operators are strict
    const Datum operand = constant ? reinterpret_cast<Const*>(other)->constvalue : Datum(0);
    if (r == Reading::OperandInColumn)
        return constant ? operandInColumn(op.strategy, columnOnLeft, vd, type, opfunc, operand)
                        : defaultSelectivity(r);
    // A varying operand: a value, or the packed range of one value (an int4
    // column then reads as an equality), is estimated as typical of the column.
    Node* point = constant ? nullptr : packedPointArgument(other);
    if (point != nullptr && r == Reading::Int4InPackedRange)
        return var_eq_non_const(vd, Int4EqualOperator, InvalidOid, point, columnOnLeft, false);
    const bool typicalPoint = r == Reading::PackedContainsValue ||
                              (point != nullptr && (r == Reading::PackedContains || r == Reading::PackedMeetsRange));
    if (!constant && !typicalPoint) return defaultSelectivity(r);
    ColumnStats c;
    Model model;
    bool haveModel = false;
    loadColumn(vd, type, opfunc, c, model, haveModel);
    const Model* m = haveModel ? &model : nullptr;
    if (!constant) return typicalContainsValue(vd, opfunc, c, m);
    return estimateConstant(r, c, m, operand);
}

// Join selectivity with the statistics of `column`'s side and the sampled
// values of `sampled`'s side, or false when either has none.
bool joinWithSamples(const OperatorSignature& op, Oid opfunc, VariableStatData* column, VariableStatData* sampled,
                     bool columnOnLeft, bool sampledIsInner, JoinType jointype, double& sel) {
    const Reading r = readingOf(op.strategy, columnOnLeft);
    if (r == Reading::OperandInColumn) return false;
    ColumnStats c;
    Model model;
    bool haveModel = false;
    Samples samples;
    if (!loadColumn(column, columnOnLeft ? op.left : op.right, opfunc, c, model, haveModel) ||
        !sampleColumn(sampled, columnOnLeft ? op.right : op.left, opfunc, samples))
        return false;
    auto* s = static_cast<double*>(palloc(sizeof(double) * samples.n));
    for (int j = 0; j < samples.n; ++j)
        s[j] = estimateConstant(r, c, haveModel ? &model : nullptr, samples.values[j]);
    using qn::selectivity::JoinShare;
    JoinShare share = JoinShare::Pairs;
    double innerRows = 1;
    if (jointype == JOIN_SEMI || jointype == JOIN_ANTI) {
        const VariableStatData* inner = sampledIsInner ? sampled : column;
        if (inner->rel != nullptr) {
            share = sampledIsInner ? JoinShare::OuterRows : JoinShare::SampledRows;
            innerRows = Max(inner->rel->rows, 1.0);
        }
    }
    sel = qn::selectivity::joinSelectivity(share, s, samples.weights, samples.n, innerRows);
    return true;
}

// Join selectivity of a test between two columns of range arrays: the share of
// pairs of their sampled values that pass, or false when either has none.
bool joinSetsBySamples(const OperatorSignature& op, Oid opfunc, VariableStatData* left, VariableStatData* right,
                       double& sel) {
    Samples l, r;
    if (!isSetTest(op.strategy) || !sampleColumn(left, INT4ARRAYOID, opfunc, l) ||
        !sampleColumn(right, INT4ARRAYOID, opfunc, r))
        return false;
    sel = 0;
    for (int i = 0; i < l.n; ++i)
        for (int j = 0; j < r.n; ++j)
            if (setTest(op.strategy, true, r.values[j], l.values[i])) sel += l.weights[i] * r.weights[j];
    return true;
}

}  // namespace

namespace qn::pg {

bool statisticsUsable(VariableStatData* vd, Oid type, Oid opfunc) {
    return HeapTupleIsValid(vd->statsTuple) && getBaseType(vd->atttype) == type &&
           statistic_proc_security_check(vd, opfunc);
}

void pollInterrupts() { CHECK_FOR_INTERRUPTS(); }

bool loadColumn(VariableStatData* vd, Oid type, Oid opfunc, ColumnStats& c, PackedModel& model, bool& haveModel) {
    c = ColumnStats();
    c.poll = pollInterrupts;
    haveModel = false;
    if (!statisticsUsable(vd, type, opfunc)) return false;
    c.nullfrac = reinterpret_cast<Form_pg_statistic>(GETSTRUCT(vd->statsTuple))->stanullfrac;
    auto read = [type](Datum d) -> int64 { return type == INT4OID ? DatumGetInt32(d) : DatumGetInt64(d); };
    AttStatsSlot slot;
    if (get_attstatsslot(&slot, vd->statsTuple, STATISTIC_KIND_MCV, InvalidOid,
                         ATTSTATSSLOT_VALUES | ATTSTATSSLOT_NUMBERS)) {
        if (slot.nvalues == slot.nnumbers && slot.nvalues > 0) {
            auto* values = static_cast<int64*>(palloc(sizeof(int64) * slot.nvalues));
            auto* freqs = static_cast<double*>(palloc(sizeof(double) * slot.nvalues));
            for (int i = 0; i < slot.nvalues; ++i) {
                values[i] = read(slot.values[i]);
                freqs[i] = slot.numbers[i];
            }
            c.mcv = values;
            c.mcvFreq = freqs;
            c.nmcv = slot.nvalues;
        }
        free_attstatsslot(&slot);
    }
    if (get_attstatsslot(&slot, vd->statsTuple, STATISTIC_KIND_HISTOGRAM, InvalidOid, ATTSTATSSLOT_VALUES)) {
        auto* bounds = static_cast<int64*>(palloc(sizeof(int64) * Max(slot.nvalues, 1)));
        for (int i = 0; i < slot.nvalues; ++i) bounds[i] = read(slot.values[i]);
        c.bounds = bounds;
        c.nbounds = slot.nvalues;
        free_attstatsslot(&slot);
    }
    if (type == INT4OID) {
        bool isDefault = true;
        const double distinct = get_variable_numdistinct(vd, &isDefault);
        if (!isDefault) c.distinct = distinct;
    } else {
        haveModel = model.build(c.bounds, c.nbounds);
    }
    return true;
}

constexpr int kMaxSampled = 100;

bool sampleColumn(VariableStatData* vd, Oid type, Oid opfunc, Samples& out) {
    out = Samples();
    if (!statisticsUsable(vd, type, opfunc)) return false;
    int16 typlen;
    bool typbyval;
    get_typlenbyval(type, &typlen, &typbyval);
    out.values = static_cast<Datum*>(palloc(sizeof(Datum) * 2 * kMaxSampled));
    out.weights = static_cast<double*>(palloc(sizeof(double) * 2 * kMaxSampled));
    double rest = 1.0 - reinterpret_cast<Form_pg_statistic>(GETSTRUCT(vd->statsTuple))->stanullfrac;
    AttStatsSlot slot;
    if (get_attstatsslot(&slot, vd->statsTuple, STATISTIC_KIND_MCV, InvalidOid,
                         ATTSTATSSLOT_VALUES | ATTSTATSSLOT_NUMBERS)) {
        if (slot.nvalues == slot.nnumbers) {
            for (int i = 0; i < slot.nvalues && i < kMaxSampled; ++i) {
                out.values[out.n] = datumCopy(slot.values[i], typbyval, typlen);
                out.weights[out.n++] = slot.numbers[i];
                rest -= slot.numbers[i];
            }
        }
        out.nmcv = out.n;
        free_attstatsslot(&slot);
    }
    if (get_attstatsslot(&slot, vd->statsTuple, STATISTIC_KIND_HISTOGRAM, InvalidOid, ATTSTATSSLOT_VALUES)) {
        const int step = (slot.nvalues + kMaxSampled - 1) / kMaxSampled;
        const int taken = step > 0 ? (slot.nvalues + step - 1) / step : 0;
        for (int i = 0; i < slot.nvalues; i += step) {
            out.values[out.n] = datumCopy(slot.values[i], typbyval, typlen);
            out.weights[out.n++] = qn::selectivity::clampProbability(rest) / taken;
        }
        free_attstatsslot(&slot);
    }
    return out.n > 0;
}

}  // namespace qn::pg

QN_FUNCTION_INFO_V1(qn_range_sel)
QN_FUNCTION_INFO_V1(qn_range_joinsel)
QN_FUNCTION_INFO_V1(qn_range_support)

// Restriction estimator of the operators: (planner info, operator, arguments,
// relation of interest), as the server calls it.
Datum qn_range_sel(PG_FUNCTION_ARGS) {
    auto* root = reinterpret_cast<PlannerInfo*>(PG_GETARG_POINTER(0));
    const Oid opno = PG_GETARG_OID(1);
    auto* args = reinterpret_cast<List*>(PG_GETARG_POINTER(2));
    const int varRelid = PG_GETARG_INT32(3);
    const OperatorSignature* op = operatorSignature(opno);
    if (op == nullptr) PG_RETURN_FLOAT8(qn::selectivity::kDefaultPieceSelectivity);
    VariableStatData vd;
    Node* other = nullptr;
    bool columnOnLeft = true;
    if (!get_restriction_variable(root, args, varRelid, &vd, &other, &columnOnLeft))
        PG_RETURN_FLOAT8(defaultSelectivity(readingOf(op->strategy, true)));
    // A commuted operator is estimated as the operator it commutes.
    if (op->commuted) columnOnLeft = !columnOnLeft;
    const double sel = restrictionSelectivity(*op, get_opcode(opno), &vd, other, columnOnLeft);
    ReleaseVariableStats(vd);
    PG_RETURN_FLOAT8(qn::selectivity::clampProbability(sel));
}

// Join estimator of the operators: (planner info, operator, arguments, join
// type, special join info). The left operand's statistics with the right
// operand's samples, else the other way round where the operator reads both ways.
Datum qn_range_joinsel(PG_FUNCTION_ARGS) {
    auto* root = reinterpret_cast<PlannerInfo*>(PG_GETARG_POINTER(0));
    const Oid opno = PG_GETARG_OID(1);
    auto* args = reinterpret_cast<List*>(PG_GETARG_POINTER(2));
    const auto jointype = static_cast<JoinType>(PG_GETARG_INT16(3));
    auto* sjinfo = reinterpret_cast<SpecialJoinInfo*>(PG_GETARG_POINTER(4));
    const OperatorSignature* op = operatorSignature(opno);
    if (op == nullptr || list_length(args) != 2) PG_RETURN_FLOAT8(0.001);
    VariableStatData left, right;
    bool reversed = false;
    get_join_variables(root, args, sjinfo, &left, &right, &reversed);
    const Oid opfunc = get_opcode(opno);
    double sel = 0;
    // Seen as the operator it commutes, a commuted operator has its operands
    // swapped. Not reversed: the right operand belongs to the inner side of a
    // semi join.
    VariableStatData* first = op->commuted ? &right : &left;
    VariableStatData* second = op->commuted ? &left : &right;
    const bool secondIsInner = op->commuted ? reversed : !reversed;
    if (!joinWithSamples(*op, opfunc, first, second, true, secondIsInner, jointype, sel) &&
        !joinWithSamples(*op, opfunc, second, first, false, !secondIsInner, jointype, sel) &&
        !joinSetsBySamples(*op, opfunc, first, second, sel))
        sel = defaultJoinSelectivity(op->strategy);
    ReleaseVariableStats(left);
    ReleaseVariableStats(right);
    PG_RETURN_FLOAT8(qn::selectivity::clampProbability(sel));
}

namespace {

// The test functions whose calls the planner can treat as operator clauses: for
// each, the operators it equals, with the call's arguments that become the
// operator's left and right operands. The first is the one the call is
// estimated as; the index condition takes the one whose left operand is the
// indexed argument.
struct OperatorForm {
    Strategy strategy;
    int left;
    int right;
    bool commuted = false;
};
struct TestFunction {
    const char* name;
    int nargs;
    int nforms;
    OperatorForm forms[2];
};
const TestFunction kTestFunctions[] = {
    {"qn_int4_in_rangearray", 2, 2, {{qn::gist::ValueInRangeArray, 0, 1}, {qn::gist::ValueInRangeArray, 1, 0, true}}},
    {"qn_rangearray_contains_int4", 2, 2,
     {{qn::gist::ValueInRangeArray, 1, 0}, {qn::gist::ValueInRangeArray, 0, 1, true}}},
    {"qn_int4_in_rangebitfield", 2, 1, {{qn::gist::ValueInBitField, 0, 1}}},
    {"qn_int4_in_packedrange", 2, 2, {{qn::gist::ValueInPackedRange, 0, 1}, {qn::gist::RangeContainsValue, 1, 0}}},
    {"qn_int4rangepacked_contains_int4", 2, 2,
     {{qn::gist::RangeContainsValue, 0, 1}, {qn::gist::ValueInPackedRange, 1, 0}}},
    // (unused, value, packed range): the first argument is not read.
    {"qn_int4rangepacked_contains_int4", 3, 2,
     {{qn::gist::RangeContainsValue, 2, 1}, {qn::gist::ValueInPackedRange, 1, 2}}},
    {"qn_int4rangepacked_in_rangearray", 2, 2,
     {{qn::gist::RangeOverlapsRangeArray, 0, 1}, {qn::gist::RangeOverlapsRangeArray, 1, 0, true}}},
    {"qn_rangearray_overlaps_rangepacked", 2, 2,
     {{qn::gist::RangeOverlapsRangeArray, 1, 0}, {qn::gist::RangeOverlapsRangeArray, 0, 1, true}}},
    {"qn_int4range_is_overlap", 2, 2, {{kSetsMeet, 0, 1}, {kSetsMeet, 1, 0, true}}},
    {"qn_int4range_is_strictly_include", 2, 2, {{kSetContainedIn, 0, 1}, {kSetContains, 1, 0}}},
    {"qn_int4range_contains", 2, 2, {{kSetContains, 0, 1}, {kSetContainedIn, 1, 0}}},
    {"qn_int4rangepacked_in_int4rangepacked", 2, 2,
     {{qn::gist::RangeOverlapsRange, 0, 1}, {qn::gist::RangeOverlapsRange, 1, 0}}},
    {"qn_int4rangepacked_included_in_int4rangepacked", 2, 2,
     {{qn::gist::RangeIncludedInRange, 0, 1}, {qn::gist::RangeContainsRange, 1, 0}}},
    {"qn_int4rangepacked_contains_int4rangepacked", 2, 2,
     {{qn::gist::RangeContainsRange, 0, 1}, {qn::gist::RangeIncludedInRange, 1, 0}}},
};

const TestFunction* testFunction(Oid funcid, int nargs) {
    const char* name = get_func_name(funcid);
    if (name == nullptr) return nullptr;
    for (const TestFunction& f : kTestFunctions)
        if (f.nargs == nargs && strcmp(f.name, name) == 0) return &f;
    return nullptr;
}

// The int4set operators' functions, by name and operator name: a call is its
// operator (found by the function's own argument types) or, arguments
// swapped, the operator's commutator.
struct OperatorFunction {
    const char* name;
    const char* oprname;
};
const OperatorFunction kOperatorFunctions[] = {
    {"int4set_contains", "@>"},
    {"int4set_contained", "<@"},
    {"int4set_overlaps", "&&"},
};

// The operator of the form in the schema of the function (the extension's).
Oid operatorOf(const OperatorForm& form, Oid funcid) {
    const OperatorSignature* op = signatureOf(form.strategy, form.commuted);
    const char* schema = get_namespace_name(get_func_namespace(funcid));
    if (op == nullptr || schema == nullptr) return InvalidOid;
    List* name = list_make2(makeString(pstrdup(schema)), makeString(pstrdup(op->name)));
    return op->commuted ? OpernameGetOprid(name, op->right, op->left) : OpernameGetOprid(name, op->left, op->right);
}

// The arguments of the call: a function call, or an operator whose function it is.
List* callArguments(Node* node) {
    if (node != nullptr && IsA(node, FuncExpr)) return reinterpret_cast<FuncExpr*>(node)->args;
    if (node != nullptr && IsA(node, OpExpr)) return reinterpret_cast<OpExpr*>(node)->args;
    return NIL;
}

// A NULL constant where the three-argument form has its unread argument: the
// strict call is NULL whatever the rest.
bool unreadArgumentIsNull(const TestFunction& f, List* args) {
    if (f.nargs != 3) return false;
    const Node* first = static_cast<const Node*>(linitial(args));
    return IsA(first, Const) && reinterpret_cast<const Const*>(first)->constisnull;
}

// The operator clauses a call equals: each operator with the call's arguments
// that become its left and right operands, the first the one the call is
// estimated as. threeArgs: the form whose first argument is not read.
struct OperatorClause {
    Oid opno;
    int left;
    int right;
};
struct CallClauses {
    const TestFunction* test = nullptr;
    int n = 0;
    OperatorClause clauses[2];
};

// The clauses of a call of funcid with nargs arguments; false for a function
// that is not a test or an operator's function of the extension.
bool callClauses(Oid funcid, int nargs, CallClauses& out) {
    out = CallClauses();
    if ((out.test = testFunction(funcid, nargs)) != nullptr) {
        for (int i = 0; i < out.test->nforms; ++i) {
            const OperatorForm& form = out.test->forms[i];
            out.clauses[out.n++] = OperatorClause{operatorOf(form, funcid), form.left, form.right};
        }
        return true;
    }
    const char* name = get_func_name(funcid);
    Oid* argtypes = nullptr;
    int declared = 0;
    if (name == nullptr || nargs != 2) return false;
    for (const OperatorFunction& f : kOperatorFunctions) {
        if (strcmp(f.name, name) != 0) continue;
        get_func_signature(funcid, &argtypes, &declared);
        const char* schema = get_namespace_name(get_func_namespace(funcid));
        if (declared != 2 || schema == nullptr) return false;
        List* opname = list_make2(makeString(pstrdup(schema)), makeString(pstrdup(f.oprname)));
        const Oid opno = OpernameGetOprid(opname, argtypes[0], argtypes[1]);
        if (!OidIsValid(opno) || get_opcode(opno) != funcid) return false;
        out.clauses[out.n++] = OperatorClause{opno, 0, 1};
        const Oid commutator = get_commutator(opno);
        if (OidIsValid(commutator)) out.clauses[out.n++] = OperatorClause{commutator, 1, 0};
        return true;
    }
    return false;
}

// The call as an index condition on the indexed argument, or NIL.
List* indexCondition(SupportRequestIndexCondition* req) {
    List* args = callArguments(req->node);
    CallClauses call;
    if (!callClauses(req->funcid, list_length(args), call)) return NIL;
    for (int i = 0; i < call.n; ++i) {
        const OperatorClause& form = call.clauses[i];
        if (form.left != req->indexarg) continue;
        const Oid opno = form.opno;
        if (!OidIsValid(opno) || !op_in_opfamily(opno, req->opfamily)) continue;
        Node* operand = static_cast<Node*>(list_nth(args, form.right));
        if (!QN_IS_PSEUDO_CONSTANT_FOR_INDEX(req->root, operand, req->index)) continue;
        // The unread argument of the three-argument form can still make the call
        // NULL: then the call stays as a filter, unless it is a constant.
        const Node* first = static_cast<const Node*>(linitial(args));
        req->lossy = call.test != nullptr && call.test->nargs == 3 &&
                     !(IsA(first, Const) && !reinterpret_cast<const Const*>(first)->constisnull);
        Expr* clause = make_opclause(opno, BOOLOID, false, static_cast<Expr*>(list_nth(args, form.left)),
                                     reinterpret_cast<Expr*>(operand), InvalidOid, InvalidOid);
        return list_make1(clause);
    }
    return NIL;
}

// The call's selectivity: its operator's, restriction or join, by the
// operator's own estimators.
bool callSelectivity(SupportRequestSelectivity* req) {
    CallClauses call;
    if (!callClauses(req->funcid, list_length(req->args), call) || call.n == 0) return false;
    if (call.test != nullptr && unreadArgumentIsNull(*call.test, req->args)) {
        req->selectivity = 0.0;
        return true;
    }
    const OperatorClause& form = call.clauses[0];
    const Oid opno = form.opno;
    if (!OidIsValid(opno)) return false;
    List* opargs = list_make2(list_nth(req->args, form.left), list_nth(req->args, form.right));
    req->selectivity = req->is_join ? join_selectivity(req->root, opno, opargs, req->inputcollid, req->jointype,
                                                       req->sjinfo)
                                    : restriction_selectivity(req->root, opno, opargs, req->inputcollid,
                                                              req->varRelid);
    return true;
}

// Pages of out-of-line (TOAST) values a row of the relation of a column holds
// on average: its TOAST relation's pages over the rows the planner counts.
// 0 when the relation has none, or no rows known.
double outOfLinePagesPerRow(PlannerInfo* root, const Var* var) {
    const int varno = static_cast<int>(var->varno);  // unsigned before PostgreSQL 16
    if (var->varlevelsup != 0 || varno <= 0 || varno >= root->simple_rel_array_size) return 0;
    const RangeTblEntry* rte = planner_rt_fetch(varno, root);
    if (rte == nullptr || rte->rtekind != RTE_RELATION) return 0;
    const RelOptInfo* rel = root->simple_rel_array ? root->simple_rel_array[varno] : nullptr;
    const double tuples = rel != nullptr ? rel->tuples : 0;
    if (tuples < 1) return 0;
    Relation heap = relation_open(rte->relid, AccessShareLock);
    const Oid toast = heap->rd_rel->reltoastrelid;
    relation_close(heap, AccessShareLock);
    if (!OidIsValid(toast)) return 0;
    Relation toastRel = relation_open(toast, AccessShareLock);
    const BlockNumber pages = RelationGetNumberOfBlocks(toastRel);
    relation_close(toastRel, AccessShareLock);
    return pages / tuples;
}

// The cost of a call that reads sets from columns: the function's own cost,
// plus reading each set argument's out-of-line pages, as a sequential scan
// reads pages. A set from a constant is read once per statement and costs
// nothing more. False (the function's own cost stands) when no argument is a
// column of variable length.
bool callCost(SupportRequestCost* req) {
    if (req->root == nullptr || req->node == nullptr) return false;
    double pages = 0;
    bool column = false;
    ListCell* cell;
    foreach (cell, callArguments(req->node)) {
        const Node* arg = static_cast<const Node*>(lfirst(cell));
        while (arg != nullptr && IsA(arg, RelabelType))
            arg = reinterpret_cast<const Node*>(reinterpret_cast<const RelabelType*>(arg)->arg);
        if (arg == nullptr || !IsA(arg, Var) || get_typlen(exprType(arg)) != -1) continue;
        column = true;
        pages += outOfLinePagesPerRow(req->root, reinterpret_cast<const Var*>(arg));
    }
    if (!column) return false;
    HeapTuple proc = SearchSysCache1(PROCOID, ObjectIdGetDatum(req->funcid));
    if (!HeapTupleIsValid(proc)) return false;
    const double procost = reinterpret_cast<Form_pg_proc>(GETSTRUCT(proc))->procost;
    ReleaseSysCache(proc);
    req->startup = 0;
    req->per_tuple = procost * cpu_operator_cost + pages * seq_page_cost;
    return true;
}

}  // namespace

// Planner support of the test functions and the int4set operators'
// functions: a call whose first argument (or, for the tests that read both
// ways, either range argument) is an indexed column becomes the operator's
// index condition, exact except for the three-argument form whose unread
// argument is not a constant; a call is estimated as its operator; and a call
// reading sets from columns costs their out-of-line pages too. Other requests
// get no answer.
Datum qn_range_support(PG_FUNCTION_ARGS) {
    Node* request = reinterpret_cast<Node*>(PG_GETARG_POINTER(0));
    if (IsA(request, SupportRequestIndexCondition)) {
        List* conditions = indexCondition(reinterpret_cast<SupportRequestIndexCondition*>(request));
        if (conditions != NIL) PG_RETURN_POINTER(conditions);
    } else if (IsA(request, SupportRequestSelectivity)) {
        if (callSelectivity(reinterpret_cast<SupportRequestSelectivity*>(request))) PG_RETURN_POINTER(request);
    } else if (IsA(request, SupportRequestCost)) {
        if (callCost(reinterpret_cast<SupportRequestCost*>(request))) PG_RETURN_POINTER(request);
    }
    PG_RETURN_POINTER(nullptr);
}
