"""What all packaging scripts have in common, and uninstall.sh."""

import re
import shutil
import unittest

import fixture
from fixture import PACKAGING, ROOT

# A right call of each script, as options with values.
CALLS = {
    "configure.sh": {"--app": "A.app", "--module": "m.dylib"},
    "sign.sh": {"--app": "A.app", "--identity": "-"},
    "notarise.sh": {"--app": "A.app", "--profile": "p"},
    "make-pkg.sh": {"--app": "A.app", "--identity": "i", "--output": "a.pkg"},
    "uninstall.sh": {},
}
# What ./dev macos and ./dev mac-check run on a Mac, beside the scripts themselves.
ON_A_MAC = [ROOT / "dev", ROOT / "dev.d/common.sh", ROOT / "dev.d/macos.sh",
            ROOT / "dev.d/mac-check.sh", ROOT / "tests/card/make-card", *PACKAGING.glob("*.sh")]


class UsageTest(fixture.PackagingTest):
    def setUp(self):
        super().setUp()
        for tool in fixture.MAC_TOOLS:
            self.without(tool)

    def test_every_script_is_here(self):
        scripts = {path.name for path in PACKAGING.glob("*.sh")} - {"common.sh"}
        self.assertEqual(scripts, set(CALLS))

    def test_help_is_shown_without_any_tool(self):
        for script in CALLS:
            with self.subTest(script):
                self.expect_success(script, "--help")
                self.assertTrue(self.output.startswith(f"usage: {script} "), self.output)
                self.assertEqual(self.errors, "")

    def test_the_help_names_every_option(self):
        for script in CALLS:
            text = (PACKAGING / script).read_text(encoding="utf-8")
            options = set(re.findall(r"^ +(--\w+)\)", text, re.MULTILINE)) - {"--help"}
            self.assertTrue(options, script)
            self.expect_success(script, "--help")
            for option in options:
                self.assertIn(f"{option} ", self.output, script)

    def test_wrong_usage(self):
        for script, options in CALLS.items():
            given = [text for pair in options.items() for text in pair]
            cases = [([*given, "--unknown"], "unknown argument '--unknown'"),
                     ([*given, "extra"], "unknown argument 'extra'"),
                     ([*given, "--app"], "--app needs a value"),
                     ([*given, "--app", ""], "the value of --app is empty")]
            for option in options:
                if option == "--module":
                    continue
                rest = [text for pair in options.items() if pair[0] != option for text in pair]
                cases.append((rest, f"{option} is missing"))
            for arguments, text in cases:
                with self.subTest(script, arguments=arguments):
                    self.expect_failure(text, script, *arguments, status=2)
                    self.assertIn(f"Run {script} --help for more.", self.errors)

    def test_wrong_usage_of_one_script(self):
        self.expect_failure("nothing to change", "configure.sh", "--app", self.app, status=2)
        self.expect_failure("--reader needs a value", "configure.sh", "--app", self.app, "--reader",
                            status=2)
        self.expect_failure("does not end with .pkg", "make-pkg.sh", "--app", self.app,
                            "--identity", "i", "--output", "a.dmg", status=2)


class RefusalTest(fixture.PackagingTest):
    """What every script refuses that needs what is missing."""

    # What each of the right calls needs; make-pkg.sh as one that notarises.
    TOOLS = {"sign.sh": ("codesign", "security"),
             "notarise.sh": ("spctl", "ditto", "codesign", "xcrun"),
             "make-pkg.sh": ("codesign", "ditto", "pkgbuild", "plutil", "productbuild", "security",
                             "spctl"),
             "uninstall.sh": ("pluginkit",)}
    XCODE_TOOLS = {"sign.sh": ("codesign_allocate",), "notarise.sh": ("stapler", "notarytool")}

    def refused(self, text, script, **changes):
        options = CALLS[script] | {"--app": self.app}
        if "--identity" in options:
            options["--identity"] = fixture.IDENTITY
        if script == "make-pkg.sh":
            options["--profile"] = "p"
        options |= {f"--{key}": value for key, value in changes.items()}
        with self.subTest(script, text=text):
            self.expect_failure(text, script, *(text for pair in options.items() for text in pair))

    def test_missing_tools(self):
        for script, tools in self.TOOLS.items():
            for tool in tools:
                self.without(tool)
                self.refused(f"there is no '{tool}' here", script)
                (self.fakes / tool).rename(self.path / tool)

    def test_missing_tools_of_xcode(self):
        for script, tools in self.XCODE_TOOLS.items():
            for tool in tools:
                self.plan["not_in_xcode"] = [tool]
                self.refused(f"xcrun finds no '{tool}'; 'xcode-select --install' installs", script)
        self.without("xcrun")
        self.refused("there is no 'xcrun' here, which runs 'codesign_allocate'", "sign.sh")

    def test_what_is_not_the_application(self):
        other = self.app.parent / "Other.app"
        (other / "Contents").mkdir(parents=True)
        (self.folder / "m.dylib").write_bytes(fixture.CODE)
        for script in CALLS:
            self.refused("is not the application", script, app=other)
            self.refused("there is no application", script, app="none.app")
            self.refused("is a file", script, app=self.app / "Contents" / "Info.plist")

    def test_a_system_that_guards_its_applications(self):
        self.without("mv")
        self.path.joinpath("mv").symlink_to(shutil.which("false"))
        for script in ("sign.sh", "uninstall.sh"):
            self.refused("under Privacy & Security, App Management", script)


class ShellTest(unittest.TestCase):
    """The bash of macOS is 3.2, and its tools are not GNU's."""

    NEWER = (r"\b(mapfile|readarray|coproc)\b", r"\b(declare|local|typeset) -[gnAlu]",
             r"\$\{[^}]*(\^|,,|@[A-Za-z]\})", r"\|&", r"&>>", r"\[\[ -v ", r"\bwait -n",
             r"\bsed (-\w+ )*-i", r"\bgrep -\w*P", r"\breadlink -f", r"\bcp -a", r"\bsort -z",
             r"\bmktemp --", r"\bstat -c")

    # What an older bash cannot even read, wherever it stands.
    UNREADABLE = (r"\|&", r"&>>", r"\[\[ (! )?-v ", r";;?&", r"\bcoproc\b")

    def test_nothing_newer_is_used(self):
        every = {path: self.UNREADABLE for path in (ROOT / "dev.d").glob("*.sh")}
        for path, patterns in (every | {path: self.NEWER for path in ON_A_MAC}).items():
            text = path.read_text(encoding="utf-8")
            for pattern in patterns:
                self.assertIsNone(re.search(pattern, text), f"{path.name}: {pattern}")

    def test_empty_arrays_are_expanded_so_that_bash_3_takes_them(self):
        for path in PACKAGING.glob("*.sh"):
            text = path.read_text(encoding="utf-8")
            for name in re.findall(r"^ *(\w+)=\(\)", text, re.MULTILINE):
                bare = re.sub(r"\$\{%s\[@\]\+\"\$\{%s\[@\]\}\"\}" % (name, name), "", text)
                self.assertNotIn(f"${{{name}[@]", bare, f"{path.name}: {name}")

    def test_every_script_stops_at_the_first_failure(self):
        for script in CALLS:
            lines = (PACKAGING / script).read_text(encoding="utf-8").splitlines()
            self.assertEqual(lines[0], "#!/usr/bin/env bash", script)
            self.assertEqual(lines[2], "set -euo pipefail", script)

    def test_no_identity_or_profile_is_taken_from_the_environment(self):
        for path in PACKAGING.glob("*.sh"):
            text = path.read_text(encoding="utf-8")
            # Set by the scripts themselves, all but these.
            names = set(re.findall(r"\$\{?([A-Z][A-Z_]+)", text))
            self.assertLessEqual(names, {"BASH_SOURCE", "TMPDIR", "HOME", "SUDO_USER"}, path.name)


class UninstallTest(fixture.PackagingTest):
    def uninstall(self):
        self.expect_success("uninstall.sh", "--app", self.app)

    def test_unregisters_the_extension_and_removes_the_application(self):
        self.uninstall()
        self.assertEqual(self.calls("pluginkit")[0]["arguments"], ["-r", str(self.extension)])
        self.assertEqual(list(self.app.parent.iterdir()), [])

    def test_says_what_is_left(self):
        container = self.home / "Library/Containers/org.kelvrin.KelvrinToken.extension"
        container.mkdir(parents=True)
        settings = self.home / "Library/Preferences/org.kelvrin.KelvrinToken.plist"
        fixture.write_plist(settings)
        self.uninstall()
        self.assertIn(f"rm -rf '{container}'", self.output)
        self.assertIn("full disk access", self.output)
        self.assertIn("System Settings, General, Device Management", self.output)
        self.assertTrue(container.is_dir())
        self.assertIn("defaults delete org.kelvrin.KelvrinToken\n", self.output)
        self.assertTrue(settings.exists())
        self.assertIn("pkgutil --forget org.kelvrin.KelvrinToken.pkg", self.output)

    def test_says_nothing_of_what_was_never_there(self):
        self.plan["fail"] = ["^pkgutil"]
        self.uninstall()
        self.assertNotIn("Containers", self.output)
        self.assertNotIn("defaults delete org", self.output)
        self.assertNotIn("pkgutil", self.output)

    def test_with_sudo_the_callers_registry_is_meant(self):
        self.plan["user"] = 0
        self.expect_success("uninstall.sh", "--app", self.app, environment={"SUDO_USER": "ann"})
        self.assertEqual(self.calls("sudo")[0]["arguments"],
                         ["-u", "ann", "pluginkit", "-r", str(self.extension)])
        self.assertFalse(self.app.exists())

    def test_an_extension_that_was_never_registered(self):
        self.plan["fail"] = ["^pluginkit"]
        self.uninstall()
        self.assertIn("pluginkit did not know the extension", self.errors)
        self.assertFalse(self.app.exists())


if __name__ == "__main__":
    unittest.main()
