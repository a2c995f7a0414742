/* link_both: a program that calls the distribution's libcoap and our library, linked with both. */
#include "coap_svc/rpc/coap_rpc.h"
#include "link_check.h"

/* Prototypes of the stock library; its package brings no headers. */
void coap_startup(void);
void coap_cleanup(void);
const char *coap_package_version(void);
void *coap_new_context(const void *listenAddr);
void coap_free_context(void *context);

int main(void) {
  const Libcoap stock = {coap_startup, coap_cleanup, coap_package_version, coap_new_context,
                         coap_free_context};
  void *library = dlopen(OUR_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
  CHECK(library);
  CheckBoth(stock, OurLibcoap(library));
  CHECK(COAP_RpcInit(NULL) == NULL);
  CHECK(strcmp(coap_package_version(), STOCK_VERSION) == 0);
  return 0;
}
