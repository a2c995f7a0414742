/* coap_rpc_sync_format.h: what server and mirror have in common of the pages of a set's changes.
 *
 * libadapter/sync/coap_rpc_lib_sync_page.h explains them. */
#ifndef COAP_RPC_SYNC_FORMAT_H
#define COAP_RPC_SYNC_FORMAT_H

#include <cstddef>
#include <cstdint>

#include "coap_svc/rpc/coap_rpc_sync.h"

namespace coap_rpc {

inline constexpr uint32_t kSyncPageFormat = 1;

enum SyncFlag : uint32_t {
  kSyncAtHead = 1,         // `to` is the head: nothing is missing after this page
  kSyncRestart = 2,        // what the reader has is of another life, or older than the floor
  kSyncNotification = 4,   // pushed
  kSyncConfirm = 8,        // the server wants to be asked, from what the reader has then
  kSyncNotObserving = 16,  // the server pushes nothing to who asked
};

// The longest head of a page, and the shortest change: a delta, an empty key, a null.
inline constexpr size_t kSyncHeadBytes = 60;
inline constexpr size_t kSyncLeastChangeBytes = 3;
inline constexpr size_t kSyncMaxChanges =
    (COAP_RPC_SYNC_MAX_PAGE - kSyncHeadBytes) / kSyncLeastChangeBytes;

}  // namespace coap_rpc

#endif /* COAP_RPC_SYNC_FORMAT_H */
