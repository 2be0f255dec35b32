-- Somebody's jobs on all servers, the latest first; with or without a domain:
--
--   psql -d jobs -v user=anna -f jobs-of-user.sql
SELECT began, server, job, state, printer, document, copies, pages, bytes, cause, remedy
FROM jobs
WHERE lower(regexp_replace("user", '^.*\\', '')) = lower(regexp_replace(:'user', '^.*\\', ''))
  AND (position('\' IN :'user') = 0 OR lower("user") = lower(:'user'))
ORDER BY began DESC, server, job DESC;
