#!/bin/bash
# console_tmux.sh <kestrel-console> <console_server>: uses the console in a terminal of 80 columns
# and 24 rows as a person would, and looks at the screen.
set -euo pipefail
readonly CONSOLE=$1 SERVER=$2

if ! command -v tmux >/dev/null; then
  echo "SKIPPED: tmux is not installed"
  exit 77
fi

work=$(mktemp -d)
readonly work TMUX_NAME=console$$
export LC_ALL=C.UTF-8 XDG_STATE_HOME=$work/state TERM=screen
unset TMUX

# libedit keeps the name and the help of a function that was added to it, and never frees them.
echo 'leak:wcsdup' >"$work/lsan"
export LSAN_OPTIONS=suppressions=$work/lsan:print_suppressions=0

end() {
  tmux -L "$TMUX_NAME" kill-server 2>/dev/null || true
  rm -rf "$work"
}
trap end EXIT

on_screen() { tmux -L "$TMUX_NAME" capture-pane -p -t "${1:-0}"; }
keys() { tmux -L "$TMUX_NAME" send-keys -t 0 "$@"; }
text() { tmux -L "$TMUX_NAME" send-keys -t 0 -l "$1"; }

fail() {
  echo "FAILED: $1; the screen:"
  on_screen
  exit 1
}

# wait_for <what> <condition>...: gives up after minutes.
wait_for() {
  local what=$1 i
  shift
  for ((i = 0; i < 6000; ++i)); do
    if "$@"; then
      echo "ok: $what"
      return 0
    fi
    sleep 0.05
  done
  fail "$what"
}

shows() { on_screen | grep -qF -- "$1"; }
shows_line() { on_screen | grep -qxF -- "$1"; }
last_line_is() { [[ $(on_screen | sed -e '/^$/d' | tail -n 1) == "$1" ]]; }
has_socket() { [[ -S $work/socket ]]; }
has_no_socket() { [[ ! -e $work/socket ]]; }

clear_screen() {
  keys C-l
  wait_for "the screen is cleared" last_line_is "${1:-kestrel>}"
}

# The server ends when its standard input does, that is with this script, or by "demo end".
start_server() {
  mkfifo "$work/input"
  "$SERVER" "$work/socket" hostile many <"$work/input" >"$work/server.out" 2>&1 &
  exec 9>"$work/input"
  wait_for "the server listens" has_socket
}

start_console() {
  tmux -L "$TMUX_NAME" -f /dev/null new-session -d -x 80 -y 24 \
    "PS1='$ ' exec bash --norc --noprofile"
  text "$CONSOLE --timeout 600 --socket $work/socket"
  keys Enter
  wait_for "the prompt comes" last_line_is "kestrel>"
}

completes_commands() {
  text "dis"
  keys Tab
  wait_for "Tab completes the first word" last_line_is "kestrel> disp"
  keys Tab
  wait_for "Tab shows the choices" shows_line "  server"
  shows_line "  client" || fail "both sides are choices"
  text "server lis"
  keys Tab Enter
  wait_for "Tab completes a whole command" shows "server listen[  0]: listenAddr(127.0.0.1)/port("
  shows_line " ***total 1 server listen(s) ***" || fail "the total is shown"
}

completes_parameters() {
  clear_screen
  text "disp client request "
  keys Tab
  wait_for "Tab names a number" shows_line "  <uniStartIndex>"
  text "0"
  keys Enter
  wait_for "the command runs" shows "client request[  0]: uri(shop/stock)/msgType(CON)"
  clear_screen
  text "disp server tupleSetTree sh"
  keys Tab
  wait_for "Tab completes a uri that was seen" last_line_is \
    "kestrel> disp server tupleSetTree shop/stock"
  keys Enter
  wait_for "the tuples are shown" shows_line "key(3)/val(30)"
}

edits_and_remembers() {
  clear_screen
  text "demo linez 3"
  keys Left Left BSpace
  text "s"
  keys Enter
  wait_for "a line is edited" shows_line " ***total 3 line(s) ***"
  clear_screen
  keys Up
  wait_for "the line before comes back" last_line_is "kestrel> demo lines 3"
  keys C-u
  wait_for "a line is given up" last_line_is "kestrel>"
}

pages_and_stops() {
  clear_screen
  text "demo lines 100000"
  keys Enter
  wait_for "the first screen is held" last_line_is "-- more: blank screen, enter line, q stop --"
  shows_line "line 23" || fail "the first screen ends with line 23"
  ! shows_line "line 24" || fail "the first screen ends with line 23"
  keys Space
  wait_for "the next screen comes" shows_line "line 46"
  wait_for "it is held, too" last_line_is "-- more: blank screen, enter line, q stop --"
  keys Enter
  wait_for "one more line comes" shows_line "line 47"
  ! shows_line "line 48" || fail "only one more line comes"
  keys q
  wait_for "q stops" last_line_is "kestrel>"
  text "demo lines 1"
  keys Enter
  wait_for "the next command runs" shows_line " ***total 1 line(s) ***"
}

wraps_on_eighty_columns() {
  clear_screen
  text "disp server uriVtbl"
  keys Enter
  wait_for "long lines are counted by rows" last_line_is \
    "-- more: blank screen, enter line, q stop --"
  shows "server Vtbl[  0]: uri(%s%n%x)/msgType(CON)" || fail "the first row is on the screen"
  shows 'uri(evil/\x1b[31mred)/msgType(CON)' || fail "control characters are shown"
  keys q
  wait_for "q stops" last_line_is "kestrel>"
}

prints_tables() {
  clear_screen
  text "format table"
  keys Enter
  text "disp client session 0"
  keys Enter
  wait_for "columns are aligned" shows "srcIp      dstIp      dstPort  coapSessionIsNull"
  shows "127.0.0.2  127.0.0.1  " || fail "values stand below their names"
  text "format lines"
  keys Enter
}

watches() {
  clear_screen
  text "watch 0.2 demo changes"
  keys Enter
  wait_for "a change is marked" shows "* row[1]: uri(two)/count("
  shows "  row[0]: uri(one)/count(1)" || fail "what stays is not marked"
  wait_for "what is new is marked" shows "+ row[2]: uri(even)/count(0)"
  wait_for "what was removed is marked" shows "- row[2]: uri(even)/count(0)"
  keys C-c
  wait_for "Ctrl-C ends watching" last_line_is "kestrel>"
}

interrupts() {
  clear_screen
  text "half a li"
  keys C-c
  wait_for "Ctrl-C gives up a line" last_line_is "kestrel>"
  text "object demo"
  keys Enter
  wait_for "the prompt names the object" last_line_is "kestrel demo>"
  text "disp server listen"
  keys Enter
  wait_for "errors are told" shows_line 'kestrel-console: unknown command "disp server listen"'
  text "object"
  keys Enter
  wait_for "any object again" last_line_is "kestrel>"
}

keeps_history() {
  text "quit"
  keys Enter
  wait_for "quit leaves" last_line_is "$"
  [[ $(stat -c %a "$XDG_STATE_HOME/kestrel-console/history") == 600 ]] || fail "history is private"
  clear_screen "$"
  text "$CONSOLE --timeout 600 --socket $work/socket"
  keys Enter
  wait_for "the prompt comes" last_line_is "kestrel>"
  keys Up Up
  wait_for "history is kept" last_line_is "kestrel> object"
  keys C-u
}

survives_the_host() {
  text "demo end"
  keys Enter
  wait_for "the loss is told" shows_line "kestrel-console: the host closed the connection"
  wait_for "the console ends" last_line_is "$"
  text 'echo "status $?"'
  keys Enter
  wait_for "the status says so" shows_line "status 4"
}

start_server
start_console
completes_commands
completes_parameters
edits_and_remembers
pages_and_stops
wraps_on_eighty_columns
prints_tables
watches
interrupts
keeps_history
survives_the_host
echo "all is as it should be"
