-- The README's Quick start, statement for statement, in a database without the
-- extension. test/check_readme.sh fails when the README's Quick start block and
-- this test's expected output below the marker line differ.
DROP EXTENSION kelvarn_range_operators;
-- Dates as a new cluster shows them (pg_regress asks for another style).
SET datestyle = 'ISO, MDY';
-- README.md's Quick start shows everything below this line.
CREATE EXTENSION IF NOT EXISTS kelvarn_range_operators;
-- Activity: one row per user and active day, 20,000 users over a week.
CREATE TABLE events (user_id int4, day date);
INSERT INTO events (user_id, day)
SELECT u, date '2024-06-03' + d FROM generate_series(1, 20000) AS u, generate_series(0, 6) AS d
WHERE (u / 10 + d) % 3 <> 0;
CREATE INDEX events_user ON events USING gist (user_id qn_gist_int4_ops);
-- Segments: each a set of users, kept as a range array of [lower, upper] pairs.
CREATE TABLE segments (name text PRIMARY KEY, users int4[]);
INSERT INTO segments VALUES ('trial', '{1000,1039,5000,5019}'), ('churned', '{12000,12004}');
ANALYZE events, segments;
-- The events of each segment's users.
SELECT s.name, count(*) AS events
FROM segments s JOIN events e ON e.user_id <@ s.users GROUP BY s.name ORDER BY s.name;
EXPLAIN (COSTS OFF)
SELECT s.name, count(*) AS events
FROM segments s JOIN events e ON e.user_id <@ s.users GROUP BY s.name ORDER BY s.name;
-- The trial users active on each day, as one set per day.
SELECT e.day, int4set_agg(e.user_id, 'r') AS users
FROM segments s JOIN events e ON e.user_id <@ s.users
WHERE s.name = 'trial' GROUP BY e.day ORDER BY e.day;
