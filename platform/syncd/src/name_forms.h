// name_forms: Unicode normalisation of item names. One name can be spelt
// with precomposed characters (NFC: "é" as U+00E9, what most systems type)
// or decomposed ones (NFD: "e" + U+0301, what some Mac clients write). The
// service gives the names it creates the NFC spelling, and looks a name up
// under each spelling, so the two forms are one name for conflicts and
// look-ups (docs/daemon.md, "Names"). Names found on disk keep the bytes they
// have; a name that is not valid UTF-8 is never changed.
// Thread-safe (ICU's normalisers are immutable singletons).
#pragma once

#include <string>
#include <vector>

namespace orvel::syncd {

// The NFC spelling of name; name itself when it is ASCII, is not valid
// UTF-8, or ICU is not available.
std::string NormalizeName(const std::string& name);

// The spellings a stored name equal to `name` may have: name itself, then
// its NFC and NFD forms when they differ (no duplicates).
std::vector<std::string> NameForms(const std::string& name);

}  // namespace orvel::syncd
