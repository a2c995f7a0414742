# peers.sh: sourced by the scripts that talk to CoAP implementations of others; they need apt.sh.
# Each is installed once, in the versions that tests/interop/peers names, and then found there.

readonly PEERS=tests/interop/peers
cache=$(cache_folder)

# is_current <list of versions> <its copy in the cache>
is_current() { cmp -s "$1" "$2"; }

# A venv needs the module that makes one; the distribution has it in a package of its own.
install_aiocoap() {
  is_current "$PEERS/requirements.txt" "$cache/aiocoap/requirements.txt" && return
  say "fetching aiocoap into $cache/aiocoap"
  rm -rf "$cache/aiocoap"
  mkdir -p "$cache"
  quietly /usr/bin/python3 -m venv "$cache/aiocoap" &&
    quietly "$cache/aiocoap/bin/pip" install --no-deps --requirement "$PEERS/requirements.txt" &&
    cp "$PEERS/requirements.txt" "$cache/aiocoap/"
}

install_node_coap() {
  is_current "$PEERS/package.json" "$cache/node-coap/package.json" && return
  say "fetching node-coap into $cache/node-coap"
  rm -rf "$cache/node-coap"
  mkdir -p "$cache/node-coap.new"
  cp "$PEERS/package.json" "$cache/node-coap.new/"
  (cd "$cache/node-coap.new" && quietly npm install --no-package-lock --no-audit --no-fund \
    --ignore-scripts) && mv -T "$cache/node-coap.new" "$cache/node-coap"
}
