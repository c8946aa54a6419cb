"""docs/macos.md: tells every line of the log as the sources have it, and nothing that is not so."""

import plistlib
import re
import unittest

from fixture import PACKAGING, ROOT

GUIDE = (ROOT / "docs" / "macos.md").read_text(encoding="utf-8")
# A picture begins with a mark.
LINK = r"(?<!!)\[[^\]]*\]\((.*?)\)"
PICTURE = r"!\[([^\]]*)\]\((.*?)\)"
LITERAL = r'"(?:[^"\\\n]|\\.)*"'
TYPES = {"os_log": "default", "os_log_info": "info", "os_log_debug": "debug",
         "os_log_error": "error", "os_log_fault": "fault"}


def sources():
    """The sources of the extension, by name."""
    files = [path for room in ("token", "p11") for path in sorted((ROOT / room).glob("*.*"))
             if path.suffix in (".mm", ".cpp", ".h") and "_test." not in path.name]
    return {f"{path.parent.name}/{path.name}": path.read_text(encoding="utf-8") for path in files}


def log_lines(text):
    """The formats in a source with their types; None for one that cannot be read."""
    found = []
    for call in re.finditer(r"\b(os_log\w*)\s*\(", text):
        if call[1] == "os_log_type_enabled":
            continue
        format_ = re.match(r"OS_LOG_DEFAULT,\s*(%s)\s*[,)]" % LITERAL, text[call.end():])
        found.append((format_[1] if format_ else None, TYPES.get(call[1], call[1])))
    return found


def all_log_lines():
    """Each format with the types that it is logged with, as the table has them."""
    lines = {}
    for text in sources().values():
        for format_, type_ in log_lines(text):
            lines.setdefault(format_, set()).add(type_)
    return {format_: ", ".join(sorted(types)) for format_, types in lines.items()}


def failed_calls():
    """What the sources pass as the failed call's name."""
    names = set()
    for file, text in sources().items():
        for call in re.finditer(r"\bp11_(?:error|warn)\((%s|[^\"]*?)," % LITERAL, text):
            if call[1].startswith('"'):
                names.add(call[1].strip('"'))
            elif call[1] not in ("const char* what", "search.init_call", "search.find_call"):
                raise AssertionError(f"{file}: a name that cannot be read: {call[1]}")
    searches = sources()["p11/key_search.cpp"]
    return names | set(re.findall(r'"(C_FindObjects(?:Init)?: \w+)"', searches))


def localised(key, language):
    """The extension's text in a language."""
    strings = ROOT / "resources" / f"{language}.lproj" / "Localizable.strings"
    return re.search(rf'^"{key}" = "(.*)";$', strings.read_text(encoding="utf-8"), re.MULTILINE)[1]


def rows(heading):
    """The rows of the first table under a heading, as lists of cells."""
    section = re.split(r"^#+ ", GUIDE.split(f"# {heading}\n", 1)[1], flags=re.MULTILINE)[0]
    table = re.search(r"(?:^\|.*\n)+", section, re.MULTILINE)[0].splitlines()
    return [[cell.strip() for cell in row.strip("|").split("|")] for row in table[2:]]


class LogTest(unittest.TestCase):
    def test_every_line_can_be_read(self):
        for file, text in sources().items():
            self.assertNotIn(None, [format_ for format_, _ in log_lines(text)], file)
        self.assertGreater(len(all_log_lines()), 40)
        self.assertGreater(len(failed_calls()), 30)

    def test_the_table_has_every_line_with_its_type_and_no_other(self):
        table = {cells[0].strip("`"): cells[1] for cells in rows("Every line of the log")}
        self.maxDiff = None
        self.assertEqual(table, all_log_lines())

    def test_every_line_is_told_once_with_meaning_and_advice(self):
        table = rows("Every line of the log")
        lines = [cells[0] for cells in table]
        self.assertEqual(len(lines), len(set(lines)))
        for cells in table:
            self.assertEqual(len(cells), 4, cells)
            self.assertTrue(all(cells), cells)

    def test_the_failed_calls_are_all_told_and_no_other(self):
        told = [name for cells in rows("Failed calls") for name in re.findall("`(.*?)`", cells[0])]
        self.assertEqual(sorted(told), sorted(failed_calls()))

    def test_the_texts_of_errors_are_all_told_and_no_other(self):
        told = [cells[1].strip("`") for cells in rows("What programs are told")]
        session = sources()["token/TokenSession.mm"]
        texts = re.findall(r'@"([^"]* [^"]*\.)"', session)
        for key in re.findall(r'localizedStringForKey:@"(\w+)"', session):
            texts += [localised(key, language) for language in ("de", "en")]
        self.assertEqual(sorted(told), sorted(texts))

    def test_the_codes_of_errors_are_those_that_the_extension_gives(self):
        numbers = dict(re.findall(r"(TKErrorCode\w+) = (-\d)", (
            ROOT / "platform/include/CryptoTokenKit/TKBase.h").read_text(encoding="utf-8")))
        given = set()
        for file, text in sources().items():
            if file.startswith("token/"):
                given |= {numbers[name].replace("-", "−")
                          for name in re.findall(r"\bTKErrorCode\w+", text) if name in numbers}
        self.assertEqual({cells[0] for cells in rows("What programs are told")}, given)

    def test_the_codes_names_are_those_that_the_log_knows(self):
        known = sources()["p11/result_names.cpp"]
        told = [name for cells in rows("Result codes") for name in (cells[1], cells[3])]
        self.assertEqual(len(told), len(set(told)))
        for name in told:
            self.assertIn(name, known)


class GuideTest(unittest.TestCase):
    def test_the_profile_shows_private_data_and_nothing_else(self):
        profile = plistlib.loads(re.search(r"```xml\n(.*?)```", GUIDE, re.DOTALL)[1].encode())
        self.assertEqual(profile["PayloadType"], "Configuration")
        payload, = profile["PayloadContent"]
        self.assertEqual(payload["PayloadType"], "com.apple.system.logging")
        self.assertEqual(payload["System"], {"Enable-Private-Data": True})
        self.assertNotEqual(payload["PayloadUUID"], profile["PayloadUUID"])

    def test_the_scripts_are_all_told_and_take_the_options_that_it_gives_them(self):
        commands = re.findall(r"^packaging/(\S+)((?:.*\\\n)*.*)", GUIDE, re.MULTILINE)
        self.assertEqual({script for script, _ in commands},
                         {path.name for path in PACKAGING.glob("*.sh")} - {"common.sh"})
        for script, line in commands:
            text = (PACKAGING / script).read_text(encoding="utf-8")
            for option in re.findall(r" (--\w+)", line.split("#")[0]):
                self.assertRegex(text, rf"(?m)^ +{option}\)", script)

    def test_links_lead_somewhere(self):
        headings = re.findall(r"^#+ (.*)$", GUIDE, re.MULTILINE)
        anchors = {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
                   for heading in headings}
        for link in re.findall(LINK, GUIDE):
            if link.startswith("#"):
                self.assertIn(link[1:], anchors)
            else:
                self.assertTrue((ROOT / "docs" / link).exists(), link)

    def test_the_pages_in_the_application_lead_to_no_others(self):
        rules = (ROOT / "app" / "CMakeLists.txt").read_text(encoding="utf-8")
        pages = re.search(r"foreach\(page (.*)\)", rules)[1].split()
        self.assertIn("macos", pages)
        for page in pages:
            text = (ROOT / "docs" / f"{page}.md").read_text(encoding="utf-8")
            for link in re.findall(LINK, text):
                if not link.startswith("#"):
                    self.assertIn(link.split("#")[0].removesuffix(".md"), pages, page)

    def test_pictures_are_told_in_words_where_they_cannot_be_seen(self):
        pictures = {file: words for words, file in re.findall(PICTURE, GUIDE)}
        self.assertEqual(sorted(pictures),
                         ["pictures/window-ready.png", "pictures/window-report.png"])
        for file, words in pictures.items():
            self.assertGreater(len(words.split()), 10, file)
            self.assertTrue((ROOT / "docs" / file).exists(), file)

    def test_the_identifiers_are_the_projects(self):
        bundles = (ROOT / "cmake" / "KelvrinBundle.cmake").read_text(encoding="utf-8")
        for identifier in set(re.findall(r"org\.kelvrin\.KelvrinToken(?:\.extension)?\b", GUIDE)):
            self.assertIn(identifier, bundles)


if __name__ == "__main__":
    unittest.main()
