"""Links between the documents lead to something, and so does each mention of a file."""

import functools
import os
import re
import tempfile
import unittest
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
NOT_OURS = {"build", ".git", ".cache"}
FENCE = re.compile(r"^```.*?^```", re.MULTILINE | re.DOTALL)
CODE = re.compile(r"`[^`\n]*`")
LINK = re.compile(r"\]\(([^()\s]+)\)")
HEADING = re.compile(r"^#+ +(.*?) *$", re.MULTILINE)
ANCHOR = re.compile(r"<a id=\"([^\"]+)\"></a>")
MENTION = re.compile(r"\bdocs/[a-z_/]+\.(?:md|svg|dot)\b")
SOURCE = re.compile(r"\b(?:coap_rpc|test_coap_rpc)_[a-z0-9_]+\.(?:h|cpp|c)\b")
PROGRAM = re.compile(r"`((?:contract|fault|fuzz|hostile|netfault|regress|test|wire)_[a-z0-9_]+)`")
PATH = re.compile(r"`((?:[\w.-]+/)+[\w.-]*)`")
ROOTS = [TOP, TOP / "coap_server/src/coap_svc/rpc", TOP / "third_party/libcoap"]


def files_below(folder):
    for path, folders, names in os.walk(folder):
        folders[:] = [name for name in folders if name not in NOT_OURS]
        yield from (Path(path, name) for name in names)


@functools.cache
def prose_of(document):
    return FENCE.sub("", document.read_text(encoding="utf-8"))


def slug(heading):
    """The anchor that viewers of Markdown give a heading."""
    words = re.sub(r"[`*]|\]\([^)]*\)|\[", "", heading).lower()
    return re.sub(r"[^\w\- ]", "", words).replace(" ", "-")


@functools.cache
def anchors_of(document):
    prose = prose_of(document)
    return {slug(heading) for heading in HEADING.findall(prose)} | set(ANCHOR.findall(prose))


def leads_nowhere(document, link):
    path, _, anchor = link.partition("#")
    target = (document.parent / path).resolve() if path else document
    return not target.exists() or bool(anchor) and anchor not in anchors_of(target)


def dead_links(document):
    links = LINK.findall(CODE.sub("", prose_of(document)))
    return [link for link in links if "://" not in link and leads_nowhere(document, link)]


def exists(root, path):
    """A file may be named without its extension."""
    return (root / path).exists() or any(root.glob(path + ".*"))


def missing_paths(document):
    """Paths in code marks whose first folder is one of ours, and that lead to nothing."""
    paths = [path for path in PATH.findall(prose_of(document))
             if path.split("/")[0] not in NOT_OURS]
    ours = [path for path in paths if any((root / path.split("/")[0]).is_dir() for root in ROOTS)]
    return [path for path in ours if not any(exists(root, path) for root in ROOTS)]


def texts_below(folder):
    """Files that are text, with their contents."""
    for path in files_below(folder):
        try:
            yield path, path.read_text(encoding="utf-8")
        except UnicodeDecodeError:
            pass


class Links(unittest.TestCase):
    def test_every_document_of_the_tree(self):
        documents = [path for path in files_below(TOP) if path.suffix == ".md"]
        self.assertIn(TOP / "README.md", documents)
        dead = {str(path): dead_links(path) for path in documents if dead_links(path)}
        self.assertEqual(dead, {})

    def test_mentions_in_sources_and_scripts(self):
        stale = {f"{path}: {name}" for path, text in texts_below(TOP)
                 for name in MENTION.findall(text) if not (TOP / name).exists()}
        self.assertEqual(stale, set())


    def test_paths_in_documents(self):
        # The headings of result codes are fixed texts.
        documents = [path for path in files_below(TOP)
                     if path.suffix == ".md" and path.name != "error_codes.md"]
        missing = {str(path): missing_paths(path) for path in documents if missing_paths(path)}
        self.assertEqual(missing, {})

    def test_names_of_programs_in_documents(self):
        stems = {path.stem for path in files_below(TOP)}
        stale = {f"{path}: {name}" for path in files_below(TOP) if path.suffix == ".md"
                 for name in PROGRAM.findall(prose_of(path)) if name not in stems}
        self.assertEqual(stale, set())

    def test_names_of_source_files(self):
        names = {path.name for path in files_below(TOP)}
        stale = {f"{path}: {name}" for path, text in texts_below(TOP) if path != Path(__file__)
                 for name in SOURCE.findall(text) if name not in names}
        self.assertEqual(stale, set())


def misplaced(row):
    """Functions of a row of docs/road.md that no file of the row names; files of a family as `..._x.cpp`."""
    files = re.findall(r"`((?:init|server|client|libadapter)/[\w/]+\.cpp)`", row)
    files += [re.sub(r"\.cpp$", end, files[-1]) for end in re.findall(r"`\.\.\.(_\w+\.cpp)`", row) if files]
    files += [re.sub(r"_[a-z]+\.cpp$", end, files[0]) for end in re.findall(r"`\.\.\.(_\w+\.cpp)`", row) if files]
    texts = [(ROOTS[1] / path).read_text(encoding="utf-8") for path in files if (ROOTS[1] / path).exists()]
    names = re.findall(r"`([A-Z]\w+)`", row) if texts else []
    return [name for name in names if not any(re.search(rf"\b{name}\b", text) for text in texts)]


class Road(unittest.TestCase):
    def test_functions_are_where_their_rows_say(self):
        rows = [row for row in (TOP / "docs/road.md").read_text(encoding="utf-8").splitlines() if row.startswith("|")]
        self.assertEqual([(row, misplaced(row)) for row in rows if misplaced(row)], [])

    def test_a_function_elsewhere_is_found(self):
        row = "| 1 | `COAP_RpcProcIo` | `init/coap_rpc_cli.cpp` |"
        self.assertEqual(misplaced(row), ["COAP_RpcProcIo"])

    def test_no_table_is_torn(self):
        gap = re.compile(r"^(\|[^\n]*)\n\n\|[^\n]*\n(?!\|[-|: ]+\n)", re.MULTILINE)
        torn = [(path.name, row) for path in files_below(TOP) if path.suffix == ".md"
                for row in gap.findall(prose_of(path))]
        self.assertEqual(torn, [])


class Checker(unittest.TestCase):
    def dead_of(self, text, find=dead_links):
        with tempfile.TemporaryDirectory() as folder:
            document = Path(folder, "here.md")
            document.write_text(text, encoding="utf-8")
            Path(folder, "there.md").write_text("# A `b`, c-d\n<a id=\"e\"></a>\n", encoding="utf-8")
            return find(document)

    def test_missing_path(self):
        text = "`docs/road.md` `docs/road` `tests/gone.md` `libadapter/gone/` `build/x.h` `option/s`"
        self.assertEqual(self.dead_of(text, missing_paths), ["tests/gone.md", "libadapter/gone/"])

    def test_missing_file(self):
        self.assertEqual(self.dead_of("[a](there.md) ![b](gone.svg)"), ["gone.svg"])

    def test_missing_anchor(self):
        self.assertEqual(self.dead_of("[a](there.md#a-b-c-d) [b](there.md#e) [c](there.md#f)"),
                         ["there.md#f"])

    def test_anchor_of_the_same_document(self):
        self.assertEqual(self.dead_of("## One two\n[a](#one-two) [b](#two)"), ["#two"])

    def test_code_and_addresses_are_no_links(self):
        self.assertEqual(self.dead_of("`[a](b)` [c](https://d/e)\n```\n[f](g)\n```\n"), [])


if __name__ == "__main__":
    unittest.main()
