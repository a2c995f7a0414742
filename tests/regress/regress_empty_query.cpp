// A request with an empty Uri-Query was answered with a reset.
#include "wire_server.h"

namespace coap_rpc_test {
namespace {

class EmptyQuery : public WireServer {
 protected:
  EmptyQuery() { Serve(KeyOf("a"), RegOf(&app_, 0)); }

  bool IsTaken(uint16_t number, size_t len, uint8_t byte) {
    CoapMessage request = Request(CoapType::kCon, kCodeGet, ++mid_, {0xAB});
    return Ask(request.Add(number, Bytes(len, byte)).AddPath("a")).type != CoapType::kRst;
  }

  App app_;
};

TEST_F(EmptyQuery, IsServed) {
  EXPECT_EQ(Ask(Get(CoapType::kCon, "a", "q").Add(kOptUriQuery)).type, CoapType::kAck);
  EXPECT_EQ(app_.requests.size(), 1U);
}

TEST_F(EmptyQuery, AmongOthers_IsServed) {
  CoapMessage request = Get(CoapType::kCon, "a", "q").Add(kOptUriQuery).AddText(kOptUriQuery, "b");
  EXPECT_EQ(Ask(request.Add(kOptUriQuery).Add(kOptUriQuery)).type, CoapType::kAck);
  EXPECT_EQ(app_.requests.size(), 1U);
}

// RFC 7252 section 5.10, RFC 7641 section 2 and RFC 7959 sections 2.1 and 4.
TEST_F(EmptyQuery, OptionsHaveTheLengthsOfTheStandard) {
  struct Limits {
    uint16_t number;
    size_t min, max;
    uint8_t byte;
  };
  constexpr Limits kLimits[] = {
      {kOptIfMatch, 0, 8, 'x'},
      {kOptUriHost, 1, 255, 'x'},
      {kOptEtag, 1, 8, 'x'},
      {kOptIfNoneMatch, 0, 0, 'x'},
      {kOptObserve, 0, 3, 0},
      {kOptUriPort, 0, 2, 0},
      {kOptUriPath, 0, 255, 'x'},
      {kOptContentFormat, 0, 2, 0},
      {kOptMaxAge, 0, 4, 0},
      {kOptUriQuery, 0, 255, 'x'},
      {kOptAccept, 0, 2, 0},
      {kOptLocationPath, 0, 255, 'x'},
      {kOptBlock2, 0, 3, 0},
      {kOptBlock1, 0, 3, 0},
      {kOptSize2, 0, 4, 0},
      {kOptSize1, 0, 4, 0},
      {/*Location-Query*/ 20, 0, 255, 'x'},
      {/*Proxy-Uri*/ 35, 1, 1034, 'x'},
      {/*Proxy-Scheme*/ 39, 1, 255, 'x'},
  };
  for (const Limits &limits : kLimits) {
    SCOPED_TRACE(limits.number);
    EXPECT_TRUE(IsTaken(limits.number, limits.min, limits.byte));
    EXPECT_TRUE(IsTaken(limits.number, limits.max, limits.byte));
    EXPECT_FALSE(IsTaken(limits.number, limits.max + 1, limits.byte));
    if (limits.min != 0) {
      EXPECT_FALSE(IsTaken(limits.number, limits.min - 1, limits.byte));
    }
  }
}

}  // namespace
}  // namespace coap_rpc_test
