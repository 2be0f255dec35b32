-- The jobs of all servers in one database of PostgreSQL. As its owner, in an empty database:
--
--   createdb jobs && psql -d jobs -f jobs.sql
--
-- and a password for the role that the servers write with: \password aps_jobs

CREATE TABLE jobs (
  server        text        NOT NULL,
  job           bigint      NOT NULL,
  began         timestamptz NOT NULL,
  ended         timestamptz NOT NULL,
  state         text        NOT NULL,
  "user"        text        NOT NULL,  -- empty when it is not known; "DOMAIN\anna" as the spooler says it
  session       integer     NOT NULL,
  printer       text        NOT NULL,
  document      text        NOT NULL,
  spooler_job   text        NOT NULL,
  process       integer     NOT NULL,
  copies        integer     NOT NULL,  -- 0 when it is not known
  pages         integer     NOT NULL,  -- of the document, once; 0 when it is not known
  bytes         bigint      NOT NULL,
  collecting_ms integer,               -- of each stage; null when it was not reached
  sending_ms    integer,
  taking_ms     integer,
  paper_ms      integer,
  cause         text        NOT NULL,
  remedy        text        NOT NULL,
  change        bigint      NOT NULL,  -- of the line that this is
  PRIMARY KEY (server, began, job)
);
CREATE INDEX jobs_of_user ON jobs (lower(regexp_replace("user", '^.*\\', '')), began);
CREATE INDEX jobs_by_time ON jobs (began);

-- Lines that were no record of a job, such as one that was cut when its server was killed; it came again.
CREATE TABLE rejected_lines (
  at   timestamptz NOT NULL DEFAULT now(),
  line text        NOT NULL,
  why  text        NOT NULL
);

-- One line of the log of jobs (aps --job-log). A line that comes again changes nothing, and neither does one that is
-- older than what is known.
CREATE FUNCTION take_job(line text) RETURNS void
LANGUAGE plpgsql SECURITY DEFINER SET search_path = public, pg_temp AS $$
DECLARE
  j jsonb;
BEGIN
  j := line::jsonb;
  INSERT INTO jobs VALUES (
    j->>'server', (j->>'job')::bigint, (j->>'began')::timestamptz, (j->>'ended')::timestamptz, j->>'state',
    j->>'user', (j->>'session')::integer, j->>'printer', j->>'document', j->>'spoolerJob',
    (j->>'process')::integer, (j->>'copies')::integer, (j->>'pages')::integer, (j->>'bytes')::bigint,
    (j#>>'{milliseconds,collecting}')::integer, (j#>>'{milliseconds,sending}')::integer,
    (j#>>'{milliseconds,taking}')::integer, (j#>>'{milliseconds,paper}')::integer,
    j->>'cause', j->>'remedy', (j->>'change')::bigint)
  ON CONFLICT (server, began, job) DO UPDATE SET
    ended = excluded.ended, state = excluded.state, "user" = excluded."user", session = excluded.session,
    printer = excluded.printer, document = excluded.document, spooler_job = excluded.spooler_job,
    process = excluded.process, copies = excluded.copies, pages = excluded.pages, bytes = excluded.bytes,
    collecting_ms = excluded.collecting_ms, sending_ms = excluded.sending_ms, taking_ms = excluded.taking_ms,
    paper_ms = excluded.paper_ms, cause = excluded.cause, remedy = excluded.remedy, change = excluded.change
  WHERE excluded.change > jobs.change;
EXCEPTION WHEN data_exception OR integrity_constraint_violation THEN
  INSERT INTO rejected_lines(line, why) VALUES (left(line, 10000), SQLERRM);
END $$;

-- The servers may hand lines over and see nothing.
CREATE ROLE aps_jobs LOGIN;
REVOKE ALL ON FUNCTION take_job(text) FROM PUBLIC;
GRANT EXECUTE ON FUNCTION take_job(text) TO aps_jobs;
