/* kst_disp.h: display commands, with which an operator inspects a running process.
 *
 * An object is a named record; commands are registered on it and run with it.  A paged command
 * prints one piece per call: a handler that saved a context (KST_DispSaveCtx_) is called again with
 * that context until it saves none. */
#ifndef KST_DISP_H
#define KST_DISP_H

#include "kst_base.h"

KST_C_BEGIN

enum { KST_DISP_MAX_PARAMS = 4, KST_DISP_MAX_KEY_LEN = 1024, KST_DISP_MAX_COUNTER_LEN = 16 };

/* KST_DISP_FUNC handles one command.  It gets the object, then the command's parameters by value
 * in the order of their registration: a parameter whose name begins with "pc" is a text
 * (const char *, never null), one whose name begins with "uni" is a uint32_t.
 * Its result is ignored. */
typedef uint32_t (*KST_DISP_FUNC)(void *obj, ...);

/* KST_DispRegObj makes `obj` known under `name` (copied).
 *
 * Returns 0; non-zero when the service is 0, the name is taken, or there is no memory. */
KST_API uint32_t KST_DispRegObj(uint64_t disp, const char *name, void *obj);

/* KST_DispUnregObj removes the object and all its commands.
 *
 * Returns 0; non-zero when no such object is registered (a second call is harmless). */
KST_API uint32_t KST_DispUnregObj(uint64_t disp, const char *name);

/* KST_DispRegFunc_ adds a command to an object.
 *
 *   handlerName   name of the handler function, for diagnostics
 *   command       what the operator types, words separated by one blank
 *   flags         visibility of the command; 128 is an operator's read-only command
 *   objName       name of the registered object
 *   paramCount    number of parameter names that follow, at most KST_DISP_MAX_PARAMS;
 *                 each is a const char * that begins with "pc" or "uni"
 *
 * All texts are copied.  Returns 0; non-zero when the service is 0, the object is unknown, there
 * are too many parameters, a parameter name has no known prefix, the command exists already, or
 * there is no memory. */
KST_API uint32_t KST_DispRegFunc_(uint64_t disp, const char *handlerName, KST_DISP_FUNC handler,
                                  const char *command, uint32_t flags, const char *objName,
                                  uint32_t paramCount, ...);

/* KST_DispDescribe gives an operator's help for a registered command: a line for the command and
 * one for each of its parameters.  All texts are copied; a second call replaces the first one's.
 *
 *   command      as registered
 *   about        what the command shows; null: nothing is said
 *   paramCount   number of texts that follow, each a const char * about a parameter, in the order
 * of registration; at most KST_DISP_MAX_PARAMS.  Null: nothing is said about it
 *
 * Optional: a host without this function has no help.  The library refers to it weakly.
 *
 * Returns 0; non-zero when the service is 0, the object has no such command, there are more texts
 * than parameters, or there is no memory. */
KST_API uint32_t KST_DispDescribe(uint64_t disp, const char *objName, const char *command,
                                  const char *about, uint32_t paramCount, ...);

/* KST_DispPrintf_ prints to the operator who runs the current command.  Outside a command, and with
 * service 0, it does nothing.  Texts of any length are not truncated. */
KST_API void KST_DispPrintf_(uint64_t disp, const char *fmt, ...) KST_PRINTF(2, 3);

/* KST_DispSaveCtx_ saves the position of the running paged command (both byte strings are copied)
 * and requests another call.
 *
 *   keyLen       at most KST_DISP_MAX_KEY_LEN bytes
 *   counterLen   at most KST_DISP_MAX_COUNTER_LEN bytes
 * Longer ones, calls outside a command, and service 0 are ignored. */
KST_API void KST_DispSaveCtx_(uint64_t disp, const void *key, uint32_t keyLen, const void *counter,
                              uint32_t counterLen);

/* KST_DispGetLastCtx_ returns the position that the previous call saved.
 *
 *   counter   receives the saved counter bytes, as many as were saved; unchanged on the first call
 *
 * Returns the saved key, valid until the handler returns; null on the first call and for
 * service 0. */
KST_API const void *KST_DispGetLastCtx_(uint64_t disp, void *counter);

/* KST_GetMemStr renders bytes as lower-case hexadecimal digits, two per byte, with a blank between
 * groups of `perGroup` bytes (0: no groups).
 *
 *   bytes   may be null with len 0
 *   size    of buf in bytes, terminator included; the text is truncated at whole bytes
 *
 * Returns buf, always terminated when size is not 0. */
KST_API char *KST_GetMemStr(const void *bytes, uint32_t len, uint32_t perGroup, char *buf,
                            uint32_t size);

KST_C_END
#endif /* KST_DISP_H */
