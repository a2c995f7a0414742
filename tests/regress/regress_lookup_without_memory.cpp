// An observer that came or went while libcoap had no memory was not counted: the lookup of its
// entry asked for some.  It was never told anything, or stayed in the entry's count for ever.
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_lookup.h"
#include "libcoap_memory.h"
#include "wire_server.h"

namespace coap_rpc_test {
namespace {

class LookupWithoutMemory : public WireServer {
 protected:
  // FindBy looks up a GET with these path segments while there is no memory.
  CoapRpcSerUriVtbl *FindBy(const std::vector<std::string> &segments) {
    coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 200);
    for (const std::string &segment : segments) {
      coap_add_option(pdu, COAP_OPTION_URI_PATH, segment.size(),
                      reinterpret_cast<const uint8_t *>(segment.data()));
    }
    CoapRpcSerUriVtbl *entry = nullptr;
    {
      const NoMemory noMemory([](const Need &) { return true; });
      entry = COAP_RpcSerGetVtbl(Ctx(), pdu, nullptr);
    }
    coap_delete_pdu(pdu);
    return entry;
  }

  App app_;
};

TEST_F(LookupWithoutMemory, EntryIsFound) {
  CoapRpcSerUriVtbl *entry = Serve(KeyOf("a/b"), RegOf(&app_, 0));
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(FindBy({"a", "b"}), entry);
  EXPECT_EQ(FindBy({"a"}), nullptr);
  EXPECT_EQ(FindBy({"a", "b", ""}), nullptr);
  EXPECT_EQ(FindBy({}), nullptr);
}

// The path is written as libcoap writes it.
TEST_F(LookupWithoutMemory, OtherBytesArePercentEncoded) {
  CoapRpcSerUriVtbl *entry = Serve(KeyOf("%2F%00%FFa%25/-._~!$'()*+,;=:@&"), RegOf(&app_, 0));
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(FindBy({std::string("/\0\xFF"
                                "a%",
                                5),
                    "-._~!$'()*+,;=:@&"}),
            entry);
}

TEST_F(LookupWithoutMemory, PathOf32_IsTheLongest) {
  CoapRpcSerUriVtbl *longest = Serve(KeyOf(std::string(32, 'x').c_str()), RegOf(&app_, 0));
  Serve(KeyOf(std::string(33, 'x').c_str()), RegOf(&app_, 0));
  EXPECT_EQ(FindBy({std::string(32, 'x')}), longest);
  EXPECT_EQ(FindBy({std::string(33, 'x')}), nullptr);
}

}  // namespace
}  // namespace coap_rpc_test
