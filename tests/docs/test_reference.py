"""The reference is made without a warning, and has a group for each public header.

Skipped (77) where doxygen is not installed.
"""

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


class Reference(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.done = make(folder.name)
        cls.pages = {path.stem: path.read_text(encoding="utf-8")
                     for path in Path(folder.name, "html").glob("*.html")}
        cls.files = {path.name for path in Path(folder.name, "html").iterdir()}

    def group(self, name):
        return self.pages["group__" + name.replace("_", "__")]

    def test_it_is_made_without_a_warning(self):
        self.assertEqual((self.done.returncode, self.done.stdout + self.done.stderr), (0, ""))

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
