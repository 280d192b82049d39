#!/bin/sh
# Installs the Debian packages that a purpose needs, when any is missing: install_packages.sh build|test
set -eu

build="g++ cmake ninja-build ccache pkg-config libcjson-dev libwebsockets-dev libboost1.81-dev libboost-json1.81-dev
       libsqlite3-dev libgtest-dev libgmock-dev"
test="clang libclang-rt-14-dev llvm chromium bash-completion binutils curl"

case "${1-}" in
  build) wanted=$build ;;
  test) wanted="$build $test" ;;
  *) echo "usage: $0 build|test" >&2; exit 2 ;;
esac

missing=
for package in $wanted; do
  dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

echo "Installing$missing"
as_root=
[ "$(id -u)" = 0 ] || as_root=sudo
export DEBIAN_FRONTEND=noninteractive
$as_root apt-get -o DPkg::Lock::Timeout=590 -qq update
# shellcheck disable=SC2086
$as_root apt-get -o DPkg::Lock::Timeout=590 -qq --no-install-recommends -y install $missing >/dev/null
