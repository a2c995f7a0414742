/* mirror.h: what a mirror tells, as two calls of Python: a row, and "look again". */
#ifndef COAPRPC_MIRROR_H
#define COAPRPC_MIRROR_H

#include "coap_svc/rpc/coap_rpc_sync.h"

static void coaprpc_on_row(uint64_t userData, const void *key, const void *oldVal, const void *newVal);
static void coaprpc_on_mirror_state(uint64_t userData);

static void OnAdded(uint64_t userData, const void *key, const void *val) {
  coaprpc_on_row(userData, key, NULL, val);
}

static void OnRemoved(uint64_t userData, const void *key, const void *val) {
  coaprpc_on_row(userData, key, val, NULL);
}

static void OnSynced(uint64_t userData, uint64_t version) {
  (void)version;
  coaprpc_on_mirror_state(userData);
}

static void OnState(uint64_t userData, uint32_t state, uint32_t code) {
  (void)state, (void)code;
  coaprpc_on_mirror_state(userData);
}

static void coaprpc_set_mirror_callbacks(CoapRpcMirrorParam *param) {
  param->onAdded = OnAdded;
  param->onChanged = coaprpc_on_row;
  param->onRemoved = OnRemoved;
  param->onSynced = OnSynced;
  param->onState = OnState;
}

#endif /* COAPRPC_MIRROR_H */
