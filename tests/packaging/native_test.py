"""What the build says where a package or Apple's SDK is not what it should be."""

import json
import os
import pathlib
import subprocess
import tempfile
import unittest

from fixture import ROOT

NATIVE = ROOT / "cmake" / "KelvrinNative.cmake"


class NativeTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def sdk_check(self, xcrun):
        """What the build says when xcrun behaves so."""
        tool = self.folder / "xcrun"
        tool.write_text(f"#!/bin/sh\n[ \"$*\" = '--sdk macosx --show-sdk-version' ] || exit 2\n"
                        f"{xcrun}\n", encoding="utf-8")
        tool.chmod(0o755)
        script = self.folder / "check.cmake"
        script.write_text(f"include({NATIVE})\nkelvrin_check_native_sdk()\n", encoding="utf-8")
        result = subprocess.run(["cmake", "-P", script], capture_output=True, text=True, check=True,
                                env={"PATH": f"{self.folder}:{os.environ['PATH']}"})
        return " ".join(result.stderr.split())

    def test_the_sdk_that_the_sources_are_made_for(self):
        self.assertEqual(self.sdk_check("echo 14.5"), "")

    def test_another_sdk(self):
        for version in ("10.15.6", "14.2", "15.0", "26.1"):
            said = self.sdk_check(f"echo {version}")
            self.assertIn("CMake Warning at", said)
            self.assertIn(f"The macOS SDK is {version}; the sources are made for 14.5", said)

    def test_no_sdk(self):
        self.assertIn("xcrun does not say which macOS SDK there is", self.sdk_check("exit 1"))

    def test_the_version_is_the_one_that_cross_builds_claim(self):
        settings = (ROOT / "platform/macos/sdk/SDKSettings.json").read_text(encoding="utf-8")
        self.assertEqual(json.loads(settings)["Version"], "14.5")
        self.assertIn("set(KELVRIN_SDK_VERSION 14.5)", NATIVE.read_text(encoding="utf-8"))

    def test_missing_packages(self):
        # From project() on, so that the compilers are found as ever.
        nowhere = self.folder / "nowhere.cmake"
        nowhere.write_text("set(CMAKE_FIND_USE_CMAKE_SYSTEM_PATH OFF)\n"
                           "set(CMAKE_FIND_USE_SYSTEM_ENVIRONMENT_PATH OFF)\n")
        cases = (("p11-kit's header", "p11-kit",
                  [f"-DCMAKE_PROJECT_KelvrinToken_INCLUDE={nowhere}"]),
                 ("CLI11", "cli11", ["-DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON"]),
                 ("nlohmann-json", "nlohmann-json",
                  ["-DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON"]))
        for what, brew, options in cases:
            with self.subTest(what):
                result = subprocess.run(
                    ["cmake", "--preset", "release", "-B", self.folder / brew, *options],
                    capture_output=True, text=True, check=False, cwd=ROOT)
                self.assertNotEqual(result.returncode, 0, result.stdout)
                said = " ".join(result.stderr.split())
                self.assertIn(f"{what} is missing; on a Mac: brew install {brew},", said)


if __name__ == "__main__":
    unittest.main()
