#!/usr/bin/env python3
"""Names the links in the Markdown files that lead to no file, or to no heading of one."""
import pathlib
import re
import sys


def headings(text):
    return {re.sub(r"[^\w -]", "", heading.lower()).strip().replace(" ", "-")
            for heading in re.findall(r"^#+ (.*)", text, re.M)}


dead = []
for page in [*pathlib.Path(".").glob("*.md"), *pathlib.Path("docs").glob("*.md")]:
    for link in re.findall(r"\]\((?!\w+:)([^)]+)\)", page.read_text("utf-8")):
        path, _, heading = link.partition("#")
        target = page.parent / path if path else page
        if not target.exists() or heading and heading not in headings(target.read_text("utf-8")):
            dead.append(f"{page}: dead link {link}")
sys.exit("\n".join(dead) or 0)
