"""size.py <prefix>: the stripped libraries are not larger than README.md says."""

import re
import subprocess
import sys
import tempfile
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
BOUND = re.compile(r"`(lib\w+)\.so`, less than ([\d,]+) KiB")


def stripped_size(library):
    with tempfile.NamedTemporaryFile() as file:
        subprocess.run(["strip", "-o", file.name, library], check=True)
        return Path(file.name).stat().st_size


def problems(prefix):
    bounds = dict(BOUND.findall((TOP / "README.md").read_text(encoding="utf-8")))
    if set(bounds) != {"libcoap_svc_rpc", "libkestrel"}:
        yield f"README.md has other bounds: {bounds}"
    for name, bound in bounds.items():
        size, limit = stripped_size(next(prefix.glob(f"lib*/**/{name}.so.*.*"))), int(bound.replace(",", ""))
        if not limit * 1024 / 2 < size < limit * 1024:
            yield f"{name} has {size / 1024:.0f} KiB; README.md says less than {limit}"


if __name__ == "__main__":
    FOUND = list(problems(Path(sys.argv[1]).resolve()))
    print("\n".join(FOUND))
    sys.exit(1 if FOUND else 0)
