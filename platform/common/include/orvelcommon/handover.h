// The hand-over folder: where entry.cgi puts the hard links of the files it
// hands to the web server by X-Sendfile (<data>/@tmp/handover). The web
// server opens a link only after it has read entry.cgi's headers, which may
// be after entry.cgi removed the download's own links, so a hand-over link
// outlives its request: its name starts with the Unix time it was made, and
// links older than kHandOverLinkSeconds are swept by entry.cgi at each
// hand-over and by the daemon's job worker every minute. Stateless;
// thread-safe.
#pragma once

#include <cstdint>
#include <string>

namespace orvel {

// A hand-over link is swept once it is this old: far longer than the web
// server takes to read a header block, short enough for nothing to pile up.
constexpr int64_t kHandOverLinkSeconds = 300;

// <tmp_dir>/handover
std::string HandOverFolder(const std::string& tmp_dir);

// A new link name for the time now: "<now>-<16 random hex digits>".
std::string HandOverLinkName(int64_t now);

// Removes the links of the hand-over folder of tmp_dir made more than
// max_age seconds before now (and names that are not link names). Returns
// how many were removed; a missing folder removes nothing.
int SweepHandOver(const std::string& tmp_dir, int64_t now, int64_t max_age);

}  // namespace orvel
