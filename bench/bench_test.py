#!/usr/bin/env python3
"""How results are judged."""
import unittest

import bench


def run(name, *seconds, **counters):
    return [{"run_name": name + "/real_time", "run_type": "iteration", "time_unit": "s",
             "real_time": one, "cpu_time": one, **counters} for one in seconds]


def runs(changes=None):
    """What a run of all sections measures where every target is just met."""
    seconds = {}
    for request in ["sign_256", "sign_32", "support"]:
        seconds |= {f"requests/{request}/log_off": 5e-6, f"requests/{request}/log_on": 1}
    for kind in ["token", "calls"]:
        seconds |= {f"setups/{kind}/{number}": number for number in bench.CERTIFICATES}
    seconds |= {"agreements/module": 1, "agreements/extension": 1}
    for kind, ratio in [("rsa", 0.97), ("ec", 0.90)]:
        for objects in [6, 100]:
            seconds |= {f"{kind}/{objects}/module": ratio}
            seconds |= {f"{kind}/{objects}/{who}": 1
                        for who in ["five_calls", "delegate", "gnutls", "openssl_engine"]}
    seconds |= changes or {}
    left = {"bytes": 70000, "module_bytes": 4464, "adapter_bytes": 65536, "objects": 0,
            "search_factor": 1.5}
    left |= {key: value for key, value in (changes or {}).items() if key in left}
    return (sum((run(name, value) for name, value in seconds.items() if name not in left), []) +
            run("agreements/left_behind/iterations:1/repeats:1", 1, **left))


def report(changes=None):
    return bench.report(bench.Measured(runs(changes)))


class Judging(unittest.TestCase):
    def test_targets_that_are_just_met(self):
        self.assertEqual(bench.last_line(report()), "bench: all 18 targets met")

    def test_each_target_is_missed_alone(self):
        for name, value, missed in [("requests/sign_256/log_off", 5.01e-6, 1),
                                    ("requests/sign_32/log_off", 5.01e-6, 1),
                                    ("requests/support/log_off", 5.01e-6, 1),
                                    ("setups/token/2", 1.99, 1), ("setups/calls/2", 1.99, 1),
                                    ("setups/token/5", 6.2, 1), ("setups/calls/5", 6.2, 1),
                                    ("adapter_bytes", 65537, 1), ("objects", 1, 1),
                                    ("search_factor", 1.51, 1), ("rsa/6/five_calls", 1.001, 1),
                                    ("rsa/100/delegate", 1.001, 1), ("ec/6/delegate", 1.001, 1),
                                    ("ec/100/module", 0.899, 2), ("rsa/6/gnutls", 2, 0)]:
            with self.subTest(name):
                self.assertEqual(bench.verdict(report({name: value})), (18, missed))

    def test_medians_and_spreads_of_repetitions(self):
        measured = bench.Measured(run("a", 1, 2, 3, 4, 100) +
                                  [{"run_name": "a", "run_type": "aggregate"}])
        self.assertAlmostEqual(measured.median("a"), 3)
        self.assertAlmostEqual(measured.spread("a"), 2 / 3)

    def test_repetitions_that_waited_for_the_processor(self):
        busy = run("rsa/6/module", 1, 1, 1, 1)
        busy[0]["cpu_time"] = 0.97
        self.assertEqual(bench.Measured(busy).disturbed, 0.25)

    def test_a_failed_benchmark_ends_it(self):
        failed = run("a", 1, error_occurred=True, error_message="the call failed")
        with self.assertRaisesRegex(SystemExit, "a: the call failed"):
            bench.Measured(failed)

    def test_the_table(self):
        lines = bench.table(report({"rsa/6/delegate": 1.1})).splitlines()
        self.assertIn("Signatures with RSA-2048, 6 objects on the token", lines)
        met, missed = [line.split()[-5:] for line in lines if "extension: the" in line][:2]
        self.assertEqual(met, ["s", "0.970", ">=", "0.97", "MET"])
        self.assertEqual(missed, ["s", "0.882", ">=", "0.97", "MISSED"])

    def test_the_document(self):
        document = bench.document(report({"objects": 1}), 41)
        self.assertEqual((document["rounds"], document["targets"], document["missed"]), (41, 18, 1))
        rows = document["sections"][2]["rows"]
        self.assertEqual(rows[5], {"name": "objects on the token, growth", "unit": "count",
                                   "value": 1, "limit": 0, "met": False})
        self.assertNotIn("met", rows[0])


if __name__ == "__main__":
    unittest.main()
