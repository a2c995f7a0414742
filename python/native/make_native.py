"""make_native.py <output.c>: writes the source of the extension module coaprpc._native."""

import sys
from pathlib import Path

import cffi

HERE = Path(__file__).resolve().parent

PREAMBLE = """
#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/coap_rpc_direct.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_stats.h"
#include "coap_svc/rpc/coap_rpc_sync.h"
#include "kestrel.h"
#include "key_order.h"
#include "mirror.h"
#include "records.h"
"""


def main() -> None:
    builder = cffi.FFI()
    builder.cdef((HERE / "coaprpc.cdef").read_text())
    builder.set_source("coaprpc._native", PREAMBLE)
    builder.emit_c_code(sys.argv[1])


main()
