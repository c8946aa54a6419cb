"""Plays a tool of macOS: notes how it was called, and does as much as the scripts look at.

Every tool on the tests' PATH that Linux lacks runs this file, with its own name in KELVRIN_TOOL.
KELVRIN_FAKES names a folder with plan.json, which says what fails, and calls.jsonl, where each call
becomes a line. It is started so often that it imports only what a tool needs.
"""
# pylint: disable=import-outside-toplevel
import json
import os
import sys

FOLDER = os.environ["KELVRIN_FAKES"]
TOOL = os.environ["KELVRIN_TOOL"]
ARGUMENTS = sys.argv[1:]
with open(os.path.join(FOLDER, "plan.json"), encoding="utf-8") as plan:
    PLAN = json.load(plan)


def note(**more):
    with open(os.path.join(FOLDER, "calls.jsonl"), "a", encoding="utf-8") as calls:
        calls.write(json.dumps({"tool": TOOL, "arguments": ARGUMENTS, **more}) + "\n")


def value_of(option):
    return ARGUMENTS[ARGUMENTS.index(option) + 1]


def read_plist(path):
    import plistlib
    with open(path, "rb") as file:
        return plistlib.load(file)


def write_plist(path, contents):
    import plistlib
    with open(path, "wb") as file:
        plistlib.dump(contents, file)


def write(path, text, mode="w"):
    with open(path, mode, encoding="utf-8") as file:
        file.write(text)


def codesign():
    path = ARGUMENTS[-1]
    if "--sign" not in ARGUMENTS:
        note()
        if "--display" in ARGUMENTS:
            authority = PLAN.get("authority", "Developer ID Application: Ann Example (ABCDE12345)")
            print("Signature=adhoc" if PLAN.get("adhoc") else f"Authority={authority}",
                  file=sys.stderr)
        return
    entitlements = "--entitlements" in ARGUMENTS and read_plist(value_of("--entitlements")) or None
    note(entitlements=entitlements)
    if os.path.isdir(path):
        seal = os.path.join(path, "Contents", "_CodeSignature")
        os.makedirs(seal, exist_ok=True)
        path = os.path.join(seal, "CodeResources")
    write(path, "signed", "a")


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
        write(os.path.join(ARGUMENTS[2], "Contents", "CodeResources"), "")


def ditto():
    note()
    source, target = ARGUMENTS[-2:]
    if "-c" in ARGUMENTS:
        write(target, f"archive of {source}")
        return
    import shutil
    shutil.copytree(source, target, symlinks=True, dirs_exist_ok=True)


def pkgbuild():
    if "--analyze" in ARGUMENTS:
        note()
        write_plist(ARGUMENTS[-1], [{"BundleIsRelocatable": True,
                                     "RootRelativeBundlePath": os.listdir(value_of("--root"))[0]}])
        return
    note(components=read_plist(value_of("--component-plist")), root=os.listdir(value_of("--root")))
    write(ARGUMENTS[-1], "component")


def productbuild():
    note(requirements=read_plist(value_of("--product")))
    write(ARGUMENTS[-1], "product")


def plutil():
    note()
    contents = read_plist(ARGUMENTS[-1])
    if ARGUMENTS[0] != "-replace":
        return
    *keys, last = ARGUMENTS[1].split(".")
    place = contents
    for key in keys:
        place = place[int(key)]
    place[last] = ARGUMENTS[3] if ARGUMENTS[2] == "-string" else ARGUMENTS[3] == "YES"
    write_plist(ARGUMENTS[-1], contents)


def xattr():
    note()
    for folder, _, files in os.walk(ARGUMENTS[-1]):
        for name in files:
            path = os.path.join(folder, name)
            if not os.stat(path).st_mode & 0o200:
                sys.exit(f"xattr: [Errno 13] Permission denied: '{path}'")


def sudo():
    note()
    os.execvp(ARGUMENTS[2], ARGUMENTS[2:])


def fails():
    """Whether the plan has this call fail: by patterns for the whole line."""
    import re
    line = " ".join([TOOL, *ARGUMENTS])
    return any(re.search(pattern, line) for pattern in PLAN["fail"])


if PLAN.get("fail") and fails():
    note(failed=True)
    print(f"{TOOL}: a reason of its own", file=sys.stderr)
    sys.exit(1)
special = {"codesign": codesign, "security": security, "xcrun": xcrun, "ditto": ditto,
           "pkgbuild": pkgbuild, "productbuild": productbuild, "plutil": plutil, "sudo": sudo,
           "xattr": xattr, "uname": lambda: print(PLAN.get("system", "Darwin")),
           "id": lambda: print(PLAN.get("user", 501))}
special.get(TOOL, note)()
