/* coap_rpc_lib_member.cpp: elements of JSON notifications, for builders without Jansson. */
#include <jansson.h>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"

using namespace coap_rpc;

uint32_t COAP_RpcSerSetMember(void *out, const char *name, const char *value, uint32_t len) {
  if (!out || !name || !value) return Violated(kSiteSetMemberNullArg);
  json_t *json = json_loadb(value, len, JSON_DECODE_ANY, nullptr);
  if (!json) return Code(kSiteSetMemberNotJson);
  const bool isSet = json_object_set_new(static_cast<json_t *>(out), name, json) == 0;
  return isSet ? 0 : Code(kSiteSetMemberNoMemory);
}
