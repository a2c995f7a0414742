// demo_machine.h: what this machine has to tell, as tables.
#ifndef DEMO_MACHINE_H
#define DEMO_MACHINE_H

#include "demo_table.h"

// ReadInterfaces: interface -> received bytes and packets, sent bytes and packets.  The interfaces
// of the machine and, where the process lives in a network of its own, those as well.
Rows ReadInterfaces();

// ReadCpuTimes: processor -> user, system, idle and waiting time in ticks.
Rows ReadCpuTimes();

// ReadProcesses: "<pid> <name>" -> ticks of processor time, resident KiB.
Rows ReadProcesses();

// ReadFiles: inode -> size in bytes of `num` files of this machine; numbered rows of size 0 stand
// in for missing files.
Rows ReadFiles(size_t num);

// LoadText is the load of the machine in one line.
std::string LoadText();

#endif  // DEMO_MACHINE_H
