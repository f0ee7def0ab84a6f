"""Holds every folder of src/ to the USES line of its CMakeLists.txt."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1] / "src"
INCLUDE = re.compile(r'^#include "([a-z0-9_]+)/', re.MULTILINE)


def allowed(folder: pathlib.Path) -> set[str]:
    text = (folder / "CMakeLists.txt").read_text()
    uses = text[text.index("USES"):]
    return {folder.name, *re.findall(r"notifypi_([a-z]+)", uses)}


def main() -> int:
    faults = []
    for folder in sorted(path for path in ROOT.iterdir() if path.is_dir()):
        names = allowed(folder)
        for source in sorted(folder.glob("*.[ch]*")):
            for name in INCLUDE.findall(source.read_text()):
                if name not in names:
                    faults.append(f"{source.relative_to(ROOT.parent)} includes {name}/, "
                                  f"which src/{folder.name}/CMakeLists.txt does not name")
    print("\n".join(faults), end="\n" if faults else "")
    return 1 if faults else 0


sys.exit(main())
