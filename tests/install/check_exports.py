#!/usr/bin/env python3
"""Fails when libbelvane.so exports a name its public headers do not declare.

Every exported symbol is demangled and reduced to the name it belongs to
(the class of a member, type information or vtable; the function or
constant itself); that name must appear in include/belvane. A class kept
internal, a helper that lost its hidden visibility or standard-library
template code compiled into the library shows up here by name.

    check_exports.py LIBRARY INCLUDE_DIR
"""
import pathlib
import re
import subprocess
import sys

PREFIXES = ("typeinfo name for ", "typeinfo for ", "vtable for ", "VTT for ",
            "non-virtual thunk to ", "virtual thunk to ")
# What the toolchain puts in every shared object.
TOOLCHAIN = {"_init", "_fini", "__bss_start", "_edata", "_end"}


def owner(demangled):
    for prefix in PREFIXES:
        if demangled.startswith(prefix):
            demangled = demangled[len(prefix):]
            break
    if demangled.startswith("belvane::"):
        demangled = demangled[len("belvane::"):]
    match = re.match(r"[A-Za-z_]\w*", demangled)
    return match.group(0) if match else demangled


def main():
    library, include_dir = sys.argv[1], pathlib.Path(sys.argv[2])
    declared = set()
    for header in include_dir.glob("*.h"):
        text = header.read_text()
        # Comments and forward declarations name what the headers do not offer.
        text = re.sub(r"//[^\n]*|/\*.*?\*/", "", text, flags=re.S)
        text = re.sub(r"^\s*(class|struct) \w+;", "", text, flags=re.M)
        declared.update(re.findall(r"[A-Za-z_]\w*", text))
    out = subprocess.run(["nm", "-D", "--defined-only", "--demangle", library],
                         check=True, capture_output=True, text=True).stdout
    names = [line.split(" ", 2)[2] for line in out.splitlines() if line.count(" ") >= 2]
    unexpected = sorted({n for n in names if n not in TOOLCHAIN and owner(n) not in declared})
    for required in ("bv_player_create", "BVMasterPlayer::create()"):
        if not any(n.startswith(required) for n in names):
            unexpected.append(f"(missing) {required}")
    if unexpected:
        print(f"{len(unexpected)} unexpected exports of {library}:")
        print("\n".join(unexpected[:50]))
        return 1
    print(f"{len(names)} exported symbols, all declared in {include_dir}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
