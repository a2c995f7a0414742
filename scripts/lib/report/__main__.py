"""Makes the tables and pictures of docs/reports from what the scripts have measured.

  report bench <samples> <folder> [<document> <pictures>]
      prints the figures of a samples file, writes <folder>/results.json and, when they are named,
      the tables of the document and the pictures
  report draw <document> <pictures>
      draws the pictures that the document shows, from its tables; "check" instead of "draw" compares
  report interop <results folder> <document>
      writes the tables of the talks with other CoAP programs
  report put <document> <name> <file>
      writes the text of the file into the document's block <name>

A block is what stands between the lines "<!-- name: begin -->" and "<!-- name: end -->".
"""

import sys

import bench
import drawn
import interop
import page

COMMANDS = {
    ("bench", 2): bench.show,
    ("bench", 4): bench.publish,
    ("draw", 2): drawn.draw,
    ("check", 2): drawn.check,
    ("interop", 2): interop.publish,
    ("put", 3): page.put_file,
}


def main(arguments):
    command = COMMANDS.get((arguments[0] if arguments else "", len(arguments) - 1))
    if command is None:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        command(*arguments[1:])
    except page.NoBlock as missing:
        print(f"report: {missing}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
