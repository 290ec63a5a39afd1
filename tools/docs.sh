#!/bin/sh
# The reference of the public headers as HTML in build/docs/html; fails where a link in a Markdown file
# is dead. Called by ./dev docs and ./dev check, which install what this needs.
set -eu
cd "$(dirname "$0")/.."
mkdir -p build/docs
doxygen docs/Doxyfile
tools/links.py
echo "docs: $PWD/build/docs/html/index.html"
