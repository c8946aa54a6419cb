"""Holds what every shipped binary binds against what macOS exports: bindings_test.py BUILD"""
import pathlib
import shutil
import sys
import tempfile
import unittest

import bindings

BUILD = pathlib.Path(sys.argv.pop(1))
ADAPTER = BUILD / "bin/libkelvrin_adapter.dylib"
MAGIC = b"\xca\xfe\xba\xbe"  # of files with several slices


def shipped_binaries():
    files = [file for folder in (BUILD / "KelvrinToken.app", BUILD / "bin")
             for file in sorted(folder.rglob("*")) if file.is_file()]
    return [file for file in files if file.read_bytes()[:4] == MAGIC]


class BindingsTest(unittest.TestCase):
    exports = bindings.read_exports()

    def spoiled(self, old, new):
        """What is found wrong in an adapter in which one text of the same length replaces another."""
        with tempfile.TemporaryDirectory() as folder:
            copy = pathlib.Path(folder) / ADAPTER.name
            shutil.copyfile(ADAPTER, copy)
            content = copy.read_bytes()
            self.assertIn(old, content)
            copy.write_bytes(content.replace(old, new.ljust(len(old), b"\0")))
            return bindings.wrong_bindings(copy, self.exports)

    def test_every_symbol_is_bound_to_a_library_that_exports_it(self):
        binaries = shipped_binaries()
        self.assertGreaterEqual(len(binaries), 6)
        for file in binaries:
            with self.subTest(file=file.relative_to(BUILD)):
                self.assertEqual(bindings.wrong_bindings(file, self.exports), [])

    def test_finds_a_symbol_in_the_wrong_library(self):
        wrong = self.spoiled(b"/usr/lib/libSystem.B.dylib", b"/usr/lib/libc++.1.dylib")
        for slice_name in bindings.COLUMNS:
            self.assertIn(f"{slice_name}: libc++ ___cxa_atexit: no, home libsystem_c part of "
                          "libSystem, which libc++ does not re-export", wrong)

    def test_finds_a_symbol_that_nobody_exports(self):
        self.assertEqual(self.spoiled(b"_dlsym\0", b"_dlsyn"),
                         [f"{slice_name}: libSystem _dlsyn: not in macos-exports.tsv"
                          for slice_name in bindings.COLUMNS])


if __name__ == "__main__":
    unittest.main()
