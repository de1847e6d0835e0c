#!/usr/bin/env python3
"""Fails the build when a layer includes a header of a layer it may not use.

    check_layers.py LAYERS_FILE SOURCE_ROOT STAMP

LAYERS_FILE has a line per layer, lowest first:
    <layer> <folder> uses=<layer>,<layer> headers=<public header>,...
A file belongs to the layer whose folder holds it; a public header
(include/belvane/...) to the layer that lists it. Every #include of a file
of another layer must name one the including layer uses.
"""
import pathlib
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.M)


def main():
    layers_file, root, stamp = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
    folders, uses, header_layer = {}, {}, {}
    for line in pathlib.Path(layers_file).read_text().splitlines():
        if not line.strip():
            continue
        name, folder, *fields = line.split()
        options = dict(field.split("=", 1) for field in fields)
        folders[folder] = name
        uses[name] = {u for u in options.get("uses", "").split(",") if u}
        for header in filter(None, options.get("headers", "").split(",")):
            header_layer["belvane/" + header] = name

    def layer_of_include(name):
        if name in header_layer:
            return header_layer[name]
        for folder, layer in folders.items():
            prefix = folder.split("/", 1)[1] + "/" if folder.startswith("src/") else folder + "/"
            if name.startswith(prefix) and (root / folder / name[len(prefix):]).exists():
                return layer
        return None

    problems = []
    files = [(p, layer) for folder, layer in folders.items() for p in sorted((root / folder).rglob("*"))
             if p.suffix in (".cpp", ".h")]
    files += [(root / "include" / h, layer) for h, layer in header_layer.items()]
    for path, layer in files:
        for match in INCLUDE.finditer(path.read_text(errors="replace")):
            other = layer_of_include(match.group(1))
            if other and other != layer and other not in uses[layer]:
                problems.append(f"{path.relative_to(root)}: the {layer} layer includes {match.group(1)} "
                                f"of the {other} layer, which it may not use")
    listed = set(header_layer)
    for header in sorted((root / "include" / "belvane").glob("*.h")):
        if "belvane/" + header.name not in listed:
            problems.append(f"include/belvane/{header.name}: a public header no layer lists")
    if problems:
        print("\n".join(problems), file=sys.stderr)
        return 1
    stamp.write_text("ok\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
