/* Functions that are still to be built; weak, so that the real ones take their place. */
#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/client/coap_rpc_cli_disp.h"
#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/common/coap_rpc_coap_fwd.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_link.h"
#include "coap_svc/rpc/common/coap_rpc_log.h"
#include "coap_svc/rpc/common/coap_rpc_text.h"
#include "coap_svc/rpc/init/coap_rpc_cli.h"
#include "coap_svc/rpc/init/coap_rpc_main.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ext_ops.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_cli.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_observe.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_payload.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_internals.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_log.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_lookup.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_msg.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_data.h"
#include "coap_svc/rpc/server/coap_rpc_ser_disp.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_res.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/coap_rpc_types.h"

extern "C" {
__attribute__((weak)) uint32_t COAP_RpcCliDispInit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliDispUninit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcDispCliVtbl_(void *, ...) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcDispCliRequest_(void *, ...) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcDispCliSession_(void *, ...) { return {}; }
__attribute__((weak)) char * COAP_RpcGetCliUriVtblStr_(const CoapRpcCliUriVtbl *, char *, uint32_t) { return {}; }
__attribute__((weak)) char * COAP_RpcGetCliReqDataStr_(const CoapRpcCliData *, const CoapRpcCliReqData *, char *, uint32_t) { return {}; }
__attribute__((weak)) char * COAP_RpcGetCliSessionStr_(const CoapRpcCliData *, const CoapRpcCliSession *, char *, uint32_t) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliReqInit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliReqUninit(void *) { return {}; }
__attribute__((weak)) int32_t COAP_RpcCliReqCmp_(const void *, const void *) { return {}; }
__attribute__((weak)) CoapRpcCliReqData * COAP_RpcCliFindReqData(CoapRpcCliData *, const CoapRpcCliReqKey *) { return {}; }
__attribute__((weak)) CoapRpcCliReqData * COAP_RpcCliFindFirstReqData(CoapRpcCliData *) { return {}; }
__attribute__((weak)) CoapRpcCliReqData * COAP_RpcCliFindNextReqData(CoapRpcCliData *, const CoapRpcCliReqKey *) { return {}; }
__attribute__((weak)) CoapRpcCliReqData * COAP_RpcCliAddReqData(CoapRpcCliData *, const CoapRpcCliReqKey *, const CoapRpcCliAddr *) { return {}; }
__attribute__((weak)) void COAP_RpcCliDelReqData(CoapRpcCliData *, CoapRpcCliReqData *) {}
__attribute__((weak)) void COAP_RpcCliReqBindSession(CoapRpcCliData *, CoapRpcCliSession *, CoapRpcCliReqData *) {}
__attribute__((weak)) void COAP_RpcCliReqUnbindSession(CoapRpcCliData *, CoapRpcCliReqData *) {}
__attribute__((weak)) uint32_t COAP_RpcCliReqIsBindSession(const CoapRpcCliSession *, const CoapRpcCliReqData *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliReqPayload(CoapRpcCliData *, CoapRpcCliReqData *, const CoapRpcCliReqKey *, const CoapRpcCliAddr *) { return {}; }
__attribute__((weak)) void COAP_RpcCliReqPayloadFree(CoapRpcCliData *, CoapRpcCliReqData *) {}
__attribute__((weak)) uint32_t COAP_RpcTrySendReq(CoapRpcCtx *, CoapRpcCliSession *, CoapRpcCliReqData *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcStartReSendReqTimer(CoapRpcCtx *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcReSendReqTimeOut(void *) { return {}; }
__attribute__((weak)) void COAP_RpcTryStopReSendReqTimer(CoapRpcCtx *) {}
__attribute__((weak)) uint32_t COAP_RpcCliReq(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcCliReqParam *, const CoapRpcCliAddr *) { return {}; }
__attribute__((weak)) void COAP_RpcResendRequest(CoapRpcCtx *, int32_t) {}
__attribute__((weak)) uint32_t COAP_RpcCliUnReq(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcCliReqParam *, const CoapRpcCliAddr *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliSetReqMode(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcCliReqParam *, const CoapRpcCliAddr *, uint32_t) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliSessionInit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliSessionUninit(void *) { return {}; }
__attribute__((weak)) int32_t COAP_RpcSessionCmp_(const void *, const void *) { return {}; }
__attribute__((weak)) CoapRpcCliSession * COAP_RpcCliFindSession(CoapRpcCliData *, const CoapRpcCliSessionKey *) { return {}; }
__attribute__((weak)) CoapRpcCliSession * COAP_RpcCliFindFirstSession(CoapRpcCliData *) { return {}; }
__attribute__((weak)) CoapRpcCliSession * COAP_RpcCliFindNextSession(CoapRpcCliData *, const CoapRpcCliSessionKey *) { return {}; }
__attribute__((weak)) CoapRpcCliSession * COAP_RpcCliAddSession(CoapRpcCliData *, const CoapRpcUriKey *, const CoapRpcCliAddr *) { return {}; }
__attribute__((weak)) void COAP_RpcCliTryDelSession(CoapRpcCliData *, CoapRpcCliSession *) {}
__attribute__((weak)) void COAP_RpcCliInsetAgingList(CoapRpcCliData *, CoapRpcCliSession *) {}
__attribute__((weak)) void COAP_RpcCliRemoveAgingList(CoapRpcCliData *, CoapRpcCliSession *) {}
__attribute__((weak)) uint32_t COAP_RpcCliAgingSessionTimeOut(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliTryStartAgingSessionTimer(CoapRpcCliData *) { return {}; }
__attribute__((weak)) void COAP_RpcCliTryStopAgingSessionTimer(CoapRpcCliData *) {}
__attribute__((weak)) char * COAP_RpcCliGetSessionStr_(const CoapRpcCliSessionKey *, char *, uint32_t) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliVtblInit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliVtblUninit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliUriInit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliUriUninit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcUriRegCliVtbl(CoapRpcCliData *, const CoapRpcUriKey *, const CoapRpcCliVtblReg *) { return {}; }
__attribute__((weak)) CoapRpcCliUriVtbl * COAP_RpcCliAddUriVtbl(CoapRpcCliData *, const CoapRpcUriKey *, const CoapRpcCliVtblReg *) { return {}; }
__attribute__((weak)) void COAP_RpcCliDelUriVtbl(CoapRpcCliData *, CoapRpcCliUriVtbl *) {}
__attribute__((weak)) CoapRpcCliUriVtbl * COAP_RpcCliFindUriVtbl(CoapRpcCliData *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) CoapRpcCliUriVtbl * COAP_RpcCliFindFirstUriVtbl(CoapRpcCliData *) { return {}; }
__attribute__((weak)) CoapRpcCliUriVtbl * COAP_RpcCliFindNextUriVtbl(CoapRpcCliData *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliCheckAddrValid(const CoapRpcCliAddr *) { return {}; }
__attribute__((weak)) coap_endpoint_t * COAP_RpcCreateEndPoint(CoapRpcCtx *, const CoapRpcSerListenAddr *) { return {}; }
__attribute__((weak)) void COAP_RpcDeleteEndPoint(CoapRpcCtx *, CoapRpcSerListen *) {}
__attribute__((weak)) uint32_t COAP_RpcCreateOrUpdateResource(CoapRpcCtx *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) void COAP_RpcDeleteResource(CoapRpcCtx *, const char *) {}
__attribute__((weak)) void COAP_RpcSerGetHandler(coap_resource_t *, coap_session_t *, const coap_pdu_t *, const coap_string_t *, coap_pdu_t *) {}
__attribute__((weak)) void COAP_RpcSerPostHandler(coap_resource_t *, coap_session_t *, const coap_pdu_t *, const coap_string_t *, coap_pdu_t *) {}
__attribute__((weak)) uint32_t COAP_RpcSerHandleRequest(coap_resource_t *, coap_session_t *, const coap_pdu_t *, const coap_string_t *, coap_pdu_t *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSvrHandleReqSync(coap_resource_t *, coap_session_t *, const coap_pdu_t *, const coap_string_t *, coap_pdu_t *, CoapRpcCtx *, CoapRpcSerUriVtbl *, uint8_t *, uint32_t, const CoapRpcMsgInfo *) { return {}; }
__attribute__((weak)) int32_t COAP_GetRpcData(CoapRpcCtx *, CoapRpcSerUriVtbl *, uint8_t *, uint32_t, const CoapRpcMsgInfo *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSvrHandleReqAsync(coap_resource_t *, coap_session_t *, const coap_pdu_t *, const coap_string_t *, coap_pdu_t *, CoapRpcCtx *, CoapRpcSerUriVtbl *, uint8_t *, uint32_t, const CoapRpcMsgInfo *) { return {}; }
__attribute__((weak)) coap_session_t * COAP_RpcSvrGetTargetSession(CoapRpcCtx *, CoapRpcSerUriVtbl *, const coap_session_t *) { return {}; }
__attribute__((weak)) void COAP_RpcReleaseAsyncRequest(coap_session_t *, void *) {}
__attribute__((weak)) void COAP_RpcAddUriPath(coap_resource_t *, const coap_pdu_t *, coap_pdu_t *, const coap_session_t *) {}
__attribute__((weak)) void COAP_RpcSvrHandleSetResponseHeader(coap_pdu_t *, const CoapRpcSerUriVtbl *, CoapRpcCtx *) {}
__attribute__((weak)) coap_session_t * COAP_RpcCreateCliSession(CoapRpcCtx *, const CoapRpcCliReqKey *, const CoapRpcCliSessionKey *) { return {}; }
__attribute__((weak)) void COAP_RpcDeleteCliSession(CoapRpcCtx *, CoapRpcCliSession *) {}
__attribute__((weak)) uint32_t COAP_RpcCliSendRequest(CoapRpcCtx *, CoapRpcCliSession *, CoapRpcCliReqData *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliAddOptionsAndData(CoapRpcCtx *, coap_pdu_t *, CoapRpcCliSession *, CoapRpcCliReqData *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliAddPduOption(CoapRpcCtx *, CoapRpcCliUriVtbl *, coap_pdu_t *, uint8_t *, CoapRpcCliSession *, CoapRpcCliReqData *) { return {}; }
__attribute__((weak)) void COAP_RpcCliAddCheckCode(coap_pdu_t *, const CoapRpcCliUriVtbl *, CoapRpcCliReqData *) {}
__attribute__((weak)) void COAP_RpcLogPayloadDetail(CoapRpcCtx *, const CoapRpcCliReqData *, const CoapRpcCliSession *, uint32_t) {}
__attribute__((weak)) void COAP_RpcCliCancelRequest(CoapRpcCtx *, CoapRpcCliSession *, CoapRpcCliReqData *) {}
__attribute__((weak)) CoapRpcCliRspInfo COAP_GetRpcCliPubData(const CoapRpcMsgInfo *) { return {}; }
__attribute__((weak)) void COAP_RpcCliResponseCheckCode(CoapRpcCliUriVtbl *, const CoapRpcMsgInfo *, CoapRpcCliRspInfo *) {}
__attribute__((weak)) coap_response_t COAP_RpcCliResponseHandler(coap_session_t *, const coap_pdu_t *, const coap_pdu_t *, const coap_mid_t) { return {}; }
__attribute__((weak)) void COAP_RpcNackhandler(coap_session_t *, const coap_pdu_t *, const coap_nack_reason_t, const coap_mid_t) {}
__attribute__((weak)) int COAP_RpcEventHandler(coap_session_t *, const coap_event_t) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliResNoDataProc(CoapRpcCtx *, CoapRpcCliUriVtbl *, const CoapRpcCliRspInfo *) { return {}; }
__attribute__((weak)) void COAP_RpcLogNackInfo(CoapRpcCtx *, const coap_pdu_t *, uint32_t, int32_t) {}
__attribute__((weak)) void COAP_RpcDisConnectedEventHandler(coap_session_t *) {}
__attribute__((weak)) int COAP_RpcSerAddObserve(coap_session_t *, coap_subscription_t *, coap_proto_t, coap_address_t *, coap_addr_tuple_t *, coap_bin_const_t *, coap_bin_const_t *, void *) { return {}; }
__attribute__((weak)) int COAP_RpcSerDelObserve(coap_session_t *, coap_subscription_t *, void *) { return {}; }
__attribute__((weak)) uintptr_t COAP_RpcSerOnObserveReq_(uintptr_t, CoapRpcSerUriVtbl *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerProcTupleForNewObserve_(CoapRpcCtx *, CoapRpcSerUriVtbl *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerNotifyObservers(CoapRpcCtx *, CoapRpcSerUriVtbl *) { return {}; }
__attribute__((weak)) void COAP_RpcSerHandleObserveUpdate(coap_resource_t *, coap_session_t *, const coap_pdu_t *, const coap_string_t *, coap_pdu_t *) {}
__attribute__((weak)) uint32_t COAP_RpcSerHandleObserveBatchUpdate(CoapRpcCtx *, CoapRpcSerUriVtbl *, coap_pdu_t *, const CoapRpcMsgInfo *, const coap_string_t *) { return {}; }
__attribute__((weak)) void COAP_RpcSerHandleJson(CoapRpcSerUriVtbl *, coap_resource_t *, coap_session_t *, const coap_pdu_t *, const coap_string_t *, coap_pdu_t *) {}
__attribute__((weak)) void COAP_RpcSerHandleIdl(CoapRpcSerUriVtbl *, coap_resource_t *, coap_session_t *, const coap_pdu_t *, const coap_string_t *, coap_pdu_t *) {}
__attribute__((weak)) uint32_t COAP_RpcSerHandleOneData(CoapRpcCtx *, CoapRpcSerUriVtbl *, CoapRpcTupleChg *, struct json_t *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerHandleOneIdlMsg(CoapRpcCtx *, CoapRpcSerUriVtbl *, CoapRpcTupleChg *, CoapRpcSerIdlMsgBuf *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerHandleIdlGetPayload(CoapRpcSerUriVtbl *, uint8_t *, uint32_t *) { return {}; }
__attribute__((weak)) void COAP_OnLargeBlockSent(coap_session_t *, void *) {}
__attribute__((weak)) void COAP_OnLargeIdlMsgBlockSent(coap_session_t *, void *) {}
__attribute__((weak)) void CORP_RpcLibCoapLog(coap_log_t, const char *) {}
__attribute__((weak)) const char * COAP_RpcLibCoapGetLogCallFuncName_(char *, int32_t) { return {}; }
__attribute__((weak)) CoapRpcCliUriVtbl * COAP_RpcCliGetVtbl(CoapRpcCtx *, const coap_pdu_t *) { return {}; }
__attribute__((weak)) CoapRpcSerUriVtbl * COAP_RpcSerGetVtbl(CoapRpcCtx *, const coap_pdu_t *, const coap_session_t *) { return {}; }
__attribute__((weak)) CoapRpcSerUriVtbl * COAP_RpcSerGetVtblByFuzzyMsgType(CoapRpcCtx *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) uint32_t COAP_GetRpcAndSerUriVtbl(coap_resource_t *, const coap_session_t *, const coap_pdu_t *, CoapRpcCtx **, CoapRpcSerUriVtbl **) { return {}; }
__attribute__((weak)) void COAP_RpcLogVTbl(CoapRpcCtx *, const CoapRpcUriKey *, uint32_t) {}
__attribute__((weak)) uint32_t COAP_RpcSetAddress(coap_address_t *, const CoapRpcIpAddr *, uint16_t) { return {}; }
__attribute__((weak)) void COAP_RpcSetPort(uint32_t *, uint16_t) {}
__attribute__((weak)) void COAP_RpcSetMediaType(uint32_t *, uint32_t) {}
__attribute__((weak)) void COAP_RpcSetUriPath(CoapRpcCtx *, coap_pdu_t *, const char *) {}
__attribute__((weak)) uint32_t COAP_RpcGetUriStr(const coap_pdu_t *, char *, uint32_t) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcGetMsgType(const coap_pdu_t *, uint32_t *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcGetCodeType(const coap_pdu_t *, uint32_t *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcGetObserveOption(const coap_pdu_t *, uint32_t *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCheckObserveOption(const coap_pdu_t *) { return {}; }
__attribute__((weak)) const coap_address_t * COAP_RpcGetRemoteAddr(const coap_session_t *, CoapRpcIpAddr *) { return {}; }
__attribute__((weak)) const coap_address_t * COAP_RpcGetLocalAddr(const coap_session_t *, CoapRpcIpAddr *) { return {}; }
__attribute__((weak)) uint32_t Coap_RpcGetUriHostIp(CoapRpcCtx *, const char *) { return {}; }
__attribute__((weak)) uint32_t Coap_RpcGetListenIp(CoapRpcCtx *, const coap_pdu_t *, const coap_session_t *) { return {}; }
__attribute__((weak)) uint32_t CoapRpcOptionNum2Type(uint32_t) { return {}; }
__attribute__((weak)) void COAP_RpcParseOptions(const coap_pdu_t *, CoapRpcMsgOptions *) {}
__attribute__((weak)) void COAP_RpcParseETag(uint32_t, const coap_opt_t *, CoapRpcMsgOptions *) {}
__attribute__((weak)) void COAP_RpcParseFormat(uint32_t, const coap_opt_t *, CoapRpcMsgOptions *) {}
__attribute__((weak)) CoapRpcMsgInfo COAP_RpcGetMsgInfo(const coap_pdu_t *, const coap_session_t *) { return {}; }
__attribute__((weak)) int32_t Coap_RpcPrecentEncode(char *, uint32_t, const char *) { return {}; }
__attribute__((weak)) CoapRpcPayload * COAP_RpcNewPayload(CoapRpcCtx *, const void *, uint32_t) { return {}; }
__attribute__((weak)) void COAP_RpcFreePayload(CoapRpcPayload *) {}
__attribute__((weak)) uint32_t COAP_RpcSerConnInit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerConnUninit(void *) { return {}; }
__attribute__((weak)) int32_t COAP_RpcSerConnCmp_(const void *, const void *) { return {}; }
__attribute__((weak)) CoapRpcSerListen * COAP_RpcSerConnFindListen(CoapRpcSerData *, const CoapRpcSerListenAddr *) { return {}; }
__attribute__((weak)) CoapRpcSerListen * COAP_RpcSerFindFirstListen(CoapRpcSerData *) { return {}; }
__attribute__((weak)) CoapRpcSerListen * COAP_RpcSerFindNextListen(CoapRpcSerData *, const CoapRpcSerListenAddr *) { return {}; }
__attribute__((weak)) CoapRpcSerListen * COAP_RpcSerConnAddListen(CoapRpcSerData *, const CoapRpcUriKey *, const CoapRpcSerListenAddr *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerCreatListen(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcSerListenAddr *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerUpdateListen(CoapRpcCtx *, CoapRpcSerListen *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) CoapRpcSerUriVtbl * COAP_RpcSerConnBindUriVtbl(CoapRpcSerData *, CoapRpcSerListen *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) CoapRpcSerUriVtbl * COAP_RpcSerConnIsBindVtbl(CoapRpcSerListen *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) void COAP_RpcSerConnUnBindUriVtbl(const void *, const void *, CoapRpcSerUriVtbl *) {}
__attribute__((weak)) void COAP_RpcSerConnUnBindAllUriVtbl(const void *, CoapRpcSerListen *) {}
__attribute__((weak)) void COAP_RpcSerConnTryDelListen(CoapRpcSerData *, CoapRpcSerListen *) {}
__attribute__((weak)) uint32_t COAP_RpcSerTryDelListen(CoapRpcCtx *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) char * COAP_RpcSerGetListenStr_(const CoapRpcSerListenAddr *, char *, uint32_t) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerDispInit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerDispUninit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcDispSerVtbl_(void *, ...) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcDispTupleSetTree_(void *, ...) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcDispTupleChgList_(void *, ...) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcDispSerResource_(void *, ...) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcDispSerListen_(void *, ...) { return {}; }
__attribute__((weak)) char * COAP_RpcGetSerUriVtblStr_(const CoapRpcSerUriVtbl *, char *, uint32_t) { return {}; }
__attribute__((weak)) char * COAP_RpcGetSerUriResStr_(const CoapRpcSerUriRes *, char *, uint32_t) { return {}; }
__attribute__((weak)) char * COAP_RpcGetSerListenStr_(const CoapRpcSerListen *, char *, uint32_t) { return {}; }
__attribute__((weak)) void COAP_RpcDispOneTuple_(CoapRpcCtx *, CoapRpcSerUriVtbl *, const CoapRpcUriTuple *) {}
__attribute__((weak)) void COAP_RpcDispOneChgTuple_(CoapRpcCtx *, CoapRpcSerUriVtbl *, const CoapRpcTupleChg *) {}
__attribute__((weak)) const char * COAP_RpcGetTupleKeyStr(const CoapRpcSerUriVtbl *, const void *, char *, uint32_t) { return {}; }
__attribute__((weak)) const char * COAP_RpcGetTupleValStr(const CoapRpcSerUriVtbl *, const void *, char *, uint32_t) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerUpdateTuple(CoapRpcCtx *, CoapRpcSerUriVtbl *, const void *, const void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerProcTupleChg(CoapRpcCtx *, CoapRpcSerUriVtbl *, const CoapRpcUriKey *, const void *, const void *, uint32_t) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerAddTupleChgData(CoapRpcCtx *, CoapRpcSerUriVtbl *, const void *, const void *, uint8_t) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerMergeTupleData(CoapRpcSerUriVtbl *, const void *, const void *, uint8_t) { return {}; }
__attribute__((weak)) void COAP_RpcSerFillTupleData(CoapRpcSerUriVtbl *, CoapRpcTupleChg *, const void *, const void *, uint8_t) {}
__attribute__((weak)) void COAP_RpcSerDelTupleChgData(CoapRpcCtx *, CoapRpcTupleChg *) {}
__attribute__((weak)) uint32_t COAP_RpcSerStartUriUpdateTimer(CoapRpcCtx *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) void COAP_RpcSerStopUriUpdateTimer(CoapRpcSerUriVtbl *) {}
__attribute__((weak)) uint32_t COAP_RpcSerUriUpdateHandle(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerResourceInit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerResourceUninit(void *) { return {}; }
__attribute__((weak)) void COAP_RpcCreateOrUpdateUriRes(CoapRpcCtx *, const CoapRpcUriKey *) {}
__attribute__((weak)) uint32_t COAP_RpcTryDelUriRes(CoapRpcCtx *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) CoapRpcSerUriRes * COAP_RpcSerFindUriRes(CoapRpcSerData *, const char *) { return {}; }
__attribute__((weak)) CoapRpcSerUriRes * COAP_RpcSerFindFirstUriRes(CoapRpcSerData *) { return {}; }
__attribute__((weak)) CoapRpcSerUriRes * COAP_RpcSerFindNextUriRes(CoapRpcSerData *, const char *) { return {}; }
__attribute__((weak)) CoapRpcSerUriRes * COAP_RpcSerAddUriRes(CoapRpcSerData *, const char *) { return {}; }
__attribute__((weak)) void COAP_RpcSerTryDelUriRes(CoapRpcSerData *, CoapRpcSerUriRes *) {}
__attribute__((weak)) CoapRpcSerUriVtbl * COAP_RpcSerResBindUriVtbl(CoapRpcSerData *, CoapRpcSerUriRes *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) CoapRpcSerUriVtbl * COAP_RpcSerResIsBindVtbl(CoapRpcSerUriRes *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) void COAP_RpcSerResUnBindUriVtbl(const void *, const void *, CoapRpcSerUriVtbl *) {}
__attribute__((weak)) void COAP_RpcSerResUnBindAllUriVtbl(const void *, CoapRpcSerUriRes *) {}
__attribute__((weak)) uint32_t COAP_RpcSerVtblInit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerVtblUninit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerUriInit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerUriUninit(void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcUriRegSerVtbl(CoapRpcSerData *, const CoapRpcUriKey *, const CoapRpcSerVtblReg *, const CoapRpcSerObVtblReg *) { return {}; }
__attribute__((weak)) CoapRpcSerUriVtbl * COAP_RpcSerFindUriVtbl(CoapRpcSerData *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) CoapRpcSerUriVtbl * COAP_RpcSerFindFirstUriVtbl(CoapRpcSerData *) { return {}; }
__attribute__((weak)) CoapRpcSerUriVtbl * COAP_RpcSerFindNextUriVtbl(CoapRpcSerData *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) CoapRpcSerUriVtbl * COAP_RpcSerAddUriVtbl(CoapRpcSerData *, const CoapRpcUriKey *, const CoapRpcSerVtblReg *, const CoapRpcSerObVtblReg *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerAddUriObVtbl(CoapRpcCtx *, CoapRpcSerUriVtbl *, const CoapRpcSerObVtblReg *) { return {}; }
__attribute__((weak)) void COAP_RpcSerDelUriVtbl(CoapRpcSerData *, CoapRpcSerUriVtbl *) {}
__attribute__((weak)) uint32_t COAP_RpcSerProcUpdateTuple(CoapRpcCtx *, CoapRpcSerUriVtbl *, const CoapRpcUriKey *, const void *, const void *) { return {}; }
__attribute__((weak)) void COAP_RpcSerProcDelTuple(CoapRpcCtx *, CoapRpcSerUriVtbl *, const CoapRpcUriKey *, const void *) {}
__attribute__((weak)) CoapRpcUriTuple * COAP_RpcSerFindUriTuple(CoapRpcSerUriVtbl *, const void *) { return {}; }
__attribute__((weak)) CoapRpcUriTuple * COAP_RpcSerGetFirstUriTuple(CoapRpcSerUriVtbl *) { return {}; }
__attribute__((weak)) CoapRpcUriTuple * COAP_RpcSerGetNextUriTuple(CoapRpcSerUriVtbl *, const CoapRpcUriTuple *) { return {}; }
__attribute__((weak)) CoapRpcUriTuple * COAP_RpcSerAddUriTuple(CoapRpcCtx *, CoapRpcSerUriVtbl *, const void *, const void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerUpdateUriTuple(CoapRpcCtx *, CoapRpcSerUriVtbl *, CoapRpcUriTuple *, const void *, const void *) { return {}; }
__attribute__((weak)) void COAP_RpcSerDelUriTuple(CoapRpcCtx *, CoapRpcSerUriVtbl *, CoapRpcUriTuple *) {}
__attribute__((weak)) void COAP_RpcSerDelAllUriTuple(CoapRpcCtx *, CoapRpcSerUriVtbl *) {}
__attribute__((weak)) uint32_t COAP_RpcGetTupleSetCnt(CoapRpcSerUriVtbl *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliRegVtbl(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcCliVtblReg *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliNonReq(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcCliReqParam *, const CoapRpcCliAddr *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliConReq(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcCliReqParam *, const CoapRpcCliAddr *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliObserveReq(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcCliReqParam *, const CoapRpcCliAddr *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliObserveReqVerify(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcCliReqParam *, const CoapRpcCliAddr *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliObserveReqBatch(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcCliReqParam *, const CoapRpcCliAddr *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcCliObserveUnReq(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcCliReqParam *, const CoapRpcCliAddr *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerRegVtbl(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcSerVtblReg *, const CoapRpcSerObVtblReg *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerSetUri(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcSerListenAddr *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerUnsetUri(CoapRpcCtx *, const CoapRpcUriKey *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerSendAsyncResponse(CoapRpcCtx *, void *, const uint8_t *, uint32_t) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerAbortAsyncResponse(CoapRpcCtx *, void *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcSerObserveDataUpdate(CoapRpcCtx *, const CoapRpcUriKey *, const void *, const void *) { return {}; }
__attribute__((weak)) void COAP_RpcSerObserveDataDel(CoapRpcCtx *, const CoapRpcUriKey *, const void *) {}
__attribute__((weak)) CoapRpcIterator * COAP_RpcNewIterator(const CoapRpcIteratorParam *, CoapRpcCtx *) { return {}; }
__attribute__((weak)) uint32_t COAP_RpcIterateTupleFromApp(CoapRpcIterator *, CoapRpcCtx *) { return {}; }
__attribute__((weak)) void COAP_RpcFreeIterator(CoapRpcIterator *, CoapRpcCtx *) {}
}
