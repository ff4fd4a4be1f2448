-- Long calls stop when cancelled: under a statement timeout of 100 ms, calls that run for many seconds without
-- one stop within 5 s (loose, for a busy machine); and a call whose input is ready when a cancel arrives stops
-- before it returns. Data from hashes.

-- stops(query): the query under the session's statement timeout: its SQLSTATE, and whether it stopped within 5 s.
CREATE FUNCTION pg_temp.stops(query text) RETURNS text LANGUAGE plpgsql AS $$
DECLARE started timestamptz := clock_timestamp();
BEGIN
    EXECUTE query;
    RETURN 'finished';
EXCEPTION WHEN query_canceled THEN
    RETURN SQLSTATE || CASE WHEN clock_timestamp() - started < interval '5 s' THEN ' within 5 s'
                            ELSE ' after ' || (clock_timestamp() - started) END;
END $$;

-- A million values, 2147483647 among the first: from there on each one goes in one at a time (one list insertion
-- each, as in 3.3.16). And 20,000 runs each covering 32 MB of bits: each run is one long write or scan.
CREATE TEMP TABLE one_at_a_time AS
SELECT array_agg(CASE WHEN i = 10 THEN 2147483647 ELSE hashint4(i) END ORDER BY i) AS a FROM generate_series(1, 1000000) i;
CREATE TEMP TABLE wide_runs AS
SELECT array_agg(CASE WHEN i % 2 = 1 THEN 8 ELSE 268435447 END ORDER BY i) AS a FROM generate_series(1, 40000) i;

SET statement_timeout = '100ms';
SELECT pg_temp.stops($$SELECT int4set_agg('s', a, 'r') FROM one_at_a_time$$) AS values_one_at_a_time;
SELECT pg_temp.stops($$SELECT qn_int4set2bitfield_int4('r', a) FROM wide_runs$$) AS bitfield_of_runs;
SELECT pg_temp.stops($$SELECT int4set_agg_optimized('r', a, 268435455, 'r') FROM wide_runs$$) AS bits_of_runs;
SELECT pg_temp.stops($$SELECT qn_int4set_overlap_bitfield('r', a, qn_int4set2bitfield_int4('s', '{0,268435455}'))
                       FROM wide_runs$$) AS runs_against_bits;
RESET statement_timeout;

-- hears(call, input): call, an expression of `input`, with a cancel sent to this backend once `input` is computed:
-- 'stopped' when the call stops for it, 'returned first' when it returns before looking (a sequence tells, since
-- it is not rolled back).
CREATE TEMP SEQUENCE returned;
CREATE FUNCTION pg_temp.hears(call text, input text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    PERFORM setval('pg_temp.returned', 1, false);
    EXECUTE format('SELECT (%s) IS NULL, nextval(''pg_temp.returned'')
                    FROM (SELECT %s AS input, pg_cancel_backend(pg_backend_pid()) OFFSET 0) s', call, input);
    RETURN 'not cancelled';
EXCEPTION WHEN query_canceled THEN
    RETURN CASE WHEN (SELECT is_called FROM pg_temp.returned) THEN 'returned first' ELSE 'stopped' END;
END $$;
-- Four million values, or two million pairs; as a mix array, two million items.
SELECT call, pg_temp.hears(call, coalesce(input, $$qn_int4setconv_int4('r', '{0,3999999}', 's')$$)) AS cancel
FROM (VALUES ('qn_sort_int4(input)', NULL), ($$qn_int4setconv_int4('s', input, 'r')$$, NULL),
             ($$qn_int4setconv_int4('s', input, 'm')$$, NULL), ($$qn_int4setconv_int4('r', input, 'm')$$, NULL),
             ($$qn_int4setconv_int4('m', input, 'r')$$,
              $$qn_int4setconv_int4('r', qn_int4setconv_int4('r', '{0,3999999}', 's'), 'm')$$),
             ('qn_int4range_union(input, input)', NULL), ('qn_int4range_intersection(input, input)', NULL),
             ('qn_int4range_exclusion(input, input)', NULL)) t(call, input);
