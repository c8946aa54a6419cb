"""sign.sh: the order, who gets which options, and what happens when something fails."""

import pathlib
import plistlib
import signal
import unittest

import fixture
from fixture import ADAPTER, CODE, IDENTITY, SECOND_NAME

RIGHTS = {"com.apple.security.app-sandbox": True, "com.apple.security.smartcard": True}
APPLICATION_RIGHTS = {"com.apple.security.smartcard": True}
MODULECHECK = "KelvrinToken.app/Contents/MacOS/modulecheck"
EXTENSION = "KelvrinToken.app/Contents/PlugIns/KelvrinToken.appex"
PROGRAMS = [MODULECHECK, EXTENSION, "KelvrinToken.app"]  # in the order in which they are signed
RESOURCES = f"{EXTENSION}/Contents/Resources"


class SignTest(fixture.PackagingTest):
    def sign(self, *more, identity=IDENTITY):
        self.expect_success("sign.sh", "--app", self.app, "--identity", identity, *more)

    def signatures(self):
        """What was signed, in order: paths as they are in the application, with the call."""
        signed = {}
        for call in self.calls("codesign"):
            if "--sign" in call["arguments"]:
                path = pathlib.PurePath(call["arguments"][-1])
                signed["/".join(path.parts[path.parts.index("KelvrinToken.app"):])] = call
        return signed

    def configure(self, module):
        (self.resources / f"{ADAPTER}.conf").write_text(f"module = {module}\n")

    def test_signs_all_code_from_the_inside_out(self):
        framework = self.extension / "Contents/Frameworks/Card.framework/Versions/A"
        framework.mkdir(parents=True)
        (self.app / "Contents/Frameworks").mkdir()
        for library in (self.extension / "Contents/Frameworks/libcrypto.3.dylib",
                        self.app / "Contents/Frameworks/libcrypto.3.dylib", framework / "Card",
                        self.resources / "opensc-pkcs11.so",
                        self.resources / "card file ü'\".dylib"):
            library.write_bytes(CODE)
        self.sign()
        paths = list(self.signatures())
        self.assertEqual(paths[-3:], PROGRAMS)
        frameworks = f"{EXTENSION}/Contents/Frameworks"
        self.assertEqual(sorted(paths[:-3]), sorted(
            [f"{RESOURCES}/{name}" for name in (f"{ADAPTER}.dylib", f"{SECOND_NAME}.dylib",
                                                "opensc-pkcs11.so", "card file ü'\".dylib")] +
            [f"{frameworks}/libcrypto.3.dylib", f"{frameworks}/Card.framework/Versions/A/Card",
             f"{frameworks}/Card.framework", "KelvrinToken.app/Contents/Frameworks/"
             "libcrypto.3.dylib"]))
        self.assertLess(paths.index(f"{frameworks}/Card.framework/Versions/A/Card"),
                        paths.index(f"{frameworks}/Card.framework"))

    def test_the_options_of_each_signature(self):
        self.sign("--keychain", "my keychain")
        rights = {EXTENSION: RIGHTS, "KelvrinToken.app": APPLICATION_RIGHTS}
        self.assertEqual(len(self.signatures()), 5)
        for path, call in self.signatures().items():
            with self.subTest(path):
                arguments = " ".join(call["arguments"])
                self.assertIn(f"--force --sign {IDENTITY} --keychain my keychain --timestamp ",
                              arguments)
                self.assertNotIn("--deep", arguments)
                # Libraries get no hardened runtime, and modulecheck no entitlements.
                self.assertEqual("--options runtime" in arguments, path in PROGRAMS)
                self.assertEqual("--options" in arguments, path in PROGRAMS)
                self.assertEqual(call["entitlements"], rights.get(path))
        self.assertEqual(self.calls("security")[0]["arguments"],
                         ["find-identity", "-p", "codesigning", "my keychain"])

    def test_for_this_mac_alone_there_is_no_timestamp_and_no_hardened_runtime(self):
        self.plan["identities"] = []
        self.sign(identity="-")
        self.assertEqual(len(self.signatures()), 5)
        for path, call in self.signatures().items():
            arguments = call["arguments"]
            self.assertEqual(arguments[:4], ["--force", "--sign", "-", "--timestamp=none"], path)
            self.assertNotIn("--options", arguments, path)

    def test_takes_other_entitlements_and_an_identity_by_its_hash(self):
        rights = RIGHTS | {"com.apple.security.cs.disable-library-validation": True}
        file = self.folder / "Übung 'a'.entitlements"
        file.write_bytes(plistlib.dumps(rights))
        self.sign("--entitlements", file.name, identity=f"{1:040x}")
        self.assertEqual(self.signatures()[EXTENSION]["entitlements"], rights)
        self.assertEqual(self.signatures()["KelvrinToken.app"]["entitlements"], APPLICATION_RIGHTS)

    def test_clears_what_downloads_leave_on_files_and_verifies_the_whole_afterwards(self):
        library = self.resources / "card.dylib"
        library.write_bytes(CODE)
        library.chmod(0o444)  # xattr and codesign could not change it
        self.sign()
        calls = [call for call in self.calls() if call["tool"] in ("xattr", "codesign")]
        self.assertEqual((calls[0]["tool"], calls[0]["arguments"][0]), ("xattr", "-cr"))
        self.assertEqual(calls[-1]["arguments"][:3], ["--verify", "--deep", "--strict"])
        self.assertTrue(calls[-1]["arguments"][-1].endswith("/KelvrinToken.app"))
        # The signed copy has taken the application's place.
        self.assertTrue(library.read_bytes().endswith(b"signed"))
        self.assertTrue((self.app / "Contents/_CodeSignature/CodeResources").exists())
        self.assertEqual([path.name for path in self.app.parent.iterdir()], ["KelvrinToken.app"])

    def test_says_last_whether_the_extension_will_find_its_module(self):
        (self.resources / "card.dylib").write_bytes(CODE)
        for module, warning in (
                ("card.dylib", ""),
                ("pkcs11-module.dylib", "'pkcs11-module.dylib', which is not in the extension"),
                ("/usr/local/lib/card.so", "'/usr/local/lib/card.so': the sandbox")):
            with self.subTest(module):
                self.configure(module)
                self.sign()
                self.assertIn(warning, self.errors)
                self.assertEqual(self.errors == "", warning == "")
                self.assertTrue(self.output.endswith(
                    "will find no module, see above\n" if warning else "is signed and verified\n"))


class SignFailureTest(fixture.PackagingTest):
    def refused(self, text, *more, identity=IDENTITY):
        self.expect_failure(text, "sign.sh", "--app", self.app, "--identity", identity, *more)

    def test_a_tool_that_fails(self):
        for pattern, text in (
                *((f"^codesign --force .*{place}$", "codesign failed for 'KelvrinToken.app")
                  for place in (f"{ADAPTER}[.]dylib", f"{SECOND_NAME}[.]dylib",
                                "MacOS/modulecheck", "PlugIns/KelvrinToken[.]appex",
                                "/KelvrinToken[.]app")),
                ("^codesign --verify", "codesign does not accept its own signatures"),
                ("^xattr", "xattr cannot clear the files' attributes")):
            with self.subTest(pattern):
                self.plan["fail"] = [pattern]
                self.refused(text)
                self.assertIn("a reason of its own", self.errors)
                self.assertTrue(self.calls()[-1]["failed"])

    def test_a_signed_application_that_cannot_take_its_place_leaves_the_other_there(self):
        self.replace_mv("rm '%s'/moved; exit 1" % self.fakes)
        self.refused("cannot be replaced; it stays as it was")

    def test_an_interruption_leaves_the_application_there(self):
        self.replace_mv("rm '%s'/moved; kill -TERM $PPID; exit 1" % self.fakes)
        before = self.snapshot()
        status = self.run_script("sign.sh", "--app", self.app, "--identity", IDENTITY)
        self.assertEqual(status, -signal.SIGTERM, self.errors)
        self.assertEqual(self.snapshot(), before)

    def test_a_library_where_the_folder_of_libraries_belongs(self):
        for contents, name in ((self.extension / "Contents",
                                "PlugIns/KelvrinToken.appex/Contents/Frameworks"),
                               (self.app / "Contents", "Contents/Frameworks")):
            (contents / "Frameworks").write_bytes(CODE)
            self.refused(f"{name}' is a file; make it a folder")
            (contents / "Frameworks").unlink()

    def test_identities_that_no_keychain_has(self):
        self.refused("there is no identity 'Somebody Else' here", identity="Somebody Else")
        self.assertIn(IDENTITY, self.errors)
        self.plan["identities"] = []
        self.refused("there is no identity")
        self.assertIn("none", self.errors)
        self.assertEqual(self.calls("codesign"), [])

    def test_what_is_no_file_of_entitlements(self):
        self.refused("there is no file", "--entitlements", self.folder / "none")
        file = self.folder / "rights"
        file.write_bytes(plistlib.dumps({"com.apple.security.app-sandbox": True}))
        self.refused("lacks com.apple.security.smartcard", "--entitlements", file)

    def test_a_library_that_is_none(self):
        (self.resources / "card.dylib").write_bytes(b"\x7fELF and more")
        self.refused("'card.dylib' in the extension is not a library for macOS")
        self.assertEqual(self.calls("codesign"), [])


if __name__ == "__main__":
    unittest.main()
