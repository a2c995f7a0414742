"""Markdown tables, and the blocks of a document that a script writes."""

import time


class NoBlock(Exception):
    """The document has no such block."""


def measured_today():
    return f"Measured on {time.strftime('%Y-%m-%d')}.\n\n"


def table(rows, aligned=True):
    """The first row is the head.  An aligned table can be read as plain text too."""
    widths = [max(3, *map(len, column)) if aligned else 0 for column in zip(*rows)]
    lines = [" | ".join(cell.ljust(width) for cell, width in zip(row, widths)) for row in rows]
    rule = "|" + "|".join("-" * (width + 2 if aligned else 3) for width in widths) + "|"
    lines = [f"| {line} |" for line in lines]
    return "\n".join([lines[0], rule, *lines[1:]]) + "\n"


def replace(text, name, block):
    """The text with the contents of one of its blocks replaced."""
    begin, end = f"<!-- {name}: begin -->\n", f"<!-- {name}: end -->"
    head, found_begin, rest = text.partition(begin)
    _, found_end, tail = rest.partition(end)
    if not found_begin or not found_end:
        raise NoBlock(f"no block {name}")
    return head + begin + block + end + tail


def put(document, blocks):
    """Writes all blocks, or none when the document lacks one of them."""
    with open(document, encoding="utf-8") as file:
        text = file.read()
    for name, block in blocks.items():
        try:
            text = replace(text, name, block)
        except NoBlock as missing:
            raise NoBlock(f"{document}: {missing}") from None
    with open(document, "w", encoding="utf-8") as file:
        file.write(text)


def put_file(document, name, path):
    with open(path, encoding="utf-8") as file:
        put(document, {name: file.read()})
