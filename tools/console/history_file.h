/* history_file.h: where the history of commands is kept. */
#ifndef KESTREL_TOOLS_CONSOLE_HISTORY_FILE_H
#define KESTREL_TOOLS_CONSOLE_HISTORY_FILE_H

#include <string>

namespace console {

// HistoryPath returns the file in the user's state folder, which it makes; empty when there is no
// such folder and none can be made.
std::string HistoryPath();

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_HISTORY_FILE_H */
