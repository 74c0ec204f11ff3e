#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks that docs/hosts.md and the ports agree: every header of platform/ has a row in the table of
what is tested, every contract file is in it, every port of the host has its place in the order in
which a host is written, and no port has a default body, which a new host would silently inherit.

usage: check_page.py SOURCE_FOLDER
"""

import pathlib
import re
import sys

def table_rows(page, heading):
    """The cells of the table whose first column is called `heading`."""
    rows = []
    in_table = False
    for line in page.splitlines():
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if not line.startswith("|"):
            in_table = False
        elif cells[0] == heading:
            in_table = True
        elif in_table and not set(cells[0]) <= set("- "):
            rows.append(cells)
    return rows


def named(cell):
    return re.findall(r"`([^`]+)`", cell)


def problems_of_headers(source, page):
    rows = table_rows(page, "header")
    listed = [name for row in rows for name in named(row[0])]
    headers = {path.name for path in (source / "platform").glob("*.h")}
    for name in sorted(headers - set(listed)):
        yield f"platform/{name} has no row in the table of docs/hosts.md"
    for name in listed:
        if name not in headers:
            yield f"docs/hosts.md lists {name}, which platform/ does not have"
        if listed.count(name) > 1:
            yield f"docs/hosts.md lists {name} more than once"
    tests = [name for row in rows for cell in row[1:] for name in named(cell)]
    files = {path.name for path in (source / "tests/contract").glob("*_contract.cpp")}
    for name in sorted(files - set(tests)):
        yield f"tests/contract/{name} is not in the table of docs/hosts.md"
    for name in tests:
        known = source / name if "/" in name else source / "tests/contract" / name
        if not known.exists():
            yield f"docs/hosts.md names {name}, which is not there"


def problems_of_ports(source, page):
    host = (source / "platform/host.h").read_text()
    ports = re.findall(r"^  (\w+)& \w+;", host, re.M)
    if not ports:
        yield "platform/host.h lists no ports"
    mentioned = set(re.findall(r"\w+", " ".join(row[0] for row in table_rows(page, "port"))))
    for port in ports:
        if port not in mentioned:
            yield f"docs/hosts.md does not say when a host needs {port}"


def problems_of_bodies(source):
    for path in sorted((source / "platform").glob("*.h")):
        code = re.sub(r"//[^\n]*", "", path.read_text())
        for declaration in re.findall(r"\bvirtual\b[^;{]*[;{]", code):
            is_pure = re.search(r"=\s*0\s*;$", declaration)
            if "~" not in declaration and not is_pure:
                yield f"platform/{path.name} has a default body: {' '.join(declaration.split())}"


def main():
    source = pathlib.Path(sys.argv[1])
    page = (source / "docs/hosts.md").read_text()
    problems = [
        *problems_of_headers(source, page),
        *problems_of_ports(source, page),
        *problems_of_bodies(source),
    ]
    for problem in problems:
        print(problem)
    sys.exit(1 if problems else 0)


main()
