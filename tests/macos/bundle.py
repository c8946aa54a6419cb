"""What the bundle holds beside code, and what its signatures entitle it to, as text."""
import os
import pathlib
import plistlib

SOURCE = pathlib.Path(__file__).resolve().parents[2]


def flat(value, path=""):
    """The leaves of a property list, each with the keys that lead to it."""
    if isinstance(value, dict):
        for key in sorted(value):
            yield from flat(value[key], f"{path}/{key}")
    elif isinstance(value, list):
        for number, member in enumerate(value):
            yield from flat(member, f"{path}[{number}]")
    else:
        yield f"  {path} = {value!r}"


def property_list(file):
    return list(flat(plistlib.loads(file.read_bytes())))


def configuration(file):
    """The lines of the adapter's configuration that say something."""
    lines = file.read_text(encoding="utf-8").splitlines()
    return [f"  {line}" for line in lines if line and not line.startswith("#")]


def entitlements():
    """What sign.sh entitles the extension and the application to, which no build carries."""
    for file in sorted((SOURCE / "resources").glob("*.entitlements")):
        yield str(file.relative_to(SOURCE))
        yield from property_list(file)


def listing(application):
    """Every file, with a star when it may be run; what property lists and configurations say; the
    entitlements."""
    lines = []
    for file in sorted(path for path in application.rglob("*")
                       if path.is_symlink() or not path.is_dir()):
        kind = " -> " + os.readlink(file) if file.is_symlink() else ""
        runs = "" if file.suffix == ".dylib" or not os.access(file, os.X_OK) else " *"
        lines.append(f"{file.relative_to(application)}{kind}{runs}")
        if file.suffix == ".plist":
            lines += property_list(file)
        elif file.suffix == ".conf":
            lines += configuration(file)
    return "\n".join([*lines, *entitlements()]) + "\n"
