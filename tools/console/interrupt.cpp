/* interrupt.cpp: Ctrl-C as a flag. */
#include "interrupt.h"

#include <csignal>

namespace console {

namespace {

volatile std::sig_atomic_t g_wasInterrupted = 0;

void OnInterrupt(int) { g_wasInterrupted = 1; }

}  // namespace

void CatchInterrupts() {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
}

bool WasInterrupted() { return g_wasInterrupted != 0; }

void ClearInterrupt() { g_wasInterrupted = 0; }

}  // namespace console
