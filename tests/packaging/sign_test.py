"""sign.sh: the order, who gets which options, and what happens when something fails."""

import pathlib
import plistlib
import signal
import unittest

import fixture
from fixture import ADAPTER, CODE, IDENTITY, SECOND_NAME


class SignTest(fixture.PackagingTest):
    def sign(self, *more):
        self.expect_success("sign.sh", "--app", self.app, "--identity", IDENTITY, *more)

    def signatures(self):
        """What was signed, in order: paths as they are in the application, with the call."""
        signed = []
        for call in self.calls("codesign"):
            if "--sign" in call["arguments"]:
                path = pathlib.PurePath(call["arguments"][-1])
                at = path.parts.index("KelvrinToken.app")
                signed.append(("/".join(path.parts[at:]), call))
        return signed

    def signed_paths(self):
        return [path for path, _ in self.signatures()]

    def test_signs_from_the_inside_out(self):
        inner = self.extension / "Contents" / "Frameworks"
        outer = self.app / "Contents" / "Frameworks"
        for folder in (inner, outer):
            folder.mkdir()
            (folder / "libcrypto.3.dylib").write_bytes(CODE)
        (inner / "Card.framework" / "Versions" / "A").mkdir(parents=True)
        (inner / "Card.framework" / "Versions" / "A" / "Card").write_bytes(CODE)
        (self.resources / "opensc-pkcs11.so").write_bytes(CODE)
        (self.resources / "card file ü'\".dylib").write_bytes(CODE)
        self.sign()
        paths = self.signed_paths()
        extension = "KelvrinToken.app/Contents/PlugIns/KelvrinToken.appex"
        self.assertEqual(paths[-2:], [extension, "KelvrinToken.app"])
        self.assertEqual(sorted(paths[:-2]), sorted(
            [f"{extension}/Contents/Resources/{name}.dylib" for name in (ADAPTER, SECOND_NAME)] +
            [f"{extension}/Contents/Resources/opensc-pkcs11.so",
             f"{extension}/Contents/Resources/card file ü'\".dylib",
             f"{extension}/Contents/Frameworks/libcrypto.3.dylib",
             f"{extension}/Contents/Frameworks/Card.framework/Versions/A/Card",
             f"{extension}/Contents/Frameworks/Card.framework",
             "KelvrinToken.app/Contents/Frameworks/libcrypto.3.dylib"]))
        framework = paths.index(f"{extension}/Contents/Frameworks/Card.framework")
        self.assertLess(paths.index(
            f"{extension}/Contents/Frameworks/Card.framework/Versions/A/Card"), framework)

    def test_signs_nothing_that_is_no_code(self):
        self.sign()
        self.assertEqual(len(self.signed_paths()), 4)

    def test_verifies_the_whole_afterwards(self):
        self.sign()
        last = self.calls("codesign")[-1]["arguments"]
        self.assertEqual(last[:3], ["--verify", "--deep", "--strict"])
        self.assertTrue(last[-1].endswith("/KelvrinToken.app"))

    def test_everything_gets_the_identity_and_a_timestamp(self):
        self.sign()
        for path, call in self.signatures():
            arguments = call["arguments"]
            self.assertEqual(arguments[arguments.index("--sign") + 1], IDENTITY, path)
            self.assertIn("--force", arguments, path)
            self.assertIn("--timestamp", arguments, path)
            self.assertNotIn("--keychain", arguments, path)
            self.assertNotIn("--deep", arguments, path)

    def test_only_extension_and_application_get_the_hardened_runtime(self):
        self.sign()
        for path, call in self.signatures():
            arguments = call["arguments"]
            if path.endswith((".app", ".appex")):
                self.assertEqual(arguments[arguments.index("--options") + 1], "runtime", path)
            else:
                self.assertNotIn("--options", arguments, path)

    def test_only_the_extension_gets_entitlements_namely_the_projects(self):
        self.sign()
        for path, call in self.signatures():
            expected = None
            if path.endswith(".appex"):
                expected = {"com.apple.security.app-sandbox": True,
                            "com.apple.security.smartcard": True}
            self.assertEqual(call["entitlements"], expected, path)

    def test_takes_other_entitlements(self):
        rights = {"com.apple.security.app-sandbox": True, "com.apple.security.smartcard": True,
                  "com.apple.security.cs.disable-library-validation": True}
        file = self.folder / "Übung 'a'.entitlements"
        file.write_bytes(plistlib.dumps(rights))
        self.sign("--entitlements", file.name)
        self.assertEqual(dict(self.signatures())[
            "KelvrinToken.app/Contents/PlugIns/KelvrinToken.appex"]["entitlements"], rights)

    def test_names_the_keychain_everywhere(self):
        self.sign("--keychain", "my keychain")
        for path, call in self.signatures():
            arguments = call["arguments"]
            self.assertEqual(arguments[arguments.index("--keychain") + 1], "my keychain", path)
        self.assertEqual(self.calls("security")[0]["arguments"],
                         ["find-identity", "-p", "codesigning", "my keychain"])

    def test_for_this_mac_alone_there_is_no_timestamp_and_no_hardened_runtime(self):
        self.plan["identities"] = []
        self.expect_success("sign.sh", "--app", self.app, "--identity", "-")
        self.assertEqual(len(self.signatures()), 4)
        for path, call in self.signatures():
            arguments = call["arguments"]
            self.assertEqual(arguments[arguments.index("--sign") + 1], "-", path)
            self.assertIn("--timestamp=none", arguments, path)
            self.assertNotIn("--timestamp", arguments, path)
            self.assertNotIn("--options", arguments, path)

    def test_takes_an_identity_by_its_hash(self):
        self.expect_success("sign.sh", "--app", self.app, "--identity", f"{1:040x}")

    def test_the_signed_application_takes_the_place_of_the_other(self):
        self.sign()
        self.assertTrue((self.app / "Contents" / "_CodeSignature" / "CodeResources").exists())
        self.assertTrue((self.resources / f"{ADAPTER}.dylib").read_bytes().endswith(b"signed"))
        self.assertEqual([path.name for path in self.app.parent.iterdir()], ["KelvrinToken.app"])

    def test_clears_what_downloads_leave_on_files_before_anything_is_signed(self):
        self.sign()
        tools = [call["tool"] for call in self.calls() if call["tool"] not in ("security", "xcrun")]
        self.assertEqual(tools[0], "xattr")
        self.assertEqual(self.calls("xattr")[0]["arguments"][0], "-cr")

    def test_signs_libraries_that_were_read_only(self):
        library = self.resources / "card.dylib"
        library.write_bytes(CODE)
        library.chmod(0o444)
        self.sign()
        self.assertTrue(library.read_bytes().endswith(b"signed"))

    def test_says_last_that_all_is_well(self):
        (self.resources / f"{ADAPTER}.conf").write_text("module = card.dylib\n")
        (self.resources / "card.dylib").write_bytes(CODE)
        self.sign()
        self.assertTrue(self.output.endswith("is signed and verified\n"), self.output)
        self.assertEqual(self.errors, "")

    def test_warns_of_a_module_that_is_not_there(self):
        self.sign()
        self.assertIn("'pkcs11-module.dylib', which is not in the extension", self.errors)
        self.assertTrue(self.output.endswith("will find no module, see above\n"), self.output)

    def test_warns_of_a_module_outside_the_sandbox(self):
        (self.resources / f"{ADAPTER}.conf").write_text("module = /usr/local/lib/card.so\n")
        self.sign()
        self.assertIn("'/usr/local/lib/card.so': the sandbox", self.errors)
        self.assertTrue(self.output.endswith("will find no module, see above\n"), self.output)


class SignFailureTest(fixture.PackagingTest):
    def refused(self, text, *more, identity=IDENTITY):
        self.expect_failure(text, "sign.sh", "--app", self.app, "--identity", identity, *more)

    def test_a_failing_signature_ends_everything(self):
        places = (f"{ADAPTER}[.]dylib", f"{SECOND_NAME}[.]dylib",
                  "PlugIns/KelvrinToken[.]appex", "/KelvrinToken[.]app")
        for place in places:
            with self.subTest(place):
                self.plan["fail"] = [f"^codesign --force .*{place}$"]
                self.refused("codesign failed for 'KelvrinToken.app")
                self.assertIn("codesign: a reason of its own", self.errors)
                self.assertTrue(self.calls("codesign")[-1]["failed"])

    def test_a_failing_verification_keeps_the_application_as_it_was(self):
        self.plan["fail"] = ["codesign --verify"]
        self.refused("codesign does not accept its own signatures")

    def test_a_signed_application_that_cannot_take_its_place_leaves_the_other_there(self):
        self.replace_mv("rm '%s'/moved; exit 1" % self.fakes)
        self.refused("cannot be replaced; it stays as it was")

    def test_a_system_that_guards_its_applications(self):
        self.refuse_mv()
        self.refused("allow it in System Settings under Privacy & Security, App Management")

    def test_an_interruption_leaves_the_application_there(self):
        self.replace_mv("rm '%s'/moved; kill -TERM $PPID; exit 1" % self.fakes)
        before = self.snapshot()
        status = self.run_script("sign.sh", "--app", self.app, "--identity", IDENTITY)
        self.assertEqual(status, -signal.SIGTERM, self.errors)
        self.assertEqual(self.snapshot(), before)

    def test_codesign_is_missing(self):
        self.without("codesign")
        self.refused("there is no 'codesign' here")

    def test_the_command_line_tools_are_missing(self):
        self.plan["not_in_xcode"] = ["codesign_allocate"]
        self.refused("'xcode-select --install' installs the command line tools")
        self.without("xcrun")
        self.refused("there is no 'xcrun' here, which runs 'codesign_allocate'")

    def test_attributes_that_cannot_be_cleared(self):
        self.plan["fail"] = ["^xattr"]
        self.refused("xattr cannot clear the files' attributes")

    def test_a_library_where_the_folder_of_libraries_belongs(self):
        for contents, name in ((self.extension / "Contents",
                                "PlugIns/KelvrinToken.appex/Contents/Frameworks"),
                               (self.app / "Contents", "Contents/Frameworks")):
            with self.subTest(name):
                (contents / "Frameworks").write_bytes(CODE)
                self.refused(f"{name}' is a file; make it a folder")
                (contents / "Frameworks").unlink()

    def test_security_is_missing(self):
        self.without("security")
        self.refused("there is no 'security' here")

    def test_there_is_no_such_identity(self):
        self.refused("there is no identity 'Somebody Else' here", identity="Somebody Else")
        self.assertIn(IDENTITY, self.errors)
        self.assertEqual(self.calls("codesign"), [])

    def test_there_is_no_identity_at_all(self):
        self.plan["identities"] = []
        self.refused("there is no identity")
        self.assertIn("none", self.errors)

    def test_there_is_no_application(self):
        self.expect_failure("there is no application", "sign.sh", "--app", self.folder / "No.app",
                            "--identity", IDENTITY)

    def test_it_is_another_application(self):
        other = self.folder / "Other.app"
        (other / "Contents").mkdir(parents=True)
        self.expect_failure("is not the application", "sign.sh", "--app", other,
                            "--identity", IDENTITY)

    def test_there_are_no_entitlements(self):
        self.refused("there is no file", "--entitlements", self.folder / "none")

    def test_the_entitlements_lack_the_cards(self):
        file = self.folder / "rights"
        file.write_bytes(plistlib.dumps({"com.apple.security.app-sandbox": True}))
        self.refused("lacks com.apple.security.smartcard", "--entitlements", file)

    def test_a_library_is_none(self):
        (self.resources / "card.dylib").write_bytes(b"\x7fELF and more")
        self.refused("'card.dylib' in the extension is not a library for macOS")
        self.assertEqual(self.calls("codesign"), [])


if __name__ == "__main__":
    unittest.main()
