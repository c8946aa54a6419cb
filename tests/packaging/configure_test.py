"""configure.sh: the module behind the adapter, the reader's name, and what is refused."""

import os
import unittest

import fixture
from fixture import ADAPTER, CODE, SECOND_NAME, configuration, read_plist

BUILT = ["module = pkcs11-module.dylib", "reader-name = Kelvrin Reader"]


class ConfigureTest(fixture.PackagingTest):
    def configure(self, *options):
        self.expect_success("configure.sh", "--app", self.app, *options)

    def configuration(self):
        return configuration(self.resources / f"{ADAPTER}.conf")

    def reader(self):
        return read_plist(self.resources / "config.plist")

    def test_puts_the_module_behind_the_adapter(self):
        self.configure("--module", self.module(), "--reader", "Example CCID 00")
        copy = self.resources / "card.dylib"
        self.assertEqual(copy.read_bytes(), CODE + b" of a module")
        self.assertTrue(os.access(copy, os.X_OK))
        self.assertEqual(self.configuration(),
                         ["module = card.dylib", "reader-name = Example CCID 00"])
        self.assertEqual(self.reader(), {"readerName": "Example CCID 00"})

    def test_says_that_the_application_has_to_be_signed_again(self):
        self.configure("--module", self.module())
        self.assertIn("sign the application, again if it was signed before", self.output)

    def test_leaves_nothing_else_changed(self):
        before = self.snapshot()
        self.configure("--module", self.module(), "--reader", "Other")
        prefix = str(self.resources.relative_to(self.app.parent))
        changed = {f"{prefix}/{name}" for name in (f"{ADAPTER}.conf", "config.plist", "card.dylib")}
        after = self.snapshot()
        self.assertEqual({path for path in before.keys() | after.keys()
                          if before.get(path, b"") != after.get(path, b"")}, changed)

    def test_keeps_odd_names(self):
        readers = ["it's \"the\" reader\\ $(HOME) `x` & <1>", "Lesegerät für Ärzte", "& &amp; \\1",
                   "a" * 64, "=", "#1", "-x", "%s"]
        modules = ["Modul für 'Karten' \"2\".dylib", "a = b.so", "$x & \\1 `y`.dylib", "%s.dylib"]
        for system in ("Darwin", "Linux"):
            self.plan["system"] = system
            for reader in readers:
                with self.subTest(reader, system=system):
                    self.configure("--reader", reader)
                    self.assertEqual(self.reader(), {"readerName": reader})
                    self.assertEqual(self.configuration()[1], f"reader-name = {reader}")
            for name in modules:
                with self.subTest(name):
                    self.configure("--module", self.module(name))
                    self.assertEqual(self.configuration()[0], f"module = {name}")
                    self.assertTrue((self.resources / name).is_file())

    def test_an_application_and_a_module_in_folders_with_odd_names(self):
        folder = self.folder / "Anns \"ä\" 'Ordner' $x"
        folder.mkdir()
        self.app = self.app.rename(folder / "KelvrinToken.app")
        self.expect_success("configure.sh", "--module", self.module(), "--app", f"{self.app}/")
        extension = self.app / "Contents" / "PlugIns" / "KelvrinToken.appex"
        self.assertTrue((extension / "Contents" / "Resources" / "card.dylib").is_file())

    def test_names_relative_to_the_folder_it_is_called_from(self):
        self.module()
        self.expect_success("configure.sh", "--app", "build/KelvrinToken.app",
                            "--module", "modules/card.dylib")
        self.assertTrue((self.resources / "card.dylib").is_file())

    def test_an_empty_name_stands_for_any_reader(self):
        self.configure("--reader", "")
        self.assertEqual(self.reader(), {"readerName": ""})
        self.assertEqual(self.configuration(), BUILT[:1])

    def test_another_module_takes_the_place_of_the_earlier(self):
        self.configure("--module", self.module())
        self.configure("--module", self.module("other.so"))
        self.assertFalse((self.resources / "card.dylib").exists())
        self.assertEqual(self.configuration()[0], "module = other.so")

    def test_a_newer_module_of_the_same_name(self):
        self.configure("--module", self.module())
        self.configure("--module", self.module(contents=CODE + b" newer"))
        self.assertEqual((self.resources / "card.dylib").read_bytes(), CODE + b" newer")

    def test_a_module_from_before_the_application_was_built_again(self):
        module = self.module(contents=CODE + b" newer")
        for old in (CODE + b" older", CODE + b" newer"):
            (self.resources / "card.dylib").write_bytes(old)
            (self.resources / f"{ADAPTER}.conf").write_text("module = pkcs11-module.dylib\n")
            self.configure("--module", module)
            self.assertEqual((self.resources / "card.dylib").read_bytes(), CODE + b" newer")
            self.assertEqual(self.configuration()[0], "module = card.dylib")

    def test_an_application_that_is_read_only(self):
        (self.resources / f"{ADAPTER}.conf").chmod(0o444)
        self.configure("--module", self.module())
        self.assertTrue((self.resources / f"{ADAPTER}.conf").stat().st_mode & 0o200)

    def test_the_module_that_is_in_the_extension_already(self):
        self.configure("--module", self.module())
        self.configure("--module", self.resources / "card.dylib", "--reader", "Other")
        self.assertEqual((self.resources / "card.dylib").read_bytes(), CODE + b" of a module")

    def test_a_link_to_a_module_is_followed(self):
        link = self.folder / "link.dylib"
        link.symlink_to(self.module())
        self.configure("--module", link)
        self.assertFalse((self.resources / "link.dylib").is_symlink())
        self.assertEqual((self.resources / "link.dylib").read_bytes(), CODE + b" of a module")

    def test_a_file_that_cannot_be_written_gives_one_that_can(self):
        module = self.module()
        module.chmod(0o444)
        self.configure("--module", module)
        self.assertEqual((self.resources / "card.dylib").stat().st_mode & 0o777, 0o755)

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
        self.expect_failure(text, "configure.sh", "--app", self.app, *options)

    def test_names_of_the_extensions_own_files(self):
        for name in ("config.plist", "de.lproj", "EN.LPROJ", f"{ADAPTER}.dylib",
                     f"{ADAPTER}.conf", SECOND_NAME.upper() + ".DYLIB"):
            with self.subTest(name):
                self.refused("of its own", "--module", self.module(name))

    def test_a_name_that_another_file_in_the_extension_has(self):
        (self.resources / "notes").write_text("no library")
        (self.resources / "fr.lproj").mkdir()
        for name in ("notes", "fr.lproj"):
            self.refused(f"has another file '{name}'", "--module", self.module(name))

    def test_control_characters_and_blanks_at_the_ends(self):
        for name, text in (("a\nb", "control character"), ("a\x1b[1m", "control character"),
                           ("a\tb", "control character"), ("\x7f", "control character"),
                           (" a", "blank"), ("a ", "blank"), ("a\udcff", "UTF-8")):
            with self.subTest(name):
                self.refused(text, "--reader", name)
                self.refused(text, "--module", self.module(name))

    def test_a_name_that_the_slots_description_cannot_hold(self):
        self.refused("more than 64 bytes", "--reader", "a" * 65)
        self.refused("more than 64 bytes", "--reader", "ä" * 33)

    def test_modules_that_are_none(self):
        self.refused("there is no module", "--module", self.folder / "none")
        self.refused("is not a file", "--module", self.folder)
        for contents in (b"\x7fELF and more", b"", b"\xca\xfe"):
            self.refused("is not a library for macOS", "--module", self.module(contents=contents))

    def test_the_adapter_itself(self):
        self.refused("is the adapter itself", "--module",
                     self.module(contents=CODE + b" of the adapter"))

    def test_further_lines_that_the_adapter_would_refuse(self):
        cases = ((b"module = x", "this script writes"), (b" reader-name=", "this script writes"),
                 (b"\xef\xbb\xbfmodule = x", "this script writes"), (b"rules-off", "'key = value'"),
                 (b"any-reader = \x1b[1m", "control characters"), (b"a = \x00", "control"),
                 (b"#" * 60001, "more than 60000 bytes"))
        lines = self.folder / "further"
        for contents, text in cases:
            with self.subTest(contents[:20]):
                lines.write_bytes(contents)
                self.refused(text, "--conf", lines)
        self.refused("there is no file", "--conf", self.folder / "none")
        self.refused("is not a file", "--conf", self.folder)

    def test_property_lists_with_more_in_them_where_there_is_no_plutil(self):
        fixture.write_plist(self.resources / "config.plist", other="x", readerName="y")
        self.plan["system"] = "Linux"
        self.refused("change it on a Mac", "--reader", "Other")
        self.plan["system"] = "Darwin"
        self.without("plutil")
        self.refused("change it on a Mac", "--reader", "Other")

    def test_a_failing_plutil_keeps_the_application_as_it_was(self):
        for pattern, text in (("-replace", "plutil cannot change"), ("-lint", "no longer")):
            self.plan["fail"] = [f"^plutil {pattern}"]
            self.refused(text, "--module", self.module(), "--reader", "Other")

    def test_extensions_without_an_adapter(self):
        (self.resources / f"{ADAPTER}.conf").unlink()
        self.refused("has no adapter", "--module", self.module())
        (self.resources / f"{SECOND_NAME}.dylib").unlink()
        self.refused(f"has no {SECOND_NAME}.dylib", "--module", self.module())

    def test_an_application_without_its_configuration(self):
        (self.resources / "config.plist").unlink()
        self.refused("has no config.plist", "--module", self.module())


if __name__ == "__main__":
    unittest.main()
