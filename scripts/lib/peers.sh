# peers.sh: sourced, after apt.sh, by the scripts that use other CoAP implementations.  Each is installed
# once, in the version that tests/interop/peers names.

readonly PEERS=tests/interop/peers
cache=$(cache_folder)

readonly UNAVAILABLE=77   # status of a peer that is unavailable here
readonly NPM_PATIENCE=(--fetch-retries 2 --fetch-retry-mintimeout 1000 --fetch-retry-maxtimeout 3000)

# is_current <list of versions> <its copy in the cache>
is_current() { cmp -s "$1" "$2"; }

# want <command> <package>...: installs the packages unless the command exists, from wherever it came.
want() {
  local command=$1
  shift
  command -v "$command" >/dev/null || (install_packages "$@") >/dev/null 2>&1 ||
    { printf 'no %s here, and its package cannot be installed\n' "$command"; return "$UNAVAILABLE"; }
}

# judge_fetch <registry> <command>...: decides whether a fetch failed because the registry is
# unreachable.  The command asks for something that the registry always has.
judge_fetch() {
  local registry=$1
  shift
  ! "$@" >/dev/null 2>&1 </dev/null || return 1
  printf '%s cannot be reached\n' "$registry"
  return "$UNAVAILABLE"
}

# install_aiocoap, install_node_coap: 0 if the peer is installed; UNAVAILABLE, with a line that says why;
# any other status with an error message.

# A venv needs the module that makes one; the distribution has it in a package of its own.
install_aiocoap() {
  is_current "$PEERS/requirements.txt" "$cache/aiocoap/requirements.txt" && return
  want python3 python3 python3-venv || return
  (install_packages python3-venv) >/dev/null 2>&1 || true
  rm -rf "$cache/aiocoap"
  mkdir -p "$cache"
  /usr/bin/python3 -m venv "$cache/aiocoap" >/dev/null 2>&1 ||
    { printf 'no python3-venv here, and it cannot be installed\n'; return "$UNAVAILABLE"; }
  local pip=("$cache/aiocoap/bin/pip" --disable-pip-version-check --retries 1)
  if quietly "${pip[@]}" install --no-deps --requirement "$PEERS/requirements.txt"; then
    cp "$PEERS/requirements.txt" "$cache/aiocoap/"
  else
    judge_fetch "pip's registry" "${pip[@]}" download --no-deps --dest "$cache/aiocoap/probe" aiocoap
  fi
}

install_node_coap() {
  is_current "$PEERS/package.json" "$cache/node-coap/package.json" && return
  want node nodejs || return
  want npm npm || return
  rm -rf "$cache/node-coap" "$cache/node-coap.new"
  mkdir -p "$cache/node-coap.new"
  cp "$PEERS/package.json" "$cache/node-coap.new/"
  if (cd "$cache/node-coap.new" && quietly npm install --no-package-lock --no-audit --no-fund \
    --ignore-scripts "${NPM_PATIENCE[@]}"); then
    mv -T "$cache/node-coap.new" "$cache/node-coap"
  else
    judge_fetch "npm's registry" npm view "${NPM_PATIENCE[@]}" coap version
  fi
}
