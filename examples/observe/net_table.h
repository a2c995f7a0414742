/* net_table.h: the table of the example: network interfaces and their counters. */
#ifndef NET_TABLE_H
#define NET_TABLE_H

#include <stdint.h>

#define NET_URI "net"

/* Bytes travel as they are in memory, between hosts of different kinds as well: texts of a fixed
 * size, padded with zeros, and numbers in network byte order (htobe64). */
typedef struct NetKey {
  char name[16];
} NetKey;

typedef struct NetValue {
  uint64_t rxBytes, rxPackets, txBytes, txPackets;
} NetValue;

#endif /* NET_TABLE_H */
