"""What the slices of a Mach-O file bind, beside what macOS exports."""
import csv
import pathlib
import subprocess

TABLE = pathlib.Path(__file__).with_name("macos-exports.tsv")
COLUMNS = {"x86_64": "10.14 x86_64", "arm64": "11 arm64"}


def objdump(path, *options):
    """What llvm-objdump says about a file."""
    command = ["llvm-objdump-19", "--macho", *options, str(path)]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def bound_pairs(path, architecture):
    """The pairs (library, symbol) that dyld binds in one slice, at once or when first called."""
    pairs = set()
    table = None
    for line in objdump(path, f"--arch={architecture}", "--bind", "--lazy-bind").splitlines():
        fields = line.split()
        if line.endswith("ind table:"):
            table = line
        elif line.startswith("__") and table:
            # A lazy bind has no type and no addend; "(weak import)" may follow a name.
            library, symbol = fields[3:5] if table.startswith("Lazy") else fields[5:7]
            pairs.add((library, symbol))
    return pairs


def read_exports():
    """(library, symbol) -> row of the table."""
    with TABLE.open(encoding="utf-8") as lines:
        rows = csv.DictReader((l for l in lines if not l.startswith("#")), delimiter="\t",
                              restval="", quoting=csv.QUOTE_NONE)
        return {(row["library"], row["symbol"]): row for row in rows}


def wrong_bindings(path, exports):
    """A line for every pair that macOS would not bind, over all slices."""
    wrong = []
    for architecture, column in COLUMNS.items():
        for library, symbol in sorted(bound_pairs(path, architecture)):
            row = exports.get((library, symbol))
            if row is None:
                wrong.append(f"{architecture}: {library} {symbol}: not in {TABLE.name}")
            elif row[column] != "yes":
                wrong.append(f"{architecture}: {library} {symbol}: {row[column]}, "
                             f"home {row['home']} {row['note']}")
    return wrong
