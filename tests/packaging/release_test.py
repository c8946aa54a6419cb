"""notarise.sh and make-pkg.sh: what goes to which tool, and what happens when one fails."""

import unittest

import fixture

INSTALLER = "Developer ID Installer: Ann Example (ABCDE12345)"


class ReleaseTest(fixture.PackagingTest):
    def setUp(self):
        super().setUp()
        self.plan["identities"] = [fixture.IDENTITY, INSTALLER]
        self.package = self.folder / "out" / "Kelvrin Token.pkg"
        self.package.parent.mkdir()

    def lines(self, tool):
        return [" ".join(call["arguments"]) for call in self.calls(tool)]

    def steps(self):
        """The calls that do something, by tool and first word."""
        return [f"{call['tool']} {call['arguments'][0]}" for call in self.calls()
                if "--find" not in call["arguments"]]

    def package_arguments(self, *more):
        return ("make-pkg.sh", "--app", self.app, "--identity", INSTALLER,
                "--output", self.package, *more)


class NotariseTest(ReleaseTest):
    def arguments(self):
        return ("notarise.sh", "--app", self.app, "--profile", "my profile")

    def test_submits_an_archive_staples_the_ticket_and_asks_the_system(self):
        before = sorted(self.folder.iterdir())
        self.expect_success(*self.arguments())
        self.assertEqual(sorted(self.folder.iterdir()), before)
        self.assertEqual(self.steps(), [
            "codesign --verify", "codesign --display", "ditto -c", "xcrun notarytool",
            "xcrun stapler", "xcrun stapler", "spctl --assess"])
        ditto = self.calls("ditto")[0]["arguments"]
        self.assertEqual(ditto[:4], ["-c", "-k", "--keepParent", str(self.app)])
        submit = [call for call in self.calls("xcrun") if "submit" in call["arguments"]][0]
        self.assertEqual(submit["arguments"], ["notarytool", "submit", ditto[4],
                                               "--keychain-profile", "my profile", "--wait",
                                               "--output-format", "json"])
        self.assertIn(f"stapler staple {self.app}", self.lines("xcrun"))
        self.assertIn(f"stapler validate {self.app}", self.lines("xcrun"))
        self.assertEqual(self.lines("spctl"), [f"--assess --type execute --verbose {self.app}"])
        self.assertTrue((self.app / "Contents" / "CodeResources").exists())

    def test_what_the_service_refuses_is_told_with_its_log_and_not_stapled(self):
        self.plan["notary"] = "Invalid"
        for self.plan["notary_exit"] in (0, 1):
            self.expect_failure("did not accept KelvrinToken.app.zip: Invalid", *self.arguments())
            self.assertIn("the log says why", self.errors)
            self.assertNotIn("store-credentials", self.errors)
        self.assertIn("notarytool log 4711-id --keychain-profile my profile", self.lines("xcrun"))
        self.assertNotIn("stapler staple", "".join(self.lines("xcrun")))

    def test_failures_of_the_tools(self):
        for pattern, text in (("^codesign --verify", "is not signed"),
                              ("^codesign --display", "codesign cannot read"),
                              ("^ditto", "ditto cannot make an archive"),
                              ("^xcrun notarytool submit", "store-credentials my profile"),
                              ("^xcrun stapler staple", "cannot fasten the ticket")):
            with self.subTest(pattern):
                self.plan["fail"] = [pattern]
                self.expect_failure(text, *self.arguments())
        # The ticket is on the application by then.
        for pattern, text in (("^xcrun stapler validate", "is not valid"),
                              ("^spctl", "the system would refuse")):
            self.plan["fail"] = [pattern]
            self.assertEqual(self.run_script(*self.arguments()), 1)
            self.assertIn(text, self.errors)

    def test_an_application_that_the_service_would_refuse(self):
        self.plan["adhoc"] = True
        self.expect_failure("is signed for this machine only", *self.arguments())
        self.plan["adhoc"] = False
        for authority in ("Apple Development: Ann Example (XYZ)", "My own certificate"):
            self.plan["authority"] = authority
            self.expect_failure("is not signed by a Developer ID Application identity",
                                *self.arguments())
        self.assertEqual([line for line in self.lines("xcrun") if "submit" in line], [])


class PackageTest(ReleaseTest):
    def test_makes_a_signed_package_that_installs_in_applications(self):
        self.expect_success(*self.package_arguments())
        self.assertEqual(self.package.read_text(), "product")
        build = self.calls("pkgbuild")[1]
        text = " ".join(build["arguments"])
        self.assertIn("--install-location /Applications", text)
        self.assertIn("--identifier org.kelvrin.KelvrinToken.pkg --version 1.0.0", text)
        self.assertEqual(build["root"], ["KelvrinToken.app"])
        product = self.calls("productbuild")[0]["arguments"]
        self.assertEqual(self.calls("productbuild")[0]["requirements"],
                         {"arch": ["x86_64", "arm64"]})
        self.assertEqual(product[:2], ["--package", build["arguments"][-1]])
        self.assertEqual(product[2:5], ["--sign", INSTALLER, "--timestamp"])
        # The installer may not choose another place.
        self.assertEqual(build["components"], [{"BundleIsRelocatable": False,
                                                "RootRelativeBundlePath": "KelvrinToken.app"}])
        self.assertEqual(self.calls("xcrun") + self.calls("spctl"), [], "notarised unasked")

    def test_is_notarised_and_stapled_before_it_appears(self):
        self.expect_success(
            *self.package_arguments("--profile", "mine", "--keychain", "my.keychain"))
        product = self.calls("productbuild")[0]["arguments"][-1]
        self.assertEqual(
            [line for line in self.lines("xcrun") if "--find" not in line],
            [f"notarytool submit {product} --keychain-profile mine --wait --output-format json",
             f"stapler staple {product}", f"stapler validate {product}"])
        self.assertEqual(self.lines("spctl"), [f"--assess --type install --verbose {product}"])
        self.assertIn("--keychain my.keychain", self.lines("productbuild")[0])
        self.assertEqual(self.lines("security"), ["find-identity -p basic my.keychain"])

    def test_an_earlier_package_is_replaced_only_by_a_whole_one(self):
        self.package.write_text("earlier")
        for pattern in ("^pkgbuild --analyze", "^plutil", "^pkgbuild --root", "^productbuild",
                        "^ditto", "^xcrun notarytool submit", "^xcrun stapler staple",
                        "^xcrun stapler validate", "^spctl", "^security"):
            with self.subTest(pattern):
                self.plan["fail"] = [pattern]
                self.assertEqual(self.run_script(*self.package_arguments("--profile", "p")), 1)
                self.assertIn("make-pkg.sh: ", self.errors)
                self.assertEqual(self.package.read_text(), "earlier")
                self.assertEqual(list(self.package.parent.iterdir()), [self.package])
        self.plan["fail"] = []
        self.expect_success(*self.package_arguments("--profile", "p"))
        self.assertEqual(self.package.read_text(), "product")
        self.assertEqual(list(self.package.parent.iterdir()), [self.package])
        self.package = self.package.with_name("component.pkg")  # as the script calls a part
        self.expect_success(*self.package_arguments())
        self.assertEqual(self.package.read_text(), "product")

    def test_refuses_what_cannot_become_a_package(self):
        for key, value, text in (
                ("fail", ["^codesign --verify"], "run sign.sh first"),
                ("adhoc", True, "for this machine only"),
                ("authority", "Apple Development: Ann Example (XYZ)", "Developer ID Application"),
                ("identities", [fixture.IDENTITY], "there is no identity")):
            with self.subTest(text):
                plan, self.plan = self.plan, self.plan | {key: value}
                self.expect_failure(text, *self.package_arguments())
                self.plan = plan
        self.expect_failure("for one Mac alone", "make-pkg.sh", "--app", self.app,
                            "--identity", "-", "--output", self.package, status=2)
        self.package = self.folder / "nowhere" / "a.pkg"
        self.expect_failure("there is no folder", *self.package_arguments())
        self.package = self.folder / "folder.pkg"
        self.package.mkdir()
        self.expect_failure("is a folder", *self.package_arguments())

    def test_refuses_an_application_without_version(self):
        fixture.write_plist(self.app / "Contents" / "Info.plist", CFBundleIdentifier="a.b")
        self.expect_failure("has no text for CFBundleShortVersionString", *self.package_arguments())


if __name__ == "__main__":
    unittest.main()
