"""What the slices of a Mach-O file bind, beside what macOS exports."""
import csv
import functools
import pathlib
import re
import subprocess

TABLE = pathlib.Path(__file__).with_name("macos-exports.tsv")
COLUMNS = {"x86_64": "10.14 x86_64", "arm64": "11 arm64"}
STUBS = pathlib.Path(__file__).resolve().parents[2] / "platform/macos/sdk"


def objdump(path, architecture, *options):
    """The lines that llvm-objdump says about a slice, without those that name the file."""
    command = ["llvm-objdump-19", "--macho", f"--arch={architecture}", *options, str(path)]
    said = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    return [line for line in said.splitlines() if line and not line.startswith(str(path))]


def bound_pairs(path, architecture):
    """What dyld binds in a slice, at once or at the first call: (library, symbol, how)."""
    pairs = set()
    for option, place in (("--bind", 5), ("--lazy-bind", 3)):
        for line in objdump(path, architecture, option):
            if line.startswith("__"):
                library, symbol, *how = line.split()[place:]
                pairs.add((library, symbol, " ".join(how)))
    return pairs


@functools.cache
def exports():
    """(library, symbol) -> row of the table."""
    with TABLE.open(encoding="utf-8") as lines:
        rows = csv.DictReader((line for line in lines if not line.startswith("#")),
                              delimiter="\t", restval="", quoting=csv.QUOTE_NONE)
        return {(row["library"], row["symbol"]): row for row in rows}


def wrong_pair(architecture, library, symbol):
    """What is wrong with binding a symbol to a library, or nothing."""
    row = exports().get((library, symbol))
    if row is None:
        return f"{architecture}: {library} {symbol}: not in {TABLE.name}"
    if row[COLUMNS[architecture]] != "yes":
        return (f"{architecture}: {library} {symbol}: {row[COLUMNS[architecture]]}, "
                f"home {row['home']} {row['note']}")
    return ""


def wrong_bindings(path):
    """A line for every pair that macOS would not bind, over all slices."""
    found = [wrong_pair(architecture, library, symbol) for architecture in COLUMNS
             for library, symbol, _ in sorted(bound_pairs(path, architecture))]
    return [line for line in found if line]


def wrong_offers(stub):
    """A line for every symbol that a link stub offers and macOS does not have."""
    text = stub.read_text(encoding="utf-8")
    library = re.search(r"install-name: *'.*/([^./]+)[^/]*'", text)[1]
    found = []
    for part in text.split("- targets:")[1:]:
        names = [(kind, name) for kind, names in re.findall(r"([\w-]+): *\[([^]]*)\]", part)
                 for name in names.replace(",", " ").split()]
        for kind, name in names:
            symbol = f"_OBJC_CLASS_$_{name}" if kind == "objc-classes" else name
            found += [wrong_pair(architecture, library, symbol) for architecture in COLUMNS
                      if architecture in part.splitlines()[0]]
    return [line for line in found if line]
