#!/bin/sh
# The public headers and the guides as HTML in build/docs/html, and a map as the source of today draws
# it, in build/docs/tree.svg. Called by ./dev docs and ./dev check, which install what this needs.
set -eu
cd "$(dirname "$0")/.."
output=$PWD/build/docs
rm -rf "$output"
mkdir -p "$output"
g++ -std=c++17 -Isrc/base tools/draw_tree.cpp platform/std/hal_memory.cpp -o "$output/draw"
"$output/draw" >"$output/tree.svg"

# Doxygen resolves no link between guides in a folder whose path has a space, so it works on a copy.
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
trap 'exit 1' HUP INT TERM
repository=$PWD
cp -R README.md CHANGELOG.md CONTRIBUTING.md docs src "$copy"
python3 tools/docs_links.py prepare "$copy"
(cd "$copy" && doxygen docs/Doxyfile)
mv "$copy/html" "$output"
python3 tools/docs_links.py check "$output/html" "$repository"
echo "docs: $output/html/index.html"
