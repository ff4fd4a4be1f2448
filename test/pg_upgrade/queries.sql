-- Answers that must be the same before and after the upgrade; each index query
-- runs through the index (checked) and by sequential scan.
SELECT extversion FROM pg_extension WHERE extname = 'kelvarn_range_operators';
SELECT count(*), md5(string_agg(concat_ws(' ', r, p, encode(b, 'hex'), v, s), ',' ORDER BY id)) AS stored FROM sets;
SELECT md5(s::text) AS s, md5(o::text) AS o, md5(u::text) AS u FROM whole_set;
SELECT g, md5(u::text) AS u, k FROM groups ORDER BY g;
SELECT md5(int4set_agg(v, 'r')::text) AS parted FROM parted;
SELECT count(*) FILTER (WHERE qn_int4_in_rangebitfield(v, b)) AS in_bitfield,
       count(*) FILTER (WHERE qn_int4_in_rangearray(v, r)) AS in_range_array FROM sets;
-- counts(): whether the probes' plans avoid a sequential scan, and their counts (planned afresh at each call).
CREATE FUNCTION pg_temp.counts(OUT plan_uses_indexes bool, OUT value_probe bigint, OUT packed_probe bigint,
                                OUT set_probe bigint)
LANGUAGE plpgsql AS $$
DECLARE
    probes text[] := ARRAY['SELECT count(*) FROM sets WHERE v <@ ''{100,900,2000,2100}''::int4[]',
                           'SELECT count(*) FROM sets WHERE p && qn_range_pack(1000, 1200)',
                           'SELECT count(*) FROM sets WHERE s < ''{700}'''];
    line text;
BEGIN
    plan_uses_indexes := true;
    FOR i IN 1..3 LOOP
        FOR line IN EXECUTE 'EXPLAIN (COSTS OFF) ' || probes[i] LOOP
            IF line LIKE '%Seq Scan%' THEN plan_uses_indexes := false; END IF;
        END LOOP;
    END LOOP;
    EXECUTE probes[1] INTO value_probe;
    EXECUTE probes[2] INTO packed_probe;
    EXECUTE probes[3] INTO set_probe;
END $$;
SET enable_seqscan = off;
SELECT * FROM pg_temp.counts();
RESET enable_seqscan;
SET enable_indexscan = off;
SET enable_bitmapscan = off;
SELECT * FROM pg_temp.counts();
