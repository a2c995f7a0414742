#!/bin/bash
# console_tmux.sh <kestrel-console> <console_server>: uses the console in a terminal of 80 columns
# and 24 rows as a person would, and looks at the screen.
set -euo pipefail
readonly CONSOLE=$1 SERVER=$2
readonly PROMPT="space: next screen, enter: next line, q: quit"

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
is_ready() { grep -qx ready "$work/server.out"; }

clear_screen() {
  keys C-l
  wait_for "the screen is cleared" last_line_is "${1:-kestrel>}"
}

# The server ends when its standard input does, that is with this script, or by "demo end".
start_server() {
  mkfifo "$work/input"
  "$SERVER" "$work/socket" hostile many <"$work/input" >"$work/server.out" 2>&1 &
  server=$!
  exec 9>"$work/input"
  wait_for "the server listens" is_ready
}

end_server() {
  exec 9>&-
  wait_for "the server has ended" has_ended
}

has_ended() { ! kill -0 "$server" 2>/dev/null; }

restart_server() {
  exec 9>&-
  rm -f "$work/input"
  start_server
}

start_console() {
  tmux -L "$TMUX_NAME" -f /dev/null new-session -d -x 80 -y 24 \
    "PS1='$ ' exec bash --norc --noprofile"
  text "$CONSOLE --timeout 600 --socket $work/socket"
  keys Enter
  wait_for "the prompt comes" last_line_is "kestrel>"
  text "disp server listen"
  keys Enter
  wait_for "a table is the default" shows "listenAddr  port"
  text "format lines"
  keys Enter
  clear_screen
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

completes_numbers() {
  clear_screen
  text "disp server "
  keys Tab
  wait_for "Tab shows the commands of numbers" shows_line "  perUri"
  local word
  for word in async listen stats times uriVtbl; do
    shows_line "  $word" || fail "$word is a choice"
  done
  text "p"
  keys Tab
  text "| columns uri,requests | include shop/stock"
  wait_for "Tab completes it" last_line_is \
    "kestrel> disp server perUri | columns uri,requests | include shop/stock"
  keys Enter
  wait_for "it runs" shows_line "uri(shop/stock)/requests(0)"
  clear_screen
  text "disp client ca"
  keys Tab
  text "?"
  wait_for "the other side, with its help" \
    shows "  disp client call                      calls, observations and unacknowledged r"
  keys C-u
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
  wait_for "the first screen is held" last_line_is "$PROMPT"
  shows_line "line 23" || fail "the first screen ends with line 23"
  ! shows_line "line 24" || fail "the first screen ends with line 23"
  keys Space
  wait_for "the next screen comes" shows_line "line 46"
  wait_for "it is held, too" last_line_is "$PROMPT"
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
  wait_for "long lines are counted by rows" last_line_is "$PROMPT"
  shows "server Vtbl[  0]: uri(%s%n%x)/msgType(CON)" || fail "the first row is on the screen"
  shows 'uri(evil/\x1b[31mred)/msgType(CON)' || fail "control characters are shown"
  keys q
  wait_for "q stops" last_line_is "kestrel>"
}

# has_style <text>: of the screen with its styles.
has_style() { tmux -L "$TMUX_NAME" capture-pane -e -p -t 0 | grep -qF -- "$1"; }

pages_tables_and_json() {
  local format
  for format in table json; do
    clear_screen
    text "format $format"
    keys Enter
    text "disp server uriVtbl"
    keys Enter
    wait_for "a screen of $format is held" last_line_is "$PROMPT"
    keys q
    wait_for "q stops" last_line_is "kestrel>"
  done
  text "format lines"
  keys Enter
}

helps() {
  clear_screen
  text "disp client ?"
  wait_for "a question mark tells what may follow" \
    shows "  disp client request <uniStartIndex>   observe relations, and requests that cou"
  wait_for "the line is there again" last_line_is "kestrel> disp client"
  text "request ?"
  wait_for "parameters are explained" \
    shows "    <uniStartIndex>                     rows before this number are skipped; 0 s"
  keys C-u
  clear_screen
  text "demo lines a?b"
  wait_for "in a parameter it is a character" last_line_is "kestrel> demo lines a?b"
  keys C-u
  text "d s listen | count"
  keys Enter
  wait_for "an abbreviation and a filter" shows_line "1"
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
  wait_for "changes are coloured" has_style $'\x1b[1m\x1b[33m'
  keys C-c
  wait_for "Ctrl-C ends watching" last_line_is "kestrel>"
  text "format table"
  keys Enter
  text "watch 0.2 demo changes"
  keys Enter
  wait_for "a change in a table is marked" shows "* two"
  wait_for "what was removed is marked in a table" shows "- even"
  keys C-c
  wait_for "Ctrl-C ends watching" last_line_is "kestrel>"
  text "format lines"
  keys Enter
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
  text "object nosuch"
  keys Enter
  wait_for "an unknown object is told" shows_line 'kestrel-console: unknown object "nosuch"'
  wait_for "the object stays" last_line_is "kestrel demo>"
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
  clear_screen
  text "object demo"
  keys Enter
  wait_for "the prompt names the object" last_line_is "kestrel demo>"
  text "demo end"
  keys Enter
  wait_for "the loss is told" shows_line "kestrel-console: the host closed the connection"
  wait_for "the console stays" last_line_is "kestrel demo>"
  text "demo lines 1"
  keys Enter
  wait_for "nothing can be run" shows "kestrel-console: cannot connect: "
  text "demo li"
  restart_server
  wait_for "the return is told" shows_line "connected again"
  wait_for "what was typed is kept" last_line_is "kestrel demo> demo li"
  text "nes 2"
  keys Enter
  wait_for "commands run again, for the object" shows_line " ***total 2 line(s) ***"
}

tells_a_loss_at_once() {
  clear_screen "kestrel demo>"
  end_server
  wait_for "the loss is told before a command is typed" \
    shows_line "kestrel-console: the host closed the connection"
}

waits_while_watching() {
  restart_server
  wait_for "the return is told" shows_line "connected again"
  text "watch 0.2 demo changes"
  keys Enter
  wait_for "watching begins" shows "* two"
  end_server
  wait_for "the loss is told" shows "kestrel-console: the host closed the connection"
  restart_server
  wait_for "watching goes on" shows "* two"
  keys C-c
  wait_for "Ctrl-C ends watching" last_line_is "kestrel demo>"
  text "quit"
  keys Enter
  wait_for "quit leaves" last_line_is "$"
  text 'echo "status $?"'
  keys Enter
  wait_for "the status says so" shows_line "status 0"
}

start_server
start_console
completes_commands
completes_parameters
completes_numbers
edits_and_remembers
pages_and_stops
pages_tables_and_json
helps
wraps_on_eighty_columns
prints_tables
watches
interrupts
keeps_history
survives_the_host
tells_a_loss_at_once
waits_while_watching
echo "all is as it should be"
