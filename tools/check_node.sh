#!/bin/sh
# Says early, and clearly, when node or npm is missing or too old for building the page.
set -eu

if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
  echo "The page needs node 20.19 or later (or 22.12 or later), and npm; neither is taken from Debian 12, whose node is 18." >&2
  exit 1
fi
node -e '
  const [major, minor] = process.versions.node.split(".").map(Number);
  process.exit(major > 22 || (major === 22 && minor >= 12) || (major === 20 && minor >= 19) ? 0 : 1);
' || { echo "The page needs node 20.19 or later (or 22.12 or later); this is $(node --version)." >&2; exit 1; }
