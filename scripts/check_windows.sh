#!/usr/bin/env bash
# Compiles every library source as the Windows build would see it (_WIN32, Winsock 2, DllMain),
# with the MinGW-w64 cross compiler in syntax-only mode: the Windows branch cannot be built or
# run here, but this keeps it compiling. Qt's and pugixml's Linux headers stand in for the
# Windows ones. Installs the cross compiler when it is missing (Debian, as root).
set -euo pipefail
cd "$(dirname "$0")/.."
cxx=x86_64-w64-mingw32-g++-posix
if ! command -v "$cxx" >/dev/null; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends g++-mingw-w64-x86-64-posix
fi
qt=$(pkg-config --variable=includedir Qt5Core 2>/dev/null || echo /usr/include/x86_64-linux-gnu/qt5)
# pugixml's headers sit in /usr/include, which must not be searched before MinGW's own headers.
pugi=$(mktemp -d)
trap 'rm -rf "$pugi"' EXIT
ln -s /usr/include/pugixml.hpp /usr/include/pugiconfig.hpp "$pugi"/
status=0
for source in $(git ls-files 'src/*.cpp'); do
  # -Wno-attributes: Qt's Linux headers declare functions without the dllimport of a Windows Qt.
  "$cxx" -std=c++17 -fsyntax-only -Wall -Wextra -Wpedantic -Werror -Wno-attributes \
    -DQT_NO_KEYWORDS -DKELOCOMM_BUILDING -Isrc -Iinclude -isystem "$pugi" \
    -isystem "$qt" -isystem "$qt/QtCore" -isystem "$qt/QtNetwork" "$source" || status=1
done
[ "$status" -eq 0 ] && echo "windows: every library source compiles for _WIN32"
exit "$status"
