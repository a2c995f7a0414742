/* link_dlopen ours|stock: loads both libraries into the global scope, the one named first.  The
 * second must not get its own libcoap calls answered by the first. */
#include "coap_svc/rpc/coap_rpc.h"
#include "link_check.h"

static void *Load(const char *path) {
  void *library = dlopen(path, RTLD_NOW | RTLD_GLOBAL);
  if (!library) fprintf(stderr, "%s\n", dlerror());
  CHECK(library);
  return library;
}

int main(int argc, char **argv) {
  CHECK(argc == 2);
  const int oursFirst = strcmp(argv[1], "ours") == 0;
  void *first = Load(oursFirst ? OUR_LIBRARY : STOCK_LIBCOAP);
  void *second = Load(oursFirst ? STOCK_LIBCOAP : OUR_LIBRARY);
  void *library = oursFirst ? first : second;

  /* Without a handle, as an application's own reference would be resolved. */
  Libcoap stock;
  SET_FUNCTION(stock.startup, dlsym(RTLD_DEFAULT, "coap_startup"));
  SET_FUNCTION(stock.cleanup, dlsym(RTLD_DEFAULT, "coap_cleanup"));
  SET_FUNCTION(stock.packageVersion, dlsym(RTLD_DEFAULT, "coap_package_version"));
  SET_FUNCTION(stock.newContext, dlsym(RTLD_DEFAULT, "coap_new_context"));
  SET_FUNCTION(stock.freeContext, dlsym(RTLD_DEFAULT, "coap_free_context"));
  CHECK(stock.startup && stock.cleanup && stock.packageVersion && stock.newContext &&
        stock.freeContext);
  CheckBoth(stock, OurLibcoap(library));

  __typeof__(COAP_RpcInit) *init;
  SET_FUNCTION(init, dlsym(library, "COAP_RpcInit"));
  CHECK(init && init(NULL) == NULL);
  return 0;
}
