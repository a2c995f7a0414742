/* libcoap_keep_token.h: stands in front of libcoap's coap_session.c.
 *
 * While a session reports that its peer refuses datagrams, libcoap lends the waiting request the
 * application's token and gives its own back afterwards, from memory that the first step has
 * overwritten or freed.  A block-wise request then goes on under a wrong token and never ends.
 * Nobody here looks at that token: the request keeps its own. */
#include "coap3/coap_libcoap_build.h"

#define coap_check_update_token(session, pdu) ((void)(pdu))
