#include "coap3/coap_internal.h"

#include <string.h>

#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "libcoap/ext/coap_rpc_lib_last_block.h"

static size_t BlockSize(const coap_lg_xmit_t *blocks) { return (size_t)16 << blocks->blk_size; }

static uint32_t LastNum(const coap_lg_xmit_t *blocks) {
  return (uint32_t)((blocks->length - 1) / BlockSize(blocks));
}

static size_t LastLength(const coap_lg_xmit_t *blocks) {
  return blocks->length - LastNum(blocks) * BlockSize(blocks);
}

/* NewLastBlock copies the last block while the payload is there.  Sessions of our own do without:
 * no event tells when they go. */
static CoapRpcLastBlock *NewLastBlock(coap_session_t *session, coap_lg_xmit_t *blocks) {
  if (session->type == COAP_SESSION_TYPE_CLIENT) return NULL;
  const size_t len = LastLength(blocks);
  CoapRpcLastBlock *last = coap_malloc_type(COAP_STRING, sizeof(*last) + len);
  if (!last) return NULL;
  memset(last, 0, sizeof(*last));
  memcpy(last + 1, blocks->data + (blocks->length - len), len);
  last->session = session;
  last->blocks = blocks;
  return last;
}

/* Release gives the payload back, and puts the copy into its place. */
static void Release(CoapRpcLastBlock *last) {
  coap_lg_xmit_t *blocks = last->blocks;
  LL_DELETE(last->session->lg_xmit, blocks);
  if (blocks->release_func) blocks->release_func(last->session, blocks->app_ptr);
  blocks->release_func = NULL;
  blocks->app_ptr = NULL;
  blocks->data = (const uint8_t *)(last + 1);
}

CoapRpcLastBlock *CoapRpcLibEndSent(coap_session_t *session, const void *appPtr) {
  coap_lg_xmit_t *blocks = CoapRpcLibFindBlocks(session, appPtr);
  if (!blocks) return NULL;
  CoapRpcLastBlock *last = NewLastBlock(session, blocks);
  if (last) {
    Release(last);
  } else {
    CoapRpcLibEndBlocks(session, appPtr);
  }
  return last;
}

void CoapRpcLibFreeLastBlock(CoapRpcLastBlock *last) {
  coap_block_delete_lg_xmit(last->session, last->blocks);
  coap_free_type(COAP_STRING, last);
}

/* Matches lets libcoap look, with nothing but this transfer in the session. */
static int Matches(const CoapRpcLastBlock *last, const coap_resource_t *resource,
                   const coap_pdu_t *request, const coap_string_t *query) {
  coap_session_t *session = last->session;
  coap_lg_xmit_t *others = session->lg_xmit;
  session->lg_xmit = last->blocks;
  last->blocks->next = NULL;
  const int isFound = coap_find_lg_xmit_response(session, request, resource, query) != NULL;
  session->lg_xmit = others;
  return isFound;
}

/* MayHaveEtag says whether a request names the ETag, or none: another one asks for another payload.
 */
static int MayHaveEtag(const coap_pdu_t *request, uint64_t etag) {
  coap_opt_filter_t filter;
  coap_opt_iterator_t it;
  const coap_opt_t *option;
  int hasOthers = 0;
  coap_option_filter_clear(&filter);
  coap_option_filter_set(&filter, COAP_OPTION_ETAG);
  coap_option_iterator_init(request, &it, &filter);
  while ((option = coap_option_next(&it)) != NULL) {
    if (coap_decode_var_bytes8(coap_opt_value(option), coap_opt_length(option)) == etag) return 1;
    hasOthers = 1;
  }
  return !hasOthers;
}

int CoapRpcLibIsLastBlock(const CoapRpcLastBlock *last, coap_session_t *session,
                          const coap_resource_t *resource, const coap_pdu_t *request,
                          const coap_string_t *query) {
  coap_block_b_t block;
  return last->session == session &&
         coap_get_block_b(session, request, COAP_OPTION_BLOCK2, &block) != 0 &&
         block.num == LastNum(last->blocks) && block.szx == last->blocks->blk_size &&
         MayHaveEtag(request, last->blocks->b.b2.etag) && Matches(last, resource, request, query);
}

int CoapRpcLibIsRepeated(const CoapRpcLastBlock *last, const coap_session_t *session,
                         const coap_pdu_t *request) {
  return last->session == session && last->blocks->last_request == COAP_MID_ASKED(request->mid);
}

/* AddOptions adds the options of the transfer.  Observe belongs to its first block only. */
static int AddOptions(const coap_lg_xmit_t *blocks, coap_pdu_t *response) {
  coap_opt_iterator_t it;
  const coap_opt_t *option;
  coap_option_iterator_init(&blocks->pdu, &it, COAP_OPT_ALL);
  while ((option = coap_option_next(&it)) != NULL) {
    if (it.number == COAP_OPTION_OBSERVE || it.number == COAP_OPTION_BLOCK2) continue;
    if (!coap_insert_option(response, it.number, coap_opt_length(option), coap_opt_value(option))) {
      return 0;
    }
  }
  uint8_t value[4];
  const unsigned block = LastNum(blocks) << 4 | blocks->blk_size;
  const unsigned len = coap_encode_var_safe(value, sizeof(value), block);
  return coap_insert_option(response, COAP_OPTION_BLOCK2, len, value) != 0;
}

void CoapRpcLibAnswerLastBlock(const CoapRpcLastBlock *last, coap_pdu_t *response) {
  const coap_lg_xmit_t *blocks = last->blocks;
  if (AddOptions(blocks, response) && coap_add_data(response, LastLength(blocks), blocks->data)) {
    response->code = blocks->pdu.code;
  } else {
    response->code = COAP_RESPONSE_CODE(500);
  }
}
