"""What the binaries of the macOS build are, as text without addresses, sizes and identifiers, to be
compared with the texts in expected/.

    listing.py BUILD    takes the build's texts for the expected ones, and shows what changed
"""
import difflib
import pathlib
import re
import struct
import sys

import bundle
from bindings import COLUMNS, bound_pairs, objdump

EXPECTED = pathlib.Path(__file__).with_name("expected")
EXTENSION = "KelvrinToken.app/Contents/PlugIns/KelvrinToken.appex/Contents/"
BINARIES = {
    "extension": EXTENSION + "MacOS/KelvrinToken",
    "application": "KelvrinToken.app/Contents/MacOS/KelvrinToken",
    "adapter": EXTENSION + "Resources/libpkcs11qarn_Lindel_PCSC.dylib",
    "second_name": EXTENSION + "Resources/libpkcs11qarn_Vumo_PCSC.dylib",
    "modulecheck": "bin/modulecheck",
}
CPU_TYPES = {"x86_64": 0x01000007, "arm64": 0x0100000C}


def slice_bytes(path, architecture):
    """The bytes of a slice of a universal file."""
    content = path.read_bytes()
    count, = struct.unpack_from(">I", content, 4)
    slices = [struct.unpack_from(">5I", content, 8 + 20 * number) for number in range(count)]
    offset, size = next(part[2:4] for part in slices if part[0] == CPU_TYPES[architecture])
    return content[offset:offset + size]


def blocks(lines):
    """The load commands and, behind each segment, its sections: each a dictionary of its lines."""
    found = []
    for line in lines:
        if line.startswith(("Load command", "Section")):
            found.append({})
        elif found:
            line = line.strip().replace("compatibility version", "compatibility_version")
            key, _, value = line.partition(" ")
            found[-1].setdefault(key, re.sub(r" \(offset \d+\)$", "", value.strip()))
    return found


def entry(path, architecture, commands, offset):
    """Where a program begins: in a stub of what another library has, or in its own code."""
    base = next(int(command["vmaddr"], 16) for command in commands
                if command.get("segname") == "__TEXT" and "vmaddr" in command)
    stubs = [line.split() for line in objdump(path, architecture, "--indirect-symbols")]
    names = [words[2] for words in stubs
             if words[0].startswith("0x") and int(words[0], 16) == base + offset]
    return f"the stub of {names[0]}" if names else "own code"


def load_commands(path, architecture):
    lines = objdump(path, architecture, "--private-headers")
    yield "file " + " ".join(lines[2].split()[4:5] + lines[2].split()[7:])
    commands = blocks(lines)
    for command in commands:
        kind = command.get("cmd")
        if kind is None:
            if re.search("INIT|TERM|INTERPOSING", command["type"]):
                yield f"  {command['sectname']} {command['type']}"  # runs without being called
        elif kind == "LC_SEGMENT_64":
            yield f"segment {command['segname']} {command['initprot']} of {command['maxprot']}"
        elif kind == "LC_MAIN":
            yield f"{kind} " + entry(path, architecture, commands, int(command["entryoff"]))
        else:
            kept = [f"{key} {command[key]}" for key in
                    ("name", "path", "platform", "minos", "sdk", "compatibility_version")
                    if key in command]
            yield " ".join([kind, *kept])


def objective_c(path, architecture):
    """Classes and categories with their methods, instance variables, properties and protocols."""
    before, name, superclass, sign, adopts = "", "", "", "-", False
    for line in objdump(path, architecture, "--objc-meta-data"):
        key, *rest = line.split()
        value = " ".join(rest[1:])
        if line.startswith("Contents of"):
            in_list = "classlist" in line or "catlist" in line
        elif not in_list:
            continue
        elif line == "Meta Class":
            sign = "+"
        elif not line.startswith((" ", "\t")):
            sign, adopts = "-", False  # the next class or category
        elif key == "superclass":
            superclass = value.replace("_OBJC_CLASS_$_", "")
        elif key.startswith("list["):
            adopts = True
        elif key in ("ivars", "baseProperties"):
            adopts = False
        elif key == "name":
            name = value
            if before == "ivarLayout" and sign == "-":
                yield f"class {name} : {superclass}"
            elif before.startswith("0000"):
                yield f"category ({name})"
            elif before == "isa" and sign == "-":
                yield f"  adopts {name}"
        elif key in ("types", "type", "attributes") and not (adopts and sign == "+"):
            kind = {"types": sign, "type": "ivar", "attributes": "property"}[key]
            yield f"  {'  ' if adopts else ''}{kind} {name} {value}"
        before = key


def log_formats(path, architecture):
    """The formats of the log lines, which the system reads from a section of their own."""
    for section in blocks(objdump(path, architecture, "--private-headers")):
        if section.get("sectname") == "__oslogstring":
            start = int(section["offset"])
            text = slice_bytes(path, architecture)[start:start + int(section["size"], 16)]
            for line in sorted(text.decode().split("\0")[:-1]):
                yield 'log "' + line.replace("\n", "\\n") + '"'


def slice_lines(path, architecture):
    """All that is said about a slice, in this order."""
    yield from load_commands(path, architecture)
    yield from (" ".join(("import", *pair)).rstrip()
                for pair in sorted(bound_pairs(path, architecture)))
    yield from sorted({f"shared {line.split()[5]}" for line in objdump(
        path, architecture, "--weak-bind") if line.startswith("__")})
    yield from (f"export {line.split()[1]}" for line in sorted(
        objdump(path, architecture, "--exports-trie")) if line.startswith("0x"))
    for line in objective_c(path, architecture):
        # A function list is a list of pointers to functions.
        yield re.sub(r"(\^\?){2,}", lambda match: f"[{len(match[0]) // 2}^?]", line)
    yield from log_formats(path, architecture)


def listing(path):
    """Both slices: lines that only one has begin with its name."""
    slices = {name: list(slice_lines(path, name)) for name in COLUMNS}
    first, second = slices.values()
    lines = []
    for tag, a, b, c, d in difflib.SequenceMatcher(None, first, second, False).get_opcodes():
        if tag == "equal":
            lines += first[a:b]
        else:
            lines += [f"x86_64| {line}" for line in first[a:b]]
            lines += [f"arm64| {line}" for line in second[c:d]]
    return "\n".join(lines) + "\n"


def difference(name, got):
    """The lines in which a text differs from the expected one."""
    file = EXPECTED / f"{name}.txt"
    expected = file.read_text(encoding="utf-8") if file.exists() else ""
    return "\n".join(difflib.unified_diff(expected.splitlines(), got.splitlines(),
                                          f"expected/{name}.txt", "built", n=0, lineterm=""))


def texts(build):
    """All that is compared, by the names of the expected texts."""
    found = {name: listing(build / path) for name, path in BINARIES.items()}
    return found | {"bundle": bundle.listing(build / "KelvrinToken.app")}


if __name__ == "__main__":
    for text_name, text in texts(pathlib.Path(sys.argv[1])).items():
        print("".join(f"{line}\n" for line in difference(text_name, text).splitlines()), end="")
        (EXPECTED / f"{text_name}.txt").write_text(text, encoding="utf-8")
