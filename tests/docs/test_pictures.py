"""The pictures of docs/pictures are what their texts make, and each is shown in a document."""

import re
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
PICTURES = TOP / "docs/pictures"
sys.path.insert(0, str(TOP / "scripts/lib"))
import sequence  # noqa: E402

TALK = "title t\nparty a A\nparty b B\n"
SVG = "{http://www.w3.org/2000/svg}"


def drawn(text):
    return xml.etree.ElementTree.fromstring(sequence.svg(TALK + text))


def texts(svg):
    return [element.text for element in svg.iter(SVG + "text")]


class Pictures(unittest.TestCase):
    def test_are_what_their_texts_make(self):
        done = subprocess.run([TOP / "scripts/make-pictures", "--check"], check=False,
                              capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""))

    def test_each_has_a_text(self):
        stems = [{path.stem for path in PICTURES.glob("*" + suffix)} for suffix in (".txt", ".svg")]
        self.assertEqual(*stems)

    def test_each_is_shown(self):
        documents = [TOP / "README.md", *(TOP / "docs").glob("*.md")]
        shown = {name for path in documents
                 for name in re.findall(r"!\[[^]]+\]\((?:docs/)?pictures/([\w-]+)\.svg\)",
                                        path.read_text(encoding="utf-8"))}
        self.assertEqual({path.stem for path in PICTURES.glob("*.svg")} - shown, set())

    def test_each_is_well_formed_and_no_text_leaves_it(self):
        for path in PICTURES.glob("*.svg"):
            root = xml.etree.ElementTree.parse(path).getroot()
            for element in root.iter(SVG + "text"):
                x, width = float(element.get("x")), len(element.text) * sequence.CHAR_WIDTH
                left = x - width / 2 if element.get("text-anchor") == "middle" else x
                self.assertGreaterEqual(left, 0, (path.name, element.text))
                self.assertLessEqual(left + width, float(root.get("width")), (path.name, element.text))


class Checking(unittest.TestCase):
    def check(self, change):
        with tempfile.TemporaryDirectory() as folder:
            source = Path(folder, "x.txt")
            source.write_text(TALK + "a -> b: hello\n", encoding="utf-8")
            self.assertEqual(sequence.publish(source, False), "")
            change(source)
            return sequence.publish(source, True)

    def test_same_text_is_right(self):
        self.assertEqual(self.check(lambda source: None), "")

    def test_other_text_is_wrong(self):
        said = self.check(lambda source: source.write_text(TALK + "a -> b: bye\n", encoding="utf-8"))
        self.assertIn("x.svg is not what x.txt makes", said)

    def test_no_picture_is_wrong(self):
        self.assertIn("is not what", self.check(lambda source: source.with_suffix(".svg").unlink()))


class Drawing(unittest.TestCase):
    def arrow(self, text):
        """Where the first message begins and ends."""
        line = next(element for element in drawn(text).iter(SVG + "line")
                    if element.get("y1") == element.get("y2"))
        return float(line.get("x1")), float(line.get("x2"))

    def test_messages_go_from_sender_to_receiver(self):
        begin, end = self.arrow("a -> b: x\n")
        self.assertLess(begin, end)
        begin, end = self.arrow("b -> a: x\n")
        self.assertGreater(begin, end)

    def test_lost_message_does_not_arrive(self):
        self.assertLess(self.arrow("a -x b: x\n")[1], self.arrow("a -> b: x\n")[1])

    def test_long_message_has_room(self):
        begin, end = self.arrow("a -> b: " + "x" * 60 + "\n")
        self.assertGreater(end - begin, 60 * sequence.CHAR_WIDTH)

    def test_lines_and_marks_of_xml_are_text(self):
        self.assertEqual(texts(drawn("do a: 1 < 2|& 'so'\n"))[3:5], ["1 < 2", "& 'so'"])

    def test_legend_names_what_is_there(self):
        self.assertNotIn("the library calls your program", texts(drawn("do a: x\n")))
        self.assertIn("the library calls your program", texts(drawn("app a: x\n")))

    def test_wrong_texts(self):
        for text in ("a -> c: x\n", "a -> b\n", "nothing\n", "do c: x\n", "group g: c\n", ""):
            with self.assertRaises(sequence.Wrong, msg=text):
                sequence.svg(TALK + text)


if __name__ == "__main__":
    unittest.main()
