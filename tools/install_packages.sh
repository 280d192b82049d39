#!/bin/sh
# Installs the Debian packages that a purpose needs, when any is missing: install_packages.sh build|arm|check|test
set -eu

build="ca-certificates g++ cmake ninja-build ccache pkg-config libcjson-dev libboost1.81-dev libboost-json1.81-dev
       libsqlite3-dev libutf8proc-dev libabsl-dev libbitstream-dev libxml2-dev libmpv-dev libturbojpeg0-dev libavformat-dev
       libavcodec-dev libavutil-dev libswscale-dev libexif-dev libgupnp-1.6-dev libgupnp-av-1.0-dev zlib1g-dev tzdata ffmpeg
       libgtest-dev libgmock-dev"
# A foreign library's own C library comes with it; the emulator needs the C++ runtime as well.
arm="g++ cmake ninja-build ccache pkg-config g++-arm-linux-gnueabihf qemu-user libcjson-dev:armhf libstdc++6:armhf
     libgtest-dev:armhf libgmock-dev:armhf"
check="clang clang-tidy clang-format binutils iproute2 util-linux libwebsockets-dev"
test="libclang-rt-14-dev llvm valgrind chromium firefox-esr bash-completion curl ffmpeg dtv-scan-tables exif minidlna
      forensics-samples-files libtest-corpus-audio-mpd-perl golang-github-rwcarlsen-goexif-dev gnome-user-docs asc-music
      gdk-pixbuf-tests"
# What may have come from elsewhere, and is then left as it is.
command -v python3 >/dev/null || build="$build python3" arm="$arm python3"
{ command -v node && command -v npm; } >/dev/null || build="$build nodejs npm"

case "${1-}" in
  build) wanted=$build ;;
  arm) wanted=$arm ;;
  check) wanted="$build $check" ;;
  test) wanted="$build $arm $check $test" ;;
  *) echo "usage: $0 build|arm|check|test" >&2; exit 2 ;;
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
as_root="env DEBIAN_FRONTEND=noninteractive"  # sudo passes no environment on
if [ "$(id -u)" != 0 ]; then
  command -v sudo >/dev/null || { echo "There is no sudo here: install them as root." >&2; exit 1; }
  as_root="sudo $as_root"
fi
apt_get="$as_root apt-get -o DPkg::Lock::Timeout=590 -qq --no-install-recommends -y"
[ -z "$foreign" ] || $as_root dpkg --add-architecture "$foreign"
# An installation that was interrupted is brought to its end first, as far as that needs no download.
$as_root dpkg --configure -a >/dev/null 2>&1 || true
# One archive's list that is out of step must not stop what the others have: whether it matters, the installation tells.
$apt_get update || echo "Some package lists could not be fetched; installing from those that could." >&2
$apt_get --fix-broken install >/dev/null
# shellcheck disable=SC2086
$apt_get install $missing >/dev/null
