# apt.sh: sourced by the scripts that install packages of the distribution.

say() { printf '%s: %s\n' "${0##*/}" "$*"; }
die() { printf '%s: %s\n' "${0##*/}" "$*" >&2; exit 1; }

# quietly <command>...: runs it and shows its output only when it fails.
quietly() {
  local output
  if ! output=$("$@" 2>&1); then
    printf '%s\n' "$output" >&2
    return 1
  fi
}

# missing_packages <package>...: those that are not installed.
missing_packages() {
  local package
  for package in "$@"; do
    [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) == installed ]] ||
      printf '%s\n' "$package"
  done
}

can_be_root() { [[ $(id -u) == 0 ]] || command -v sudo >/dev/null; }

as_root() {
  local sudo=(sudo)
  [[ $(id -u) != 0 ]] || sudo=()
  "${sudo[@]}" "$@"
}

apt_get() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300 "$@"
}

refresh_lists() {
  can_be_root || die "the package lists have to be fetched first: run 'apt-get update' as root"
  quietly apt_get update || die "cannot refresh the package lists (apt-get update failed)"
}

# install_packages <package>...: those that are missing; prints nothing when none is.
install_packages() {
  local missing
  mapfile -t missing < <(missing_packages "$@")
  [[ ${#missing[@]} -gt 0 ]] || return 0
  can_be_root || die "not root and no sudo here; these packages are missing: ${missing[*]}"
  say "installing ${missing[*]}"
  # Lists that were never fetched or are out of date show up as a failed install.
  if ! apt_get install --no-install-recommends "${missing[@]}" >/dev/null 2>&1; then
    refresh_lists
    quietly apt_get install --no-install-recommends "${missing[@]}" || true
  fi
  mapfile -t missing < <(missing_packages "$@")
  [[ ${#missing[@]} == 0 ]] || die "these packages could not be installed: ${missing[*]}"
}

# The Debian mirror that this machine itself uses.
mirror() {
  apt-get indextargets --format '$(REPO_URI)' 'Origin: Debian' 'Label: Debian' | sort -u | head -n 1
}

# Downloads of this user for this project, kept between builds.
cache_folder() {
  local home
  home=${HOME:-$(getent passwd "$(id -u)" | cut -d: -f6)}
  printf '%s/coap_svc_rpc\n' "${XDG_CACHE_HOME:-$home/.cache}"
}
