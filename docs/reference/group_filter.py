#!/usr/bin/env python3
"""Doxygen's input filter: declarations that stand under one comment without a blank line share it.

Usage: group_filter.py HEADER. Writes the header with such paragraphs marked as groups, line numbers kept.
"""
import re
import sys


def is_group(paragraph):
    declarations = [line for line in paragraph if re.search(r";(\s*///<.*)?$", line)]
    return (paragraph[0].lstrip().startswith("///") and len(declarations) > 1
            and not any(re.search(r"[{}]\s*;?$|^\s*(using|namespace)\b", line) for line in paragraph))


def main():
    with open(sys.argv[1], encoding="utf-8") as header:
        lines = header.read().split("\n")
    paragraph = []
    for line in [*lines, ""]:
        if line.strip():
            paragraph.append(line)
            continue
        if paragraph and is_group(paragraph):
            print("\n".join(["/*! @{ */ " + paragraph[0], *paragraph[1:], "/*! @} */"]))
        else:
            print("\n".join([*paragraph, line]))
        paragraph = []


main()
