#!/usr/bin/env python3
"""Writes the seeds of the fuzz targets below tests/fuzz/corpus, and the dictionary of their values.

A seed that broke something is added by hand, under a name that says what it was; this script leaves it alone.
"""
import pathlib
import struct

HERE = pathlib.Path(__file__).resolve().parent
CREATE, REQUEST, REPLY, FAILURE, RELEASE = 3, 4, 5, 6, 7
HELLO, WELCOME, PROOF = 1, 2, 8
MORE, ASKS = 1, 2
CLASSES = {
    "bridge": "Quillfern::ComponentServer::Bridge",
    "router": "Quillfern::ComponentServer::BridgeRouter",
    "records": "Quillfern::ComponentServer::ProgramMonitor_s",
    "monitor": "Quillfern::NTR::PortMonitorClient",
    "session": "Quillfern::NTR::SessionHost",
    "administration": "Quillfern::NTR::AdministrationServer",
    "client": "Quillfern::NTR::PrintClient",
}


def integer(value):
    return b"i" + struct.pack("<i", value)


def boolean(value):
    return b"b" + bytes([value])


def text(value):
    units = value.encode("utf-16-le", "surrogatepass")
    return b"t" + struct.pack("<I", len(units) // 2) + units


def block(data):
    return b"d" + struct.pack("<I", len(data)) + data


def optional(value):
    return boolean(0) if value is None else boolean(1) + text(value)


def versions(*names):
    return integer(len(names)) + b"".join(text(name) + b"".join(map(integer, (4, 0, 1, 0))) for name in names)


def step(peer, kind, number=0, component=0, payload=b"", flags=0, bridge=0, correlation=1):
    return bytes([peer, kind, flags, number, bridge, component, correlation]) + struct.pack("<H", len(payload)) + payload


def frame(kind, number=0, component=0, payload=b"", flags=0, bridge=0, correlation=0):
    return struct.pack("<IBBHIII", len(payload), kind, flags, number, bridge, component, correlation) + payload


def ask(peer, number, component, payload=b"", **more):
    return step(peer, REQUEST, number, component, payload, flags=ASKS, **more)


VALUES = {
    "each_kind": integer(-1) + boolean(1) + text("aä€\U0001F5A8") + block(b"data") + text(""),
    "unpaired_surrogates": text("\ud800") + text("\udc00a"),
    "wrong_boolean": b"b\x02",
    "long_text": b"t\xff\x7f\x00\x00ab",
    "text_past_the_bound": b"t\x00\x80\x00\x00ab",
    "block_that_ends_early": b"d\x10\x00\x00\x00abc",
    "version_map": versions(CLASSES["client"], CLASSES["bridge"]),
}

FRAMES = {
    "one": b"\x00" + frame(REQUEST, 1, 1, integer(5), ASKS, correlation=7),
    "three_cut_often": b"\x07" + frame(CREATE, 0, 1, text("A")) + frame(REQUEST, 2, 1, b"", MORE) + frame(RELEASE, 0, 1),
    "longest": b"\xff" + struct.pack("<IBBHIII", 65536, REQUEST, 0, 2, 3, 4, 5) + b"x",
    "one_byte_short": b"\x00" + frame(REQUEST, 1, 1, integer(5))[:-1],
    "past_the_bound": b"\x00" + struct.pack("<IBBHIII", 65537, REQUEST, 0, 2, 3, 4, 5),
    "no_kind": b"\x00" + frame(0) + frame(9),
}


def handshake(kind, *values):
    pairs = b"".join(text(name) + text(value) for name, value in values)
    return frame(kind, 1, payload=text("corvane") + integer(len(values)) + pairs)


HEX = "5" * 64
HANDSHAKES = {
    "guest_without_key": b"\x00" + handshake(HELLO, ("process", "1")),
    "guest_with_wrong_proof": b"\x00" + handshake(HELLO, ("identity", "session-5"), ("nonce", HEX)) +
                              frame(PROOF, 1, payload=text(HEX)),
    "guest_unknown": b"\x00" + handshake(HELLO, ("identity", "session-6"), ("nonce", HEX)),
    "guest_of_another_version": b"\x00" + frame(HELLO, 2, payload=text("corvane") + integer(0)),
    "proof_after_hello": b"\x01" + frame(PROOF, 1, payload=text(HEX)),
    "request_instead_of_proof": b"\x01" + frame(REQUEST, 1, 1),
    "server_with_wrong_proof": b"\x02" + handshake(WELCOME, ("nonce", HEX), ("proof", HEX)),
    "server_without_proof": b"\x02" + handshake(WELCOME, ("nonce", HEX)),
    "server_that_wants_a_key": b"\x02" + frame(FAILURE, 1, payload=text("no"), correlation=3108),
}

REGISTRATION = integer(5) + integer(1) + optional("Laser") + b"".join(optional(None) for _ in range(7)) + \
    boolean(1) + integer(3) + integer(600) + versions(CLASSES["client"])
LOCAL = "Laser (session 5)"
ATTACH = text(LOCAL) + integer(1234) + integer(3) + versions(CLASSES["client"])
START = optional("job") + optional("Laser") + optional("Report") + optional("RAW") + integer(1) * 5
NOTICE = text("job") + text("went well") + integer(2) + text("result") + text("delivered") + text("job") + text("7")

APS = {
    "a_job": b"\x03" + ask(0, 5, 1, text(LOCAL)) + ask(0, 4, 1, ATTACH) +
             step(0, CREATE, 0, 9, text(CLASSES["client"]), bridge=3) + step(0, REQUEST, 1, 9, START, bridge=3) +
             step(0, REQUEST, 2, 9, optional("job") + integer(4) + block(b"data"), bridge=3) +
             ask(0, 3, 9, optional("job"), bridge=3) + step(1, REPLY, 3, 9, integer(1), bridge=2) +
             step(0, RELEASE, 0, 3, text("done")),
    "a_job_whose_client_leaves": b"\x03" + ask(0, 4, 1, ATTACH) + step(1, RELEASE, 0, 2, text("no")) +
                                 step(0, REQUEST, 2, 9, b"x", bridge=3) + ask(0, 3, 9, b"", bridge=3),
    "a_job_whose_connection_breaks": b"\x03" + ask(0, 4, 1, ATTACH) + step(1, HELLO) + ask(0, 3, 9, b"", bridge=3),
    "attached_twice": b"\x03" + ask(0, 4, 1, ATTACH) + ask(0, 4, 1, ATTACH),
    "printers_and_programs": b"\x03" + ask(0, 6, 1, integer(5)) +
                             ask(0, 7, 1, text("notepad.exe") + text("/PT a") + optional(LOCAL)),
    "questions": b"\x03" + ask(0, 1, 5, integer(1) + text("spoolsv.exe")) +
                 step(0, REQUEST, 2, 5, integer(1) + integer(2) + integer(3) + integer(4) + text("lost")) +
                 step(0, REQUEST, 3, 5, NOTICE) + ask(0, 30, 7) + ask(0, 31, 7, integer(10)) +
                 ask(0, 32, 7, integer(0) + integer(0)),
    "registration": b"\x00" + step(1, CREATE, 0, 1, text(CLASSES["session"])) + ask(1, 20, 1, REGISTRATION) +
                    ask(1, 20, 1, REGISTRATION),
    "two_clients_of_one_session": b"\x02" + step(0, CREATE, 0, 1, text(CLASSES["session"])) + ask(0, 20, 1, REGISTRATION),
    "releases_of_nothing": b"\x01" + b"".join(step(0, RELEASE, 0, 20 + i, text("x" * i)) for i in range(4)),
    "a_class_that_is_not_offered": b"\x00" + step(0, CREATE, 0, 1, text("Nobody")) + ask(0, 1, 1),
    "a_request_in_pieces": b"\x03" + step(0, REQUEST, 5, 1, text(LOCAL)[:9], MORE | ASKS) +
                           step(0, REQUEST, 5, 1, text(LOCAL)[9:], ASKS),
}

WRITE = optional("job") + integer(4) + block(b"data")
PRINTCLIENT = {
    "a_job": b"\x03" + step(0, REQUEST, 2, 1, WRITE) + ask(0, 3, 1, optional("job")),
    "two_jobs_mixed": b"\x03" + step(0, REQUEST, 2, 1, WRITE) + step(0, REQUEST, 2, 3, WRITE) +
                      ask(0, 3, 3, optional(None)) + ask(0, 3, 1, optional(None)),
    "a_pdf": b"\x03" + step(0, REQUEST, 2, 1, optional(None) + integer(14) + block(b"%PDF-1.7\n%%EOF")) +
             ask(0, 3, 1, optional(None)),
    "a_cut_pdf": b"\x03" + step(0, REQUEST, 2, 1, optional(None) + integer(8) + block(b"%PDF-1.7")) +
                 ask(0, 3, 1, optional(None)),
    "a_piece_that_is_too_short": b"\x03" + step(0, REQUEST, 2, 1, optional(None) + integer(9) + block(b"data")) +
                                 ask(0, 3, 1, optional(None)),
    "an_end_without_start": b"\x01" + ask(0, 3, 1, optional("job")),
    "a_start_twice": b"\x03" + step(0, REQUEST, 1, 1, START) + ask(0, 3, 1, optional(None)),
    "a_start_that_cannot_be_read": b"\x01" + step(0, REQUEST, 1, 1, integer(1)) + ask(0, 3, 1, optional(None)),
    "a_release_in_the_middle": b"\x03" + step(0, REQUEST, 2, 1, WRITE) + step(0, RELEASE, 0, 1, text("gone")) +
                               ask(0, 3, 1, optional(None)),
    "an_end_that_wants_no_answer": b"\x03" + step(0, REQUEST, 3, 1, optional(None)),
    "no_data_of_a_conversion": b"\x01" + step(0, REQUEST, 1, 1, optional(None) * 4 + integer(1) * 3 + integer(2) +
                                              integer(1)) + ask(0, 3, 1, optional(None)),
    "a_write_in_pieces": b"\x03" + step(0, REQUEST, 2, 1, WRITE[:12], MORE) + step(0, REQUEST, 2, 1, WRITE[12:]) +
                         ask(0, 3, 1, optional(None)),
}

CONNECTION = {
    "request_to_a_component": frame(REQUEST, 2, 1, text("hello"), ASKS, correlation=1),
    "request_on_a_bridge": frame(CREATE, 0, 7, text("Echo"), bridge=3) + frame(REQUEST, 2, 7, text("hello"), ASKS, 3, 1),
    "a_block_in_frames": frame(CREATE, 0, 7, text("Echo"), bridge=3) +
                         frame(REQUEST, 3, 7, block(b"data")[:7], MORE | ASKS, 3, 1) +
                         frame(REQUEST, 3, 7, block(b"data")[7:], ASKS, 3, 1),
    "a_router_that_leads_nowhere": frame(REQUEST, 1, 1, b"", ASKS, 5, 1),
    "releases": frame(RELEASE, 0, 3, text("done")) + frame(REQUEST, 1, 1, b"", ASKS, 3, 1),
}


def token(name, data):
    return f'{name}="' + "".join(f"\\x{byte:02x}" for byte in data) + '"'


def main():
    for target, seeds in {"fuzz_values": VALUES, "fuzz_frames": FRAMES, "fuzz_greeting": HANDSHAKES, "fuzz_aps": APS,
                          "fuzz_printclient": PRINTCLIENT, "fuzz_connection": CONNECTION}.items():
        folder = HERE / "corpus" / target
        folder.mkdir(parents=True, exist_ok=True)
        for name, data in seeds.items():
            (folder / name).write_bytes(data)
    words = {f"class_{name}": text(value) for name, value in CLASSES.items()}
    words |= {name: text(name) for name in ("corvane", "identity", "nonce", "proof", "process", "monitor", "result",
                                            "failed", "delivered", "job")}
    words |= {"session_identity": text("session-5"), "printer": text("Laser"), "local_printer": text(LOCAL),
              "digits": text(HEX), "zero": integer(0), "one": integer(1), "minus_one": integer(-1),
              "largest": integer(2**31 - 1), "yes": boolean(1), "no": boolean(0), "block": block(b"data"),
              "empty_text": text(""), "empty_block": block(b""), "longest_text": b"t\xff\x7f\x00\x00",
              "pdf": b"%PDF-", "pdf_end": b"%%EOF", "postscript": b"%!PS", "client_version": versions(CLASSES["client"])}
    (HERE / "values.dict").write_text("\n".join(token(name, data) for name, data in words.items()) + "\n")


if __name__ == "__main__":
    main()
