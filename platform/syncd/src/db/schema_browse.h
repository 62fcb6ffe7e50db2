// The migrations of the browsing tables (marks, sharing, recent items,
// backups, access requests) and of the search index; db/schema.cc lists
// them in its sorted table. Constant data, thread-safe.
#pragma once

namespace orvel::syncd {

extern const char kBrowseSchemaV10[];
extern const char kBrowseSchemaV11[];
extern const char kBrowseSchemaV21[];

}  // namespace orvel::syncd
