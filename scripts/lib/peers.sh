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

# install_<peer>: 0 if the peer is installed; UNAVAILABLE, with a line that says why; any other status
# with an error message.

# install_venv <name> <list of versions> <package that the registry always has> <option of pip>...: A venv
# needs the module that makes one; the distribution has it in a package of its own.
install_venv() {
  local name=$1 versions=$2 probe=$3
  shift 3
  is_current "$versions" "$cache/$name/requirements.txt" && return
  want python3 python3 python3-venv || return
  (install_packages python3-venv) >/dev/null 2>&1 || true
  rm -rf "${cache:?}/$name"
  mkdir -p "$cache"
  /usr/bin/python3 -m venv "$cache/$name" >/dev/null 2>&1 ||
    { printf 'no python3-venv here, and it cannot be installed\n'; return "$UNAVAILABLE"; }
  local pip=("$cache/$name/bin/pip" --disable-pip-version-check --retries 1)
  if quietly "${pip[@]}" install "$@" --requirement "$versions"; then
    cp "$versions" "$cache/$name/requirements.txt"
  else
    judge_fetch "pip's registry" "${pip[@]}" download --no-deps --dest "$cache/$name/probe" "$probe"
  fi
}

install_aiocoap() { install_venv aiocoap "$PEERS/requirements.txt" aiocoap --no-deps; }

# What checks, packs and repairs the Python package.
install_python_tools() { install_venv python python/tests/requirements.txt pip; }

# The browser for the exporter's page.
install_chromium() { want chromium chromium; }

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

# The peers that are compiled: the cache has their manifests, our programs for them, and what was made
# of these, as long as they stay the same.

# sum_of <file or folder>...
sum_of() { find "$@" -type f -print0 | sort -z | xargs -0 sha256sum | sha256sum; }

# is_built <peer> <file or folder>...
is_built() {
  local peer=$1
  shift
  [[ -e $cache/$peer/sum && $(<"$cache/$peer/sum") == $(sum_of "$@") ]]
}

# begin_build <peer>: makes an empty folder for it.
begin_build() {
  rm -rf "$cache/$1" "$cache/$1.new"
  mkdir -p "$cache/$1.new"
}

# finish_build <peer> <file or folder>...
finish_build() {
  local peer=$1
  shift
  sum_of "$@" >"$cache/$peer.new/sum"
  mv -T "$cache/$peer.new" "$cache/$peer"
}

# is_version <least> <version>
is_version() { printf '%s\n' "$@" | sort -CV; }

# too_old <program> <its version> <least>
too_old() {
  printf '%s %s is too old, %s is needed\n' "$1" "$2" "$3"
  return "$UNAVAILABLE"
}

install_gocoap() {
  local sources=("$PEERS/gocoap" bench/peers/{serve,state}_gocoap.go) least version name
  is_built gocoap "${sources[@]}" && return
  want go golang-go || return
  least=$(sed -n 's/^go //p' "$PEERS/gocoap/go.mod")
  version=$(go env GOVERSION)
  is_version "$least" "${version#go}" || too_old go "${version#go}" "$least" || return
  begin_build gocoap
  cp -r "$PEERS/gocoap/." "$cache/gocoap.new"
  for name in serve_gocoap state_gocoap; do
    mkdir "$cache/gocoap.new/$name"
    cp "bench/peers/$name.go" "$cache/gocoap.new/$name"
  done
  if (cd "$cache/gocoap.new" && quietly go build -trimpath -buildvcs=false -o bin/ ./...); then
    finish_build gocoap "${sources[@]}"
  else
    judge_fetch "Go's module proxy" go list -m -versions github.com/plgd-dev/go-coap/v3
  fi
}

readonly MAVEN_COPY=org.apache.maven.plugins:maven-dependency-plugin:3.6.1:copy-dependencies
maven() { mvn --quiet --batch-mode --file "$cache/californium.new/pom.xml" "$MAVEN_COPY" "$@"; }

install_californium() {
  local sources=("$PEERS/californium" bench/peers/{Serve,State}Californium.java)
  local build=$cache/californium.new
  is_built californium "${sources[@]}" && return
  want javac openjdk-17-jdk-headless || return
  want mvn maven || return
  begin_build californium
  cp "$PEERS/californium/pom.xml" "$build"
  if quietly maven -DoutputDirectory="$build/lib"; then
    quietly javac -cp "$build/lib/*" -d "$build/classes" "$PEERS"/californium/*.java \
      bench/peers/{Serve,State}Californium.java && finish_build californium "${sources[@]}"
  else
    judge_fetch "Maven's repository" maven -Dmaven.repo.local="$build/probe" \
      -DoutputDirectory="$build/lib"
  fi
}

install_rust_coap() {
  local sources=(bench/peers/rust) least version
  is_built rust_coap "${sources[@]}" && return
  want cargo cargo || return
  least=$(sed -n 's/^rust-version = "\(.*\)"/\1/p' bench/peers/rust/Cargo.toml)
  version=$(cargo --version | cut -d' ' -f2)
  is_version "$least" "$version" || too_old cargo "$version" "$least" || return
  begin_build rust_coap
  cp bench/peers/rust/* "$cache/rust_coap.new"
  if (cd "$cache/rust_coap.new" && quietly cargo build --quiet --release); then
    finish_build rust_coap "${sources[@]}"
  else
    judge_fetch "cargo's registry" cargo generate-lockfile \
      --manifest-path "$cache/rust_coap.new/Cargo.toml"
  fi
}

# The brokers that the state of a table is compared with.
PATH=$PATH:/usr/sbin
install_redis() { want redis-server redis-server; }
install_nats() { want nats-server nats-server; }
