/* coap_rpc_lib_check_code.h: the query "_ual-checkcode=<number>".
 *
 * A check code is the ETag of the last payload that a client has of a URI.  A registration with it
 * asks for the whole data unless the code is up to date; the response carries the query back. */
#ifndef COAP_RPC_LIB_CHECK_CODE_H
#define COAP_RPC_LIB_CHECK_CODE_H

#include <coap3/coap.h>

#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"

namespace coap_rpc {

void AddCheckCodeQuery(coap_pdu_t *pdu, uint64_t checkCode);

// IsCheckCodeQuery says whether a query, which may be null, begins with the name and "=".
bool IsCheckCodeQuery(const coap_string_t *query);

// IsUpToDate says whether the check code of such a query is `etag`.  An empty text after the "="
// counts as up to date; text that is not a number does not.
bool IsUpToDate(const coap_string_t &query, uint64_t etag);

// HasCheckCodeQuery says whether one of a message's queries has the name, with or without "=".
bool HasCheckCodeQuery(const CoapRpcMsgOptions &opt);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_CHECK_CODE_H */
