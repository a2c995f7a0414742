/* link_check.h: what the link tests share.  Two libcoaps are in play: "stock", the distribution's,
 * which the program itself uses, and "ours", the one inside libcoap_svc_rpc.so. */
#ifndef LINK_CHECK_H
#define LINK_CHECK_H
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define STOCK_VERSION "libcoap 4.3.1"
#define OUR_VERSION "libcoap 4.3.5"
#define OUR_SYMBOL_VERSION "COAP_SVC_RPC_LIBCOAP"

#define CHECK(condition)                                                      \
  do {                                                                        \
    if (!(condition)) {                                                       \
      fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #condition); \
      exit(1);                                                                \
    }                                                                         \
  } while (0)

/* The part of libcoap's interface that both releases share and the tests use. */
typedef struct {
  void (*startup)(void);
  void (*cleanup)(void);
  const char *(*packageVersion)(void);
  void *(*newContext)(const void *listenAddr);
  void (*freeContext)(void *context);
} Libcoap;

/* A name that dladdr and backtrace_symbols can give: the log handler depends on it. */
static inline void CheckNamed(void *address, const char *name, const char *library) {
  Dl_info info;
  CHECK(dladdr(address, &info) != 0);
  CHECK(info.dli_sname && strcmp(info.dli_sname, name) == 0);
  CHECK(strstr(info.dli_fname, library));
}

/* OurFunction finds a libcoap function in our library, which only works by its version. */
static inline void *OurFunction(void *library, const char *name) {
  void *found = dlvsym(library, name, OUR_SYMBOL_VERSION);
  CHECK(found);
  CheckNamed(found, name, "libcoap_svc_rpc");
  CHECK(dlsym(library, name) != found);
  CHECK(dlsym(RTLD_DEFAULT, name) != found);
  return found;
}

/* Function pointers and object pointers do not convert in ISO C. */
#define SET_FUNCTION(member, address)           \
  do {                                          \
    void *found_ = (address);                   \
    memcpy(&(member), &found_, sizeof(member)); \
  } while (0)

static inline Libcoap OurLibcoap(void *library) {
  Libcoap ours;
  SET_FUNCTION(ours.startup, OurFunction(library, "coap_startup"));
  SET_FUNCTION(ours.cleanup, OurFunction(library, "coap_cleanup"));
  SET_FUNCTION(ours.packageVersion, OurFunction(library, "coap_package_version"));
  SET_FUNCTION(ours.newContext, OurFunction(library, "coap_new_context"));
  SET_FUNCTION(ours.freeContext, OurFunction(library, "coap_free_context"));
  return ours;
}

/* Both work, and at the same time. */
static inline void CheckBoth(Libcoap stock, Libcoap ours) {
  CHECK(strcmp(stock.packageVersion(), STOCK_VERSION) == 0);
  CHECK(strcmp(ours.packageVersion(), OUR_VERSION) == 0);
  stock.startup();
  ours.startup();
  void *stockContext = stock.newContext(NULL);
  void *ourContext = ours.newContext(NULL);
  CHECK(stockContext && ourContext);
  stock.freeContext(stockContext);
  ours.freeContext(ourContext);
  ours.cleanup();
  stock.cleanup();
}
#endif /* LINK_CHECK_H */
