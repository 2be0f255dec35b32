"""The rows of scripts/bench: what each measures, by which program, in which unit, and what its goal is."""
import dataclasses

from figures import Goal

WINE, NATIVE = "windows-x64", "linux"  # where the program that measures runs, and the preset that builds it


@dataclasses.dataclass(frozen=True)
class Measurement:
    name: str  # as the program prints it
    title: str
    unit: str
    goal: Goal | None = None
    scale: float = 1  # of what the program prints, to the unit


@dataclasses.dataclass(frozen=True)
class Row:
    name: str
    about: str
    place: str
    measurements: tuple

    @property
    def names(self):
        return [measurement.name for measurement in self.measurements]


def at_least(bound):
    return Goal(">=", bound)


def at_most(bound):
    return Goal("<=", bound)


ROWS = (
    Row("direct", "a direct job through the module, aps and the print client into memory, against raw sockets on the same hops",
        WINE, (Measurement("direct-4k", "direct job, writes of 4 KiB", "MB/s", at_least(0.93)),
               Measurement("direct-32k", "direct job, writes of 32 KiB", "MB/s", at_least(0.93)),
               Measurement("direct-64k", "direct job, writes of 64 KiB", "MB/s", at_least(0.95)))),
    Row("disk", "the same into a file on the disk, which both synchronise",
        WINE, (Measurement("disk-64k", "direct job to the disk, writes of 64 KiB", "MB/s", at_least(0.90)),)),
    Row("empty", "an empty job against a connection, three round trips to the relay and one to the sink",
        WINE, (Measurement("empty", "empty job", "us", at_most(1.20), 1e6),)),
    Row("request", "GetPrinterInfo against a raw round trip of 64 bytes to the relay",
        WINE, (Measurement("request", "request with a reply", "us", at_most(1.10), 1e6),
               Measurement("request-p99", "request with a reply, 99 of 100", "us", at_most(1.5), 1e6))),
    Row("threads", "GetPrinterInfo of 64 threads on one connection against 8 raw sockets with a thread each",
        WINE, (Measurement("threads-64", "64 threads, one connection", "calls/s", at_least(1.0)),)),
    Row("crowd", "200 jobs of 1 MiB at once in 20 sessions against the same bytes over 20 raw connections",
        NATIVE, (Measurement("crowd", "200 jobs at once", "MB/s", at_least(0.85)),
                 Measurement("crowd-slowest", "slowest of 20 sessions by the median one", "", at_most(1.5)))),
    Row("tls", "a job for a print client under TLS against OpenSSL's own stream on that hop",
        NATIVE, (Measurement("tls", "job over TLS", "MB/s", at_least(0.90)),)),
    Row("postscript", "a PostScript job of 5 MB that is converted against Ghostscript alone and one process start",
        WINE, (Measurement("postscript", "converted job", "ms", at_most(1.05), 1e3),
               Measurement("first-byte", "first byte at the client after Ghostscript's end", "ms", None, 1e3))),
    Row("ports", "start-up with many ports against the bare loop over the registry, and opening one",
        WINE, (Measurement("ports-1000", "start-up with 1,000 ports", "ms", at_most(1.3), 1e3),
               Measurement("ports-10000", "start-up with 10,000 ports", "ms", at_most(3), 1e3),
               Measurement("open-port", "OpenPort, 10,000 names of one length", "us", at_most(10), 1e6))),
    Row("relay", "the processor time of aps for a MB of a job against the raw relay's",
        NATIVE, (Measurement("relay-cpu", "processor time of aps for a MB", "us", at_most(1.10), 1e6),)),
    Row("memory", "how much a direct job of 1 GB raises the highest memory of each process over empty ones",
        WINE, (Measurement("memory-host", "module's host, job of 1 GB", "MiB", at_most(1), 2**-20),
               Measurement("memory-aps", "aps, job of 1 GB", "MiB", at_most(1), 2**-20),
               Measurement("memory-client", "print client, job of 1 GB", "MiB", at_most(1), 2**-20))),
    Row("sessions", "resident memory of aps, without sessions and with 1,000 that have a print client each",
        NATIVE, (Measurement("sessions-none", "aps, no session", "MB", None, 1e-6),
                 Measurement("sessions-1000", "aps, 1,000 sessions", "MB", at_most(25), 1e-6))),
    Row("records", "an empty job with records in a file and more, against records in memory",
        NATIVE, (Measurement("records-file", "records in a file", "us", None, 1e6),
                 Measurement("records-lines", "records in a file and a line for each job", "us", None, 1e6),
                 Measurement("records-keys", "records in memory, keys", "us", None, 1e6),
                 Measurement("records-hold", "records in memory, keys and --hold", "us", None, 1e6))),
    Row("line", "a print client behind 2 Mbit/s and 80 ms there and back, against what the line can carry; on all cores",
        NATIVE, (Measurement("line-document", "5 MB of PostScript by its compressed size", "ms", None, 1e3),
                 Measurement("line-page", "a page in the middle of that by the page alone", "ms", None, 1e3))),
)


# Stands beside another aps, which then is the raw side of the row.
OWN_RECORDS = Measurement("records-memory", "records in memory", "us", None, 1e6)


def find(names):
    """The rows of those names, all without any. Raises LookupError that names the first one that is none."""
    known = {row.name: row for row in ROWS}
    for name in names:
        if name not in known:
            raise LookupError(f"there is no row {name}; there are {', '.join(known)}")
    return [known[name] for name in names] if names else list(ROWS)
