#!/bin/bash
# roads.sh <case>: scripts/setup finds libcoap's source on each road when the others are closed, and
# takes nothing but the contents that are pinned.
#
# A package of two fixes stands in for libcoap's, a folder for the Debian mirror and for the project's site.
# No network is used.
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
source "$top/scripts/lib/apt.sh"
source "$top/third_party/libcoap/source.sh"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export XDG_CACHE_HOME=$scratch/cache
unset LIBCOAP_FIXES LIBCOAP_SOURCE

fail() { printf 'FAILED: %s\n' "$*"; exit 1; }

# ---- the package --------------------------------------------------------------------------------

make_release() {
  mkdir -p "$scratch/v1/src" "$scratch/made"
  printf 'project(toy)\n' >"$scratch/v1/CMakeLists.txt"
  printf '%s\n' one two three >"$scratch/v1/src/a.c"
  ln -s src/a.c "$scratch/v1/link"
}

# make_fix <name> <sed command>: the patch from v1 with the fixes so far to v1 with this one.
make_fix() {
  cp -a "$scratch/made/tree" "$scratch/made/next"
  sed -i "$2" "$scratch/made/next/src/a.c"
  (cd "$scratch/made" && diff -u tree/src/a.c next/src/a.c >"$1.patch") || true
  rm -rf "$scratch/made/tree"
  mv "$scratch/made/next" "$scratch/made/tree"
  LIBCOAP_FIX_LIST+=("$(contents_sum "$scratch/made/tree") $1 commit-$1")
}

make_release
LIBCOAP_VERSION=1.0
LIBCOAP_PACKAGE=toy
LIBCOAP_SUM=$(contents_sum "$scratch/v1")
LIBCOAP_FIX_LIST=()
cp -a "$scratch/v1" "$scratch/made/tree"
make_fix first s/one/1/
make_fix second s/three/3/

# ---- the places ---------------------------------------------------------------------------------

LIBCOAP_SUITES=(new middle old)
LIBCOAP_KEY_OPTION=trusted=yes
LIBCOAP_SITE=file://$scratch/site
mirror() { printf 'file:%s/mirror\n' "$scratch"; }

# pack <folder> <archive>: with its files in a folder of another name.
pack() { tar -caf "$2" -C "$1" --transform 's,^\.,some-folder,' .; }

# in_suite <suite> <version> <folder with the release> [<fix>...]
in_suite() {
  local suite=$1 version=$2 release=$3 pool=$scratch/mirror/pool/$1 index file
  shift 3
  index=$scratch/mirror/dists/$suite
  mkdir -p "$pool" "$index/main/source" "$scratch/debian/patches"
  pack "$release" "$pool/toy_${version%-*}.orig.tar.gz"
  rm -f "$scratch/debian/patches"/*
  for file in "$@"; do cp "$scratch/made/$file.patch" "$scratch/debian/patches/"; done
  tar -cJf "$pool/toy_$version.debian.tar.xz" -C "$scratch" debian
  {
    printf 'Package: toy\nBinary: toy\nVersion: %s\nFormat: 3.0 (quilt)\n' "$version"
    printf 'Directory: pool/%s\nChecksums-Sha256:\n' "$suite"
    for file in "toy_${version%-*}.orig.tar.gz" "toy_$version.debian.tar.xz"; do
      printf ' %s %s %s\n' "$(sha256sum <"$pool/$file" | cut -d ' ' -f 1)" \
        "$(stat -c %s "$pool/$file")" "$file"
    done
  } >"$index/main/source/Sources"
  file=main/source/Sources
  printf 'Suite: %s\nComponents: main\nSHA256:\n %s %s %s\n' "$suite" \
    "$(sha256sum <"$index/$file" | cut -d ' ' -f 1)" "$(stat -c %s "$index/$file")" "$file" \
    >"$index/Release"
}

# at_site <folder with the release, or nothing> [<fix>...]
at_site() {
  local release=$1 fix
  shift
  mkdir -p "$scratch/site/archive/refs/tags" "$scratch/site/commit"
  [[ -z $release ]] || pack "$release" "$scratch/site/archive/refs/tags/v1.0.tar.gz"
  for fix in "$@"; do cp "$scratch/made/$fix.patch" "$scratch/site/commit/commit-$fix.patch"; done
}

# ---- what is expected ---------------------------------------------------------------------------

expect_found() {
  (fetch_libcoap) >"$scratch/output" 2>&1 || fail "not found: $(cat "$scratch/output")"
  diff -r --no-dereference "$scratch/made/tree" "$(libcoap_folder)" || fail "other contents"
  [[ $(ls -A "$(cache_folder)") == "$(basename "$(libcoap_folder)")" ]] || fail "something is left over"
}

# expect_not_found <what it says>
expect_not_found() {
  ! (fetch_libcoap) >"$scratch/output" 2>&1 || fail "found"
  grep -q -- "$1" "$scratch/output" || fail "says something else: $(cat "$scratch/output")"
  [[ -z $(ls -A "$(cache_folder)") ]] || fail "something is left over"
}

other_contents() {
  cp -a "$scratch/v1" "$scratch/other"
  printf 'more\n' >>"$scratch/other/src/a.c"
}

# ---- cases --------------------------------------------------------------------------------------

case_debian() {
  in_suite new 1.0-4 "$scratch/v1" first second
  expect_found
}

case_debian_in_several_suites() {
  in_suite middle 0.9-1 "$scratch/made/tree" second
  in_suite old 1.0-1 "$scratch/v1" first
  expect_found
}

case_debian_has_other_contents() {
  other_contents
  in_suite new 1.0-5 "$scratch/other" first second
  in_suite old 1.0-1 "$scratch/v1"
  expect_found
}

case_site() {
  at_site "$scratch/v1" first second
  expect_found
}

case_site_without_any_mirror() {
  mirror() { :; }
  refresh_lists() { die "no network"; }
  at_site "$scratch/v1" first second
  expect_found
}

case_site_after_debian_moved_on() {
  other_contents
  in_suite new 1.1-1 "$scratch/other"
  in_suite old 1.0-1 "$scratch/other" second
  at_site "$scratch/v1" first
  expect_found
}

case_fixes_from_site() {
  in_suite new 1.0-4 "$scratch/v1"
  at_site "" first second
  expect_found
}

case_fixes_given() {
  in_suite new 1.0-4 "$scratch/v1" first
  LIBCOAP_FIXES=$scratch/made
  expect_found
}

case_release_has_other_contents() {
  other_contents
  in_suite new 1.0-4 "$scratch/other" first second
  at_site "$scratch/other" first second
  expect_not_found 'could not get libcoap 1.0'
}

case_fix_has_other_contents() {
  sed 's/+3/+4/' "$scratch/made/second.patch" >"$scratch/made/changed"
  mv "$scratch/made/changed" "$scratch/made/second.patch"
  in_suite new 1.0-4 "$scratch/v1" first second
  at_site "$scratch/v1" first second
  LIBCOAP_FIXES=$scratch/made
  expect_not_found 'could not get the fix second'
}

case_fix_has_one_file_more() {
  printf '%s\n' '--- /dev/null' '+++ b/new' '@@ -0,0 +1 @@' '+new' >>"$scratch/made/second.patch"
  at_site "$scratch/v1" first second
  expect_not_found 'could not get the fix second'
}

case_nothing() {
  expect_not_found 'set LIBCOAP_FIXES to .* or LIBCOAP_SOURCE'
}

case_found_before() {
  at_site "$scratch/v1" first second
  expect_found
  rm -rf "$scratch/site"
  fetch_libcoap >"$scratch/output"
  [[ ! -s $scratch/output ]] || fail "does something again"
}

# expect_given <path> <what it says>
expect_given() {
  LIBCOAP_SOURCE=$1
  (check_given_libcoap) >"$scratch/output" 2>&1 || true
  grep -q -- "$2" "$scratch/output" || fail "$1: $(cat "$scratch/output")"
}

case_source_given() {
  other_contents
  pack "$scratch/v1" "$scratch/v1.tar.gz"
  expect_given "$scratch/made/tree" 'as it is: libcoap 1.0 with its security fixes'
  expect_given "$scratch/v1" 'as it is: libcoap 1.0 without its security fixes'
  expect_given "$scratch/v1.tar.gz" 'as it is: libcoap 1.0 without its security fixes'
  expect_given "$scratch/other" 'as it is: not the known contents of libcoap 1.0'
  expect_given "$scratch/v1/src" 'holds no libcoap source'
  expect_given "$scratch/v1/src/a.c" 'cannot read'
  expect_given "$scratch/none" 'there is no'
}

"case_$1"
