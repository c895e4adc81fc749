#!/usr/bin/env bash
# Keeps the Windows build honest, which cannot be built or run here:
#  1. no compiler extension in the library without a portable branch: GNU-only constructs in
#     src/ must sit inside a preprocessor branch that names __GNUC__ or __clang__ (MSVC has none
#     of them);
#  2. every library source, the emulator, the tools and the examples compile as the Windows build
#     sees them (_WIN32, Winsock 2, DllMain), with the MinGW-w64 cross compiler in syntax-only
#     mode. Qt's and pugixml's Linux headers stand in for the Windows ones.
# Installs the cross compiler when it is missing (Debian, as root).
set -euo pipefail
cd "$(dirname "$0")/.."

status=0

# ---- 1. compiler extensions ------------------------------------------------------------------
# awk keeps a stack of open #if blocks, each marked when its condition (or, after #elif, the
# branch's own condition) names a GNU compiler; a token outside every marked block is reported.
extensions='__int128|__extension__|__builtin_|__attribute__|__typeof__|typeof[[:space:]]*\(|__asm__|asm[[:space:]]*\('
while IFS= read -r finding; do
  echo "windows: compiler extension without a portable branch: $finding" >&2
  status=1
done < <(git ls-files 'src/*.cpp' 'src/*.h' | xargs awk -v pattern="$extensions" '
  FNR == 1 { depth = 0 }
  /^[[:space:]]*#[[:space:]]*if/ { guarded[++depth] = ($0 ~ /__GNUC__|__clang__/); next }
  /^[[:space:]]*#[[:space:]]*elif/ { guarded[depth] = ($0 ~ /__GNUC__|__clang__/); next }
  /^[[:space:]]*#[[:space:]]*else/ { guarded[depth] = 0; next }
  /^[[:space:]]*#[[:space:]]*endif/ { if (depth > 0) --depth; next }
  /^[[:space:]]*\/\// { next }
  $0 ~ pattern {
    inside = 0
    for (i = 1; i <= depth; ++i) if (guarded[i]) inside = 1
    if (!inside) printf "%s:%d: %s\n", FILENAME, FNR, $0
  }')

# ---- 2. the Windows branch compiles ----------------------------------------------------------
cxx=x86_64-w64-mingw32-g++-posix
cc=x86_64-w64-mingw32-gcc-posix
if ! command -v "$cxx" >/dev/null || ! command -v "$cc" >/dev/null; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends g++-mingw-w64-x86-64-posix \
    gcc-mingw-w64-x86-64-posix
fi
qt=$(pkg-config --variable=includedir Qt5Core 2>/dev/null || echo /usr/include/x86_64-linux-gnu/qt5)
# pugixml's headers sit in /usr/include, which must not be searched before MinGW's own headers.
pugi=$(mktemp -d)
trap 'rm -rf "$pugi"' EXIT
ln -s /usr/include/pugixml.hpp /usr/include/pugiconfig.hpp "$pugi"/
# CLI11 (header-only, portable) for kelo-emulator's command line, from the same place.
[ -d /usr/include/CLI ] && ln -s /usr/include/CLI "$pugi"/

warnings=(-Wall -Wextra -Wpedantic -Werror)
# -Wno-attributes: Qt's Linux headers declare functions without the dllimport of a Windows Qt.
cxx_flags=(-std=c++17 -fsyntax-only "${warnings[@]}" -Wno-attributes -Iinclude -isystem "$pugi"
           -isystem "$qt" -isystem "$qt/QtCore" -isystem "$qt/QtNetwork")
checked=0
compile() {  # compile FLAGS-ARRAY-NAME SOURCE...
  local -n flags=$1
  shift
  local compiler=$cxx source
  for source in "$@"; do
    [[ $source == *.c ]] && compiler=$cc || compiler=$cxx
    "$compiler" "${flags[@]}" "$source" || status=1
    checked=$((checked + 1))
  done
}

library_flags=("${cxx_flags[@]}" -DQT_NO_KEYWORDS -DKELOCOMM_BUILDING -Isrc)
compile library_flags $(git ls-files 'src/*.cpp')
emulator_flags=("${cxx_flags[@]}" -DQT_NO_KEYWORDS -Isrc -Iemulator)
compile emulator_flags $(git ls-files 'emulator/*.cpp')
tool_flags=("${cxx_flags[@]}" -Itools)
compile tool_flags $(git ls-files 'tools/*.cpp')
# The examples are consumers: the public headers only.
compile cxx_flags $(git ls-files 'examples/*.cpp')
example_c_flags=(-std=c99 -fsyntax-only "${warnings[@]}" -Iinclude)
compile example_c_flags $(git ls-files 'examples/*.c')

if [ "$status" -eq 0 ]; then
  echo "windows: no unguarded compiler extension; $checked sources compile for _WIN32"
fi
exit "$status"
