/* coap_rpc_direct.h: server: entries that answer as ordinary CoAP.
 *
 * A registered entry is made direct with COAP_RpcSerSetDirect.  Any CoAP client can then call it:
 *
 *   onRequest        (mode 0) what it writes and returns is the answer
 *   onAsyncRequest   (mode 1) the answer goes to the session and token that asked; given after the
 *                    callback, CON to a CON request, but NON while 2048 are unacknowledged
 *
 * All requests of the entry's URI reach it, CON and NON, with and without payload, whatever message
 * type and packet type its key has; other entries of the URI get none of them, except registrations
 * of observers (see COAP_RpcSerSetDirect).  `payload` is never null.
 *
 * An answer has the code 2.05 for GET and FETCH and 2.04 for the other methods, no Content-Format
 * and no Uri-Path, unless COAP_RpcSerSetAnswer says otherwise, and the options that
 * COAP_RpcSerAddAnswerOption adds.  One that is larger than a message goes block-wise.  Also sent:
 *
 *   4.05   the method is not allowed          5.00   onRequest failed, or its result is too long
 *   4.08   later block of an answer that is   5.01   the entry has no callback for its mode
 *          no longer there (GET, FETCH: the   5.03   too many requests open, or no memory
 *          callback is asked again)           5.04   no asynchronous answer in time
 *
 * A POST, PUT, DELETE, PATCH or iPATCH that arrives again, that is, with the same Message ID and
 * token from the same address and port, calls no callback: it gets the answer of the first one, or
 * an empty acknowledgement while that is open.  Requests are known for 247 s (CON) or 145 s (NON),
 * see COAP_RpcGetForgottenNum.  GET and FETCH are known only while they are open. */
#ifndef COAP_RPC_DIRECT_H
#define COAP_RPC_DIRECT_H

#include "coap_svc/rpc/coap_rpc_ser.h"

COAP_RPC_C_BEGIN

/* Methods that a direct entry may allow: bits that add up. */
enum {
  COAP_RPC_ALLOW_GET = 1 << 1,
  COAP_RPC_ALLOW_POST = 1 << 2,
  COAP_RPC_ALLOW_PUT = 1 << 3,
  COAP_RPC_ALLOW_DELETE = 1 << 4,
  COAP_RPC_ALLOW_FETCH = 1 << 5,
  COAP_RPC_ALLOW_PATCH = 1 << 6,
  COAP_RPC_ALLOW_IPATCH = 1 << 7,
  COAP_RPC_ALLOW_ALL = 0xFE
};

/* COAP_RPC_DIRECT_NO_FORMAT: no Content-Format, or no Accept. */
#define COAP_RPC_DIRECT_NO_FORMAT 0xFFFFu

/* Why a handle has ended without an answer from the application. */
enum {
  COAP_RPC_ASYNC_TIMEOUT = 1, /* not answered in time: the peer was sent 5.04 */
  COAP_RPC_ASYNC_CLOSED       /* the listen that it came in on was closed: nothing was sent */
};

/* CoapRpcSerOnAsyncEnd hears of a request of a direct entry that the application has not answered
 * and can answer no more: `async` is not pending any longer.  Not called once COAP_RpcUninit has
 * begun.
 *
 * Called from the I/O task, or by COAP_RpcSerUnsetUri or COAP_RpcSerSetUri when it closes a listen.
 * May call any function of the library except COAP_RpcUninit.
 *
 *   userData   of the entry's handler table
 *   reason     COAP_RPC_ASYNC_... */
typedef void (*CoapRpcSerOnAsyncEnd)(uint64_t userData, void *async, uint32_t reason);

/* CoapRpcSerDirectParam says how a direct entry is served.  All zero is the default. */
typedef struct CoapRpcSerDirectParam {
  uint32_t methods;                /* COAP_RPC_ALLOW_...; 0: GET and POST.  Others get 4.05 */
  uint32_t timeoutMs;              /* for asynchronous answers, checked every 100 ms; 0: 60000 */
  CoapRpcSerOnAsyncEnd onAsyncEnd; /* optional */
} CoapRpcSerDirectParam;

/* COAP_RpcSerSetDirect makes a registered entry direct, attached or not; it stays so.  Set again,
 * the new parameters replace the former ones, also for requests that are open.
 *
 * The `out` buffer of onRequest is NOT zeroed for a direct entry: the handler writes all that it
 * returns.  A negative result, -1 included, is a failure; 0 is an answer without payload.
 *
 * Several direct entries of one URI: each serves its own listen, and the one attached first serves
 * the listens that have none.  While no direct entry of a URI is attached, its other entries are
 * served as ever.
 *
 * A GET with the Observe option goes to the entry with an observe record that its key finds, and is
 * served as ever, but for a direct entry with 2.05 in place of 2.01; so are the notifications.
 * Without such an entry the answer is an ordinary one: no Observe option, no observer.
 *
 * COAP_RpcSerUnsetUri: a request that is still open then gets 5.03 when it is answered, or ends
 * with COAP_RPC_ASYNC_CLOSED when its listen is closed.
 *
 *   param   copied; null: the defaults
 *
 * Returns 0 or:  1900001464 null argument (asserted)     1900001465 key not registered
 *                1900001466 methods has unknown bits     1900001467 no memory */
COAP_RPC_API uint32_t COAP_RpcSerSetDirect(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                           const CoapRpcSerDirectParam *param);

/* COAP_RpcSerSetAnswer sets code and Content-Format of the answer to the request for which a
 * callback of a direct entry is running; the last call counts.  In onAsyncRequest it is for the
 * answer that COAP_RpcSerSendAsyncResponse sends, then or later.
 *
 *   code            class x 100 + detail: 201 to 205, 400 to 431, 500 to 531.  508 is a proxy's:
 *                   its payload then begins with our address (RFC 8768 section 4)
 *   contentFormat   of the payload, as IANA numbers them (0 text, 50 JSON), or
 *                   COAP_RPC_DIRECT_NO_FORMAT; not sent without a payload
 *
 * Returns 0 or:  1900001469 null instance (asserted)     1900001470 no such callback is running
 *                1900001471 code or format out of range */
COAP_RPC_API uint32_t COAP_RpcSerSetAnswer(CoapRpcCtx *ctx, uint32_t code, uint32_t contentFormat);

/* COAP_RpcSerSetAsyncAnswer does so for an open request, whenever that is.
 *
 * Returns 0 or:  1900001475 null argument                1900001302 not pending, or not direct
 *                1900001471 code or format out of range */
COAP_RPC_API uint32_t COAP_RpcSerSetAsyncAnswer(CoapRpcCtx *ctx, void *async, uint32_t code,
                                                uint32_t contentFormat);

/* COAP_RpcSerFailAsync answers an open request of a direct entry with an error.
 * COAP_RpcSerAbortAsyncResponse does so with 5.03 and no text.
 *
 *   code   class x 100 + detail: 400 to 431 or 500 to 531
 *   text   diagnostic payload, UTF-8, copied, at most 1024 bytes of whole characters; null: none
 *
 * Returns 0 or:  1900001472 null argument                1900001302 not pending, or not direct
 *                1900001473 not an error's code          1900001474 no memory */
COAP_RPC_API uint32_t COAP_RpcSerFailAsync(CoapRpcCtx *ctx, void *async, uint32_t code,
                                           const char *text);

/* Options of requests and answers that have a function or a rule here.  Others are as IANA numbers
 * them. */
enum {
  COAP_RPC_OPTION_IF_MATCH = 1,
  COAP_RPC_OPTION_ETAG = 4,
  COAP_RPC_OPTION_LOCATION_PATH = 8,
  COAP_RPC_OPTION_MAX_AGE = 14,
  COAP_RPC_OPTION_URI_QUERY = 15,
  COAP_RPC_OPTION_LOCATION_QUERY = 20
};

/* COAP_RpcSerAddAnswerOption adds an option to the answer to the request for which a callback of a
 * direct entry is running.  Options are sent with whatever the application answers, errors too, but
 * not with an error that the library answers in its place.  In onAsyncRequest they are for the
 * answer that is given then or later.
 *
 *   number       ETag (1 to 8 bytes) or Max-Age (0 to 4 bytes, seconds, the most significant byte
 *                first), once each; Location-Path or Location-Query (0 to 255 bytes), one for each
 *                segment or argument, in their order
 *   value, len   copied; `value` may be null when `len` is 0
 *
 * An answer has at most 8 such options, of together 256 bytes.
 *
 * Returns 0 or:  1900001508 null argument (asserted)     1900001470 no such callback is running
 *                1900001509 another option, a length     1900001550 too many, or too long together
 *                           out of range, "." or ".." as 1900001551 no memory
 *                           a path, or a second ETag or
 *                           Max-Age */
COAP_RPC_API uint32_t COAP_RpcSerAddAnswerOption(CoapRpcCtx *ctx, uint32_t number,
                                                 const void *value, uint32_t len);

/* COAP_RpcSerAddAsyncAnswerOption does so for an open request, whenever that is.
 *
 * Returns 0 or:  1900001552 null argument                1900001302 not pending, or not direct
 *                1900001509, 1900001550, 1900001551 as above */
COAP_RPC_API uint32_t COAP_RpcSerAddAsyncAnswerOption(CoapRpcCtx *ctx, void *async, uint32_t number,
                                                      const void *value, uint32_t len);

enum { COAP_RPC_DIRECT_ETAG_SIZE = 8 };

/* CoapRpcSerRequest is what COAP_RpcSerGetRequest tells of a request. */
typedef struct CoapRpcSerRequest {
  uint32_t method; /* as on the wire: 1 GET, 2 POST, 3 PUT, 4 DELETE, 5 FETCH, 6 PATCH, 7 iPATCH */
  uint32_t isConfirmable; /* 1 CON, 0 NON */
  uint32_t contentFormat; /* COAP_RPC_DIRECT_NO_FORMAT: none */
  uint32_t accept;        /* likewise */
  CoapRpcIpAddr peerAddr;
  uint32_t peerPort;
  uint32_t etagLen; /* bytes of the first ETag option; 0: none */
  uint8_t etag[COAP_RPC_DIRECT_ETAG_SIZE];
} CoapRpcSerRequest;

/* COAP_RpcSerGetRequest describes the request for which a callback of a direct entry is running.
 *
 * Returns 0 or:  1900001478 null argument (asserted)     1900001479 no such callback is running */
COAP_RPC_API uint32_t COAP_RpcSerGetRequest(CoapRpcCtx *ctx, CoapRpcSerRequest *out);

/* COAP_RpcSerGetQuery gives the value of the request's first Uri-Query option `name=value`; "" for
 * an option that is the name alone.  Not percent-encoded: bytes as they were sent.
 *
 *   out, size   for the value and a NUL
 *
 * Returns 0 or:  1900001481 null argument (asserted)     1900001479 no such callback is running
 *                1900001482 no such query                1900001476 the value does not fit */
COAP_RPC_API uint32_t COAP_RpcSerGetQuery(CoapRpcCtx *ctx, const char *name, char *out,
                                          uint32_t size);

/* COAP_RpcSerGetOption gives any option of the request for which a callback of a direct entry is
 * running, bytes as they were sent: all If-Match, each Uri-Query, options of the application's own.
 * A request with If-None-Match reaches no callback: its path exists, so it gets 4.12.
 *
 *   number      as on the wire
 *   index       0 for the first option of this number
 *   out, size   for the value, without NUL; `out` may be null when `size` is 0
 *   len         bytes of the value, also when it does not fit
 *
 * Returns 0 or:  1900001504 null argument (asserted)     1900001479 no such callback is running
 *                1900001505 no such option               1900001506 the value does not fit */
COAP_RPC_API uint32_t COAP_RpcSerGetOption(CoapRpcCtx *ctx, uint32_t number, uint32_t index,
                                           void *out, uint32_t size, uint32_t *len);

/* COAP_RpcSerSetLinkAttribute describes a direct entry in /.well-known/core (RFC 6690), where
 * clients also ask for paths by attribute.  A path shows the attributes of its entries, the first
 * attached one's if several have the same, from when they are attached until none of the path's
 * entries is.
 *
 *   name    "rt", "if", "ct" or "title"
 *   value   1 to 255 bytes without quotes, backslashes and control characters; for ct numbers of
 *           formats, and for rt, if and ct several words with a space between them.  Null: none
 *
 * Returns 0 or:  1900001554 null argument (asserted)     1900001555 no direct entry has the key
 *                1900001556 other name, or bad value     1900001557 no memory; nothing has changed
 */
COAP_RPC_API uint32_t COAP_RpcSerSetLinkAttribute(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                                  const char *name, const char *value);

/* COAP_RPC_MAX_REMEMBERED, COAP_RPC_MAX_REMEMBERED_BYTES: how many requests an instance knows
 * again, and the memory for them and their answers.  The oldest are forgotten first. */
#define COAP_RPC_MAX_REMEMBERED 16384u
#define COAP_RPC_MAX_REMEMBERED_BYTES 4194304u

/* COAP_RpcGetForgottenNum counts the requests that were forgotten before their time, since there
 * were too many or no memory: arriving again, they would be executed again.  0 for a null instance.
 */
COAP_RPC_API uint64_t COAP_RpcGetForgottenNum(const CoapRpcCtx *ctx);

COAP_RPC_C_END
#endif /* COAP_RPC_DIRECT_H */
