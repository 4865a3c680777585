#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the lists of what the library exports.

usage: make_def.py HEADER VERSION_SCRIPT
       make_def.py HEADER NM LOG4CPLUS_ARCHIVE ALL_DEF C_DEF      for Windows

VERSION_SCRIPT: the functions of the public header, and nothing else.
ALL_DEF: the functions of the public header, and log4cplus's C functions and C++ classes.
C_DEF: the C functions alone, as an import library for other compilers needs them.
"""
import pathlib
import re
import subprocess
import sys

LOG4CPLUS_CLASSES = re.compile(r"_Z(N|NK|TV|TI|TS|TT|TVN|TIN|TSN|TTN)+9log4cplus")


def declared(header):
    """The names of the functions that the public header declares."""
    text = re.sub(r"/\*.*?\*/", "", pathlib.Path(header).read_text(encoding="utf-8"), flags=re.S)
    return set(re.findall(r"KELSYNC_API\b[^;]*?\bKELSYNC_CALL\s+(\w+)\s*\(", text))


def symbols(nm, archive):
    """The external symbols that an archive defines, with their types, as C names them."""
    lines = subprocess.run([nm, "-g", "--defined-only", archive], check=True, capture_output=True,
                           text=True).stdout.splitlines()
    found = dict(reversed(line.split()[1:]) for line in lines if len(line.split()) == 3)
    underscore = "_log4cplus_initialize" in found  # 32-bit symbols have one more than the names in C
    return {name[underscore:]: kind for name, kind in found.items()}


def write_version_script(header, script):
    functions = declared(header)
    if not functions:
        raise SystemExit("make_def: no functions in the header")
    lines = "".join("    %s;\n" % name for name in sorted(functions))
    pathlib.Path(script).write_text("{\n  global:\n%s  local:\n    *;\n};\n" % lines, encoding="ascii")


def write_definitions(header, nm, archive, all_def, c_def):
    functions = declared(header)
    log = symbols(nm, archive)
    log_functions = {name for name, kind in log.items() if kind == "T" and name.startswith("log4cplus_")}
    if not functions or not log_functions:
        raise SystemExit("make_def: no functions in the header, or none in log4cplus")
    c_lines = sorted(functions | log_functions)
    class_lines = sorted(name + (" DATA" if kind in "RDBrdb" else "") for name, kind in log.items()
                         if LOG4CPLUS_CLASSES.match(name))
    start = "LIBRARY kelsyncpair.dll\nEXPORTS\n"
    pathlib.Path(c_def).write_text(start + "".join("  %s\n" % line for line in c_lines), encoding="ascii")
    pathlib.Path(all_def).write_text(start + "".join("  %s\n" % line for line in c_lines + class_lines),
                                     encoding="ascii")


if __name__ == "__main__":
    write_version_script(*sys.argv[1:]) if len(sys.argv) == 3 else write_definitions(*sys.argv[1:])
