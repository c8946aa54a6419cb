"""docs/macos.md: its commands, run with stand-ins for the tools of macOS, do what it says."""

import re
import unittest

import fixture
from fixture import ADAPTER, CODE, IDENTITY, ROOT

GUIDE = (ROOT / "docs" / "macos.md").read_text(encoding="utf-8")


def block(heading, number=0):
    """A block of commands under a heading."""
    section = GUIDE.split(f"# {heading}\n", 1)[1]
    return re.findall(r"```sh\n(.*?)```", section, re.DOTALL)[number]


class GuideCommandsTest(fixture.PackagingTest):
    """The application lies in build/macos, as the guide has it, and /Applications in the folder."""

    APP = "build/macos/KelvrinToken.app"

    def setUp(self):
        super().setUp()
        self.applications = self.folder / "Applications"
        self.applications.mkdir()
        self.installed = self.applications / "KelvrinToken.app"

    def run_commands(self, commands):
        for place, stand_in in (("/Applications/", f"{self.applications}/"),
                                ("/path/to/", f"{self.folder}/modules/"),
                                ("/opt/maker/", f"{self.folder}/maker/")):
            commands = commands.replace(place, stand_in)
        status = self.run_program("bash", "-euo", "pipefail", "-c", commands)
        self.assertEqual(status, 0, self.output + self.errors)

    def files(self, app):
        return {str(path.relative_to(app)) for path in app.rglob("*")}

    def test_installing_leaves_nothing_of_an_older_copy(self):
        self.make_app(self.installed)
        old = self.installed / self.resources.relative_to(self.app) / "old.dylib"
        old.write_bytes(CODE)
        self.run_commands(block("Install and register"))
        self.assertEqual(self.files(self.installed), self.files(self.app))

    def test_the_installed_copy_is_looked_at_before_it_is_opened(self):
        self.run_commands(block("Install and register"))
        self.assertEqual([(call["tool"], call["arguments"][-1]) for call in self.calls()],
                         [("ditto", str(self.installed)), ("codesign", str(self.installed)),
                          ("open", str(self.installed)), ("pluginkit", str(self.extension))])
        self.assertEqual(self.calls("pluginkit")[0]["arguments"][0], "-r")

    def test_further_libraries_are_signed_where_the_module_looks_for_them(self):
        self.module("module.dylib").chmod(0o444)
        (self.folder / "maker").mkdir()
        for name in ("libX.dylib", "libY.dylib"):
            (self.folder / "maker" / name).write_bytes(CODE)
            (self.folder / "maker" / name).chmod(0o444)
        self.run_commands(block("Further libraries"))
        folder = self.extension / "Contents" / "Frameworks"
        self.assertEqual({path.name for path in folder.iterdir()}, {"libX.dylib", "libY.dylib"})
        changes = [call["arguments"] for call in self.calls("install_name_tool")]
        self.expect_success("configure.sh", "--app", self.app, "--module", "module.dylib")
        self.expect_success("sign.sh", "--app", self.app, "--identity", IDENTITY)
        for _, old, new, changed in changes:
            # Where the library that was changed is loaded from.
            place = self.resources if changed == "module.dylib" else folder
            found = (place / new.replace("@loader_path/", "")).resolve()
            self.assertEqual(found, folder / old.rsplit("/", 1)[1])
            self.assertTrue(found.read_bytes().endswith(b"signed"), found)

    def test_the_adapter_that_is_tried_is_there(self):
        path = re.search(r"^  (/Applications/\S+[.]dylib)$", block("Troubleshooting"),
                         re.MULTILINE)[1]
        self.run_commands(block("Install and register"))
        self.assertTrue((self.folder / path.lstrip("/")).is_file(), path)
        self.assertIn(f"{ADAPTER}.dylib", path)

    def test_the_pin_is_kept_from_others_and_removed(self):
        commands = block("Find the reader and try the module")
        line = next(line for line in commands.splitlines() if ">pin.txt" in line)
        self.run_commands(line)
        self.assertEqual((self.folder / "pin.txt").stat().st_mode & 0o077, 0)
        self.assertEqual(commands.splitlines()[-1], "rm pin.txt")


if __name__ == "__main__":
    unittest.main()
