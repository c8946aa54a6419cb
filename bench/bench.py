#!/usr/bin/env python3
"""Runs the benchmark's sections, each a process of its own, and judges what they measured.

bench.py PROGRAM [--rounds N] [--min-time SECONDS] [--quick] [--json FILE]
"""
import argparse
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from typing import Optional

SECTIONS = ["requests", "setups", "agreements", "rsa", "ec"]
CERTIFICATES = [2, 5, 10, 20]
MOST_WAITING = 0.02  # of a repetition's time
MOST_DISTURBED = 0.1  # of the repetitions


class Measured:
    """The seconds of every repetition of every benchmark, and the counters of those that count."""

    def __init__(self, runs):
        self.seconds = {}
        self.counters = {}
        waits = []
        for run in runs:
            if run.get("run_type") != "iteration":
                continue
            # The library adds how it was told to measure: "/iterations:1/repeats:1/real_time".
            name = re.sub(r"(/(iterations|repeats):\d+|/(real|manual)_time)*$", "", run["run_name"])
            if run.get("error_occurred"):
                raise SystemExit(f"bench: {name}: {run['error_message']}")
            scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1}[run["time_unit"]]
            self.seconds.setdefault(name, []).append(run["real_time"] * scale)
            self.counters[name] = run
            if name.startswith(("requests/", "rsa/", "ec/")):
                waits.append(1 - run["cpu_time"] / run["real_time"] > MOST_WAITING)
        # The part of the repetitions in which another process had the processor.
        self.disturbed = sum(waits) / max(len(waits), 1)

    def median(self, name):
        return statistics.median(self.seconds[name])

    def spread(self, name):
        """The distance between the quartiles as a fraction of the median."""
        if len(self.seconds[name]) < 2:
            return None
        low, _, high = statistics.quantiles(self.seconds[name], n=4, method="inclusive")
        return (high - low) / self.median(name)


@dataclass
class Row:
    name: str
    unit: str  # seconds, factor, bytes, count
    value: float  # the median, where there are repetitions
    spread: Optional[float] = None  # a fraction of the value
    ratio: Optional[float] = None  # of throughput to the module alone: 1 is as fast as that
    least: Optional[float] = None  # the target of the ratio
    most: Optional[float] = None  # the target of the value

    def met(self):
        """Whether the target is reached; None without one."""
        if self.least is not None:
            return self.ratio >= self.least
        return None if self.most is None else self.value <= self.most


def timed(measured, text, name, **target):
    return Row(text, "seconds", measured.median(name), measured.spread(name), **target)


def request_rows(m):
    kinds = [("signing request, 256 bytes", "sign_256"), ("signing request, 32 bytes", "sign_32"),
             ("support check", "support")]
    return ([timed(m, f"{text}, log off", f"requests/{name}/log_off", most=5e-6)
             for text, name in kinds] +
            [timed(m, f"{text}, log on", f"requests/{name}/log_on") for text, name in kinds])


def setup_rows(m):
    rows = []
    for text, kind in [("set-up", "token"), ("its calls alone", "calls")]:
        names = {number: f"setups/{kind}/{number}" for number in CERTIFICATES}
        of = {number: m.median(name) for number, name in names.items()}
        rows += [timed(m, f"{text}, {number} certificates", names[number])
                 for number in CERTIFICATES]
        # The ten-fold number takes no more than the ten-fold time. Were it quadratic, the second
        # factor would be 2; 1 is linear, the rest is room for a restless machine.
        rows.append(Row("  20 certificates against 2", "factor", of[20] / of[2], most=10))
        rows.append(Row("  one more from 10 to 20 against one more from 5 to 10", "factor",
                        ((of[20] - of[10]) / 10) / ((of[10] - of[5]) / 5), most=1.3))
    return rows


def agreement_rows(m):
    left = m.counters["agreements/left_behind"]
    return [
        timed(m, "one agreement by the module alone", "agreements/module"),
        timed(m, "one agreement through the adapter", "agreements/extension"),
        Row("10000 of them: allocated memory, growth", "bytes", left["bytes"]),
        Row("  the same by the module alone", "bytes", left["module_bytes"]),
        Row("  what the adapter adds to that", "bytes", left["adapter_bytes"], most=64 * 1024),
        Row("  objects on the token, growth", "count", left["objects"], most=0),
        Row("  the fastest search after against before", "factor", left["search_factor"],
            most=1.5),
    ]


def signature_rows(m, kind, objects, least):
    whole = f"{kind}/{objects}/"
    rows = [timed(m, "module alone: C_SignInit, C_Sign", whole + "module")]
    for text, name, target in [("extension: the five calls", "five_calls", least),
                               ("extension: the delegate call", "delegate", least),
                               ("GnuTLS", "gnutls", None),
                               ("OpenSSL's PKCS#11 engine", "openssl_engine", None)]:
        rows.append(timed(m, text, whole + name, least=target,
                          ratio=m.median(whole + "module") / m.median(whole + name)))
    return rows


def report(m):
    """The sections' titles and rows."""
    sections = [("The extension alone, before a module that does nothing", request_rows(m)),
                ("Set-up of a token through the adapter", setup_rows(m)),
                ("Key agreements through the adapter", agreement_rows(m))]
    for kind, text, least in [("rsa", "RSA-2048", 0.97), ("ec", "P-256", 0.90)]:
        for objects in [6, 100]:
            sections.append((f"Signatures with {text}, {objects} objects on the token",
                             signature_rows(m, kind, objects, least)))
    return sections


def text_of(unit, value):
    if unit == "factor":
        return f"{value:.2f} x"
    if unit == "bytes":
        return f"{value / 1024:.1f} KiB"
    if unit == "count":
        return f"{value:.0f}"
    for limit, scale, name in [(1e-6, 1e9, "ns"), (1e-3, 1e6, "us"), (1, 1e3, "ms")]:
        if value < limit:
            return f"{value * scale:.2f} {name}"
    return f"{value:.2f} s"


def cells(row):
    target = ""
    if row.least is not None:
        target = f">= {row.least:.2f}"
    elif row.most is not None:
        target = "<= " + text_of(row.unit, row.most)
    return ["  " + row.name, text_of(row.unit, row.value),
            "" if row.spread is None else f"{row.spread:.1%}",
            "" if row.ratio is None else f"{row.ratio:.3f}", target,
            {None: "", True: "MET", False: "MISSED"}[row.met()]]


def table(sections):
    lines = [["", "median", "spread", "ratio to raw", "target", "verdict"]]
    for title, rows in sections:
        lines += [[title]] + [cells(row) for row in rows]
    widths = [max(len(line[i]) for line in lines if len(line) > 1) for i in range(len(lines[0]))]
    return "\n".join(
        (line[0].ljust(widths[0]) + "".join(
            "  " + cell.rjust(width) for cell, width in zip(line[1:], widths[1:]))).rstrip()
        for line in lines) + "\n"


def verdict(sections):
    judged = [row.met() for _, rows in sections for row in rows if row.met() is not None]
    missed = judged.count(False)
    return len(judged), missed


def last_line(sections):
    targets, missed = verdict(sections)
    return (f"bench: all {targets} targets met" if missed == 0 else
            f"bench: {missed} of {targets} targets missed")


def document(sections, rounds):
    """What --json writes: what a row does not have is not there."""
    targets, missed = verdict(sections)

    def entry(row):
        limit = row.most if row.least is None else row.least
        fields = {"name": row.name.strip(), "unit": row.unit, "value": row.value,
                  "spread": row.spread, "ratio_to_raw": row.ratio, "limit": limit,
                  "met": row.met()}
        return {key: value for key, value in fields.items() if value is not None}

    return {"rounds": rounds, "targets": targets, "missed": missed,
            "sections": [{"title": title, "rows": [entry(row) for row in rows]}
                         for title, rows in sections]}


def measure(program, section, rounds, min_time, folder):
    """Runs one section. The access layer prints while it searches: that goes nowhere."""
    out = os.path.join(folder, section + ".json")
    result = subprocess.run(
        [program, section, f"--benchmark_repetitions={rounds}",
         f"--benchmark_min_time={min_time}", "--benchmark_enable_random_interleaving=true",
         f"--benchmark_out={out}", "--benchmark_out_format=json"],
        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
    if result.returncode != 0:
        sys.stderr.write(result.stderr)
        raise SystemExit(f"bench: the section {section} ended with {result.returncode}")
    with open(out, encoding="utf-8") as file:
        return json.load(file)["benchmarks"]


def main():
    parser = argparse.ArgumentParser(prog="bench", description="Measures signatures through the "
                                     "extension, and what the extension costs.")
    parser.add_argument("program", help="the benchmark itself")
    parser.add_argument("--rounds", type=int, default=41, help="repetitions, at least 2")
    parser.add_argument("--min-time", type=float, default=0.01, help="seconds of a repetition")
    parser.add_argument("--quick", action="store_true",
                        help="whether it runs to its end: what it measures is worth nothing")
    parser.add_argument("--json", help="file to write the results to")
    options = parser.parse_args()
    if options.quick:
        options.rounds, options.min_time = 2, 0.001
    if options.rounds < 2 or options.min_time <= 0:
        parser.error("--rounds is at least 2, --min-time more than 0")
    runs = []
    with tempfile.TemporaryDirectory() as folder:
        for section in SECTIONS:
            print(f"measuring {section}", flush=True)
            runs += measure(options.program, section, options.rounds, options.min_time, folder)
    measured = Measured(runs)
    sections = report(measured)
    if options.json:
        with open(options.json, "w", encoding="utf-8") as file:
            json.dump(document(sections, options.rounds), file, indent=1)
    print(f"\nMedians of {options.rounds} repetitions, interleaved at random.\n\n"
          f"{table(sections)}")
    if measured.disturbed > MOST_DISTURBED:
        print(f"The machine was busy: {measured.disturbed:.0%} of the repetitions had to wait for "
              "the processor. Run this again when it rests.")
    print(last_line(sections))


if __name__ == "__main__":
    sys.exit(main())
