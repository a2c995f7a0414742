# Toolchain file of scripts/cross: Debian's cross compilers, libraries of the other architecture in a folder
# of their own, and qemu-user to run what was built.
#   COAP_RPC_CROSS_TRIPLE   of the compiler       COAP_RPC_CROSS_QEMU   the emulator
#   COAP_RPC_CROSS_LIBS     folder name of Debian's libraries for it
#   COAP_RPC_CROSS_ROOT     where these libraries were unpacked
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES COAP_RPC_CROSS_TRIPLE COAP_RPC_CROSS_LIBS COAP_RPC_CROSS_ROOT
  COAP_RPC_CROSS_QEMU)
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR ${COAP_RPC_CROSS_TRIPLE})
set(CMAKE_C_COMPILER ${COAP_RPC_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${COAP_RPC_CROSS_TRIPLE}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${COAP_RPC_CROSS_LIBS})

set(root ${COAP_RPC_CROSS_ROOT})
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_INIT
    "-isystem ${root}/usr/include -isystem ${root}/usr/include/${COAP_RPC_CROSS_LIBS}")
endforeach()
set(folders ${root}/usr/lib/${COAP_RPC_CROSS_LIBS} ${root}/lib/${COAP_RPC_CROSS_LIBS})
foreach(kind EXE SHARED MODULE)
  list(TRANSFORM folders PREPEND "-Wl,-rpath-link," OUTPUT_VARIABLE flags)
  list(JOIN flags " " flags)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-L${root}/usr/lib/${COAP_RPC_CROSS_LIBS} ${flags}")
endforeach()

set(CMAKE_FIND_ROOT_PATH ${root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()

list(JOIN folders ":" path)
set(system /usr/${COAP_RPC_CROSS_TRIPLE})
set(CMAKE_CROSSCOMPILING_EMULATOR ${COAP_RPC_CROSS_QEMU} -L ${system}
  -E LD_LIBRARY_PATH=${path}:${system}/lib)
