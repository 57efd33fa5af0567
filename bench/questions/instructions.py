"""User instructions per message."""

import concurrent.futures
import os
import re
import subprocess
import tempfile

from bench import lane, result, svg

TITLE = "User instructions of a message in the core"
HOW = """\
callgrind counts `bench_count` with N and with 2N messages of a kind; half of what the second run takes more is one message,
whatever set-up costs. The core runs on the lean switch of the fuzz targets (28 ports, all in every VLAN, no kernel, tracing
off) with the tree of the Linux platform. Clients live on ports 1 to 3, the server behind port 4. A SOLICIT is 152 bytes
without a tag; REPLY, REQUEST, ADVERTISE and RELEASE name one address and one prefix. A known client and a renewed lease are
in the table already; the user-defined option is `{hostname}-{port-name}-{inner-vlan}-`. Other work on the machine does not
change these figures."""

SIZES = (2, 128, 2048)  # clients
REPEATED = 10240  # messages of a kind that leaves the table as it is
OFF = {
    "solicit-new": "SOLICIT, new client", "solicit-known": "SOLICIT, known client", "request": "REQUEST",
    "advertise": "ADVERTISE", "reply-new": "REPLY, new leases", "reply-renewal": "REPLY, renewal",
    "release": "RELEASE of everything",
}  # fmt: skip
ON = {
    "solicit-18": "SOLICIT, option 18", "solicit-18-37": "SOLICIT, options 18 and 37",
    "solicit-template": "SOLICIT, user-defined option 18", "solicit-relayed": "SOLICIT, option 18, relay header",
    "reply-unwrapped": "REPLY in a Relay-Reply, renewal",
}  # fmt: skip
CHANGES_THE_TABLE = {"solicit-new", "reply-new", "release", "reply-unwrapped"}


def _collected(kind, clients, messages):
    with tempfile.TemporaryDirectory() as folder:
        line = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={folder}/out", lane.tool("bench_count")]
        done = subprocess.run([*line, kind, str(clients), str(messages)], capture_output=True, text=True, check=False)
    found = re.search(r"Collected : (\d+)", done.stderr)
    if done.returncode != 0 or not found:
        raise SystemExit(f"bench/run: bench_count {kind} {clients} {messages} under valgrind: {done.stderr}")
    return int(found[1])


def _each(kind, clients, messages):
    return (_collected(kind, clients, 2 * messages) - _collected(kind, clients, messages)) / messages


def _of_message(kind, clients, repeated):
    return _each(kind, clients, clients // 2 if kind in CHANGES_THE_TABLE else repeated)


def answer(effort):
    sizes, repeated = effort(SIZES, SIZES[:1]), effort(REPEATED, 128)
    pairs = [(kind, clients) for kind in (*OFF, *ON) for clients in sizes]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        counts = pool.map(lambda pair: _of_message(*pair, repeated), pairs)
        counted = dict(zip(pairs, counts))
        aging = list(pool.map(lambda leases: _each("aging", leases, 4) / 2048, (1, 10)))
    rows, panels = [], []
    for title, kinds in (("Options 18 and 37 off", OFF), ("Options on", ON)):
        bars = []
        for kind, words in kinds.items():
            found = [counted[kind, clients] for clients in sizes]
            rows.append([words, *(f"{count:,.0f}" for count in found)])
            for shade, (clients, count) in enumerate(zip(sizes, found)):
                label = f"{words}: {clients:,} clients" if shade == 0 else f"{clients:,} clients"
                bars.append(svg.Bar(label, count, count, count, f"{count:,.0f}", shade))
        panels.append(svg.Bars(title, "instructions", bars))
    remark = f"Aging takes {aging[0]:,.0f} instructions per client with one lease, {aging[1]:,.0f} with ten."
    table = result.Table(["message", *(f"{clients:,} clients" for clients in sizes)], rows)
    return result.Answer([table], panels, [remark])
