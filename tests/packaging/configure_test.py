"""configure.sh: the module behind the adapter, the reader's name, and what is refused."""

import os
import unittest

import fixture
from fixture import ADAPTER, CODE, SECOND_NAME, configuration, read_plist

MODULE = CODE + b" of a module"


class ConfigureTest(fixture.PackagingTest):
    def configure(self, *options):
        self.expect_success("configure.sh", "--app", self.app, *options)

    def configuration(self):
        return configuration(self.resources / f"{ADAPTER}.conf")

    def reader(self):
        return read_plist(self.resources / "config.plist")

    def test_puts_the_module_behind_the_adapter_and_changes_nothing_else(self):
        before = self.snapshot()
        module = self.module()
        module.chmod(0o444)
        (self.resources / f"{ADAPTER}.conf").chmod(0o444)
        self.configure("--module", module, "--reader", "Example CCID 00")
        copy = self.resources / "card.dylib"
        self.assertEqual(copy.read_bytes(), MODULE)
        self.assertEqual(copy.stat().st_mode & 0o777, 0o755)
        self.assertTrue((self.resources / f"{ADAPTER}.conf").stat().st_mode & 0o200)
        self.assertEqual(self.configuration(),
                         ["module = card.dylib", "reader-name = Example CCID 00"])
        self.assertEqual(self.reader(), {"readerName": "Example CCID 00"})
        self.assertIn("sign the application, again if it was signed before", self.output)
        after = self.snapshot()
        self.assertEqual({os.path.basename(path) for path in before.keys() | after.keys()
                          if before.get(path, b"") != after.get(path, b"")},
                         {f"{ADAPTER}.conf", "config.plist", "card.dylib"})

    def test_keeps_odd_names(self):
        readers = ["it's \"the\" reader\\ $(HOME) `x` & <1>", "Lesegerät für Ärzte", "& &amp; \\1",
                   "a" * 64, "=", "#1", "-x", "%s"]
        modules = ["Modul für 'Karten' \"2\".dylib", "a = b.so", "$x & \\1 `y`.dylib", "%s.dylib"]
        modules *= len(readers) // len(modules)
        for system, which in (("Darwin", slice(None)), ("Linux", slice(4))):
            self.plan["system"] = system
            for reader, module in zip(readers[which], modules):
                with self.subTest(reader, module=module, system=system):
                    self.configure("--reader", reader, "--module", self.module(module))
                    self.assertEqual(self.reader(), {"readerName": reader})
                    self.assertEqual(self.configuration(),
                                     [f"module = {module}", f"reader-name = {reader}"])
                    self.assertTrue((self.resources / module).is_file())

    def test_an_application_and_a_module_in_folders_with_odd_names(self):
        folder = self.folder / "Anns \"ä\" 'Ordner' $x"
        folder.mkdir()
        self.app = self.app.rename(folder / "KelvrinToken.app")
        self.module()
        self.expect_success("configure.sh", "--module", "modules/card.dylib", "--app",
                            f"{folder.name}/KelvrinToken.app/")
        extension = self.app / "Contents/PlugIns/KelvrinToken.appex"
        self.assertTrue((extension / "Contents/Resources/card.dylib").is_file())

    def test_an_empty_name_stands_for_any_reader(self):
        self.configure("--reader", "")
        self.assertEqual(self.reader(), {"readerName": ""})
        self.assertEqual(self.configuration(), ["module = pkcs11-module.dylib"])

    def test_another_module_takes_the_place_of_the_earlier(self):
        self.configure("--module", self.module())
        self.configure("--module", self.module(contents=CODE + b" newer"))
        self.assertEqual((self.resources / "card.dylib").read_bytes(), CODE + b" newer")
        # The one that is in the extension already.
        self.configure("--module", self.resources / "card.dylib", "--reader", "Other")
        self.assertEqual((self.resources / "card.dylib").read_bytes(), CODE + b" newer")
        link = self.folder / "link.so"
        link.symlink_to(self.module())
        self.configure("--module", link)
        self.assertFalse((self.resources / "card.dylib").exists())
        self.assertFalse((self.resources / "link.so").is_symlink())
        self.assertEqual((self.resources / "link.so").read_bytes(), MODULE)
        self.assertEqual(self.configuration()[0], "module = link.so")

    def test_a_module_from_before_the_application_was_built_again(self):
        (self.resources / "card.dylib").write_bytes(CODE + b" older")
        self.configure("--module", self.module())
        self.assertEqual((self.resources / "card.dylib").read_bytes(), MODULE)

    def test_further_lines_replace_those_before_and_stay_without_new_ones(self):
        lines = self.folder / "further"
        lines.write_bytes(b"\xef\xbb\xbf# mine\r\nreserved = configdir='x y'\r\n\n"
                          b"  rules-off = ecdsa")
        self.configure("--module", self.module(), "--conf", lines)
        expected = ["module = card.dylib", "reader-name = Kelvrin Reader",
                    "reserved = configdir='x y'", "  rules-off = ecdsa"]
        self.assertEqual(self.configuration(), expected)
        self.configure("--reader", "Other")
        expected[1] = "reader-name = Other"
        self.assertEqual(self.configuration(), expected)
        lines.write_text("any-reader = yes\n")
        self.configure("--conf", lines)
        self.assertEqual(self.configuration(), [*expected[:2], "any-reader = yes"])

    def test_other_keys_of_the_property_list_stay_where_plutil_is_at_hand(self):
        fixture.write_plist(self.resources / "config.plist", other="x", readerName="y")
        self.configure("--reader", "Other")
        self.assertEqual(self.reader(), {"other": "x", "readerName": "Other"})

    def test_a_module_that_needs_no_adapter_takes_a_reader(self):
        (self.resources / f"{ADAPTER}.conf").unlink()
        self.configure("--reader", "Other")
        self.assertEqual(self.reader(), {"readerName": "Other"})
        self.assertFalse((self.resources / f"{ADAPTER}.conf").exists())


class RefusalTest(fixture.PackagingTest):
    def refused(self, text, *options):
        with self.subTest(text, options=options):
            self.expect_failure(text, "configure.sh", "--app", self.app, *options)

    def test_names_that_other_files_in_the_extension_have(self):
        (self.resources / "notes").write_text("no library")
        (self.resources / "fr.lproj").mkdir()
        for name in ("config.plist", "de.lproj", "EN.LPROJ", f"{ADAPTER}.dylib", f"{ADAPTER}.conf",
                     SECOND_NAME.upper() + ".DYLIB"):
            self.refused("of its own", "--module", self.module(name))
        for name in ("notes", "fr.lproj"):
            self.refused(f"has another file '{name}'", "--module", self.module(name))

    def test_names_that_a_line_or_the_slots_description_cannot_hold(self):
        for name, text in (("a\nb", "control character"), ("a\x1b[1m", "control character"),
                           ("\x7f", "control character"), (" a", "blank"), ("a ", "blank"),
                           ("a\udcff", "UTF-8")):
            self.refused(text, "--reader", name)
            self.refused(text, "--module", self.module(name))
        self.refused("more than 64 bytes", "--reader", "a" * 65)
        self.refused("more than 64 bytes", "--reader", "ä" * 33)

    def test_modules_that_are_none(self):
        self.refused("there is no module", "--module", self.folder / "none")
        self.refused("is not a file", "--module", self.folder)
        for contents in (b"\x7fELF and more", b"", b"\xca\xfe"):
            self.refused("is not a library for macOS", "--module", self.module(contents=contents))
        self.refused("is the adapter itself", "--module",
                     self.module(contents=CODE + b" of the adapter"))

    def test_further_lines_that_the_adapter_would_refuse(self):
        lines = self.folder / "further"
        for contents, text in (
                (b"module = x", "this script writes"), (b" reader-name=", "this script writes"),
                (b"\xef\xbb\xbfmodule = x", "this script writes"), (b"rules-off", "'key = value'"),
                (b"any-reader = \x1b[1m", "control characters"), (b"a = \x00", "control"),
                (b"#" * 60001, "more than 60000 bytes")):
            lines.write_bytes(contents)
            self.refused(text, "--conf", lines)
        self.refused("there is no file", "--conf", self.folder / "none")
        self.refused("is not a file", "--conf", self.folder)

    def test_property_lists_that_cannot_be_changed(self):
        for pattern, text in (("-replace", "plutil cannot change"), ("-lint", "no longer")):
            self.plan["fail"] = [f"^plutil {pattern}"]
            self.refused(text, "--module", self.module(), "--reader", "Other")
        fixture.write_plist(self.resources / "config.plist", other="x", readerName="y")
        self.plan["system"] = "Linux"
        self.refused("change it on a Mac", "--reader", "Other")
        self.plan["system"] = "Darwin"
        self.without("plutil")
        self.refused("change it on a Mac", "--reader", "Other")

    def test_extensions_that_lack_something(self):
        for file, text in ((f"{ADAPTER}.conf", "has no adapter"),
                           (f"{SECOND_NAME}.dylib", f"has no {SECOND_NAME}.dylib"),
                           ("config.plist", "has no config.plist")):
            (self.resources / file).unlink()
            self.refused(text, "--module", self.module())


if __name__ == "__main__":
    unittest.main()
