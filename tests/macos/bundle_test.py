"""What the macOS bundle holds beside code: copies, texts, and what the options of the build change.

    bundle_test.py BUILD
"""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import bundle
import listing

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv.pop(1))
APPLICATION = BUILD / "KelvrinToken.app"
EXTENSION = pathlib.PurePath("Contents/PlugIns/KelvrinToken.appex/Contents")


def texts(folder, language):
    """The pairs of a table of texts, in UTF-8."""
    table = (folder / f"{language}.lproj/Localizable.strings").read_text(encoding="utf-8")
    return re.findall(r'^"((?:[^"\\]|\\.)*)" = "((?:[^"\\]|\\.)+)";$', table, re.MULTILINE)


class BundleTest(unittest.TestCase):
    def test_copies_what_lies_in_the_sources(self):
        copies = {EXTENSION / "Resources/libpkcs11qarn_Lindel_PCSC.dylib":
                  BUILD / "bin/libkelvrin_adapter.dylib",
                  "Contents/MacOS/modulecheck": BUILD / "bin/modulecheck"}
        for language in ("de", "en"):
            table = f"{language}.lproj/Localizable.strings"
            copies[EXTENSION / "Resources" / table] = SOURCE / "resources" / table
            copies[f"Contents/Resources/{table}"] = SOURCE / "app" / table
        for page in ("macos", "modules", "adapter"):
            copies[f"Contents/Resources/{page}.md"] = SOURCE / f"docs/{page}.md"
        for copy, original in copies.items():
            self.assertEqual((APPLICATION / copy).read_bytes(), original.read_bytes(), copy)

    def test_has_every_text_that_the_extension_asks_for_in_both_languages(self):
        """The application's are held where they are said: app/text/strings_test.cpp."""
        asked = {key for path in (SOURCE / "token").rglob("*.mm") if "_test" not in path.name
                 for key in re.findall(r'localizedStringForKey:@"(\w+)"',
                                       path.read_text(encoding="utf-8"))}
        self.assertTrue(asked)
        tables = SOURCE / "resources"
        for language in ("de", "en"):
            self.assertEqual(sorted(key for key, _ in texts(tables, language)), sorted(asked))
        self.assertRegex("".join(text for _, text in texts(tables, "de")), "[äöüÄÖÜß]")

    def test_entitles_the_extension_to_its_sandbox_and_both_to_cards(self):
        self.assertEqual(list(bundle.entitlements()), [
            "resources/KelvrinToken.entitlements", "  /com.apple.security.app-sandbox = True",
            "  /com.apple.security.smartcard = True",
            "resources/KelvrinTokenApplication.entitlements",
            "  /com.apple.security.smartcard = True"])

    def test_another_key_or_file_is_found(self):
        with tempfile.TemporaryDirectory() as folder:
            copy = pathlib.Path(folder) / APPLICATION.name
            shutil.copytree(APPLICATION, copy)
            info = copy / EXTENSION / "Info.plist"
            info.write_bytes(info.read_bytes().replace(b"ctk.driver-class", b"ctk.driver-klass"))
            (copy / "Contents/Resources/macos.md").unlink()
            (copy / "Contents/more").symlink_to("Info.plist")
            changes = listing.difference("bundle", bundle.listing(copy)).splitlines()
        attribute = "/NSExtension/NSExtensionAttributes/com.apple.ctk"
        self.assertEqual([line for line in changes if line[0] in "+-"][2:],
                         [f"-  {attribute}.driver-class = 'TokenDriver'",
                          f"+  {attribute}.driver-klass = 'TokenDriver'",
                          "-Contents/Resources/macos.md", "+Contents/more -> Info.plist"])


class OptionsTest(unittest.TestCase):
    """Configures the project for macOS, without building it."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def configure(self, *options):
        return subprocess.run(
            ["cmake", "-S", SOURCE, "-B", self.folder, "--preset", "macos",
             f"-DKELVRIN_MACOS_SDK={BUILD.parent / 'macos-sdk'}", *options],
            cwd=SOURCE, capture_output=True, text=True, check=False)

    def changes(self, *options):
        """The lines that the options add to what the bundle says, which is without code here."""
        result = self.configure(*options)
        self.assertEqual(result.returncode, 0, result.stderr)
        got = bundle.listing(self.folder / "KelvrinToken.app")
        return [line[1:].strip() for line in listing.difference("bundle", got).splitlines()
                if re.match(r"\+ ", line)]

    def test_identifiers_of_applications_on_cards(self):
        key = "/NSExtension/NSExtensionAttributes/com.apple.ctk.aid"
        self.assertEqual(self.changes("-DKELVRIN_AID=A0000003974349445F0100"),
                         [f"{key} = 'A0000003974349445F0100'"])
        longest = "d27600000102030405060708090a0b0c"
        self.assertEqual(self.changes(f"-DKELVRIN_AID=A000000001;{longest}"),
                         [f"{key}[0] = 'A000000001'", f"{key}[1] = '{longest}'"])

    def test_identifiers_of_ones_own_and_a_readers_name_with_letters_that_xml_reserves(self):
        name = 'Müller & <Söhne> "1"'
        self.assertEqual(
            self.changes("-DKELVRIN_APPLICATION_ID=com.example.app",
                         "-DKELVRIN_EXTENSION_ID=com.example.app.token",
                         f"-DKELVRIN_READER_NAME={name}"),
            ["/CFBundleIdentifier = 'com.example.app'",
             "/CFBundleIdentifier = 'com.example.app.token'",
             "/NSExtension/NSExtensionAttributes/com.apple.ctk.class-id = 'com.example.app.token'",
             f"/readerName = '{name}'", f"reader-name = {name}"])

    def test_refusals(self):
        for option, reason in (
                ("KELVRIN_AID=A0000003G1", "'A0000003G1' is not made of hexadecimal digits"),
                ("KELVRIN_AID=A000000001;;A000000002", "'' is not made of hexadecimal digits"),
                ("KELVRIN_AID=A0000000012", "'A0000000012' has an odd number of digits"),
                ("KELVRIN_AID=A0000000", "'A0000000' has not 5 to 16 bytes"),
                ("KELVRIN_AID=A000000001020304050607080910111213", "has not 5 to 16 bytes"),
                ("KELVRIN_EXTENSION_ID=org.kelvrin.KelvrinTokens.extension",
                 "must begin with 'org.kelvrin.KelvrinToken.'")):
            with self.subTest(option):
                result = self.configure(f"-D{option}")
                self.assertEqual(result.returncode, 1)
                self.assertIn(reason, " ".join(result.stderr.split()))


if __name__ == "__main__":
    unittest.main()
