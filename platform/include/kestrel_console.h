/* kestrel_console.h: the protocol between a host and its consoles over the socket of
 * KestrelDispListen.
 *
 * Both sides send lines that end with a line feed.  The host greets with
 *
 *   * kestrel-console 1           tag KESTREL_CONSOLE_GREETING, protocol, version
 *
 * or sends one error line that says why it refuses the console, and closes.
 *
 * A console sends requests, each at most KESTREL_CONSOLE_MAX_REQUEST bytes:
 *
 *   object <name>                 the following runs are for this object
 *   object                        ... are for any object that has the command
 *   objects                       lists the objects
 *   commands                      lists the commands of all objects
 *   help                          lists the commands with what is said about them
 *   run <line>                    runs a display command, line as in KestrelDispRequest
 *   stop                          ends all requests so far; has no answer
 *
 * Requests are answered in order, each with any number of lines and one status line.  Each line is
 * a tag, a blank and a text, of at most KESTREL_CONSOLE_MAX_REPLY bytes:
 *
 *   = <text>                      a line of output, or its last piece
 *   - <text>                      a piece of a line of output that continues
 *   ! <text>                      an error message
 *   o <object>                    an object
 *   c <object> TAB <command> { TAB <parameter> }
 *   h <object> TAB <command> TAB <about> { TAB <about a parameter> }
 *   . <result> <words>            the end; result is a KestrelResult, KESTREL_STOPPED after a stop
 *
 * A host that is older than a request answers it with an error; "help" is younger than the others.
 *
 * Output is what the command printed, byte by byte.  A console that closes its sending side gets
 * the answers to its requests and is then closed. */
#ifndef KESTREL_CONSOLE_H
#define KESTREL_CONSOLE_H

#define KESTREL_CONSOLE_HELLO "kestrel-console 1"

enum {
  KESTREL_CONSOLE_GREETING = '*',
  KESTREL_CONSOLE_OUTPUT = '=',
  KESTREL_CONSOLE_PIECE = '-',
  KESTREL_CONSOLE_ERROR = '!',
  KESTREL_CONSOLE_OBJECT = 'o',
  KESTREL_CONSOLE_COMMAND = 'c',
  KESTREL_CONSOLE_HELP = 'h',
  KESTREL_CONSOLE_END = '.'
};

enum {
  KESTREL_CONSOLE_MAX_REQUEST = 4096 + 64, /* a command line and the word before it */
  KESTREL_CONSOLE_MAX_REPLY = 32768
};

#endif /* KESTREL_CONSOLE_H */
