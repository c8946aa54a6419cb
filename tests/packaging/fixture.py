"""An application that looks as if it was built, and a PATH with nothing on it but what is meant."""

import json
import os
import pathlib
import plistlib
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGING = ROOT / "packaging"
CODE = b"\xca\xfe\xba\xbe" + b"code for macOS"
ADAPTER = "libpkcs11qarn_Lindel_PCSC"
SECOND_NAME = "libpkcs11qarn_Vumo_PCSC"
IDENTITY = "Developer ID Application: Ann Example (ABCDE12345)"
# What the scripts may use that Linux and macOS both have.
COMMON_TOOLS = ("awk", "bash", "cat", "chmod", "cmp", "cp", "dirname", "env", "find", "grep",
                "iconv", "mkdir", "mktemp", "mv", "od", "rm", "sed", "sort", "tail", "tr", "wc")
MAC_TOOLS = ("codesign", "ditto", "id", "install_name_tool", "open", "pkgbuild", "pkgutil",
             "plutil", "pluginkit", "productbuild", "security", "spctl", "sudo", "uname", "xattr",
             "xcrun")


def write_plist(path, **values):
    path.parent.mkdir(parents=True, exist_ok=True)
    with open(path, "wb") as file:
        plistlib.dump(values, file)


def read_plist(path):
    with open(path, "rb") as file:
        return plistlib.load(file)


def configuration(path):
    """The lines of the adapter's configuration that say something."""
    lines = path.read_text(encoding="utf-8").splitlines()
    return [line for line in lines if line and not line.startswith("#")]


class PackagingTest(unittest.TestCase):
    """Each test has a folder with an application, and tools that note their calls."""

    APP = "build/KelvrinToken.app"

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()
        self.home = self.folder / "home"
        self.home.mkdir()
        self.fakes = self.folder / "fakes"
        self.path = self.folder / "path"
        self.fakes.mkdir()
        self.path.mkdir()
        for tool in COMMON_TOOLS:
            self.path.joinpath(tool).symlink_to(shutil.which(tool))
        fake = pathlib.Path(__file__).with_name("fake_tool.py").resolve()
        for tool in MAC_TOOLS:
            self.path.joinpath(tool).write_text(
                f"#!{shutil.which('bash')}\n"
                f"KELVRIN_TOOL={tool} exec '{sys.executable}' -I -S -B '{fake}' \"$@\"\n",
                encoding="utf-8")
            self.path.joinpath(tool).chmod(0o755)
        self.plan = {"identities": [IDENTITY]}
        self.app = self.make_app(self.folder / self.APP)
        self.extension = self.app / "Contents" / "PlugIns" / "KelvrinToken.appex"
        self.resources = self.extension / "Contents" / "Resources"

    def make_app(self, app):
        extension = app / "Contents" / "PlugIns" / "KelvrinToken.appex" / "Contents"
        write_plist(app / "Contents" / "Info.plist", CFBundleIdentifier="org.kelvrin.KelvrinToken",
                    CFBundleShortVersionString="1.0.0")
        write_plist(extension / "Info.plist",
                    CFBundleIdentifier="org.kelvrin.KelvrinToken.extension")
        for program in (app / "Contents" / "MacOS", extension / "MacOS"):
            program.mkdir()
            (program / "KelvrinToken").write_bytes(CODE)
        (app / "Contents" / "MacOS" / "modulecheck").write_bytes(CODE)
        resources = extension / "Resources"
        write_plist(resources / "config.plist", readerName="Kelvrin Reader")
        for language in ("de", "en"):
            (resources / f"{language}.lproj").mkdir()
            (resources / f"{language}.lproj" / "Localizable.strings").write_text('"A" = "B";')
        (resources / f"{ADAPTER}.dylib").write_bytes(CODE + b" of the adapter")
        (resources / f"{ADAPTER}.conf").write_text(
            "# A comment.\nmodule = pkcs11-module.dylib\n\nreader-name = Kelvrin Reader\n")
        (resources / f"{SECOND_NAME}.dylib").write_bytes(CODE + b" of the second name")
        return app

    def module(self, name="card.dylib", contents=CODE + b" of a module"):
        path = self.folder / "modules" / name
        path.parent.mkdir(exist_ok=True)
        path.write_bytes(contents)
        return path

    def without(self, tool):
        (self.path / tool).rename(self.fakes / tool)

    def replace_mv(self, behaviour):
        """Has the second call of mv, which puts the changed application in place, behave so."""
        self.without("mv")
        self.path.joinpath("mv").write_text(
            f"#!{shutil.which('bash')}\nif [ -e '{self.fakes}/moved' ]; then {behaviour}; fi\n"
            f"case $2 in */before) : >'{self.fakes}/moved' ;; esac\n"
            f"exec {shutil.which('mv')} \"$@\"\n", encoding="utf-8")
        self.path.joinpath("mv").chmod(0o755)

    def run_program(self, *arguments, environment=None):
        """Runs a program among the tools; returns its exit status and keeps what it said."""
        self.fakes.joinpath("plan.json").write_text(json.dumps(self.plan), encoding="utf-8")
        result = subprocess.run(
            [*map(str, arguments)], capture_output=True, text=True, check=False,
            errors="surrogateescape", cwd=self.folder, stdin=subprocess.DEVNULL,
            env={"PATH": str(self.path), "KELVRIN_FAKES": str(self.fakes), "HOME": str(self.home),
                 "TMPDIR": str(self.folder), **(environment or {})})
        self.output = result.stdout
        self.errors = result.stderr
        return result.returncode

    def run_script(self, script, *arguments, **options):
        return self.run_program(PACKAGING / script, *arguments, **options)

    def expect_success(self, script, *arguments, **options):
        status = self.run_script(script, *arguments, **options)
        self.assertEqual(status, 0, self.output + self.errors)

    def expect_failure(self, text, script, *arguments, status=1):
        """Expects a refusal that says the text and leaves the application as it was."""
        before = self.snapshot()
        self.assertEqual(self.run_script(script, *arguments), status, self.output + self.errors)
        self.assertIn(text, self.errors)
        self.assertTrue(any(line.startswith(script + ": ") and text in line
                            for line in self.errors.splitlines()), self.errors)
        self.assertEqual(self.snapshot(), before)

    def calls(self, tool=None):
        """The calls so far, of one tool or of all."""
        log = self.fakes / "calls.jsonl"
        if not log.exists():
            return []
        calls = [json.loads(line) for line in log.read_text(encoding="utf-8").splitlines()]
        return [call for call in calls if tool in (None, call["tool"])]

    def snapshot(self):
        """Every file where the application lies, so that nothing is left beside it either."""
        folder = self.app.parent
        return {str(path.relative_to(folder)): path.read_bytes() if path.is_file() else None
                for path in folder.rglob("*")}
