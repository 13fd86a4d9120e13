#!/usr/bin/env python3
"""Compares the language reference with the vocabulary that the library has.

A statement is a row | `FORM` | TYPES | ... of a table whose first column is headed Statement. FORM is its name, <T> or
<T, U> if it takes a type, and the catalogue's words for its arguments. TYPES is "-" for a statement without a type,
"none" for one that nothing carries out, else names of types and of groups. A group is a row | GROUP | `TYPE`, ... |
"""

import argparse
import re
import subprocess
import sys

STATEMENT = re.compile(r"\| `([A-Za-z]+)(<T>|<T, U>|)( [^`]*)?` \| ([^|]*) \|")
GROUP = re.compile(r"\| ([a-z]+) \| ((?:`[A-Za-z0-9_]+`(?:, )?)+) \|")


def read_vocabulary(program):
    """name -> (arguments, the set of type names, or None for a statement without a type)"""
    output = subprocess.run([program], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True).stdout
    rows = (line.split("\t") for line in output.splitlines())
    return {name: (arguments.split(), None if types == "untyped" else set(types.split()) - {"none"})
            for name, arguments, types in rows}


def expand(types, groups):
    names = set()
    for name in types.split(", "):
        names |= groups.get(name, {name.strip("`")})
    return names


def read_reference(path):
    """The same as read_vocabulary, out of the document, and the rows that stand there twice."""
    groups, statements, twice = {"none": set()}, {}, []
    of_statements = False
    for line in open(path, encoding="utf-8"):
        of_statements = line.startswith("|") and (of_statements or line.startswith("| Statement |"))
        match = STATEMENT.match(line) if of_statements else None
        if match:
            name, typed, arguments, types = match.groups()
            if name in statements:
                twice.append(name)
            # A row without a type and one that nothing carries out differ in the third column alone.
            has_types = typed != "" or types == "none"
            statements[name] = ((arguments or "").replace(",", " ").split(),
                                expand(types, groups) if has_types else None)
        elif match := GROUP.match(line):
            groups[match[1]] = set(re.findall(r"`([^`]+)`", match[2]))
    return statements, twice


def describe(entry):
    arguments, types = entry
    return f"arguments: {', '.join(arguments) or 'none'}; types: {'-' if types is None else ' '.join(sorted(types)) or 'none'}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("vocabulary", help="the program that prints the vocabulary")
    parser.add_argument("reference", help="docs/language.md")
    options = parser.parse_args()

    vocabulary = read_vocabulary(options.vocabulary)
    reference, twice = read_reference(options.reference)
    faults = [f"{name} stands there twice" for name in twice]
    faults += [f"{name} is missing" for name in vocabulary if name not in reference]
    faults += [f"{name} is no statement" for name in reference if name not in vocabulary]
    faults += [f"{name}\n  reference  {describe(reference[name])}\n  library    {describe(vocabulary[name])}"
               for name in vocabulary if name in reference and reference[name] != vocabulary[name]]
    for fault in faults:
        print(f"{options.reference}: {fault}")
    print(f"{len(vocabulary)} statements, {len(faults)} faults")
    return 1 if faults or not vocabulary else 0


if __name__ == "__main__":
    sys.exit(main())
