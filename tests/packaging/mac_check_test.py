"""./dev mac-check: each step's verdict, the report, and what makes it fail.

It runs in a copy of the tree with stand-ins for the tools of a Mac and for what a build makes.
"""
import shutil
import unittest

import fixture
from fixture import ROOT

PIN = "8642097531"
STEPS = ["build", "unpack", "help", "libraries", "card", "configure", "sign", "seal", "lists",
         "modulecheck", "harness", "register", "report", "listing"]
EXPECTED = ROOT / "tests/harness/expected.txt"
# What stands in for a tool, as a script; $tree is the copy, $made what the build makes.
TOOLS = {
    "cmake": 'mkdir -p "$tree/build/macos"; cp -R "$made/." "$tree/build/macos/"',
    "ditto": 'case $1 in -c) tar -C "${4%/*}" -cf "$5" KelvrinToken ;; '
             '-x) tar -C "$4" -xf "$3" ;; esac',
    "openssl": 'cat >"$tree/message"; while [ "$1" != -out ]; do shift; done; echo ciphertext >"$2"',
    "plutil": 'case $1 in -replace | -lint) echo "$*: OK" ;; *) exit 2 ;; esac',
    "pluginkit": '[ "$1" != -m ] || echo "+ $tree/build/mac-check/KelvrinToken/KelvrinToken.app/'
                 'Contents/PlugIns/KelvrinToken.appex"',
    "softhsm2-util": "", "pkcs11-tool": "", "certtool": "", "xcode-select": "", "git": "",
    "xcodebuild": "echo Xcode 15.4", "sw_vers": "echo ProductVersion: 14.5",
}
MADE = {
    "bin/modulecheck": 'case $1 in --help) ;; *) echo "It works with the adapter."; exit 3 ;; esac',
    "KelvrinToken.app/Contents/MacOS/KelvrinToken":
        '[ "$*" = --report ] && cat "$tree/application-says"',
    "harness/load_libraries": '[ "$#" -eq 3 ] && echo "opened $3"',
    # In a bundle of its own, with the extension's resources beside it.
    "harness/insert_card": 'cd "${0%/*}/../Resources" && [ -f libsofthsm2.so ] && '
                           '[ "$1" = "${PWD%/Contents/Resources}" ] && [ -s "$3" ] && '
                           'grep -q 8642097531 "$2" && cat "$tree/harness-says"',
}


class MacCheckTest(fixture.PackagingTest):
    def setUp(self):
        super().setUp()
        self.tree = self.folder / "tree"
        for name in ("dev.d", "packaging", "resources", "docs"):
            shutil.copytree(ROOT / name, self.tree / name)
        shutil.copy(ROOT / "dev", self.tree)
        (self.tree / "tests/harness").mkdir(parents=True)
        shutil.copy(EXPECTED, self.tree / "tests/harness")
        self.says(EXPECTED.read_text(encoding="utf-8"))
        (self.tree / "application-says").write_text("a card of one's own\n")
        self.script(self.tree / "tests/card/make-card",
                    f'mkdir -p "$1/card"; echo {PIN} >"$1/card/pin"')
        for tool in ("diff", "tar", "tee"):
            self.path.joinpath(tool).symlink_to(shutil.which(tool))
        for name, text in TOOLS.items():
            self.script(self.path / name, text)
        self.made = self.folder / "made"
        shutil.copytree(self.app, self.made / "KelvrinToken.app")
        for name, text in MADE.items():
            self.script(self.made / name, text)
        (self.made / "bin/libkelvrin_adapter.dylib").write_bytes(fixture.CODE)
        module = self.folder / "lib/softhsm/libsofthsm2.so"
        module.parent.mkdir(parents=True)
        module.write_bytes(fixture.CODE)

    def script(self, path, text):
        path.parent.mkdir(parents=True, exist_ok=True)
        path.unlink(missing_ok=True)
        path.write_text(f"#!{shutil.which('bash')}\ntree={self.tree} made={self.folder}/made\n"
                        f"{text}\n", encoding="utf-8")
        path.chmod(0o755)

    def says(self, text):
        """What the harness prints."""
        (self.tree / "harness-says").write_text(text, encoding="utf-8")

    def check(self, *arguments):
        """Runs it; returns the exit status and the verdict of each step."""
        status = self.run_script(self.tree / "dev", "mac-check", *arguments)
        self.report = (self.tree / "build/mac-check/report.txt").read_text(encoding="utf-8")
        verdicts = {}
        for line in self.output.splitlines():
            verdict, name = line[:8].strip(), line[10:].split(" ")[0]
            if verdict in ("PASS", "FAIL", "NOT HERE"):
                verdicts[name] = verdict
                self.assertIn(line, self.report)
        self.assertEqual(list(verdicts), STEPS, self.output + self.errors)
        return status, {name: verdict for name, verdict in verdicts.items() if verdict != "PASS"}

    def test_all_passes(self):
        self.assertEqual(self.check(), (0, {}), self.output)
        self.assertIn("mac-check: 0 of 14 steps failed; the report is build/mac-check/report.txt",
                      self.output)
        for line in ("ProductVersion: 14.5", "== harness", "the plaintext is the message: yes"):
            self.assertIn(line, self.report.splitlines())
        self.assertNotIn(PIN, self.report + self.output + self.errors)
        identities = {call["arguments"][2] for call in self.calls("codesign")
                      if call["arguments"][0] == "--force"}
        self.assertEqual(identities, {"-"})

    def test_what_ships_may_come_from_elsewhere(self):
        shipped = self.folder / "shipped" / "KelvrinToken"
        shutil.copytree(self.made, shipped)
        shutil.copytree(ROOT / "packaging", shipped / "packaging")
        shutil.copytree(ROOT / "resources", shipped / "resources")
        self.script(shipped / "bin/modulecheck", "echo it cannot run; exit 1")
        shutil.make_archive(str(shipped.parent), "tar", shipped.parent)
        self.assertEqual(self.check("--zip", "shipped.tar"),
                         (1, {"help": "FAIL", "modulecheck": "FAIL"}))

    def test_a_failure_is_told_and_the_rest_goes_on(self):
        self.plan["fail"] = ["^codesign --verify --strict --deep"]
        self.assertEqual(self.check(), (1, {"seal": "FAIL"}))
        self.assertIn("FAIL      seal        codesign: a reason of its own", self.output)
        self.assertIn("mac-check: 1 of 14 steps failed", self.output)

    def test_what_the_application_reports_is_kept_apart(self):
        self.assertEqual(self.check(), (0, {}))
        self.assertEqual((self.tree / "build/mac-check/window.txt").read_text(),
                         "a card of one's own\n")
        self.assertNotIn("a card of one's own", self.report + self.output)
        (self.tree / "application-says").write_text("")
        self.assertEqual(self.check(), (1, {"report": "FAIL"}))
        self.assertIn("FAIL      report      ./dev: the application's report is empty", self.output)

    def test_pluginkit_alone_may_be_missing(self):
        self.script(self.path / "pluginkit", "exit 1")
        self.assertEqual(self.check(), (0, {"register": "NOT HERE", "listing": "NOT HERE"}))
        self.assertIn("NOT HERE  listing     pluginkit does not list the extension", self.output)
        self.without("pluginkit")
        self.assertEqual(self.check(), (0, {"register": "NOT HERE", "listing": "NOT HERE"}))
        for tool, steps in (("plutil", ["lists"]), ("certtool", ["card"])):
            self.without(tool)
            status, verdicts = self.check()
            self.assertEqual(status, 1)
            for step in steps:
                self.assertEqual(verdicts[step], "FAIL")
                self.assertIn(f"{step:<11} there is no '{tool}' here", self.output)

    def test_apples_lines_of_the_harness_may_differ_and_ours_may_not(self):
        expected = EXPECTED.read_text(encoding="utf-8")
        self.says(expected.replace("keychain contents: 4", "keychain contents: 0"))
        self.assertEqual(self.check(), (0, {}))
        self.assertIn("DIFFERS expected: Apple: items in the keychain contents: 4\n"
                      "DIFFERS got:      Apple: items in the keychain contents: 0\n", self.output)
        self.says(expected.replace("signs: yes", "signs: no", 1))
        self.assertEqual(self.check(), (1, {"harness": "FAIL"}))
        self.assertIn("DIFFERS got:        signs: no, decrypts: yes", self.output)

    def test_what_apples_classes_refuse_differs_and_does_not_fail(self):
        self.script(self.made / "harness/insert_card",
                    'echo "== a card"; echo "Apple: refused a token"; exit 3')
        self.assertEqual(self.check(), (0, {}))
        self.assertIn("DIFFERS got:      Apple: refused a token", self.output)
        self.assertIn("DIFFERS expected: the PIN is taken: yes", self.output)
        self.script(self.made / "harness/insert_card", "kill -SEGV $$")
        self.assertEqual(self.check(), (1, {"harness": "FAIL"}))
        self.assertIn("the harness ended with status 139", self.output)

    def test_elsewhere_it_says_what_it_needs(self):
        self.plan["system"] = "Linux"
        self.assertEqual(self.run_script(self.tree / "dev", "mac-check"), 1)
        self.assertIn("this command needs a Mac", self.errors)
        self.plan["system"] = "Darwin"
        self.assertEqual(self.run_script(self.tree / "dev", "mac-check", "more"), 1)
        self.assertIn("usage: ./dev mac-check", self.errors)


if __name__ == "__main__":
    unittest.main()
