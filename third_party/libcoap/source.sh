# source.sh: sourced by scripts/setup; finds the source of libcoap and its security fixes.
#
# Every road is good: what it leads to is pinned by a sum of the contents, whatever archive or patch file
# they come in.  The roads, in order:
#   1. Debian's source packages, from this machine's own mirror, in any suite
#   2. the archive of the release, and the commits of the fixes, at the project's own site
#   3. for the fixes, the folder LIBCOAP_FIXES; for all of it, LIBCOAP_SOURCE, see scripts/setup
# README.md tells how the sums are made.

LIBCOAP_VERSION=4.3.5
LIBCOAP_SUM=f67e4a2b526db5befa5684be7171458b995c4bfd476995e89f6f136293ec5981
# One line each: sum of the contents once it is applied after those before it, name, upstream's commit.
LIBCOAP_FIX_LIST=(
  "6883f478a3076d0a2e0b6833c86178c051f1ae6208204193fb7959c6196f6853 CVE-2025-34468 cc9aba6e01973b7cc06b7b20d0986411e5f5e2ef"
  "7979a04354a9de277b2e0f8045e5fe17f36e131f73d4e9b906b6c6e868304bb2 CVE-2025-59391 d56fb48bffd625f779eaf4616ccda62e1a7f6fd3"
  "6a75152cc0914dc84914d8f455ec26b0d34d0e522ea1da8a3fbf8093c7046b84 CVE-2026-29013 b7847c4dbb0dbee7c90b09a673d4cae256f03718"
)
LIBCOAP_FIX_SET=1           # raise this whenever the list of fixes changes
LIBCOAP_PACKAGE=libcoap3    # Debian's name
# Those that have it today come first; the others are names that move on with Debian.
LIBCOAP_SUITES=(forky trixie sid testing stable unstable oldstable oldoldstable)
LIBCOAP_SITE=https://github.com/obgm/libcoap
LIBCOAP_KEY_OPTION=signed-by=/usr/share/keyrings/debian-archive-keyring.gpg

libcoap_folder() { printf '%s/libcoap-%s-p%s\n' "$(cache_folder)" "$LIBCOAP_VERSION" "$LIBCOAP_FIX_SET"; }

# ---- contents -----------------------------------------------------------------------------------

# contents_sum <folder>: one sum of the names and bytes of all files and of where links lead; prints
# nothing when there is anything else.
contents_sum() {
  [[ -z $(find "$1" ! -type d ! -type f ! -type l -print -quit) ]] || return 0
  (
    cd "$1"
    find . -type f -print0 | LC_ALL=C sort -z | xargs -0 -r sha256sum
    find . -type l -printf '%p -> %l\n' | LC_ALL=C sort
  ) | sha256sum | cut -d ' ' -f 1
}

# attempt <command>...: what fails on one road is shown only when no other one is left.
attempt() { "$@" >>"$work/log" 2>&1 </dev/null; }

# note <text>: a line for the same place.
note() { printf '%s\n' "$*" >>"$work/log"; }

# take_release <archive>: makes it $work/source if it is the release.
take_release() {
  rm -rf "$work/offer"
  mkdir "$work/offer"
  attempt tar -xf "$1" -C "$work/offer" --strip-components=1 --no-same-owner || return
  if [[ $(contents_sum "$work/offer") != "$LIBCOAP_SUM" ]]; then
    note "${1##*/}: not the known contents"
    return 1
  fi
  mv "$work/offer" "$work/source"
}

# take_fix <patch> <sum>: applies it to $work/source if that leads to the contents of this sum.
take_fix() {
  rm -rf "$work/offer"
  cp -a "$work/source" "$work/offer"
  attempt patch -d "$work/offer" -p1 --batch --forward --no-backup-if-mismatch -i "$1" || return
  if [[ $(contents_sum "$work/offer") != "$2" ]]; then
    note "${1#"$work/"}: does not lead to the known contents"
    return 1
  fi
  rm -rf "$work/source"
  mv "$work/offer" "$work/source"
}

# take_next_fix: the first one that is missing, out of the files $work/fixes/<road>/<name>.patch.
take_next_fix() {
  local sum name file
  read -r sum name _ <<<"${LIBCOAP_FIX_LIST[fixed]}"
  for file in "$work"/fixes/*/"$name.patch"; do
    [[ -e $file ]] || continue
    take_fix "$file" "$sum" && return
  done
  return 1
}

take_fixes() {
  [[ -d $work/source ]] || return 0
  while ((fixed < ${#LIBCOAP_FIX_LIST[@]})) && take_next_fix; do
    fixed=$((fixed + 1))
  done
}

is_complete() { [[ -d $work/source ]] && ((fixed == ${#LIBCOAP_FIX_LIST[@]})); }

# ---- Debian -------------------------------------------------------------------------------------

# private_apt <program> <argument>...: apt with package sources and lists of its own, in $work/apt.
# A mirror that has stopped being updated is good enough: what is wanted is pinned by sum.
private_apt() {
  local program=$1
  shift
  "$program" -q \
    -o "Dir::Etc::SourceList=$work/apt/sources.list" -o Dir::Etc::SourceParts=/dev/null \
    -o "Dir::State::Lists=$work/apt/lists" -o "Dir::Cache=$work/apt/cache" \
    -o Acquire::Check-Valid-Until=false -o Acquire::Retries=1 -o APT::Sandbox::User="$(id -un)" "$@"
}

# read_suite <mirror> <suite>: fetches its list of source packages.
read_suite() {
  rm -rf "$work/apt"
  mkdir -p "$work/apt/lists/partial" "$work/apt/cache/archives/partial"
  printf 'deb-src [%s] %s %s main\n' "$LIBCOAP_KEY_OPTION" "$1" "$2" >"$work/apt/sources.list"
  attempt private_apt apt-get update
}

# get_part <tar or diff> <version> <folder>: of a source package, the release or Debian's additions.
get_part() {
  mkdir -p "$3"
  (cd "$3" && attempt private_apt apt-get source --download-only "--$1-only" "$LIBCOAP_PACKAGE=$2")
}

# look_in_suite <mirror> <suite>
look_in_suite() {
  local version folder=$work/suites/$2
  read_suite "$1" "$2" || return 0
  while read -r version; do
    if [[ ! -d $work/source && $version == "$LIBCOAP_VERSION"-* ]]; then
      get_part tar "$version" "$folder/$version" &&
        take_release "$(printf '%s\n' "$folder/$version/"*.orig.tar.*)"
    fi
    get_part diff "$version" "$folder/$version" || continue
    mkdir -p "$work/fixes/$2-$version"
    attempt tar -xf "$(printf '%s\n' "$folder/$version/"*.debian.tar.*)" \
      -C "$work/fixes/$2-$version" --strip-components=2 --no-same-owner debian/patches
  done < <(private_apt apt-cache showsrc "$LIBCOAP_PACKAGE" 2>/dev/null |
    sed -n 's/^Version: //p' | sort -rVu)
  take_fixes
}

look_in_debian() {
  local uri suite
  uri=$(mirror)
  if [[ -z $uri ]]; then
    (refresh_lists) 2>>"$work/log"
    uri=$(mirror)
  fi
  if [[ -z $uri ]]; then
    note "found no Debian mirror in this machine's apt configuration"
    return
  fi
  for suite in "${LIBCOAP_SUITES[@]}"; do
    ! is_complete || break
    look_in_suite "$uri" "$suite"
  done
}

# ---- the project's own site ---------------------------------------------------------------------

download() { attempt private_apt /usr/lib/apt/apt-helper download-file "$1" "$2"; }

look_at_site() {
  local line name commit
  if [[ ! -d $work/source ]] &&
    download "$LIBCOAP_SITE/archive/refs/tags/v$LIBCOAP_VERSION.tar.gz" "$work/release.tar.gz"; then
    take_release "$work/release.tar.gz"
  fi
  mkdir -p "$work/fixes/site"
  for line in "${LIBCOAP_FIX_LIST[@]:fixed}"; do
    read -r _ name commit <<<"$line"
    download "$LIBCOAP_SITE/commit/$commit.patch" "$work/fixes/site/$name.patch"
  done
  take_fixes
}

# ---- what the user has --------------------------------------------------------------------------

look_in_given() {
  [[ -n ${LIBCOAP_FIXES:-} ]] || return
  mkdir -p "$work/fixes/given"
  attempt cp "$LIBCOAP_FIXES"/*.patch "$work/fixes/given/"
  take_fixes
}

# missing_parts: prints what was not found.
missing_parts() {
  if [[ ! -d $work/source ]]; then
    printf 'libcoap %s' "$LIBCOAP_VERSION"
  else
    printf 'the fix %s' "$(cut -d ' ' -f 2 <<<"${LIBCOAP_FIX_LIST[fixed]}")"
  fi
}

# fetch_libcoap: makes the folder of libcoap's source with its fixes, unless it is there.
fetch_libcoap() {
  local target fixed=0
  target=$(libcoap_folder)
  [[ ! -e $target/CMakeLists.txt ]] || return 0
  say "fetching libcoap $LIBCOAP_VERSION into $target"
  mkdir -p "$(cache_folder)" || die "cannot write to $(cache_folder)"
  work=$(mktemp -d "$(cache_folder)/.setup.XXXXXX") || die "cannot write to $(cache_folder)"
  trap 'rm -rf "$work"' EXIT

  look_in_debian || true
  is_complete || look_at_site || true
  is_complete || look_in_given || true
  if ! is_complete; then
    cat "$work/log" >&2
    die "could not get $(missing_parts): neither the Debian mirror nor $LIBCOAP_SITE has it as it is" \
      "known; set LIBCOAP_FIXES to a folder with the fixes, or LIBCOAP_SOURCE to a folder or" \
      "tarball with the whole source"
  fi
  # In one step, so that no half-made folder is ever seen; another setup may have been faster.
  [[ -e $target/CMakeLists.txt ]] || rm -rf "$target"
  mv -T "$work/source" "$target" 2>/dev/null || [[ -e $target/CMakeLists.txt ]] ||
    die "cannot write $target"
}

# describe_libcoap <folder>: says whether these are the contents that are known.
describe_libcoap() {
  case $(contents_sum "$1") in
    "$(cut -d ' ' -f 1 <<<"${LIBCOAP_FIX_LIST[-1]}")")
      printf 'libcoap %s with its security fixes' "$LIBCOAP_VERSION" ;;
    "$LIBCOAP_SUM") printf 'libcoap %s without its security fixes' "$LIBCOAP_VERSION" ;;
    *) printf 'not the known contents of libcoap %s' "$LIBCOAP_VERSION" ;;
  esac
}

# check_given_libcoap: LIBCOAP_SOURCE, which is used as it is.
check_given_libcoap() {
  if [[ -d $LIBCOAP_SOURCE ]]; then
    [[ -e $LIBCOAP_SOURCE/CMakeLists.txt ]] ||
      die "LIBCOAP_SOURCE: $LIBCOAP_SOURCE holds no libcoap source (no CMakeLists.txt)"
    say "using libcoap from $LIBCOAP_SOURCE as it is: $(describe_libcoap "$LIBCOAP_SOURCE")"
  elif [[ -f $LIBCOAP_SOURCE ]]; then
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    tar -xf "$LIBCOAP_SOURCE" -C "$work" --strip-components=1 2>/dev/null ||
      die "LIBCOAP_SOURCE: cannot read $LIBCOAP_SOURCE"
    say "using libcoap from $LIBCOAP_SOURCE as it is: $(describe_libcoap "$work")"
  else
    die "LIBCOAP_SOURCE: there is no $LIBCOAP_SOURCE"
  fi
}
