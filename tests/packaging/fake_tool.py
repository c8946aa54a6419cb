"""Plays a tool of macOS: notes how it was called, and does as much as the scripts look at.

Every tool on the tests' PATH that Linux lacks runs this file, with its own name in KELVRIN_TOOL.
KELVRIN_FAKES names a folder with plan.json, which says what fails, and calls.jsonl, where each call
becomes a line.
"""

import json
import os
import plistlib
import re
import shutil
import stat
import sys
import zipfile

FOLDER = os.environ["KELVRIN_FAKES"]
TOOL = os.environ["KELVRIN_TOOL"]
ARGUMENTS = sys.argv[1:]
with open(os.path.join(FOLDER, "plan.json"), encoding="utf-8") as file:
    PLAN = json.load(file)


def note(**more):
    with open(os.path.join(FOLDER, "calls.jsonl"), "a", encoding="utf-8") as calls:
        calls.write(json.dumps({"tool": TOOL, "arguments": ARGUMENTS, **more}) + "\n")


def value_of(option):
    return ARGUMENTS[ARGUMENTS.index(option) + 1]


def codesign():
    path = ARGUMENTS[-1]
    if "--verify" in ARGUMENTS:
        note()
        return
    if "--display" in ARGUMENTS:
        note()
        authority = PLAN.get("authority", "Developer ID Application: Ann Example (ABCDE12345)")
        print("Signature=adhoc" if PLAN.get("adhoc") else f"Authority={authority}", file=sys.stderr)
        return
    entitlements = None
    if "--entitlements" in ARGUMENTS:
        with open(value_of("--entitlements"), "rb") as given:
            entitlements = plistlib.load(given)
    note(entitlements=entitlements)
    if os.path.isdir(path):
        seal = os.path.join(path, "Contents", "_CodeSignature")
        os.makedirs(seal, exist_ok=True)
        path = os.path.join(seal, "CodeResources")
    with open(path, "ab") as signed:
        signed.write(b"signed")


def security():
    note()
    for number, name in enumerate(PLAN.get("identities", []), 1):
        print(f'  {number}) {number:040X} "{name}"')


def xcrun():
    note()
    if ARGUMENTS[0] == "--find":
        sys.exit(1 if ARGUMENTS[1] in PLAN.get("not_in_xcode", []) else 0)
    if ARGUMENTS[:2] == ["notarytool", "submit"]:
        with open(ARGUMENTS[2], "rb"):  # it is there
            pass
        print(json.dumps({"id": "4711-id", "status": PLAN.get("notary", "Accepted")}))
        sys.exit(PLAN.get("notary_exit", 0))
    if ARGUMENTS[:2] == ["notarytool", "log"]:
        print("the log says why")
    if ARGUMENTS[:2] == ["stapler", "staple"] and os.path.isdir(ARGUMENTS[2]):
        open(os.path.join(ARGUMENTS[2], "Contents", "CodeResources"), "w").close()


def ditto():
    note()
    source, target = ARGUMENTS[-2:]
    if "-c" not in ARGUMENTS:
        shutil.copytree(source, target, symlinks=True, dirs_exist_ok=True)
        return
    with zipfile.ZipFile(target, "w") as archive:
        archive.write(source, os.path.basename(source))


def pkgbuild():
    if "--analyze" in ARGUMENTS:
        note()
        components = [{"BundleIsRelocatable": True,
                       "RootRelativeBundlePath": os.listdir(value_of("--root"))[0]}]
        with open(ARGUMENTS[-1], "wb") as output:
            plistlib.dump(components, output)
        return
    with open(value_of("--component-plist"), "rb") as given:
        note(components=plistlib.load(given), root=os.listdir(value_of("--root")))
    with open(ARGUMENTS[-1], "w", encoding="utf-8") as output:
        output.write("component")


def productbuild():
    note()
    with open(ARGUMENTS[-1], "w", encoding="utf-8") as output:
        output.write("product")


def plutil():
    note()
    with open(ARGUMENTS[-1], "rb") as given:
        contents = plistlib.load(given)
    if ARGUMENTS[0] != "-replace":
        return
    keys = ARGUMENTS[1].split(".")
    value = ARGUMENTS[3] if ARGUMENTS[2] == "-string" else ARGUMENTS[3] == "YES"
    place = contents
    for key in keys[:-1]:
        place = place[int(key)]
    place[keys[-1]] = value
    with open(ARGUMENTS[-1], "wb") as output:
        plistlib.dump(contents, output)


def xattr():
    note()
    for folder, _, files in os.walk(ARGUMENTS[-1]):
        for name in files:
            path = os.path.join(folder, name)
            if not os.stat(path).st_mode & stat.S_IWUSR:
                sys.exit(f"xattr: [Errno 13] Permission denied: '{path}'")


def uname():
    print(PLAN.get("system", "Darwin"))


def identity():
    print(PLAN.get("user", 501))


def sudo():
    note()
    os.execvp(ARGUMENTS[2], ARGUMENTS[2:])


def fails():
    """Whether the plan has this call fail: by patterns for the whole line."""
    line = " ".join([TOOL, *ARGUMENTS])
    return any(re.search(pattern, line) for pattern in PLAN.get("fail", []))


if fails():
    note(failed=True)
    print(f"{TOOL}: a reason of its own", file=sys.stderr)
    sys.exit(1)
special = {"codesign": codesign, "security": security, "xcrun": xcrun, "ditto": ditto,
           "pkgbuild": pkgbuild, "productbuild": productbuild, "plutil": plutil, "uname": uname,
           "id": identity, "sudo": sudo, "xattr": xattr}
special.get(TOOL, note)()
