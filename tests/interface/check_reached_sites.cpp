// Compares the sites that tests have reached with the list of sites.
//
//   check_reached_sites <unreachable>             only looks at the exceptions
//   check_reached_sites <unreachable> <reached>   and expects every other site to be reached
//
// Both files name a site on a line by kind ("code", "assert", "log"), place and number; a line of
// the exceptions goes on with the reason.  Exit status 1: an exception without reason or site, one
// that was reached after all, or a site that was not.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <tuple>

#include "coap_svc/rpc/common/coap_rpc_sites.h"

namespace {

using Place = std::tuple<std::string, std::string, uint32_t>;  // kind, where, number

std::map<Place, std::string> g_names;  // of all sites

void AddSite(const char *name, const char *path, uint32_t code, uint32_t assertLine) {
  if (code != 0) g_names[{"code", path, code}] = name;
  if (assertLine != 0) g_names[{"assert", path, assertLine}] = name;
}

void FillNames() {
#define ADD_SITE(name, path, code, assertLine, meaning) \
  AddSite("kSite" #name, coap_rpc::path, code, assertLine);
  COAP_RPC_SITES(ADD_SITE)
#undef ADD_SITE
#define ADD_LOG_SITE(name, func, line, level) g_names[{"log", func, line}] = "kLog" #name;
  COAP_RPC_LOG_SITES(ADD_LOG_SITE)
#undef ADD_LOG_SITE
}

int g_numFaults = 0;

void Fault(const Place &place, const std::string &what) {
  const auto found = g_names.find(place);
  std::cout << (found == g_names.end() ? "?" : found->second) << " (" << std::get<0>(place) << " "
            << std::get<1>(place) << " " << std::get<2>(place) << "): " << what << "\n";
  ++g_numFaults;
}

// Read reads a file of sites, with the rest of each line.  Lines that begin with # are remarks.
std::map<Place, std::string> Read(const char *path) {
  std::map<Place, std::string> places;
  std::ifstream file(path);
  if (!file) std::cout << "cannot read " << path << "\n", ++g_numFaults;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream words(line);
    Place place;
    std::string rest;
    words >> std::get<0>(place) >> std::get<1>(place) >> std::get<2>(place) >> std::ws;
    std::getline(words, rest);
    places[place] = rest;
  }
  return places;
}

void CheckExceptions(const std::map<Place, std::string> &exceptions) {
  for (const auto &[place, reason] : exceptions) {
    if (g_names.count(place) == 0) Fault(place, "an exception for no site");
    if (reason.empty()) Fault(place, "an exception without a reason");
  }
}

void CheckReached(const std::map<Place, std::string> &exceptions,
                  const std::map<Place, std::string> &reached) {
  for (const auto &[place, name] : g_names) {
    const bool isReached = reached.count(place) != 0;
    if (isReached && exceptions.count(place) != 0) Fault(place, "was reached after all");
    if (!isReached && exceptions.count(place) == 0) Fault(place, "no test reaches it");
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2 && argc != 3) return 2;
  FillNames();
  const std::map<Place, std::string> exceptions = Read(argv[1]);
  CheckExceptions(exceptions);
  if (argc == 3) {
    CheckReached(exceptions, Read(argv[2]));
    std::cout << g_names.size() - exceptions.size() << " sites to be reached, " << exceptions.size()
              << " exceptions, " << g_numFaults << " faults\n";
  }
  return g_numFaults == 0 ? 0 : 1;
}
