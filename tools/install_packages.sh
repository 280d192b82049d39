#!/bin/sh
# Installs the Debian packages that a purpose needs, when any is missing: install_packages.sh build|arm|test
set -eu

build="g++ cmake ninja-build ccache pkg-config libcjson-dev libwebsockets-dev libboost1.81-dev libboost-json1.81-dev
       libsqlite3-dev libabsl-dev tzdata libgtest-dev libgmock-dev"
# A foreign library's own C library comes with it; the emulator needs the C++ runtime as well.
arm="g++ cmake ninja-build ccache pkg-config g++-arm-linux-gnueabihf qemu-user libcjson-dev:armhf libstdc++6:armhf
     libgtest-dev:armhf libgmock-dev:armhf"
test="clang clang-tidy clang-format libclang-rt-14-dev llvm valgrind chromium bash-completion binutils curl
      iproute2 util-linux"

case "${1-}" in
  build) wanted=$build ;;
  arm) wanted=$arm ;;
  test) wanted="$build $arm $test" ;;
  *) echo "usage: $0 build|arm|test" >&2; exit 2 ;;
esac

missing=
foreign=
for package in $wanted; do
  dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' && continue
  missing="$missing $package"
  case $package in *:*) foreign=${package#*:} ;; esac
done
[ -n "$missing" ] || exit 0

echo "Installing$missing"
as_root=
[ "$(id -u)" = 0 ] || as_root=sudo
export DEBIAN_FRONTEND=noninteractive
[ -z "$foreign" ] || $as_root dpkg --add-architecture "$foreign"
# One archive's list that is out of step must not stop what the others have: whether it matters, the installation tells.
$as_root apt-get -o DPkg::Lock::Timeout=590 -qq update ||
  echo "Some package lists could not be fetched; installing from those that could." >&2
# shellcheck disable=SC2086
$as_root apt-get -o DPkg::Lock::Timeout=590 -qq --no-install-recommends -y install $missing >/dev/null
