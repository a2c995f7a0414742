/* asserts.h: the broken contracts of the process, and the log that hears of them. */
#ifndef KESTREL_SRC_LOG_ASSERTS_H
#define KESTREL_SRC_LOG_ASSERTS_H

#include "log/log.h"

namespace kestrel {

// AddAssertLog and RemoveAssertLog keep the logs of the living hosts; the oldest one hears of
// asserts.  AddAssertLog throws std::bad_alloc.
void AddAssertLog(Log *log);
void RemoveAssertLog(Log *log);

}  // namespace kestrel

#endif /* KESTREL_SRC_LOG_ASSERTS_H */
