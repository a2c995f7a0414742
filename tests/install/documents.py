"""documents.py <prefix>: every link of the installed documents leads to an installed file, and their
programs are those of the checkout."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "docs"))
from test_links import FENCE, TOP, dead_links, files_below, prose_of  # noqa: E402

LEAST_DOCUMENTS = 15


def programs_of(path):
    return FENCE.findall(path.read_text(encoding="utf-8"))


def origin_of(document):
    """The document of the checkout."""
    folder = next(folder for folder in document.parents if (folder / "README.md").exists())
    return TOP / document.relative_to(folder)


def main(prefix):
    documents = [path for path in files_below(prefix) if path.suffix == ".md"]
    names = {path.name for path in documents}
    if len(documents) < LEAST_DOCUMENTS or not {"README.md", "CHANGELOG.md"} <= names:
        return [f"documents are missing: {sorted(names)}"]
    dead = [f"{path}: {link}" for path in documents for link in dead_links(path)]
    dead += [f"{path}: other programs" for path in documents if programs_of(path) != programs_of(origin_of(path))]
    if not any("include/coap_svc/rpc/coap_rpc_ext.h" in prose_of(path) for path in documents):
        dead.append("no document leads to an installed header")
    if not any(path.suffix == ".svg" for path in files_below(prefix)):
        dead.append("no picture is installed")
    return dead


if __name__ == "__main__":
    PROBLEMS = main(Path(sys.argv[1]).resolve())
    print("\n".join(PROBLEMS))
    sys.exit(1 if PROBLEMS else 0)
