// Loading web API modules: every "*.so" of the modules folder is checked
// (a regular file that others cannot write), opened with dlopen(RTLD_NOW),
// and asked for its method table (GetAPITable, required) and parameter-check
// table (GetAPICheckTable, optional). A module that fails any step is closed
// again and its path and reason logged; it adds nothing. Loaded modules stay
// in memory until the process ends. Not thread-safe.
#pragma once

#include <set>
#include <string>

#include "cgi/api_registry.h"
#include "orvelcommon/status.h"

namespace zemo::cgi {

// Loads one module into registry. APIs named in reserved (the built-in ones)
// cannot be served by a module; their rows are skipped.
orvel::Status LoadModule(const std::string& path, const std::set<std::string>& reserved,
                         ApiRegistry* registry);

// Loads every module of dir, in name order; returns how many loaded. A
// missing folder loads nothing.
int LoadModuleDir(const std::string& dir, const std::set<std::string>& reserved,
                  ApiRegistry* registry);

}  // namespace zemo::cgi
