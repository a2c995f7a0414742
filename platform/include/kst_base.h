/* kst_base.h: definitions that all contract headers of the host share.
 *
 * Defaults for all host functions unless their comment says otherwise:
 *   - called from one thread, the host thread; the library creates no other;
 *   - pointers are borrowed for the call and not null; texts are NUL-terminated;
 *   - a handle is a 64-bit number that the host gave to the application (usually an address);
 *     0 is "no such service", and every function says what it does with it;
 *   - a u32 result is 0 for success. */
#ifndef KST_BASE_H
#define KST_BASE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define KST_C_BEGIN extern "C" {
#define KST_C_END }
#else
#define KST_C_BEGIN
#define KST_C_END
#endif

#if defined(__GNUC__)
#define KST_API __attribute__((visibility("default")))
#define KST_PRINTF(fmtAt, argsAt) __attribute__((format(printf, fmtAt, argsAt)))
#else
#define KST_API
#define KST_PRINTF(fmtAt, argsAt)
#endif

#endif /* KST_BASE_H */
