/* result.hpp: what a call of this interface returns: a value, or an Error with its text.
 *
 * must() is for those who want exceptions: it returns the value, or throws a Failure. */
#ifndef COAP_RPC_CPP_RESULT_HPP
#define COAP_RPC_CPP_RESULT_HPP

#include <version>

#if __cplusplus < 202002L
#error "coap_svc_rpc.hpp needs C++20"
#endif

#ifdef __cpp_lib_expected
#include <expected>
#define COAPRPC_EXPECTED_NAMESPACE std
#else
#include <tl/expected.hpp>
#define COAPRPC_EXPECTED_NAMESPACE tl
#endif

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/coap_rpc_call.h"

/* Sources of one program may be compiled with different settings.  Each setting has names of its
 * own for the linker. */
#ifdef __cpp_exceptions
#define COAPRPC_TRY try
#define COAPRPC_CATCH(declaration) catch (declaration)
#ifdef __cpp_lib_expected
#define COAPRPC_SETTING with_std_expected
#else
#define COAPRPC_SETTING with_tl_expected
#endif
#else
#define COAPRPC_TRY if constexpr (true)
#define COAPRPC_CATCH(declaration) else if constexpr (false)
#ifdef __cpp_lib_expected
#define COAPRPC_SETTING with_std_expected_without_exceptions
#else
#define COAPRPC_SETTING with_tl_expected_without_exceptions
#endif
#endif
#define COAPRPC_BEGIN \
  namespace coaprpc { \
  inline namespace COAPRPC_SETTING {
#define COAPRPC_END \
  }                 \
  }

COAPRPC_BEGIN

/* Error is why something failed. */
struct Error {
  uint32_t code = 0;     /* a result code of the library (1900000000 and above); 0: none applies */
  uint32_t status = 0;   /* of a call without an answer: COAP_RPC_CALL_TIMEOUT and so on; else 0 */
  const char *text = ""; /* a constant */

  const char *what() const { return text; }
  bool isTimeout() const { return status == COAP_RPC_CALL_TIMEOUT; }

  static Error ofCode(uint32_t code) { return {code, 0, COAP_RpcErrStr(code)}; }
  static Error ofText(const char *text) { return {0, 0, text}; }
  static Error noMemory() { return ofText("no memory"); }
  static Error closed() { return ofText("it has ended, or its node has"); }
};

template <typename T>
using Result = COAPRPC_EXPECTED_NAMESPACE::expected<T, Error>;
using Unexpected = COAPRPC_EXPECTED_NAMESPACE::unexpected<Error>;

/* check turns a result code of the C interface into a Result. */
inline Result<void> check(uint32_t code) {
  if (code != 0) return Unexpected(Error::ofCode(code));
  return {};
}

/* Failure is what must() throws. */
class Failure : public std::runtime_error {
 public:
  explicit Failure(const Error &error) : std::runtime_error(error.text), error_(error) {}
  const Error &error() const { return error_; }

 private:
  Error error_;
};

namespace detail {

// raise ends the program where exceptions are off, as an exception does that nobody catches.
[[noreturn]] inline void raise(const Error &error) {
#ifdef __cpp_exceptions
  throw Failure(error);
#else
  std::fprintf(stderr, "coaprpc: %s (%u)\n", error.text, error.code);
  std::abort();
#endif
}

}  // namespace detail

/* must returns the value of a Result, or throws a Failure. */
template <typename T>
T must(Result<T> result) {
  if (!result) detail::raise(result.error());
  if constexpr (!std::is_void_v<T>) return std::move(*result);
}

COAPRPC_END
#endif /* COAP_RPC_CPP_RESULT_HPP */
