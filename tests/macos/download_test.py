"""KelvrinToken.zip: everything that a person at a Mac needs, as it was built, and nothing else."""

import pathlib
import stat
import sys
import tempfile
import unittest
import zipfile

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = SOURCE / "build" / "macos"
TIME = (2020, 1, 1, 0, 0, 0)
PROGRAMS = ("/MacOS/", "/bin/", "/packaging/")


def expected(build):
    """The files by their names in the zip."""
    files = {f"bin/{name}": build / "bin" / name
             for name in ("modulecheck", "libkelvrin_adapter.dylib")}
    for pattern in ("docs/**/*", "packaging/*.sh", "resources/*.entitlements"):
        files |= {str(path.relative_to(SOURCE)): path
                  for path in SOURCE.glob(pattern) if path.is_file()}
    application = build / "KelvrinToken.app"
    files |= {str(path.relative_to(build)): path
              for path in application.rglob("*") if path.is_file()}
    return {f"KelvrinToken/{name}": path for name, path in files.items()}


def check(package, build):
    """What is wrong with a zip, as lines."""
    findings = []
    files = expected(build)
    with zipfile.ZipFile(package) as archive:
        entries = {entry.filename: entry for entry in archive.infolist()}
        got = {name for name in entries if not name.endswith("/")}
        findings += [f"{name} is missing" for name in sorted(files.keys() - got)]
        findings += [f"{name} should not be there" for name in sorted(got - files.keys())]
        for name, entry in sorted(entries.items()):
            program = any(part in name for part in PROGRAMS) or name.endswith(".dylib")
            wanted = 0o755 if name.endswith("/") or program else 0o644
            mode = stat.S_IMODE(entry.external_attr >> 16)
            if mode != wanted:
                findings.append(f"{name}: expected mode {wanted:o}, got {mode:o}")
            if entry.date_time != TIME:
                findings.append(f"{name}: expected the time {TIME}, got {entry.date_time}")
            if name in files and archive.read(name) != files[name].read_bytes():
                findings.append(f"{name}: differs from {files[name].name}")
    return findings


class DownloadTest(unittest.TestCase):
    def test_holds_what_a_mac_needs(self):
        self.assertEqual(check(BUILD / "KelvrinToken.zip", BUILD), [])

    def test_what_a_mac_needs_is_more_than_nothing(self):
        names = expected(BUILD).keys()
        for name in ("KelvrinToken.app/Contents/MacOS/KelvrinToken",
                     "KelvrinToken.app/Contents/MacOS/modulecheck", "bin/modulecheck",
                     "docs/macos.md", "packaging/sign.sh", "resources/KelvrinToken.entitlements",
                     "resources/KelvrinTokenApplication.entitlements"):
            self.assertIn(f"KelvrinToken/{name}", names)


class SpoiledDownloadTest(unittest.TestCase):
    """A copy of the zip in which one entry is another."""

    def spoiled(self, name, change):
        with tempfile.TemporaryDirectory() as folder:
            package = pathlib.Path(folder) / "spoiled.zip"
            with zipfile.ZipFile(BUILD / "KelvrinToken.zip") as archive, \
                    zipfile.ZipFile(package, "w") as copy:
                for entry in archive.infolist():
                    content = archive.read(entry)
                    if entry.filename == name:
                        content = change(entry, content)
                    if content is not None:
                        copy.writestr(entry, content)
            return check(package, BUILD)

    def test_finds_what_is_missing(self):
        name = "KelvrinToken/packaging/sign.sh"
        self.assertEqual(self.spoiled(name, lambda *_: None), [f"{name} is missing"])

    def test_finds_what_should_not_be_there(self):
        def rename(entry, content):
            entry.filename = "KelvrinToken/bin/other"
            return content
        self.assertEqual(self.spoiled("KelvrinToken/bin/modulecheck", rename),
                         ["KelvrinToken/bin/modulecheck is missing",
                          "KelvrinToken/bin/other should not be there"])

    def test_finds_a_program_that_cannot_be_started(self):
        def forbid(entry, content):
            entry.external_attr = (stat.S_IFREG | 0o644) << 16
            return content
        name = "KelvrinToken/packaging/sign.sh"
        self.assertEqual(self.spoiled(name, forbid), [f"{name}: expected mode 755, got 644"])

    def test_finds_another_time(self):
        def age(entry, content):
            entry.date_time = (2021, 2, 3, 4, 5, 6)
            return content
        name = "KelvrinToken/docs/macos.md"
        self.assertEqual(self.spoiled(name, age),
                         [f"{name}: expected the time {TIME}, got (2021, 2, 3, 4, 5, 6)"])

    def test_finds_other_contents(self):
        name = "KelvrinToken/bin/libkelvrin_adapter.dylib"
        self.assertEqual(self.spoiled(name, lambda _, content: content[:-1] + b"~"),
                         [f"{name}: differs from libkelvrin_adapter.dylib"])


if __name__ == "__main__":
    if len(sys.argv) > 1:
        BUILD = pathlib.Path(sys.argv.pop(1))
    if not (BUILD / "KelvrinToken.zip").exists():
        sys.exit(f"there is no KelvrinToken.zip in {BUILD}: run ./dev macos first")
    unittest.main()
