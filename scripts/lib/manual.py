"""Manual pages of section 3, made from the comments of the public headers.

    manual.py <version> <date> <folder> <header>...

A page for each header, and for each of its functions one that leads there.
"""

import re
import sys
from pathlib import Path

COMMENT = re.compile(r"^/\*(.*?)\*/\n", re.MULTILINE | re.DOTALL)
FUNCTION = re.compile(r"^(?:COAP_RPC_API|KST_API) [^(;]*?(\w+)\(", re.MULTILINE)
RECORD = re.compile(r"^\} (\w+);|^typedef [^;{]*?\(\*(\w+)\)|^typedef struct \w+ (\w+);", re.MULTILINE)


def plain(comment):
    """The lines of a comment without its stars."""
    return [re.sub(r"^ \*( |$)", "", line).rstrip() for line in comment.strip().split("\n")]


def escaped(text):
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text[:1] in (".", "'") else text


def is_table(line):
    """A line whose place would be lost in a paragraph: of a list, or with columns."""
    return line.startswith((" - ", "  ")) or re.search(r"\S {3,}\S", line) is not None


def body(lines):
    """Paragraphs are filled; tables and lists stay as they are."""
    out, is_literal = [], False
    for line in filter(None, "\n".join(lines).replace("\n\n", "\n.PP\n").split("\n")):
        if line != ".PP" and is_table(line) != is_literal:
            out.append(".fi" if is_literal else ".nf")
            is_literal = not is_literal
        out.append(line if line == ".PP" else escaped(line))
    return out + ([".fi"] if is_literal else [])


def declarations(text):
    """(comment, declarations) of each comment that functions or types follow."""
    for match in COMMENT.finditer(text):
        block = text[match.end():].split("\n\n")[0]
        block = re.sub(r"^(static_assert|COAP_RPC_C_END|KST_C_END|#endif).*\n?", "", block, flags=re.MULTILINE)
        if FUNCTION.search(block) or RECORD.search(block):
            yield plain(match[1]), block.rstrip()


def names_in(block):
    return FUNCTION.findall(block) or [name for found in RECORD.findall(block) for name in found if name]


def entry(comment, block):
    code = [escaped(re.sub(r"^(COAP_RPC|KST)_API ", "", line)) for line in block.split("\n") if line]
    return [f".SS {', '.join(names_in(block))}", ".nf", *code, ".fi", ".PP", *body(comment)]


def page(header, version, date):
    text = header.read_text(encoding="utf-8")
    summary, _, rest = "\n".join(plain(COMMENT.search(text)[1])).partition("\n\n")
    name, _, what = " ".join(summary.split()).partition(".h: ")
    folder = "coap_svc/rpc/" if header.parent.name == "rpc" else ""
    lines = [f".TH {name.upper()} 3 {date} \"coap_svc_rpc {version}\" \"Library Functions\"",
             ".SH NAME", f"{name} \\- {escaped(what.rstrip('.'))}",
             ".SH SYNOPSIS", f".B #include <{folder}{header.name}>",
             ".SH DESCRIPTION", *body(rest.split("\n"))]
    for comment, block in declarations(text):
        lines += entry(comment, block)
    return "\n".join([*lines, ".SH SEE ALSO", ".BR coap_svc_rpc (7)", ""])


def write_pages(version, date, folder, headers):
    folder.mkdir(parents=True, exist_ok=True)
    for header in headers:
        (folder / f"{header.stem}.3").write_text(page(header, version, date), encoding="utf-8")
        for name in FUNCTION.findall(header.read_text(encoding="utf-8")):
            (folder / f"{name}.3").write_text(f".so man3/{header.stem}.3\n", encoding="utf-8")


if __name__ == "__main__":
    write_pages(sys.argv[1], sys.argv[2], Path(sys.argv[3]), [Path(name) for name in sys.argv[4:]])
