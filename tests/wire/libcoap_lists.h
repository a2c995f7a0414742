/* libcoap_lists.h: how long libcoap's lists are, which no function of its own tells. */
#ifndef LIBCOAP_LISTS_H
#define LIBCOAP_LISTS_H

#include <coap3/coap.h>

#ifdef __cplusplus
extern "C" {
#endif

/* NumLibcoapAsync counts the asynchronous requests that libcoap looks through for each datagram. */
unsigned NumLibcoapAsync(const coap_context_t *context);

/* NumLibcoapPrepared counts what client sessions keep to receive responses in blocks. */
unsigned NumLibcoapPrepared(const coap_context_t *context);

/* MostLibcoapDelayed is the length of the client sessions' longest queue. */
unsigned MostLibcoapDelayed(const coap_context_t *context);

/* LibcoapObserverBytes is where libcoap counts the payloads that it keeps for observers. */
size_t *LibcoapObserverBytes(coap_context_t *context);

#ifdef __cplusplus
}
#endif

#endif /* LIBCOAP_LISTS_H */
