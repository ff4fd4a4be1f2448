// int4set in the planner: the statistics ANALYZE gathers on an int4set column
// (the type's own typanalyze: the server's statistics of whole values, then
// two slots of the column's runs and most common members, see
// qnPgInt4SetStats.h) and the restriction and join estimators of its
// containment, overlap and position operators.
//
// What is estimated how:
// - a set column against a constant set, value or int4range: the column's run
//   statistics (positions by least and greatest members);
// - an int4 column against a constant set (`v <@ '{...}'`): the int4 column's
//   MCVs and histogram, as for a range array;
// - a varying operand, or a column without statistics: the server's defaults
//   for comparable clauses;
// - joins: two set columns by && from both columns' runs; a set column and an
//   int4 column by membership, the int4 column's MCVs and histogram probed
//   against the set column's runs.
#include "qnPgInt4Set.h"
#include "qnPgInt4SetOps.h"
#include "qnPgInt4SetStats.h"
#include "quenloPgInt4SetDatum.h"
#include "quenloPgStatistics.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wregister"
extern "C" {
#include "access/htup_details.h"
#include "catalog/pg_statistic.h"
#include "commands/vacuum.h"
#include "utils/lsyscache.h"
#include "utils/rangetypes.h"
}
#pragma GCC diagnostic pop

namespace set = qn::int4set;
namespace setstats = qn::int4setstats;
using SetColumn = setstats::SetColumn<palloc, pfree>;
using qn::pg::PollInterrupts;
using qn::pg::SetPayload;
using qn::pg::setPayload;
using qn::selectivity::clampProbability;

namespace {

// The runs of a payload as (lo, hi) pairs, for the statistics' walks. Copyable:
// a copy walks again from where the original stood.
class PayloadRuns {
public:
    PayloadRuns(const uint8_t* data, size_t size) : cursor_(data, size) {}
    bool next(int64_t& lo, int64_t& hi) {
        set::Range32 r;
        if (!cursor_.next(r)) return false;
        lo = r.lower;
        hi = r.upper;
        return true;
    }
    bool ok() const { return cursor_.status() == set::Status::Ok; }

private:
    set::RangeCursor cursor_;
};

// ---- ANALYZE

struct AnalyzeState {
    AnalyzeAttrComputeStatsFunc standardCompute;
    void* standardExtra;
};

// A slot not taken by the server's own statistics, or -1.
int freeSlot(VacAttrStats* s, int from) {
    for (int i = from; i < STATISTIC_NUM_SLOTS; ++i)
        if (s->stakind[i] == 0) return i;
    return -1;
}

// Stores int4 values and float4 numbers in slot i, copied into the analyze context.
void storeSlot(VacAttrStats* s, int i, int kind, const int32_t* values, int nvalues, const float* numbers,
               int nnumbers) {
    MemoryContext caller = MemoryContextSwitchTo(s->anl_context);
    auto* datums = static_cast<Datum*>(palloc(sizeof(Datum) * Max(nvalues, 1)));
    for (int k = 0; k < nvalues; ++k) datums[k] = Int32GetDatum(values[k]);
    auto* copied = static_cast<float4*>(palloc(sizeof(float4) * Max(nnumbers, 1)));
    memcpy(copied, numbers, sizeof(float4) * nnumbers);
    MemoryContextSwitchTo(caller);
    s->stakind[i] = static_cast<int16>(kind);
    s->staop[i] = InvalidOid;
    s->stacoll[i] = InvalidOid;
    s->stanumbers[i] = copied;
    s->numnumbers[i] = nnumbers;
    s->stavalues[i] = datums;
    s->numvalues[i] = nvalues;
    s->statypid[i] = INT4OID;
    s->statyplen[i] = sizeof(int32);
    s->statypbyval[i] = true;
    s->statypalign[i] = TYPALIGN_INT;
}

// The server's statistics of whole values first (MCVs, histogram, correlation,
// for = and <), then the runs and most common members in two free slots.
// Working memory is the column's analyze context, reset after the column.
void computeSetStats(VacAttrStats* s, AnalyzeAttrFetchFunc fetch, int samplerows, double totalrows) {
    auto* state = static_cast<AnalyzeState*>(s->extra_data);
    s->extra_data = state->standardExtra;
    state->standardCompute(s, fetch, samplerows, totalrows);
    s->extra_data = state;
    const int runsSlot = freeSlot(s, 0);
    const int membersSlot = runsSlot < 0 ? -1 : freeSlot(s, runsSlot + 1);
    if (membersSlot < 0) return;
    const int target = Max(s->minrows / 300, 1);  // the server asks 300 rows per unit of target
    setstats::Gatherer<palloc, pfree, PollInterrupts> g(target, samplerows, PollInterrupts{});
    for (int row = 0; row < samplerows; ++row) {
        CHECK_FOR_INTERRUPTS();
        bool isnull = false;
        const Datum d = fetch(s, row, &isnull);
        if (isnull) continue;
        const varlena* raw = reinterpret_cast<const varlena*>(DatumGetPointer(d));
        const varlena* value = PG_DETOAST_DATUM_PACKED(d);
        const auto* data = reinterpret_cast<const uint8_t*>(VARDATA_ANY(value));
        const size_t size = VARSIZE_ANY_EXHDR(value);
        uint64_t card = 0;
        if (set::cardinality(data, size, card) == set::Status::Ok) {
            if (card == 0) {
                g.addEmpty();
            } else {
                // One walk for the row's shape, one to hand its runs over.
                PayloadRuns shape(data, size);
                int64_t lo, hi, least = 0, greatest = 0;
                uint64_t runs = 0;
                qn::pgRangeArray::Poller<PollInterrupts> tick(PollInterrupts{});
                while (shape.next(lo, hi)) {
                    if (runs++ == 0) least = lo;
                    greatest = hi;
                    tick();
                }
                PayloadRuns walk(data, size);
                if (shape.ok() && runs > 0)
                    g.addRow(runs, static_cast<int32_t>(least), static_cast<int32_t>(greatest), card, walk);
            }
        }  // a value the readers cannot read is left out
        if (value != raw) pfree(const_cast<varlena*>(value));
    }
    setstats::Gathered out;
    if (!g.finish(out)) return;
    storeSlot(s, runsSlot, setstats::kKindRuns, out.values, out.nvalues, out.numbers, out.nnumbers);
    if (out.nmembers > 0)
        storeSlot(s, membersSlot, setstats::kKindMembers, out.members, out.nmembers, out.memberFreqs, out.nmembers);
    s->stats_valid = true;
}

// ---- estimates

// The operators, read as `set column <op> operand`.
enum class Test { Contains, Within, Meets, Left, Right, NotRight, NotLeft, Adjacent, OperandNotRight, OperandNotLeft };
enum class Operand { Set, Value, Range };

struct Signature {
    Test test;
    Operand operand;
    Oid setType;   // the int4set type
    bool setLeft;  // the set is the left operand
};

// The operator by name and operand types: one side int4set, the other int4set,
// int4 or int4range. False for anything else.
bool signatureOf(Oid opno, Signature& sig) {
    const char* name = get_opname(opno);
    Oid left = InvalidOid, right = InvalidOid;
    if (name == nullptr) return false;
    op_input_types(opno, &left, &right);
    sig.setLeft = left != INT4OID;
    sig.setType = sig.setLeft ? left : right;
    const Oid other = sig.setLeft ? right : left;
    sig.operand = other == INT4OID ? Operand::Value : other == INT4RANGEOID ? Operand::Range : Operand::Set;
    if (sig.operand == Operand::Set && other != sig.setType) return false;
    static const struct {
        const char* name;
        Test test;
    } kNames[] = {{"@>", Test::Contains}, {"<@", Test::Within},       {"&&", Test::Meets},
                  {"<<", Test::Left},     {">>", Test::Right},        {"&<", Test::NotRight},
                  {"&>", Test::NotLeft},  {"-|-", Test::Adjacent}};
    for (const auto& n : kNames)
        if (strcmp(n.name, name) == 0) {
            sig.test = n.test;
            // `value <@ set` is the set containing the value.
            if (!sig.setLeft && sig.operand == Operand::Value) sig.test = Test::Contains;
            return true;
        }
    return false;
}

// The test with its operands swapped: `operand <op> column` as `column <op'> operand`.
Test commuted(Test t) {
    switch (t) {
        case Test::Contains: return Test::Within;
        case Test::Within: return Test::Contains;
        case Test::Left: return Test::Right;
        case Test::Right: return Test::Left;
        case Test::NotRight: return Test::OperandNotRight;
        case Test::NotLeft: return Test::OperandNotLeft;
        default: return t;
    }
}

double defaultSelectivity(Test t) {
    return t == Test::Meets ? setstats::kDefaultOverlap
           : t == Test::Contains || t == Test::Within ? setstats::kDefaultContainment
                                                      : setstats::kDefaultPosition;
}

// The set column's statistics read back; false without them. nullfrac is the
// column's whenever it has statistics (a column of NULLs has no others).
bool loadSetColumn(VariableStatData* vd, Oid setType, Oid opfunc, SetColumn& col, double& nullfrac) {
    nullfrac = 0;
    if (!qn::pg::statisticsUsable(vd, setType, opfunc)) return false;
    nullfrac = reinterpret_cast<Form_pg_statistic>(GETSTRUCT(vd->statsTuple))->stanullfrac;
    AttStatsSlot runs, members;
    if (!get_attstatsslot(&runs, vd->statsTuple, setstats::kKindRuns, InvalidOid,
                          ATTSTATSSLOT_VALUES | ATTSTATSSLOT_NUMBERS))
        return false;
    auto copyValues = [](const AttStatsSlot& slot) {
        auto* v = static_cast<int32_t*>(palloc(sizeof(int32_t) * Max(slot.nvalues, 1)));
        for (int i = 0; i < slot.nvalues; ++i) v[i] = DatumGetInt32(slot.values[i]);
        return v;
    };
    const int32_t* values = copyValues(runs);
    const int32_t* commonValues = nullptr;
    const float* commonFreqs = nullptr;
    int ncommon = 0;
    if (get_attstatsslot(&members, vd->statsTuple, setstats::kKindMembers, InvalidOid,
                         ATTSTATSSLOT_VALUES | ATTSTATSSLOT_NUMBERS)) {
        if (members.nvalues == members.nnumbers) {
            commonValues = copyValues(members);
            auto* freqs = static_cast<float*>(palloc(sizeof(float) * Max(members.nnumbers, 1)));
            memcpy(freqs, members.numbers, sizeof(float) * members.nnumbers);
            commonFreqs = freqs;
            ncommon = members.nvalues;
        }
        free_attstatsslot(&members);
    }
    col.setPoll(qn::pg::pollInterrupts);
    const bool ok = col.load(runs.numbers, runs.nnumbers, values, runs.nvalues, commonValues, commonFreqs, ncommon);
    free_attstatsslot(&runs);
    return ok;
}

// Least and greatest members of a constant set; false when it is empty or unreadable.
bool extremesOf(const SetPayload& p, int64_t& least, int64_t& greatest) {
    bool found = false;
    int32_t lo = 0, hi = 0;
    if (set::minMember(p.data, p.size, found, lo) != set::Status::Ok || !found) return false;
    if (set::maxMember(p.data, p.size, found, hi) != set::Status::Ok || !found) return false;
    least = lo;
    greatest = hi;
    return true;
}

// `set column <test> constant set`: shares of the non-null rows.
double setAgainstSet(const SetColumn& col, Test t, const SetPayload& p) {
    const PayloadRuns runs(p.data, p.size);
    int64_t least = 0, greatest = 0;
    const bool nonEmpty = extremesOf(p, least, greatest);
    switch (t) {
        case Test::Contains: return col.containsSet(runs);
        case Test::Within: return col.within(runs);
        case Test::Meets: return nonEmpty ? col.meets(runs) : 0.0;
        default: break;
    }
    if (!nonEmpty) return 0.0;
    if (!col.hasExtremes()) return col.nonEmpty(defaultSelectivity(t));
    switch (t) {
        case Test::Left: return col.nonEmpty(col.maxAtMost(least - 1));
        case Test::Right: return col.nonEmpty(1.0 - col.minAtMost(greatest));
        case Test::NotRight: return col.nonEmpty(col.maxAtMost(greatest));
        case Test::NotLeft: return col.nonEmpty(1.0 - col.minAtMost(least - 1));
        case Test::OperandNotRight: return col.nonEmpty(1.0 - col.maxAtMost(greatest - 1));
        case Test::OperandNotLeft: return col.nonEmpty(col.minAtMost(least));
        case Test::Adjacent:
            return col.nonEmpty(col.maxAtMost(least - 1) - col.maxAtMost(least - 2) + col.minAtMost(greatest + 1) -
                                col.minAtMost(greatest));
        default: return defaultSelectivity(t);
    }
}

// `set column <test> constant` for a constant that is not NULL: a share of all rows.
double constantSelectivity(const SetColumn& col, double nullfrac, const Signature& sig, Test t, Datum operand) {
    double p = 0;
    switch (sig.operand) {
        case Operand::Value: {
            const int32 v = DatumGetInt32(operand);
            p = col.containsRange(v, v);
            break;
        }
        case Operand::Range: {
            qn::pg::RangeInt r;
            const bool nonEmpty = qn::pg::int4RangeValue(operand, r);
            if (t == Test::Contains)
                p = nonEmpty ? col.containsRange(r.lower, r.upper) : 1.0;
            else if (t == Test::Within)
                p = nonEmpty ? col.within(setstats::SingleRun(r.lower, r.upper)) : col.emptyFraction();
            else
                p = nonEmpty ? col.meets(setstats::SingleRun(r.lower, r.upper)) : 0.0;
            break;
        }
        case Operand::Set: p = setAgainstSet(col, t, setPayload(operand)); break;
    }
    return clampProbability(p) * (1.0 - nullfrac);
}

// A constant set as the operand of an int4 column's membership test.
struct ConstantSet {
    SetPayload p;
    bool contains(int32_t v) const {
        bool result = false;
        return set::containsValue(p.data, p.size, v, result) == set::Status::Ok && result;
    }
    PayloadRuns runs() const { return PayloadRuns(p.data, p.size); }
};

// Restriction selectivity of `column <op> other` or `other <op> column`.
double restriction(const Signature& sig, Oid opfunc, VariableStatData* vd, Node* other, bool columnOnLeft) {
    const bool constant = IsA(other, Const);
    if (constant && reinterpret_cast<Const*>(other)->constisnull) return 0.0;  // the operators are strict
    // Between two sets the column may stand on either side; otherwise the set's
    // side is fixed, and a column on the other side is an int4 column.
    const bool columnIsSet = sig.operand == Operand::Set || columnOnLeft == sig.setLeft;
    const Test t = sig.operand == Operand::Set && !columnOnLeft ? commuted(sig.test) : sig.test;
    if (!constant) return defaultSelectivity(t);
    const Datum operand = reinterpret_cast<Const*>(other)->constvalue;
    if (!columnIsSet) {
        // An int4 column in a constant set: the int4 column's statistics.
        if (sig.operand != Operand::Value) return defaultSelectivity(t);
        qn::selectivity::ColumnStats c;
        qn::pg::PackedModel unused;
        bool haveModel = false;
        qn::pg::loadColumn(vd, INT4OID, opfunc, c, unused, haveModel);
        return qn::selectivity::int4Selectivity(c, ConstantSet{setPayload(operand)});
    }
    SetColumn col;
    double nullfrac = 0;
    if (!loadSetColumn(vd, sig.setType, opfunc, col, nullfrac)) return defaultSelectivity(t) * (1.0 - nullfrac);
    return constantSelectivity(col, nullfrac, sig, t, operand);
}

// Of a semi or anti join: the share of outer rows with at least one match
// among `inner` rows, each pair matching with chance `pairs`.
double outerShare(double pairs, double inner) {
    return 1.0 - std::exp(inner * std::log1p(-std::min(clampProbability(pairs), 1.0 - 1e-15)));
}

}  // namespace

QN_FUNCTION_INFO_V1(qn_int4set_typanalyze)
QN_FUNCTION_INFO_V1(qn_int4set_sel)
QN_FUNCTION_INFO_V1(qn_int4set_joinsel)

// typanalyze of int4set: the server's statistics of whole values, extended.
Datum qn_int4set_typanalyze(PG_FUNCTION_ARGS) {
    auto* s = reinterpret_cast<VacAttrStats*>(PG_GETARG_POINTER(0));
    if (!std_typanalyze(s)) PG_RETURN_BOOL(false);
    auto* state = static_cast<AnalyzeState*>(palloc(sizeof(AnalyzeState)));
    state->standardCompute = s->compute_stats;
    state->standardExtra = s->extra_data;
    s->extra_data = state;
    s->compute_stats = computeSetStats;
    PG_RETURN_BOOL(true);
}

// Restriction estimator of the int4set operators: (planner info, operator,
// arguments, relation of interest).
Datum qn_int4set_sel(PG_FUNCTION_ARGS) {
    auto* root = reinterpret_cast<PlannerInfo*>(PG_GETARG_POINTER(0));
    const Oid opno = PG_GETARG_OID(1);
    auto* args = reinterpret_cast<List*>(PG_GETARG_POINTER(2));
    const int varRelid = PG_GETARG_INT32(3);
    Signature sig;
    if (!signatureOf(opno, sig)) PG_RETURN_FLOAT8(setstats::kDefaultContainment);
    VariableStatData vd;
    Node* other = nullptr;
    bool columnOnLeft = true;
    if (!get_restriction_variable(root, args, varRelid, &vd, &other, &columnOnLeft))
        PG_RETURN_FLOAT8(defaultSelectivity(sig.test));
    const double sel = restriction(sig, get_opcode(opno), &vd, other, columnOnLeft);
    ReleaseVariableStats(vd);
    PG_RETURN_FLOAT8(clampProbability(sel));
}

// Join estimator: && between two set columns, and a set column holding an
// int4 column's value (@> and its commutator <@); the server's contjoinsel
// default (0.001) otherwise or without statistics.
Datum qn_int4set_joinsel(PG_FUNCTION_ARGS) {
    auto* root = reinterpret_cast<PlannerInfo*>(PG_GETARG_POINTER(0));
    const Oid opno = PG_GETARG_OID(1);
    auto* args = reinterpret_cast<List*>(PG_GETARG_POINTER(2));
    const auto jointype = static_cast<JoinType>(PG_GETARG_INT16(3));
    auto* sjinfo = reinterpret_cast<SpecialJoinInfo*>(PG_GETARG_POINTER(4));
    Signature sig;
    constexpr double kDefault = 0.001;
    if (!signatureOf(opno, sig) || list_length(args) != 2) PG_RETURN_FLOAT8(kDefault);
    VariableStatData left, right;
    bool reversed = false;
    get_join_variables(root, args, sjinfo, &left, &right, &reversed);
    const Oid opfunc = get_opcode(opno);
    double sel = kDefault;
    VariableStatData* setSide = sig.setLeft ? &left : &right;
    VariableStatData* otherSide = sig.setLeft ? &right : &left;
    // In a semi or anti join the right operand is the inner side, unless the join was reversed.
    const bool semi = jointype == JOIN_SEMI || jointype == JOIN_ANTI;
    const VariableStatData* inner = reversed ? &left : &right;
    const double innerRows = semi && inner->rel != nullptr ? Max(inner->rel->rows, 1.0) : 0;
    SetColumn a;
    double nullA = 0;
    if (loadSetColumn(setSide, sig.setType, opfunc, a, nullA)) {
        if (sig.test == Test::Meets && sig.operand == Operand::Set) {
            SetColumn b;
            double nullB = 0;
            if (loadSetColumn(otherSide, sig.setType, opfunc, b, nullB)) {
                sel = setstats::overlapJoin(a, b) * (1.0 - nullA) * (1.0 - nullB);
                if (innerRows > 0) sel = outerShare(sel, innerRows);
            }
        } else if (sig.test == Test::Contains && sig.operand == Operand::Value) {
            qn::selectivity::ColumnStats c;
            qn::pg::PackedModel unused;
            bool haveModel = false;
            if (qn::pg::loadColumn(otherSide, INT4OID, opfunc, c, unused, haveModel)) {
                using qn::selectivity::JoinShare;
                const JoinShare share = innerRows == 0           ? JoinShare::Pairs
                                        : inner == otherSide ? JoinShare::OuterRows
                                                             : JoinShare::SampledRows;
                sel = setstats::membershipJoin(a, c, 1.0 - nullA, share, Max(innerRows, 1.0));
            }
        }
    }
    ReleaseVariableStats(left);
    ReleaseVariableStats(right);
    PG_RETURN_FLOAT8(clampProbability(sel));
}
