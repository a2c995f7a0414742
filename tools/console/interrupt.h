/* interrupt.h: Ctrl-C as a flag. */
#ifndef KESTREL_TOOLS_CONSOLE_INTERRUPT_H
#define KESTREL_TOOLS_CONSOLE_INTERRUPT_H

namespace console {

// CatchInterrupts makes Ctrl-C set the flag, and system calls return, instead of ending the
// process.
void CatchInterrupts();

bool WasInterrupted();
void ClearInterrupt();

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_INTERRUPT_H */
