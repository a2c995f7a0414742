"""The version is one number, wherever it is stated, and docs/versioning.md names what carries it."""

import re
import unittest
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]


def text_of(name):
    return (TOP / name).read_text(encoding="utf-8")


def project_version():
    return re.search(r"^project\(.* VERSION ([\d.]+)", text_of("CMakeLists.txt"), re.MULTILINE)[1]


class Versions(unittest.TestCase):
    def test_changelog_begins_with_the_projects_version(self):
        headings = re.findall(r"^## (.*)$", text_of("CHANGELOG.md"), re.MULTILINE)
        self.assertRegex(headings[0], rf"^{re.escape(project_version())} \((not yet released|\d{{4}}-\d\d-\d\d)\)$")

    def test_versions_of_the_changelog_fall(self):
        headings = re.findall(r"^## ([\d.]+) ", text_of("CHANGELOG.md"), re.MULTILINE)
        numbers = [tuple(map(int, heading.split("."))) for heading in headings]
        self.assertEqual(numbers, sorted(set(numbers), reverse=True))

    def test_sonames_have_the_major_version(self):
        major = project_version().split(".")[0]
        for library in ("coap_svc_rpc", "kestrel", "coap_svc_debug"):
            self.assertIn(f"`lib{library}.so.{major}`", text_of("docs/versioning.md"))
        for folder in ("coap_server", "platform"):
            self.assertRegex(text_of(f"{folder}/CMakeLists.txt"), r"SOVERSION \$\{PROJECT_VERSION_MAJOR\}")


if __name__ == "__main__":
    unittest.main()
