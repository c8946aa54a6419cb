"""The built binaries beside their expected texts, and beside what macOS exports.

    binaries_test.py BUILD
"""
import pathlib
import shutil
import sys
import tempfile
import unittest

import bindings
import listing

BUILD = pathlib.Path(sys.argv.pop(1))


class BuiltTest(unittest.TestCase):
    maxDiff = None

    def test_is_what_the_expected_texts_say(self):
        for name, text in listing.texts(BUILD).items():
            with self.subTest(name):
                self.assertEqual(listing.difference(name, text), "",
                                 "if it is meant to be so: ./dev macos --accept")

    def test_binds_every_symbol_to_a_library_that_exports_it(self):
        for name, path in listing.BINARIES.items():
            with self.subTest(name):
                self.assertEqual(bindings.wrong_bindings(BUILD / path), [])

    def test_no_other_file_holds_code(self):
        files = [path for folder in ("KelvrinToken.app", "bin")
                 for path in (BUILD / folder).rglob("*") if path.is_file()]
        code = {str(path.relative_to(BUILD)) for path in files
                if path.read_bytes()[:4] == b"\xca\xfe\xba\xbe"}
        copies = {"bin/libkelvrin_adapter.dylib", "bin/libsecond_name.dylib",
                  "KelvrinToken.app/Contents/MacOS/modulecheck"}
        self.assertEqual(code, set(listing.BINARIES.values()) | copies)

    def test_link_stubs_offer_nothing_that_macos_lacks(self):
        stubs = sorted(bindings.STUBS.rglob("*.tbd"))
        self.assertGreater(len(stubs), 5)
        for stub in stubs:
            with self.subTest(stub.name):
                self.assertEqual(bindings.wrong_offers(stub), [])


class SpoiledTest(unittest.TestCase):
    """A copy of a binary in which some bytes are others: the comparison finds it. What macOS would
    not bind, the loader's own tests show."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def spoiled(self, name, old, new, architecture=None):
        """A copy with one text in the place of another, in both slices or in one."""
        path = BUILD / listing.BINARIES[name]
        copy = self.folder / path.name
        content = path.read_bytes()
        part = listing.slice_bytes(path, architecture) if architecture else content
        self.assertIn(old, part)
        copy.write_bytes(content.replace(part, part.replace(old, new.ljust(len(old), b"\0"))))
        return copy

    def changes(self, name, old, new, architecture=None):
        """The lines that the spoiled copy lacks or has besides."""
        text = listing.listing(self.spoiled(name, old, new, architecture))
        return [line for line in listing.difference(name, text).splitlines()
                if not line.startswith(("---", "+++", "@@"))]

    def test_a_symbol_of_another_library(self):
        changes = self.changes("extension", b"/usr/lib/libobjc.A.dylib", b"/usr/lib/libc++.1.dylib")
        self.assertIn("-import libobjc _objc_msgSend", changes)
        self.assertIn("+import libc++ _objc_msgSend", changes)

    def test_a_type_in_one_slice(self):
        self.assertEqual(
            self.changes("extension", b"@24@0:8@16\0", b"@24@0:8q16\0", "arm64")[:3],
            ["-  - initWithToken: @24@0:8@16", "+x86_64|   - initWithToken: @24@0:8@16",
             "+arm64|   - initWithToken: @24@0:8q16"])

    def test_another_log_line(self):
        self.assertEqual(self.changes("extension", b"Signieren...", b"Signieren!!!"),
                         ['-log "Signieren..."', '+log "Signieren!!!"'])

    def test_a_stub_that_offers_what_macos_lacks(self):
        stub = self.folder / "libc++.tbd"
        shutil.copyfile(bindings.STUBS / "usr/lib/libc++.tbd", stub)
        stub.write_text(stub.read_text().replace("___cxa_throw", "___cxa_atexit"))
        self.assertEqual([line.split(",")[0] for line in bindings.wrong_offers(stub)],
                         [f"{name}: libc++ ___cxa_atexit: no" for name in bindings.COLUMNS])


if __name__ == "__main__":
    unittest.main()
