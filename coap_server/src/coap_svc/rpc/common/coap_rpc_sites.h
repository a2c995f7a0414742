/* coap_rpc_sites.h: every place that can fail and every place that logs, with its fixed numbers.
 *
 * Numbers never move: operators and scripts know them.  A code is 1900000000 plus the site's
 * number.  Numbers are unique within a source file; a few are shared by two functions or by both
 * sides, and then mean the same.  Sites that joined later count from 1001 and are unique in the
 * whole library.  docs/error_codes.md is made from this list. */
#ifndef COAP_RPC_SITES_H
#define COAP_RPC_SITES_H

#include <cstdint>

#include "tarn.h"

namespace coap_rpc {

#define COAP_RPC_SRC "coap_server/src/coap_svc/rpc/"
inline constexpr char kPathInitMain[] = COAP_RPC_SRC "init/coap_rpc_main";
inline constexpr char kPathInitSer[] = COAP_RPC_SRC "init/coap_rpc_ser";
inline constexpr char kPathInitSerSync[] = COAP_RPC_SRC "init/coap_rpc_ser_sync";
inline constexpr char kPathInitCli[] = COAP_RPC_SRC "init/coap_rpc_cli";
inline constexpr char kPathInitAdvice[] = COAP_RPC_SRC "init/coap_rpc_advice";
inline constexpr char kPathCliUri[] = COAP_RPC_SRC "client/coap_rpc_cli_uri";
inline constexpr char kPathCliSession[] = COAP_RPC_SRC "client/coap_rpc_cli_session";
inline constexpr char kPathCliReq[] = COAP_RPC_SRC "client/coap_rpc_cli_req";
inline constexpr char kPathCliEnd[] = COAP_RPC_SRC "client/coap_rpc_cli_end";
inline constexpr char kPathCliMirror[] = COAP_RPC_SRC "client/mirror/coap_rpc_cli_mirror";
inline constexpr char kPathLibCtx[] = COAP_RPC_SRC "libadapter/coap_rpc_lib_ctx";
inline constexpr char kPathLibMsg[] = COAP_RPC_SRC "libadapter/coap_rpc_lib_msg";
inline constexpr char kPathLibLookup[] = COAP_RPC_SRC "libadapter/coap_rpc_lib_lookup";
inline constexpr char kPathLibHandler[] = COAP_RPC_SRC "libadapter/coap_rpc_lib_handler";
inline constexpr char kPathLibExt[] = COAP_RPC_SRC "libadapter/coap_rpc_lib_ext";
inline constexpr char kPathLibDirect[] = COAP_RPC_SRC "libadapter/coap_rpc_lib_direct";
inline constexpr char kPathLibCall[] = COAP_RPC_SRC "libadapter/rpc_call/coap_rpc_lib_rpc_call";
inline constexpr char kPathLibMember[] = COAP_RPC_SRC "libadapter/publish/coap_rpc_lib_member";
inline constexpr char kPathLibMirror[] = COAP_RPC_SRC "libadapter/mirror/coap_rpc_lib_mirror";
inline constexpr char kPathLibStats[] = COAP_RPC_SRC "libadapter/stats/coap_rpc_lib_stats";
inline constexpr char kPathSerUri[] = COAP_RPC_SRC "server/coap_rpc_ser_uri";
inline constexpr char kPathSerSync[] = COAP_RPC_SRC "server/sync/coap_rpc_ser_sync";
inline constexpr char kPathSerConn[] = COAP_RPC_SRC "server/coap_rpc_ser_conn";
inline constexpr char kPathSerRes[] = COAP_RPC_SRC "server/coap_rpc_ser_res";
inline constexpr char kPathSerObserve[] = COAP_RPC_SRC "server/coap_rpc_ser_observe";
inline constexpr char kPathLog[] = COAP_RPC_SRC "common/coap_rpc_log";
#undef COAP_RPC_SRC

// Failure sites, by source file and then by number.  Code 0: the site has no code of its own.
// Assert 0: the site asserts nothing.
//   name                    path          code  assert  meaning
// clang-format off
#define COAP_RPC_SITES(X) \
  X(LogInitNoMemory,         kPathLog,          85,    0, "COAP_RpcLogInit: no memory for the diagnostics table") \
  X(LibInitNoMemory,         kPathInitMain,     48,    0, "COAP_RpcLibInit: no memory for the adapter context") \
  X(LibInitModules,          kPathInitMain,     53,    0, "COAP_RpcLibInit: a module of the adapter did not start") \
  X(InitNullParam,           kPathInitMain,      0, 1001, "COAP_RpcInit: null parameter record") \
  X(SerInitNoMemory,         kPathInitSer,      54,    0, "COAP_RpcSerInit, COAP_RpcCliInit: no memory for the side's context") \
  X(SerInitModules,          kPathInitSer,      60,    0, "COAP_RpcSerInit, COAP_RpcCliInit: a module of the side did not start") \
  X(SerSetUriNullArg,        kPathInitSer,      77,   76, "COAP_RpcSerSetUri: null argument") \
  X(SerSetUriBadFamily,      kPathInitSer,      82,    0, "COAP_RpcSerSetUri: address family is neither 1 nor 2") \
  X(SerSetUriZeroIpv4,       kPathInitSer,      87,    0, "COAP_RpcSerSetUri: IPv4 address is 0.0.0.0") \
  X(SerUnsetUriNullArg,      kPathInitSer,    1450,  114, "COAP_RpcSerUnsetUri: null argument") \
  X(SerReopenNullArg,        kPathInitSer,    1452, 1451, "COAP_RpcSerReopen: null argument") \
  X(SerReopenNoListen,       kPathInitSer,    1453,    0, "COAP_RpcSerReopen: no listen has this address and port") \
  X(SerReopenUnavailable,    kPathInitSer,    1454,    0, "COAP_RpcSerReopen: endpoint still cannot be opened (the log line \"cannot open endpoint\" names address, port and errno)") \
  X(ObserveDataUpdateNullArg, kPathInitSer,    125,  124, "COAP_RpcSerObserveDataUpdate: null argument") \
  X(ObserveDataUpdateNoUri,  kPathInitSer,     130,    0, "COAP_RpcSerObserveDataUpdate: no such URI, or it has no observe record") \
  X(ObserveDataUpdateFailed, kPathInitSer,     135,    0, "COAP_RpcSerObserveDataUpdate: tuple set not updated") \
  X(ObserveDataDelNullArg,   kPathInitSer,       0,  149, "COAP_RpcSerObserveDataDel: null argument") \
  X(SerRegVtblNullArg,       kPathInitSer,     169,  168, "COAP_RpcSerRegVtbl: null argument") \
  X(SetUriSyncNullArg,       kPathInitSerSync, 1511, 1510, "COAP_RpcSerSetUriSync: null argument") \
  X(SetUriSyncNoUri,         kPathInitSerSync, 1512,    0, "COAP_RpcSerSetUriSync: no such URI, no observe record, or a key without observe") \
  X(SyncReplaceNullArg,      kPathInitSerSync, 1521, 1520, "COAP_RpcSerSyncReplace: null argument") \
  X(SyncReplaceNoSync,       kPathInitSerSync, 1522,    0, "COAP_RpcSerSyncReplace: no such URI, or its tuples have no versions") \
  X(SyncReplaceNextFailed,   kPathInitSerSync, 1523,    0, "COAP_RpcSerSyncReplace: the application's walk failed; nothing was deleted") \
  X(SyncReplaceNoMemory,     kPathInitSerSync, 1524,    0, "COAP_RpcSerSyncReplace: no memory; nothing was deleted") \
  X(GetSyncStateNullArg,     kPathInitSerSync, 1531, 1530, "COAP_RpcSerGetSyncState: null argument") \
  X(GetSyncStateNoSync,      kPathInitSerSync, 1532,    0, "COAP_RpcSerGetSyncState: no such URI, or its tuples have no versions") \
  X(VisitSyncPeersNullArg,   kPathInitSerSync, 1541, 1540, "COAP_RpcSerVisitSyncPeers: null argument") \
  X(VisitSyncPeersNoSync,    kPathInitSerSync, 1542,    0, "COAP_RpcSerVisitSyncPeers: no such URI, or its tuples have no versions") \
  X(VisitTuplesNullArg,      kPathInitSerSync, 1721, 1720, "COAP_RpcSerVisitTuples: null argument") \
  X(VisitTuplesNoSync,       kPathInitSerSync, 1722,    0, "COAP_RpcSerVisitTuples: no such URI, or its tuples have no versions") \
  X(SetAdviceNullArg,        kPathInitAdvice, 1641, 1640, "COAP_RpcSetAdvice: null argument") \
  X(CliInitNoMemory,         kPathInitCli,      54,    0, "COAP_RpcSerInit, COAP_RpcCliInit: no memory for the side's context") \
  X(CliInitModules,          kPathInitCli,      60,    0, "COAP_RpcSerInit, COAP_RpcCliInit: a module of the side did not start") \
  X(CliNonReqNullArg,        kPathInitCli,      76,   75, "COAP_RpcCliNonReq: null argument") \
  X(CliRegVtblNullArg,       kPathInitCli,    1011, 1010, "COAP_RpcCliRegVtbl: null argument") \
  X(CliNonReqBadAddr,        kPathInitCli,    1012,    0, "COAP_RpcCliNonReq: source and destination are equal or of different or unknown families") \
  X(CliConReqNullArg,        kPathInitCli,    1014, 1013, "COAP_RpcCliConReq: null argument") \
  X(CliConReqBadAddr,        kPathInitCli,    1015,    0, "COAP_RpcCliConReq: source and destination are equal or of different or unknown families") \
  X(CliObserveReqNullArg,    kPathInitCli,    1017, 1016, "COAP_RpcCliObserveReq: null argument") \
  X(CliObserveReqBadAddr,    kPathInitCli,    1018,    0, "COAP_RpcCliObserveReq: source and destination are equal or of different or unknown families") \
  X(CliVerifyReqNullArg,     kPathInitCli,    1020, 1019, "COAP_RpcCliObserveReqVerify: null argument") \
  X(CliVerifyReqBadAddr,     kPathInitCli,    1021,    0, "COAP_RpcCliObserveReqVerify: source and destination are equal or of different or unknown families") \
  X(CliBatchReqNullArg,      kPathInitCli,    1023, 1022, "COAP_RpcCliObserveReqBatch: null argument") \
  X(CliBatchReqBadAddr,      kPathInitCli,    1024,    0, "COAP_RpcCliObserveReqBatch: source and destination are equal or of different or unknown families") \
  X(CliUnReqNullArg,         kPathInitCli,       0, 1025, "COAP_RpcCliObserveUnReq: null argument") \
  X(CliNonReqBadPort,        kPathInitCli,    1026,    0, "COAP_RpcCliNonReq: destination port is not 1 to 65535") \
  X(CliConReqBadPort,        kPathInitCli,    1027,    0, "COAP_RpcCliConReq: destination port is not 1 to 65535") \
  X(CliObserveReqBadPort,    kPathInitCli,    1028,    0, "COAP_RpcCliObserveReq: destination port is not 1 to 65535") \
  X(CliVerifyReqBadPort,     kPathInitCli,    1029,    0, "COAP_RpcCliObserveReqVerify: destination port is not 1 to 65535") \
  X(CliBatchReqBadPort,      kPathInitCli,    1030,    0, "COAP_RpcCliObserveReqBatch: destination port is not 1 to 65535") \
  X(CliUriAddFailed,         kPathCliUri,     1051,    0, "COAP_RpcUriRegCliVtbl: entry cannot be made") \
  X(CliSessionHasRequests,   kPathCliSession,    0,  176, "COAP_RpcCliSessionUninit: a session still has requests") \
  X(CliReqNoSession,         kPathCliReq,     1101,    0, "COAP_RpcCliReq: session cannot be made") \
  X(CliReqNoRecord,          kPathCliReq,     1102,    0, "COAP_RpcCliReq: request record cannot be made") \
  X(CliReqNotSent,           kPathCliReq,     1103,    0, "COAP_RpcCliReq: request not sent (a CON one is tried again)") \
  X(TrySendReqNotSent,       kPathCliReq,     1104,    0, "COAP_RpcTrySendReq: request not sent") \
  X(CliSetReqModeNoRecord,   kPathCliReq,     1105,    0, "COAP_RpcCliSetReqMode: no such request") \
  X(CliReqPayloadNoMemory,   kPathCliReq,     1106,    0, "COAP_RpcCliReqPayload: no memory for the payload copy") \
  X(StartAgingTimerFailed,   kPathCliSession, 1401,    0, "COAP_RpcCliTryStartAgingSessionTimer: timer not started") \
  X(SetOnRequestEndNullArg,  kPathCliEnd,     1461, 1460, "COAP_RpcSetOnRequestEnd: null instance") \
  X(SetOnRequestEndNoMemory, kPathCliEnd,     1462,    0, "COAP_RpcSetOnRequestEnd: no memory for the requests under way") \
  X(MirrorSilent,            kPathCliMirror,  1616,    0, "COAP_RpcMirrorGetState: STALE: the server does not answer") \
  X(MirrorNoSocket,          kPathCliMirror,  1617,    0, "COAP_RpcMirrorGetState: STALE: no socket, or srcIp is not this machine's") \
  X(MirrorDigest,            kPathCliMirror,  1622,    0, "COAP_RpcMirrorGetState: BEHIND: the server's digest is another one") \
  X(MirrorContradiction,     kPathCliMirror,  1623,    0, "COAP_RpcMirrorGetState: BEHIND: versions that contradict those before") \
  X(MirrorRestarts,          kPathCliMirror,  1624,    0, "COAP_RpcMirrorGetState: BEHIND: the server has no memory, or a full sync had to begin again") \
  X(MirrorMaxBytes,          kPathCliMirror,  1625,    0, "COAP_RpcMirrorGetState: BEHIND: maxBytes are in use") \
  X(MirrorNoTupleMemory,     kPathCliMirror,  1626,    0, "COAP_RpcMirrorGetState: BEHIND: no memory for a tuple") \
  X(StartResendTimerFailed,  kPathCliReq,     1402,    0, "COAP_RpcStartReSendReqTimer: timer not started") \
  X(CreateResourceFailed,    kPathLibCtx,       71,    0, "COAP_RpcCreateOrUpdateResource: libcoap makes no resource") \
  X(StartTaskTimerFailed,    kPathLibCtx,      156,    0, "COAP_RpcStartTaskTimer: timer not started") \
  X(RefreshTaskTimerFailed,  kPathLibCtx,      171,    0, "COAP_RpcRefreshTaskTimer: quick timer not started") \
  X(LibStartupNoContext,     kPathLibCtx,      434,    0, "COAP_RpcLibStartup_: libcoap makes no context") \
  X(GetUriStrNoPath,         kPathLibMsg,       93,    0, "COAP_RpcGetUriStr: the message's path is unavailable") \
  X(GetUriStrTooLong,        kPathLibMsg,       97,    0, "COAP_RpcGetUriStr: buffer is smaller than twice the path") \
  X(GetUriStrFormat,         kPathLibMsg,      103,    0, "COAP_RpcGetUriStr: formatting failed") \
  X(LookupNoRoot,            kPathLibLookup,   198,    0, "COAP_GetRpcAndSerUriVtbl: the resource carries no instance") \
  X(LookupNoEntry,           kPathLibLookup,   203,    0, "COAP_GetRpcAndSerUriVtbl: no entry matches the request") \
  X(ReqSyncTooLong,          kPathLibHandler,  244,    0, "COAP_RpcSvrHandleReqSync: onRequest returned more than 65470") \
  X(ReqSyncFailed,           kPathLibHandler,  250,    0, "COAP_RpcSvrHandleReqSync: onRequest failed, or no answer buffer") \
  X(ReqSyncChanged,          kPathLibHandler,  254,    0, "COAP_RpcSvrHandleReqSync: onRequest asked for 2.04 without payload") \
  X(ReqAsyncUnavailable,     kPathLibHandler,  321,    0, "COAP_RpcSvrHandleReqAsync: no asynchronous support or no onAsyncRequest") \
  X(ReqAsyncNoSession,       kPathLibHandler,  331,    0, "COAP_RpcSvrHandleReqAsync: no session to the asker") \
  X(ReqAsyncNotRegistered,   kPathLibHandler,  337,    0, "COAP_RpcSvrHandleReqAsync: request cannot be kept for later") \
  X(HandleRequestNoEntry,    kPathLibHandler,  369,    0, "COAP_RpcSerHandleRequest: no entry matches the request") \
  X(HandleRequestNoMemory,   kPathLibHandler,  382,    0, "COAP_RpcSerHandleRequest: no memory for the payload copy") \
  X(SendAsyncNullArg,        kPathLibHandler,  414,    0, "COAP_RpcSerSendAsyncResponse: null argument") \
  X(SendAsyncNoMemory,       kPathLibHandler,  418,    0, "COAP_RpcSerSendAsyncResponse: no memory for the answer") \
  X(OneDataNoBuilder,        kPathLibHandler,  438,    0, "COAP_RpcSerHandleOneData: a builder is missing") \
  X(OneDataNoObject,         kPathLibHandler,  443,  442, "COAP_RpcSerHandleOneData: no memory for a JSON object") \
  X(OneDataBuilderFailed,    kPathLibHandler,  457,    0, "COAP_RpcSerHandleOneData: the builder failed") \
  X(OneIdlMsgNoBuilder,      kPathLibHandler,  469,    0, "COAP_RpcSerHandleOneIdlMsg: a builder is missing") \
  X(OneIdlMsgNoBuffer,       kPathLibHandler,  474,    0, "COAP_RpcSerHandleOneIdlMsg: no message buffer") \
  X(IdlPayloadNoMemory,      kPathLibHandler,  608,    0, "COAP_RpcSerHandleIdlGetPayload: no memory for the message buffer") \
  X(BatchUpdateNoQuery,      kPathLibHandler,  707,    0, "COAP_RpcSerHandleObserveBatchUpdate: no check-code query, or no GET") \
  X(BatchUpdateUpToDate,     kPathLibHandler,  714,    0, "COAP_RpcSerHandleObserveBatchUpdate: the observer is up to date") \
  X(AbortAsyncNullArg,       kPathLibHandler, 1301,    0, "COAP_RpcSerAbortAsyncResponse: null argument") \
  X(AsyncNotPending,         kPathLibHandler, 1302,    0, "COAP_RpcSerSendAsyncResponse, COAP_RpcSerAbortAsyncResponse: the request is no longer pending") \
  X(ReqAsyncTooManyOpen,     kPathLibHandler, 1440,    0, "COAP_RpcSvrHandleReqAsync: too many requests are open") \
  X(ReqAsyncPeerTooManyOpen, kPathLibHandler, 1441,    0, "COAP_RpcSvrHandleReqAsync: too many requests of the peer are open") \
  X(ReqSyncNotAttached,      kPathLibHandler, 1411,    0, "COAP_RpcSvrHandleReqSync: the answer cannot be attached") \
  X(OneDataNotAppended,      kPathLibHandler, 1412,    0, "COAP_RpcSerHandleOneData: no memory to append the JSON object") \
  X(CliSendNoSession,        kPathLibHandler, 1351,    0, "COAP_RpcCliSendRequest: no session") \
  X(CliSendNoPdu,            kPathLibHandler, 1352,    0, "COAP_RpcCliSendRequest: no memory for the message") \
  X(CliSendOptions,          kPathLibHandler, 1353,    0, "COAP_RpcCliSendRequest: options or payload cannot be added") \
  X(CliSendFailed,           kPathLibHandler, 1354,    0, "COAP_RpcCliSendRequest: libcoap did not send") \
  X(CliAddPayloadFailed,     kPathLibHandler, 1355,    0, "COAP_RpcCliAddOptionsAndData: payload cannot be built or added") \
  X(SetKeepAliveNullArg,     kPathLibExt,     1404, 1403, "COAP_RpcSetKeepAlive: null argument") \
  X(SetLibLogLevelNullArg,   kPathLibExt,     1406, 1405, "COAP_RpcSetLibLogLevel: null argument") \
  X(SetNstartNullArg,        kPathLibExt,     1408, 1407, "COAP_RpcSetNstart: null argument") \
  X(SetDirectNullArg,        kPathLibDirect,  1464, 1463, "COAP_RpcSerSetDirect: null argument") \
  X(SetDirectNoEntry,        kPathLibDirect,  1465,    0, "COAP_RpcSerSetDirect: key is not registered") \
  X(SetDirectBadMethods,     kPathLibDirect,  1466,    0, "COAP_RpcSerSetDirect: unknown bits in methods") \
  X(SetDirectNoMemory,       kPathLibDirect,  1467,    0, "COAP_RpcSerSetDirect: no memory") \
  X(SetAnswerNullArg,        kPathLibDirect,  1469, 1468, "COAP_RpcSerSetAnswer: null instance") \
  X(SetAnswerNoRequest,      kPathLibDirect,  1470,    0, "COAP_RpcSerSetAnswer, COAP_RpcSerAddAnswerOption: no callback of a direct entry is running") \
  X(BadAnswer,               kPathLibDirect,  1471,    0, "COAP_RpcSerSetAnswer, COAP_RpcSerSetAsyncAnswer: code or content format out of range") \
  X(FailAsyncNullArg,        kPathLibDirect,  1472,    0, "COAP_RpcSerFailAsync: null argument") \
  X(FailAsyncBadCode,        kPathLibDirect,  1473,    0, "COAP_RpcSerFailAsync: not the code of an error") \
  X(FailAsyncNoMemory,       kPathLibDirect,  1474,    0, "COAP_RpcSerFailAsync: no memory for the text") \
  X(SetAsyncAnswerNullArg,   kPathLibDirect,  1475,    0, "COAP_RpcSerSetAsyncAnswer: null argument") \
  X(GetQueryTooLong,         kPathLibDirect,  1476,    0, "COAP_RpcSerGetQuery: the value does not fit") \
  X(GetRequestNullArg,       kPathLibDirect,  1478, 1477, "COAP_RpcSerGetRequest: null argument") \
  X(GetRequestNoRequest,     kPathLibDirect,  1479,    0, "COAP_RpcSerGetRequest, COAP_RpcSerGetQuery, COAP_RpcSerGetOption: no callback of a direct entry is running") \
  X(GetQueryNullArg,         kPathLibDirect,  1481, 1480, "COAP_RpcSerGetQuery: null argument") \
  X(GetQueryNotFound,        kPathLibDirect,  1482,    0, "COAP_RpcSerGetQuery: the request has no such query") \
  X(GetOptionNullArg,        kPathLibDirect,  1504, 1503, "COAP_RpcSerGetOption: null argument") \
  X(GetOptionNotFound,       kPathLibDirect,  1505,    0, "COAP_RpcSerGetOption: the request has no such option") \
  X(GetOptionTooLong,        kPathLibDirect,  1506,    0, "COAP_RpcSerGetOption: the value does not fit") \
  X(AddOptionNullArg,        kPathLibDirect,  1508, 1507, "COAP_RpcSerAddAnswerOption: null argument") \
  X(AddOptionBad,            kPathLibDirect,  1509,    0, "COAP_RpcSerAddAnswerOption, COAP_RpcSerAddAsyncAnswerOption: not an option of answers, a bad value, or there already") \
  X(AddOptionTooMany,        kPathLibDirect,  1550,    0, "COAP_RpcSerAddAnswerOption, COAP_RpcSerAddAsyncAnswerOption: too many options, or too long together") \
  X(AddOptionNoMemory,       kPathLibDirect,  1551,    0, "COAP_RpcSerAddAnswerOption, COAP_RpcSerAddAsyncAnswerOption: no memory") \
  X(AddAsyncOptionNullArg,   kPathLibDirect,  1552,    0, "COAP_RpcSerAddAsyncAnswerOption: null argument") \
  X(SetLinkNullArg,          kPathLibDirect,  1554, 1553, "COAP_RpcSerSetLinkAttribute: null argument") \
  X(SetLinkNoEntry,          kPathLibDirect,  1555,    0, "COAP_RpcSerSetLinkAttribute: no direct entry has the key") \
  X(SetLinkBadValue,         kPathLibDirect,  1556,    0, "COAP_RpcSerSetLinkAttribute: unknown attribute, or a bad value") \
  X(SetLinkNoMemory,         kPathLibDirect,  1557,    0, "COAP_RpcSerSetLinkAttribute: no memory; nothing has changed") \
  X(CallNullArg,             kPathLibCall,    1484, 1483, "COAP_RpcCall, COAP_RpcCallObserve: null argument, or no onRsp") \
  X(CallBadAddr,             kPathLibCall,    1485,    0, "COAP_RpcCall: families differ or are unknown, or the server's address is not unicast") \
  X(CallBadPort,             kPathLibCall,    1486,    0, "COAP_RpcCall: dstPort is not a port") \
  X(CallBadMethod,           kPathLibCall,    1487,    0, "COAP_RpcCall: unknown method; COAP_RpcCallObserve: not GET") \
  X(CallBadPath,             kPathLibCall,    1488,    0, "COAP_RpcCall: a path segment is over 255 bytes") \
  X(CallBadQuery,            kPathLibCall,    1489,    0, "COAP_RpcCall: a query argument is over 255 bytes") \
  X(CallBadOption,           kPathLibCall,    1490,    0, "COAP_RpcCall: an ETag, If-Match, format or Accept is out of range") \
  X(CallBadPayload,          kPathLibCall,    1491,    0, "COAP_RpcCall: the payload is null or too long; COAP_RpcCallObserve: there is one") \
  X(CallTooLong,             kPathLibCall,    1492,    0, "COAP_RpcCall: the options do not fit a message") \
  X(CallTooMany,             kPathLibCall,    1493,    0, "COAP_RpcCall: 65,536 calls are under way") \
  X(CallNoMemory,            kPathLibCall,    1494,    0, "COAP_RpcCall: no memory") \
  X(CallNoSource,            kPathLibCall,    1495,    0, "COAP_RpcCall: srcIp is not an address of this machine") \
  X(CallOtherSource,         kPathLibCall,    1496,    0, "COAP_RpcCall: base requests of these addresses send from another one than srcIp") \
  X(CallNoSession,           kPathLibCall,    1497,    0, "COAP_RpcCall: session cannot be made, or the instance is stopping") \
  X(CallNoTimer,             kPathLibCall,    1498,    0, "COAP_RpcCall: timer not started") \
  X(CallNotSent,             kPathLibCall,    1499,    0, "COAP_RpcCall: libcoap did not send") \
  X(CallCancelNullArg,       kPathLibCall,    1501, 1500, "COAP_RpcCallCancel: null instance") \
  X(CallCancelUnknown,       kPathLibCall,    1502,    0, "COAP_RpcCallCancel: no such call is under way") \
  X(MirrorNullArg,           kPathLibMirror,  1601, 1600, "COAP_RpcMirrorOpen: null argument") \
  X(MirrorBadAddr,           kPathLibMirror,  1602,    0, "COAP_RpcMirrorOpen: families differ or are unknown, or the server's address is not unicast") \
  X(MirrorBadPort,           kPathLibMirror,  1603,    0, "COAP_RpcMirrorOpen: dstPort is not a port") \
  X(MirrorBadUri,            kPathLibMirror,  1604,    0, "COAP_RpcMirrorOpen: the uri is empty or has no end") \
  X(MirrorBadLength,         kPathLibMirror,  1605,    0, "COAP_RpcMirrorOpen: keyLen is 0, or keyLen and valLen are more than 65,000") \
  X(MirrorBadParam,          kPathLibMirror,  1606,    0, "COAP_RpcMirrorOpen: numInFlight is over 128, or heartbeatMs not 100 to 3,600,000") \
  X(MirrorTooMany,           kPathLibMirror,  1607,    0, "COAP_RpcMirrorOpen: 4,096 mirrors exist") \
  X(MirrorNoMemory,          kPathLibMirror,  1608,    0, "COAP_RpcMirrorOpen: no memory") \
  X(MirrorNoTimer,           kPathLibMirror,  1609,    0, "COAP_RpcMirrorOpen: timer not started, or the instance is stopping") \
  X(MirrorStateNullArg,      kPathLibMirror,  1611, 1610, "COAP_RpcMirrorGetState: null argument") \
  X(MirrorErrorCode,         kPathLibMirror,  1618,    0, "COAP_RpcMirrorGetState: REFUSED: the server answers with an error code") \
  X(MirrorNoPage,            kPathLibMirror,  1619,    0, "COAP_RpcMirrorGetState: REFUSED: the answer is no page; the server or the URI has no versions") \
  X(MirrorBadPage,           kPathLibMirror,  1620,    0, "COAP_RpcMirrorGetState: REFUSED: a page with errors") \
  X(MirrorOtherLength,       kPathLibMirror,  1621,    0, "COAP_RpcMirrorGetState: REFUSED: a page has keys or values of other lengths") \
  X(SetMemberNullArg,        kPathLibMember,  1724, 1723, "COAP_RpcSerSetMember: null argument") \
  X(SetMemberNotJson,        kPathLibMember,  1725,    0, "COAP_RpcSerSetMember: the value is no JSON") \
  X(SetMemberNoMemory,       kPathLibMember,  1726,    0, "COAP_RpcSerSetMember: no memory, or the name is no UTF-8") \
  X(GetStatsNullArg,         kPathLibStats,   1661, 1660, "COAP_RpcGetStats: null argument") \
  X(GetStatsBadSize,         kPathLibStats,   1662,    0, "COAP_RpcGetStats: size is less than 8") \
  X(VisitUriStatsNullArg,    kPathLibStats,   1664, 1663, "COAP_RpcVisitUriStats: null instance or callback") \
  X(ShowStatsNullArg,        kPathLibStats,   1666, 1665, "COAP_RpcShowStats: null instance") \
  X(AddUriTupleKeyCopy,      kPathSerUri,        0,   48, "COAP_RpcSerAddUriTuple: key copy failed") \
  X(AddUriTupleValCopy,      kPathSerUri,        0,   54, "COAP_RpcSerAddUriTuple: value copy failed") \
  X(UpdateUriTupleValCopy,   kPathSerUri,        0,   76, "COAP_RpcSerUpdateUriTuple: value copy failed") \
  X(ProcUpdateTupleFailed,   kPathSerUri,      113,    0, "COAP_RpcSerProcUpdateTuple: tuple not changed") \
  X(AddUriObVtblNoMemory,    kPathSerUri,      167,    0, "COAP_RpcSerAddUriObVtbl: no memory for the observe record") \
  X(UriRegSerVtblFailed,     kPathSerUri,      251,    0, "COAP_RpcUriRegSerVtbl: entry cannot be made") \
  X(AddUriObVtblNoCmp,       kPathSerUri,     1431,    0, "COAP_RpcSerAddUriObVtbl: the observe record has no comparator") \
  X(SetUriSyncPageBytes,     kPathSerSync,    1513,    0, "COAP_RpcSerSetUriSync: pageBytes is not 256 to 1024") \
  X(SetUriSyncTooLong,       kPathSerSync,    1514,    0, "COAP_RpcSerSetUriSync: a tuple has more than 65,000 bytes") \
  X(SetUriSyncNoMemory,      kPathSerSync,    1515,    0, "COAP_RpcSerSetUriSync: no memory; nothing was changed") \
  X(SetUriSyncNoRandom,      kPathSerSync,    1516,    0, "COAP_RpcSerSetUriSync: the system has no random number") \
  X(CreatListenNoListen,     kPathSerConn,     152,    0, "COAP_RpcSerCreatListen: listen record cannot be made") \
  X(CreatListenNoEndPoint,   kPathSerConn,     157,    0, "COAP_RpcSerCreatListen: endpoint cannot be opened (the log line \"cannot open endpoint\" names address, port and errno)") \
  X(CreatListenNotBound,     kPathSerConn,     163,    0, "COAP_RpcSerCreatListen: key is not registered") \
  X(UpdateListenNotBound,    kPathSerConn,     177,    0, "COAP_RpcSerUpdateListen: key is not registered") \
  X(TryDelListenNotAttached, kPathSerConn,    1201,    0, "COAP_RpcSerTryDelListen: key is not attached") \
  X(TryDelUriResNotBound,    kPathSerRes,     1221,    0, "COAP_RpcTryDelUriRes: key is not bound to its uri's resource") \
  X(StartUpdateTimerNoUri,   kPathSerObserve,   41,    0, "COAP_RpcSerProcTupleChg, COAP_RpcSerStartUriUpdateTimer: no such URI") \
  X(StartUpdateTimerFailed,  kPathSerObserve,   50,    0, "COAP_RpcSerProcTupleChg, COAP_RpcSerStartUriUpdateTimer: timer not started") \
  X(AddTupleChgKeyCopy,      kPathSerObserve,    0,   58, "COAP_RpcSerAddTupleChgData: key copy failed") \
  X(AddTupleChgValCopy,      kPathSerObserve,    0,   63, "COAP_RpcSerAddTupleChgData: value copy failed") \
  X(MergeTupleChgValCopy,    kPathSerObserve,    0,   82, "COAP_RpcSerProcTupleChg: value copy failed") \
  X(AddTupleChgNoMemory,     kPathSerObserve,   98,    0, "COAP_RpcSerAddTupleChgData: no memory for the change") \
  X(ProcTupleChgNoMemory,    kPathSerObserve,  129,    0, "COAP_RpcSerProcTupleChg: no memory for the change") \
  X(UpdateTupleNullArg,      kPathSerObserve,  139,  138, "COAP_RpcSerUpdateTuple: null argument") \
  X(UpdateTupleFailed,       kPathSerObserve,  144,    0, "COAP_RpcSerUpdateTuple: tuple set not updated")
// clang-format on

// Site is one failure site.
struct Site {
  const char *path;
  uint32_t code;
  uint32_t assertLine;
};

#define COAP_RPC_SITE_CONSTANT(name, path, code, assertLine, meaning) \
  inline constexpr Site kSite##name{path, code, assertLine};
COAP_RPC_SITES(COAP_RPC_SITE_CONSTANT)
#undef COAP_RPC_SITE_CONSTANT

inline constexpr uint32_t kCodeBase = 1900000000;

// NoteReached writes down that a site was reached, in builds that measure coverage.  `kind` is
// "code", "assert" or "log"; `where` and `number` are the site's.
#ifdef COAP_RPC_REACHED_SITES
void NoteReached(const char *kind, const char *where, uint32_t number);
#else
inline void NoteReached(const char *, const char *, uint32_t) {}
#endif

// Code is the result that the site returns.
inline uint32_t Code(const Site &site) {
  NoteReached("code", site.path, site.code);
  return kCodeBase + site.code;
}

// Assert records a broken contract and returns the host's answer.
inline uint32_t Assert(const Site &site) {
  NoteReached("assert", site.path, site.assertLine);
  return TARN_Assert(site.path, site.assertLine, 0);
}

// Violated records a broken contract and returns the site's code.
inline uint32_t Violated(const Site &site) {
  Assert(site);
  return Code(site);
}

// Log sites: who writes a framework record.  Several texts of one function may share a site.
//   name                     function                               line  level
// clang-format off
#define COAP_RPC_LOG_SITES(X) \
  X(InitFailed,              "COAP_RpcInit",                         1001, 3) \
  X(Advice,                  "COAP_RpcSetAdvice",                    1642, 2) \
  X(LogModDo,                "COAP_RPC_LOG_MOD_DO",                    91, 0) \
  X(MemDumpTitle,            "COAP_RpcLogMemDump",                    107, 1) \
  X(MemDumpLine,             "COAP_RpcLogMemDump",                    119, 1) \
  X(MemDumpLastLine,         "COAP_RpcLogMemDump",                    131, 1) \
  X(LibCoapDebug,            "CORP_RpcLibCoapLog",                     71, 0) \
  X(LibCoapInfo,             "CORP_RpcLibCoapLog",                     74, 1) \
  X(LibCoapWarn,             "CORP_RpcLibCoapLog",                     77, 2) \
  X(LibCoapError,            "CORP_RpcLibCoapLog",                     80, 3) \
  X(GetUriHostIpFailed,      "Coap_RpcGetUriHostIp",                 1011, 3) \
  X(SerSetUriFailed,         "COAP_RpcSerSetUri",                     101, 3) \
  X(UriRegSerVtblFailed,     "COAP_RpcUriRegSerVtbl",                 250, 3) \
  X(ConnBindNotRegistered,   "COAP_RpcSerConnBindUriVtbl",             60, 3) \
  X(AddResourceFailed,       "COAP_RpcCreateOrUpdateUriRes",          153, 3) \
  X(HandleRequestNoEntry,    "COAP_RpcSerHandleRequest",              368, 3) \
  X(HandleRequestNoMemory,   "COAP_RpcSerHandleRequest",              381, 3) \
  X(GetRpcDataOutLen,        "COAP_GetRpcData",                       230, 3) \
  X(AddUriPathNoEntry,       "COAP_RpcAddUriPath",                    806, 3) \
  X(IdlPayloadNoMemory,      "COAP_RpcSerHandleIdlGetPayload",        607, 3) \
  X(IdlMsgTooLong,           "COAP_RpcSerHandleIdlGetPayload",       1455, 3) \
  X(OneIdlMsgNoBuilder,      "COAP_RpcSerHandleOneIdlMsg",            468, 3) \
  X(OneIdlMsgNoBuffer,       "COAP_RpcSerHandleOneIdlMsg",            473, 3) \
  X(ObserveUpdateNoEntry,    "COAP_RpcSerHandleObserveUpdate",       1021, 3) \
  X(IterateEnd,              "COAP_RpcIterateTupleFromApp",          1031, 3) \
  X(AddUriTuple,             "COAP_RpcSerAddUriTuple",               1041, 3) \
  X(UpdateUriTuple,          "COAP_RpcSerUpdateUriTuple",            1042, 3) \
  X(ProcTupleChgNoObserver,  "COAP_RpcSerProcTupleChg",              1051, 3) \
  X(ProcTupleChgQueued,      "COAP_RpcSerProcTupleChg",              1052, 3) \
  X(TrySendReqFailed,        "COAP_RpcTrySendReq",                   1061, 3) \
  X(CliSendNoSession,        "COAP_RpcCliSendRequest",               1071, 3) \
  X(CliSendOptions,          "COAP_RpcCliSendRequest",               1072, 3) \
  X(CliSendFailed,           "COAP_RpcCliSendRequest",               1073, 3) \
  X(CliAddPayloadFailed,     "COAP_RpcCliAddOptionsAndData",         1074, 3) \
  X(CliAddPduOptionHost,     "COAP_RpcCliAddPduOption",              1075, 3) \
  X(CliResponseNoEntry,      "COAP_RpcCliResponseHandler",           1081, 3) \
  X(CliResponseNoMemory,     "COAP_RpcCliResponseHandler",           1082, 3) \
  X(CliResponseRejected,     "COAP_RpcCliResponseHandler",           1083, 3) \
  X(CliResNoDataRejected,    "COAP_RpcCliResNoDataProc",             1084, 3)
// clang-format on

// LogSite is the writer of a framework record: fixed line, level 0 (debug) to 3 (error).
struct LogSite {
  const char *func;
  uint32_t line;
  uint32_t level;
};

#define COAP_RPC_LOG_SITE_CONSTANT(name, func, line, level) \
  inline constexpr LogSite kLog##name{func, line, level};
COAP_RPC_LOG_SITES(COAP_RPC_LOG_SITE_CONSTANT)
#undef COAP_RPC_LOG_SITE_CONSTANT

}  // namespace coap_rpc

#endif /* COAP_RPC_SITES_H */
