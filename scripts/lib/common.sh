# common.sh: sourced by the scripts; they then run in the root of the checkout.

# A relative LIBCOAP_SOURCE or LIBCOAP_FIXES is relative to the caller's folder.  If the first is not
# given, it is set to the empty text, which makes CMake forget an earlier one.
LIBCOAP_SOURCE=${LIBCOAP_SOURCE:+$(readlink -f "$LIBCOAP_SOURCE")}
LIBCOAP_FIXES=${LIBCOAP_FIXES:+$(readlink -f "$LIBCOAP_FIXES")}
export LIBCOAP_SOURCE LIBCOAP_FIXES
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../.."

# step <text> <command>...: runs the command, says how long it took, shows its output when it fails.
step() {
  local text=$1 output status=0
  shift
  output=$(mktemp)
  SECONDS=0
  "$@" >"$output" 2>&1 </dev/null || status=$?
  if [[ $status == 0 ]]; then
    printf '%-28s ok, %d s\n' "$text" "$SECONDS"
  else
    cat "$output"
    printf '%-28s FAILED after %d s\n' "$text" "$SECONDS"
  fi
  rm -f "$output"
  return "$status"
}

# configure_and_build <preset> [<target>...]
configure_and_build() {
  local preset=$1
  shift
  step "$preset: configure" cmake --preset "$preset"
  step "$preset: build" cmake --build --preset "$preset" ${1:+--target "$@"}
}

# project_version: as CMakeLists.txt states it.
project_version() { sed -n 's/^project(.* VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt; }
