#!/usr/bin/env python3
"""Makes the links of the guides work in the HTML, and checks all links there.

Usage: docs_links.py prepare FOLDER   changes the copies of the guides in a folder, before Doxygen
       docs_links.py check HTML REPO  copies the files that guides link to; fails where a link is dead
"""
import html
import os
import re
import shutil
import sys

GUIDES = ["README.md", "CHANGELOG.md", "CONTRIBUTING.md", "docs/design.md", "docs/performance.md",
          "docs/porting.md", "docs/recipes.md"]
FILES = "files"  # where the HTML has the other files of the repository, as texts


def identifier(guide, heading):
    """Of a section, for Doxygen, which knows all sections by one name."""
    slug = re.sub(r"[^\w -]", "", heading.lower()).strip().replace(" ", "-")
    return os.path.basename(guide)[:-len(".md")].lower() + "-" + slug


def prepare(folder):
    for guide in GUIDES:
        path = os.path.join(folder, guide)

        def link(match, guide=guide):
            text = match[1]
            target, _, anchor = match[2].partition("#")
            if re.match(r"\w+:|img/", target):
                return match[0]
            target = os.path.normpath(os.path.join(os.path.dirname(guide), target)) if target else guide
            if anchor:
                return f"[{text}](#{identifier(target, anchor)})"
            known = target in GUIDES or target.startswith("src/base/") and target.endswith(".h")
            return f"[{text.strip('`')}](@ref {target})" if known else \
                f"[{text}]({FILES}/{target}.txt)"

        with open(path, encoding="utf-8") as stream:
            parts = re.split(r"(^```.*?^```$)", stream.read(), flags=re.M | re.S)
        for i in range(0, len(parts), 2):  # Every other part is code.
            parts[i] = re.sub(r"\[([^]]*)\]\(([^)\s]+)\)", link, parts[i])
            parts[i] = re.sub(r"^(##+) (.*)$",
                              lambda m, guide=guide: f"{m[0]} {{#{identifier(guide, m[2])}}}",
                              parts[i], flags=re.M)
            if guide == "README.md":
                parts[i] = re.sub(r"^\| `(\w+)(\([^`]*\))`", r'| @ref qv_btree_\1 "\1\2"', parts[i],
                                  flags=re.M)
        with open(path, "w", encoding="utf-8") as stream:
            stream.write("".join(parts))


def check(folder, repository):
    anchors = {}
    for name in os.listdir(folder):
        if name.endswith(".html"):
            with open(os.path.join(folder, name), encoding="utf-8") as stream:
                text = stream.read()
            anchors[name] = set(re.findall(r'(?:id|name)="([^"]+)"', text)), text
    dead = []
    for name, (_, text) in sorted(anchors.items()):
        for link in re.findall(r'(?:href|src)="([^"]+)"', text):
            target, _, anchor = html.unescape(link).partition("#")
            if re.match(r"\w+:|\$", target):
                continue
            if target.startswith(FILES + "/"):
                source = os.path.join(repository, target[len(FILES) + 1:-len(".txt")])
                os.makedirs(os.path.dirname(os.path.join(folder, target)), exist_ok=True)
                if os.path.isfile(source):
                    shutil.copyfile(source, os.path.join(folder, target))
            target = target or name
            if not os.path.exists(os.path.join(folder, target)) or \
                    anchor and target in anchors and anchor not in anchors[target][0]:
                dead.append(f"{name}: {link}")
    if dead:
        sys.exit("dead links:\n" + "\n".join(dead))


if __name__ == "__main__":
    {"prepare": prepare, "check": check}[sys.argv[1]](*sys.argv[2:])
