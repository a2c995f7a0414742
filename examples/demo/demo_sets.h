// demo_sets.h: the tables of the demo.
#ifndef DEMO_SETS_H
#define DEMO_SETS_H

#include <cstddef>
#include <cstdint>

#include "example.h"

struct DemoSet {
  const char *uri;
  uint8_t payloadFormat;
};

enum DemoSetId { kInterfaces, kCpuTimes, kProcesses, kFilesJson, kFilesIdl, kNumDemoSets };

constexpr DemoSet kDemoSets[] = {
    {"net", COAP_RPC_JSON},   {"cpu", COAP_RPC_BYTE},       {"proc", COAP_RPC_JSON},
    {"files", COAP_RPC_JSON}, {"files-idl", COAP_RPC_BYTE},
};
static_assert(sizeof(kDemoSets) / sizeof(kDemoSets[0]) == kNumDemoSets);

constexpr size_t kNumFiles = 10000;
constexpr size_t kNumFilesIdl = 6000;  // more than one notification of 65,471 bytes

#endif  // DEMO_SETS_H
