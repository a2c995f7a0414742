/* page.h: the live page. */
#ifndef KESTREL_TOOLS_EXPORTER_PAGE_H
#define KESTREL_TOOLS_EXPORTER_PAGE_H

#include <string>
#include <string_view>
#include <vector>

#include "host_poller.h"

namespace exporter {

// Rows of a table that are in the page itself, for readers without script.
inline constexpr size_t kMaxStaticRows = 200;

// HtmlText is text for between tags and for attributes in double quotes.
std::string HtmlText(std::string_view text);

// PageText is page.html with the tables of all hosts as they are now.
std::string PageText(const std::vector<HostView> &hosts);

}  // namespace exporter

#endif /* KESTREL_TOOLS_EXPORTER_PAGE_H */
