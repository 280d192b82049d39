#!/bin/sh
# The node that builds and tests the page: the machine's own where it is new enough, else one from npm in build/node.
#   node.sh install   installs that one when it is needed; wants a node of any age, and npm
#   node.sh path      prints its folder, which comes first in PATH; the folder need not exist
set -eu

folder=$(cd "$(dirname "$0")/.." && pwd)/build/node
bin=node_modules/.bin

# Whether the node at hand satisfies "engines" in web/package.json.
is_new_enough() {
  node -e '
    const [major, minor] = process.versions.node.split(".").map(Number);
    process.exit(major > 22 || (major === 22 && minor >= 12) || (major === 20 && minor >= 19) ? 0 : 1);
  ' 2>/dev/null
}

case "${1-}" in
  path) echo "$folder/$bin" ;;
  install)
    PATH=$folder/$bin:$PATH
    is_new_enough && exit 0
    rm -rf "$folder" "$folder.new"
    echo "Installing node 22 in build/node, since this machine's $(node --version) is too old"
    mkdir -p "$folder.new"
    # An interrupted installation leaves nothing that looks whole.
    npm install --prefix "$folder.new" --no-audit --no-fund --loglevel=error node@22 >/dev/null
    mv "$folder.new" "$folder"
    hash -r  # the shell remembers where it found node
    is_new_enough || { echo "node 22 from npm does not run here; install node 20.19 or later, or 22.12 or later." >&2; exit 1; }
    ;;
  *) echo "usage: $0 install|path" >&2; exit 2 ;;
esac
