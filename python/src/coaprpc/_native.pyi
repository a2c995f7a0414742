# The extension module of cffi: the functions and records of native/coaprpc.cdef.
from typing import Any

ffi: Any
lib: Any
