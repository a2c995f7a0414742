"""The reference is made without a warning, and has a group for each public header.

Skipped (77) where doxygen is not installed.
"""

import html.parser
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
INCLUDES = TOP / "coap_server/include"
GROUP = re.compile(r"^@defgroup (\w+) ", re.MULTILINE)
CLASS = re.compile(r"^/\* [^/]*\*/\n(?:template <[^\n]*>\n)?(?:class|struct)(?: \[\[nodiscard\]\])? (\w+)",
                   re.MULTILINE)


def make(folder):
    """What doxygen says; its warnings are errors."""
    settings = (TOP / "docs/Doxyfile").read_text(encoding="utf-8")
    return subprocess.run(["doxygen", "-"], input=f"{settings}\nOUTPUT_DIRECTORY = {folder}\n", cwd=TOP,
                          check=False, capture_output=True, text=True)


class Page(html.parser.HTMLParser):
    """What a page links to, and the places in it that can be linked to."""

    def __init__(self, text):
        super().__init__()
        self.links, self.places = [], set()
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        self.links += [value for name, value in attrs if name in ("href", "src") and value]
        self.places |= {value for name, value in attrs if name in ("id", "name") and value}


class Reference(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.done = make(folder.name)
        cls.pages = {path.stem: path.read_text(encoding="utf-8")
                     for path in Path(folder.name, "html").glob("*.html")}
        html_folder = Path(folder.name, "html")
        cls.files = {str(path.relative_to(html_folder)) for path in html_folder.rglob("*")}

    def group(self, name):
        return self.pages["group__" + name.replace("_", "__")]

    def test_it_is_made_without_a_warning(self):
        self.assertEqual((self.done.returncode, self.done.stdout + self.done.stderr), (0, ""))

    def test_each_link_leads_somewhere(self):
        pages = {name: Page(text) for name, text in self.pages.items()}
        dead = set()
        for name, page in pages.items():
            for link in (link for link in page.links if ":" not in link):
                file, _, place = link.partition("#")
                target = file.removesuffix(".html") if file else name
                if file and file not in self.files or place and place not in pages[target].places:
                    dead.add((name, link))
        self.assertEqual(dead, set())

    def test_the_start_page_leads_to_each_group(self):
        for name in GROUP.findall((TOP / "docs/reference.dox").read_text(encoding="utf-8")):
            self.assertIn(f'href="group__{name.replace("_", "__")}.html"', self.pages["index"])
            self.assertIn("memItemRight", self.group(name))

    def test_each_function_is_in_a_group(self):
        groups = "".join(text for stem, text in self.pages.items() if stem.startswith("group__"))
        for header in (INCLUDES / "coap_svc/rpc").glob("*.h"):
            for name in re.findall(r"^COAP_RPC_API [^(;]*?(\w+)\(", header.read_text(encoding="utf-8"), re.MULTILINE):
                self.assertIn(f">{name}</a>", groups, header.name)

    def test_classes_of_the_cpp_headers_are_in_their_group(self):
        group, names = self.group("coap_rpc_cpp"), []
        for header in (INCLUDES / "coap_svc/rpc/cpp").glob("*.hpp"):
            names += CLASS.findall(header.read_text(encoding="utf-8"))
        self.assertGreaterEqual(len(names), 20)
        self.assertEqual([name for name in names if f">coaprpc::{name}" not in group], [])

    def test_their_inside_is_left_out(self):
        self.assertEqual([stem for stem in self.pages if "detail" in stem], [])

    def test_documents_are_pages_with_their_pictures(self):
        for name in ("interface", "cpp", "troubleshooting"):
            self.assertIn(name, self.pages)
        for picture in re.findall(r"\(pictures/([\w-]+\.svg)\)",
                                  (TOP / "docs/interface.md").read_text(encoding="utf-8")):
            self.assertIn(picture, self.files)


if __name__ == "__main__":
    if not shutil.which("doxygen"):
        print("skipped: there is no doxygen (scripts/make-reference installs it)")
        sys.exit(77)
    unittest.main()
