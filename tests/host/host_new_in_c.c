/* host_new_in_c.c: the host's interface used from C. */
#include <string.h>

#include "csvc_dbg.h"
#include "kestrel.h"
#include "kestrel_console.h"
#include "kst.h"
#include "osal.h"
#include "tarn.h"

uint64_t HostNewInC(void);

/* HostNewInC makes a host, leaks one allocation and returns what the deletion reports. */
uint64_t HostNewInC(void) {
  KestrelParam param;
  memset(&param, 0, sizeof param);
  param.logSinks = KESTREL_SINK_NONE;
  Kestrel *host = KestrelNew(&param, NULL, 0);
  if (host == NULL) return 0;
  const KestrelDispAccess nowhere = {"", 0, 0};
  if (KestrelDispListen(host, &nowhere) != KESTREL_BAD_ARGUMENT) return 0;
  KST_Malloc_(KestrelMem(host), 1, "inC", 1);
  return KestrelDelete(host);
}
