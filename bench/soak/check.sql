-- After the soak: every indexable operator, for every query of soak_queries, finds
-- the same rows through the GiST index as by a sequential scan. Raises an error
-- (and so fails scripts/soak.sh) when one does not, or when the index is not used.
SET jit = off;
CREATE FUNCTION pg_temp.compare(col text, op text, arg text, OUT operator text, OUT queries int,
                                OUT rows_found bigint, OUT same_rows bool, OUT index_used bool)
LANGUAGE plpgsql AS $$
DECLARE
    matches text := format('SELECT q.qid, ARRAY(SELECT t.id FROM soak_rows t WHERE t.%I %s q.%I ORDER BY t.id) AS ids '
                           'FROM soak_queries q', col, op, arg);
    digest text := format('SELECT md5(string_agg(qid || %L || ids::text, %L ORDER BY qid)), count(*), '
                          'sum(cardinality(ids)) FROM (%s) m', ':', ';', matches);
    by_scan text;
    by_index text;
    line text;
BEGIN
    operator := format('%s %s %s', col, op, arg);
    PERFORM set_config('enable_seqscan', 'on', true);
    PERFORM set_config('enable_indexscan', 'off', true);
    PERFORM set_config('enable_bitmapscan', 'off', true);
    EXECUTE digest INTO by_scan, queries, rows_found;
    PERFORM set_config('enable_seqscan', 'off', true);
    PERFORM set_config('enable_indexscan', 'on', true);
    PERFORM set_config('enable_bitmapscan', 'on', true);
    index_used := false;
    FOR line IN EXECUTE 'EXPLAIN ' || matches LOOP
        index_used := index_used OR line ~ ('Index Scan (using|on) soak_rows_' || col);
    END LOOP;
    EXECUTE digest INTO by_index;
    same_rows := by_scan = by_index;
END $$;
CREATE TEMP TABLE soak_check AS
SELECT r.* FROM (VALUES ('v', '<@', 'arr'), ('v', '<@', 'bf'), ('v', '<@', 'pr'), ('pr', '&&', 'arr'),
                        ('pr', '&&', 'pr'), ('pr', '<@', 'pr'), ('pr', '@>', 'pr'), ('pr', '@>', 'val')) x(c, o, a),
     LATERAL pg_temp.compare(c, o, a) r;
SELECT * FROM soak_check;
DO $$ BEGIN
    IF EXISTS (SELECT FROM soak_check WHERE NOT (same_rows AND index_used)) THEN
        RAISE 'an index scan differs from the sequential scan, or the index was not used';
    END IF;
END $$;
