// The migrations of the browsing tables (marks, sharing, recent items,
// backups, access requests) and of the search index; db/schema.cc lists
// them in its sorted table. Constant data, thread-safe.
#pragma once

namespace orvel::syncd {

extern const char kBrowseSchemaV10[];
extern const char kBrowseSchemaV11[];
extern const char kBrowseSchemaV21[];
// Password links: the password's hash on the link, and the grants that
// visitors who gave the password hold (only a digest of each is kept).
extern const char kBrowseSchemaV25[];

}  // namespace orvel::syncd
