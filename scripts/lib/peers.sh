# peers.sh: sourced by the scripts that talk to CoAP implementations of others: aiocoap in
# $PEERS/venv, node-coap in $PEERS/node.  Each is installed once and then found there.  Needs apt.sh.

PEERS=${XDG_CACHE_HOME:-${HOME:-$(getent passwd "$(id -u)" | cut -d: -f6)}/.cache}/coap_svc_rpc/peers

# have_aiocoap, have_node_coap: 0 when the implementation is there or could be installed, else 1
# with a line that says what is missing.
have_aiocoap() {
  [[ ! -x $PEERS/venv/bin/python ]] || ! "$PEERS/venv/bin/python" -c 'import aiocoap' 2>/dev/null ||
    return 0
  mkdir -p "$PEERS"
  (install_packages python3-venv && python3 -m venv "$PEERS/venv" &&
    quietly "$PEERS/venv/bin/pip" -q install aiocoap) >/dev/null 2>&1 && return 0
  say "skipped: aiocoap cannot be installed here"
  return 1
}

have_node_coap() {
  [[ ! -d $PEERS/node/node_modules/coap ]] || return 0
  mkdir -p "$PEERS/node"
  ({ command -v npm || install_packages nodejs npm; } &&
    quietly npm --prefix "$PEERS/node" install --no-audit --no-fund coap) >/dev/null 2>&1 && return 0
  say "skipped: node-coap cannot be installed here"
  return 1
}
